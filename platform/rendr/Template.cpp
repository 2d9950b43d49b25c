#include "platform/rendr/Template.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <type_traits>

#include "platform/mox/Exception.h"
#include "platform/rendr/JsonText.h"

namespace rendr::detail {

namespace {

// Widths and precisions above this go to vsnprintf, which also reports the overflow of
// absurd ones.
constexpr int kMaxField = 1 << 20;

enum Flag : unsigned char { kLeft = 1, kZero = 2, kPlus = 4, kSpace = 8, kAlt = 16 };

enum class Length : unsigned char { none, hh, h, l, ll, z, j, t, L, other };

struct Conv {
  unsigned char flags = 0;
  bool widthStar = false;
  bool precStar = false;
  bool tooLarge = false;    // a width or precision beyond kMaxField
  bool positional = false;  // %1$s
  Length length = Length::none;
  char conv = 0;  // 0 when the template ends inside the conversion
  int width = 0;
  int prec = -1;  // -1: none given
};

int parseNumber(const char*& p, bool& tooLarge) {
  int v = 0;
  while (*p >= '0' && *p <= '9') {
    if (v <= kMaxField) v = v * 10 + (*p - '0');
    ++p;
  }
  if (v > kMaxField) tooLarge = true;
  return v;
}

// Parses the conversion after a '%'; returns the position after its conversion character.
const char* parseConv(const char* p, Conv& c) {
  for (;; ++p) {
    switch (*p) {
      case '-':
        c.flags |= kLeft;
        continue;
      case '0':
        c.flags |= kZero;
        continue;
      case '+':
        c.flags |= kPlus;
        continue;
      case ' ':
        c.flags |= kSpace;
        continue;
      case '#':
        c.flags |= kAlt;
        continue;
      default:
        break;
    }
    break;
  }
  if (*p == '*') {
    c.widthStar = true;
    ++p;
  } else {
    c.width = parseNumber(p, c.tooLarge);
  }
  if (*p == '$') {
    c.positional = true;
    ++p;
  }
  if (*p == '.') {
    ++p;
    if (*p == '*') {
      c.precStar = true;
      ++p;
    } else {
      c.prec = parseNumber(p, c.tooLarge);
    }
  }
  switch (*p) {
    case 'h':
      ++p;
      c.length = *p == 'h' ? (++p, Length::hh) : Length::h;
      break;
    case 'l':
      ++p;
      c.length = *p == 'l' ? (++p, Length::ll) : Length::l;
      break;
    case 'z':
      c.length = Length::z, ++p;
      break;
    case 'j':
      c.length = Length::j, ++p;
      break;
    case 't':
      c.length = Length::t, ++p;
      break;
    case 'L':
      c.length = Length::L, ++p;
      break;
    case 'q':
    case 'Z':
      c.length = Length::other, ++p;
      break;
    default:
      break;
  }
  c.conv = *p;
  return *p ? p + 1 : p;
}

bool isIntegerLength(Length l) {
  return l != Length::L && l != Length::other;
}

// Whether the interpreter handles the conversion itself. Anything else (and every malformed
// conversion) is left to the C library, which knows its own corner cases.
bool handled(const Conv& c) {
  if ((c.flags & kAlt) || c.tooLarge || c.positional) return false;
  switch (c.conv) {
    case 'd':
    case 'i':
    case 'u':
    case 'x':
    case 'X':
      return isIntegerLength(c.length);
    case 'c':
    case 's':
      return c.length == Length::none;
    case 'f':
      return c.length == Length::none || c.length == Length::l;
    default:
      return false;
  }
}

// A conversion is "%%" only when nothing stands between the two signs; "%5%" is for the C
// library to judge.
bool isPercent(const char* afterSign) {
  return *afterSign == '%';
}

void pad(OutputBuffer& out, char c, std::size_t n) {
  if (n) out.fill(c, n);
}

std::size_t fieldPadding(const Conv& c, std::size_t len) {
  auto w = static_cast<std::size_t>(c.width);
  return w > len ? w - len : 0;
}

void emitText(OutputBuffer& out, const Conv& c, const char* s, std::size_t n) {
  if (c.width == 0 && c.prec < 0) {
    out.append(s, n);
    return;
  }
  if (c.prec >= 0) n = std::min(n, static_cast<std::size_t>(c.prec));
  std::size_t padding = fieldPadding(c, n);
  if (!(c.flags & kLeft)) pad(out, ' ', padding);
  out.append(s, n);
  if (c.flags & kLeft) pad(out, ' ', padding);
}

// sign, then zeros, then the digits; the zero flag turns the width's padding into zeros.
void emitNumberBody(OutputBuffer& out, const Conv& c, char sign, std::size_t zeros,
                    const char* digits, std::size_t n, bool zeroPadAllowed) {
  std::size_t body = (sign ? 1 : 0) + zeros + n;
  std::size_t padding = fieldPadding(c, body);
  bool left = c.flags & kLeft;
  bool zeroPad = !left && (c.flags & kZero) && zeroPadAllowed;
  if (!left && !zeroPad) pad(out, ' ', padding);
  if (sign) out.put(sign);
  if (zeroPad) zeros += padding;
  pad(out, '0', zeros);
  out.append(digits, n);
  if (left) pad(out, ' ', padding);
}

char signOf(const Conv& c, bool negative) {
  if (negative) return '-';
  if (c.flags & kPlus) return '+';
  if (c.flags & kSpace) return ' ';
  return 0;
}

void emitInteger(OutputBuffer& out, const Conv& c, bool negative, std::uint64_t magnitude) {
  char digits[24];
  std::size_t n = 0;
  bool isSigned = c.conv == 'd' || c.conv == 'i';
  if (!(c.prec == 0 && magnitude == 0)) {
    int base = (c.conv == 'x' || c.conv == 'X') ? 16 : 10;
    n = static_cast<std::size_t>(
        std::to_chars(digits, digits + sizeof digits, magnitude, base).ptr - digits);
    if (c.conv == 'X') {
      for (std::size_t i = 0; i < n; ++i) {
        if (digits[i] >= 'a') digits[i] = static_cast<char>(digits[i] - 'a' + 'A');
      }
    }
  }
  auto prec = static_cast<std::size_t>(std::max(c.prec, 0));
  std::size_t zeros = prec > n ? prec - n : 0;
  // A precision turns the zero flag off for integers.
  emitNumberBody(out, c, isSigned ? signOf(c, negative) : 0, zeros, digits, n, c.prec < 0);
}

void emitSigned(OutputBuffer& out, const Conv& c, std::int64_t v) {
  std::uint64_t magnitude =
      v < 0 ? 0 - static_cast<std::uint64_t>(v) : static_cast<std::uint64_t>(v);
  emitInteger(out, c, v < 0, magnitude);
}

void emitFixed(OutputBuffer& out, const Conv& c, double v) {
  int prec = c.prec < 0 ? 6 : c.prec;
  bool negative = std::signbit(v);
  double a = std::fabs(v);
  if (!std::isfinite(a)) {
    const char* word = std::isnan(a) ? "nan" : "inf";
    emitNumberBody(out, c, signOf(c, negative), 0, word, 3, false);
    return;
  }
  char buf[400];
  auto r = std::to_chars(buf, buf + sizeof buf, a, std::chars_format::fixed, prec);
  if (r.ec == std::errc()) {
    emitNumberBody(out, c, signOf(c, negative), 0, buf, static_cast<std::size_t>(r.ptr - buf),
                   true);
    return;
  }
  // A long precision on a large number.
  int n = std::snprintf(nullptr, 0, "%.*f", prec, a);
  std::string big(static_cast<std::size_t>(n) + 1, '\0');
  std::snprintf(big.data(), big.size(), "%.*f", prec, a);
  emitNumberBody(out, c, signOf(c, negative), 0, big.data(), static_cast<std::size_t>(n), true);
}

void emitChar(OutputBuffer& out, const Conv& c, char ch) {
  emitText(out, c, &ch, 1);
}

// A '*' width or precision: a negative width means '-', a negative precision none at all.
// Both are capped at kMaxField: a stray huge argument must not fill the disk with blanks.
void applyStarWidth(Conv& c, int w) {
  if (w < 0) {
    c.flags |= kLeft;
    w = w == INT_MIN ? INT_MAX : -w;
  }
  c.width = std::min(w, kMaxField);
}

void applyStarPrecision(Conv& c, int p) {
  c.prec = p < 0 ? -1 : std::min(p, kMaxField);
}

template <class T>
void appendCFormatted(OutputBuffer& out, const char* conversion, T v) {
  char buf[256];
  int n = std::snprintf(buf, sizeof buf, conversion, v);
  if (n < 0) return;
  if (static_cast<std::size_t>(n) < sizeof buf) {
    out.append(buf, static_cast<std::size_t>(n));
    return;
  }
  std::string big(static_cast<std::size_t>(n) + 1, '\0');
  std::snprintf(big.data(), big.size(), conversion, v);
  out.append(big.data(), static_cast<std::size_t>(n));
}

// Printf arguments, read in template order.
struct VaSource {
  va_list ap;

