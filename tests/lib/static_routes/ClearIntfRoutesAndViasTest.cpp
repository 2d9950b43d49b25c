// Clearing an interface's static routes and vias from a routing configuration.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lib/static_routes/ClearIntfRoutesAndViasHelper.h"
#include "tests/lib/static_routes/ViaBuilder.h"

namespace {

using Plexa::IpGenPrefix;
using Routing::RouteType;
using StaticRoutesTest::via;

class ClearIntf : public testing::Test {
 protected:
  Routing::Route& route(const char* prefix, RouteType type, std::vector<Routing::Via> vias = {}) {
    const Routing::RouteKey key(IpGenPrefix::fromString(prefix), 1);
    auto r = Mox::makePtr<Routing::Route>(key);
    r->routeTypeIs(type);
    for (const auto& v : vias) {
      r->viaIs(v, true);
      r->viaNextHopNameIs(v, "n-" + v.hop().stringValue() + v.intfId().stringValue());
    }
    config_->routeIs(key, r);
    return *r;
  }
  void clear(const char* intf) {
    Rova::ClearIntfRoutesAndViasHelper().clearIntfRoutesAndViasHelper(config_, intf);
  }
  Mox::Ptr<Routing::Route> at(const char* prefix) const {
    return config_->route(Routing::RouteKey(IpGenPrefix::fromString(prefix), 1));
  }

  Mox::Ptr<Routing::ConfigGen> config_ = Mox::makePtr<Routing::ConfigGen>();
};

TEST_F(ClearIntf, RemovesTheInterfacesViasAndTheRoutesLeftWithout) {
  route("10.1.0.0/16", RouteType::forward,
        {via("10.0.1.1", "Ethernet1"), via("10.0.2.1", "Ethernet2")})
      .viaTrackBfdIs(via("10.0.1.1", "Ethernet1"), true);
  route("10.2.0.0/16", RouteType::forward, {via("10.0.1.1", "Ethernet1")});
  route("10.3.0.0/16", RouteType::forward, {via("", "Ethernet1"), via("10.0.1.9", "Ethernet1")});
  // Many routes, so that removal happens all through the walk of the hash map.
  for (int i = 0; i < 200; ++i) {
    const std::string p = "10.100." + std::to_string(i) + ".0/24";
    route(p.c_str(), RouteType::forward, {via("10.0.1.1", "Ethernet1")});
  }
  clear("Ethernet1");

  auto kept = at("10.1.0.0/16");
  ASSERT_TRUE(kept);
  EXPECT_EQ(kept->vias(), 1u);
  EXPECT_TRUE(kept->via().contains(via("10.0.2.1", "Ethernet2")));
  EXPECT_EQ(kept->viaNextHopNames(), 1u);
  EXPECT_EQ(kept->viaNextHopName(via("10.0.2.1", "Ethernet2")), "n-10.0.2.1Ethernet2");
  // BFD tracking flags are not the helper's to touch.
  EXPECT_EQ(kept->viaTrackBfds(), 1u);
  EXPECT_EQ(config_->routes(), 1u);
}

TEST_F(ClearIntf, DropRoutesViasWithoutInterfaceAndOtherInterfacesStay) {
  route("10.1.0.0/16", RouteType::drop);
  route("10.2.0.0/16", RouteType::nexthopGroup).nexthopGroupNameIs("G1");
  // A gateway in Ethernet1's subnet, but no interface: not Ethernet1's.
  route("10.3.0.0/16", RouteType::forward, {via("10.0.1.7")});
  route("10.4.0.0/16", RouteType::forward, {via("10.0.2.1", "Ethernet2")});
  // A drop route left without vias is still a drop route.
  Routing::Route& drop = route("10.5.0.0/16", RouteType::drop, {via("", "Ethernet1")});
  clear("Ethernet1");
  EXPECT_EQ(config_->routes(), 5u);
  EXPECT_EQ(drop.vias(), 0u);
  EXPECT_EQ(at("10.3.0.0/16")->vias(), 1u);
  EXPECT_EQ(at("10.4.0.0/16")->vias(), 1u);
}

TEST_F(ClearIntf, AnInterfaceNoViaUsesChangesNothing) {
  route("10.1.0.0/16", RouteType::forward, {via("10.0.1.1", "Ethernet1")});
  clear("Ethernet9");
  clear("not an interface");
  ASSERT_TRUE(at("10.1.0.0/16"));
  EXPECT_EQ(at("10.1.0.0/16")->vias(), 1u);
  EXPECT_EQ(at("10.1.0.0/16")->viaNextHopNames(), 1u);
}

}  // namespace
