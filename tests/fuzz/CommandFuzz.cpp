// Fuzz target: a script of rova command lines, run as the shell runs one piped in with
// --keep-going (configuration mode and its interface and VRF modes included, `clear` and
// `write` too), on a fresh copy of the built-in example: nothing one input changes reaches the
// next. Every line may fail, but only the ways ScriptRunner::check allows. After a script that
// changed the state, every listing of every VRF runs in JSON by the same rules (the round-trip
// target runs them in text).

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "cli/DeviceState.h"
#include "tests/fuzz/ScriptRunner.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::ScriptRunner& runner = fuzz::ScriptRunner::instance();
  const std::string_view script(reinterpret_cast<const char*>(data), size);
  runner.useExample();
  runner.runScript(script, [&](const fuzz::LineRun& r) { runner.check(r, script); });
  if (cli::state().unsaved()) {
    runner.leaveModes();
    for (auto& command : runner.listingCommands(true))
      runner.check(runner.runWords(std::move(command)), script);
  }
  runner.leaveModes();
  runner.clearFiles();
  return 0;
}
