// The running-configuration text of static routes, as the front end gets it from save().
#include "lib/static_routes/StaticRoutesCliSaver.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/mox/ActivityLock.h"
#include "platform/mox/Exception.h"
#include "platform/mox/Trace.h"

namespace {

using Plexa::IntfId;
using Plexa::IpGenAddr;
using Plexa::IpGenPrefix;
using Routing::RouteType;
using Rova::RovaConsts;
using Rova::StaticRoutesCliSaver;

const char* const kRouteCmd = "ip route ";

Routing::Via via(const char* hop, const char* intf = "") {
  Routing::Via v;
  v.hopIs(IpGenAddr::fromString(hop));
  v.intfIdIs(IntfId(intf));
  return v;
}

// A routing configuration built route by route.
class Config {
 public:
  Config() : config_(Mox::makePtr<Routing::ConfigGen>()) {}

  Routing::Route& route(const char* prefix, RouteType type, Routing::RoutePreference pref = 1) {
    const Routing::RouteKey key(IpGenPrefix::fromString(prefix), pref);
    auto r = Mox::makePtr<Routing::Route>(key);
    r->routeTypeIs(type);
    config_->routeIs(key, r);
    return *r;
  }
  Routing::Route& forward(const char* prefix, const Routing::Via& v,
                          Routing::RoutePreference pref = 1) {
    Routing::Route& r = route(prefix, RouteType::forward, pref);
    r.viaIs(v, true);
    return r;
  }
  Mox::Ptr<Routing::ConfigGen const> get() const { return config_; }

