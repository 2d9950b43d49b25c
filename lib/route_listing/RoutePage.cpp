// The listing page: the banners, the gateway of last resort, then every selected route in
// order, flushed as the page fills; and the entry point that picks the page.

#include "lib/common/RouteTypes.h"
#include "lib/route_listing/ListingParts.h"
#include "lib/route_listing/SorterAlgorithms.h"

namespace Rova {

namespace listing {

template <class Sorter>
bool isDropRoute(typename Sorter::Family::RouteType t) {
  return t == Sorter::Family::RouteType::dropRoute;
}

template <class Sorter>
void printRoute(Sorter& s, const typename Sorter::Family::Route& route, rendr::Printer& p,
                RouteAttrs& a) {
  const Mox::Ptr<CachedFec>* cached = s.fec().find(route.fecId);
  if (!sorter::isPrintable(s, route, cached) || !protocolMatch(route, s.protocol())) return;
  if constexpr (std::is_same_v<Sorter, Route6Sorter>) {
    // The interface filter reads the routes the count leaves out, and the listing shows what
    // it counts.
    if (s.intf() && !sorter::passesInterfaceFilter(s, cached)) return;
  }
  if (!cached) {
    p.addFrills(" <FecId %s not found>", route.fecId.stringValue().c_str());
    return;
  }
  const Mox::Ptr<CachedFec>& fec = *cached;
  RouteLine line;
  line.prefix = Plexa::IpGenPrefix(route.prefix);
  line.hardwareProgrammed = route.hardwareProgrammed;
  line.kernelProgrammed = kernelProgrammed(s, route.prefix);
  line.preference = route.preference;
  line.metric = route.metric;
  line.drop = isDropRoute<Sorter>(route.routeType);

  Mox::String8 groupName;
  SrTePolicy::PolicyKey policy;
  if (Brine::Fib::isNexthopGroupFec(route.fecId)) {
    if (!s.stats().groupNamesBuilt) {
      s.buildNexthopGroupIdToName();
      s.stats().groupNamesBuilt = true;
    }
    const std::uint64_t id = Brine::Fib::nexthopGroupIdFromFec(route.fecId);
    groupName = s.cachedNexthopGroupIdToName(id);
    if (groupName.empty()) groupName = "NexthopGroupUnknown";
    line.groupName = groupName.charPtr();
    line.groupId = id;
  } else if (Brine::Fib::isSrTePolicyFec(route.fecId)) {
    if (s.srTePolicyStatus()) policy = s.srTePolicyStatus()->fecIdToPolicyKey(route.fecId);
    line.policy = &policy;
  }

  prepareFec(s, fec);
  // A route is connected on an interface that holds its prefix. A receive route is the
  // router's own address, so the interface that holds the address is its interface whatever
  // its FEC points at (the CPU, or a next hop); any other route is connected only through a
  // first via without a next hop.
  Mox::String8 connectedIntf;
  if (!line.drop && fec->viaEvpnEntrys() == 0) {
    const typename Sorter::Family::AddrWithMask own(route.prefix.address(), route.prefix.len());
    const Plexa::IntfId* holder = isReceive(route.routeType) ? s.addrToIntfId().find(own) : nullptr;
    if (holder) {
      connectedIntf = holder->stringValue();
    } else if (fec->numEntries() > 0 && fec->lspVias() == 0 && !fec->nexthopAddr().contains(0)) {
      if (const auto* intf = fec->interface().find(0)) connectedIntf = *intf;
    }
    line.connected = isDirectlyConnected(s, route.prefix, connectedIntf);
    line.connectedIntf = connectedIntf.charPtr();
  }
  // An IPv4 route whose vias are IPv6 next hops takes the IPv6 via layout.
  bool v6Vias = isV6<Sorter>();
  if constexpr (std::is_same_v<Sorter, RouteSorter>) {
    v6Vias = Brine::Fib::isV6FecId(route.fecId);
  }
  if (v6Vias) {
    printFormatRoute6(route.routeType, line, *fec, p, a);
  } else {
    printFormatRoute4(route.routeType, line, *fec, p, a);
  }
}

template <class Sorter>
void printDefaultRoute(Sorter& s, rendr::Printer& p, RouteAttrs& a) {
  using Prefix = typename Sorter::Family::Prefix;
  const Prefix defaultPrefix(typename Sorter::Family::Addr(), 0);
  const auto* route = s.sortedRoute().find(defaultPrefix);
  rendr::StringAttrInfo state("defaultRouteState", p.format());
  const bool reachable = route && sorter::isPrintable(s, *route);
  state.setValue(!route ? "notSet" : reachable ? "reachable" : "notReachable");
  p.addAttributes("", 1, state.getArg());
  if (!route) {
    p.addFrills("Gateway of last resort is not set\n\n");
    return;
  }
  if (!reachable) {
    p.addFrills("Gateway of last resort is not reachable\n\n");
  } else if (p.format() == rendr::kFormatText) {
    p.addFrills("Gateway of last resort:\n");
    p.startDict("gatewayOfLastResort");  // text only: JSON lists the route with the others
    if (protocolMatch(*route, s.protocol())) printRoute(s, *route, p, a);
    p.endDict();
    p.addFrills("\n");
  }
  // Printed above in text, so the main loop leaves it out; JSON keeps it under "routes".
  if (p.format() == rendr::kFormatText) s.sortedRouteDel(defaultPrefix);
}

void routingEntryLine(const RouteSorter&, rendr::Printer&) {}

void routingEntryLine(Route6Sorter& s, rendr::Printer& p) {
  if (s.prefix().isNullPrefix()) {
    s.printCountIs(s.printCount() - getFilteredRoutesCount(s));
    p.addFrills("Displaying %u of %u IPv6 routing table entries\n", s.printCount(),
                s.routingStatus() ? unsigned(s.routingStatus()->size()) : 0u);
  } else if (s.originalMask()) {
    p.addFrills("Routing entry for %s\n", s.prefix().stringValue().c_str());
  } else {
    p.addFrills("Routing entry for %s\n", s.prefix().address().stringValue().c_str());
  }
}

}  // namespace listing

using namespace listing;

template <class Sorter>
void formatOutput(Sorter& s, std::uint32_t, std::uint32_t format, rendr::Printer& p) {
  const double start = steadySeconds();
  rendr::BoolAttrInfo routingDisabled("routingDisabled", format);
  rendr::BoolAttrInfo allHardware("allRoutesProgrammedHardware", format);
  rendr::BoolAttrInfo allKernel("allRoutesProgrammedKernel", format);

  routingEntryLine(s, p);
  const bool hardwareBanner = unprogrammedInHardware(s) != 0;
  if (hardwareBanner) {
    p.addFrills("%s", kSeparator);
    p.addFrills("%s", kHardwareWarning);
  }
  allHardware.setValue(!hardwareBanner);
  const bool kernelBanner = kernelUnprogrammedRoutes(s);
  if (kernelBanner) p.addFrills("%s", kKernelWarning);
  allKernel.setValue(!kernelBanner);
  if (hardwareBanner) p.addFrills("%s", kSeparator);
  routingDisabled.setValue(!s.routingConfig() || !s.routingConfig()->routingEnabled());
  p.addAttributes("", 3, routingDisabled.getArg(), allHardware.getArg(), allKernel.getArg());
  p.addFrills("%s\n", Sorter::legend().charPtr());

  RouteAttrs attrs(format);
  printDefaultRoute(s, p, attrs);
  p.ioflush();

  p.startDict("routes");
  // Print what the table holds now: a route gone since selection prints from an empty record.
  // While nothing was written to the table since selection, the copy selection took is what
  // the table holds, and reading it again would only cost a random access per route.
  const auto& table = s.routingStatus();
  const bool unchanged = !table || table->generation() == s.stats().routeTableGeneration;
  for (const auto& [prefix, selected] : s.sortedRoute()) {
    if (unchanged) {
      printRoute(s, selected, p, attrs);
    } else {
      printRoute(s, sorter::readRecord(*table, prefix), p, attrs);
    }
    if (p.fullness() > 66) p.ioflush();
  }
  p.endDict();
  p.addFrills("\n");
  addTimingLines(s, start, p);
}
template void formatOutput(RouteSorter&, std::uint32_t, std::uint32_t, rendr::Printer&);
template void formatOutput(Route6Sorter&, std::uint32_t, std::uint32_t, rendr::Printer&);

namespace listing {

template <class Sorter>
void printRoutesOf(Sorter& s, std::uint32_t fd, std::uint32_t format) {
  rendr::Printer p(static_cast<int>(fd), format, true, false, true, 0);
  if (s.host()) {
    try {
      formatHostRouteOutput(s, fd, format, p);
      return;
    } catch (const rendr::sigintException& e) {
      // Cut short, the host listing gives way to the ordinary one.
      printExiting(p, e);
      p.unwind();
    }
  }
  try {
    formatOutput(s, fd, format, p);
  } catch (const rendr::sigintException& e) {
    printExiting(p, e);
  }
}

}  // namespace listing

template <class Self, class Fam>
void SorterOperations<Self, Fam>::printRoutes(std::uint32_t fd, std::uint32_t format) {
  printRoutesOf(self(), fd, format);
}
template void SorterOperations<RouteSorter, Routing::V4>::printRoutes(std::uint32_t, std::uint32_t);
template void SorterOperations<Route6Sorter, Routing::V6>::printRoutes(std::uint32_t,
                                                                       std::uint32_t);

}  // namespace Rova
