// The route summary's counts: which key each route type lands under, static routes and their
// persistence, resolved neighbours as attached routes, and what stops or ends a walk.

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "lib/route_summary/RouteSummary.h"
#include "platform/mox/Exception.h"

namespace {

using Rova::Route6Summary;
using Rova::RouteSummary;
using RT4 = Routing::Fib::RouteType;
using RT6 = Routing6::Fib::RouteType;
using Counts = std::map<std::string, std::uint32_t>;
using Masks = std::map<std::uint32_t, std::uint32_t>;

// One VRF's route tables, its static route configuration and the device's neighbours.
struct State {
  State() {
    vrfEntry(0, "default");
    vrfEntry(1, "red");
  }

  void route4(const char* prefix, RT4 type, std::uint8_t preference = 0) {
    Brine::Fib::Route r;
    r.prefix = Plexa::Prefix::fromString(prefix);
    r.routeType = type;
    r.preference = preference;
    routes4->recordIs(r);
  }
  void route6(const char* prefix, RT6 type, std::uint8_t preference = 0) {
    Brine::Fib6::Route r;
    r.prefix = Plexa::Ip6Prefix::fromString(prefix);
    r.routeType = type;
    r.preference = preference;
    routes6->recordIs(r);
  }
  void configured(const char* prefix, std::uint8_t preference, bool persistent) {
    const Routing::RouteKey key(Plexa::IpGenPrefix::fromString(prefix), preference);
    auto route = Mox::makePtr<Routing::Route>(key);
    route->persistentIs(persistent);
    config->routeIs(key, route);
  }
  void vrfEntry(std::uint32_t id, const char* name) {
    Vrf::VrfIdMap::Entry e;
    e.vrfId = id;
    e.vrfNameIs(L3::VrfName(name));
    vrfIds->recordIs(e);
  }
  void neighbor(std::uint32_t vrfId, const char* addr, const char* intf) {
    Arp::Table::ArpEntry e;
    e.arpKey = {vrfId, Plexa::IpGenAddr::fromString(addr), Plexa::IntfId(intf)};
    arp->recordIs(e);
  }

  Mox::Ptr<RouteSummary> summary4(const char* vrf = "default") const {
    return Mox::makePtr<RouteSummary>(RouteSummary::Inputs{.routingConfig = config,
                                                           .routingStatus = routes4,
                                                           .arpBrine = arp,
                                                           .vrfIdMap = vrfIds,
                                                           .vrfName = L3::VrfName(vrf)});
  }
  Mox::Ptr<Route6Summary> summary6(const char* vrf = "default") const {
    return Mox::makePtr<Route6Summary>(Route6Summary::Inputs{.routingConfig = config,
                                                             .routingStatus = routes6,
                                                             .arpBrine = arp,
                                                             .vrfIdMap = vrfIds,
                                                             .vrfName = L3::VrfName(vrf)});
  }