  int nextInt() { return va_arg(ap, int); }

  std::int64_t nextSigned(Length l) {
    switch (l) {
      case Length::hh:
        return static_cast<signed char>(va_arg(ap, int));
      case Length::h:
        return static_cast<short>(va_arg(ap, int));
      case Length::l:
        return va_arg(ap, long);
      case Length::ll:
        return va_arg(ap, long long);
      case Length::z:
        return va_arg(ap, std::make_signed_t<std::size_t>);
      case Length::j:
        return va_arg(ap, std::intmax_t);
      case Length::t:
        return va_arg(ap, std::ptrdiff_t);
      default:
        return va_arg(ap, int);
    }
  }

  std::uint64_t nextUnsigned(Length l) {
    switch (l) {
      case Length::hh:
        return static_cast<unsigned char>(va_arg(ap, unsigned));
      case Length::h:
        return static_cast<unsigned short>(va_arg(ap, unsigned));
      case Length::l:
        return va_arg(ap, unsigned long);
      case Length::ll:
        return va_arg(ap, unsigned long long);
      case Length::z:
        return va_arg(ap, std::size_t);
      case Length::j:
        return va_arg(ap, std::uintmax_t);
      case Length::t:
        return static_cast<std::make_unsigned_t<std::ptrdiff_t>>(va_arg(ap, std::ptrdiff_t));
      default:
        return va_arg(ap, unsigned);
    }
  }

