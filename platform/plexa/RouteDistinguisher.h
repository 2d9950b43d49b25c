#pragma once
// Route distinguishers in their three standard forms: "ASN:n" (a 2-byte ASN with a 4-byte
// number, or a 4-byte ASN with a 2-byte number) and "IP:n" (an IPv4 address with a 2-byte
// number). Held as the 8-byte wire encoding: type in the top 16 bits.

#include <compare>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace Plexa {

class RouteDistinguisher {
 public:
  constexpr RouteDistinguisher() = default;
  constexpr explicit RouteDistinguisher(std::uint64_t encoded) : value_(encoded) {}

  static bool parse(std::string_view text, RouteDistinguisher& out);
  static RouteDistinguisher fromString(std::string_view text);

  constexpr std::uint64_t value() const { return value_; }
  constexpr unsigned type() const { return unsigned(value_ >> 48); }
  std::string stringValue() const;

  friend constexpr auto operator<=>(RouteDistinguisher, RouteDistinguisher) = default;

 private:
  std::uint64_t value_ = 0;
};

}  // namespace Plexa

template <>
struct std::hash<Plexa::RouteDistinguisher> {
  std::size_t operator()(Plexa::RouteDistinguisher r) const noexcept {
    return std::hash<std::uint64_t>()(r.value());
  }
};