  Mox::Ptr<Routing::ConfigGen> config = Mox::makePtr<Routing::ConfigGen>();
  Mox::Ptr<Brine::Fib::RouteStatus> routes4 = Mox::makePtr<Brine::Fib::RouteStatus>();
  Mox::Ptr<Brine::Fib6::RouteStatus> routes6 = Mox::makePtr<Brine::Fib6::RouteStatus>();
  Mox::Ptr<Arp::Table::Status> arp = Mox::makePtr<Arp::Table::Status>();
  Mox::Ptr<Vrf::VrfIdMap::Status> vrfIds = Mox::makePtr<Vrf::VrfIdMap::Status>();
};

template <class Summary>
Counts byType(const Summary& s) {
  Counts c;
  for (const auto& [key, n] : s.routeCountByType())
    c[key.stringValue()] = n;
  return c;
}

template <class Summary>
Masks byMask(const Summary& s) {
  return Masks(s.routeCountByMask().begin(), s.routeCountByMask().end());
}

template <class Summary>
void loadBoth(Summary& s) {
  s.loadInternalStructures();
  s.loadAttachedRoutes();
}

// ---- where each route type is counted ----

// Two routes of the type: each key it is counted under must read 2, and no other key may exist.
TEST(RouteSummaryKeys, EachIpv4TypeCountsUnderItsKeyAndItsProtocolTotal) {
  const std::vector<std::pair<RT4, Counts>> cases = {
      {RT4::invalid, {{"", 2}}},
      {RT4::receive, {{"internal", 2}}},
      {RT4::receiveLoopback, {{"internal", 2}}},
      {RT4::broadcast, {{"internal", 2}}},
      {RT4::directedBcast, {{"internal", 2}}},
      {RT4::attached, {{"attached", 2}}},
      {RT4::vcs, {{"vcs", 2}}},
      {RT4::kernel, {{"internal", 2}}},
      {RT4::rip, {{"rip", 2}}},
      {RT4::connected, {{"connected", 2}}},
      {RT4::reserved, {{"", 2}}},
      {RT4::bgpAggregate, {{"aggregate", 2}}},
      {RT4::ospfSummary, {{"aggregate", 2}}},
      {RT4::ospfIntraArea, {{"ospfIntraArea", 2}, {"ospfTotal", 2}}},
      {RT4::ospfInterArea, {{"ospfInterArea", 2}, {"ospfTotal", 2}}},
      {RT4::ospfExternalType1, {{"ospfExternal1", 2}, {"ospfTotal", 2}}},
      {RT4::ospfExternalType2, {{"ospfExternal2", 2}, {"ospfTotal", 2}}},
      {RT4::ospfNssaExternalType1, {{"nssaExternal1", 2}, {"ospfTotal", 2}}},
      {RT4::ospfNssaExternalType2, {{"nssaExternal2", 2}, {"ospfTotal", 2}}},
      {RT4::iBgp, {{"bgpInternal", 2}, {"bgpTotal", 2}}},
      {RT4::eBgp, {{"bgpExternal", 2}, {"bgpTotal", 2}}},
      {RT4::isisLevel1, {{"isisLevel1", 2}, {"isisTotal", 2}}},
      {RT4::isisLevel2, {{"isisLevel2", 2}, {"isisTotal", 2}}},
      {RT4::nexthopGroupStaticRoute, {{"staticNexthopGroup", 2}}},
      {RT4::dropRoute, {{"internal", 2}}},
      {RT4::ospfv3, {{"ospfv3Total", 2}}},
      {RT4::dhcp, {{"DhcpDefaultRoute", 2}}},
      {RT4::martian, {{"internal", 2}}},
      {RT4::unknown, {{"", 2}}},
  };
  for (const auto& [type, want] : cases) {
    SCOPED_TRACE(std::string(Routing::Fib::routeTypeName(type)));
    State st;
    st.route4("10.0.0.0/8", type);
    st.route4("10.1.2.0/24", type);
    auto s = st.summary4();
    s->loadInternalStructures();
    EXPECT_EQ(byType(*s), want);
    EXPECT_EQ(byMask(*s), (Masks{{8, 1}, {24, 1}}));
    EXPECT_EQ(s->totalNumRoutes(), 2u);
  }
}

// IPv6 has no OSPF or BGP sub-types (its keys are already totals), RIP has no key, and DHCP
// counts under "dhcp".
TEST(RouteSummaryKeys, EachIpv6TypeCountsUnderItsKey) {
  const std::vector<std::pair<RT6, Counts>> cases = {
      {RT6::invalid, {{"", 2}}},
      {RT6::receive, {{"internal", 2}}},
      {RT6::receiveLoopback, {{"internal", 2}}},
      {RT6::attached, {{"attached", 2}}},
      {RT6::kernel, {{"internal", 2}}},
      {RT6::rip, {{"", 2}}},
      {RT6::connected, {{"connected", 2}}},
      {RT6::reserved, {{"", 2}}},
      {RT6::bgpAggregate, {{"aggregate", 2}}},
      {RT6::ospfSummary, {{"aggregate", 2}}},
      {RT6::ospf3, {{"ospfTotal", 2}}},
      {RT6::bgp, {{"bgpTotal", 2}}},
      {RT6::isisLevel1, {{"isisLevel1", 2}, {"isisTotal", 2}}},
      {RT6::isisLevel2, {{"isisLevel2", 2}, {"isisTotal", 2}}},
      {RT6::nexthopGroupStaticRoute, {{"staticNexthopGroup", 2}}},
      {RT6::dropRoute, {{"internal", 2}}},
      {RT6::dhcp, {{"dhcp", 2}}},
      {RT6::martian, {{"internal", 2}}},
      {RT6::unknown, {{"", 2}}},
  };
  for (const auto& [type, want] : cases) {
    SCOPED_TRACE(std::string(Routing6::Fib::routeTypeName(type)));
    State st;
    st.route6("2001:db8::/32", type);
    st.route6("2001:db8:1::/48", type);
    auto s = st.summary6();
    s->loadInternalStructures();
    EXPECT_EQ(byType(*s), want);
    EXPECT_EQ(byMask(*s), (Masks{{32, 1}, {48, 1}}));
    EXPECT_EQ(s->totalNumRoutes(), 2u);
  }
}

TEST(RouteSummaryKeys, ProtocolTotalsAddUpTheirSubTypesAndEveryRouteIsCountedOnce) {
  State st;
  st.route4("10.1.0.0/24", RT4::ospfIntraArea);
  st.route4("10.2.0.0/24", RT4::ospfInterArea);
  st.route4("10.3.0.0/16", RT4::ospfExternalType2);
  st.route4("10.4.0.0/16", RT4::iBgp);
  st.route4("10.5.0.0/16", RT4::eBgp);
  st.route4("10.6.0.0/16", RT4::eBgp);
  st.route4("10.7.0.1/32", RT4::receive);
  auto s = st.summary4();
  s->loadInternalStructures();
  EXPECT_EQ(byType(*s), (Counts{{"ospfIntraArea", 1},
                                {"ospfInterArea", 1},
                                {"ospfExternal2", 1},
                                {"ospfTotal", 3},
                                {"bgpInternal", 1},
                                {"bgpExternal", 2},
                                {"bgpTotal", 3},
                                {"internal", 1}}));
  EXPECT_EQ(byMask(*s), (Masks{{16, 4}, {24, 2}, {32, 1}}));
  EXPECT_EQ(s->totalNumRoutes(), 7u);

  // Each load adds: a second call counts every route again.
  s->loadInternalStructures();
  EXPECT_EQ(s->routeCountByType("bgpTotal"), 6u);
  EXPECT_EQ(s->totalNumRoutes(), 14u);
}

TEST(RouteSummaryKeys, EmptyTablesLeaveEverythingEmpty) {
  State st;
  auto s4 = st.summary4();
  auto s6 = st.summary6();
  loadBoth(*s4);
  loadBoth(*s6);
  EXPECT_TRUE(byType(*s4).empty());
  EXPECT_TRUE(byMask(*s4).empty());
  EXPECT_EQ(s4->totalNumRoutes(), 0u);
  EXPECT_TRUE(byType(*s6).empty());
  EXPECT_EQ(s6->totalNumRoutes(), 0u);
}

// ---- static routes ----

TEST(RouteSummaryStatic, SplitByTheConfiguredRoutesPersistence) {
  State st;
  st.route4("10.8.0.0/16", RT4::staticConfig, 1);
  st.route4("10.9.0.0/16", RT4::staticConfig, 1);
  st.route4("10.10.0.0/16", RT4::staticConfig, 1);  // not configured: persistent
  st.route4("10.11.0.0/24", RT4::staticConfig, 5);  // configured only at another preference
  st.configured("10.8.0.0/16", 1, true);
  st.configured("10.9.0.0/16", 1, false);
  st.configured("10.11.0.0/24", 1, false);
  auto s = st.summary4();
  s->loadInternalStructures();
  EXPECT_EQ(byType(*s),
            (Counts{{"static", 4}, {"staticPersistent", 3}, {"staticNonPersistent", 1}}));
  EXPECT_EQ(byMask(*s), (Masks{{16, 3}, {24, 1}}));
  EXPECT_EQ(s->totalNumRoutes(), 4u);

  State st6;
  st6.route6("2001:db8:8::/48", RT6::staticConfig, 1);
  st6.configured("2001:db8:8::/48", 1, false);
  auto s6 = st6.summary6();
  s6->loadInternalStructures();
  EXPECT_EQ(byType(*s6), (Counts{{"static", 1}, {"staticNonPersistent", 1}}));
}

TEST(RouteSummaryStatic, WithoutRoutingConfigurationStaticRoutesAreCountedNowhere) {
  State st;
  st.route4("10.8.0.0/16", RT4::staticConfig, 1);
  st.route4("10.20.0.0/24", RT4::connected);
  st.config = nullptr;
  auto s = st.summary4();
  s->loadInternalStructures();
  EXPECT_EQ(byType(*s), (Counts{{"connected", 1}}));
  EXPECT_EQ(byMask(*s), (Masks{{24, 1}}));
  EXPECT_EQ(s->totalNumRoutes(), 1u);
}

// ---- route types outside the tables ----

TEST(RouteSummaryTypes, TypesAboveTheLastKnownAreSkipped) {
  State st;
  st.route4("10.1.0.0/16", RT4(32));
  st.route4("10.2.0.0/16", RT4(200));
  st.route4("10.3.0.0/16", RT4::unknown);
  st.route6("2001:db8::/32", RT6(21));
  st.route6("2001:db8:1::/48", RT6::unknown);
  auto s4 = st.summary4();
  auto s6 = st.summary6();
  s4->loadInternalStructures();
  s6->loadInternalStructures();
  EXPECT_EQ(byType(*s4), (Counts{{"", 1}}));
  EXPECT_EQ(s4->totalNumRoutes(), 1u);
  EXPECT_EQ(byType(*s6), (Counts{{"", 1}}));
  EXPECT_EQ(byMask(*s6), (Masks{{48, 1}}));
}

// A type number the table has no row for is a broken invariant: the command stops, and the
// summary is left as it was rather than counted in part.
TEST(RouteSummaryTypes, ATypeWithoutARowStopsTheCommandAndCountsNothing) {
  for (RT4 bad : {RT4(6), RT4(30)}) {
    State st;
    st.route4("10.1.0.0/16", RT4::connected);
    st.route4("10.2.0.0/16", bad);
    auto s = st.summary4();
    try {
      s->loadInternalStructures();
      ADD_FAILURE() << "type " << std::uint32_t(bad) << " was counted";
    } catch (const Mox::InternalException& e) {
      EXPECT_NE(std::string(e.what()).find("unexpected RouteType"), std::string::npos) << e.what();
    }
    EXPECT_TRUE(byType(*s).empty());
    EXPECT_TRUE(byMask(*s).empty());
    EXPECT_EQ(s->totalNumRoutes(), 0u);
  }
  State st;
  st.route6("2001:db8::/32", RT6(19));
  auto s6 = st.summary6();
  EXPECT_THROW(s6->loadInternalStructures(), Mox::InternalException);
  EXPECT_TRUE(byType(*s6).empty());
}

TEST(RouteSummaryTypes, ARecordFoundCorruptEndsTheWalkAndWhatWasCountedStands) {
  State st;
  st.route4("10.1.0.0/16", RT4::connected);
  st.route4("10.2.0.0/24", RT4::eBgp);
  st.route4("10.3.0.0/24", RT4::eBgp);
  st.routes4->corruptionInjectedIs(Plexa::Prefix::fromString("10.2.0.0/24"), true);
  st.neighbor(0, "10.1.0.5", "Ethernet1");
  st.neighbor(0, "10.1.0.6", "Ethernet1");
  st.arp->corruptionInjectedIs(
      {0, Plexa::IpGenAddr::fromString("10.1.0.5"), Plexa::IntfId("Ethernet1")}, true);
  auto s = st.summary4();
  loadBoth(*s);
  EXPECT_EQ(byType(*s), (Counts{{"connected", 1}}));
  EXPECT_EQ(s->totalNumRoutes(), 1u);
  EXPECT_EQ(st.routes4->corruptionReports(), 1u);
  EXPECT_EQ(st.arp->corruptionReports(), 1u);
}

// ---- neighbours as attached routes ----

struct Neighbours : State {
  Neighbours() {
    neighbor(0, "10.1.1.1", "Ethernet1");
    neighbor(0, "10.1.2.1", "Port-Channel1");
    neighbor(0, "172.16.0.1", "Management1");  // management: never counted
    neighbor(0, "172.16.1.1", "Management1/2");
    neighbor(1, "10.20.4.254", "Ethernet4");    // red
    neighbor(7, "10.70.0.1", "Ethernet7");      // an id the map does not hold
    neighbor(0, "2001:db8:1::2", "Ethernet1");  // IPv6: only for the IPv6 summary
    neighbor(0, "fe80::2", "Ethernet2");
    neighbor(0, "fe80::1", "Management1");
    neighbor(1, "2001:db8:20::fe", "Ethernet4");
  }
};

TEST(RouteSummaryAttached, DefaultVrfCountsItsOwnFamilysNeighboursOffManagement) {
  Neighbours st;
  auto s4 = st.summary4();
  s4->loadAttachedRoutes();
  EXPECT_EQ(byType(*s4), (Counts{{"attached", 2}}));
  EXPECT_EQ(byMask(*s4), (Masks{{32, 2}}));
  EXPECT_EQ(s4->totalNumRoutes(), 2u);

  auto s6 = st.summary6();
  s6->loadAttachedRoutes();
  EXPECT_EQ(byType(*s6), (Counts{{"attached", 2}}));
  EXPECT_EQ(byMask(*s6), (Masks{{128, 2}}));
  EXPECT_EQ(s6->totalNumRoutes(), 2u);
}

TEST(RouteSummaryAttached, OtherVrfsAreFoundByNameThroughTheIdMap) {
  Neighbours st;
  auto red = st.summary4("red");
  red->loadAttachedRoutes();
  EXPECT_EQ(byType(*red), (Counts{{"attached", 1}}));

  auto red6 = st.summary6("red");
  red6->loadAttachedRoutes();
  EXPECT_EQ(byType(*red6), (Counts{{"attached", 1}}));

  // A VRF the map does not name has no neighbours, even those whose id is missing from it.
  auto green = st.summary4("green");
  green->loadAttachedRoutes();
  EXPECT_TRUE(byType(*green).empty());

  st.vrfIds = nullptr;
  auto noMap = st.summary4("red");
  noMap->loadAttachedRoutes();
  EXPECT_TRUE(byType(*noMap).empty());
}

TEST(RouteSummaryAttached, NeighboursAddToTheForwardingCounts) {
  Neighbours st;
  st.route4("10.1.1.0/24", RT4::connected);
  st.route4("10.1.1.9/32", RT4::attached);
  auto s = st.summary4();
  loadBoth(*s);
  EXPECT_EQ(byType(*s), (Counts{{"connected", 1}, {"attached", 3}}));
  EXPECT_EQ(byMask(*s), (Masks{{24, 1}, {32, 3}}));
  EXPECT_EQ(s->totalNumRoutes(), 4u);
}

// ---- the generated mutators ----

TEST(RouteSummaryCollections, AnIncrementOfAnAbsentKeyCreatesIt) {
  State st;
  auto s = st.summary4();
  s->routeCountByTypeInc("bgpTotal", 3);
  s->routeCountByTypeInc("bgpTotal", 2);
  s->routeCountByMaskInc(24, 4);
  EXPECT_EQ(byType(*s), (Counts{{"bgpTotal", 5}}));
  EXPECT_EQ(byMask(*s), (Masks{{24, 4}}));
}

}  // namespace
