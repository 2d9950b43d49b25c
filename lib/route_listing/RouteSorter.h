#pragma once
// The route sorter: from one VRF's forwarding state and a command's filters, select and order
// the routes the listing prints, and cache the FEC of each selected route. RouteSorter lists
// IPv4 and Route6Sorter IPv6; the two are twins whose attribute list is written once,
// parameterised by family, and whose logic is written once, as templates over the sorter
// type (SorterAlgorithms.h). A worked example is at the class declarations below.

#include <cstdint>
#include <memory>

#include "lib/route_listing/CachedFec.h"
#include "platform/brine/Fib.h"
#include "platform/brine/KernelRoutes.h"
#include "platform/brine/Neighbor.h"
#include "platform/brine/NexthopGroupTables.h"
#include "platform/brine/SrTePolicy.h"
#include "platform/brine/Tunnel.h"
#include "platform/mox/Attribute.h"
#include "platform/mox/Dir.h"
#include "platform/mox/Ptr.h"
#include "platform/plexa/VrfName.h"
#include "platform/state/Family.h"
#include "platform/state/Interface.h"
#include "platform/state/Ip.h"
#include "platform/state/RoutingConfig.h"
#include "platform/state/RoutingHardware.h"

namespace Rova {

using ConfigGenPtr = Mox::Ptr<Routing::ConfigGen const>;
using TunnelFibPtr = Mox::Ptr<Tunnel::TunnelFib::MplsTunnelFib const>;
using ArpPtr = Mox::Ptr<Arp::Table::Status const>;
using VrfIdMapPtr = Mox::Ptr<Vrf::VrfIdMap::Status const>;
using AllIntfConfigPtr = Mox::Ptr<Interface::AllIntfConfigDir const>;
using HwVrfStatusPtr = Mox::Ptr<Routing::Hardware::VrfStatus const>;
using NhEntryStatusPtr = Mox::Ptr<NexthopGroup::EntryStatus const>;
using KernelUnprogrammedPtr = Mox::Ptr<Brine::KernelUnprogrammedRoute::UnprogrammedRoute const>;
using EvpnTablePtr = Mox::Ptr<Tunnel::TunnelTable::EvpnVxlanTunnelTable const>;
using DirPtr = Mox::Ptr<Mox::Dir const>;
using IntfStatusPtr = Mox::Ptr<Interface::IntfStatus const>;
using SrTePolicyPtr = Mox::Ptr<SrTePolicy::PolicyStatus const>;
using SrTunnelTablePtr = Mox::Ptr<Tunnel::TunnelTable::SrTunnelTable const>;
using StaticTunnelTablePtr = Mox::Ptr<Tunnel::TunnelTable::StaticTunnelTable const>;
using LdpTunnelTablePtr = Mox::Ptr<Tunnel::TunnelTable::LdpTunnelTable const>;
using BgpLuTunnelTablePtr = Mox::Ptr<Tunnel::TunnelTable::BgpLuTunnelTable const>;

using FecMap = Mox::FlatHashMap<Brine::Fib::FecId, Mox::Ptr<CachedFec>>;
using NexthopGroupNameMap = Mox::HashMap<std::uint64_t, Mox::String8>;

// ---------------------------------------------------------------------------------------------
// One attribute list for both sorters, parameterised by family (V4 or V6). The IPv4 sorter also
// reads the IPv6 FEC table (IPv4 routes over IPv6 next hops) and notes when it does; the IPv6
// sorter alone takes an interface filter.

template <class Fam>
using AddrToIntfIdMapOf = Mox::HashMap<typename Fam::AddrWithMask, Plexa::IntfId>;
template <class Fam>
using SortedRouteMapOf = Mox::VectorMap<typename Fam::Prefix, typename Fam::Route>;
using AddrToIntfIdMap = AddrToIntfIdMapOf<Routing::V4>;
using SortedRouteMap = SortedRouteMapOf<Routing::V4>;
using AddrToIntfId6Map = AddrToIntfIdMapOf<Routing::V6>;
using SortedRoute6Map = SortedRouteMapOf<Routing::V6>;

#define ROVA_IF_V4_V4(...) __VA_ARGS__
#define ROVA_IF_V4_V6(...)
#define ROVA_IF_V6_V4(...)
#define ROVA_IF_V6_V6(...) __VA_ARGS__

// The constructor inputs, in constructor order. The route and FEC tables and the VRF are
// required by name; the rest default to "absent" (null handles, no prefix, no filter, false).
// clang-format off
#define ROVA_SORTER_INPUTS(F, FAM)                                                                 \
  F(routingConfig, RoutingConfig, ConfigGenPtr, Mox::AttrKind::input, {})                          \
  F(routingStatus, RoutingStatus, Mox::Ptr<Routing::FAM::RouteStatus const>,                       \
    Mox::AttrKind::required, {})                                                                   \
  F(forwardingStatus, ForwardingStatus, Mox::Ptr<Routing::FAM::ForwardingStatus const>,            \
    Mox::AttrKind::required, {})                                                                   \
  ROVA_IF_V4_##FAM(F(forwarding6Status, Forwarding6Status,                                         \
                     Mox::Ptr<Brine::Fib6::ForwardingStatus const>, Mox::AttrKind::input, {}))     \
  F(tunnelFib, TunnelFib, TunnelFibPtr, Mox::AttrKind::input, {})                                  \
  F(arpBrine, ArpBrine, ArpPtr, Mox::AttrKind::input, {})                                          \
  F(vrfIdMap, VrfIdMap, VrfIdMapPtr, Mox::AttrKind::input, {})                                     \
  F(allIntfConfig, AllIntfConfig, AllIntfConfigPtr, Mox::AttrKind::input, {})                      \
  F(ipStatus, IpStatus, Mox::Ptr<Routing::FAM::IpStatus const>, Mox::AttrKind::input, {})          \
  F(routingHwStatus, RoutingHwStatus, HwVrfStatusPtr, Mox::AttrKind::input, {})                    \
  F(routingHardwareStatus, RoutingHardwareStatus, Mox::Ptr<Routing::FAM::HardwareStatus const>,    \
    Mox::AttrKind::input, {})                                                                      \
  F(nhEntryStatus, NhEntryStatus, NhEntryStatusPtr, Mox::AttrKind::input, {})                      \
  F(kernelUnprogrammedRoute, KernelUnprogrammedRoute, KernelUnprogrammedPtr,                       \
    Mox::AttrKind::input, {})                                                                      \
  F(evpnVxlanTunnelTable, EvpnVxlanTunnelTable, EvpnTablePtr, Mox::AttrKind::input, {})            \
  F(tunnelTableDir, TunnelTableDir, DirPtr, Mox::AttrKind::input, {})                              \
  F(prefix, Prefix, Routing::FAM::Prefix, Mox::AttrKind::input, {})                                \
  F(intfStatus, IntfStatus, IntfStatusPtr, Mox::AttrKind::input, {})                               \
  F(protocol, Protocol, Mox::String8, Mox::AttrKind::input, {})                                    \
  F(detail, Detail, bool, Mox::AttrKind::input, {})                                                \
  F(longerPrefixes, LongerPrefixes, bool, Mox::AttrKind::input, {})                                \
  F(vrfName, VrfName, L3::VrfName, Mox::AttrKind::required, {})                                    \
  F(host, Host, bool, Mox::AttrKind::input, {})                                                    \
  F(fd, Fd, std::int32_t, Mox::AttrKind::input, {})                                                \
  F(quantify, Quantify, double, Mox::AttrKind::input, {})                                          \
  F(originalMask, OriginalMask, bool, Mox::AttrKind::input, {})                                    \
  ROVA_IF_V6_##FAM(F(intf, Intf, bool, Mox::AttrKind::input, {}))                                  \
  F(srTePolicyStatus, SrTePolicyStatus, SrTePolicyPtr, Mox::AttrKind::input, {})

