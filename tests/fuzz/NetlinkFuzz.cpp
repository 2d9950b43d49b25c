// Fuzz target: the live source's decoding of the kernel's netlink messages. The input is what
// the kernel's dumps could answer with: data messages one after another, each dump taking those
// of its type in the order a read takes the dumps (Snapshot::detail::stateOfMessages decodes
// them exactly as a read does). Any way out but a state or a LiveError is a fault (another
// exception, a crash, a sanitizer report, a hang). A state that builds is one rova can show
// and keep:
// - the document it is saved as loads, and saving that gives the same document;
// - every listing of every VRF passes ScriptRunner::check in JSON.
// The seeds (corpus/netlink) are a namespace's real answers; netlink-seeds.py writes them.

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

#include "snapshot/Live.h"
#include "snapshot/Snapshot.h"
#include "tests/fuzz/ScriptRunner.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view messages(reinterpret_cast<const char*>(data), size);
  // The input is binary: a fault names it by the file libFuzzer or the replay reports.
  constexpr std::string_view kInput = "(netlink messages)";
  fuzz::ScriptRunner& runner = fuzz::ScriptRunner::instance();
  Mox::Ptr<Statum::EntityManager> em;
  try {
    em = Snapshot::detail::stateOfMessages(messages);
  } catch (const Snapshot::LiveError&) {
    return 0;  // the documented refusal
  } catch (const std::exception& e) {
    runner.fault("the live source threw something other than LiveError", kInput, e.what());
  }

  const std::string saved = Snapshot::write(*em);
  try {
    if (Snapshot::write(*Snapshot::load(saved)) != saved)
      runner.fault("saved, loaded and saved again, the live state changes", kInput, saved);
  } catch (const Snapshot::LoadError& e) {
    runner.fault("the saved live state does not load", kInput,
                 std::string(e.what()) + "\n" + saved);
  }
  runner.use(std::move(em));
  for (auto& command : runner.listingCommands(true))
    runner.check(runner.runWords(std::move(command)), kInput);
  return 0;
}
