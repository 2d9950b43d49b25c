// The rules by which configuration lines change static routes: joining, replacing, the
// removals, and an agent's route left alone. The saver is the witness where it can be: what the
// editor made must be written back as the lines that made it.
#include "lib/static_routes/StaticRouteEditor.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lib/registry/TypeRegistry.h"
#include "lib/static_routes/StaticRoutesCliSaver.h"
#include "tests/lib/static_routes/ViaBuilder.h"

namespace {

using Plexa::IpGenPrefix;
using Routing::RouteType;
using StaticRoutesTest::via;

// One configuration line, as the editor takes it.
struct Line {
  const char* prefix;
  Routing::RoutePreference preference = 1;
  RouteType type = RouteType::forward;
  std::vector<Routing::Via> vias = {};
  std::uint32_t tag = 0;
  const char* name = "";
  bool trackBfd = false;

  Mox::Ptr<Routing::Route> route() const {
    auto r = Mox::makePtr<Routing::Route>(
        Routing::RouteKey(IpGenPrefix::fromString(prefix), preference));
    r->routeTypeIs(type);
    r->tagIs(tag);
    if (type == RouteType::drop) r->dropNextHopNameIs(name);
    if (type == RouteType::nexthopGroup) r->nexthopGroupNameIs(name);
    for (const auto& v : vias) {
      r->viaIs(v, true);
      if (trackBfd) r->viaTrackBfdIs(v, true);
      if (*name) r->viaNextHopNameIs(v, name);
    }
    return r;
  }
};

class StaticRouteEditing : public testing::Test {
 protected:
  std::string add(const Line& l) {
    return std::string(Rova::StaticRouteEditor().addRoute(config_, *l.route()).view());
  }
  bool remove(const Line& l, bool everyPreference = false) {
    return Rova::StaticRouteEditor().removeRoute(config_, *l.route(), everyPreference);
  }
  // The running configuration of what the editor made.
  std::string saved() const {
    return Rova::StaticRoutesCliSaver()
        .save(config_, false, "ip route ", Rova::RovaConsts())
        .stringValue();
  }
  void installDynamic(const char* prefix, Routing::RoutePreference preference) {
    const Routing::RouteKey key(IpGenPrefix::fromString(prefix), preference);
    auto r = Mox::makePtr<Routing::Route>(key);
    r->routeTypeIs(RouteType::forward);
    r->dynamicIs(true);
    r->viaIs(via("10.9.9.9"), true);
    config_->routeIs(key, r);
  }
  Mox::Ptr<Routing::Route> at(const char* prefix, Routing::RoutePreference preference = 1) const {
    return config_->route(Routing::RouteKey(IpGenPrefix::fromString(prefix), preference));
  }

