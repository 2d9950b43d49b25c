// Route printing where the golden listings cannot reach: a nexthop group without a name, a
// host route to the CPU, an interrupt between the host listing and the route listing, and the
// kernel's marks on a table of many refusals that changes under the listing.
#include <gtest/gtest.h>

#include <csignal>
#include <set>
#include <string>

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