  void emitBare(OutputBuffer& out, char conv) {
    Conv c;
    c.conv = conv;
    emit(out, c);
  }

  void emit(OutputBuffer& out, const Conv& c) {
    switch (c.conv) {
      case 'd':
      case 'i':
        emitSigned(out, c, nextSigned(c.length));
        break;
      case 'u':
      case 'x':
      case 'X':
        emitInteger(out, c, false, nextUnsigned(c.length));
        break;
      case 'c':
        emitChar(out, c, static_cast<char>(va_arg(ap, int)));
        break;
      case 'f':
        emitFixed(out, c, va_arg(ap, double));
        break;
      case 's': {
        const char* s = va_arg(ap, const char*);
        if (!s) s = (c.prec >= 0 && c.prec < 6) ? "" : "(null)";
        // With a precision the text need not be terminated, as printf allows.
        emitText(out, c, s, c.prec >= 0 ? strnlen(s, std::size_t(c.prec)) : std::strlen(s));
        break;
      }
      default:
        break;  // not reached: templateSupported() said so
    }
  }
};

// Attributes, read in template order.
struct AttrSource {
  const AttrInfo* const* attrs;
  int n;
  int next = 0;

  const AttrInfo& take() {
    MOX_ASSERT(next < n && "more conversions than attributes");
    return *attrs[next++];
  }

