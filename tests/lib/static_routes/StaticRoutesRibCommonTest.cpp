// The RIB dump of static routes: what the golden files of `show static-routes` (every kind of
// route and via, configured and dynamic, both families) cannot reach.
#include "lib/static_routes/StaticRoutesRibCommon.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "lib/static_routes/RibListing.h"

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

// ---- what the dump shows of each route: the cases the loader refuses or the goldens miss ----

using Plexa::IntfId;
using Plexa::IpGenAddr;
using Routing::RouteType;
using Rova::RibRowForm;

Routing::Via via(const char* hop, const char* intf,
                 std::uint32_t label = Plexa::MplsLabel::kNoLabel) {
  Routing::Via v;
  if (*hop) v.hopIs(IpGenAddr::fromString(hop));
  v.intfIdIs(IntfId(intf));
  v.mplsLabelIs(Plexa::MplsLabel(label));
  return v;
}

// The routes of a dump, each as the model shows it.
class Dump {
 public:
  Dump() : intfs_(Mox::makePtr<Interface::AllIntfConfigDir>()) {
    rib_ = Mox::makePtr<StaticRoutesRibCommon>(intfs_);
  }

  Routing::Route& route(const char* prefix, RouteType type) {
    auto r =
        Mox::makePtr<Routing::Route>(Routing::RouteKey(Plexa::IpGenPrefix::fromString(prefix), 1));
    r->routeTypeIs(type);
    rib_->sortedRouteIs(r);
    return *r;
  }
  void describe(const char* intf, const char* description) {
    auto config = Mox::makePtr<Interface::IntfConfig>(IntfId(intf));
    config->descriptionIs(description);
    intfs_->intfConfigIs(IntfId(intf), config);
  }

  struct Shown {
    RibRowForm form;
    bool showDropName;
    std::string dropName;
    std::vector<Rova::RibVia> vias;
  };
  std::vector<Shown> rows(const char* defaultName = "") const {
    Rova::RovaConsts consts;
    consts.defaultStaticRouteNameIs(defaultName);
    std::vector<Shown> out;
    Rova::RibListing(*rib_, consts).forEachRow([&](const Rova::RibRow& row) {
      out.push_back({row.form, row.showDropName, row.dropName.stringValue(), row.vias});
    });
    return out;
  }

 private:
  Mox::Ptr<Interface::AllIntfConfigDir> intfs_;
  Mox::Ptr<StaticRoutesRibCommon> rib_;
};

TEST(RibDumpShows, ALabelOnlyAfterANextHop) {
  Dump d;
  Routing::Route& r = d.route("10.0.0.0/8", RouteType::forward);
  r.viaIs(via("10.1.1.1", "", 3000), true);
  r.viaIs(via("10.1.1.2", "Ethernet1"), true);
  // The loader refuses a label without a next hop; the dump does not show one either.
  r.viaIs(via("", "Ethernet2", 3000), true);
  const auto rows = d.rows();
  ASSERT_EQ(rows.size(), 1u);
  ASSERT_EQ(rows[0].vias.size(), 3u);  // in the route's order: the via without a next hop first
  EXPECT_FALSE(rows[0].vias[0].showLabel);
  EXPECT_TRUE(rows[0].vias[1].showLabel);
  EXPECT_EQ(rows[0].vias[1].label, 3000u);
  EXPECT_FALSE(rows[0].vias[2].showLabel);
}

TEST(RibDumpShows, NamesOtherThanTheDefaultAndAnEmptyDropName) {
  Dump d;
  Routing::Route& r = d.route("10.0.0.0/8", RouteType::forward);
  const Routing::Via core = via("10.1.1.1", ""), spare = via("10.1.1.2", ""),
                     unnamed = via("10.1.1.3", "");
  for (const auto& v : {core, spare, unnamed})
    r.viaIs(v, true);
  r.viaNextHopNameIs(core, "core");
  r.viaNextHopNameIs(spare, "spare");
  d.route("10.5.0.0/16", RouteType::drop).dropNextHopNameIs("core");
  d.route("10.6.0.0/16", RouteType::drop);  // no name: shown as an empty one
  d.route("10.7.0.0/16", RouteType::drop).dropNextHopNameIs("sink");

  const auto rows = d.rows("core");
  ASSERT_EQ(rows.size(), 4u);
  ASSERT_EQ(rows[0].vias.size(), 3u);
  EXPECT_EQ(rows[0].vias[0].name, "");
  EXPECT_EQ(rows[0].vias[1].name, "spare");
  EXPECT_EQ(rows[0].vias[2].name, "");
  EXPECT_EQ(rows[1].form, RibRowForm::drop);
  EXPECT_FALSE(rows[1].showDropName);
  EXPECT_TRUE(rows[2].showDropName);
  EXPECT_EQ(rows[2].dropName, "");
  EXPECT_TRUE(rows[3].showDropName);
  EXPECT_EQ(rows[3].dropName, "sink");
  // With no default name, an unnamed drop route shows no name.
  EXPECT_FALSE(d.rows("")[2].showDropName);
}

TEST(RibDumpShows, TheDescriptionOfTheViasOwnInterface) {
  Dump d;
  d.describe("Ethernet1", "uplink");
  d.describe("Ethernet2", "");
  Routing::Route& r = d.route("10.0.0.0/8", RouteType::forward);
  r.viaIs(via("", "Ethernet1"), true);
  r.viaIs(via("", "Ethernet2"), true);
  r.viaIs(via("", "Ethernet3"), true);  // no configuration
  r.viaIs(via("10.1.1.1", ""), true);
  const auto rows = d.rows();
  ASSERT_EQ(rows.size(), 1u);
  ASSERT_EQ(rows[0].vias.size(), 4u);
  EXPECT_EQ(rows[0].vias[0].description, "uplink");
  EXPECT_EQ(rows[0].vias[1].description, "");
  EXPECT_EQ(rows[0].vias[2].description, "");
  EXPECT_EQ(rows[0].vias[3].description, "");
  EXPECT_FALSE(rows[0].vias[3].intf.isValid());
}

}  // namespace
