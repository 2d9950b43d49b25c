// Route printing where the golden listings cannot reach: a nexthop group without a name, and
// an interrupt between the host listing and the route listing.
#include <gtest/gtest.h>

#include <csignal>

#include "lib/route_listing/RoutePrinter.h"
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

}  // namespace
