#pragma once
// Copies of the short pieces that make up output (a separator, a number, an address, a key).
// A call to memmove costs more than these pieces take to copy, so up to 32 bytes are moved
// with a few overlapping fixed-size loads and stores, all loads first: the source and the
// destination may overlap, as with memmove.

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace rendr::detail {

// Kept out of line: inlined into a caller with a small array, the compiler would warn about
// this branch that such callers never take.
[[gnu::noinline]] inline void moveLong(char* d, const char* s, std::size_t n) {
  std::memmove(d, s, n);
}

inline void moveBytes(char* d, const char* s, std::size_t n) {
  if (n >= 8 && n <= 16) {
    std::uint64_t a, b;
    std::memcpy(&a, s, 8);
    std::memcpy(&b, s + n - 8, 8);
    std::memcpy(d, &a, 8);
    std::memcpy(d + n - 8, &b, 8);
  } else if (n > 16 && n <= 32) {
    std::uint64_t a, b, c, e;
    std::memcpy(&a, s, 8);
    std::memcpy(&b, s + 8, 8);
    std::memcpy(&c, s + n - 16, 8);
    std::memcpy(&e, s + n - 8, 8);
    std::memcpy(d, &a, 8);
    std::memcpy(d + 8, &b, 8);
    std::memcpy(d + n - 16, &c, 8);
    std::memcpy(d + n - 8, &e, 8);
  } else if (n >= 4 && n < 8) {
    std::uint32_t a, b;
    std::memcpy(&a, s, 4);
    std::memcpy(&b, s + n - 4, 4);
    std::memcpy(d, &a, 4);
    std::memcpy(d + n - 4, &b, 4);
  } else if (n > 0 && n < 4) {
    char a = s[0], b = s[n / 2], c = s[n - 1];
    d[0] = a;
    d[n / 2] = b;
    d[n - 1] = c;
  } else if (n > 32) {
    moveLong(d, s, n);
  }
}

}  // namespace rendr::detail
