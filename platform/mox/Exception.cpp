#include "platform/mox/Exception.h"

#include <algorithm>

#include "platform/mox/Trace.h"

namespace Mox {

namespace {
TraceHandle traceHandle("Mox");

// The length of the well-formed UTF-8 character at the start of `s` (2 to 4), or 0.
std::size_t utf8Length(std::string_view s) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(s[i]); };
  const unsigned char lead = byte(0);
  std::size_t n = 0;
  unsigned char low = 0x80, high = 0xbf;  // the bounds of the second byte
  if (lead >= 0xc2 && lead <= 0xdf) {
    n = 2;
  } else if (lead >= 0xe0 && lead <= 0xef) {
    n = 3;
    if (lead == 0xe0) low = 0xa0;   // overlong
    if (lead == 0xed) high = 0x9f;  // surrogates
  } else if (lead >= 0xf0 && lead <= 0xf4) {
    n = 4;
    if (lead == 0xf0) low = 0x90;   // overlong
    if (lead == 0xf4) high = 0x8f;  // above U+10FFFF
  }
  if (n == 0 || s.size() < n || byte(1) < low || byte(1) > high) return 0;
  for (std::size_t i = 2; i < n; ++i) {
    if (byte(i) < 0x80 || byte(i) > 0xbf) return 0;
  }
  return n;
}

void appendHex(std::string& out, unsigned char c) {
  static const char kHex[] = "0123456789abcdef";
  out += "\\x";
  out += kHex[c >> 4];
  out += kHex[c & 15];
}

}  // namespace

void assertionFailed(const char* text, const char* function) {
  MOX_TRACE(traceHandle, 0, "assertion failed: ", text, " in ", function);
  throw InternalException(text, function);
}

std::string shownWord(std::string_view word, char quote) {
  std::string out;
  if (quote) out += quote;
  std::size_t i = 0;
  while (i < word.size() && i < kShownBytes) {
    const unsigned char c = static_cast<unsigned char>(word[i]);
    if (c >= 0x80) {
      const std::size_t n = utf8Length(word.substr(i));
      // U+0080 to U+009F are the C1 controls: a terminal may act on them as on ESC.
      if (n == 0 || (c == 0xc2 && static_cast<unsigned char>(word[i + 1]) < 0xa0)) {
        for (std::size_t k = 0; k < std::max<std::size_t>(n, 1); ++k)
          appendHex(out, static_cast<unsigned char>(word[i + k]));
        i += std::max<std::size_t>(n, 1);
      } else {
        out.append(word.substr(i, n));
        i += n;
      }
      continue;
    }
    if (c == '\\' || (quote && c == static_cast<unsigned char>(quote))) {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c < 0x20 || c == 0x7f) {
      appendHex(out, c);
    } else {
      out += static_cast<char>(c);
    }
    ++i;
  }
  if (i < word.size()) out += "...";
  if (quote) out += quote;
  return out;
}

}  // namespace Mox
