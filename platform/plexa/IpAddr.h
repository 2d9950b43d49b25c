#pragma once
// IPv4, IPv6 and family-generic addresses. Fixed-size and trivially copyable, so they can sit
// in table records. Each parses its usual text (fromString throws Mox::RangeException; parse
// returns false), writes stringValue(), and orders numerically.
//
//   Plexa::IpAddr a = Plexa::IpAddr::fromString("10.1.2.3");
//   a.stringValue();                                   // "10.1.2.3"
//   a < Plexa::IpAddr(10, 1, 2, 4);                    // true
//   Plexa::Ip6Addr b;
//   Plexa::Ip6Addr::parse("2001:db8::1", b);           // true; "2001:db8::1" again when written
//   Plexa::IpGenAddr g = a;                            // either family: g.isV4(), g.isV6()
//   Plexa::IpAddr::fromString("10.1.2.300");           // throws Mox::RangeException

#include <array>
#include <bit>
#include <compare>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>

namespace Plexa {

class IpAddr {
 public:
  static constexpr std::size_t kMaxTextLen = 15;

  constexpr IpAddr() = default;
  constexpr explicit IpAddr(std::uint32_t hostOrder) : value_(hostOrder) {}
  constexpr IpAddr(std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d)
      : value_(std::uint32_t(a) << 24 | std::uint32_t(b) << 16 | std::uint32_t(c) << 8 | d) {}

  static bool parse(std::string_view text, IpAddr& out);
  static IpAddr fromString(std::string_view text);

  constexpr std::uint32_t value() const { return value_; }
  constexpr bool isZero() const { return value_ == 0; }
  // The mask of `len` leading one-bits (0..32).
  static constexpr std::uint32_t maskOf(int len) {
    return len <= 0 ? 0u : len >= 32 ? 0xffffffffu : ~(0xffffffffu >> len);
  }
  constexpr IpAddr masked(int len) const { return IpAddr(value_ & maskOf(len)); }

  // Writes the dotted text at `out` (room for kMaxTextLen) and returns its end.
  char* write(char* out) const;
  std::string stringValue() const;

  friend constexpr auto operator<=>(IpAddr, IpAddr) = default;

 private:
  std::uint32_t value_ = 0;
};

class Ip6Addr {
 public:
  static constexpr std::size_t kMaxTextLen = 45;
  using Bytes = std::array<std::uint8_t, 16>;

  constexpr Ip6Addr() = default;
  constexpr explicit Ip6Addr(const Bytes& b) : bytes_(b) {}

  static bool parse(std::string_view text, Ip6Addr& out);
  static Ip6Addr fromString(std::string_view text);

  const Bytes& bytes() const { return bytes_; }
  Bytes& bytes() { return bytes_; }
  bool isZero() const;
  // fe80::/10
  bool isLinkLocal() const { return bytes_[0] == 0xfe && (bytes_[1] & 0xc0) == 0x80; }
  Ip6Addr masked(int len) const;

  char* write(char* out) const;
  std::string stringValue() const;

  friend bool operator==(const Ip6Addr& a, const Ip6Addr& b) { return a.bytes_ == b.bytes_; }
  // Byte order, as two big-endian words: sorting a full table calls this millions of times,
  // and a call to memcmp costs more than the comparison itself.
  friend std::strong_ordering operator<=>(const Ip6Addr& a, const Ip6Addr& b) {
    if (auto c = a.word(0) <=> b.word(0); c != 0) return c;
    return a.word(1) <=> b.word(1);
  }

  // Bytes 0-7 (i = 0) or 8-15 (i = 1) as one big-endian number: the address's order.
  std::uint64_t word(int i) const {
    std::uint64_t w;
    std::memcpy(&w, bytes_.data() + 8 * i, 8);
    if constexpr (std::endian::native == std::endian::little) w = __builtin_bswap64(w);
    return w;
  }

 private:
  Bytes bytes_{};
};

enum class AddressFamily : std::uint8_t { unknown = 0, ipv4 = 4, ipv6 = 6 };

// An address of either family. The empty address (family unknown) writes as "". An IPv4
// address keeps its four bytes at the start of the 16-byte field, so the raw bytes of a
// generic address order IPv4 addresses numerically.
class IpGenAddr {
 public:
  static constexpr std::size_t kMaxTextLen = Ip6Addr::kMaxTextLen;

  IpGenAddr() = default;
  IpGenAddr(IpAddr a);  // NOLINT: an IPv4 address is a generic address
  IpGenAddr(const Ip6Addr& a) : af_(AddressFamily::ipv6), addr_(a) {}  // NOLINT

  static bool parse(std::string_view text, IpGenAddr& out);
  static IpGenAddr fromString(std::string_view text);

  AddressFamily af() const { return af_; }
  bool isV4() const { return af_ == AddressFamily::ipv4; }
  bool isV6() const { return af_ == AddressFamily::ipv6; }
  // True for the empty address and for 0.0.0.0 and ::.
  bool isZero() const { return af_ == AddressFamily::unknown || addr_.isZero(); }
  // Configuration records test an optional address by its truth ("if (via.vtepAddr())",
  // "!via.hop()"): an address is true when it is not zero. Explicit, so that an address never
  // turns into a number or a bool anywhere else.
  explicit operator bool() const { return !isZero(); }
  IpAddr v4Addr() const;
  const Ip6Addr& v6Addr() const { return addr_; }
  // The 16 address bytes (IPv4 in the first four).
  const Ip6Addr::Bytes& bytes() const { return addr_.bytes(); }

  char* write(char* out) const;
  std::string stringValue() const;

  friend bool operator==(const IpGenAddr&, const IpGenAddr&) = default;
  friend std::strong_ordering operator<=>(const IpGenAddr& a, const IpGenAddr& b) {
    if (auto c = a.af_ <=> b.af_; c != 0) return c;
    return a.addr_ <=> b.addr_;
  }

 private:
  AddressFamily af_ = AddressFamily::unknown;
  Ip6Addr addr_;
};

std::size_t hashBytes(const void* data, std::size_t n);

}  // namespace Plexa

template <>
struct std::hash<Plexa::IpAddr> {
  std::size_t operator()(Plexa::IpAddr a) const noexcept {
    return std::hash<std::uint32_t>()(a.value());
  }
};
template <>
struct std::hash<Plexa::Ip6Addr> {
  std::size_t operator()(const Plexa::Ip6Addr& a) const noexcept {
    return Plexa::hashBytes(a.bytes().data(), 16);
  }
};
template <>
struct std::hash<Plexa::IpGenAddr> {
  std::size_t operator()(const Plexa::IpGenAddr& a) const noexcept {
    return Plexa::hashBytes(a.bytes().data(), 16) ^ static_cast<std::size_t>(a.af());
  }
};
