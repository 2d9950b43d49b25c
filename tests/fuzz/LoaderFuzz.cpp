// Fuzz target: the state loader. A document either loads or is refused with a LoadError; any
// other way out (another exception, a crash, a sanitizer report, a hang) is a fault.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <string_view>

#include "snapshot/Snapshot.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    Snapshot::load(text);
  } catch (const Snapshot::LoadError&) {
    // The documented refusal.
  } catch (const std::exception&) {
    std::abort();
  }
  return 0;
}
