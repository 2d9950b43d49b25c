#pragma once
// The forwarding state records: routes keyed by prefix, FECs keyed by FecId holding up to 512
// vias, for IPv4 (Brine::Fib) and IPv6 (Brine::Fib6). The two families share their layout
// through templates and differ in the address, prefix and route type they carry.

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/brine/FecId.h"
#include "platform/brine/PodArray.h"
#include "platform/brine/RouteType.h"
#include "platform/brine/Table.h"
#include "platform/brine/TunnelId.h"
#include "platform/plexa/IntfId.h"
#include "platform/plexa/Mpls.h"
#include "platform/plexa/Prefix.h"

namespace Brine {

// An index into a FEC's vias, 0 to 511.
class ViaIndex {
 public:
  // The name the FIB knows it by (Brine::Fib::ViaIndex is this class).
  static constexpr const char* kTypeName = "Brine::Fib::ViaIndex";
  static constexpr std::uint16_t min = 0;
  static constexpr std::uint16_t max = 511;
  static constexpr const char* kRangeMessage =
      "ViaIndex::value < ViaIndex::min or > ViaIndex::max not allowed";

  constexpr ViaIndex() = default;
  explicit ViaIndex(std::uint32_t value) : value_(static_cast<std::uint16_t>(value)) {
    if (value > max) throw Mox::RangeException(kRangeMessage);
  }
  static ViaIndex fromString(std::string_view text);
  constexpr std::uint16_t value() const { return value_; }
  std::string stringValue() const { return std::to_string(value_); }
  friend constexpr auto operator<=>(ViaIndex, ViaIndex) = default;

 private:
  std::uint16_t value_ = 0;
};

template <class Addr>
struct BasicVia {
  Addr hop{};
  Plexa::IntfId intfId;
  std::uint32_t labelValue = Plexa::MplsLabel::kNoLabel;
  std::uint16_t weight = 1;
  std::uint64_t tunnelIdValue = 0;

  // Both read through the bounded types, so a corrupt value raises their range errors.
  Plexa::MplsLabel mplsLabel() const { return Plexa::MplsLabel(labelValue); }
  Tunnel::TunnelTable::TunnelId tunnelId() const {
    return Tunnel::TunnelTable::TunnelId(tunnelIdValue);
  }
  friend bool operator==(const BasicVia&, const BasicVia&) = default;
};

template <class Via>
struct BasicFec {
  static constexpr std::size_t kMaxVias = 512;

  Fib::FecId fecId;
  // Vias from this index on are backup vias; 0 when the FEC has none.
  std::uint16_t backupViaIndexValue = 0;
  Pelo::PodArray<Via, ViaIndex, kMaxVias> via;

  Fib::FecId key() const { return fecId; }
  ViaIndex backupViaIndex() const { return ViaIndex(backupViaIndexValue); }
};

template <class Prefix, class RouteType>
struct BasicRoute {
  Prefix prefix;
  RouteType routeType = RouteType::invalid;
  Fib::FecId fecId;
  std::uint32_t metric = 0;
  std::uint8_t preference = 0;
  bool hardwareProgrammed = true;

  const Prefix& key() const { return prefix; }
};

namespace Fib {

using Via = BasicVia<Plexa::IpAddr>;
using Fec = BasicFec<Via>;
using Route = BasicRoute<Plexa::Prefix, Routing::Fib::RouteType>;
using ViaIndex = Brine::ViaIndex;

class RouteStatus : public Table<Plexa::Prefix, Route> {
  MOX_ENTITY("Brine::Fib::RouteStatus")
};

class ForwardingStatus : public Table<FecId, Fec> {
  MOX_ENTITY("Brine::Fib::ForwardingStatus")
};

}  // namespace Fib

namespace Fib6 {

using Via = BasicVia<Plexa::Ip6Addr>;
using Fec = BasicFec<Via>;
using Route = BasicRoute<Plexa::Ip6Prefix, Routing6::Fib::RouteType>;

class RouteStatus : public Table<Plexa::Ip6Prefix, Route> {
  MOX_ENTITY("Brine::Fib6::RouteStatus")
};

class ForwardingStatus : public Table<Fib::FecId, Fec> {
  MOX_ENTITY("Brine::Fib6::ForwardingStatus")
};

}  // namespace Fib6

}  // namespace Brine
