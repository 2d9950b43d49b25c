// Fuzz target: the state loader. A document either loads or is refused with a LoadError; any
// other way out (another exception, a crash, a sanitizer report, a hang) is a fault. A
// document that loads is a state rova can show and keep:
// - every listing of every VRF passes ScriptRunner::check (no internal error, one JSON
//   document, clean messages) in JSON, which selects what the text shows; the round-trip
//   target, which starts from these seeds too, runs them in text;
// - the document the state is saved as loads again, and saving that gives the same document;
// - written in the form of the document it came from, the state gives that document back.
// The round-trip target goes further: the reloaded state must list the same.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>

#include "snapshot/Snapshot.h"
#include "tests/fuzz/ScriptRunner.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  fuzz::ScriptRunner& runner = fuzz::ScriptRunner::instance();
  Mox::Ptr<Statum::EntityManager> em;
  try {
    em = Snapshot::load(text);
  } catch (const Snapshot::LoadError&) {
    return 0;  // the documented refusal
  } catch (const std::exception& e) {
    runner.fault("the loader threw something other than LoadError", text, e.what());
  }

  const std::string saved = Snapshot::write(*em);
  try {
    if (Snapshot::write(*Snapshot::load(saved)) != saved) {
      runner.fault("saved, loaded and saved again, the document changes", text, saved);
    }
  } catch (const Snapshot::LoadError& e) {
    runner.fault("the saved document does not load", text, std::string(e.what()) + "\n" + saved);
  }
  // Written in its own form, an unchanged state is its document again, byte for byte.
  if (Snapshot::write(*em, text) != text) {
    runner.fault("written in its own form, the unchanged state gives another document", text,
                 Snapshot::write(*em, text));
  }

  runner.use(std::move(em));
  for (auto& command : runner.listingCommands(true))
    runner.check(runner.runWords(std::move(command)), text);
  return 0;
}
