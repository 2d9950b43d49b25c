#pragma once
// FEC identifiers: a 64-bit word whose top bits hold the adjacency type and whose low bits hold
// the index within that type. 0 means "no FEC".

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace Brine::Fib {

constexpr unsigned adjTypePos() {
  return 56;
}
constexpr std::uint64_t adjIndexMask() {
  return (std::uint64_t(1) << adjTypePos()) - 1;
}
constexpr std::uint64_t adjTypeMax() {
  return 16;
}

enum class AdjType : std::uint8_t {
  ipAdj = 0,
  ip6Adj = 1,  // the FEC lives in the IPv6 forwarding table
  mplsAdj = 2,
  nexthopGroupAdj = 3,
  attachedAdj = 4,  // made up for a resolved neighbour by the host listing
  tunnelAdj = 5,
  srTePolicyAdj = 15,
};

class FecId {
 public:
  constexpr FecId() = default;
  constexpr explicit FecId(std::uint64_t value) : value_(value) {}
  FecId(AdjType type, std::uint64_t index)
      : value_(std::uint64_t(type) << adjTypePos() | (index & adjIndexMask())) {}

  static FecId fromString(std::string_view text);

  constexpr std::uint64_t value() const { return value_; }
  // The type must be below adjTypeMax(); anything else is a broken invariant.
  AdjType adjType() const;
  constexpr std::uint64_t index() const { return value_ & adjIndexMask(); }
  std::string stringValue() const { return std::to_string(value_); }

  friend constexpr auto operator<=>(FecId, FecId) = default;

 private:
  std::uint64_t value_ = 0;
};

bool isV6FecId(FecId fecId);
bool isNexthopGroupFec(FecId fecId);
bool isSrTePolicyFec(FecId fecId);
std::uint64_t nexthopGroupIdFromFec(FecId fecId);

}  // namespace Brine::Fib

template <>
struct std::hash<Brine::Fib::FecId> {
  std::size_t operator()(Brine::Fib::FecId f) const noexcept {
    std::uint64_t k = f.value() * 0x9e3779b97f4a7c15ull;
    return static_cast<std::size_t>(k ^ (k >> 29));
  }
};
