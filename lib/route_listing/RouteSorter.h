#pragma once
// The route sorter: from one VRF's forwarding state and a command's filters, select and order
// the routes the listing prints, and cache the FEC of each selected route. RouteSorter lists
// IPv4 and Route6Sorter IPv6; the two are twins whose logic is written once, as templates over
// the sorter type (SorterAlgorithms.h), and whose attributes differ as their families do.

#include <cstdint>

#include "lib/route_listing/CachedFec.h"
#include "platform/brine/Fib.h"
#include "platform/brine/Neighbor.h"
#include "platform/brine/Tables.h"
#include "platform/brine/Tunnel.h"
#include "platform/mox/Attribute.h"
#include "platform/mox/Dir.h"
#include "platform/mox/Ptr.h"
#include "platform/plexa/VrfName.h"
#include "platform/state/Interface.h"
#include "platform/state/Ip.h"
#include "platform/state/Routing.h"

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

using FecMap = Mox::HashMap<Brine::Fib::FecId, Mox::Ptr<CachedFec>>;
using NexthopGroupNameMap = Mox::HashMap<std::uint64_t, Mox::String8>;

// ---------------------------------------------------------------------------------------------

using AddrToIntfIdMap = Mox::HashMap<Plexa::IpAddrWithMask, Plexa::IntfId>;
using SortedRouteMap = Mox::VectorMap<Plexa::Prefix, Brine::Fib::Route>;

#define ROVA_ROUTE_SORTER_ATTRS(F, C)                                                              \
  F(routingConfig, RoutingConfig, ConfigGenPtr, Mox::AttrKind::input, {})                          \
  F(routingStatus, RoutingStatus, Mox::Ptr<Brine::Fib::RouteStatus const>, Mox::AttrKind::input,   \
    {})                                                                                            \
  F(forwardingStatus, ForwardingStatus, Mox::Ptr<Brine::Fib::ForwardingStatus const>,              \
    Mox::AttrKind::input, {})                                                                      \
  F(forwarding6Status, Forwarding6Status, Mox::Ptr<Brine::Fib6::ForwardingStatus const>,           \
    Mox::AttrKind::input, {})                                                                      \
  F(tunnelFib, TunnelFib, TunnelFibPtr, Mox::AttrKind::input, {})                                  \
  F(arpBrine, ArpBrine, ArpPtr, Mox::AttrKind::input, {})                                          \
  F(vrfIdMap, VrfIdMap, VrfIdMapPtr, Mox::AttrKind::input, {})                                     \
  F(allIntfConfig, AllIntfConfig, AllIntfConfigPtr, Mox::AttrKind::input, {})                      \
  F(ipStatus, IpStatus, Mox::Ptr<Ip::Status const>, Mox::AttrKind::input, {})                      \
  F(routingHwStatus, RoutingHwStatus, HwVrfStatusPtr, Mox::AttrKind::input, {})                    \
  F(routingHardwareStatus, RoutingHardwareStatus, Mox::Ptr<Routing::Hardware::Status const>,       \
    Mox::AttrKind::input, {})                                                                      \
  F(nhEntryStatus, NhEntryStatus, NhEntryStatusPtr, Mox::AttrKind::input, {})                      \
  F(kernelUnprogrammedRoute, KernelUnprogrammedRoute, KernelUnprogrammedPtr, Mox::AttrKind::input, \
    {})                                                                                            \
  F(evpnVxlanTunnelTable, EvpnVxlanTunnelTable, EvpnTablePtr, Mox::AttrKind::input, {})            \
  F(tunnelTableDir, TunnelTableDir, DirPtr, Mox::AttrKind::input, {})                              \
  F(prefix, Prefix, Plexa::Prefix, Mox::AttrKind::input, {})                                       \
  F(intfStatus, IntfStatus, IntfStatusPtr, Mox::AttrKind::input, {})                               \
  F(protocol, Protocol, Mox::String8, Mox::AttrKind::input, {})                                    \
  F(detail, Detail, bool, Mox::AttrKind::input, {})                                                \
  F(longerPrefixes, LongerPrefixes, bool, Mox::AttrKind::input, {})                                \
  F(vrfName, VrfName, L3::VrfName, Mox::AttrKind::input, {})                                       \
  F(host, Host, bool, Mox::AttrKind::input, {})                                                    \
  F(fd, Fd, std::int32_t, Mox::AttrKind::input, {})                                                \
  F(quantify, Quantify, double, Mox::AttrKind::input, {})                                          \
  F(originalMask, OriginalMask, bool, Mox::AttrKind::input, {})                                    \
  F(srTePolicyStatus, SrTePolicyStatus, SrTePolicyPtr, Mox::AttrKind::input, {})                   \
  F(printCount, PrintCount, std::uint32_t, Mox::AttrKind::state, {})                               \
  C(addrToIntfId, AddrToIntfId, AddrToIntfIdMap)                                                   \
  C(sortedRoute, SortedRoute, SortedRouteMap)                                                      \
  C(fec, Fec, FecMap)                                                                              \
  F(hasV6Nexthop, HasV6Nexthop, bool, Mox::AttrKind::state, {})                                    \
  C(cachedNexthopGroupIdToName, CachedNexthopGroupIdToName, NexthopGroupNameMap)                   \
  F(initialized, Initialized, bool, Mox::AttrKind::state, {})                                      \
  F(srTunnelTable, SrTunnelTable, SrTunnelTablePtr, Mox::AttrKind::state, {})                      \
  F(staticTunnelTable, StaticTunnelTable, StaticTunnelTablePtr, Mox::AttrKind::state, {})          \
  F(ldpTunnelTable, LdpTunnelTable, LdpTunnelTablePtr, Mox::AttrKind::state, {})                   \
  F(bgpLuTunnelTable, BgpLuTunnelTable, BgpLuTunnelTablePtr, Mox::AttrKind::state, {})

