#pragma once
// Prefixes (a network: host bits cleared) and addresses with a mask length (an interface
// address: host bits kept). Ordered by address, then mask length.

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "platform/plexa/IpAddr.h"

namespace Plexa {

class Prefix {
 public:
  static constexpr std::size_t kMaxTextLen = IpAddr::kMaxTextLen + 3;

  // The null prefix: address 0, mask length -1. It stands for "no prefix" and writes as "".
  constexpr Prefix() = default;
  // Host bits beyond `len` are cleared. A length outside 0..32 is a range error.
  Prefix(IpAddr addr, int len);

  static bool parse(std::string_view text, Prefix& out);
  static Prefix fromString(std::string_view text);
  static constexpr Prefix nullPrefix() { return Prefix(); }

  constexpr bool isNullPrefix() const { return len_ < 0; }
  constexpr IpAddr address() const { return addr_; }
  constexpr int len() const { return len_; }
  bool contains(IpAddr a) const { return !isNullPrefix() && a.masked(len_) == addr_; }
  bool contains(const Prefix& p) const {
    return !isNullPrefix() && p.len_ >= len_ && p.addr_.masked(len_) == addr_;
  }

  char* write(char* out) const;
  std::string stringValue() const;

  friend constexpr auto operator<=>(const Prefix&, const Prefix&) = default;

 private:
  IpAddr addr_;
  std::int16_t len_ = -1;
};

class Ip6Prefix {
 public:
  static constexpr std::size_t kMaxTextLen = Ip6Addr::kMaxTextLen + 4;

  Ip6Prefix() = default;
  Ip6Prefix(const Ip6Addr& addr, int len);

  static bool parse(std::string_view text, Ip6Prefix& out);
  static Ip6Prefix fromString(std::string_view text);
  static Ip6Prefix nullPrefix() { return Ip6Prefix(); }

  bool isNullPrefix() const { return len_ < 0; }
  const Ip6Addr& address() const { return addr_; }
  int len() const { return len_; }
  bool contains(const Ip6Addr& a) const { return !isNullPrefix() && a.masked(len_) == addr_; }
  bool contains(const Ip6Prefix& p) const {
    return !isNullPrefix() && p.len_ >= len_ && p.addr_.masked(len_) == addr_;
  }

  char* write(char* out) const;
  std::string stringValue() const;

  friend bool operator==(const Ip6Prefix&, const Ip6Prefix&) = default;
  friend std::strong_ordering operator<=>(const Ip6Prefix& a, const Ip6Prefix& b) {
    if (auto c = a.addr_ <=> b.addr_; c != 0) return c;
    return a.len_ <=> b.len_;
  }

 private:
  Ip6Addr addr_;
  std::int16_t len_ = -1;
};

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

// An interface address: the address with its host bits and a mask length 0..32.
class IpAddrWithMask {
 public:
  constexpr IpAddrWithMask() = default;
  IpAddrWithMask(IpAddr addr, int len);

  static bool parse(std::string_view text, IpAddrWithMask& out);
  static IpAddrWithMask fromString(std::string_view text);

  constexpr IpAddr address() const { return addr_; }
  constexpr int len() const { return len_; }
  Prefix subnet() const { return Prefix(addr_, len_); }

  char* write(char* out) const;
  std::string stringValue() const;

  friend constexpr auto operator<=>(const IpAddrWithMask&, const IpAddrWithMask&) = default;

 private:
  IpAddr addr_;
  std::uint8_t len_ = 0;
};

class Ip6AddrWithMask {
 public:
  Ip6AddrWithMask() = default;
  Ip6AddrWithMask(const Ip6Addr& addr, int len);

  static bool parse(std::string_view text, Ip6AddrWithMask& out);
  static Ip6AddrWithMask fromString(std::string_view text);

  const Ip6Addr& address() const { return addr_; }
  int len() const { return len_; }
  Ip6Prefix subnet() const { return Ip6Prefix(addr_, len_); }

  char* write(char* out) const;
  std::string stringValue() const;

  friend bool operator==(const Ip6AddrWithMask&, const Ip6AddrWithMask&) = default;
  friend std::strong_ordering operator<=>(const Ip6AddrWithMask& a, const Ip6AddrWithMask& b) {
    if (auto c = a.addr_ <=> b.addr_; c != 0) return c;
    return a.len_ <=> b.len_;
  }

 private:
  Ip6Addr addr_;
  std::uint8_t len_ = 0;
};

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