  static bool numeric(const AttrInfo& a) { return a.kind() != JsonKind::string; }

  static std::int64_t signedValue(const AttrInfo& a) {
    switch (a.kind()) {
      case JsonKind::int32:
        return a.int32Value();
      case JsonKind::uint32:
        return a.uint32Value();
      case JsonKind::uint64:
        return static_cast<std::int64_t>(a.uint64Value());
      case JsonKind::boolean:
        return a.boolValue();
      case JsonKind::double_: {
        double d = a.doubleValue();
        if (!(d > -9.2e18 && d < 9.2e18)) return 0;  // NaN or beyond int64: no C answer
        return static_cast<std::int64_t>(d);
      }
      case JsonKind::string:
        break;
    }
    return 0;
  }

  // As printf shows a negative int under %u or %x: its two's complement in 32 bits.
  static std::uint64_t unsignedValue(const AttrInfo& a) {
    switch (a.kind()) {
      case JsonKind::int32:
        return static_cast<std::uint32_t>(a.int32Value());
      case JsonKind::uint64:
        return a.uint64Value();
      default:
        return static_cast<std::uint64_t>(signedValue(a));
    }
  }

  static double doubleValue(const AttrInfo& a) {
    switch (a.kind()) {
      case JsonKind::double_:
        return a.doubleValue();
      case JsonKind::uint64:
        return static_cast<double>(a.uint64Value());
      case JsonKind::uint32:
        return a.uint32Value();
      default:
        return static_cast<double>(signedValue(a));
    }
  }

  // The width or precision that a '*' reads from an attribute.
  int nextInt() {
    const AttrInfo& a = take();
    MOX_ASSERT(numeric(a) && "a '*' needs a numeric attribute");
    if (!a.isSet()) return 0;
    return static_cast<int>(std::clamp<std::int64_t>(signedValue(a), -kMaxField, kMaxField));
  }

  void emitString(OutputBuffer& out, const Conv& c, const AttrInfo& a) {
    if (a.hasText()) {
      std::string_view t = a.text();
      emitText(out, c, t.data(), t.size());
      return;
    }
    char buf[32];
    std::size_t len;
    switch (a.kind()) {
      case JsonKind::double_:
        len = shortestDouble(buf, a.doubleValue());
        break;
      case JsonKind::uint64:
        len = static_cast<std::size_t>(std::to_chars(buf, buf + 32, a.uint64Value()).ptr - buf);
        break;
      default:
        len = static_cast<std::size_t>(std::to_chars(buf, buf + 32, signedValue(a)).ptr - buf);
        break;
    }
    emitText(out, c, buf, len);
  }

  // Conversions the interpreter leaves to the C library, one at a time. The length
  // modifiers of the template do not matter: the attribute knows its own type.
  void emitOther(OutputBuffer& out, const Conv& c, const AttrInfo& a) {
    std::string conversion = "%";
    if (c.flags & kLeft) conversion += '-';
    if (c.flags & kZero) conversion += '0';
    if (c.flags & kPlus) conversion += '+';
    if (c.flags & kSpace) conversion += ' ';
    if (c.flags & kAlt) conversion += '#';
    conversion += std::to_string(c.width);
    if (c.prec >= 0) conversion += '.' + std::to_string(c.prec);
    switch (c.conv) {
      case 'e':
      case 'E':
      case 'g':
      case 'G':
      case 'a':
      case 'A':
      case 'F':
      case 'f':
        conversion += c.conv;
        appendCFormatted(out, conversion.c_str(), doubleValue(a));
        break;
      case 'o':
      case 'x':
      case 'X':
      case 'u':
      case 'd':
      case 'i':
        conversion += "ll";
        conversion += c.conv;
        appendCFormatted(out, conversion.c_str(), static_cast<long long>(signedValue(a)));
        break;
      default:
        MOX_ASSERT(!"conversion not supported in an attribute template");
    }
  }