#define ROVA_SORTER_STATE(F, C, FAM)                                                               \
  F(printCount, PrintCount, std::uint32_t, Mox::AttrKind::state, {})                               \
  C(addrToIntfId, AddrToIntfId, AddrToIntfIdMapOf<Routing::FAM>)                                   \
  C(sortedRoute, SortedRoute, SortedRouteMapOf<Routing::FAM>)                                      \
  C(fec, Fec, FecMap)                                                                              \
  ROVA_IF_V4_##FAM(F(hasV6Nexthop, HasV6Nexthop, bool, Mox::AttrKind::state, {}))                  \
  C(cachedNexthopGroupIdToName, CachedNexthopGroupIdToName, NexthopGroupNameMap)                   \
  F(initialized, Initialized, bool, Mox::AttrKind::state, {})                                      \
  F(srTunnelTable, SrTunnelTable, SrTunnelTablePtr, Mox::AttrKind::state, {})                      \
  F(staticTunnelTable, StaticTunnelTable, StaticTunnelTablePtr, Mox::AttrKind::state, {})          \
  F(ldpTunnelTable, LdpTunnelTable, LdpTunnelTablePtr, Mox::AttrKind::state, {})                   \
  F(bgpLuTunnelTable, BgpLuTunnelTable, BgpLuTunnelTablePtr, Mox::AttrKind::state, {})
// clang-format on

#define ROVA_ROUTE_SORTER_INPUTS(F) ROVA_SORTER_INPUTS(F, V4)
#define ROVA_ROUTE_SORTER_ATTRS(F, C) ROVA_SORTER_INPUTS(F, V4) ROVA_SORTER_STATE(F, C, V4)
#define ROVA_ROUTE6_SORTER_INPUTS(F) ROVA_SORTER_INPUTS(F, V6)
#define ROVA_ROUTE6_SORTER_ATTRS(F, C) ROVA_SORTER_INPUTS(F, V6) ROVA_SORTER_STATE(F, C, V6)

