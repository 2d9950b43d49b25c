#pragma once
// Tunnel identifiers: 64 bits, of which at most the low 48 are used; the bits from 23 up give
// the tunnel type and the low 23 bits the index within it. 0 means "no tunnel".

#include <compare>
#include <cstdint>
#include <functional>
#include <string>

namespace Tunnel::TunnelTable {

class TunnelId {
 public:
  static constexpr std::uint64_t minValue = 0;
  static constexpr std::uint64_t maxValue = (std::uint64_t(0xffff) << 32) | 0xffffffffu;
  static constexpr const char* kRangeMessage =
      "TunnelId::value < TunnelId::minValue or > TunnelId::maxValue not allowed";
  static constexpr unsigned kTypeShift = 23;
  static constexpr std::uint64_t kIndexMask = (std::uint64_t(1) << kTypeShift) - 1;

  constexpr TunnelId() = default;
  // A value whose upper 32 bits exceed 65535 raises Mox::RangeException(kRangeMessage).
  explicit TunnelId(std::uint64_t value);
  TunnelId(std::uint64_t type, std::uint64_t index)
      : TunnelId(type << kTypeShift | (index & kIndexMask)) {}

  constexpr std::uint64_t value() const { return value_; }
  constexpr std::uint64_t tunnelType() const { return value_ >> kTypeShift; }
  constexpr std::uint64_t tunnelIndex() const { return value_ & kIndexMask; }
  constexpr bool isZero() const { return value_ == 0; }
  std::string stringValue() const { return std::to_string(value_); }

  friend constexpr auto operator<=>(TunnelId, TunnelId) = default;

 private:
  std::uint64_t value_ = 0;
};

}  // namespace Tunnel::TunnelTable

template <>
struct std::hash<Tunnel::TunnelTable::TunnelId> {
  std::size_t operator()(Tunnel::TunnelTable::TunnelId t) const noexcept {
    return std::hash<std::uint64_t>()(t.value() * 0x9e3779b97f4a7c15ull);
  }
};
