// The route summaries as the front end reaches them: built by name with named inputs, loaded by
// operation name, read attribute by attribute, and written in their value text form.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "lib/registry/TypeRegistry.h"
#include "platform/brine/Fib.h"
#include "platform/brine/Neighbor.h"
#include "platform/state/NexthopGroupConfig.h"
#include "platform/state/RoutingConfig.h"
#include "platform/state/RoutingHardware.h"
#include "tests/support/Capture.h"

namespace {

using Rova::TypeRegistry;
using Rova::Value;

const TypeRegistry& reg() {
  return TypeRegistry::instance();
}

using rovatest::errorOf;

Value entity(Mox::Ptr<Mox::Entity> e) {
  return Value(std::move(e));
}

TEST(RouteSummaryRegistry, BuiltByNameLoadedByOperationNameAndReadByAttribute) {
  auto routes = Mox::makePtr<Brine::Fib6::RouteStatus>();
  for (const char* p : {"2001:db8:1::/48", "2001:db8:2::/48"}) {
    Brine::Fib6::Route r;
    r.prefix = Plexa::Ip6Prefix::fromString(p);
    r.routeType = Routing6::Fib::RouteType::bgp;
    routes->recordIs(r);
  }
  auto arp = Mox::makePtr<Arp::Table::Status>();
  Arp::Table::ArpEntry n;
  n.arpKey = {0, Plexa::IpGenAddr::fromString("2001:db8::2"), Plexa::IntfId("Ethernet1")};
  arp->recordIs(n);

  Value s = reg().construct("Rova::Route6Summary", {{"routingStatus", entity(routes)},
                                                    {"arpBrine", entity(arp)},
                                                    {"vrfName", Value("default")}});
  reg().call(s, "loadInternalStructures", {});
  reg().call(s, "loadAttachedRoutes", {});

  std::vector<std::string> byType, byMask;
  for (auto c = reg().iterate(s, "routeCountByType"); c->valid(); c->next())
    byType.push_back(c->key().text() + "=" + c->value().text());
  for (auto c = reg().iterate(s, "routeCountByMask"); c->valid(); c->next())
    byMask.push_back(c->key().text() + "=" + c->value().text());
  std::sort(byType.begin(), byType.end());
  EXPECT_EQ(byType, (std::vector<std::string>{"'attached'=1", "'bgpTotal'=2"}));
  EXPECT_EQ(byMask, (std::vector<std::string>{"48=2", "128=1"}));
  EXPECT_EQ(reg().attribute(s, "totalNumRoutes"), Value(3u));

  // Collections are never carried in the text form; handles write their type.
  EXPECT_EQ(reg().text(s),
            "Value('Rova::Route6Summary', ** {'routingConfig': None, "
            "'routingStatus': Ptr('Brine::Fib6::RouteStatus'), "
            "'arpBrine': Ptr('Arp::Table::Status'), 'vrfIdMap': None, 'vrfName': 'default', "
            "'routeCountByType': None, 'routeCountByMask': None, 'totalNumRoutes': 3})");
}

TEST(RouteSummaryRegistry, BothLoadByNameAndRefuseAnOverlongVrf) {
  for (const char* type : {"Rova::RouteSummary", "Rova::Route6Summary"}) {
    SCOPED_TRACE(type);
    const auto& t = reg().type(type);
    EXPECT_NE(t.op("loadInternalStructures"), nullptr);
    EXPECT_NE(t.op("loadAttachedRoutes"), nullptr);

    const std::string longName(101, 'v');
    EXPECT_EQ(
        errorOf([&] {
          reg().construct(type, {{"routingStatus", Value()}, {"vrfName", Value(longName.c_str())}});
        }),
        "argument 'vrfName': VrfName::bytes > 100 not allowed");
    EXPECT_EQ(errorOf([&] {
                reg().construct(type, {{"vrfName", Value("default")}});
              }),
              std::string(type) + " needs the constructor input 'routingStatus'");
  }
}

}  // namespace