// What a sorter counts and measures while it selects, beyond its attributes.
struct SelectionStats {
  std::uint64_t internalFiltered = 0;      // routes examined and rejected by the filter
  double creationSeconds = 0;              // time from the caller's start to the end of selection
  bool groupNamesBuilt = false;            // the nexthop-group names are read once per listing
  std::uint64_t routeTableGeneration = 0;  // the route table's writes when selection ended
};

class RouteSorter : public Mox::Entity {
  MOX_ENTITY_TYPE(RouteSorter, "Rova::RouteSorter", ROVA_ROUTE_SORTER_ATTRS)

 public:
  struct Family;

  RouteSorter(ConfigGenPtr routingConfig, Mox::Ptr<Brine::Fib::RouteStatus const> routingStatus,
              Mox::Ptr<Brine::Fib::ForwardingStatus const> forwardingStatus,
              Mox::Ptr<Brine::Fib6::ForwardingStatus const> forwarding6Status,
              TunnelFibPtr tunnelFib, ArpPtr arpBrine, VrfIdMapPtr vrfIdMap,
              AllIntfConfigPtr allIntfConfig, Mox::Ptr<Ip::Status const> ipStatus,
              HwVrfStatusPtr routingHwStatus,
              Mox::Ptr<Routing::Hardware::Status const> routingHardwareStatus,
              NhEntryStatusPtr nhEntryStatus, KernelUnprogrammedPtr kernelUnprogrammedRoute,
              EvpnTablePtr evpnVxlanTunnelTable, DirPtr tunnelTableDir, Plexa::Prefix prefix,
              IntfStatusPtr intfStatus, Mox::String8 protocol, bool detail, bool longerPrefixes,
              L3::VrfName vrfName, bool host, std::int32_t fd, double quantify, bool originalMask,
              SrTePolicyPtr srTePolicyStatus);

  void handleInitialized();
  Plexa::Prefix longestPrefixMatch() const;
  Brine::Fib::Route createAttachedRoute(Plexa::IpGenAddr address, Plexa::IntfId intfId);
  Mox::Ptr<CachedFec> viasForPrefix(Plexa::Prefix prefix) const;
  void buildNexthopGroupIdToName();
  // The code of the route selected for the prefix ("O IA"); empty when none is.
  Mox::String8 protocolString(Plexa::Prefix prefix) const;
  // Prints the listing (route or host form) on fd in the given format (1 text, 2 JSON).
  void printRoutes(std::uint32_t fd, std::uint32_t format);

