// A byte-at-a-time kernel for the JSON parser's first stage, used for small documents: the
// catalog an attached reader parses at every start, the example device, a hand-written state.
// Opening the parser's library (and the shared C++ runtime it needs) costs a few milliseconds,
// far more than indexing a few kilobytes one byte at a time.
//
// The parser's on-demand reader, compiled from its header into this program, walks an index of
// the document's structural positions that the first stage builds, and asks the first stage's
// object to unescape strings. This file builds the same index, with the same errors, as the
// library's own kernels do; a test compares the two on many documents, well-formed and not.
//
// A position is structural when it is outside a string's body and is either one of { } [ ] : ,
// or the first byte of a value: a byte that is none of those six nor a blank, and does not
// follow such a byte that is not a quote. A quote preceded by an odd run of backslashes is
// escaped, wherever it is. After the index come three guard entries: the length twice, then 0.

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "snapshot/JsonLibrary.h"

namespace Snapshot {

namespace {

using simdjson::error_code;

bool isBlank(std::uint8_t c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool isOperator(std::uint8_t c) {
  return c == '{' || c == '}' || c == '[' || c == ']' || c == ':' || c == ',';
}

bool isContinuation(const std::uint8_t* buf, std::size_t len, std::size_t i, std::uint8_t lo = 0x80,
                    std::uint8_t hi = 0xBF) {
  return i < len && buf[i] >= lo && buf[i] <= hi;
}

// UTF-8 as the standard has it: no overlong forms, no surrogates, nothing past U+10FFFF.
bool validUtf8(const std::uint8_t* buf, std::size_t len) {
  std::size_t i = 0;
  while (i < len) {
    // Plain ASCII, eight bytes at a time.
    if (i + 8 <= len) {
      std::uint64_t word;
      std::memcpy(&word, buf + i, 8);
      if ((word & 0x8080808080808080ULL) == 0) {
        i += 8;
        continue;
      }
    }
    const std::uint8_t c = buf[i];
    if (c < 0x80) {
      ++i;
    } else if (c >= 0xC2 && c <= 0xDF) {
      if (!isContinuation(buf, len, i + 1)) return false;
      i += 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
      const std::uint8_t lo = c == 0xE0 ? 0xA0 : 0x80;
      const std::uint8_t hi = c == 0xED ? 0x9F : 0xBF;
      if (!isContinuation(buf, len, i + 1, lo, hi) || !isContinuation(buf, len, i + 2))
        return false;
      i += 3;
    } else if (c >= 0xF0 && c <= 0xF4) {
      const std::uint8_t lo = c == 0xF0 ? 0x90 : 0x80;
      const std::uint8_t hi = c == 0xF4 ? 0x8F : 0xBF;
      if (!isContinuation(buf, len, i + 1, lo, hi) || !isContinuation(buf, len, i + 2) ||
          !isContinuation(buf, len, i + 3))
        return false;
      i += 4;
    } else {
      return false;
    }
  }
  return true;
}

// Four hex digits; a value of 2^16 or more when one is not a digit.
std::uint32_t hex4(const std::uint8_t* p) {
  std::uint32_t v = 0;
  for (int k = 0; k < 4; ++k) {
    const std::uint8_t c = p[k];
    std::uint32_t d;
    if (c >= '0' && c <= '9') {
      d = c - '0';
    } else if (c >= 'a' && c <= 'f') {
      d = c - 'a' + 10;
    } else if (c >= 'A' && c <= 'F') {
      d = c - 'A' + 10;
    } else {
      return 0xFFFFFFFFu;
    }
    v = v << 4 | d;
  }
  return v;
}

std::size_t toUtf8(std::uint32_t cp, std::uint8_t* out) {
  if (cp <= 0x7F) {
    out[0] = std::uint8_t(cp);
    return 1;
  }
  if (cp <= 0x7FF) {
    out[0] = std::uint8_t(0xC0 | cp >> 6);
    out[1] = std::uint8_t(0x80 | (cp & 0x3F));
    return 2;
  }
  if (cp <= 0xFFFF) {
    out[0] = std::uint8_t(0xE0 | cp >> 12);
    out[1] = std::uint8_t(0x80 | (cp >> 6 & 0x3F));
    out[2] = std::uint8_t(0x80 | (cp & 0x3F));
    return 3;
  }
  if (cp <= 0x10FFFF) {
    out[0] = std::uint8_t(0xF0 | cp >> 18);
    out[1] = std::uint8_t(0x80 | (cp >> 12 & 0x3F));
    out[2] = std::uint8_t(0x80 | (cp >> 6 & 0x3F));
    out[3] = std::uint8_t(0x80 | (cp & 0x3F));
    return 4;
  }
  return 0;
}

// A \u escape at src ("\uXXXX", perhaps followed by a second for a surrogate pair), written to
// dst in UTF-8. A high surrogate must be followed by a low one; a lone low one is refused.
bool unicodeEscape(const std::uint8_t*& src, std::uint8_t*& dst) {
  std::uint32_t cp = hex4(src + 2);
  src += 6;
  if (cp >= 0xD800 && cp < 0xDC00) {
    if (src[0] != '\\' || src[1] != 'u') return false;
    const std::uint32_t low = hex4(src + 2);
    if ((cp | low) >> 16 || low < 0xDC00 || low > 0xDFFF) return false;
    cp = (((cp - 0xD800) << 10) | (low - 0xDC00)) + 0x10000;
    src += 6;
  } else if (cp >= 0xDC00 && cp <= 0xDFFF) {
    return false;
  }
  const std::size_t n = toUtf8(cp, dst);
  dst += n;
  return n > 0;
}

class ScalarParser final : public simdjson::internal::dom_parser_implementation {
 public:
  error_code parse(const std::uint8_t*, std::size_t, simdjson::dom::document&) noexcept override {
    return simdjson::UNEXPECTED_ERROR;  // the DOM reader is not used with this kernel
  }
  error_code stage2(simdjson::dom::document&) noexcept override {
    return simdjson::UNEXPECTED_ERROR;
  }
  error_code stage2_next(simdjson::dom::document&) noexcept override {
    return simdjson::UNEXPECTED_ERROR;
  }

  error_code set_capacity(std::size_t capacity) noexcept override {
    if (capacity > simdjson::SIMDJSON_MAXSIZE_BYTES) return simdjson::CAPACITY;
    // A structural position per byte at most, and the three guard entries.
    structural_indexes.reset(new (std::nothrow) std::uint32_t[capacity + 4]);
    if (!structural_indexes) {
      _capacity = 0;
      return simdjson::MEMALLOC;
    }
    _capacity = capacity;
    return simdjson::SUCCESS;
  }

  error_code set_max_depth(std::size_t depth) noexcept override {
    _max_depth = depth;
    return simdjson::SUCCESS;
  }

  error_code stage1(const std::uint8_t* buf, std::size_t len,
                    simdjson::stage1_mode mode) noexcept override {
    if (mode != simdjson::stage1_mode::regular) return simdjson::UNEXPECTED_ERROR;
    if (len > _capacity) return simdjson::CAPACITY;
    std::uint32_t* out = structural_indexes.get();
    std::uint32_t n = 0;
    bool escaped = false;      // this byte follows an odd run of backslashes
    bool inString = false;     // quotes seen so far, odd
    bool afterScalar = false;  // the byte before is a value's byte and not a quote
    bool controlInString = false;
    for (std::size_t i = 0; i < len; ++i) {
      const std::uint8_t c = buf[i];
      const bool isEscaped = escaped;
      escaped = !isEscaped && c == '\\';
      const bool quote = c == '"' && !isEscaped;
      if (quote) inString = !inString;
      // A string's body: after its opening quote, up to and with its closing one.
      const bool body = inString != quote;
      if (c < 0x20 && inString) controlInString = true;
      const bool op = isOperator(c);
      const bool scalar = !op && !isBlank(c);
      const bool follows = afterScalar;
      afterScalar = scalar && !quote;
      if (!body && (op || (scalar && !follows))) out[n++] = std::uint32_t(i);
    }
    if (inString) return simdjson::UNCLOSED_STRING;
    if (controlInString) return simdjson::UNESCAPED_CHARS;
    n_structural_indexes = n;
    out[n] = std::uint32_t(len);
    out[n + 1] = std::uint32_t(len);
    out[n + 2] = 0;
    next_structural_index = 0;
    if (n == 0) return simdjson::EMPTY;
    if (!validUtf8(buf, len)) return simdjson::UTF8_ERROR;
    return simdjson::SUCCESS;
  }

  // src is just past a string's opening quote; the first stage has seen its closing quote.
  std::uint8_t* parse_string(const std::uint8_t* src, std::uint8_t* dst) const noexcept override {
    for (;;) {
      const std::uint8_t c = *src;
      if (c == '"') return dst;
      if (c != '\\') {
        *dst++ = c;
        ++src;
        continue;
      }
      const std::uint8_t e = src[1];
      if (e == 'u') {
        if (!unicodeEscape(src, dst)) return nullptr;
        continue;
      }
      std::uint8_t to;
      switch (e) {
        case '"':
          to = '"';
          break;
        case '\\':
          to = '\\';
          break;
        case '/':
          to = '/';
          break;
        case 'b':
          to = '\b';
          break;
        case 'f':
          to = '\f';
          break;
        case 'n':
          to = '\n';
          break;
        case 'r':
          to = '\r';
          break;
        case 't':
          to = '\t';
          break;
        default:
          return nullptr;
      }
      *dst++ = to;
      src += 2;
    }
  }
};

class ScalarKernel final : public simdjson::implementation {
 public:
  ScalarKernel()
      : implementation("rova_scalar", "byte at a time, for small documents (built in)", 0) {}

  error_code create_dom_parser_implementation(
      std::size_t capacity, std::size_t max_depth,
      std::unique_ptr<simdjson::internal::dom_parser_implementation>& dst) const noexcept override {
    dst.reset(new (std::nothrow) ScalarParser());
    if (!dst) return simdjson::MEMALLOC;
    if (const error_code e = dst->set_capacity(capacity); e != simdjson::SUCCESS) return e;
    return dst->set_max_depth(max_depth);
  }

  error_code minify(const std::uint8_t*, std::size_t, std::uint8_t*,
                    std::size_t&) const noexcept override {
    return simdjson::UNEXPECTED_ERROR;  // nothing here minifies
  }

  bool validate_utf8(const char* buf, std::size_t len) const noexcept override {
    return validUtf8(reinterpret_cast<const std::uint8_t*>(buf), len);
  }
};

}  // namespace

simdjson::internal::atomic_ptr<const simdjson::implementation>& builtinJsonKernel() {
  static const ScalarKernel kernel;
  static simdjson::internal::atomic_ptr<const simdjson::implementation> active(&kernel);
  return active;
}

}  // namespace Snapshot
