// Configured static routes in the forwarding table: how they compete with other protocols'
// routes, how their next hops resolve, and what comes back when they go. Each case edits the
// configuration with the editor, as every writer of configuration does, then updates.
#include "lib/static_routes/StaticRouteFib.h"

#include <gtest/gtest.h>

#include <string>

#include "lib/static_routes/StaticRouteEditor.h"
#include "tests/lib/static_routes/ViaBuilder.h"

namespace {

using Brine::Fib::AdjType;
using Brine::Fib::FecId;
using Plexa::IpGenPrefix;
using Routing::RouteType;
using StaticRoutesTest::via;
using T4 = Routing::Fib::RouteType;

class StaticRouteFibTest : public testing::Test {
 protected:
  StaticRouteFibTest() {
    for (const char* name : {"Ethernet1", "Ethernet2"}) {
      const Plexa::IntfId id(name);
      intfStatus_->intfStatusIs(id, Mox::makePtr<Interface::IntfStatus>(id));
    }
    connected("10.1.1.0/24", "Ethernet1", 11);
    connected("10.1.2.0/24", "Ethernet2", 12);
    fibRoute("10.1.1.1/32", T4::receive, 0, FecId(AdjType::ipAdj, 1));
    connected6("2001:db8:1::/64", "Ethernet1", 11);
    NexthopGroup::EntryStatusRecord group;
    group.entryKey = NexthopGroup::NexthopGroupEntryKey("G1");
    group.nhgId = 7;
    nhgIds_->recordIs(group);
  }

  void connected(const char* prefix, const char* intf, std::uint64_t fec) {
    Brine::Fib::Fec f{};
    f.fecId = FecId(AdjType::ipAdj, fec);
    Brine::Fib::Via v{};
    v.intfId = Plexa::IntfId(intf);
    f.via.push(v);
    fecs_->recordIs(f);
    fibRoute(prefix, T4::connected, 0, f.fecId);
  }
  void connected6(const char* prefix, const char* intf, std::uint64_t fec) {
    Brine::Fib6::Fec f{};
    f.fecId = FecId(AdjType::ip6Adj, fec);
    Brine::Fib6::Via v{};
    v.intfId = Plexa::IntfId(intf);
    f.via.push(v);
    fecs6_->recordIs(f);
    Brine::Fib6::Route r{};
    r.prefix = Plexa::Ip6Prefix::fromString(prefix);
    r.routeType = Routing6::Fib::RouteType::connected;
    r.fecId = f.fecId;
    routes6_->recordIs(r);
  }
  Brine::Fib::Route fibRoute(const char* prefix, T4 type, std::uint8_t preference, FecId fec) {
    Brine::Fib::Route r{};
    r.prefix = Plexa::Prefix::fromString(prefix);
    r.routeType = type;
    r.preference = preference;
    r.fecId = fec;
    r.metric = 20;
    routes_->recordIs(r);
    return r;
  }
  // An OSPF route through the first connected subnet's FEC.
  Brine::Fib::Route ospf(const char* prefix, std::uint8_t preference = 110) {
    return fibRoute(prefix, T4::ospfIntraArea, preference, FecId(AdjType::ipAdj, 11));
  }

  void add(const char* prefix, Routing::RoutePreference preference,
           std::initializer_list<Routing::Via> vias, RouteType type = RouteType::forward,
           const char* group = "") {
    auto line = Mox::makePtr<Routing::Route>(
        Routing::RouteKey(IpGenPrefix::fromString(prefix), preference));
    line->routeTypeIs(type);
    line->nexthopGroupNameIs(group);
    for (const auto& v : vias)
      line->viaIs(v, true);
    ASSERT_EQ(Rova::StaticRouteEditor().addRoute(config(prefix), *line).stringValue(), "");
  }
  void removeAll(const char* prefix) {
    auto line = Mox::makePtr<Routing::Route>(Routing::RouteKey(IpGenPrefix::fromString(prefix), 1));
    Rova::StaticRouteEditor().removeRoute(config(prefix), *line, true);
  }
  Mox::Ptr<Routing::ConfigGen> config(const char* prefix) {
    return IpGenPrefix::fromString(prefix).af() == Plexa::AddressFamily::ipv6 ? config6_ : config_;
  }
  void intfUp(const char* name, bool up) {
    intfStatus_->intfStatus(Plexa::IntfId(name))->operUpIs(up);
  }