 private:
  Mox::Ptr<Routing::ConfigGen> config_;
};

RovaConsts defaults(const char* name = "") {
  RovaConsts c;
  c.defaultStaticRouteNameIs(name);
  return c;
}

std::string save(const Config& c, bool saveAll = false, const RovaConsts& consts = defaults()) {
  auto saver = Mox::makePtr<StaticRoutesCliSaver>();
  return saver->save(c.get(), saveAll, kRouteCmd, consts).stringValue();
}

// ---- the documented examples ----

TEST(StaticRouteExamples, EachKindOfRouteWithTheUsualDefaults) {
  Config c;
  c.route("10.0.0.0/8", RouteType::drop);
  c.route("10.0.0.0/8", RouteType::drop, 200).tagIs(5);
  c.route("10.1.0.0/16", RouteType::nexthopGroup).nexthopGroupNameIs("G1");
  Routing::Via labelled = via("10.2.2.2", "E1");
  labelled.mplsLabelIs(Plexa::MplsLabel(100));
  Routing::Route& r = c.forward("10.3.0.0/16", labelled);
  r.viaTrackBfdIs(labelled, true);
  r.viaNextHopNameIs(labelled, "core");
  Routing::Via vxlan;
  vxlan.vtepAddrIs(IpGenAddr::fromString("1.1.1.1"));
  vxlan.vniIs(Vxlan::VniOrNone(10));
  vxlan.routerMacIs(Plexa::EthAddr::fromString("00:11:22:33:44:55"));
  c.forward("10.4.0.0/16", vxlan);
  EXPECT_EQ(save(c),
            "ip route 10.0.0.0/8 Null0\n"
            "ip route 10.0.0.0/8 Null0 200 tag 5\n"
            "ip route 10.1.0.0/16 Nexthop-Group G1\n"
            "ip route 10.3.0.0/16 E1 10.2.2.2 label 100 track bfd name core\n"
            "ip route 10.4.0.0/16 vtep 1.1.1.1 vni 10 router-mac-address 00:11:22:33:44:55\n");
}

TEST(StaticRouteExamples, SaveAllWritesDefaultPreferenceAndTag) {
  Config c;
  c.route("10.0.0.0/8", RouteType::drop);
  EXPECT_EQ(save(c, true), "ip route 10.0.0.0/8 Null0 1 tag 0\n");
}

// ---- order of the lines ----

TEST(StaticRouteOrder, ByAddressThenShorterMaskThenLowerPreference) {
  Config c;
  // Inserted out of order; the hash map's own order must not show through.
  c.route("10.0.0.0/16", RouteType::drop);
  c.route("10.0.0.0/8", RouteType::drop, 20);
  c.route("10.0.0.0/8", RouteType::drop, 5);
  c.route("9.255.0.0/16", RouteType::drop);  // numerically first, textually last
  c.route("192.168.1.0/24", RouteType::drop);
  c.route("10.0.0.0/8", RouteType::drop, 1);
  EXPECT_EQ(save(c),
            "ip route 9.255.0.0/16 Null0\n"
            "ip route 10.0.0.0/8 Null0\n"
            "ip route 10.0.0.0/8 Null0 5\n"
            "ip route 10.0.0.0/8 Null0 20\n"
            "ip route 10.0.0.0/16 Null0\n"
            "ip route 192.168.1.0/24 Null0\n");
}

TEST(StaticRouteOrder, ViasOfOneRouteGiveOneLineEachInViaOrder) {
  Config c;
  Routing::Route& r = c.forward("10.0.0.0/8", via("10.0.0.10"));
  r.viaIs(via("10.0.0.9", "Ethernet2"), true);
  r.viaIs(via("", "Ethernet1"), true);
  EXPECT_EQ(save(c),
            "ip route 10.0.0.0/8 Ethernet1\n"
            "ip route 10.0.0.0/8 Ethernet2 10.0.0.9\n"
            "ip route 10.0.0.0/8 10.0.0.10\n");
}

TEST(StaticRouteOrder, Ipv6RoutesAndVias) {
  Config c;
  c.forward("2001:db8:1::/48", via("2001:db8::1", "Ethernet3/1"));
  c.forward("2001:db8::/32", via("fe80::1", "Vlan100"), 7);
  c.route("::/0", RouteType::drop);
  EXPECT_EQ(save(c),
            "ip route ::/0 Null0\n"
            "ip route 2001:db8::/32 Vlan100 fe80::1 7\n"
            "ip route 2001:db8:1::/48 Ethernet3/1 2001:db8::1\n");
}

// ---- the pieces of a via line ----

TEST(StaticRouteVia, LabelIsWrittenUpToTheLargestAndOnlyWithAGateway) {
  Config c;
  Routing::Via none = via("10.0.0.1"), largest = via("10.0.0.2"), noGateway = via("", "Ethernet1");
  none.mplsLabelIs(Plexa::MplsLabel(1048576));
  largest.mplsLabelIs(Plexa::MplsLabel(1048575));
  noGateway.mplsLabelIs(Plexa::MplsLabel(100));
  Routing::Route& r = c.forward("10.0.0.0/8", none);
  r.viaIs(largest, true);
  r.viaIs(noGateway, true);
  EXPECT_EQ(save(c),
            "ip route 10.0.0.0/8 Ethernet1\n"
            "ip route 10.0.0.0/8 10.0.0.1\n"
            "ip route 10.0.0.0/8 10.0.0.2 label 1048575\n");
}

TEST(StaticRouteVia, BfdOnlyWhenTheFlagIsSet) {
  Config c;
  const Routing::Via on = via("10.0.0.1"), off = via("10.0.0.2");
  Routing::Route& r = c.forward("10.0.0.0/8", on);
  r.viaIs(off, true);
  r.viaTrackBfdIs(on, true);
  r.viaTrackBfdIs(off, false);
  EXPECT_EQ(save(c),
            "ip route 10.0.0.0/8 10.0.0.1 track bfd\n"
            "ip route 10.0.0.0/8 10.0.0.2\n");
}

TEST(StaticRouteVia, ClausesComeInTheirFixedOrder) {
  Config c;
  Routing::Via v = via("10.2.2.2", "Ethernet1");
  v.mplsLabelIs(Plexa::MplsLabel(16));
  Routing::Route& r = c.forward("10.0.0.0/8", v, 30);
  r.tagIs(4294967295u);
  r.viaTrackBfdIs(v, true);
  r.viaNextHopNameIs(v, "up");
  EXPECT_EQ(
      save(c),
      "ip route 10.0.0.0/8 Ethernet1 10.2.2.2 label 16 track bfd 30 tag 4294967295 name up\n");
}

TEST(StaticRouteVia, GatewayAndVxlanEndPointTogetherIsAnInternalError) {
  Config c;
  Routing::Via v = via("10.0.0.1");
  v.vtepAddrIs(IpGenAddr::fromString("1.1.1.1"));
  c.forward("10.0.0.0/8", v);
  auto saver = Mox::makePtr<StaticRoutesCliSaver>();
  try {
    saver->save(c.get(), false, kRouteCmd, defaults());
    FAIL() << "no assertion";
  } catch (const Mox::InternalException& e) {
    EXPECT_EQ(std::string(e.what()), "!via.vtepAddr()");
  }
}

// ---- names and defaults ----

TEST(StaticRouteNames, ViaNameEqualToTheDefaultOrEmptyIsLeftOut) {
  Config c;
  const Routing::Via a = via("10.0.0.1"), b = via("10.0.0.2"), d = via("10.0.0.3");
  Routing::Route& r = c.forward("10.0.0.0/8", a);
  r.viaIs(b, true);
  r.viaIs(d, true);
  r.viaNextHopNameIs(a, "x");
  r.viaNextHopNameIs(b, "");
  r.viaNextHopNameIs(d, "y");
  EXPECT_EQ(save(c, false, defaults("x")),
            "ip route 10.0.0.0/8 10.0.0.1\n"
            "ip route 10.0.0.0/8 10.0.0.2\n"
            "ip route 10.0.0.0/8 10.0.0.3 name y\n");
}

TEST(StaticRouteNames, DropRouteNames) {
  Config c;
  c.route("10.0.0.0/8", RouteType::drop).dropNextHopNameIs("x");
  c.route("11.0.0.0/8", RouteType::drop).dropNextHopNameIs("blackhole");
  // An empty name against a non-empty default keeps its (empty) name clause.
  c.route("12.0.0.0/8", RouteType::drop);
  EXPECT_EQ(save(c, false, defaults("x")),
            "ip route 10.0.0.0/8 Null0\n"
            "ip route 11.0.0.0/8 Null0 name blackhole\n"
            "ip route 12.0.0.0/8 Null0 name \n");
}

TEST(StaticRouteNames, NexthopGroupRoutesHaveNoNameClause) {
  Config c;
  Routing::Route& r = c.route("10.0.0.0/8", RouteType::nexthopGroup, 3);
  r.dropNextHopNameIs("ignored");
  r.tagIs(9);
  c.route("11.0.0.0/8", RouteType::nexthopGroup);
  EXPECT_EQ(save(c, false, defaults("x")),
            "ip route 10.0.0.0/8 Nexthop-Group 3 tag 9\n"
            "ip route 11.0.0.0/8 Nexthop-Group\n");
}

TEST(StaticRouteNames, SaveAllForcesPreferenceAndTagButNotNames) {
  Config c;
  const Routing::Via v = via("10.0.0.1");
  c.forward("10.0.0.0/8", v).viaNextHopNameIs(v, "x");
  c.route("11.0.0.0/8", RouteType::drop).dropNextHopNameIs("x");
  c.route("12.0.0.0/8", RouteType::nexthopGroup).nexthopGroupNameIs("G");
  Routing::Route& other = c.route("13.0.0.0/8", RouteType::drop, 2);
  other.tagIs(3);
  other.dropNextHopNameIs("x");
  EXPECT_EQ(save(c, true, defaults("x")),
            "ip route 10.0.0.0/8 10.0.0.1 1 tag 0\n"
            "ip route 11.0.0.0/8 Null0 1 tag 0\n"
            "ip route 12.0.0.0/8 Nexthop-Group G 1 tag 0\n"
            "ip route 13.0.0.0/8 Null0 2 tag 3\n");
}

TEST(StaticRouteNames, DefaultsOtherThanTheUsualOnesAreHonoured) {
  Config c;
  c.route("10.0.0.0/8", RouteType::drop, 5).tagIs(7);
  c.route("11.0.0.0/8", RouteType::drop, 1);
  RovaConsts consts;
  consts.defaultStaticRoutePreferenceIs(5);
  consts.defaultStaticRouteTagIs(7);
  EXPECT_EQ(save(c, false, consts),
            "ip route 10.0.0.0/8 Null0\n"
            "ip route 11.0.0.0/8 Null0 1 tag 0\n");
}

// ---- what is saved, and across calls ----

TEST(StaticRouteSelection, DynamicRoutesAreNotSaved) {
  Config c;
  c.route("10.0.0.0/8", RouteType::drop).dynamicIs(true);
  c.forward("11.0.0.0/8", via("10.0.0.1")).dynamicIs(true);
  EXPECT_EQ(save(c), "");
  c.route("12.0.0.0/8", RouteType::drop);
  EXPECT_EQ(save(c), "ip route 12.0.0.0/8 Null0\n");
}

TEST(StaticRouteSelection, ForwardRouteWithoutViasWritesNothing) {
  Config c;
  c.route("10.0.0.0/8", RouteType::forward);
  EXPECT_EQ(save(c), "");
}

TEST(StaticRouteSelection, RouteCmdOpensEveryLineAsItStands) {
  Config c;
  c.route("10.0.0.0/8", RouteType::drop);
  c.forward("11.0.0.0/8", via("10.0.0.1"));
  auto saver = Mox::makePtr<StaticRoutesCliSaver>();
  EXPECT_EQ(saver->save(c.get(), false, "ip route vrf red ", defaults()).stringValue(),
            "ip route vrf red 10.0.0.0/8 Null0\n"
            "ip route vrf red 11.0.0.0/8 10.0.0.1\n");
}

TEST(StaticRouteSelection, SecondSaveMergesAndReplacesEqualKeys) {
  Config first;
  Routing::Route& r = first.forward("10.0.0.0/8", via("10.0.0.1"));
  r.viaIs(via("10.0.0.2"), true);
  first.route("20.0.0.0/8", RouteType::drop);
  Config second;
  // Same key: the whole entry is replaced, not merged via by via.
  second.forward("10.0.0.0/8", via("10.0.0.3"));
  second.route("15.0.0.0/8", RouteType::nexthopGroup).nexthopGroupNameIs("G");

  auto saver = Mox::makePtr<StaticRoutesCliSaver>();
  saver->save(first.get(), false, kRouteCmd, defaults());
  EXPECT_EQ(saver->save(second.get(), false, kRouteCmd, defaults()).stringValue(),
            "ip route 10.0.0.0/8 10.0.0.3\n"
            "ip route 15.0.0.0/8 Nexthop-Group G\n"
            "ip route 20.0.0.0/8 Null0\n");
  EXPECT_EQ(saver->sortedRoutes(), 3u);
}

TEST(StaticRouteSelection, SaveIsTracedUnderTheLibrarysSourceName) {
  Config c;
  c.route("10.0.0.0/8", RouteType::drop);
  Mox::TraceHandle::levelIs(9);
  testing::internal::CaptureStderr();
  const std::string text = save(c);
  const std::string trace = testing::internal::GetCapturedStderr();
  Mox::TraceHandle::levelIs(-1);
  EXPECT_EQ(trace, "CliSupport save: Saving static routes\n");
  EXPECT_EQ(text, "ip route 10.0.0.0/8 Null0\n");  // trace text is never in the result
}

// ---- the activity lock ----

Config manyRoutes(unsigned saved, unsigned dynamic) {
  Config c;
  for (unsigned i = 0; i < saved + dynamic; ++i) {
    const std::string p = "10." + std::to_string(i / 256) + "." + std::to_string(i % 256) + ".0/24";
    c.route(p.c_str(), RouteType::drop).dynamicIs(i >= saved);
  }
  return c;
}

unsigned yieldsDuringSave(const Config& c) {
  Mox::ActivityLockGuard held;
  const auto before = Mox::ActivityLock::instance().yields();
  save(c);
  EXPECT_TRUE(Mox::ActivityLock::instance().heldByThisThread());
  return static_cast<unsigned>(Mox::ActivityLock::instance().yields() - before);
}

TEST(StaticRouteActivityLock, GivenUpAfterEvery2000SavedRoutes) {
  EXPECT_EQ(yieldsDuringSave(manyRoutes(1999, 0)), 0u);
  EXPECT_EQ(yieldsDuringSave(manyRoutes(2000, 0)), 1u);
  EXPECT_EQ(yieldsDuringSave(manyRoutes(3999, 0)), 1u);
  EXPECT_EQ(yieldsDuringSave(manyRoutes(4000, 0)), 2u);
  // Skipped routes do not count.
  EXPECT_EQ(yieldsDuringSave(manyRoutes(1999, 1000)), 0u);
}

}  // namespace
