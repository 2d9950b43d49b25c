// Fuzz target: what rova saves, it loads back as the same state. The input is a configuration
// script run on the built-in example, or a state document ("{..."), or a document, a NUL byte
// and a script run on it. A state that loads, changed by whatever the script's lines were
// accepted, is saved with `write` (to a file in the target's own directory), and then:
// - every listing passes ScriptRunner::check before and after;
// - the file loads;
// - every listing of every VRF (routes, host routes, summaries, static routes, nexthop groups,
//   running-config) reads the same, byte for byte, statuses and messages included;
// - saving the reloaded state, in the form of that file, gives the same file.

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>

#include "cli/DeviceState.h"
#include "snapshot/Snapshot.h"
#include "tests/fuzz/ScriptRunner.h"

namespace {

std::string fileText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The first line where two listings part, with the command that printed it.
std::string firstDifference(const std::string& before, const std::string& after) {
  std::istringstream a(before), b(after);
  std::string la, lb, command;
  for (int n = 1;; ++n) {
    const bool moreA = static_cast<bool>(std::getline(a, la));
    const bool moreB = static_cast<bool>(std::getline(b, lb));
    if (!moreA && !moreB) return "no difference";
    if (!moreA) la = "(end)";
    if (!moreB) lb = "(end)";
    if (la != lb || !moreA || !moreB) {
      return "after `" + command + "`, line " + std::to_string(n) + "\nbefore: " + la +
             "\nafter:  " + lb;
    }
    if (la.rfind("$ ", 0) == 0) command = la.substr(2);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::ScriptRunner& runner = fuzz::ScriptRunner::instance();
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  std::string_view document, script = input;
  if (const std::size_t nul = input.find('\0'); nul != std::string_view::npos) {
    document = input.substr(0, nul);
    script = input.substr(nul + 1);
  } else if (input.find_first_not_of(" \t\r\n") != std::string_view::npos &&
             input[input.find_first_not_of(" \t\r\n")] == '{') {
    document = input;
    script = {};
  }
  if (document.empty()) {
    runner.useExample();
  } else {
    try {
      runner.use(Snapshot::load(document));
    } catch (const Snapshot::LoadError&) {
      return 0;
    }
  }
  runner.runScript(script, [](const fuzz::LineRun&) {});
  // The example as it loads goes round with every script that changes it.
  if (document.empty() && !cli::state().unsaved()) return 0;

  const std::string before = runner.listings(input);
  const fuzz::LineRun write = runner.runWords({"write", runner.writeTarget()});
  if (write.status != cli::kStatusOk) runner.fault("the state cannot be saved", input, write.err);
  const std::string saved = fileText(runner.writeTarget());
  try {
    cli::state().load(runner.writeTarget());
  } catch (const Snapshot::LoadError& e) {
    runner.fault("the saved state does not load", input, e.what());
  }
  const std::string after = runner.listings(input);
  if (after != before) {
    runner.fault("the reloaded state lists differently", input, firstDifference(before, after));
  }
  if (Snapshot::write(cli::state().entities(), saved) != saved) {
    runner.fault("saved again, the reloaded state gives another file", input, saved);
  }
  runner.clearFiles();
  return 0;
}
