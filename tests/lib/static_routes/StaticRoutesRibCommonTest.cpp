// The RIB dump of static routes: what the golden files of `show static-routes` (every kind of
// route and via, configured and dynamic, both families) cannot reach.
#include "lib/static_routes/StaticRoutesRibCommon.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "platform/mox/Exception.h"
#include "platform/rendr/Printer.h"

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

Mox::Ptr<Routing::ConfigGen> dropRoutes(
    std::initializer_list<std::pair<const char*, bool>> routes) {
  auto config = Mox::makePtr<Routing::ConfigGen>();
  for (const auto& [prefix, dynamic] : routes) {
    const Routing::RouteKey key(Plexa::IpGenPrefix::fromString(prefix), 1);
    auto r = Mox::makePtr<Routing::Route>(key);
    r->routeTypeIs(Routing::RouteType::drop);
    r->dynamicIs(dynamic);
    config->routeIs(key, r);
  }
  return config;
}

// The prefixes a dump lists, in its order, from the inputs the front end cannot give: a null
// one (a script may pass None) and two holding routes of both kinds.
std::string dumped(bool dynamic) {
  StaticRoutesRibCommon rib;
  rib.newRouteInputConf(dropRoutes({{"10.2.0.0/16", false}, {"10.3.0.0/16", true}}), true);
  rib.newRouteInputConf(nullptr, true);
  rib.newRouteInputConf(dropRoutes({{"10.1.0.0/16", false}, {"10.4.0.0/16", true}}), true);
  rib.dynamicIs(dynamic);
  int fds[2];
  if (::pipe(fds) != 0) return "no pipe";
  rib.fdIs(static_cast<std::uint32_t>(fds[1]));
  rib.fmtIs(rendr::kFormatText);
  rib.dump(Rova::RovaConsts());
  ::close(fds[1]);
  std::string out, prefixes;
  char buf[4096];
  for (ssize_t n; (n = ::read(fds[0], buf, sizeof buf)) > 0;)
    out.append(buf, static_cast<std::size_t>(n));
  ::close(fds[0]);
  for (std::size_t at = 0; (at = out.find("D    ", at)) != std::string::npos; at += 5)
    prefixes += out.substr(at + 5, out.find(' ', at + 5) - at - 5) + ";";
  return prefixes;
}

TEST(RibRoutes, EveryInputGivesTheRoutesOfTheChosenKindInKeyOrder) {
  EXPECT_EQ(dumped(false), "10.1.0.0/16;10.2.0.0/16;");
  EXPECT_EQ(dumped(true), "10.3.0.0/16;10.4.0.0/16;");
}

}  // namespace
