// The program's own kernel for the JSON parser's first stage. Every program uses it for small
// documents (the catalog an attached reader parses at every start, the example device, a
// hand-written state): opening the parser's library, and the shared C++ runtime it needs,
// costs a few milliseconds, far more than indexing a few kilobytes here. The rova program, which
// is linked statically and does not open the library, uses it for every document. It reads
// sixty-four bytes at a time (SSE2) where no backslash can escape anything, and a byte at a time
// elsewhere; the library's kernels, with wider vectors, are still some times faster on a large
// document.
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

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "snapshot/JsonLibrary.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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

// Which bytes of 64 are what, a bit each (bit k for byte k).
struct Block {
  std::uint64_t quote = 0, backslash = 0, op = 0, blank = 0, control = 0;
};

#if defined(__SSE2__)
Block classify(const std::uint8_t* p) {
  const __m128i quote = _mm_set1_epi8('"'), backslash = _mm_set1_epi8('\\');
  const __m128i open = _mm_set1_epi8('{'), close = _mm_set1_epi8('}');
  const __m128i openList = _mm_set1_epi8('['), closeList = _mm_set1_epi8(']');
  const __m128i colon = _mm_set1_epi8(':'), comma = _mm_set1_epi8(',');
  const __m128i space = _mm_set1_epi8(' '), tab = _mm_set1_epi8('\t');
  const __m128i newline = _mm_set1_epi8('\n'), ret = _mm_set1_epi8('\r');
  const __m128i top = _mm_set1_epi8(char(0xE0)), zero = _mm_setzero_si128();
  Block b;
  for (int k = 0; k < 4; ++k) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16 * k));
    const __m128i op = _mm_or_si128(
        _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, open), _mm_cmpeq_epi8(v, close)),
                     _mm_or_si128(_mm_cmpeq_epi8(v, openList), _mm_cmpeq_epi8(v, closeList))),
        _mm_or_si128(_mm_cmpeq_epi8(v, colon), _mm_cmpeq_epi8(v, comma)));
    const __m128i blank =
        _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, space), _mm_cmpeq_epi8(v, tab)),
                     _mm_or_si128(_mm_cmpeq_epi8(v, newline), _mm_cmpeq_epi8(v, ret)));
    // Below 0x20: none of the top three bits set.
    const __m128i control = _mm_cmpeq_epi8(_mm_and_si128(v, top), zero);
    const auto bits = [k](__m128i m) {
      return std::uint64_t(std::uint32_t(_mm_movemask_epi8(m))) << (16 * k);
    };
    b.quote |= bits(_mm_cmpeq_epi8(v, quote));
    b.backslash |= bits(_mm_cmpeq_epi8(v, backslash));
    b.op |= bits(op);
    b.blank |= bits(blank);
    b.control |= bits(control);
  }
  return b;
}
#else
Block classify(const std::uint8_t* p) {
  Block b;
  for (int k = 0; k < 64; ++k) {
    const std::uint8_t c = p[k];
    const std::uint64_t bit = std::uint64_t(1) << k;
    if (c == '"') b.quote |= bit;
    if (c == '\\') b.backslash |= bit;
    if (isOperator(c)) b.op |= bit;
    if (isBlank(c)) b.blank |= bit;
    if (c < 0x20) b.control |= bit;
  }
  return b;
}
#endif

// The bits set in x, without the runtime's call that std::popcount makes on a processor the
// build may not assume has the instruction.
std::uint32_t bitCount(std::uint64_t x) {
  x -= (x >> 1) & 0x5555555555555555ULL;
  x = (x & 0x3333333333333333ULL) + ((x >> 2) & 0x3333333333333333ULL);
  x = (x + (x >> 4)) & 0x0F0F0F0F0F0F0F0FULL;
  return std::uint32_t((x * 0x0101010101010101ULL) >> 56);
}

// Bit k of the result: the parity of bits 0..k of x.
std::uint64_t prefixXor(std::uint64_t x) {
  x ^= x << 1;
  x ^= x << 2;
  x ^= x << 4;
  x ^= x << 8;
  x ^= x << 16;
  x ^= x << 32;
  return x;
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
    std::size_t i = 0;
    while (i < len) {
      // Sixty-four bytes at a time where no backslash can escape anything: the common case.
      if (!escaped && len - i >= 64) {
        const Block b = classify(buf + i);
        if (b.backslash == 0) {
          // Bit k: inside a string once byte k is read (its opening quote in, its closing out).
          const std::uint64_t in = prefixXor(b.quote) ^ (inString ? ~std::uint64_t(0) : 0);
          const std::uint64_t body = in ^ b.quote;
          controlInString |= (b.control & in) != 0;
          const std::uint64_t scalar = ~(b.op | b.blank);
          const std::uint64_t valueByte = scalar & ~b.quote;
          const std::uint64_t follows = valueByte << 1 | (afterScalar ? 1 : 0);
          std::uint64_t structural = ~body & (b.op | (scalar & ~follows));
          // Four positions a round, some past the last one: the index has room for them
          // (a position per byte and four more), and later ones or the guards overwrite them.
          std::uint32_t* at = out + n;
          n += bitCount(structural);
          const std::uint32_t base = std::uint32_t(i);
          while (structural != 0) {
            at[0] = base + std::uint32_t(std::countr_zero(structural));
            structural &= structural - 1;
            at[1] = base + std::uint32_t(std::countr_zero(structural));
            structural &= structural - 1;
            at[2] = base + std::uint32_t(std::countr_zero(structural));
            structural &= structural - 1;
            at[3] = base + std::uint32_t(std::countr_zero(structural));
            structural &= structural - 1;
            at += 4;
          }
          inString = in >> 63;
          afterScalar = valueByte >> 63;
          i += 64;
          continue;
        }
      }
      // A byte at a time up to the next block's start (a block with a backslash, the tail).
      const std::size_t end = std::min(len, (i & ~std::size_t(63)) + 64);
      for (; i < end; ++i) {
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
  ScalarKernel() : implementation("rova_scalar", "the program's own (built in)", 0) {}

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

bool validUtf8(std::string_view text) {
  return validUtf8(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

simdjson::internal::atomic_ptr<const simdjson::implementation>& builtinJsonKernel() {
  static const ScalarKernel kernel;
  static simdjson::internal::atomic_ptr<const simdjson::implementation> active(&kernel);
  return active;
}

}  // namespace Snapshot
