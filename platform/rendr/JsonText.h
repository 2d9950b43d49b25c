#pragma once
// JSON scalars as the printer writes them: strings escaped and made valid UTF-8, numbers in
// their shortest exact form, and no NaN or infinity (JSON has none: they are written as null).

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/rendr/OutputBuffer.h"

namespace rendr::detail {

// Writes s as a quoted JSON string. Quotes, backslashes and control characters are escaped
// (\n, \t, ... where JSON has a short form, \u00XX otherwise); every byte sequence that is
// not valid UTF-8 becomes one U+FFFD per maximal invalid subpart, as Unicode recommends.
void writeJsonString(OutputBuffer& out, std::string_view s);
// The same, appended to a string (a document built whole, like a state file).
void appendJsonString(std::string& out, std::string_view s);

// Whether s is plain ASCII without quotes, backslashes or control characters, which a JSON
// string holds as it is (almost every string).
bool plainText(const char* s, std::size_t n);

void writeJsonInt(OutputBuffer& out, std::int64_t v);
void writeJsonUint(OutputBuffer& out, std::uint64_t v);
// NaN and infinities are written as null; other values as Python's json module writes them
// (its float repr: "0.5", "100.0", "1e+16"), so that readers see a floating-point number.
void writeJsonDouble(OutputBuffer& out, double v);

// The shortest text that reads back as v ("0.5", "1e+20", "3"): what "%s" prints for a
// floating-point attribute. buf must hold 32 bytes; returns the length.
std::size_t shortestDouble(char* buf, double v);

}  // namespace rendr::detail
