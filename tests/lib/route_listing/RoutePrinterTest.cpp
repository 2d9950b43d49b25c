// Route printing: page layout rules checked over whole listings (every line, not samples),
// and the cases a small state shows best.
#include <gtest/gtest.h>

#include <csignal>
#include <nlohmann/json.hpp>
#include <sstream>

#include "lib/route_listing/RoutePrinter.h"
#include "platform/rendr/Interrupt.h"
#include "tests/lib/route_listing/ExampleDevice.h"
#include "tests/lib/route_listing/SorterFixture.h"

namespace {

using namespace Rova;
using namespace Rova::test;
using Json = nlohmann::json;

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string l; std::getline(in, l);)
    out.push_back(l);
  return out;
}

// A route line: a mark, a code, a mark, blanks to column 8, the prefix.
bool isRouteLine(const std::string& l) {
  return l.size() > 9 && (l[0] == ' ' || l[0] == '*') && l[1] != ' ' &&
         l.find('/') != std::string::npos && l.rfind("Codes", 0) != 0;
}

TEST(RoutePage, EveryPrefixStartsAtColumnEightAndViasLineUp) {
  ExampleDevice d;
  for (const char* vrf : {"default", "red", "blue"}) {
    auto s = d.sorter4({.vrf = vrf});
    const auto text = lines(printed(*s, rendr::kFormatText));
    std::size_t viaColumn = 0;
    int routes = 0;
    for (const auto& l : text) {
      if (isRouteLine(l)) {
        ++routes;
        ASSERT_TRUE(l[7] == ' ' && l[8] != ' ') << l;
        viaColumn = l.find(" via ") + 1;
      } else if (l.find_first_not_of(' ') == viaColumn && l.compare(viaColumn, 4, "via ") == 0) {
        continue;  // a continuation via, under the first one
      } else if (l.find("via ") != std::string::npos && l.find(" via ") > 40) {
        ADD_FAILURE() << "misaligned via: " << l;
      }
    }
    EXPECT_GE(routes, 2) << vrf;
  }
}

TEST(RoutePage, CodesOfOneAndFourCharactersAndTheMarks) {
  ExampleDevice d;
  const std::string text = printed(*d.sorter4({}), rendr::kFormatText);
  EXPECT_NE(text.find("\n C      10.1.1.0/31 is directly connected, Ethernet1\n"),
            std::string::npos);
  EXPECT_NE(text.find("\n O IA   10.6.0.0/16 [110/40] via 10.1.1.1, Ethernet1\n"
                      "                             via 10.1.2.1, Ethernet2\n"),
            std::string::npos);
  EXPECT_NE(text.find("\n O IA%  10.6.8.0/22 [110/45]"), std::string::npos);
  EXPECT_NE(text.find("\n*B E    10.4.0.0/16 [200/0]"), std::string::npos);
  EXPECT_NE(text.find("\n S      192.0.2.0/24 is directly connected, Null0\n"), std::string::npos);
  EXPECT_NE(text.find("\n C      10.0.0.11/32 is directly connected, Loopback0\n"),
            std::string::npos);
}

TEST(RoutePage, BothBannersAndTheDefaultRouteOnce) {
  ExampleDevice d;
  const std::string text = printed(*d.sorter4({}), rendr::kFormatText);
  const std::string sep = "======================================================\n";
  EXPECT_EQ(text.rfind(sep +
                           "WARNING: Some of the routes are not programmed in     \n"
                           "hardware, and they are marked with '*'.               \n"
                           "WARNING: Some of the routes are not programmed in     \n"
                           "kernel, and they are marked with '%'.                 \n" +
                           sep + "Codes: C - connected",
                       0),
            0u);
  EXPECT_NE(text.find("\nGateway of last resort:\n B E    0.0.0.0/0 [200/0]"), std::string::npos);
  EXPECT_EQ(text.find("0.0.0.0/0"), text.rfind("0.0.0.0/0"));
}

TEST(RoutePage, KernelBannerAloneHasNoSeparatorsAndNoDefaultRouteIsSaid) {
  State st;
  st.fec4(1, {{"10.0.0.1", "Ethernet1"}});
  st.route4("10.1.0.0/16", RT4::ospfIntraArea, 1);
  Brine::KernelUnprogrammedRoute::Entry k;
  k.prefix = Plexa::IpGenPrefix::fromString("10.1.0.0/16");
  st.kernel->recordIs(k);
  auto s = st.sorter4();
  const std::string text = printed(*s, rendr::kFormatText);
  EXPECT_EQ(text.rfind("WARNING: Some of the routes are not programmed in     \n"
                       "kernel, and they are marked with '%'.                 \n"
                       "Codes: ",
                       0),
            0u);
  EXPECT_EQ(text.find("====="), std::string::npos);
  EXPECT_NE(text.find("\nGateway of last resort is not set\n\n O%     10.1.0.0/16 [0/0] via "
                      "10.0.0.1, Ethernet1\n"),
            std::string::npos);
}