// What a sorter counts and measures while it selects, beyond its attributes.
struct SelectionStats {
  std::uint64_t internalFiltered = 0;      // routes examined and rejected by the filter
  double creationSeconds = 0;              // time from the caller's start to the end of selection
  bool groupNamesBuilt = false;            // the nexthop-group names are read once per listing
  std::uint64_t routeTableGeneration = 0;  // the route table's writes when selection ended
  // The selection is the order the table's writer keeps, and each route is filtered as it is
  // read (sorter::keepInOrder), so that a listing may read and filter the words itself.
  bool filteredAsRead = false;
};

// The operations both sorters offer, written once for the family (RouteSorter.cpp).
template <class Self, class Fam>
class SorterOperations {
 public:
  using Family = Fam;
  using Prefix = typename Fam::Prefix;

  // Selects and sorts the routes; the constructor runs it.
  void handleInitialized();
  // The one route selected for an address or prefix (longer prefixes off).
  Prefix longestPrefixMatch() const;
  // A host route made up for a resolved neighbour, with its FEC cached.
  typename Fam::Route createAttachedRoute(Plexa::IpGenAddr address, Plexa::IntfId intfId);
  Mox::Ptr<CachedFec> viasForPrefix(Prefix prefix) const;
  void buildNexthopGroupIdToName();
  // The code of the route selected for the prefix ("O IA"); empty when none is.
  Mox::String8 protocolString(Prefix prefix) const;
  // Prints the listing (route or host form) on fd in the given format (1 text, 2 JSON).
  void printRoutes(std::uint32_t fd, std::uint32_t format);

  SelectionStats& stats() { return stats_; }
  const SelectionStats& stats() const { return stats_; }
  // The largest total via weight of one FEC that the hardware takes.
  std::uint32_t fecWeightLimit() const;
  // Whatever works beside the selection's walk while the sorter lives (a thread touching the
  // store's pages ahead of it): stopped when the sorter goes, or when another takes its place.
  void aheadIs(std::shared_ptr<void> ahead) { ahead_ = std::move(ahead); }

 private:
  Self& self() { return static_cast<Self&>(*this); }
  const Self& self() const { return static_cast<const Self&>(*this); }

  SelectionStats stats_;
  std::shared_ptr<void> ahead_;
};

// A sorter is built from its inputs, by name:
//
//   auto sorter = Mox::makePtr<Rova::RouteSorter>(Rova::RouteSorter::Inputs{
//       .routingStatus = routes, .forwardingStatus = fecs,
//       .prefix = Plexa::Prefix::fromString("10.1.0.0/16"), .longerPrefixes = true,
//       .vrfName = L3::VrfName("red")});
//   for (const auto& [prefix, route] : sorter->sortedRoute()) ...  // selected, in order
//   sorter->printRoutes(1, rendr::kFormatText);                     // the page, on stdout
//
// Construction selects: it walks the route table once, filters, sorts, and caches the FEC of
// each selected route. Through the registry the same inputs are given by name.
class RouteSorter : public Mox::Entity, public SorterOperations<RouteSorter, Routing::V4> {
  MOX_ENTITY_TYPE(RouteSorter, "Rova::RouteSorter", ROVA_ROUTE_SORTER_ATTRS)
  MOX_INPUTS(ROVA_ROUTE_SORTER_INPUTS)

 public:
  explicit RouteSorter(Inputs in);
  static Mox::String8 legend();
  static Mox::String8 hostLegend();
};

class Route6Sorter : public Mox::Entity, public SorterOperations<Route6Sorter, Routing::V6> {
  MOX_ENTITY_TYPE(Route6Sorter, "Rova::Route6Sorter", ROVA_ROUTE6_SORTER_ATTRS)
  MOX_INPUTS(ROVA_ROUTE6_SORTER_INPUTS)

 public:
  explicit Route6Sorter(Inputs in);
  static Mox::String8 legend();
  static Mox::String8 hostLegend();
};

// ---- operations shared by the twins (defined for both in RouteSorter.cpp) ----

// True when the kernel-unprogrammed route table holds any entry.
template <class Sorter>
bool kernelUnprogrammedRoutes(const Sorter& sorter);
// IPv6: the selected routes that the interface and protocol filters hide from the count;
// IPv4: always 0 (only the IPv6 listing takes an interface filter).
template <class Sorter>
std::uint32_t getFilteredRoutesCount(const Sorter& sorter);
template <>
std::uint32_t getFilteredRoutesCount(const RouteSorter& sorter);
template <>
std::uint32_t getFilteredRoutesCount(const Route6Sorter& sorter);
// The routes that selection examined and the filter rejected.
std::uint64_t getInternalFilteredRoutesCount(const Route6Sorter& sorter);

// Current time in seconds on the clock the front end uses for `quantify`.
double sorterClockSeconds();

}  // namespace Rova
