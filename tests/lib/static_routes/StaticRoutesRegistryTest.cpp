// The static route types as the front end reaches them: by name, through the registry.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lib/registry/TypeRegistry.h"
#include "platform/state/RoutingConfig.h"

namespace {

using Rova::TypeRegistry;
using Rova::Value;

const TypeRegistry& reg() {
  return TypeRegistry::instance();
}

Mox::Ptr<Routing::ConfigGen> config() {
  auto c = Mox::makePtr<Routing::ConfigGen>();
  const auto add = [&](const char* prefix, Routing::RoutePreference pref) {
    const Routing::RouteKey k(Plexa::IpGenPrefix::fromString(prefix), pref);
    auto r = Mox::makePtr<Routing::Route>(k);
    r->routeTypeIs(Routing::RouteType::drop);
    c->routeIs(k, r);
  };
  add("10.0.0.0/16", 1);
  add("10.0.0.0/8", 7);
  return c;
}

TEST(StaticRoutesRegistry, SaverIsBuiltByNameAndSaves) {
  Value saver = reg().construct("Rova::StaticRoutesCliSaver", {});
  const Value args[] = {Value(Mox::Ptr<Mox::Entity>(config())), Value(false), Value("ip route "),
                        reg().construct("Rova::RovaConsts", {})};
  EXPECT_EQ(reg().call(saver, "save", args),
            Value("ip route 10.0.0.0/8 Null0 7\nip route 10.0.0.0/16 Null0\n"));

  // The collected routes stay readable, in output order.
  std::vector<std::string> keys;
  for (auto c = reg().iterate(saver, "sortedRoute"); c->valid(); c->next())
    keys.push_back(c->key().text() + " -> " + c->value().text());
  EXPECT_EQ(keys, (std::vector<std::string>{
                      "Value('Rova::RouteSortKey', ** {'prefix': '10.0.0.0/8', 'preference': 7}) "
                      "-> Value('Rova::NexthopInfo', ** {'nexthopCmd': ' Null0 7', "
                      "'sortedVia': None})",
                      "Value('Rova::RouteSortKey', ** {'prefix': '10.0.0.0/16', "
                      "'preference': 1}) -> Value('Rova::NexthopInfo', ** {'nexthopCmd': "
                      "' Null0', 'sortedVia': None})"}));
}

TEST(StaticRoutesRegistry, SaveIsDeclaredWithItsArguments) {
  const auto& t = reg().type("Rova::StaticRoutesCliSaver");
  EXPECT_EQ(t.kind, Rova::TypeKind::entity);
  EXPECT_TRUE(t.constructorInputs.empty());
  const auto* save = t.op("save");
  ASSERT_NE(save, nullptr);
  std::vector<std::string> params;
  for (const auto& p : save->params)
    params.push_back(p.name + ":" + p.typeName);
  EXPECT_EQ(params,
            (std::vector<std::string>{"config:Routing::ConfigGen", "saveAll:bool",
                                      "routeCmd:Mox::String8", "rovaConsts:Rova::RovaConsts"}));
  EXPECT_EQ(save->resultType, "Mox::String8");
  ASSERT_EQ(t.attrs.size(), 1u);
  EXPECT_EQ(t.attrs[0].name, "sortedRoute");
  EXPECT_FALSE(t.attrs[0].writable);
}

TEST(StaticRoutesRegistry, SaverParsesFromItsTextForm) {
  Value saver = reg().parse("Value('Rova::StaticRoutesCliSaver', ** {'sortedRoute': None})");
  EXPECT_EQ(saver.kindName(), "Rova::StaticRoutesCliSaver");
  EXPECT_THROW(reg().parse("Value('Rova::StaticRoutesCliSaver', ** {'sortedRoute': 1})"),
               Mox::RangeException);
}

TEST(StaticRoutesRegistry, RouteSortKeyTextFormRoundTrips) {
  const Value args[] = {Value("2001:db8::/32"), Value(200u)};
  Value k = reg().construct("Rova::RouteSortKey", args);
  const std::string text = k.text();
  EXPECT_EQ(text, "Value('Rova::RouteSortKey', ** {'prefix': '2001:db8::/32', 'preference': 200})");
  EXPECT_EQ(reg().parse(text), k);
  EXPECT_THROW(
      reg().parse("Value('Rova::RouteSortKey', ** {'prefix': '10.0.0.0/8', 'preference': 256})"),
      Mox::RangeException);
}

TEST(StaticRoutesRegistry, NexthopInfoTextFormLeavesOutItsVias) {
  Value info = reg().construct("Rova::NexthopInfo", {});
  reg().attributeIs(info, "nexthopCmd", Value(" Nexthop-Group G1"));
  const std::string text = info.text();
  EXPECT_EQ(text,
            "Value('Rova::NexthopInfo', ** {'nexthopCmd': ' Nexthop-Group G1', "
            "'sortedVia': None})");
  EXPECT_EQ(reg().parse(text), info);
}

}  // namespace
