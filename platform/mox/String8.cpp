#include "platform/mox/String8.h"

#include "platform/mox/Exception.h"

namespace Mox {

namespace {

const char kHex[] = "0123456789abcdef";

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::string String8::textForm() const {
  // Python picks double quotes only when that avoids escaping a single quote.
  const bool hasSingle = s_.find('\'') != std::string::npos;
  const bool hasDouble = s_.find('"') != std::string::npos;
  const char quote = (hasSingle && !hasDouble) ? '"' : '\'';
  std::string out;
  out.reserve(s_.size() + 2);
  out.push_back(quote);
  for (unsigned char c : s_) {
    switch (c) {
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (c == static_cast<unsigned char>(quote)) {
          out.push_back('\\');
          out.push_back(static_cast<char>(c));
        } else if (c < 0x20 || c == 0x7f) {
          out += "\\x";
          out.push_back(kHex[c >> 4]);
          out.push_back(kHex[c & 15]);
        } else {
          out.push_back(static_cast<char>(c));
        }
    }
  }
  out.push_back(quote);
  return out;
}

String8 String8::parseTextForm(std::string_view& in) {
  if (in.empty() || (in[0] != '\'' && in[0] != '"')) {
    throw RangeException("expected a quoted string");
  }
  const char quote = in[0];
  std::string out;
  std::size_t i = 1;
  for (;;) {
    if (i >= in.size()) throw RangeException("unterminated string");
    const char c = in[i++];
    if (c == quote) break;
    if (c != '\\') {
      out.push_back(c);
      continue;
    }
    if (i >= in.size()) throw RangeException("unterminated string");
    const char e = in[i++];
    switch (e) {
      case '\\':
        out.push_back('\\');
        break;
      case '\'':
        out.push_back('\'');
        break;
      case '"':
        out.push_back('"');
        break;
      case 'n':
        out.push_back('\n');
        break;
      case 'r':
        out.push_back('\r');
        break;
      case 't':
        out.push_back('\t');
        break;
      case '0':
        out.push_back('\0');
        break;
      case 'x': {
        const int hi = i < in.size() ? hexDigit(in[i]) : -1;
        const int lo = i + 1 < in.size() ? hexDigit(in[i + 1]) : -1;
        if (hi < 0 || lo < 0) throw RangeException("bad \\x escape in string");
        out.push_back(static_cast<char>(hi * 16 + lo));
        i += 2;
        break;
      }
      default:
        throw RangeException(std::string("unknown escape \\") + e + " in string");
    }
  }
  in.remove_prefix(i);
  return String8(std::move(out));
}

}  // namespace Mox
