#pragma once
// Prefixes (a network: host bits cleared) and addresses with a mask length (an interface
// address: host bits kept). Ordered by address, then mask length.

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "platform/plexa/IpAddr.h"

namespace Plexa {

// What tells the two families' prefixes apart: the address's width and the words for errors.
template <class Addr>
struct AddrTraits;
template <>
struct AddrTraits<IpAddr> {
  static constexpr int kBits = 32;
  static constexpr const char* kPrefixWord = "IPv4 prefix";
  static constexpr const char* kWithMaskWord = "IPv4 address with mask";
};
template <>
struct AddrTraits<Ip6Addr> {
  static constexpr int kBits = 128;
  static constexpr const char* kPrefixWord = "IPv6 prefix";
  static constexpr const char* kWithMaskWord = "IPv6 address with mask";
};

// A network of one family: the address with its host bits cleared, and a mask length.
//
//   Plexa::Prefix p = Plexa::Prefix::fromString("10.1.0.0/16");
//   p.contains(Plexa::IpAddr::fromString("10.1.2.3"));          // true
//   Plexa::Prefix(Plexa::IpAddr::fromString("10.1.2.3"), 16);    // 10.1.0.0/16: bits cleared
//   Plexa::Ip6Prefix::fromString("2001:db8::/32").stringValue(); // "2001:db8::/32"
//   Plexa::Prefix().isNullPrefix();                               // "no prefix", written ""
template <class Addr>
class BasicPrefix {
 public:
  static constexpr int kMaxLen = AddrTraits<Addr>::kBits;
  static constexpr std::size_t kMaxTextLen = Addr::kMaxTextLen + (kMaxLen >= 100 ? 4 : 3);

  // The null prefix: address 0, mask length -1. It stands for "no prefix" and writes as "".
  constexpr BasicPrefix() = default;
  // Host bits beyond `len` are cleared. A length outside 0..kMaxLen is a range error.
  BasicPrefix(const Addr& addr, int len);

  // "" parses as the null prefix; host bits set are cleared.
  static bool parse(std::string_view text, BasicPrefix& out);
  static BasicPrefix fromString(std::string_view text);
  static constexpr BasicPrefix nullPrefix() { return BasicPrefix(); }

  constexpr bool isNullPrefix() const { return len_ < 0; }
  constexpr const Addr& address() const { return addr_; }
  constexpr int len() const { return len_; }
  bool contains(const Addr& a) const { return !isNullPrefix() && a.masked(len_) == addr_; }
  bool contains(const BasicPrefix& p) const {
    return !isNullPrefix() && p.len_ >= len_ && p.addr_.masked(len_) == addr_;
  }

  char* write(char* out) const;
  std::string stringValue() const;

  // Address first, then mask length: 10.0.0.0/8 before 10.0.0.0/16 before 10.0.1.0/24.
  friend auto operator<=>(const BasicPrefix&, const BasicPrefix&) = default;
  // The same order as one number, for sorting by radix (IPv4 only: an IPv6 prefix does not
  // fit): the address, then the length, the null prefix's -1 first.
  friend std::uint64_t orderKey(const BasicPrefix& p) requires(kMaxLen <= 32) {
    return std::uint64_t(p.addr_.value()) << 8 | std::uint64_t(p.len_ + 1);
  }
  // An IPv6 prefix's, in three words: the address's two, then the length as above.
  friend std::array<std::uint64_t, 3> orderKey(const BasicPrefix& p) requires(kMaxLen > 32) {
    return {p.addr_.word(0), p.addr_.word(1), std::uint64_t(p.len_ + 1)};
  }

 private:
  Addr addr_;
  std::int16_t len_ = -1;
};

using Prefix = BasicPrefix<IpAddr>;
using Ip6Prefix = BasicPrefix<Ip6Addr>;

// A prefix of either family; the null prefix has the unknown family.
class IpGenPrefix {
 public:
  IpGenPrefix() = default;
  IpGenPrefix(const Prefix& p);     // NOLINT: widening
  IpGenPrefix(const Ip6Prefix& p);  // NOLINT