  Mox::Ptr<Routing::ConfigGen> config_ = Mox::makePtr<Routing::ConfigGen>();
};

TEST_F(StaticRouteEditing, AViaJoinsTheForwardingRouteAtItsPreference) {
  EXPECT_EQ(add({"10.1.0.0/16", 1, RouteType::forward, {via("10.0.0.1")}}), "");
  EXPECT_EQ(add({"10.1.0.0/16", 1, RouteType::forward, {via("", "Ethernet2")}, 7}), "");
  // The same via again is one via, not two; another preference is another route.
  EXPECT_EQ(add({"10.1.0.0/16", 1, RouteType::forward, {via("10.0.0.1")}, 7}), "");
  EXPECT_EQ(add({"10.1.0.0/16", 20, RouteType::forward, {via("10.0.0.3")}}), "");
  // The last line's tag is the route's, so each of its lines says it.
  EXPECT_EQ(saved(),
            "ip route 10.1.0.0/16 Ethernet2 tag 7\n"
            "ip route 10.1.0.0/16 10.0.0.1 tag 7\n"
            "ip route 10.1.0.0/16 10.0.0.3 20\n");
}

TEST_F(StaticRouteEditing, AnotherKindReplacesWhatIsAtThePreference) {
  add({"10.1.0.0/16", 1, RouteType::forward, {via("10.0.0.1"), via("10.0.0.2")}, 0, "up"});
  EXPECT_EQ(add({"10.1.0.0/16", 1, RouteType::drop, {}, 0, "sink"}), "");
  EXPECT_EQ(saved(), "ip route 10.1.0.0/16 Null0 name sink\n");
  EXPECT_EQ(at("10.1.0.0/16")->vias(), 0u);
  EXPECT_EQ(at("10.1.0.0/16")->viaNextHopNames(), 0u);

  // A via replaces a drop or nexthop-group route in turn, and starts from no vias.
  EXPECT_EQ(add({"10.1.0.0/16", 1, RouteType::nexthopGroup, {}, 0, "g1"}), "");
  EXPECT_EQ(add({"10.1.0.0/16", 1, RouteType::forward, {via("10.0.0.5")}}), "");
  EXPECT_EQ(saved(), "ip route 10.1.0.0/16 10.0.0.5\n");
  EXPECT_TRUE(at("10.1.0.0/16")->nexthopGroupName().empty());
}

TEST_F(StaticRouteEditing, AViasTrackingAndNameAreThoseOfItsLastLine) {
  Line named{"10.1.0.0/16", 1, RouteType::forward, {via("10.0.0.1")}, 0, "core"};
  named.trackBfd = true;
  add(named);
  add({"10.1.0.0/16", 1, RouteType::forward, {via("10.0.0.2")}, 0, "edge"});
  EXPECT_EQ(saved(),
            "ip route 10.1.0.0/16 10.0.0.1 track bfd name core\n"
            "ip route 10.1.0.0/16 10.0.0.2 name edge\n");
  // The first via entered again, plainly: its name and tracking go, the other via's stay.
  add({"10.1.0.0/16", 1, RouteType::forward, {via("10.0.0.1")}});
  EXPECT_EQ(saved(),
            "ip route 10.1.0.0/16 10.0.0.1\n"
            "ip route 10.1.0.0/16 10.0.0.2 name edge\n");
  EXPECT_EQ(at("10.1.0.0/16")->viaTrackBfds(), 0u);
}

TEST_F(StaticRouteEditing, AnAgentsRouteIsNeitherJoinedReplacedNorRemoved) {
  installDynamic("10.1.0.0/16", 1);
  EXPECT_EQ(add({"10.1.0.0/16", 1, RouteType::forward, {via("10.0.0.1")}}),
            "A dynamic static route holds 10.1.0.0/16 at preference 1; configure another "
            "preference");
  EXPECT_FALSE(add({"10.1.0.0/16", 1, RouteType::drop}).empty());
  // Another preference is free.
  EXPECT_EQ(add({"10.1.0.0/16", 5, RouteType::drop}), "");

  EXPECT_FALSE(remove({"10.1.0.0/16", 1}));
  EXPECT_FALSE(remove({"10.1.0.0/16", 1, RouteType::forward, {via("10.9.9.9")}}));
  EXPECT_TRUE(remove({"10.1.0.0/16"}, true));  // the configured drop route at 5 goes
  ASSERT_TRUE(at("10.1.0.0/16"));
  EXPECT_TRUE(at("10.1.0.0/16")->dynamic());
  EXPECT_EQ(at("10.1.0.0/16")->vias(), 1u);
  EXPECT_FALSE(at("10.1.0.0/16", 5));
}

TEST_F(StaticRouteEditing, AWholeRouteGoesByPreferenceOrWithEveryPreference) {
  add({"10.1.0.0/16", 1, RouteType::forward, {via("10.0.0.1"), via("10.0.0.2")}});
  add({"10.1.0.0/16", 50, RouteType::drop});  // a floating route behind it
  add({"10.1.0.0/24", 50, RouteType::drop});  // a longer prefix is another prefix
  // At one preference: whatever its kind, the rest of the prefix stays.
  EXPECT_TRUE(remove({"10.1.0.0/16", 50}));
  EXPECT_FALSE(remove({"10.1.0.0/16", 50}));  // nothing left there
  EXPECT_EQ(saved(),
            "ip route 10.1.0.0/16 10.0.0.1\n"
            "ip route 10.1.0.0/16 10.0.0.2\n"
            "ip route 10.1.0.0/24 Null0 50\n");
  add({"10.1.0.0/16", 50, RouteType::drop});
  // With every preference: both routes of the prefix.
  EXPECT_TRUE(remove({"10.1.0.0/16"}, true));
  EXPECT_EQ(saved(), "ip route 10.1.0.0/24 Null0 50\n");
}

TEST_F(StaticRouteEditing, AViaGoesAloneAndTheRouteWithItsLastVia) {
  Line two{"10.1.0.0/16",
           1,
           RouteType::forward,
           {via("10.0.0.1"), via("10.0.0.2", "Ethernet1")},
           0,
           "n"};
  two.trackBfd = true;
  add(two);
  // A via is named by where it leads: a label on the `no` line does not stop it matching, an
  // interface it lacks does.
  Routing::Via labelled = via("10.0.0.1");
  labelled.mplsLabelIs(Plexa::MplsLabel(16));
  EXPECT_FALSE(remove({"10.1.0.0/16", 1, RouteType::forward, {via("10.0.0.2")}}));
  EXPECT_FALSE(remove({"10.1.0.0/16", 9, RouteType::forward, {via("10.0.0.1")}}));
  EXPECT_TRUE(remove({"10.1.0.0/16", 1, RouteType::forward, {labelled}}));
  EXPECT_EQ(saved(), "ip route 10.1.0.0/16 Ethernet1 10.0.0.2 track bfd name n\n");
  EXPECT_EQ(at("10.1.0.0/16")->viaNextHopNames(), 1u);
  EXPECT_EQ(at("10.1.0.0/16")->viaTrackBfds(), 1u);

  EXPECT_TRUE(remove({"10.1.0.0/16", 1, RouteType::forward, {via("10.0.0.2", "Ethernet1")}}));
  EXPECT_FALSE(at("10.1.0.0/16"));
}

TEST_F(StaticRouteEditing, AKindsLineRemovesOnlyARouteOfThatKind) {
  add({"10.1.0.0/16", 1, RouteType::forward, {via("10.0.0.1")}});
  add({"10.2.0.0/16", 1, RouteType::nexthopGroup, {}, 0, "g1"});
  EXPECT_FALSE(remove({"10.1.0.0/16", 1, RouteType::drop}));
  EXPECT_FALSE(remove({"10.2.0.0/16", 1, RouteType::forward, {via("10.0.0.1")}}));
  EXPECT_TRUE(remove({"10.2.0.0/16", 1, RouteType::nexthopGroup}));
  EXPECT_EQ(saved(), "ip route 10.1.0.0/16 10.0.0.1\n");
}

TEST_F(StaticRouteEditing, ALineThatCannotBeARouteIsRefused) {
  EXPECT_EQ(add({"10.1.0.0/16"}),
            "A static route needs a next hop, an interface, Null0 or Nexthop-Group");
  EXPECT_EQ(config_->routes(), 0u);
  config_ = nullptr;
  EXPECT_EQ(add({"10.1.0.0/16", 1, RouteType::drop}), "The VRF has no routing configuration");
  EXPECT_FALSE(remove({"10.1.0.0/16"}, true));
}

// The front ends reach the editor by name; it is not one of the listed command objects.
TEST_F(StaticRouteEditing, ThroughTheRegistry) {
  const auto& reg = Rova::TypeRegistry::instance();
  EXPECT_EQ(reg.find("Rova::StaticRouteEditor"), nullptr);
  Rova::Value editor = reg.construct("Rova::StaticRouteEditor", {});
  const Rova::Value add[] = {Rova::toValue(config_),
                             Rova::toValue(Line{"10.1.0.0/16", 1, RouteType::drop}.route())};
  EXPECT_EQ(reg.call(editor, "addRoute", add), Rova::Value(""));
  const Rova::Value remove[] = {add[0], add[1], Rova::Value(false)};
  EXPECT_EQ(reg.call(editor, "removeRoute", remove), Rova::Value(true));
  EXPECT_EQ(config_->routes(), 0u);
}

}  // namespace
