#pragma once
// JSON scalars as the printer writes them: strings escaped and made valid UTF-8, numbers in
// their shortest exact form, and no NaN or infinity (JSON has none: they are written as null).

#include <cstddef>
#include <cstdint>
#include <cstring>
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

// Whether any of the 8 bytes in w is a control character, a quote, a backslash or not
// ASCII. Each test is exact for "any byte" (the classic zero-byte and less-than word tricks).
constexpr bool wordNeedsCare(std::uint64_t w) {
  constexpr std::uint64_t kOnes = 0x0101010101010101ull;
  constexpr std::uint64_t kHigh = 0x8080808080808080ull;
  auto hasZero = [](std::uint64_t v) { return (v - kOnes) & ~v & kHigh; };
  std::uint64_t highBit = w & kHigh;
  std::uint64_t control = (w - kOnes * 0x20) & ~w & kHigh;
  return (highBit | control | hasZero(w ^ (kOnes * '"')) | hasZero(w ^ (kOnes * '\\'))) != 0;
}

bool plainTextLong(const char* s, std::size_t n);

// Whether s is plain ASCII without quotes, backslashes or control characters, which a JSON
// string holds as it is (almost every string). Up to 16 bytes (a prefix, a word) are read here
// as one or two words of its own bytes, overlapping where they must.
inline bool plainText(const char* s, std::size_t n) {
  if (n > 16) return plainTextLong(s, n);
  std::uint64_t a, b;
  if (n >= 8) {
    std::memcpy(&a, s, 8);
    std::memcpy(&b, s + n - 8, 8);
    return !wordNeedsCare(a) && !wordNeedsCare(b);
  }
  if (n >= 4) {
    std::uint32_t lo, hi;
    std::memcpy(&lo, s, 4);
    std::memcpy(&hi, s + n - 4, 4);
    return !wordNeedsCare(lo | std::uint64_t(hi) << 32);
  }
  if (n == 0) return true;
  // The first, middle and last bytes, the first repeated over the rest of the word.
  a = 0x0101010101010101ull * static_cast<unsigned char>(s[0]);
  a = (a & ~0xffff00ull) | std::uint64_t(static_cast<unsigned char>(s[n / 2])) << 8 |
      std::uint64_t(static_cast<unsigned char>(s[n - 1])) << 16;
  return !wordNeedsCare(a);
}

void writeJsonInt(OutputBuffer& out, std::int64_t v);
void writeJsonUint(OutputBuffer& out, std::uint64_t v);
// NaN and infinities are written as null; other values as Python's json module writes them
// (its float repr: "0.5", "100.0", "1e+16"), so that readers see a floating-point number.
void writeJsonDouble(OutputBuffer& out, double v);

// The shortest text that reads back as v ("0.5", "1e+20", "3"): what "%s" prints for a
// floating-point attribute. buf must hold 32 bytes; returns the length.
std::size_t shortestDouble(char* buf, double v);

}  // namespace rendr::detail
