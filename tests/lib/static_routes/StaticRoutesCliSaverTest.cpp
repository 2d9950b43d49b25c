// The running-configuration text of static routes, as the front end gets it from save(): the
// cases the golden files of `show running-config static-routes` do not reach.
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
  EXPECT_THROW(save(c), Mox::InternalException);
}

// ---- names ----

// Names equal to the default are left out, as the golden files show; an empty name is left
// out of a via line but written, as an empty clause, on a drop route; a nexthop-group route
// has no name clause at all.
TEST(StaticRouteNames, EmptyNamesOfViasAndOfDropRoutesDiffer) {
  Config c;
  const Routing::Via a = via("10.0.0.1"), b = via("10.0.0.2");
  Routing::Route& r = c.forward("10.0.0.0/8", a);
  r.viaIs(b, true);
  r.viaNextHopNameIs(b, "");
  c.route("12.0.0.0/8", RouteType::drop);
  c.route("13.0.0.0/8", RouteType::nexthopGroup).dropNextHopNameIs("ignored");
  EXPECT_EQ(save(c, false, defaults("x")),
            "ip route 10.0.0.0/8 10.0.0.1\n"
            "ip route 10.0.0.0/8 10.0.0.2\n"
            "ip route 12.0.0.0/8 Null0 name \n"
            "ip route 13.0.0.0/8 Nexthop-Group\n");
}

// ---- what is saved, and across calls ----

TEST(StaticRouteSelection, ForwardRouteWithoutViasWritesNothing) {
  Config c;
  c.route("10.0.0.0/8", RouteType::forward);
  EXPECT_EQ(save(c), "");
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
