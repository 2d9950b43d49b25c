// The route summary's counts where the golden states cannot reach: records the loader would
// refuse, missing tables, corruption, and neighbours of VRFs the id map does not name. Which
// key each route type lands under is pinned by the summary goldens on a state with every type.

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

  void route4(const char* prefix, RT4 type) {
    Brine::Fib::Route r;
    r.prefix = Plexa::Prefix::fromString(prefix);
    r.routeType = type;
    routes4->recordIs(r);
  }
  void route6(const char* prefix, RT6 type) {
    Brine::Fib6::Route r;
    r.prefix = Plexa::Ip6Prefix::fromString(prefix);
    r.routeType = type;
    routes6->recordIs(r);
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

// ---- static routes ----

TEST(RouteSummaryStatic, WithoutRoutingConfigurationStaticRoutesAreCountedNowhere) {
  State st;
  st.route4("10.8.0.0/16", RT4::staticConfig);
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

// Which neighbours a VRF counts is read through the id map; the example states cover the
// default VRF, management interfaces and the other family.
TEST(RouteSummaryAttached, OtherVrfsAreFoundByNameThroughTheIdMap) {
  State st;
  st.neighbor(1, "10.20.4.254", "Ethernet4");  // red
  st.neighbor(7, "10.70.0.1", "Ethernet7");    // an id the map does not hold
  st.neighbor(1, "2001:db8:20::fe", "Ethernet4");
  auto red = st.summary4("red");
  red->loadAttachedRoutes();
  EXPECT_EQ(byType(*red), (Counts{{"attached", 1}}));
  auto red6 = st.summary6("red");
  red6->loadAttachedRoutes();
  EXPECT_EQ(byMask(*red6), (Masks{{128, 1}}));

  // A VRF the map does not name has no neighbours, even those whose id is missing from it.
  auto green = st.summary4("green");
  green->loadAttachedRoutes();
  EXPECT_TRUE(byType(*green).empty());
  st.vrfIds = nullptr;
  auto noMap = st.summary4("red");
  noMap->loadAttachedRoutes();
  EXPECT_TRUE(byType(*noMap).empty());
}

}  // namespace
