// Fuzz target: the state loader. A document either loads or is refused with a LoadError; any
// other way out (another exception, a crash, a sanitizer report, a hang) is a fault. A
// document that loads is a state rova can show and keep:
// - every listing of every VRF passes ScriptRunner::check (no internal error, one JSON
//   document, clean messages) in JSON, which selects what the text shows; the round-trip
//   target, which starts from these seeds too, runs them in text;
// - the document the state is saved as loads again, and saving that gives the same document;
// - written in the form of the document it came from, the state gives that document back.
// The round-trip target goes further: the reloaded state must list the same.
// - loaded with the route arrays read from the text before the parser, whole or without a
//   family's tables, and through the window a settled file is read by (on one thread, and on
//   two, the second started part way in), a document is refused exactly when the loader
//   reading every route itself refuses it, with the same message: the tables left out are
//   checked, not trusted.

#include <sys/mman.h>
#include <unistd.h>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>

#include "snapshot/Snapshot.h"
#include "snapshot/loader/Loader.h"
#include "tests/fuzz/ScriptRunner.h"

namespace {

// "loaded", or the refusal's message; a load that sent the caller back to the whole reading
// (the window did not prove what it left out) is `fallback`.
template <class Load>
std::string outcome(fuzz::ScriptRunner& runner, std::string_view text, Load load,
                    const std::string& fallback = "") {
  try {
    return load() ? "loaded" : fallback;
  } catch (const Snapshot::LoadError& e) {
    return e.what();
  } catch (const std::exception& e) {
    runner.fault("the loader threw something other than LoadError", text, e.what());
  }
}

// The text in memory that reads as a file (no file is written), for the window's reading.
struct MemoryFile {
  explicit MemoryFile(std::string_view text) : fd(::memfd_create("rova-fuzz-state", MFD_CLOEXEC)) {
    for (std::size_t at = 0; fd >= 0 && at < text.size();) {
      const ssize_t n = ::write(fd, text.data() + at, text.size() - at);
      if (n <= 0) std::abort();
      at += static_cast<std::size_t>(n);
    }
    if (fd < 0 || ::lseek(fd, 0, SEEK_SET) != 0) std::abort();
  }
  ~MemoryFile() { ::close(fd); }
  int fd;
};

void checkSectionsLeftOut(fuzz::ScriptRunner& runner, std::string_view text,
                          const std::string& whole) {
  constexpr Snapshot::Sections kPartial[] = {
      Snapshot::Sections::all(),
      Snapshot::Sections::none(),
      {.ipv4Routes = true, .ipv6Routes = false},
      {.ipv4Routes = false, .ipv6Routes = true},
  };
  for (const Snapshot::Sections s : kPartial) {
    const std::string fromText = outcome(runner, text, [&] { return Snapshot::load(text, s); });
    if (fromText != whole) {
      runner.fault("loaded through the scan, the document is refused otherwise", text,
                   whole + "\n" + fromText);
    }
    MemoryFile file(text);
    // On one thread, and on two with the second started a third and a half of the way in.
    for (const std::size_t splitAt : {std::size_t(0), text.size() / 3, text.size() / 2}) {
      const std::string fromWindow = outcome(
          runner, text,
          [&] {
            return Snapshot::detail::loadStripped(
                file.fd, text.size(), s, [] { return true; }, splitAt);
          },
          whole);
      if (fromWindow != whole) {
        runner.fault(
            "read through the window without a family's tables, the document is refused "
            "otherwise",
            text, whole + "\n" + fromWindow + "\nsecond thread from " + std::to_string(splitAt));
      }
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  fuzz::ScriptRunner& runner = fuzz::ScriptRunner::instance();
  Mox::Ptr<Statum::EntityManager> em;
  const std::string whole =
      outcome(runner, text, [&] { return Snapshot::detail::loadRouteByRoute(text); });
  checkSectionsLeftOut(runner, text, whole);
  if (whole != "loaded") return 0;  // the documented refusal
  em = Snapshot::load(text);

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
