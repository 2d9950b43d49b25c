#pragma once
// The JSON parser's shared library is opened the first time a document is parsed, not when a
// program starts. A command attached to an agent, or one that reads no state file, never
// parses JSON, and loading the library at start (with the C++ runtime it depends on) cost such
// a command about a third of its few milliseconds. JsonLibrary.cpp defines the few symbols
// that the parser's header expects from the library, and forwards them to the library once it
// is open.

#include <simdjson.h>

#include <cstddef>
#include <string_view>

namespace Snapshot {

// Opens the library if it is not open yet; throws std::runtime_error naming the library and
// the reason when it cannot be opened. Every parse calls it first, so that a missing library
// is a clear message rather than a failure inside the parser's noexcept code.
void requireJsonLibrary();

// Whether `text` is UTF-8 as the standard has it: what the parser takes in a document, without
// the library.
bool validUtf8(std::string_view text);

// The parser's own text for an error, as simdjson::error_message gives it (the program keeps
// a copy of the library's texts, so that reporting an error never needs the library).
const char* jsonErrorMessage(simdjson::error_code e);

// For a program that must not open the library: the rova program, linked statically, whose C
// library cannot safely open a shared library that needs the shared C and C++ runtimes. Once
// called, every document is indexed by the built-in kernel, whatever its size.
void useBuiltinJsonKernelOnly();

// Documents up to this size are indexed by the program's own kernel (JsonKernel.cpp) and never
// open the library; larger ones by the library's kernels, which use the widest vectors the
// processor has and index a large document several times faster.
inline constexpr std::size_t kBuiltinJsonKernelLimit = 256 * 1024;

// While one lives, parsers this thread creates take the kernel for a document of `bytes`: the
// built-in one for small documents, the library's (opened here, and throwing as
// requireJsonLibrary does) otherwise.
class JsonKernelFor {
 public:
  explicit JsonKernelFor(std::size_t bytes);
  ~JsonKernelFor();
  JsonKernelFor(const JsonKernelFor&) = delete;
  JsonKernelFor& operator=(const JsonKernelFor&) = delete;

 private:
  bool before_;
};

// The built-in kernel, as the parser's header hands kernels out.
simdjson::internal::atomic_ptr<const simdjson::implementation>& builtinJsonKernel();

}  // namespace Snapshot