  static bool handledHere(const Conv& c) {
    if ((c.flags & kAlt) || c.tooLarge || c.positional) return false;
    switch (c.conv) {
      case 'd':
      case 'i':
      case 'u':
      case 'x':
      case 'X':
      case 'c':
      case 's':
      case 'f':
        return true;
      default:
        return false;
    }
  }

  void emitBare(OutputBuffer& out, char conv) {
    const AttrInfo& a = take();
    if (a.isSet()) [[likely]] {
      if (conv == 's' && a.hasText()) {
        out.append(a.text().data(), a.text().size());
        return;
      }
      if (a.kind() == JsonKind::int32 && conv == 'd') {
        char* p = out.reserve(12);
        out.commit(static_cast<std::size_t>(std::to_chars(p, p + 12, a.int32Value()).ptr - p));
        return;
      }
      if (a.kind() == JsonKind::uint32 && conv != 's') {
        char* p = out.reserve(12);
        out.commit(static_cast<std::size_t>(std::to_chars(p, p + 12, a.uint32Value()).ptr - p));
        return;
      }
    }
    Conv c;
    c.conv = conv;
    emitValue(out, c, a);
  }

  void emit(OutputBuffer& out, const Conv& c) { emitValue(out, c, take()); }

  void emitValue(OutputBuffer& out, const Conv& c, const AttrInfo& a) {
    if (!a.isSet()) {
      emitText(out, c, "", 0);
      return;
    }
    bool here = handledHere(c);
    if (c.conv == 's' && here) {
      emitString(out, c, a);
      return;
    }
    MOX_ASSERT(numeric(a) && "a numeric conversion of a string attribute");
    if (!here) {
      emitOther(out, c, a);
      return;
    }
    switch (c.conv) {
      case 'd':
      case 'i':
        if (a.kind() == JsonKind::uint64) {
          emitInteger(out, c, false, a.uint64Value());
        } else {
          emitSigned(out, c, signedValue(a));
        }
        break;
      case 'u':
      case 'x':
      case 'X':
        emitInteger(out, c, false, unsignedValue(a));
        break;
      case 'c':
        emitChar(out, c, static_cast<char>(signedValue(a)));
        break;
      case 'f':
        emitFixed(out, c, doubleValue(a));
        break;
      default:
        break;
    }
  }
};

// The next '%' or the end. Listing templates carry whole runs of text (a line's indent and
// its first words), which the library's vectorised search crosses faster than a loop.
const char* nextSign(const char* p) {
  return strchrnul(p, '%');
}

// The conversion after a '%' that is neither "%%" nor a bare one: parsed, then written.
// Returns the position after it.
template <class Source>
const char* writeConversion(OutputBuffer& out, const char* p, Source& src) {
  Conv c;
  p = parseConv(p, c);
  if (c.conv == '%' && !c.widthStar && !c.precStar) {
    out.put('%');  // "%5%": glibc ignores the field and takes no argument
    return p;
  }
  if (c.widthStar) applyStarWidth(c, src.nextInt());
  if (c.precStar) applyStarPrecision(c, src.nextInt());
  src.emit(out, c);
  return p;
}

template <class Source>
void interpret(OutputBuffer& out, const char* p, Source& src) {
  for (;;) {
    const char* q = nextSign(p);
    if (q != p) out.append(p, static_cast<std::size_t>(q - p));
    if (!*q) return;
    p = q + 1;
    if (isPercent(p)) {
      out.put('%');
      ++p;
      continue;
    }
    if (*p == 's' || *p == 'd' || *p == 'u') {
      // The common bare conversion: nothing to parse, no field to pad.
      src.emitBare(out, *p++);
      if (!*p) return;
      continue;
    }
    p = writeConversion(out, p, src);
    if (!*p) return;
  }
}

void formatWithCLibrary(OutputBuffer& out, const char* fmt, va_list ap) {
  va_list again;
  va_copy(again, ap);
  std::size_t room = out.room();
  int n = std::vsnprintf(out.tail(), room, fmt, ap);
  if (n >= 0 && static_cast<std::size_t>(n) < room) {
    out.commit(static_cast<std::size_t>(n));
  } else if (n >= 0) {
    std::string text(static_cast<std::size_t>(n) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), fmt, again);
    out.append(text.data(), static_cast<std::size_t>(n));
  }
  va_end(again);
}

}  // namespace

