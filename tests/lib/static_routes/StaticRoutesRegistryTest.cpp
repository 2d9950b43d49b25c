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

TEST(StaticRoutesRegistry, SaverParsesFromItsTextForm) {
  Value saver = reg().parse("Value('Rova::StaticRoutesCliSaver', ** {'sortedRoute': None})");
  EXPECT_EQ(saver.kindName(), "Rova::StaticRoutesCliSaver");
  EXPECT_THROW(reg().parse("Value('Rova::StaticRoutesCliSaver', ** {'sortedRoute': 1})"),
               Mox::RangeException);
  EXPECT_THROW(
      reg().parse("Value('Rova::RouteSortKey', ** {'prefix': '10.0.0.0/8', 'preference': 256})"),
      Mox::RangeException);
}

}  // namespace
