// The RIB dump of static routes: what the golden files of `show static-routes` (every kind of
// route and via, configured and dynamic, both families) cannot reach.
#include "lib/static_routes/StaticRoutesRibCommon.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/mox/Exception.h"
#include "platform/mox/TextForm.h"

namespace {

using Rova::StaticRoutesRibCommon;

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

TEST(RibRoutes, TheValueTextForm) {
  StaticRoutesRibCommon rib;
  rib.dynamicIs(true);
  EXPECT_EQ(Mox::textOf(rib),
            "Value('Rova::StaticRoutesRibCommon', ** {'sortedRoute': None, 'allIntfConfig': "
            "None, 'dynamic': True, 'fd': 1, 'fmt': 1, 'routeInputConf': None})");
}

}  // namespace