  static bool parse(std::string_view text, IpGenPrefix& out);
  static IpGenPrefix fromString(std::string_view text);

  AddressFamily af() const { return addr_.af(); }
  bool isNullPrefix() const { return len_ < 0; }
  const IpGenAddr& address() const { return addr_; }
  int len() const { return len_; }
  Prefix v4Prefix() const;
  Ip6Prefix v6Prefix() const;

  char* write(char* out) const;
  std::string stringValue() const;

  friend bool operator==(const IpGenPrefix&, const IpGenPrefix&) = default;
  friend std::strong_ordering operator<=>(const IpGenPrefix& a, const IpGenPrefix& b) {
    if (auto c = a.addr_ <=> b.addr_; c != 0) return c;
    return a.len_ <=> b.len_;
  }

 private:
  IpGenAddr addr_;
  std::int16_t len_ = -1;
};

// An interface address: the address with its host bits kept, and a mask length.
//
//   auto a = Plexa::IpAddrWithMask::fromString("10.1.1.7/24");
//   a.stringValue();           // "10.1.1.7/24"
//   a.subnet().stringValue();  // "10.1.1.0/24", the subnet it lies in
template <class Addr>
class BasicAddrWithMask {
 public:
  static constexpr int kMaxLen = AddrTraits<Addr>::kBits;

  constexpr BasicAddrWithMask() = default;
  BasicAddrWithMask(const Addr& addr, int len);

  static bool parse(std::string_view text, BasicAddrWithMask& out);
  static BasicAddrWithMask fromString(std::string_view text);

  constexpr const Addr& address() const { return addr_; }
  constexpr int len() const { return len_; }
  BasicPrefix<Addr> subnet() const { return BasicPrefix<Addr>(addr_, len_); }

  char* write(char* out) const;
  std::string stringValue() const;

  // Address first, then mask length: 10.0.0.0/8 before 10.0.0.0/16 before 10.0.1.0/24.
  friend auto operator<=>(const BasicAddrWithMask&, const BasicAddrWithMask&) = default;

 private:
  Addr addr_;
  std::uint8_t len_ = 0;
};

using IpAddrWithMask = BasicAddrWithMask<IpAddr>;
using Ip6AddrWithMask = BasicAddrWithMask<Ip6Addr>;

}  // namespace Plexa

template <>
struct std::hash<Plexa::Prefix> {
  std::size_t operator()(const Plexa::Prefix& p) const noexcept {
    std::uint64_t k = std::uint64_t(p.address().value()) << 8 | std::uint8_t(p.len());
    k *= 0x9e3779b97f4a7c15ull;
    return static_cast<std::size_t>(k ^ (k >> 32));
  }
};
template <>
struct std::hash<Plexa::Ip6Prefix> {
  std::size_t operator()(const Plexa::Ip6Prefix& p) const noexcept {
    return std::hash<Plexa::Ip6Addr>()(p.address()) * 31 + std::size_t(p.len());
  }
};
template <>
struct std::hash<Plexa::IpGenPrefix> {
  std::size_t operator()(const Plexa::IpGenPrefix& p) const noexcept {
    return std::hash<Plexa::IpGenAddr>()(p.address()) * 31 + std::size_t(p.len());
  }
};
template <>
struct std::hash<Plexa::IpAddrWithMask> {
  std::size_t operator()(const Plexa::IpAddrWithMask& a) const noexcept {
    return std::hash<std::uint64_t>()(std::uint64_t(a.address().value()) << 8 | a.len());
  }
};
template <>
struct std::hash<Plexa::Ip6AddrWithMask> {
  std::size_t operator()(const Plexa::Ip6AddrWithMask& a) const noexcept {
    return std::hash<Plexa::Ip6Addr>()(a.address()) * 31 + std::size_t(a.len());
  }
};
