#include "snapshot/JsonLibrary.h"

#include <dlfcn.h>

#include <stdexcept>
#include <string>

namespace Snapshot {

namespace {

struct Library {
  using Active = simdjson::internal::atomic_ptr<const simdjson::implementation>;
  void* handle = nullptr;
  Active& (*active)() = nullptr;
  const simdjson::internal::error_code_info* errors = nullptr;
  std::string failure;

  Library() {
    handle = dlopen(ROVA_SIMDJSON_SONAME, RTLD_LAZY | RTLD_LOCAL);
    if (!handle) {
      failure = dlerror();
      return;
    }
    // The library's C++ names, as its header declares them.
    void* get = dlsym(handle, "_ZN8simdjson25get_active_implementationEv");
    void* table = dlsym(handle, "_ZN8simdjson8internal11error_codesE");
    if (!get || !table) {
      failure = "it lacks the parser's entry points";
      return;
    }
    active = reinterpret_cast<Active& (*)()>(get);
    errors = static_cast<const simdjson::internal::error_code_info*>(table);
  }
};

const Library& library() {
  static const Library lib;
  return lib;
}

thread_local bool builtinWanted = false;

}  // namespace

JsonKernelFor::JsonKernelFor(std::size_t bytes) : before_(builtinWanted) {
  builtinWanted = bytes <= kBuiltinJsonKernelLimit;
  if (!builtinWanted) requireJsonLibrary();
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
  const Library& lib = library();
  const int n = static_cast<int>(e);
  if (!lib.errors || n < 0 || n >= simdjson::NUM_ERROR_CODES) return "unknown JSON error";
  return lib.errors[n].message;
}

}  // namespace Snapshot

namespace simdjson {

internal::atomic_ptr<const implementation>& get_active_implementation() {
  if (Snapshot::builtinWanted) return Snapshot::builtinJsonKernel();
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
