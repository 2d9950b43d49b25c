// The RIB dump of static routes: which routes it lists and the layout of each kind, in text;
// the JSON keys are pinned by the golden files of `show static-routes`.
#include "lib/static_routes/StaticRoutesRibCommon.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/mox/Exception.h"
#include "platform/mox/TextForm.h"
#include "platform/rendr/AttrInfo.h"

namespace {

using Plexa::IntfId;
using Plexa::IpGenAddr;
using Plexa::IpGenPrefix;
using Routing::RouteType;
using Rova::StaticRoutesRibCommon;

Routing::Via via(const char* hop, const char* intf = "") {
  Routing::Via v;
  if (*hop) v.hopIs(IpGenAddr::fromString(hop));
  v.intfIdIs(IntfId(intf));
  return v;
}

class RibDump : public testing::Test {
 protected:
  Routing::Route& route(const char* prefix, RouteType type, Routing::RoutePreference pref = 1) {
    const Routing::RouteKey key(IpGenPrefix::fromString(prefix), pref);
    auto r = Mox::makePtr<Routing::Route>(key);
    r->routeTypeIs(type);
    config_->routeIs(key, r);
    return *r;
  }
  void describe(const char* intf, const char* description) {
    auto c = Mox::makePtr<Interface::IntfConfig>(IntfId(intf));
    c->descriptionIs(description);
    intfs_->intfConfigIs(IntfId(intf), c);
  }
  // The text listing, everything after the legend.
  std::string dump(bool dynamic = false, const char* defaultName = "") {
    auto rib = Mox::makePtr<StaticRoutesRibCommon>(intfs_);
    rib->newRouteInputConf(config_, true);
    rib->dynamicIs(dynamic);
    testing::internal::CaptureStdout();
    Rova::RovaConsts consts;
    consts.defaultStaticRouteNameIs(defaultName);
    rib->dump(consts);
    const std::string out = testing::internal::GetCapturedStdout();
    const std::string legend = StaticRoutesRibCommon::legend().stringValue() + "\n";
    EXPECT_EQ(out.substr(0, legend.size()), legend);
    return out.substr(legend.size());
  }

