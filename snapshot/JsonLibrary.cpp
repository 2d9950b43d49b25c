#include "snapshot/JsonLibrary.h"

#include <dlfcn.h>

#include <atomic>
#include <iterator>
#include <stdexcept>
#include <string>

namespace Snapshot {

namespace {

struct Library {
  using Active = simdjson::internal::atomic_ptr<const simdjson::implementation>;
  void* handle = nullptr;
  Active& (*active)() = nullptr;
  std::string failure;

  Library() {
    handle = dlopen(ROVA_SIMDJSON_SONAME, RTLD_LAZY | RTLD_LOCAL);
    if (!handle) {
      failure = dlerror();
      return;
    }
    // The library's C++ names, as its header declares them.
    void* get = dlsym(handle, "_ZN8simdjson25get_active_implementationEv");
    if (!get) {
      failure = "it lacks the parser's entry points";
      return;
    }
    active = reinterpret_cast<Active& (*)()>(get);
  }
};

const Library& library() {
  static const Library lib;
  return lib;
}

thread_local bool builtinWanted = false;
std::atomic<bool> builtinOnly{false};

// The parser's texts for its errors, by error code: the same as the library's (a test compares
// them), for a program that never opens it.
constexpr const char* kErrorMessages[] = {
    "No error",
    "This parser can't support a document that big",
    "Error allocating memory, we're most likely out of memory",
    "The JSON document has an improper structure: missing or superfluous commas, braces, missing "
    "keys, etc.",
    "The JSON document was too deep (too many nested objects and arrays)",
    "Problem while parsing a string",
    "Problem while parsing an atom starting with the letter 't'",
    "Problem while parsing an atom starting with the letter 'f'",
    "Problem while parsing an atom starting with the letter 'n'",
    "Problem while parsing a number",
    "The input is not valid UTF-8",
    "Uninitialized",
    "Empty: no JSON found",
    "Within strings, some characters must be escaped, we found unescaped characters",
    "A string is opened, but never closed.",
    "simdjson does not have an implementation supported by this CPU architecture (perhaps it's a "
    "non-SIMD CPU?).",
    "The JSON element does not have the requested type.",
    "The JSON number is too large or too small to fit within the requested type.",
    "Attempted to access an element of a JSON array that is beyond its length.",
    "The JSON field referenced does not exist in this object.",
    "Error reading the file.",
    "Invalid JSON pointer syntax.",
    "Invalid URI fragment syntax.",
    "Unexpected error, consider reporting this problem as you may have found a bug in simdjson",
    "Cannot parse a new document while a document is still in use.",
    "Objects and arrays can only be iterated when they are first encountered.",
    "simdjson requires the input JSON string to have at least SIMDJSON_PADDING extra bytes "
    "allocated, beyond the string's length. Consider using the simdjson::padded_string class if "
    "needed.",
    "JSON document ended early in the middle of an object or array.",
    "A JSON document made of a scalar (number, Boolean, null or string) is treated as a value. "
    "Use get_bool(), get_double(), etc. on the document instead. ",
    "Attempted to access location outside of document.",
    "Unexpected trailing content in the JSON input.",
};
static_assert(std::size(kErrorMessages) == simdjson::NUM_ERROR_CODES,
              "a text for each of the parser's errors");

}  // namespace

JsonKernelFor::JsonKernelFor(std::size_t bytes) : before_(builtinWanted) {
  builtinWanted = bytes <= kBuiltinJsonKernelLimit || builtinOnly.load(std::memory_order_relaxed);
  if (!builtinWanted) requireJsonLibrary();
}

void useBuiltinJsonKernelOnly() {
  builtinOnly.store(true, std::memory_order_relaxed);
}

JsonKernelFor::~JsonKernelFor() {
  builtinWanted = before_;
}

void requireJsonLibrary() {
  const Library& lib = library();
  if (!lib.active)
    throw std::runtime_error("cannot load the JSON parser library " ROVA_SIMDJSON_SONAME ": " +
                             lib.failure);
}

const char* jsonErrorMessage(simdjson::error_code e) {
  const int n = static_cast<int>(e);
  if (n < 0 || n >= simdjson::NUM_ERROR_CODES) return "unknown JSON error";
  return kErrorMessages[n];
}

}  // namespace Snapshot

namespace simdjson {

internal::atomic_ptr<const implementation>& get_active_implementation() {
  if (Snapshot::builtinWanted || Snapshot::builtinOnly.load(std::memory_order_relaxed))
    return Snapshot::builtinJsonKernel();
  Snapshot::requireJsonLibrary();
  return Snapshot::library().active();
}

namespace internal {

// The parser's table of the bytes that end an atom: every byte but JSON's four blanks and six
// structural characters. The library has the same table; a test compares the two.
#define ROVA_NOT_SEP(c)                                                                    \
  !((c) == ' ' || (c) == '\t' || (c) == '\n' || (c) == '\r' || (c) == ',' || (c) == ':' || \
    (c) == '[' || (c) == ']' || (c) == '{' || (c) == '}')
#define ROVA_NOT_SEP4(c) \
  ROVA_NOT_SEP(c), ROVA_NOT_SEP(c + 1), ROVA_NOT_SEP(c + 2), ROVA_NOT_SEP(c + 3)
#define ROVA_NOT_SEP16(c) \
  ROVA_NOT_SEP4(c), ROVA_NOT_SEP4(c + 4), ROVA_NOT_SEP4(c + 8), ROVA_NOT_SEP4(c + 12)
#define ROVA_NOT_SEP64(c) \
  ROVA_NOT_SEP16(c), ROVA_NOT_SEP16(c + 16), ROVA_NOT_SEP16(c + 32), ROVA_NOT_SEP16(c + 48)
const bool structural_or_whitespace_negated[256] = {ROVA_NOT_SEP64(0), ROVA_NOT_SEP64(64),
                                                    ROVA_NOT_SEP64(128), ROVA_NOT_SEP64(192)};
#undef ROVA_NOT_SEP64
#undef ROVA_NOT_SEP16
#undef ROVA_NOT_SEP4
#undef ROVA_NOT_SEP

}  // namespace internal

}  // namespace simdjson
