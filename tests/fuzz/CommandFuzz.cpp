// Fuzz target: a command line, matched by the grammar and run by the rova commands on the
// built-in example device. A command may fail, but never with an internal error (70); in JSON
// mode standard output holds exactly one valid JSON document; and standard error never
// carries a control character other than the newline, whatever the words were.

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "cli/Commands.h"
#include "cli/Grammar.h"
#include "cli/Runner.h"
#include "tests/support/Capture.h"

namespace {

using rovatest::MemoryFile;

struct Program {
  Program() : out("rova-out"), err("rova-err") {
    cli::addCommands(grammar);
    if (cli::loadState("", {}, cli::Context{out.fd(), err.fd()}) != cli::kStatusOk) std::abort();
  }
  cli::Grammar grammar;
  MemoryFile out;
  MemoryFile err;
};

[[noreturn]] void fault(const char* what, const std::string& line, const std::string& detail) {
  std::fprintf(stderr, "%s\nline: %s\n%s\n", what, line.c_str(), detail.c_str());
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Program program;
  const std::string line(reinterpret_cast<const char*>(data), size);
  // One command per input; the first line only, as the shell would read it.
  const std::vector<std::string> words = cli::splitWords(line.substr(0, line.find('\n')));
  const cli::MatchResult match = program.grammar.match(words);
  // `write FILE` saves the state to any path the input names: a fuzzer must not leave files
  // behind, nor replace one of the machine's. Its refusals are the loader's and the shell's,
  // tested there.
  if (match.match && match.match->flag("write")) return 0;
  const bool json = cli::Grammar::formatOf(match, words) == cli::Format::json;
  const int status =
      cli::runCommand(program.grammar, words, cli::Context{program.out.fd(), program.err.fd()});
  const std::string out = program.out.take();
  const std::string err = program.err.take();
  if (status == cli::kStatusInternal) fault("internal error", line, err);
  if (json && !nlohmann::json::accept(out)) fault("not one JSON document", line, out);
  for (char c : err) {
    if ((static_cast<unsigned char>(c) < 0x20 && c != '\n') || c == 0x7f) {
      fault("a control character in a message", line, err);
    }
  }
  return 0;
}
