// Tunnel via resolution: the tunnel's own next hops replace the via, with shared-out weights,
// label stacks, and, for tunnels on tunnels, the whole chain.
#include <gtest/gtest.h>

#include "lib/route_listing/TunnelVias.h"
#include "tests/lib/route_listing/SorterFixture.h"

namespace {

using namespace Rova;
using namespace Rova::test;
using Strings = std::vector<std::string>;
using Tunnel::TunnelTable::MplsVia;

MplsVia tv(const char* hop, const char* intf, const char* labels) {
  return MplsVia{Plexa::IpGenAddr::fromString(hop), Plexa::IntfId(intf),
                 Plexa::MplsLabelOperation::fromString(labels)};
}

const std::uint64_t kTunnelA = (std::uint64_t(2) << 23) | 1;  // an LDP tunnel
const std::uint64_t kTunnelB = (std::uint64_t(3) << 23) | 2;  // an SR tunnel

Strings entries(const CachedFec& f) {
  Strings out;
  for (int i = 0; i < f.numEntries(); ++i) {
    const std::uint16_t e = static_cast<std::uint16_t>(i);
    out.push_back(f.viaTypeString(e).stringValue() + " " + f.nexthopAddr(e).stringValue() + " " +
                  f.interface(e).stringValue() + " [" + f.viaLabelStack(e).stringValue() + "]" +
                  (f.viaWeight(e).empty() ? "" : " w" + f.viaWeight(e).stringValue()) +
                  (f.interfaceDescription(e).empty()
                       ? ""
                       : " (" + f.interfaceDescription(e).stringValue() + ")"));
  }
  return out;
}

Mox::Ptr<CachedFec> resolved(State& st, std::uint16_t weight, bool detail = false) {
  st.fec4(1, {{"", "", weight, 3000, kTunnelA}, {"10.0.0.9", "Ethernet9", 1}});
  st.route4("10.9.0.0/16", RT4::iBgp, 1);
  auto s = st.sorter4({.detail = detail});
  auto fec = s->fec(Brine::Fib::FecId(1));
  updateTunSortedVia(fec, *s);
  return fec;
}

TEST(TunnelVias, WeightIsSharedOutOverTheTunnelsVias) {
  State st;
  st.tunnelFibEntry(
      kTunnelA, {tv("10.1.1.2", "Ethernet1", "push 16"), tv("10.1.2.2", "Ethernet2", "push 17")});
  auto fec = resolved(st, 5);
  EXPECT_EQ(entries(*fec), (Strings{"active 10.1.1.2 Ethernet1 [push 16] w2",
                                    "active 10.1.2.2 Ethernet2 [push 17] w3"}));
  EXPECT_FALSE(fec->connected());
  EXPECT_EQ(fec->label(0).value(), 3000u);  // the via's own label stays with each entry
}

TEST(TunnelVias, EveryEntryGetsAtLeastOne) {
  State st;
  st.tunnelFibEntry(kTunnelA, {tv("10.1.1.2", "Ethernet1", ""), tv("10.1.2.2", "Ethernet2", ""),
                               tv("10.1.3.2", "Ethernet3", "")});
  EXPECT_EQ(entries(*resolved(st, 2)),
            (Strings{"active 10.1.1.2 Ethernet1 [] w1", "active 10.1.2.2 Ethernet2 [] w1",
                     "active 10.1.3.2 Ethernet3 [] w1"}));
}

TEST(TunnelVias, TheHardwareWeightLimitStopsTheWalk) {
  State st;
  st.hw->fecWeightLimitIs(4);
  st.tunnelFibEntry(kTunnelA, {tv("10.1.1.2", "Ethernet1", ""), tv("10.1.2.2", "Ethernet2", ""),
                               tv("10.1.3.2", "Ethernet3", "")});
  auto fec = resolved(st, 9);  // shares 3, 3, 3: the second passes the limit of 4
  EXPECT_EQ(entries(*fec), (Strings{"active 10.1.1.2 Ethernet1 [] w3"}));
  EXPECT_EQ(fec->weight(), 3u);
}

TEST(TunnelVias, EqualCostWritesNoWeightsAndDescriptionsOnlyInDetail) {
  State st;
  st.intf("Ethernet1", "default", "", "", "core uplink");
  st.tunnelFibEntry(kTunnelA, {tv("10.1.1.2", "Ethernet1", "push 16")});
  EXPECT_EQ(entries(*resolved(st, 1)), (Strings{"active 10.1.1.2 Ethernet1 [push 16]"}));
  State st2;
  st2.intf("Ethernet1", "default", "", "", "core uplink");
  st2.tunnelFibEntry(kTunnelA, {tv("10.1.1.2", "Ethernet1", "push 16")});
  EXPECT_EQ(entries(*resolved(st2, 1, true)),
            (Strings{"active 10.1.1.2 Ethernet1 [push 16] (core uplink)"}));
}

TEST(TunnelVias, AMissingTunnelLeavesTheViaAlone) {
  State st;
  auto fec = resolved(st, 1);
  EXPECT_EQ(fec->numEntries(), 0);
  EXPECT_FALSE(tunnel::hasTunnelVia(*cachedFecFactory(Brine::Fib::FecId(5))));
}

TEST(TunnelVias, TunnelsOnTunnelsStackTheirLabels) {
  State st;
  // The route rides LDP tunnel A (label 3000 from BGP), whose one via rides SR tunnel B.
  Tunnel::TunnelTable::TunnelTableEntry a;
  a.tunnelId = Tunnel::TunnelTable::TunnelId(kTunnelA);
  a.endpoint = Plexa::IpGenPrefix::fromString("10.0.0.100/32");
  a.via.push(MplsVia{Plexa::IpGenAddr::fromString("10.0.0.100"),
                     Plexa::DynamicTunnelIntfId::intfId(kTunnelB),
                     Plexa::MplsLabelOperation::fromString("push 500")});
  st.ldp->recordIs(a);
  Tunnel::TunnelTable::TunnelTableEntry b;
  b.tunnelId = Tunnel::TunnelTable::TunnelId(kTunnelB);
  b.endpoint = Plexa::IpGenPrefix::fromString("10.0.0.100/32");
  b.via.push(tv("10.1.1.2", "Ethernet1", "push 16001"));
  b.via.push(tv("10.1.2.2", "Ethernet2", "push 16002"));
  st.sr->recordIs(b);
  st.fec4(1, {{"", "", 1, 3000, kTunnelA}});
  st.route4("10.9.0.0/16", RT4::iBgp, 1);
  auto s = st.sorter4();
  auto fec = s->fec(Brine::Fib::FecId(1));
  ASSERT_TRUE(tunnel::isHierarchical(*s, *fec));
  updateTunSortedViaHierarchy(fec, *s);
  ASSERT_EQ(fec->numEntries(), 1);
  EXPECT_TRUE(fec->hierarchicalVia());
  const CachedLspVia lsp = fec->lspVia(0);
  EXPECT_EQ(lsp.tunnelEndPoint(), "10.0.0.100/32");
  EXPECT_EQ(lsp.tunnelType(), "LDP");
  EXPECT_EQ(lsp.tunnelAddressFamily(), "IPv4");
  EXPECT_EQ(lsp.tunnelIndex(), 1u);
  ASSERT_EQ(lsp.numEntries(), 2u);
  EXPECT_EQ(lsp.nexthopAddr(0), "10.1.1.2");
  EXPECT_EQ(lsp.interface(1), "Ethernet2");
  // The inner tunnel's label goes on top of the outer one.
  EXPECT_EQ(lsp.viaLabelStack(0).stringValue(), "push 16001 500");
  EXPECT_EQ(fec->label(0).value(), 3000u);
}

TEST(TunnelVias, ALoopInTheTablesEnds) {
  State st;
  Tunnel::TunnelTable::TunnelTableEntry a;
  a.tunnelId = Tunnel::TunnelTable::TunnelId(kTunnelA);
  a.via.push(MplsVia{Plexa::IpGenAddr::fromString("10.0.0.100"),
                     Plexa::DynamicTunnelIntfId::intfId(kTunnelA),
                     Plexa::MplsLabelOperation::fromString("push 1")});
  st.ldp->recordIs(a);
  st.fec4(1, {{"", "", 1, Plexa::MplsLabel::kNoLabel, kTunnelA}});
  st.route4("10.9.0.0/16", RT4::iBgp, 1);
  auto s = st.sorter4();
  auto fec = s->fec(Brine::Fib::FecId(1));
  updateTunSortedViaHierarchy(fec, *s);
  EXPECT_EQ(fec->lspVia(0).numEntries(), 1u);
  EXPECT_EQ(fec->lspVia(0).viaLabelStack(0).size(), 9u);
}

}  // namespace