bool templateSupported(const char* fmt) {
  for (const char* p = nextSign(fmt); *p; p = nextSign(p)) {
    ++p;
    if (isPercent(p)) {
      ++p;
      continue;
    }
    if (*p == 's' || *p == 'd' || *p == 'u') {  // the bare conversions: nothing to parse
      ++p;
      continue;
    }
    Conv c;
    p = parseConv(p, c);
    if (!handled(c)) return false;
  }
  return true;
}

void formatArgs(OutputBuffer& out, const char* fmt, va_list ap) {
  // The two commonest templates of the listings: a lone string, and text with no conversion.
  if (fmt[0] == '%' && fmt[1] == 's' && fmt[2] == '\0') {
    const char* s = va_arg(ap, const char*);
    if (s) out.append(s, std::strlen(s));
    return;
  }
  if (!std::strchr(fmt, '%')) {
    out.append(fmt, std::strlen(fmt));
    return;
  }
  if (!templateSupported(fmt)) {
    formatWithCLibrary(out, fmt, ap);
    return;
  }
  VaSource src;
  va_copy(src.ap, ap);
  interpret(out, fmt, src);
  va_end(src.ap);
}

void formatAttributes(OutputBuffer& out, const char* fmt, const AttrInfo* const* attrs, int n) {
  AttrSource src{attrs, n};
  interpret(out, fmt, src);
}

void formatAttributes(OutputBuffer& out, const Template& t, const AttrInfo* const* attrs, int n) {
  AttrSource src{attrs, n};
  for (const Template::Piece& piece : t.pieces_) {
    if (piece.textLen) out.append(t.text_.data() + piece.textAt, piece.textLen);
    if (piece.conversion == Template::Conversion::bare) {
      src.emitBare(out, piece.bare);
    } else if (piece.conversion == Template::Conversion::parsed) {
      writeConversion(out, t.source_.c_str() + piece.conversionAt, src);
    }
  }
}

}  // namespace rendr::detail

namespace rendr {

// The same walk as the interpreter's, kept as pieces: where it would write text, the text
// joins the current run; where it would write a conversion, the run ends with it.
Template::Template(std::string_view text) : source_(text.substr(0, text.find('\0'))) {
  const char* base = source_.c_str();
  const char* p = base;
  Piece piece;
  const auto finish = [&] {
    piece.textLen = static_cast<std::uint32_t>(text_.size() - piece.textAt);
    if (piece.textLen || piece.conversion != Conversion::none) pieces_.push_back(piece);
    piece = Piece{};
    piece.textAt = static_cast<std::uint32_t>(text_.size());
  };
  for (;;) {
    const char* q = detail::nextSign(p);
    text_.append(p, static_cast<std::size_t>(q - p));
    if (!*q) break;
    p = q + 1;
    if (detail::isPercent(p)) {
      text_ += '%';
      ++p;
      continue;
    }
    if (*p == 's' || *p == 'd' || *p == 'u') {
      piece.conversion = Conversion::bare;
      piece.bare = *p++;
    } else {
      piece.conversion = Conversion::parsed;
      piece.conversionAt = static_cast<std::uint32_t>(p - base);
      detail::Conv c;
      p = detail::parseConv(p, c);
    }
    finish();
    if (!*p) break;
  }
  finish();
}

}  // namespace rendr
