// Fuzz target: the value text form through the registry. Text that parses is written back,
// and that text must parse again into an equal value with the same text. Text that does not
// parse is refused with Mox::RangeException, nothing else.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>

#include "lib/registry/TypeRegistry.h"
#include "platform/mox/Exception.h"

namespace {

[[noreturn]] void fault(const char* what, const std::string& text) {
  std::fprintf(stderr, "%s: %s\n", what, text.c_str());
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto& registry = Rova::TypeRegistry::instance();
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  Rova::Value value;
  try {
    value = registry.parse(text);
  } catch (const Mox::RangeException&) {
    return 0;
  } catch (const std::exception& e) {
    fault("not a range error", e.what());
  }
  std::string written;
  Rova::Value again;
  try {
    written = registry.text(value);
    again = registry.parse(written);
  } catch (const std::exception& e) {
    fault("the written text does not parse", written + ": " + e.what());
  }
  // A NaN inside is not equal to itself; its text must still come back the same.
  const bool comparable = value == value;
  if (comparable && !(again == value)) fault("parsed again, the value differs", written);
  if (registry.text(again) != written) fault("written again, the text differs", written);
  return 0;
}