TEST(RoutePage, JsonHasTheFlagsButNoBannersLegendOrGateway) {
  ExampleDevice d;
  auto s = d.sorter4({});
  const std::string out = printed(*s, rendr::kFormatJson);
  // The page takes the default route out of the sorted routes in either form, and JSON still
  // lists it, once.
  EXPECT_FALSE(s->sortedRoute().contains(Plexa::Prefix(Plexa::IpAddr(), 0)));
  const Json j = Json::parse(out);
  EXPECT_EQ(j["allRoutesProgrammedHardware"], false);
  EXPECT_EQ(j["allRoutesProgrammedKernel"], false);
  EXPECT_EQ(j["routingDisabled"], false);
  EXPECT_EQ(j["defaultRouteState"], "reachable");
  EXPECT_EQ(out.find("WARNING"), std::string::npos);
  EXPECT_EQ(out.find("Codes"), std::string::npos);
  EXPECT_EQ(out.find("Gateway"), std::string::npos);
  // The default route is listed with the others.
  EXPECT_EQ(j["routes"]["0.0.0.0/0"]["routeType"], "eBGP");
  EXPECT_EQ(out.find("\"0.0.0.0/0\""), out.rfind("\"0.0.0.0/0\""));
  EXPECT_EQ(j["routes"]["10.6.8.0/22"]["kernelProgrammed"], false);
  EXPECT_EQ(j["routes"]["10.53.0.0/16"]["vias"][0]["labelStack"], "900013 900113 100053");
  EXPECT_EQ(j["routes"]["10.52.0.0/16"]["vias"][0]["tunnelDescriptor"]["tunnelType"], "BGP LU");
  EXPECT_EQ(j["routes"]["10.52.0.0/16"]["vias"][0]["lspVias"].size(), 2u);
}

TEST(RoutePage, Ipv6CountAndRoutingEntryLines) {
  ExampleDevice d;
  const std::string all = printed(*d.sorter6({}), rendr::kFormatText);
  EXPECT_EQ(all.rfind("Displaying ", 0), 0u);
  EXPECT_NE(all.find(" of 16 IPv6 routing table entries\n"), std::string::npos);
  const std::string one = printed(*d.sorter6({.prefix = "2001:db8:5::/64"}), rendr::kFormatText);
  EXPECT_EQ(one.rfind("Routing entry for 2001:db8:5::/64\n", 0), 0u);
  const std::string bare =
      printed(*d.sorter6({.prefix = "2001:db8:5::/64", .originalMask = false}), rendr::kFormatText);
  EXPECT_EQ(bare.rfind("Routing entry for 2001:db8:5::\n", 0), 0u);
}

TEST(RoutePage, NexthopGroupWithoutANameAndAMissingFec) {
  State st;
  const Brine::Fib::FecId nhg(Brine::Fib::AdjType::nexthopGroupAdj, 9);
  st.route4("10.70.0.0/24", RT4::nexthopGroupStaticRoute, nhg.value());
  const std::string text = printed(*st.sorter4(), rendr::kFormatText);
  EXPECT_NE(text.find(" NG     10.70.0.0/24 [0/0] via NexthopGroupUnknown, 9\n"),
            std::string::npos);
}

TEST(HostPage, ReceiveNeighbourAndMultiViaLines) {
  ExampleDevice d;
  const std::string text = printed(*d.sorter4({.host = true}), rendr::kFormatText);
  EXPECT_NE(text.find("\n R  10.0.0.11/32 to cpu\n"), std::string::npos);
  EXPECT_NE(text.find("\n A  10.1.1.1/32 on Ethernet1\n"), std::string::npos);
  EXPECT_NE(text.find("\n F  10.0.0.12/32 via 10.1.1.1 on Ethernet1\n"
                      "                 via 10.1.2.1 on Ethernet2\n"),
            std::string::npos);
  EXPECT_NE(text.find("\n B  10.2.3.255/32 to cpu\n"), std::string::npos);
  EXPECT_NE(
      text.find("R - receive, B - broadcast, F - FIB, A - attached, D - directed broadcast\n\n"),
      std::string::npos);
  const Json j = Json::parse(printed(*d.sorter4({.host = true}), rendr::kFormatJson));
  EXPECT_EQ(j["routes"]["10.0.0.11/32"]["routeType"], "receive");
  EXPECT_EQ(j["routes"]["10.0.0.11/32"]["vias"][0]["toCpu"], true);
  EXPECT_EQ(j["routes"]["10.1.1.1/32"]["routeType"], "attached");
  EXPECT_EQ(j["allRoutesProgrammedHardware"], false);
}

TEST(HostPage, WithEverythingProgrammedThereIsNoWarning) {
  ExampleDevice d;
  const std::string text = printed(*d.sorter4({.vrf = "blue", .host = true}), rendr::kFormatText);
  EXPECT_EQ(text.rfind("R - receive", 0), 0u);
  EXPECT_EQ(Json::parse(printed(*d.sorter4({.vrf = "blue", .host = true}),
                                rendr::kFormatJson))["allRoutesProgrammedHardware"],
            true);
}

TEST(Interrupt, HostListingGivesWayToTheRouteListing) {
  ExampleDevice d;
  auto s = d.sorter4({.host = true});
  rendr::installSignalHandlers();
  testing::internal::CaptureStdout();
  std::raise(SIGINT);
  s->printRoutes(1, rendr::kFormatText);
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out.rfind("exiting on user interrupt\n", 0), 0u) << out.substr(0, 200);
  EXPECT_NE(out.find("Codes: C - connected"), std::string::npos);
  EXPECT_FALSE(rendr::interruptPending());
}

}  // namespace