  static Mox::String8 legend();
  static Mox::String8 hostLegend();

  SelectionStats& stats() { return stats_; }
  const SelectionStats& stats() const { return stats_; }
  // The largest total via weight of one FEC that the hardware takes.
  std::uint32_t fecWeightLimit() const;

 private:
  SelectionStats stats_;
};

// ---------------------------------------------------------------------------------------------

using AddrToIntfId6Map = Mox::HashMap<Plexa::Ip6AddrWithMask, Plexa::IntfId>;
using SortedRoute6Map = Mox::VectorMap<Plexa::Ip6Prefix, Brine::Fib6::Route>;

#define ROVA_ROUTE6_SORTER_ATTRS(F, C)                                                             \
  F(routingConfig, RoutingConfig, ConfigGenPtr, Mox::AttrKind::input, {})                          \
  F(routingStatus, RoutingStatus, Mox::Ptr<Brine::Fib6::RouteStatus const>, Mox::AttrKind::input,  \
    {})                                                                                            \
  F(forwardingStatus, ForwardingStatus, Mox::Ptr<Brine::Fib6::ForwardingStatus const>,             \
    Mox::AttrKind::input, {})                                                                      \
  F(tunnelFib, TunnelFib, TunnelFibPtr, Mox::AttrKind::input, {})                                  \
  F(arpBrine, ArpBrine, ArpPtr, Mox::AttrKind::input, {})                                          \
  F(vrfIdMap, VrfIdMap, VrfIdMapPtr, Mox::AttrKind::input, {})                                     \
  F(allIntfConfig, AllIntfConfig, AllIntfConfigPtr, Mox::AttrKind::input, {})                      \
  F(ipStatus, IpStatus, Mox::Ptr<Ip6::Status const>, Mox::AttrKind::input, {})                     \
  F(routingHwStatus, RoutingHwStatus, HwVrfStatusPtr, Mox::AttrKind::input, {})                    \
  F(routingHardwareStatus, RoutingHardwareStatus, Mox::Ptr<Routing6::Hardware::Status const>,      \
    Mox::AttrKind::input, {})                                                                      \
  F(nhEntryStatus, NhEntryStatus, NhEntryStatusPtr, Mox::AttrKind::input, {})                      \
  F(kernelUnprogrammedRoute, KernelUnprogrammedRoute, KernelUnprogrammedPtr, Mox::AttrKind::input, \
    {})                                                                                            \
  F(evpnVxlanTunnelTable, EvpnVxlanTunnelTable, EvpnTablePtr, Mox::AttrKind::input, {})            \
  F(tunnelTableDir, TunnelTableDir, DirPtr, Mox::AttrKind::input, {})                              \
  F(prefix, Prefix, Plexa::Ip6Prefix, Mox::AttrKind::input, {})                                    \
  F(intfStatus, IntfStatus, IntfStatusPtr, Mox::AttrKind::input, {})                               \
  F(protocol, Protocol, Mox::String8, Mox::AttrKind::input, {})                                    \
  F(detail, Detail, bool, Mox::AttrKind::input, {})                                                \
  F(longerPrefixes, LongerPrefixes, bool, Mox::AttrKind::input, {})                                \
  F(vrfName, VrfName, L3::VrfName, Mox::AttrKind::input, {})                                       \
  F(host, Host, bool, Mox::AttrKind::input, {})                                                    \
  F(fd, Fd, std::int32_t, Mox::AttrKind::input, {})                                                \
  F(quantify, Quantify, double, Mox::AttrKind::input, {})                                          \
  F(originalMask, OriginalMask, bool, Mox::AttrKind::input, {})                                    \
  F(intf, Intf, bool, Mox::AttrKind::input, {})                                                    \
  F(srTePolicyStatus, SrTePolicyStatus, SrTePolicyPtr, Mox::AttrKind::input, {})                   \
  F(printCount, PrintCount, std::uint32_t, Mox::AttrKind::state, {})                               \
  C(addrToIntfId, AddrToIntfId, AddrToIntfId6Map)                                                  \
  C(sortedRoute, SortedRoute, SortedRoute6Map)                                                     \
  C(fec, Fec, FecMap)                                                                              \
  C(cachedNexthopGroupIdToName, CachedNexthopGroupIdToName, NexthopGroupNameMap)                   \
  F(initialized, Initialized, bool, Mox::AttrKind::state, {})                                      \
  F(srTunnelTable, SrTunnelTable, SrTunnelTablePtr, Mox::AttrKind::state, {})                      \
  F(staticTunnelTable, StaticTunnelTable, StaticTunnelTablePtr, Mox::AttrKind::state, {})          \
  F(ldpTunnelTable, LdpTunnelTable, LdpTunnelTablePtr, Mox::AttrKind::state, {})                   \
  F(bgpLuTunnelTable, BgpLuTunnelTable, BgpLuTunnelTablePtr, Mox::AttrKind::state, {})

