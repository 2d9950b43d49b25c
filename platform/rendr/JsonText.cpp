#include "platform/rendr/JsonText.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string>

namespace rendr::detail {

namespace {

// 0: copied as it is; 1: needs an escape; 2: starts a multi-byte sequence to validate.
constexpr std::array<unsigned char, 256> makeByteClass() {
  std::array<unsigned char, 256> t{};
  for (int c = 0; c < 0x20; ++c)
    t[c] = 1;
  t['"'] = 1;
  t['\\'] = 1;
  for (int c = 0x80; c < 0x100; ++c)
    t[c] = 2;
  return t;
}
constexpr std::array<unsigned char, 256> kByteClass = makeByteClass();

constexpr char kReplacement[] = "\xEF\xBF\xBD";

// A std::string with the buffer's interface, so that text bound for a string (a state file)
// is escaped by the same code as the printer's output.
class StringSink {
 public:
  explicit StringSink(std::string& s) : s_(s) {}
  void append(const char* p, std::size_t n) { s_.append(p, n); }
  void put(char c) { s_ += c; }
  char* reserve(std::size_t n) {
    at_ = s_.size();
    s_.resize(at_ + n);
    return s_.data() + at_;
  }
  void commit(std::size_t n) { s_.resize(at_ + n); }

 private:
  std::string& s_;
  std::size_t at_ = 0;
};

template <class Out>
void writeEscape(Out& out, unsigned char c) {
  char* p = out.reserve(6);
  p[0] = '\\';
  switch (c) {
    case '"':
      p[1] = '"';
      break;
    case '\\':
      p[1] = '\\';
      break;
    case '\b':
      p[1] = 'b';
      break;
    case '\f':
      p[1] = 'f';
      break;
    case '\n':
      p[1] = 'n';
      break;
    case '\r':
      p[1] = 'r';
      break;
    case '\t':
      p[1] = 't';
      break;
    default: {
      static constexpr char kHex[] = "0123456789abcdef";
      p[1] = 'u';
      p[2] = '0';
      p[3] = '0';
      p[4] = kHex[c >> 4];
      p[5] = kHex[c & 0xf];
      out.commit(6);
      return;
    }
  }
  out.commit(2);
}

// The length of the valid UTF-8 sequence at s (lead byte >= 0x80), or, when it is invalid,
// the negated length of its maximal subpart (at least 1) that one U+FFFD replaces.
int utf8Sequence(const unsigned char* s, const unsigned char* end) {
  unsigned char c = s[0];
  int len;
  unsigned char lo = 0x80, hi = 0xBF;  // the range of the second byte
  if (c >= 0xC2 && c <= 0xDF) {
    len = 2;
  } else if (c >= 0xE0 && c <= 0xEF) {
    len = 3;
    if (c == 0xE0) lo = 0xA0;  // no overlong forms
    if (c == 0xED) hi = 0x9F;  // no surrogates
  } else if (c >= 0xF0 && c <= 0xF4) {
    len = 4;
    if (c == 0xF0) lo = 0x90;  // no overlong forms
    if (c == 0xF4) hi = 0x8F;  // nothing above U+10FFFF
  } else {
    return -1;
  }
  for (int i = 1; i < len; ++i) {
    if (s + i >= end) return -i;
    unsigned char b = s[i];
    if (i == 1 ? (b < lo || b > hi) : (b < 0x80 || b > 0xBF)) return -i;
  }
  return len;
}

}  // namespace

// plainText() of more than 16 bytes (any length works).
bool plainTextLong(const char* s, std::size_t n) {
  if (n < 8) {
    for (std::size_t i = 0; i < n; ++i) {
      if (kByteClass[static_cast<unsigned char>(s[i])]) return false;
    }
    return true;
  }
  std::uint64_t w;
  for (std::size_t i = 0; i + 8 < n; i += 8) {
    std::memcpy(&w, s + i, 8);
    if (wordNeedsCare(w)) return false;
  }
  std::memcpy(&w, s + n - 8, 8);  // the last word, overlapping the one before
  return !wordNeedsCare(w);
}

namespace {

template <class Out>
void writeJsonStringTo(Out& out, std::string_view str) {
  if (str.size() <= 256 && plainText(str.data(), str.size())) [[likely]] {
    char* p = out.reserve(str.size() + 2);
    p[0] = '"';
    moveBytes(p + 1, str.data(), str.size());
    p[str.size() + 1] = '"';
    out.commit(str.size() + 2);
    return;
  }
  auto* s = reinterpret_cast<const unsigned char*>(str.data());
  const auto* end = s + str.size();
  out.put('"');
  const unsigned char* run = s;
  while (s < end) {
    unsigned char cls = kByteClass[*s];
    if (cls == 0) [[likely]] {
      ++s;
      continue;
    }
    if (cls == 2) {
      int n = utf8Sequence(s, end);
      if (n > 0) {
        s += n;  // valid: stays in the run
        continue;
      }
      out.append(reinterpret_cast<const char*>(run), static_cast<std::size_t>(s - run));
      out.append(kReplacement, 3);
      s += -n;
    } else {
      out.append(reinterpret_cast<const char*>(run), static_cast<std::size_t>(s - run));
      writeEscape(out, *s);
      ++s;
    }
    run = s;
  }
  out.append(reinterpret_cast<const char*>(run), static_cast<std::size_t>(s - run));
  out.put('"');
}

}  // namespace

void writeJsonString(OutputBuffer& out, std::string_view str) {
  writeJsonStringTo(out, str);
}

void appendJsonString(std::string& out, std::string_view str) {
  StringSink sink(out);
  writeJsonStringTo(sink, str);
}

void writeJsonInt(OutputBuffer& out, std::int64_t v) {
  char* p = out.reserve(20);
  out.commit(static_cast<std::size_t>(std::to_chars(p, p + 20, v).ptr - p));
}

void writeJsonUint(OutputBuffer& out, std::uint64_t v) {
  char* p = out.reserve(20);
  out.commit(static_cast<std::size_t>(std::to_chars(p, p + 20, v).ptr - p));
}

std::size_t shortestDouble(char* buf, double v) {
  return static_cast<std::size_t>(std::to_chars(buf, buf + 32, v).ptr - buf);
}

// Python's float repr: the shortest digits that read back exactly, in positional notation
// when the decimal exponent is from -4 to 15 (always with a fraction, "100.0"), otherwise in
// exponent notation ("1e+16", "2.5e-07").
void writeJsonDouble(OutputBuffer& out, double v) {
  if (!std::isfinite(v)) {
    out.append("null", 4);
    return;
  }
  char sci[32];
  char* end = std::to_chars(sci, sci + sizeof sci, v, std::chars_format::scientific).ptr;
  char* e = static_cast<char*>(std::memchr(sci, 'e', static_cast<std::size_t>(end - sci)));
  int exp = 0;
  std::from_chars(e + 1 + (e[1] == '+'), end, exp);
  if (exp < -4 || exp >= 16) {
    out.append(sci, static_cast<std::size_t>(end - sci));
    return;
  }
  // The significant digits, without sign and point.
  const char* m = sci;
  char digits[20];
  std::size_t n = 0;
  bool negative = *m == '-';
  if (negative) ++m;
  for (; m < e; ++m) {
    if (*m != '.') digits[n++] = *m;
  }
  char* p = out.reserve(48);
  char* start = p;
  if (negative) *p++ = '-';
  if (exp < 0) {
    *p++ = '0';
    *p++ = '.';
    for (int i = -1; i > exp; --i)
      *p++ = '0';
    std::memcpy(p, digits, n);
    p += n;
  } else {
    auto whole = static_cast<std::size_t>(exp) + 1;
    for (std::size_t i = 0; i < whole; ++i)
      *p++ = i < n ? digits[i] : '0';
    *p++ = '.';
    if (n > whole) {
      std::memcpy(p, digits + whole, n - whole);
      p += n - whole;
    } else {
      *p++ = '0';
    }
  }
  out.commit(static_cast<std::size_t>(p - start));
}

}  // namespace rendr::detail
