#include "lib/route_summary/RouteSummary.h"

#include <array>

#include "lib/common/Neighbors.h"
#include "lib/common/RouteTypes.h"
#include "platform/mox/ActivityLock.h"
#include "platform/mox/Trace.h"

namespace Rova {

namespace {

Mox::TraceHandle& trace() {
  static Mox::TraceHandle h("CliSupport");
  return h;
}

// Long walks give the activity lock up this often, so the agents that write the tables are not
// held off by a summary of a full table.
constexpr std::uint32_t kYieldEvery = 10000;

// The protocol total a route type adds to besides its own key, or null. IPv4 splits OSPF, BGP
// and IS-IS into sub-types and keeps a total for each; the IPv6 table's OSPFv3 and BGP keys are
// already totals, so there only IS-IS has one.
const char* protocolTotalKey(Routing::Fib::RouteType t) {
  using T = Routing::Fib::RouteType;
  switch (t) {
    case T::ospfIntraArea:
    case T::ospfInterArea:
    case T::ospfExternalType1:
    case T::ospfExternalType2:
    case T::ospfNssaExternalType1:
    case T::ospfNssaExternalType2:
      return "ospfTotal";
    case T::iBgp:
    case T::eBgp:
      return "bgpTotal";
    case T::isisLevel1:
    case T::isisLevel2:
      return "isisTotal";
    default:
      return nullptr;
  }
}

const char* protocolTotalKey(Routing6::Fib::RouteType t) {
  using T = Routing6::Fib::RouteType;
  switch (t) {
    case T::isisLevel1:
    case T::isisLevel2:
      return "isisTotal";
    default:
      return nullptr;
  }
}

// A static route is persistent unless the configured route it was installed from (the same
// prefix and preference) is marked otherwise; one that no configured route matches counts as
// persistent.
template <class Route>
bool isPersistent(const Routing::ConfigGen& config, const Route& route) {
  const auto* configured = config.route().find(Routing::RouteKey(route.prefix, route.preference));
  return !configured || !*configured || (*configured)->persistent();
}

// What one walk of a route table found, by type number and prefix length. The walk touches no
// string: the count keys are looked up once per type afterwards.
template <class Fam>
struct RouteTally {
  // Types above the last one the table knows (`unknown`) are not counted.
  static constexpr std::size_t kTypes = std::size_t(Fam::RouteType::unknown) + 1;

  std::array<std::uint32_t, kTypes> byType{};
  std::array<std::uint32_t, Fam::kHostLen + 1> byLength{};
  std::uint32_t staticPersistent = 0;
  std::uint32_t staticNonPersistent = 0;
};

// Walks the table once. A record found corrupt ends the walk: what was counted before it stands,
// and the table hears of the corruption.
template <class Fam>
RouteTally<Fam> tallyRoutes(const typename Fam::RouteStatus& table,
                            const Routing::ConfigGen* config) {
  RouteTally<Fam> tally;
  std::uint32_t walked = 0;
  for (auto it = table.begin(); it != table.end(); ++it) {
    typename Fam::Route route;
    try {
      route = *it;
    } catch (const Velt::CorruptionDetectedException& e) {
      table.corruptionDetected(e.what());
      break;
    }
    if (++walked % kYieldEvery == 0) Mox::ActivityLock::instance().yield();
    const auto type = static_cast<std::size_t>(route.routeType);
    const auto length = static_cast<std::size_t>(route.prefix.len());
    // A length beyond the family's is a record no writer makes: not counted, rather than
    // counted out of bounds.
    if (type >= RouteTally<Fam>::kTypes || length >= tally.byLength.size()) continue;
    if (route.routeType == Fam::RouteType::staticConfig) {
      // Without the configuration a static route cannot be split by persistence, and a count
      // that does not add up would be worse than none.
      if (!config) continue;
      ++(isPersistent(*config, route) ? tally.staticPersistent : tally.staticNonPersistent);
    }
    ++tally.byType[type];
    ++tally.byLength[length];
  }
  return tally;
}

}  // namespace

template <class Self, class Fam>
void SummaryOperations<Self, Fam>::loadInternalStructures() {
  using RouteType = typename Fam::RouteType;
  constexpr std::size_t kTypes = RouteTally<Fam>::kTypes;
  Self& s = self();
  MOX_TRACE(trace(), 8, "Counting ", Fam::kName, " routes of VRF ", s.vrfName().stringValue());
  if (!s.routingStatus()) return;
  const auto tally = tallyRoutes<Fam>(*s.routingStatus(), s.routingConfig().get());

  // Every counted type's key before any count changes: a type the table does not know stops
  // the command with the counts as they were.
  std::array<const char*, kTypes> keys{};
  for (std::size_t t = 0; t < kTypes; ++t) {
    if (tally.byType[t] != 0) keys[t] = routeTypeStringsLookup(RouteType(t)).summaryKey;
  }

  std::uint32_t total = 0;
  for (std::size_t t = 0; t < kTypes; ++t) {
    const std::uint32_t n = tally.byType[t];
    if (n == 0) continue;
    s.routeCountByTypeInc(keys[t], n);
    if (const char* totalKey = protocolTotalKey(RouteType(t))) s.routeCountByTypeInc(totalKey, n);
    total += n;
  }
  if (tally.staticPersistent != 0) {
    s.routeCountByTypeInc("staticPersistent", tally.staticPersistent);
  }
  if (tally.staticNonPersistent != 0) {
    s.routeCountByTypeInc("staticNonPersistent", tally.staticNonPersistent);
  }
  for (std::size_t len = 0; len < tally.byLength.size(); ++len) {
    if (tally.byLength[len] != 0) s.routeCountByMaskInc(std::uint32_t(len), tally.byLength[len]);
  }
  s.totalNumRoutesIs(s.totalNumRoutes() + total);
}

template <class Self, class Fam>
void SummaryOperations<Self, Fam>::loadAttachedRoutes() {
  Self& s = self();
  MOX_TRACE(trace(), 8, "Counting ", Fam::kName, " neighbours of VRF ", s.vrfName().stringValue());
  if (!s.arpBrine()) return;
  std::uint32_t attached = 0;
  forEachNeighborInVrf<Fam>(*s.arpBrine(), s.vrfIdMap().get(), s.vrfName(),
                            [&](const Arp::Table::ArpKey&) { ++attached; });
  if (attached == 0) return;
  s.routeCountByTypeInc("attached", attached);
  s.routeCountByMaskInc(std::uint32_t(Fam::kHostLen), attached);
  s.totalNumRoutesIs(s.totalNumRoutes() + attached);
}

template class SummaryOperations<RouteSummary, Routing::V4>;
template class SummaryOperations<Route6Summary, Routing::V6>;

}  // namespace Rova