class Route6Sorter : public Mox::Entity {
  MOX_ENTITY_TYPE(Route6Sorter, "Rova::Route6Sorter", ROVA_ROUTE6_SORTER_ATTRS)

 public:
  struct Family;

  Route6Sorter(ConfigGenPtr routingConfig, Mox::Ptr<Brine::Fib6::RouteStatus const> routingStatus,
               Mox::Ptr<Brine::Fib6::ForwardingStatus const> forwardingStatus,
               TunnelFibPtr tunnelFib, ArpPtr arpBrine, VrfIdMapPtr vrfIdMap,
               AllIntfConfigPtr allIntfConfig, Mox::Ptr<Ip6::Status const> ipStatus,
               HwVrfStatusPtr routingHwStatus,
               Mox::Ptr<Routing6::Hardware::Status const> routingHardwareStatus,
               NhEntryStatusPtr nhEntryStatus, KernelUnprogrammedPtr kernelUnprogrammedRoute,
               EvpnTablePtr evpnVxlanTunnelTable, DirPtr tunnelTableDir, Plexa::Ip6Prefix prefix,
               IntfStatusPtr intfStatus, Mox::String8 protocol, bool detail, bool longerPrefixes,
               L3::VrfName vrfName, bool host, std::int32_t fd, double quantify, bool originalMask,
               bool intf, SrTePolicyPtr srTePolicyStatus);

  void handleInitialized();
  Plexa::Ip6Prefix longestPrefixMatch() const;
  Brine::Fib6::Route createAttachedRoute(Plexa::IpGenAddr address, Plexa::IntfId intfId);
  Mox::Ptr<CachedFec> viasForPrefix(Plexa::Ip6Prefix prefix) const;
  void buildNexthopGroupIdToName();
  Mox::String8 protocolString(Plexa::Ip6Prefix prefix) const;
  void printRoutes(std::uint32_t fd, std::uint32_t format);

  static Mox::String8 legend();
  static Mox::String8 hostLegend();

  SelectionStats& stats() { return stats_; }
  const SelectionStats& stats() const { return stats_; }
  std::uint32_t fecWeightLimit() const;

 private:
  SelectionStats stats_;
};

// ---- operations shared by the twins (defined for both in RouteSorter.cpp) ----

// True when the kernel-unprogrammed route table holds any entry.
template <class Sorter>
bool kernelUnprogrammedRoutes(const Sorter& sorter);
// IPv6: the selected routes that the interface and protocol filters hide from the count;
// IPv4: always 0 (only the IPv6 listing takes an interface filter).
template <class Sorter>
std::uint32_t getFilteredRoutesCount(const Sorter& sorter);
// The routes that selection examined and the filter rejected.
std::uint64_t getInternalFilteredRoutesCount(const Route6Sorter& sorter);

// Current time in seconds on the clock the front end uses for `quantify`.
double sorterClockSeconds();

}  // namespace Rova
