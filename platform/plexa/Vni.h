#pragma once
// A VXLAN network identifier (24 bits) or none. Text: the number, or "none".

#include <compare>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace Vxlan {

class VniOrNone {
 public:
  static constexpr std::uint32_t kMax = 0xffffff;
  static constexpr std::uint32_t kNone = 0xffffffff;

  constexpr VniOrNone() = default;
  // A value above 16777215 is a range error.
  explicit VniOrNone(std::uint32_t vni);
  static VniOrNone fromString(std::string_view text);

  constexpr bool isNone() const { return value_ == kNone; }
  constexpr std::uint32_t value() const { return value_; }
  std::string stringValue() const { return isNone() ? "none" : std::to_string(value_); }

  friend constexpr auto operator<=>(VniOrNone, VniOrNone) = default;

 private:
  std::uint32_t value_ = kNone;
};

}  // namespace Vxlan

template <>
struct std::hash<Vxlan::VniOrNone> {
  std::size_t operator()(Vxlan::VniOrNone v) const noexcept {
    return std::hash<std::uint32_t>()(v.value());
  }
};
