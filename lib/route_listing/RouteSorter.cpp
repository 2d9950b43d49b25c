#include "lib/route_listing/RouteSorter.h"

#include <chrono>

#include "lib/common/RouteTypes.h"
#include "lib/route_listing/SorterAlgorithms.h"

namespace Rova {

double sorterClockSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// ---- RouteSorter ----

RouteSorter::RouteSorter(
    ConfigGenPtr routingConfig, Mox::Ptr<Brine::Fib::RouteStatus const> routingStatus,
    Mox::Ptr<Brine::Fib::ForwardingStatus const> forwardingStatus,
    Mox::Ptr<Brine::Fib6::ForwardingStatus const> forwarding6Status, TunnelFibPtr tunnelFib,
    ArpPtr arpBrine, VrfIdMapPtr vrfIdMap, AllIntfConfigPtr allIntfConfig,
    Mox::Ptr<Ip::Status const> ipStatus, HwVrfStatusPtr routingHwStatus,
    Mox::Ptr<Routing::Hardware::Status const> routingHardwareStatus, NhEntryStatusPtr nhEntryStatus,
    KernelUnprogrammedPtr kernelUnprogrammedRoute, EvpnTablePtr evpnVxlanTunnelTable,
    DirPtr tunnelTableDir, Plexa::Prefix prefix, IntfStatusPtr intfStatus, Mox::String8 protocol,
    bool detail, bool longerPrefixes, L3::VrfName vrfName, bool host, std::int32_t fd,
    double quantify, bool originalMask, SrTePolicyPtr srTePolicyStatus)
    : routingConfig_(std::move(routingConfig)),
      routingStatus_(std::move(routingStatus)),
      forwardingStatus_(std::move(forwardingStatus)),
      forwarding6Status_(std::move(forwarding6Status)),
      tunnelFib_(std::move(tunnelFib)),
      arpBrine_(std::move(arpBrine)),
      vrfIdMap_(std::move(vrfIdMap)),
      allIntfConfig_(std::move(allIntfConfig)),
      ipStatus_(std::move(ipStatus)),
      routingHwStatus_(std::move(routingHwStatus)),
      routingHardwareStatus_(std::move(routingHardwareStatus)),
      nhEntryStatus_(std::move(nhEntryStatus)),
      kernelUnprogrammedRoute_(std::move(kernelUnprogrammedRoute)),
      evpnVxlanTunnelTable_(std::move(evpnVxlanTunnelTable)),
      tunnelTableDir_(std::move(tunnelTableDir)),
      prefix_(prefix),
      intfStatus_(std::move(intfStatus)),
      protocol_(std::move(protocol)),
      detail_(detail),
      longerPrefixes_(longerPrefixes),
      vrfName_(std::move(vrfName)),
      host_(host),
      fd_(fd),
      quantify_(quantify),
      originalMask_(originalMask),
      srTePolicyStatus_(std::move(srTePolicyStatus)) {
  handleInitialized();
}

void RouteSorter::handleInitialized() {
  sorter::handleInitialized(*this);
}

Plexa::Prefix RouteSorter::longestPrefixMatch() const {
  MOX_ASSERT(!prefix().isNullPrefix() && !longerPrefixes() && sortedRoutes() <= 1);
  return sorter::firstPrefix(*this);
}

Brine::Fib::Route RouteSorter::createAttachedRoute(Plexa::IpGenAddr address, Plexa::IntfId intfId) {
  return sorter::createAttachedRoute(*this, address, intfId);
}

Mox::Ptr<CachedFec> RouteSorter::viasForPrefix(Plexa::Prefix p) const {
  return sorter::viasForPrefix(*this, p);
}

void RouteSorter::buildNexthopGroupIdToName() {
  sorter::buildNexthopGroupIdToName(*this);
}

Mox::String8 RouteSorter::protocolString(Plexa::Prefix p) const {
  const auto* route = sortedRoute().find(p);
  return route ? Mox::String8(pcode(route->routeType)) : Mox::String8();
}

Mox::String8 RouteSorter::legend() {
  return kRouteLegend4;
}
Mox::String8 RouteSorter::hostLegend() {
  return kHostLegend4;
}

std::uint32_t RouteSorter::fecWeightLimit() const {
  return routingHardwareStatus() ? routingHardwareStatus()->fecWeightLimit() : 0xffffffffu;
}

// ---- Route6Sorter ----

Route6Sorter::Route6Sorter(
    ConfigGenPtr routingConfig, Mox::Ptr<Brine::Fib6::RouteStatus const> routingStatus,
    Mox::Ptr<Brine::Fib6::ForwardingStatus const> forwardingStatus, TunnelFibPtr tunnelFib,
    ArpPtr arpBrine, VrfIdMapPtr vrfIdMap, AllIntfConfigPtr allIntfConfig,
    Mox::Ptr<Ip6::Status const> ipStatus, HwVrfStatusPtr routingHwStatus,
    Mox::Ptr<Routing6::Hardware::Status const> routingHardwareStatus,
    NhEntryStatusPtr nhEntryStatus, KernelUnprogrammedPtr kernelUnprogrammedRoute,
    EvpnTablePtr evpnVxlanTunnelTable, DirPtr tunnelTableDir, Plexa::Ip6Prefix prefix,
    IntfStatusPtr intfStatus, Mox::String8 protocol, bool detail, bool longerPrefixes,
    L3::VrfName vrfName, bool host, std::int32_t fd, double quantify, bool originalMask, bool intf,
    SrTePolicyPtr srTePolicyStatus)
    : routingConfig_(std::move(routingConfig)),
      routingStatus_(std::move(routingStatus)),
      forwardingStatus_(std::move(forwardingStatus)),
      tunnelFib_(std::move(tunnelFib)),
      arpBrine_(std::move(arpBrine)),
      vrfIdMap_(std::move(vrfIdMap)),
      allIntfConfig_(std::move(allIntfConfig)),
      ipStatus_(std::move(ipStatus)),
      routingHwStatus_(std::move(routingHwStatus)),
      routingHardwareStatus_(std::move(routingHardwareStatus)),
      nhEntryStatus_(std::move(nhEntryStatus)),
      kernelUnprogrammedRoute_(std::move(kernelUnprogrammedRoute)),
      evpnVxlanTunnelTable_(std::move(evpnVxlanTunnelTable)),
      tunnelTableDir_(std::move(tunnelTableDir)),
      prefix_(prefix),
      intfStatus_(std::move(intfStatus)),
      protocol_(std::move(protocol)),
      detail_(detail),
      longerPrefixes_(longerPrefixes),
      vrfName_(std::move(vrfName)),
      host_(host),
      fd_(fd),
      quantify_(quantify),
      originalMask_(originalMask),
      intf_(intf),
      srTePolicyStatus_(std::move(srTePolicyStatus)) {
  handleInitialized();
}

void Route6Sorter::handleInitialized() {
  sorter::handleInitialized(*this);
}

Plexa::Ip6Prefix Route6Sorter::longestPrefixMatch() const {
  MOX_ASSERT(!prefix().isNullPrefix() && !longerPrefixes() && sortedRoutes() <= 1);
  return sorter::firstPrefix(*this);
}

Brine::Fib6::Route Route6Sorter::createAttachedRoute(Plexa::IpGenAddr address,
                                                     Plexa::IntfId intfId) {
  return sorter::createAttachedRoute(*this, address, intfId);
}

Mox::Ptr<CachedFec> Route6Sorter::viasForPrefix(Plexa::Ip6Prefix p) const {
  return sorter::viasForPrefix(*this, p);
}

void Route6Sorter::buildNexthopGroupIdToName() {
  sorter::buildNexthopGroupIdToName(*this);
}

Mox::String8 Route6Sorter::protocolString(Plexa::Ip6Prefix p) const {
  const auto* route = sortedRoute().find(p);
  return route ? Mox::String8(pcode(route->routeType)) : Mox::String8();
}

Mox::String8 Route6Sorter::legend() {
  return kRouteLegend6;
}
Mox::String8 Route6Sorter::hostLegend() {
  return kHostLegend6;
}

std::uint32_t Route6Sorter::fecWeightLimit() const {
  return routingHardwareStatus() ? routingHardwareStatus()->fecWeightLimit() : 0xffffffffu;
}

// ---- counts ----

template <class Sorter>
bool kernelUnprogrammedRoutes(const Sorter& s) {
  return s.kernelUnprogrammedRoute() && !s.kernelUnprogrammedRoute()->empty();
}
template bool kernelUnprogrammedRoutes(const RouteSorter&);
template bool kernelUnprogrammedRoutes(const Route6Sorter&);

namespace {

// Whether the IPv6 listing's count leaves the route out: hidden by the protocol or
// printability rules, or not through the interface the command names.
bool isRouteFiltered(const Route6Sorter& s, const Brine::Fib6::Route& route) {
  if (isReceive(route.routeType)) {
    if (!protocolMatch(route, s.protocol())) return true;
  } else if (!sorter::isPrintable(s, route) || !protocolMatch(route, s.protocol())) {
    return true;
  }
  return !sorter::passesInterfaceFilter(s, s.fec().find(route.fecId));
}

}  // namespace

template <>
std::uint32_t getFilteredRoutesCount(const RouteSorter&) {
  return 0;
}

template <>
std::uint32_t getFilteredRoutesCount(const Route6Sorter& s) {
  std::uint32_t n = 0;
  for (const auto& [prefix, route] : s.sortedRoute())
    n += isRouteFiltered(s, route);
  return n;
}

std::uint64_t getInternalFilteredRoutesCount(const Route6Sorter& s) {
  return s.stats().internalFiltered;
}

}  // namespace Rova
