// Route selection: the three prefix modes, the filters, host selection, corruption, and the
// operations the front end may call between selection and printing.
#include <gtest/gtest.h>

#include "lib/route_listing/internal/SorterAlgorithms.h"
#include "platform/mox/ActivityLock.h"
#include "tests/lib/route_listing/SorterFixture.h"

namespace {

using namespace Rova;
using namespace Rova::test;
using Strings = std::vector<std::string>;

// A small VRF: an interface, a few OSPF and BGP routes over two FECs.
State basicState() {
  State st;
  st.intf("Ethernet1", "default", "10.0.0.2/24");
  st.intf("Loopback0", "default", "1.1.1.1/32");
  st.fec4(1, {{"10.0.0.1", "Ethernet1"}});
  st.fec4(2, {{"", "Ethernet1"}});
  st.route4("10.0.0.0/24", RT4::connected, 2);
  st.route4("1.1.1.1/32", RT4::receive, 2);
  st.route4("10.0.0.2/32", RT4::receive, 2);  // an interface address on a /24: not listed
  st.route4("10.1.0.0/16", RT4::ospfInterArea, 1);
  st.route4("10.1.1.0/24", RT4::ospfIntraArea, 1);
  st.route4("10.1.1.128/25", RT4::eBgp, 1);
  st.route4("10.2.0.0/16", RT4::iBgp, 1);
  return st;
}

TEST(Selection, ExactPrefixOrElseTheLongestMatchThatPassesTheFilter) {
  State st = basicState();
  EXPECT_EQ(selected(*st.sorter4({.prefix = "10.1.1.200/32"})), (Strings{"10.1.1.128/25"}));
  // The protocol is the printing's filter, not the selection's.
  EXPECT_EQ(selected(*st.sorter4({.prefix = "10.1.1.200/32", .protocol = "O"})),
            (Strings{"10.1.1.128/25"}));
  // The filter rejects the longer match, so the walk goes on to shorter ones.
  st.route4("10.1.1.192/26", RT4::martian, 1);
  EXPECT_EQ(selected(*st.sorter4({.prefix = "10.1.1.200/32"})), (Strings{"10.1.1.128/25"}));
  EXPECT_EQ(selected(*st.sorter4({.prefix = "10.1.1.200/32", .detail = true})),
            (Strings{"10.1.1.192/26"}));
}

// A whole-table listing keeps where each selected route is and reads it there when it prints:
// a route replaced since reads as it is now, a deleted one is left out, and the one that the
// delete moved into its place is found again by its prefix.
TEST(Selection, TheWholeTableIsReadWhereItIsWhenItPrints) {
  State st = basicState();
  const Strings all = selected(*st.sorter4());
  auto s = st.sorter4();
  auto longer = st.sorter4({.prefix = "10.1.0.0/16", .longerPrefixes = true});
  ASSERT_EQ(all.front(), "1.1.1.1/32");
  st.routes4->recordDel(Plexa::Prefix::fromString("1.1.1.1/32"));  // the last one moves here
  st.route4("10.1.1.0/24", RT4::eBgp, 1);
  st.routes4->recordDel(Plexa::Prefix::fromString("10.1.1.128/25"));
  Strings expected(all.begin() + 1, all.end());
  std::erase(expected, "10.1.1.128/25");
  EXPECT_EQ(selected(*s), expected);
  EXPECT_EQ(s->sortedRoute(Plexa::Prefix::fromString("10.1.1.0/24")).routeType, RT4::eBgp);
  EXPECT_EQ(selected(*longer), (Strings{"10.1.0.0/16", "10.1.1.0/24"}));
}

TEST(Selection, ALargeTableSelectsCompletelyAcrossTheYields) {
  State st;
  st.fec4(1, {{"10.0.0.1", "Ethernet1"}});
  for (std::uint32_t i = 0; i < 25000; ++i) {
    Brine::Fib::Route r;
    r.prefix = Plexa::Prefix(Plexa::IpAddr(0x0b000000u + (i << 8)), 24);
    r.routeType = RT4::iBgp;
    r.fecId = Brine::Fib::FecId(1);
    st.routes4->recordIs(r);
  }
  Mox::ActivityLockGuard lock;
  const auto yieldsBefore = Mox::ActivityLock::instance().yields();
  auto s = st.sorter4();
  EXPECT_EQ(s->sortedRoutes(), 25000u);
  EXPECT_EQ(Mox::ActivityLock::instance().yields() - yieldsBefore, 2u);
  EXPECT_TRUE(Mox::ActivityLock::instance().heldByThisThread());
}

TEST(Filter, ReceiveRoutesOnlyForTheVrfsOwnAddresses) {
  State st = basicState();
  st.intf("Ethernet5", "red", "5.5.5.5/32");
  st.route4("5.5.5.5/32", RT4::receive, 2);
  // Hidden in the default VRF: the address belongs to an interface of VRF red.
  EXPECT_EQ(selected(*st.sorter4({.prefix = "5.5.5.5/32"})), Strings{});
  EXPECT_EQ(selected(*st.sorter4({.prefix = "5.5.5.5/32", .vrf = "red"})), (Strings{"5.5.5.5/32"}));
  // An interface without a primary address holds 0.0.0.0/0 like a primary of its own.
  st.intf("Ethernet6", "default", "0.0.0.0/0");
  st.route4("0.0.0.0/0", RT4::receive, 2);
  EXPECT_EQ(selected(*st.sorter4({.prefix = "0.0.0.0/0"})), (Strings{"0.0.0.0/0"}));
}

TEST(Filter, MartianAttachedInvalidAndPrintability) {
  State st;
  st.fec4(1, {{"10.0.0.1", "Ethernet1"}});
  st.fec4(2, {{"10.0.0.1", ""}});  // vias, but none with an interface or a tunnel
  st.fec4(3, {});                  // no vias at all
  st.route4("10.1.0.0/16", RT4::martian, 1);
  st.route4("10.2.0.0/16", RT4::attached, 1);
  st.route4("10.3.0.0/16", RT4::invalid, 1);
  st.route4("10.4.0.0/16", RT4::ospfIntraArea, 2);
  st.route4("10.5.0.0/16", RT4::ospfIntraArea, 3);
  st.route4("10.6.0.0/16", RT4::nexthopGroupStaticRoute, 0);
  st.route4("10.7.0.0/16", RT4::ospfIntraArea, 0);  // no FEC: not printable
  EXPECT_EQ(selected(*st.sorter4()), (Strings{"10.5.0.0/16", "10.6.0.0/16"}));
  EXPECT_EQ(selected(*st.sorter4({.detail = true})),
            (Strings{"10.1.0.0/16", "10.4.0.0/16", "10.5.0.0/16", "10.6.0.0/16"}));
}

TEST(HostSelection, HostRoutesAndNeighboursOfTheListedVrf) {
  State st = basicState();
  st.vrfEntry(3, "red");
  st.neighbor(0, "10.0.0.1", "Ethernet1");
  st.neighbor(0, "10.0.0.5", "Management1");  // management: never
  st.neighbor(3, "172.16.0.1", "Ethernet7");
  st.neighbor(9, "172.16.0.2", "Ethernet8");   // a VRF id the map does not know
  st.neighbor(0, "2001:db8::1", "Ethernet1");  // the other family
  auto def = st.sorter4({.host = true});
  EXPECT_EQ(selected(*def), (Strings{"1.1.1.1/32", "10.0.0.1/32", "10.0.0.2/32"}));
  const auto attached = def->sortedRoute(Plexa::Prefix::fromString("10.0.0.1/32"));
  EXPECT_EQ(attached.routeType, RT4::attached);
  EXPECT_EQ(attached.fecId.adjType(), Brine::Fib::AdjType::attachedAdj);
  auto fec = def->fec(attached.fecId);
  ASSERT_EQ(fec->vias(), 1u);
  EXPECT_EQ(fec->via().begin()->hop().stringValue(), "10.0.0.1");
  EXPECT_TRUE(fec->via().begin()->viaLabel().isNoLabel());

  // Each VRF has its own route table; red's is empty here.
  st.routes4->recordDelAll();
  EXPECT_EQ(selected(*st.sorter4({.vrf = "red", .host = true})), (Strings{"172.16.0.1/32"}));
  EXPECT_EQ(selected(*st.sorter6({.host = true})), (Strings{"2001:db8::1/128"}));
}

TEST(HostSelection, AttachedRoutesTakeFreshIdsAndNeverReplaceARoute) {
  State st = basicState();
  auto s = st.sorter4({.host = true});
  const auto a =
      s->createAttachedRoute(Plexa::IpGenAddr::fromString("10.0.0.7"), Plexa::IntfId("Ethernet1"));
  const auto b =
      s->createAttachedRoute(Plexa::IpGenAddr::fromString("10.0.0.8"), Plexa::IntfId("Ethernet1"));
  EXPECT_NE(a.fecId, b.fecId);
  // A host route the table already has is returned as it is.
  const auto existing =
      s->createAttachedRoute(Plexa::IpGenAddr::fromString("1.1.1.1"), Plexa::IntfId("Ethernet1"));
  EXPECT_EQ(existing.routeType, RT4::receive);
}

TEST(Corruption, IsReportedAndReadAsAnEmptyRecord) {
  State st = basicState();
  st.routes4->corruptionInjectedIs(Plexa::Prefix::fromString("10.2.0.0/16"), true);
  st.fecs4->corruptionInjectedIs(Brine::Fib::FecId(1), true);
  auto s = st.sorter4();
  // The corrupt route reads as invalid and is dropped; the FEC reads as missing.
  EXPECT_EQ(selected(*s),
            (Strings{"1.1.1.1/32", "10.0.0.0/24", "10.1.0.0/16", "10.1.1.0/24", "10.1.1.128/25"}));
  EXPECT_EQ(s->fec(Brine::Fib::FecId(1))->vias(), 0u);
  EXPECT_EQ(st.routes4->corruptionReports(), 1u);
  EXPECT_EQ(st.fecs4->corruptionReports(), 1u);
}

TEST(Corruption, StopsTheNeighbourWalk) {
  State st = basicState();
  st.neighbor(0, "10.0.0.1", "Ethernet1");
  st.neighbor(0, "10.0.0.3", "Ethernet1");
  st.neighbor(0, "10.0.0.4", "Ethernet1");
  Arp::Table::ArpKey bad{0, Plexa::IpGenAddr::fromString("10.0.0.3"), Plexa::IntfId("Ethernet1")};
  st.arp->corruptionInjectedIs(bad, true);
  auto s = st.sorter4({.host = true});
  EXPECT_EQ(selected(*s), (Strings{"1.1.1.1/32", "10.0.0.1/32", "10.0.0.2/32"}));
  EXPECT_EQ(st.arp->corruptionReports(), 1u);
}

TEST(Operations, LongestPrefixMatchOnlyForOnePrefix) {
  State st = basicState();
  EXPECT_EQ(st.sorter4({.prefix = "10.1.1.7/32"})->longestPrefixMatch().stringValue(),
            "10.1.1.0/24");
  EXPECT_TRUE(st.sorter4({.prefix = "192.168.0.1/32"})->longestPrefixMatch().isNullPrefix());
  EXPECT_THROW(st.sorter4()->longestPrefixMatch(), Mox::InternalException);
  EXPECT_THROW(st.sorter4({.prefix = "10.1.0.0/16", .longerPrefixes = true})->longestPrefixMatch(),
               Mox::InternalException);
}

TEST(Operations, ViasForPrefixCopiesTheCachedVias) {
  State st = basicState();
  st.route4("10.8.0.0/16", RT4::ospfIntraArea, 42);  // its FEC is missing
  auto s = st.sorter4({.detail = true});
  auto vias = s->viasForPrefix(Plexa::Prefix::fromString("10.1.0.0/16"));
  ASSERT_NE(vias, nullptr);
  EXPECT_EQ(vias->vias(), 1u);
  EXPECT_NE(vias, s->fec(Brine::Fib::FecId(1)));  // a new object, not the cache's
  EXPECT_EQ(s->viasForPrefix(Plexa::Prefix::fromString("172.16.0.0/16")), nullptr);
  EXPECT_EQ(s->viasForPrefix(Plexa::Prefix::fromString("10.8.0.0/16"))->vias(), 0u);
  EXPECT_EQ(s->protocolString(Plexa::Prefix::fromString("10.1.0.0/16")), "O IA");
}

TEST(Counts, Ipv6InterfaceFilterAndRejectedRoutes) {
  State st;
  st.fec6(1, {{"2001:db8::1", "Ethernet1"}});
  st.fec6(2, {{"2001:db8::2", "Ethernet2"}});
  st.route6("2001:db8:1::/48", RT6::bgp, 1);
  st.route6("2001:db8:2::/48", RT6::bgp, 2);
  st.route6("2001:db8:3::/48", RT6::ospf3, 2);
  auto all = st.sorter6();
  EXPECT_EQ(getFilteredRoutesCount(*all), 0u);
  auto viaE1 = st.sorter6({.intf = true, .intfName = "Ethernet1"});
  EXPECT_EQ(getFilteredRoutesCount(*viaE1), 2u);
  st.route6("2001:db8:4::/48", RT6::martian, 2);
  EXPECT_EQ(getInternalFilteredRoutesCount(*st.sorter6()), 1u);
  EXPECT_EQ(getFilteredRoutesCount(*st.sorter4()), 0u);

  // One prefix whose exact route the filter rejects: met once exactly and once again by the
  // longest-match walk, which then goes on to the /48.
  st.route6("2001:db8:3::/64", RT6::martian, 2);
  st.route6("2001:db8::/32", RT6::bgp, 1);
  auto one = st.sorter6({.prefix = "2001:db8:3::/64"});
  EXPECT_EQ(selected(*one), (Strings{"2001:db8:3::/48"}));
  EXPECT_EQ(getInternalFilteredRoutesCount(*one), 2u);
}

}  // namespace
