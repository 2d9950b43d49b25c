// Tunnel via resolution: the tunnel's own next hops replace the via, with shared-out weights.
// A tunnel on a tunnel, with its label stack and descriptions, is pinned by the golden
// listings of the example device; here, what it does not have.
#include <gtest/gtest.h>

#include "lib/route_listing/internal/TunnelVias.h"
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

Strings entries(const CachedFec& f) {
  Strings out;
  for (int i = 0; i < f.numEntries(); ++i) {
    const std::uint16_t e = static_cast<std::uint16_t>(i);
    out.push_back(f.viaTypeString(e).stringValue() + " " + f.nexthopAddr(e).stringValue() + " " +
                  f.interface(e).stringValue() + " [" + f.viaLabelStack(e).stringValue() + "]" +
                  (f.viaWeight(e).empty() ? "" : " w" + f.viaWeight(e).stringValue()));
  }
  return out;
}

Mox::Ptr<CachedFec> resolved(State& st, std::uint16_t weight) {
  st.fec4(1, {{"", "", weight, 3000, kTunnelA}, {"10.0.0.9", "Ethernet9", 1}});
  st.route4("10.9.0.0/16", RT4::iBgp, 1);
  auto s = st.sorter4();
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

TEST(TunnelVias, AMissingTunnelLeavesTheViaAlone) {
  State st;
  auto fec = resolved(st, 1);
  EXPECT_EQ(fec->numEntries(), 0);
  EXPECT_FALSE(tunnel::hasTunnelVia(*cachedFecFactory(Brine::Fib::FecId(5))));
}

// A route over a FEC whose one via goes into tunnel A, resolved as tunnels on tunnels.
Mox::Ptr<CachedFec> resolvedOverTunnels(State& st) {
  st.fec4(1, {{"", "", 1, Plexa::MplsLabel::kNoLabel, kTunnelA}});
  st.route4("10.9.0.0/16", RT4::iBgp, 1);
  auto s = st.sorter4();
  auto fec = s->fec(Brine::Fib::FecId(1));
  updateTunSortedViaHierarchy(fec, *s);
  return fec;
}

// A tunnel whose vias ride itself, `width` of them: followed eight levels down, it names
// width^8 next hops.
Mox::Ptr<CachedFec> loopOfWidth(State& st, int width) {
  Tunnel::TunnelTable::TunnelTableEntry a;
  a.tunnelId = Tunnel::TunnelTable::TunnelId(kTunnelA);
  for (int i = 0; i < width; ++i) {
    a.via.push(MplsVia{Plexa::IpGenAddr::fromString("10.0.0." + std::to_string(100 + i)),
                       Plexa::DynamicTunnelIntfId::intfId(kTunnelA),
                       Plexa::MplsLabelOperation::fromString("push 1")});
  }
  st.ldp->recordIs(a);
  return resolvedOverTunnels(st);
}

TEST(TunnelVias, LevelsTogetherShowTheirTopTwelveLabels) {
  State st;
  const std::uint64_t kTunnelB = (std::uint64_t(2) << 23) | 2;
  Tunnel::TunnelTable::TunnelTableEntry outer, inner;
  outer.tunnelId = Tunnel::TunnelTable::TunnelId(kTunnelA);
  outer.via.push(MplsVia{Plexa::IpGenAddr::fromString("10.0.0.12"),
                         Plexa::DynamicTunnelIntfId::intfId(kTunnelB),
                         Plexa::MplsLabelOperation::fromString("push 8 9 10 11 12 13")});
  inner.tunnelId = Tunnel::TunnelTable::TunnelId(kTunnelB);
  inner.via.push(tv("10.1.1.2", "Ethernet1", "push 1 2 3 4 5 6 7"));
  st.ldp->recordIs(outer);
  st.ldp->recordIs(inner);
  auto fec = resolvedOverTunnels(st);
  ASSERT_EQ(fec->lspVia(0).numEntries(), 1u);
  EXPECT_EQ(fec->lspVia(0).viaLabelStack(0).stringValue(), "push 1 2 3 4 5 6 7 8 9 10 11 12");
}

TEST(TunnelVias, ALoopInTheTablesEndsEightLevelsDownAndAtTheBiggestFec) {
  State st;
  auto fec = loopOfWidth(st, 1);
  EXPECT_EQ(fec->lspVia(0).numEntries(), 1u);
  EXPECT_EQ(fec->lspVia(0).viaLabelStack(0).size(), 9u);
  // 3^8 = 6,561 next hops: the first 512 are kept, each with its nine labels.
  State wide;
  fec = loopOfWidth(wide, 3);
  ASSERT_EQ(fec->lspVia(0).numEntries(), 512u);
  EXPECT_EQ(fec->lspVia(0).nexthopAddr(511).stringValue(), "10.0.0.101");  // 511 = ...1 in base 3
  EXPECT_EQ(fec->lspVia(0).viaLabelStack(511).size(), 9u);
}

}  // namespace
