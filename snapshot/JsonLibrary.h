#pragma once
// The JSON parser's shared library is opened the first time a document is parsed, not when a
// program starts. A command attached to an agent, or one that reads no state file, never
// parses JSON, and loading the library at start (with the C++ runtime it depends on) cost such
// a command about a third of its few milliseconds. JsonLibrary.cpp defines the few symbols
// that the parser's header expects from the library, and forwards them to the library once it
// is open.

#include <simdjson.h>

namespace Snapshot {

// Opens the library if it is not open yet; throws std::runtime_error naming the library and
// the reason when it cannot be opened. Every parse calls it first, so that a missing library
// is a clear message rather than a failure inside the parser's noexcept code.
void requireJsonLibrary();

// The parser's own text for an error ("TAPE_ERROR: ..."), as simdjson::error_message gives it.
const char* jsonErrorMessage(simdjson::error_code e);

}  // namespace Snapshot
