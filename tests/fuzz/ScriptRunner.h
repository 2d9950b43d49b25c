#pragma once
// What the fuzz targets that run rova commands share: a script runs line by line the way the
// shell reads one from a pipe with --keep-going (configuration modes included), on a state
// that belongs to the input alone, and `write` saves only into a temporary directory the
// runner made itself.
//
// A fuzzer must never save where its input says: a generated path may name any file of the
// machine, and `write` replaces a file atomically. Every `write` therefore goes to one file in
// the runner's own directory, whatever path the line gave; the directory is emptied after each
// input and removed when the program ends (TMPDIR says where it is made).

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "cli/Grammar.h"
#include "cli/Runner.h"
#include "cli/Shell.h"
#include "platform/mox/Ptr.h"
#include "platform/statum/EntityManager.h"
#include "tests/support/Capture.h"

namespace fuzz {

// One line as it ran.
struct LineRun {
  std::vector<std::string> words;
  // The mode the line was read in: "exec", "config", "interface", "vrf" or "nexthop-group".
  std::string mode;
  const cli::Grammar* grammar = nullptr;
  bool json = false;
  int status = cli::kStatusOk;
  std::string out;
  std::string err;
};

class ScriptRunner {
 public:
  // The one runner of the process: the rova commands have one state and one shell session.
  static ScriptRunner& instance();

  // The state for the next input: the built-in example as it loads (loaded again unless the
  // last input left it unchanged), or a state loaded elsewhere. Either way the shell is
  // outside configuration mode.
  void useExample();
  void use(Mox::Ptr<Statum::EntityManager> em);

  // Runs one line in the current mode; false (and nothing run) when the line leaves the shell:
  // `exit` or `quit` outside configuration mode. A blank line runs nothing.
  bool run(std::string_view line, LineRun& result);
  // Runs every line of `script` until one leaves the shell; `each` sees every line that ran.
  template <class F>
  void runScript(std::string_view script, F each);
  // Runs a command given as words in the current mode, as it stands (`write` included).
  LineRun runWords(std::vector<std::string> words);
  // Back to the command table from any configuration mode.
  void leaveModes();
  // The mode the next line is read in.
  cli::ShellMode mode() const { return modes_(); }

  // Every listing of the state, for each of its VRFs: routes with detail, host routes,
  // summaries, static routes in the RIB and dynamic, nexthop groups and their summary; and the
  // static routes configured. In JSON when asked.
  std::vector<std::vector<std::string>> listingCommands(bool json) const;
  // The listings in text, run one after the other, each with its status and messages, as one
  // text; each passes check() as a fault of `input`.
  std::string listings(std::string_view input);

  // Where `write` lines save; removed again by clearFiles().
  const std::string& writeTarget() const { return writeTarget_; }
  // A path inside the runner's directory.
  std::string path(std::string_view name) const;
  // Removes whatever the last input left in the directory.
  void clearFiles();

  // What every command must do, whatever its words: end without an internal error (70), leave
  // exactly one valid JSON document on standard output in JSON mode, and put no control
  // character other than the newline in a message. A line that does not is a fault of `input`.
  void check(const LineRun& r, std::string_view input);

  // Reports a fault with the input that caused it and ends the program the way libFuzzer
  // reports a crash; the directory goes first.
  [[noreturn]] void fault(const char* what, std::string_view input, std::string_view detail);

  ScriptRunner(const ScriptRunner&) = delete;
  ScriptRunner& operator=(const ScriptRunner&) = delete;

 private:
  ScriptRunner();
  ~ScriptRunner();

  rovatest::MemoryFile out_{"rova-fuzz-out"};
  rovatest::MemoryFile err_{"rova-fuzz-err"};
  cli::Grammar exec_;
  cli::ModeSource modes_;
  std::string dir_;
  std::string writeTarget_;
};

template <class F>
void ScriptRunner::runScript(std::string_view script, F each) {
  while (!script.empty()) {
    const std::size_t end = script.find('\n');
    const std::string_view line = script.substr(0, end);
    script = end == std::string_view::npos ? std::string_view() : script.substr(end + 1);
    LineRun result;
    if (!run(line, result)) return;
    if (!result.words.empty()) each(result);
  }
}

}  // namespace fuzz
