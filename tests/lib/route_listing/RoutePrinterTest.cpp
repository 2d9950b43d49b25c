// Route printing where the golden listings cannot reach: a nexthop group without a name, a
// host route to the CPU, an interrupt between the host listing and the route listing, and the
// kernel's marks on a table of many refusals that changes under the listing.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <type_traits>

#include "lib/common/RouteTypes.h"
#include "lib/route_listing/internal/RouteListing.h"
#include "lib/route_listing/internal/RoutePrinter.h"
#include "platform/rendr/Interrupt.h"
#include "tests/lib/route_listing/SorterFixture.h"
#include "tests/support/Capture.h"

namespace {

using namespace Rova;
using namespace Rova::test;

std::string printed(RouteSorter& s) {
  return rovatest::writtenBy(
      [&](int fd) { s.printRoutes(static_cast<std::uint32_t>(fd), rendr::kFormatText); });
}

TEST(RoutePage, NexthopGroupWithoutANameAndAMissingFec) {
  State st;
  const Brine::Fib::FecId nhg(Brine::Fib::AdjType::nexthopGroupAdj, 9);
  st.route4("10.70.0.0/24", RT4::nexthopGroupStaticRoute, nhg.value());
  EXPECT_NE(printed(*st.sorter4()).find(" NG     10.70.0.0/24 [0/0] via NexthopGroupUnknown, 9\n"),
            std::string::npos);
}

// Every route type, both flags either way, and preferences and metrics at their limits: each
// route's object starts with its facts in this order, the document is laid out as a pretty
// printer lays it out, and its vias follow. In both families.
template <bool kV6, class Routes, class Types>
void checkRouteHeads(State& st, Routes& routes, const Types& types) {
  using Route = typename std::decay_t<decltype(*routes)>::Record;
  const std::uint32_t metrics[] = {0, UINT32_MAX, 1, 20};
  const std::uint8_t preferences[] = {0, 255, 1, 200};
  nlohmann::ordered_json expected = nlohmann::ordered_json::object();
  std::size_t i = 0;
  for (const auto& [type, strings] : types) {
    // Not routes this table lists: an invalid or martian one, and a connected one off its
    // interface.
    const std::string word = strings.word;
    if (word.empty() || word == "connected" || word == "martian") continue;
    Route r;
    const std::string prefix =
        kV6 ? "2001:db8:" + std::to_string(i + 1) + "::/48" : "10." + std::to_string(i) + ".0.0/16";
    r.prefix = decltype(r.prefix)::fromString(prefix);
    r.routeType = type;
    r.fecId = Brine::Fib::FecId(1);
    r.metric = metrics[i % 4];
    r.preference = preferences[i % 4];
    r.hardwareProgrammed = i % 3 != 0;
    routes->recordIs(r);
    const bool kernel = i % 2 == 0;
    if (!kernel) st.kernel->recordIs({Plexa::IpGenPrefix::fromString(prefix)});
    auto& e = expected[prefix];
    e["hardwareProgrammed"] = r.hardwareProgrammed;
    e["routeType"] = strings.word;
    e["kernelProgrammed"] = kernel;
    e["directlyConnected"] = false;
    e["routeAction"] = "forward";
    e["preference"] = r.preference;
    e["metric"] = r.metric;
    ++i;
  }
  std::string out;
  if constexpr (kV6) {
    auto s = st.sorter6();
    out = rovatest::writtenBy(
        [&](int fd) { s->printRoutes(static_cast<std::uint32_t>(fd), rendr::kFormatJson); });
  } else {
    auto s = st.sorter4();
    out = rovatest::writtenBy(
        [&](int fd) { s->printRoutes(static_cast<std::uint32_t>(fd), rendr::kFormatJson); });
  }
  const auto doc = nlohmann::ordered_json::parse(out);
  EXPECT_EQ(out, doc.dump(2) + "\n");
  std::size_t checked = 0;
  for (const auto& [prefix, want] : expected.items()) {
    SCOPED_TRACE(prefix + " " + want["routeType"].dump());
    ASSERT_TRUE(doc["routes"].contains(prefix));
    auto got = doc["routes"][prefix];
    if (want["routeType"] == "dropRoute" || want["routeType"] == "drop") {
      EXPECT_EQ(got["routeAction"], "drop");
      ++checked;
      continue;
    }
    ASSERT_EQ(got["vias"].size(), 2u);
    got.erase("vias");
    EXPECT_EQ(got, want);  // the members and their order
    ++checked;
  }
  EXPECT_EQ(checked, expected.size());
}

TEST(RouteJson, EveryRouteHeadHoldsItsFacts) {
  {
    State st;
    st.fec4(1, {{"10.255.0.1", "Ethernet1"}, {"10.255.0.2", "Ethernet2"}});
    checkRouteHeads<false>(st, st.routes4, routeTypeStrings4());
  }
  {
    State st;
    st.fec6(1, {{"fe80::1", "Ethernet1"}, {"fe80::2", "Ethernet2"}});
    checkRouteHeads<true>(st, st.routes6, routeTypeStrings6());
  }
}

// A via to the CPU says so, and still names its interface like any other via.
TEST(HostPage, AViaToTheCpuNamesItsInterface) {
  State st;
  st.fec4(1, {{"10.1.1.5", "Cpu"}});
  st.fec4(2, {{"10.1.1.16", "Ethernet1"}, {"10.1.1.16", "Cpu"}});
  st.route4("10.1.1.17/32", RT4::eBgp, 1);
  st.route4("10.1.1.16/32", RT4::eBgp, 2);
  const std::string out = printed(*st.sorter4({.host = true}));
  EXPECT_NE(out.find(" F  10.1.1.16/32 via 10.1.1.16 to cpu on Cpu\n"
                     "                 via 10.1.1.16 on Ethernet1\n"
                     " F  10.1.1.17/32 via 10.1.1.5 to cpu on Cpu\n"),
            std::string::npos)
      << out;
}

TEST(Interrupt, HostListingGivesWayToTheRouteListing) {
  State st;
  st.fec4(1, {{"10.0.0.1", "Ethernet1"}});
  st.route4("10.1.0.0/16", RT4::ospfIntraArea, 1);
  auto s = st.sorter4({.host = true});
  rendr::installSignalHandlers();
  std::raise(SIGINT);
  const std::string out = printed(*s);
  EXPECT_EQ(out.rfind("exiting on user interrupt\n", 0), 0u) << out.substr(0, 200);
  EXPECT_NE(out.find("Codes: C - connected"), std::string::npos);
  EXPECT_FALSE(rendr::interruptPending());
}

TEST(RouteListingModel, KernelMarksFollowTheKernelTable) {
  State st;
  st.fec4(1, {{"10.0.0.1", "Ethernet1"}});
  std::set<std::string> refused;
  const auto refuse = [&](const std::string& prefix) {
    st.kernel->recordIs({Plexa::IpGenPrefix::fromString(prefix)});
    refused.insert(prefix);
  };
  // Enough refusals that the bitmap in front of the table has bits shared by several prefixes.
  for (int i = 0; i < 3000; ++i) {
    const std::string prefix =
        "10." + std::to_string(i / 256) + "." + std::to_string(i % 256) + ".0/24";
    st.route4(prefix.c_str(), RT4::ospfIntraArea, 1);
    if (i % 3 == 0) refuse(prefix);
  }
  st.route4("10.0.1.0/25", RT4::ospfIntraArea, 1);
  // The same bits in IPv6 say nothing of an IPv4 route.
  st.kernel->recordIs({Plexa::IpGenPrefix::fromString("a00:100::/24")});
  auto s = st.sorter4();
  const RouteListing<RouteSorter> model(*s);
  const auto marked = [&] {
    std::set<std::string> unprogrammed;
    model.forEachRow(true, [&](const auto& row) {
      if (!row.line.kernelProgrammed) unprogrammed.emplace(row.line.prefix);
    });
    return unprogrammed;
  };
  EXPECT_EQ(marked(), refused);

  // Written after the model was made: the rows read the table as it is now.
  st.kernel->recordDel(Plexa::IpGenPrefix::fromString("10.0.0.0/24"));
  refused.erase("10.0.0.0/24");
  refuse("10.0.1.0/25");
  refuse("10.0.2.0/24");
  EXPECT_EQ(marked(), refused);
}

}  // namespace