  // The forwarding entry of a prefix: "type preference: via via ..." or "none".
  std::string entry(const char* prefix) const {
    const auto p = Plexa::Prefix::fromString(prefix);
    if (!routes_->contains(p)) return "none";
    const auto r = routes_->lookup(p);
    std::string out =
        std::string(Routing::Fib::routeTypeName(r.routeType)) + " " + std::to_string(r.preference);
    if (Brine::Fib::isNexthopGroupFec(r.fecId))
      return out + " group " + std::to_string(Brine::Fib::nexthopGroupIdFromFec(r.fecId));
    out += ":";
    for (const auto& v : fecs_->lookup(r.fecId).via) {
      out += " ";
      if (!v.hop.isZero()) out += v.hop.stringValue() + "@";
      out += v.intfId.stringValue();
    }
    return out;
  }

  Mox::Ptr<Brine::Fib::RouteStatus> routes_ = Mox::makePtr<Brine::Fib::RouteStatus>();
  Mox::Ptr<Brine::Fib::ForwardingStatus> fecs_ = Mox::makePtr<Brine::Fib::ForwardingStatus>();
  Mox::Ptr<Brine::Fib6::RouteStatus> routes6_ = Mox::makePtr<Brine::Fib6::RouteStatus>();
  Mox::Ptr<Brine::Fib6::ForwardingStatus> fecs6_ = Mox::makePtr<Brine::Fib6::ForwardingStatus>();
  Mox::Ptr<Routing::ConfigGen> config_ = Mox::makePtr<Routing::ConfigGen>();
  Mox::Ptr<Routing::ConfigGen> config6_ = Mox::makePtr<Routing::ConfigGen>();
  Mox::Ptr<Interface::AllIntfStatusDir> intfStatus_ = Mox::makePtr<Interface::AllIntfStatusDir>();
  Mox::Ptr<Interface::AllIntfConfigDir> intfConfig_ = Mox::makePtr<Interface::AllIntfConfigDir>();
  Mox::Ptr<NexthopGroup::EntryStatus> nhgIds_ = Mox::makePtr<NexthopGroup::EntryStatus>();
  Rova::StaticRouteFib fib_{routes_,  fecs_,       routes6_,    fecs6_, config_,
                            config6_, intfStatus_, intfConfig_, nhgIds_};
};

TEST_F(StaticRouteFibTest, AViaJoinsAndTheGatewayTakesItsConnectedInterface) {
  add("10.50.0.0/16", 1, {via("10.1.1.2")});
  EXPECT_EQ(fib_.update(), 1u);
  EXPECT_EQ(entry("10.50.0.0/16"), "staticConfig 1: 10.1.1.2@Ethernet1");
  add("10.50.0.0/16", 1, {via("10.1.2.2", "Ethernet2")});
  add("10.50.0.0/16", 1, {via("", "Ethernet2")});
  EXPECT_EQ(fib_.update(), 1u);
  EXPECT_EQ(entry("10.50.0.0/16"),
            "staticConfig 1: Ethernet2 10.1.1.2@Ethernet1 10.1.2.2@Ethernet2");
  // Nothing changed, nothing is written.
  EXPECT_EQ(fib_.update(), 0u);

  add("2001:db8:50::/48", 1, {via("2001:db8:1::2")});
  EXPECT_EQ(fib_.update(), 1u);
  const auto r6 = routes6_->lookup(Plexa::Ip6Prefix::fromString("2001:db8:50::/48"));
  ASSERT_EQ(r6.routeType, Routing6::Fib::RouteType::staticConfig);
  const auto fec6 = fecs6_->lookup(r6.fecId);
  ASSERT_EQ(fec6.via.size(), 1u);
  EXPECT_EQ(fec6.via[0].hop.stringValue(), "2001:db8:1::2");
  EXPECT_EQ(fec6.via[0].intfId.stringValue(), "Ethernet1");
}

TEST_F(StaticRouteFibTest, TheLowerPreferenceWinsAndTheBeatenRouteComesBack) {
  const auto before = ospf("10.60.0.0/16");
  const std::size_t fecsBefore = fecs_->size();
  add("10.60.0.0/16", 110, {via("10.1.2.2")});  // a tie: the route there keeps the prefix
  fib_.update();
  EXPECT_EQ(entry("10.60.0.0/16"), "ospfIntraArea 110: Ethernet1");

  add("10.60.0.0/16", 1, {via("10.1.2.2")});
  fib_.update();
  EXPECT_EQ(entry("10.60.0.0/16"), "staticConfig 1: 10.1.2.2@Ethernet2");

  // `no ip route`: the OSPF route is back as it was, and the static's FEC is gone.
  removeAll("10.60.0.0/16");
  EXPECT_EQ(fib_.update(), 1u);
  const auto after = routes_->lookup(before.prefix);
  EXPECT_EQ(after.routeType, before.routeType);
  EXPECT_EQ(after.fecId, before.fecId);
  EXPECT_EQ(after.metric, before.metric);
  EXPECT_EQ(after.preference, 110);
  EXPECT_EQ(fecs_->size(), fecsBefore);
}

TEST_F(StaticRouteFibTest, AFloatingStaticTakesOverWhenTheBetterRouteGoes) {
  ospf("10.61.0.0/16");
  add("10.61.0.0/16", 250, {via("10.1.2.2")});
  add("10.61.0.0/16", 200, {via("10.9.9.9")});  // resolves nowhere: the next one is tried
  fib_.update();
  EXPECT_EQ(entry("10.61.0.0/16"), "ospfIntraArea 110: Ethernet1");

  routes_->recordDel(Plexa::Prefix::fromString("10.61.0.0/16"));  // OSPF withdraws it
  fib_.update();
  EXPECT_EQ(entry("10.61.0.0/16"), "staticConfig 250: 10.1.2.2@Ethernet2");

  ospf("10.61.0.0/16");  // and learns it again
  fib_.update();
  EXPECT_EQ(entry("10.61.0.0/16"), "ospfIntraArea 110: Ethernet1");
}

// A state file holds both the configuration and the statics an earlier process put in the
// tables for it. A new process's resolver takes those statics on: removing the configuration
// removes them, and their FEC with them unless another route uses it (a file written by hand
// may share one). A static nobody configured is not its to touch.
TEST_F(StaticRouteFibTest, StaticsAnEarlierProcessWroteGoWithTheirConfiguration) {
  add("10.70.0.0/16", 1, {via("10.1.2.2")});
  add("10.71.0.0/16", 1, {via("", "Ethernet1")});
  Brine::Fib::Fec own{};
  own.fecId = FecId(AdjType::ipAdj, 70);
  Brine::Fib::Via v{};
  v.hop = Plexa::IpAddr::fromString("10.1.2.2");
  v.intfId = Plexa::IntfId("Ethernet2");
  own.via.push(v);
  fecs_->recordIs(own);
  fibRoute("10.70.0.0/16", T4::staticConfig, 1, own.fecId);
  fibRoute("10.71.0.0/16", T4::staticConfig, 1, FecId(AdjType::ipAdj, 11));  // shared
  fibRoute("10.72.0.0/16", T4::staticConfig, 1, FecId(AdjType::ipAdj, 12));  // not configured
  Rova::StaticRouteFib later(routes_, fecs_, routes6_, fecs6_, config_, config6_, intfStatus_,
                             intfConfig_, nhgIds_);
  EXPECT_EQ(later.update(), 0u);  // the tables already hold what the configuration makes

  removeAll("10.70.0.0/16");
  removeAll("10.71.0.0/16");
  EXPECT_EQ(later.update(), 2u);
  EXPECT_EQ(entry("10.70.0.0/16"), "none");
  EXPECT_EQ(entry("10.71.0.0/16"), "none");
  EXPECT_FALSE(fecs_->contains(own.fecId));
  EXPECT_TRUE(fecs_->contains(FecId(AdjType::ipAdj, 11)));
  EXPECT_EQ(entry("10.1.1.0/24"), "connected 0: Ethernet1");
  EXPECT_EQ(entry("10.72.0.0/16"), "staticConfig 1: Ethernet2");
}

TEST_F(StaticRouteFibTest, ANextHopResolvesRecursivelyWithinABound) {
  // 10.100.0.0/16 through a connected gateway; each next one through an address of the last.
  add("10.100.0.0/16", 1, {via("10.1.1.2")});
  const int chain = Rova::StaticRouteFib::kMaxResolveDepth + 2;
  for (int i = 1; i < chain; ++i) {
    const std::string prefix = "10." + std::to_string(100 + i) + ".0.0/16";
    const std::string hop = "10." + std::to_string(100 + i - 1) + ".0.1";
    add(prefix.c_str(), 1, {via(hop.c_str())});
  }
  fib_.update();
  EXPECT_EQ(entry("10.101.0.0/16"), "staticConfig 1: 10.1.1.2@Ethernet1");
  const std::string last = "10." + std::to_string(100 + chain - 2) + ".0.0/16";
  const std::string beyond = "10." + std::to_string(100 + chain - 1) + ".0.0/16";
  EXPECT_EQ(entry(last.c_str()), "staticConfig 1: 10.1.1.2@Ethernet1");
  EXPECT_EQ(entry(beyond.c_str()), "none");

  // Two routes whose gateways lie in each other resolve neither.
  add("10.200.0.0/16", 1, {via("10.201.0.1")});
  add("10.201.0.0/16", 1, {via("10.200.0.1")});
  fib_.update();
  EXPECT_EQ(entry("10.200.0.0/16"), "none");
  EXPECT_EQ(entry("10.201.0.0/16"), "none");

  // The route a gateway resolves through goes: so do those that rode on it.
  removeAll("10.100.0.0/16");
  fib_.update();
  EXPECT_EQ(entry("10.101.0.0/16"), "none");
  EXPECT_EQ(entry(last.c_str()), "none");
}

TEST_F(StaticRouteFibTest, AnUnresolvableNextHopStaysOutOfTheTable) {
  fibRoute("0.0.0.0/0", T4::eBgp, 200, FecId(AdjType::ipAdj, 12));
  add("10.70.0.0/16", 1, {via("192.0.2.1")});              // only the default route covers it
  add("10.71.0.0/16", 1, {via("10.1.1.1")});               // the router's own address
  add("10.72.0.0/16", 1, {via("10.1.1.2", "Ethernet9")});  // an interface the state lacks
  EXPECT_EQ(fib_.update(), 0u);
  EXPECT_EQ(entry("10.70.0.0/16"), "none");
  EXPECT_EQ(entry("10.71.0.0/16"), "none");
  EXPECT_EQ(entry("10.72.0.0/16"), "none");
  EXPECT_EQ(config_->routes(), 3u);

  // Once a route covers the gateway, the static follows it.
  ospf("192.0.2.0/24");
  fib_.update();
  EXPECT_EQ(entry("10.70.0.0/16"), "staticConfig 1: 192.0.2.1@Ethernet1");
}

TEST_F(StaticRouteFibTest, ARouteThroughAnInterfaceThatGoesDownLeavesTheTable) {
  add("10.80.0.0/16", 1, {via("", "Ethernet2")});  // interface only: connected through it
  add("10.81.0.0/16", 1, {via("10.1.2.2")});
  add("10.82.0.0/16", 1, {via("10.1.1.2"), via("10.1.2.2")});
  fib_.update();
  EXPECT_EQ(entry("10.80.0.0/16"), "staticConfig 1: Ethernet2");
  EXPECT_EQ(entry("10.81.0.0/16"), "staticConfig 1: 10.1.2.2@Ethernet2");

  intfUp("Ethernet2", false);
  fib_.update();
  EXPECT_EQ(entry("10.80.0.0/16"), "none");
  EXPECT_EQ(entry("10.81.0.0/16"), "none");
  EXPECT_EQ(entry("10.82.0.0/16"), "staticConfig 1: 10.1.1.2@Ethernet1");

  // Shut down is down too, whatever the link says.
  intfUp("Ethernet2", true);
  auto config = Mox::makePtr<Interface::IntfConfig>(Plexa::IntfId("Ethernet2"));
  config->enabledIs(false);
  intfConfig_->intfConfigIs(Plexa::IntfId("Ethernet2"), config);
  fib_.update();
  EXPECT_EQ(entry("10.80.0.0/16"), "none");

  config->enabledIs(true);
  fib_.update();
  EXPECT_EQ(entry("10.80.0.0/16"), "staticConfig 1: Ethernet2");
  EXPECT_EQ(entry("10.82.0.0/16"), "staticConfig 1: 10.1.1.2@Ethernet1 10.1.2.2@Ethernet2");
}

TEST_F(StaticRouteFibTest, DropAndGroupRoutes) {
  add("10.90.0.0/16", 1, {}, RouteType::drop);
  add("10.91.0.0/16", 1, {}, RouteType::nexthopGroup, "G1");
  add("10.92.0.0/16", 1, {}, RouteType::nexthopGroup, "nope");  // no such group
  fib_.update();
  EXPECT_EQ(entry("10.90.0.0/16"), "dropRoute 1: Null0");
  EXPECT_EQ(entry("10.91.0.0/16"), "nexthopGroupStaticRoute 1 group 7");
  EXPECT_EQ(entry("10.92.0.0/16"), "none");

  // A gateway inside a drop route goes nowhere.
  add("10.93.0.0/16", 1, {via("10.90.0.1")});
  fib_.update();
  EXPECT_EQ(entry("10.93.0.0/16"), "none");

  // A better forwarding route replaces the drop route; without it the drop route is back.
  add("10.90.0.0/16", 1, {via("10.1.1.2")});  // the same preference: the via replaces it
  fib_.update();
  EXPECT_EQ(entry("10.90.0.0/16"), "staticConfig 1: 10.1.1.2@Ethernet1");
  EXPECT_EQ(entry("10.93.0.0/16"), "staticConfig 1: 10.1.1.2@Ethernet1");
  add("10.90.0.0/16", 5, {}, RouteType::drop);
  removeAll("10.90.0.0/16");
  add("10.90.0.0/16", 5, {}, RouteType::drop);
  fib_.update();
  EXPECT_EQ(entry("10.90.0.0/16"), "dropRoute 5: Null0");
  EXPECT_EQ(entry("10.93.0.0/16"), "none");
}

}  // namespace
