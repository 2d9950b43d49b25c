// The FEC cache, seen through the sorter that fills it: what the golden listings (weights of
// unequal cost, missing FECs, IPv6 next hops of IPv4 routes) do not show.
#include <gtest/gtest.h>

#include "lib/route_listing/CachedFec.h"
#include "tests/lib/route_listing/SorterFixture.h"

namespace {

using namespace Rova;
using namespace Rova::test;

std::vector<std::string> viasOf(const CachedFec& fec) {
  std::vector<std::string> out;
  for (const auto& v : fec.via()) {
    out.push_back((v.isBackup() ? "backup " : "") + v.hop().stringValue() + " " +
                  v.intfId().stringValue() +
                  (v.viaLabel().isNoLabel() ? "" : " label " + v.viaLabel().stringValue()) +
                  (v.viaWeight().empty() ? "" : " w" + v.viaWeight().stringValue()));
  }
  return out;
}

// The host listing says "to cpu" for these entries: the mark must follow the via to its place
// in the cached (sorted) order, not its place in the FEC record.
TEST(CachedFec, EntriesToTheCpuAreMarkedWhereTheyLand) {
  State st;
  st.fec4(5, {{"10.0.0.1", "Ethernet2"}, {"", "Cpu"}, {"10.0.0.3", "Ethernet1"}});
  st.route4("10.5.0.0/16", RT4::ospfIntraArea, 5);
  auto fec = st.sorter4()->fec(Brine::Fib::FecId(5));
  std::vector<std::string> marked;
  std::uint16_t i = 0;
  for (const auto& via : fec->via()) {
    if (fec->hostToCpu(i++)) marked.push_back(via.intfId().stringValue());
  }
  EXPECT_EQ(marked, std::vector<std::string>{"Cpu"});
  EXPECT_EQ(fec->hostToCpus(), 1u);
}

TEST(CachedFec, BackupViasComeLastAndCarryNoLabels) {
  State st;
  // Backup index 2 of 3: the third via is the backup, whatever its interface.
  st.fec4(3,
          {{"10.0.0.9", "Ethernet9", 1, 100},
           {"10.0.0.1", "Ethernet5", 1, 200},
           {"10.0.0.2", "Ethernet1", 1, 300}},
          2);
  st.route4("10.1.0.0/16", RT4::ospfIntraArea, 3);
  auto s = st.sorter4();
  auto fec = s->fec(Brine::Fib::FecId(3));
  EXPECT_TRUE(fec->hasBackup());
  EXPECT_EQ(fec->backupViaIndex().value(), 2);
  EXPECT_EQ(viasOf(*fec), (std::vector<std::string>{"10.0.0.1 Ethernet5", "10.0.0.9 Ethernet9",
                                                    "backup 10.0.0.2 Ethernet1"}));
  EXPECT_EQ(fec->weight(), 0u);  // weights are not summed for backup FECs
}

TEST(CachedFec, BackupIndexNeedsViasBeyondIt) {
  State st;
  st.fec4(3, {{"10.0.0.9", "Ethernet9", 1, 100}, {"10.0.0.1", "Ethernet5"}}, 2);
  st.route4("10.1.0.0/16", RT4::ospfIntraArea, 3);
  auto fec = st.sorter4()->fec(Brine::Fib::FecId(3));
  EXPECT_FALSE(fec->hasBackup());
  EXPECT_EQ(viasOf(*fec),
            (std::vector<std::string>{"10.0.0.1 Ethernet5", "10.0.0.9 Ethernet9 label 100"}));
}

TEST(CachedFec, TunnelViasBecomeDynamicTunnelInterfaces) {
  State st;
  const std::uint64_t tunnel = (std::uint64_t(2) << 23) | 77;
  st.fec4(4, {{"", "", 1, 3000, tunnel}});
  st.route4("10.9.0.0/16", RT4::iBgp, 4);
  auto fec = st.sorter4()->fec(Brine::Fib::FecId(4));
  ASSERT_EQ(fec->vias(), 1u);
  const auto& via = *fec->via().begin();
  EXPECT_EQ(via.intfId().stringValue(), "DynamicTunnel2.77");
  EXPECT_EQ(via.tunnelId().value(), tunnel);
  EXPECT_EQ(via.viaLabel().value(), 3000u);

  CachedVia plain(Plexa::IpGenAddr::fromString("10.0.0.1"), Plexa::IntfId("Ethernet1"));
  plain.tunnelIdIs(Tunnel::TunnelTable::TunnelId());
  EXPECT_EQ(plain.intfId().stringValue(), "Ethernet1");  // a zero tunnel id changes nothing
  EXPECT_TRUE(plain.tunnelId().isZero());
}

TEST(CachedFec, OutOfRangeLabelsAndIndicesAreRangeErrors) {
  State st;
  st.fec4(1, {{"10.0.0.1", "Ethernet1", 1, 8388609}});
  st.route4("10.1.0.0/16", RT4::ospfIntraArea, 1);
  try {
    st.sorter4();
    FAIL();
  } catch (const Mox::RangeException& e) {
    EXPECT_STREQ(e.what(),
                 "MplsLabel::value < MplsLabel::min or > MplsLabel::luWithdraw not allowed");
  }
  State st2;
  st2.fec4(1, {{"10.0.0.1", "Ethernet1"}}, 600);
  st2.route4("10.1.0.0/16", RT4::ospfIntraArea, 1);
  try {
    st2.sorter4();
    FAIL();
  } catch (const Mox::RangeException& e) {
    EXPECT_STREQ(e.what(), "ViaIndex::value < ViaIndex::min or > ViaIndex::max not allowed");
  }
}

TEST(CachedVia, OrdersPrimaryFirstThenInterfaceThenHop) {
  using Plexa::IntfId;
  const auto a = Plexa::IpGenAddr::fromString("10.0.0.2");
  const auto b = Plexa::IpGenAddr::fromString("10.0.0.10");
  EXPECT_LT(CachedVia(b, IntfId("Ethernet9")), CachedVia(a, IntfId("Ethernet1"), true));
  EXPECT_LT(CachedVia(b, IntfId("Ethernet2")), CachedVia(a, IntfId("Ethernet10")));
  EXPECT_LT(CachedVia(a, IntfId("Ethernet1")), CachedVia(b, IntfId("Ethernet1")));
  // Label and weight take no part: these are one entry of a via set.
  CachedViaSet set;
  CachedVia x(a, IntfId("Ethernet1"));
  set.set(x, true);
  x.viaLabelIs(Plexa::MplsLabel(5));
  x.viaWeightIs("3");
  set.set(x, true);
  EXPECT_EQ(set.size(), 1u);
}

}  // namespace
