#include <gtest/gtest.h>

#include "platform/mox/Dir.h"
#include "platform/mox/TextForm.h"
#include "platform/state/Interface.h"
#include "platform/state/Ip.h"
#include "platform/state/RoutingConfig.h"
#include "platform/statum/EntityManager.h"

namespace {

Routing::Via via(const char* hop, const char* intf) {
  Routing::Via v;
  v.hopIs(Plexa::IpGenAddr::fromString(hop));
  v.intfIdIs(Plexa::IntfId(intf));
  return v;
}

TEST(RoutingConfig, ViasOrderByAddressThenInterfaceAndKeyTheirMaps) {
  auto route = Mox::makePtr<Routing::Route>(
      Routing::RouteKey(Plexa::IpGenPrefix::fromString("10.0.0.0/8"), 1));
  route->viaIs(via("10.0.0.9", "Ethernet2"), true);
  route->viaIs(via("10.0.0.10", "Ethernet1"), true);
  route->viaIs(via("10.0.0.9", "Ethernet10"), true);
  route->viaNextHopNameIs(via("10.0.0.9", "Ethernet2"), "core");
  std::vector<std::string> order;
  for (const auto& v : route->via())
    order.push_back(v.hop().stringValue() + " " + v.intfId().stringValue());
  EXPECT_EQ(order, (std::vector<std::string>{"10.0.0.9 Ethernet2", "10.0.0.9 Ethernet10",
                                             "10.0.0.10 Ethernet1"}));
  EXPECT_EQ(route->viaNextHopName(via("10.0.0.9", "Ethernet2")), "core");
  EXPECT_EQ(route->viaNextHopName(via("10.0.0.9", "Ethernet10")), "");
  route->viaDel(via("10.0.0.9", "Ethernet2"));
  route->viaNextHopNameDel(via("10.0.0.9", "Ethernet2"));
  EXPECT_EQ(route->vias(), 2u);
  EXPECT_EQ(route->viaNextHopNames(), 0u);

  Routing::ConfigGen config;
  config.routeIs(route->key(), route);
  EXPECT_EQ(config.route(route->key()), route);
  // The same prefix at another preference is another route.
  EXPECT_EQ(config.route(Routing::RouteKey(route->prefix(), 200)), nullptr);
}

TEST(RoutingConfig, ValuesWriteAndParseTheirTextForm) {
  Routing::Via v = via("10.2.2.2", "Ethernet1");
  v.mplsLabelIs(Plexa::MplsLabel(100));
  const std::string text = Mox::textOf(v);
  EXPECT_EQ(text,
            "Value('Routing::Via', ** {'hop': '10.2.2.2', 'intfId': 'Ethernet1', 'mplsLabel': "
            "'100', 'vtepAddr': '', 'vni': 'none', 'routerMac': '00:00:00:00:00:00'})");
  EXPECT_EQ(Mox::valueFromText<Routing::Via>(text), v);
}

// Readers mount by path and expected type; the messages name both, since a wrong layout shows
// up as one of them.
TEST(EntityManager, MountRefusesAMissingPathOrAnotherTypeNamingBoth) {
  Statum::EntityManager em;
  em.entityIs("ip/config", Mox::makePtr<Ip::Config>());
  try {
    em.mount("ip/config", "Ip6::Config");
    FAIL();
  } catch (const Mox::RangeException& e) {
    EXPECT_EQ(std::string(e.what()), "entity at 'ip/config' is a Ip::Config, not a Ip6::Config");
  }
  try {
    em.mount("ip/nothing", "Ip::Config");
    FAIL();
  } catch (const Mox::RangeException& e) {
    EXPECT_EQ(std::string(e.what()), "no entity at 'ip/nothing'");
  }
  EXPECT_EQ(em.find<Ip6::Config>("ip/config"), nullptr);
  EXPECT_EQ(em.find<Ip::Config>("ip/nothing"), nullptr);
}

// Value texts name an entity by its path, so the path it learns must be the one it is kept at,
// also when it replaces another.
TEST(EntityManager, AnEntityWrittenAtAPathReplacesTheOldOneAndLearnsThePath) {
  Statum::EntityManager em;
  auto first = Mox::makePtr<Ip::Config>();
  auto second = Mox::makePtr<Ip::Config>();
  em.entityIs("ip/config", first);
  em.entityIs("ip/config", second);
  EXPECT_EQ(em.entities().size(), 1u);
  EXPECT_EQ(em.mount<Ip::Config>("ip/config"), second);
  EXPECT_EQ(second->path(), "ip/config");
  EXPECT_EQ(Mox::textOf(em.mount<Ip::Config>("ip/config")), "Ptr('Ip::Config', 'ip/config')");
}

TEST(Dir, TypedLookupIsEmptyWhenMissingOrOfAnotherTypeAndEntriesGoInNameOrder) {
  Mox::Dir dir;
  dir.entityIs("static", Mox::makePtr<Ip::Config>());
  dir.entityIs("sr", Mox::makePtr<Ip::Config>());
  dir.entityIs("bgpLu", Mox::makePtr<Ip6::Config>());
  EXPECT_NE(dir.entity<Ip::Config>("sr"), nullptr);
  EXPECT_EQ(dir.entity<Ip6::Config>("sr"), nullptr);
  EXPECT_EQ(dir.entity<Ip::Config>("ldp"), nullptr);
  std::vector<std::string> names;
  for (const auto& [name, entity] : dir.entries())
    names.push_back(name.stringValue());
  EXPECT_EQ(names, (std::vector<std::string>{"bgpLu", "sr", "static"}));
  EXPECT_TRUE(dir.entityDel("sr"));
  EXPECT_FALSE(dir.entityDel("sr"));
  EXPECT_EQ(dir.entity("sr"), nullptr);
}

}  // namespace