  Mox::Ptr<Routing::ConfigGen> config_ = Mox::makePtr<Routing::ConfigGen>();
  Mox::Ptr<Interface::AllIntfConfigDir> intfs_ = Mox::makePtr<Interface::AllIntfConfigDir>();
};

TEST_F(RibDump, ForwardRouteViasWithLabelsInterfacesDescriptionsAndNames) {
  describe("Ethernet1", "uplink");
  describe("Ethernet2", "");
  Routing::Route& r = route("10.0.0.0/8", RouteType::forward);
  r.tagIs(7);
  Routing::Via labelled = via("10.1.1.2", "Ethernet2");
  labelled.mplsLabelIs(Plexa::MplsLabel(16));
  Routing::Via unlabelled = via("10.1.1.3");
  unlabelled.mplsLabelIs(Plexa::MplsLabel(Plexa::MplsLabel::kNoLabel));
  for (const Routing::Via& v : {via("10.1.1.1", "Ethernet1"), labelled, unlabelled,
                                via("", "Ethernet1"), via("", "Ethernet7")})
    r.viaIs(v, true);
  r.viaNextHopNameIs(via("", "Ethernet7"), "spare");
  r.viaNextHopNameIs(unlabelled, "core");
  // In via order: the vias without a gateway come first.
  EXPECT_EQ(dump(false, "core"),
            "F    10.0.0.0/8 [1] tag 7\n"
            "      Ethernet1 (uplink)\n"
            "      Ethernet7, name: spare\n"
            "      via 10.1.1.1, Ethernet1 (uplink)\n"
            "      via 10.1.1.2, label 16, Ethernet2\n"
            "      via 10.1.1.3\n");
}

TEST_F(RibDump, DropAndNexthopGroupRoutesInKeyOrder) {
  route("10.5.0.0/16", RouteType::drop).dropNextHopNameIs("sink");
  route("10.4.0.0/16", RouteType::drop);
  route("10.4.0.0/16", RouteType::nexthopGroup, 20).nexthopGroupNameIs("G1");
  // An empty drop name differs from a non-empty default: ", name: " with nothing after it.
  EXPECT_EQ(dump(false, "x"),
            "D    10.4.0.0/16 [1] tag 0\n"
            "      Null0, name: \n"
            "NG   10.4.0.0/16 [20] tag 0\n"
            "      nexthop-group G1\n"
            "D    10.5.0.0/16 [1] tag 0\n"
            "      Null0, name: sink\n");
  EXPECT_EQ(dump(false, ""),
            "D    10.4.0.0/16 [1] tag 0\n"
            "      Null0\n"
            "NG   10.4.0.0/16 [20] tag 0\n"
            "      nexthop-group G1\n"
            "D    10.5.0.0/16 [1] tag 0\n"
            "      Null0, name: sink\n");
}

TEST_F(RibDump, DynamicChoosesBetweenConfiguredAndInstalledRoutes) {
  route("10.1.0.0/16", RouteType::drop);
  route("10.2.0.0/16", RouteType::drop).dynamicIs(true);
  EXPECT_EQ(dump(false), "D    10.1.0.0/16 [1] tag 0\n      Null0\n");
  EXPECT_EQ(dump(true), "D    10.2.0.0/16 [1] tag 0\n      Null0\n");
}

TEST_F(RibDump, RoutesOfSeveralInputsAreListedTogether) {
  route("10.2.0.0/16", RouteType::drop);
  auto other = Mox::makePtr<Routing::ConfigGen>();
  const Routing::RouteKey key(IpGenPrefix::fromString("10.1.0.0/16"), 1);
  auto r = Mox::makePtr<Routing::Route>(key);
  r->routeTypeIs(RouteType::drop);
  other->routeIs(key, r);
  auto rib = Mox::makePtr<StaticRoutesRibCommon>(nullptr);
  rib->newRouteInputConf(config_, true);
  rib->newRouteInputConf(other, false);
  testing::internal::CaptureStdout();
  rib->dump(Rova::RovaConsts());
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_LT(out.find("10.1.0.0/16"), out.find("10.2.0.0/16"));
  EXPECT_EQ(rib->sortedRoutes(), 2u);
}

TEST(RibRoutes, ANullRouteIsRefusedByEveryMutator) {
  auto rib = Mox::makePtr<StaticRoutesRibCommon>();
  const std::string msg =
      "null _sortedRoute parameter to mutator for Rova::StaticRoutesRibCommon::sortedRoute not "
      "allowed\"";
  const auto refused = [&](auto f) {
    try {
      f();
    } catch (const Mox::RangeException& e) {
      return std::string(e.what()) == msg;
    }
    return false;
  };
  EXPECT_TRUE(refused([&] { rib->newSortedRoute(nullptr); }));
  EXPECT_TRUE(refused([&] { rib->sortedRouteIs(nullptr); }));
  EXPECT_TRUE(refused([&] { rib->newSortedRoute(Routing::RouteKey(), nullptr); }));
  EXPECT_EQ(rib->sortedRoutes(), 0u);
}

TEST(RibRoutes, TheLegendAndTheValueTextForm) {
  EXPECT_EQ(StaticRoutesRibCommon::legend().stringValue(),
            "Codes: F - forward, D - drop, NG - nexthop group\n");
  StaticRoutesRibCommon rib;
  rib.dynamicIs(true);
  EXPECT_EQ(Mox::textOf(rib),
            "Value('Rova::StaticRoutesRibCommon', ** {'sortedRoute': None, 'allIntfConfig': "
            "None, 'dynamic': True, 'fd': 1, 'fmt': 1, 'routeInputConf': None})");
}

}  // namespace
