#include "lib/route_listing/RouteSorter.h"

#include <chrono>

#include "lib/common/RouteTypes.h"
#include "lib/route_listing/internal/SorterAlgorithms.h"

namespace Rova {

double sorterClockSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// ---- construction ----

RouteSorter::RouteSorter(Inputs in) {
  takeInputs(std::move(in));
  handleInitialized();
}

Route6Sorter::Route6Sorter(Inputs in) {
  takeInputs(std::move(in));
  handleInitialized();
}

Mox::String8 RouteSorter::legend() {
  return kRouteLegend4;
}
Mox::String8 RouteSorter::hostLegend() {
  return kHostLegend4;
}
Mox::String8 Route6Sorter::legend() {
  return kRouteLegend6;
}
Mox::String8 Route6Sorter::hostLegend() {
  return kHostLegend6;
}

// ---- the operations, once for both ----

template <class Self, class Fam>
void SorterOperations<Self, Fam>::handleInitialized() {
  sorter::handleInitialized(self());
}

template <class Self, class Fam>
typename Fam::Prefix SorterOperations<Self, Fam>::longestPrefixMatch() const {
  const Self& s = self();
  MOX_ASSERT(!s.prefix().isNullPrefix() && !s.longerPrefixes() && s.sortedRoutes() <= 1);
  return sorter::firstPrefix(s);
}

template <class Self, class Fam>
typename Fam::Route SorterOperations<Self, Fam>::createAttachedRoute(Plexa::IpGenAddr address,
                                                                     Plexa::IntfId intfId) {
  return sorter::createAttachedRoute(self(), address, intfId);
}

template <class Self, class Fam>
Mox::Ptr<CachedFec> SorterOperations<Self, Fam>::viasForPrefix(Prefix p) const {
  return sorter::viasForPrefix(self(), p);
}

template <class Self, class Fam>
void SorterOperations<Self, Fam>::buildNexthopGroupIdToName() {
  sorter::buildNexthopGroupIdToName(self());
}

template <class Self, class Fam>
Mox::String8 SorterOperations<Self, Fam>::protocolString(Prefix p) const {
  const auto* route = self().sortedRoute().find(p);
  return route ? Mox::String8(pcode(route->routeType)) : Mox::String8();
}

template <class Self, class Fam>
std::uint32_t SorterOperations<Self, Fam>::fecWeightLimit() const {
  const auto& hw = self().routingHardwareStatus();
  return hw ? hw->fecWeightLimit() : 0xffffffffu;
}

template class SorterOperations<RouteSorter, Routing::V4>;
template class SorterOperations<Route6Sorter, Routing::V6>;

// ---- counts ----

template <class Sorter>
bool kernelUnprogrammedRoutes(const Sorter& s) {
  return s.kernelUnprogrammedRoute() && !s.kernelUnprogrammedRoute()->empty();
}
template bool kernelUnprogrammedRoutes(const RouteSorter&);
template bool kernelUnprogrammedRoutes(const Route6Sorter&);

namespace {

// What the IPv6 count asks of a route's FEC: whether it lets the route print, and whether it
// goes through the interface the command names.
struct FecVerdict {
  bool printable = true;
  bool throughInterface = true;
};

// Whether the IPv6 listing's count leaves the route out: hidden by the protocol or
// printability rules, or not through the interface the command names.
bool isRouteFiltered(const Route6Sorter& s, const Brine::Fib6::Route& route, FecVerdict fec) {
  if (isReceive(route.routeType)) {
    if (!protocolMatch(route, s.protocol())) return true;
  } else if (!sorter::isPrintable(route, fec.printable) || !protocolMatch(route, s.protocol())) {
    return true;
  }
  return !fec.throughInterface;
}

}  // namespace

template <>
std::uint32_t getFilteredRoutesCount(const RouteSorter&) {
  return 0;
}

template <>
std::uint32_t getFilteredRoutesCount(const Route6Sorter& s) {
  // The FEC decides most of a route's verdict, and a few thousand FECs serve every route: each
  // FEC is judged once, from a small table, rather than read again for every route.
  Mox::FlatHashMap<Brine::Fib::FecId, FecVerdict> verdicts;
  std::uint32_t n = 0;
  for (const auto& [prefix, route] : s.sortedRoute()) {
    const FecVerdict* fec = verdicts.find(route.fecId);
    if (!fec) {
      const Mox::Ptr<CachedFec>* cached = s.fec().find(route.fecId);
      verdicts.set(route.fecId,
                   {sorter::fecPrintable(s, cached), sorter::passesInterfaceFilter(s, cached)});
      fec = verdicts.find(route.fecId);
    }
    n += isRouteFiltered(s, route, *fec);
  }
  return n;
}

std::uint64_t getInternalFilteredRoutesCount(const Route6Sorter& s) {
  return s.stats().internalFiltered;
}

}  // namespace Rova
