// Generated states: they load, hold exactly the routes asked for with the promised mix, and
// come out the same for the same seed.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "platform/brine/Fib.h"
#include "platform/brine/Neighbor.h"
#include "platform/brine/Tunnel.h"
#include "platform/state/RoutingHardware.h"
#include "snapshot/Generator.h"
#include "snapshot/Snapshot.h"
#include "snapshot/StateLayout.h"

namespace {

namespace layout = Snapshot::layout;

Mox::Ptr<Statum::EntityManager> generated(std::uint64_t v4, std::uint64_t v6,
                                          std::uint64_t seed = 1, unsigned vrfs = 0) {
  Snapshot::GeneratorOptions o;
  o.ipv4Routes = v4;
  o.ipv6Routes = v6;
  o.seed = seed;
  o.extraVrfs = vrfs;
  return Snapshot::load(Snapshot::generate(o));
}

TEST(Generator, HoldsExactlyTheRoutesAskedFor) {
  for (std::uint64_t n : {0, 1, 5, 40, 3000}) {
    SCOPED_TRACE(n);
    auto em = generated(n, n / 3);
    EXPECT_EQ(layout::mount(*em, layout::fibRoute, "default")->size(), n);
    EXPECT_EQ(layout::mount(*em, layout::fib6Route, "default")->size(), n / 3);
  }
}

TEST(Generator, PrefixLengthsFollowAnInternetLikeMix) {
  auto em = generated(20000, 5000);
  std::map<int, int> v4, v6;
  for (const auto& r : *layout::mount(*em, layout::fibRoute, "default"))
    ++v4[r.prefix.len()];
  for (const auto& r : *layout::mount(*em, layout::fib6Route, "default"))
    ++v6[r.prefix.len()];
  EXPECT_NEAR(v4[24] / 20000.0, 0.6, 0.05);
  int mid = 0, shorter = 0;
  for (int len = 16; len <= 23; ++len)
    mid += v4[len];
  for (int len = 1; len < 16; ++len)
    shorter += v4[len];
  EXPECT_GT(mid, 20000 * 0.3);
  EXPECT_GT(shorter, 0);
  EXPECT_LT(shorter, 20000 * 0.06);
  EXPECT_NEAR(v6[48] / 5000.0, 0.7, 0.05);
  EXPECT_GT(v6[32] + v6[36] + v6[40] + v6[44], 5000 * 0.1);
  EXPECT_GT(v6[56] + v6[60] + v6[64], 5000 * 0.1);
}

TEST(Generator, RoutesShareFecsOfEveryKind) {
  auto em = generated(30000, 1000);
  auto routes = layout::mount(*em, layout::fibRoute, "default");
  auto fecs = layout::mount(*em, layout::fibFec, "default");
  auto tunnelFib = layout::mount(*em, layout::tunnelFib);
  EXPECT_GE(fecs->size(), 50u);
  EXPECT_LE(fecs->size(), 5000u);
  std::size_t nexthopGroup = 0, unprogrammed = 0;
  for (const auto& r : *routes) {
    if (Brine::Fib::isNexthopGroupFec(r.fecId)) {
      ++nexthopGroup;
    } else {
      EXPECT_TRUE(fecs->contains(r.fecId)) << r.prefix.stringValue();
    }
    unprogrammed += !r.hardwareProgrammed;
  }
  EXPECT_GT(nexthopGroup, 0u);
  EXPECT_GT(unprogrammed, 0u);
  EXPECT_LT(unprogrammed, 30000u / 100);
  EXPECT_EQ(layout::mount(*em, layout::hwVrfStatus, "default")->unprogrammedRouteCount(),
            unprogrammed);
  EXPECT_TRUE(routes->contains(Plexa::Prefix::fromString("0.0.0.0/0")));

  std::size_t weighted = 0, backup = 0, tunnel = 0, ecmp = 0;
  for (const auto& f : *fecs) {
    backup += f.backupViaIndexValue != 0;
    ecmp += f.via.size() > 1;
    for (const auto& v : f.via) {
      weighted += v.weight > 1;
      if (v.tunnelIdValue) {
        ++tunnel;
        EXPECT_TRUE(tunnelFib->contains(v.tunnelId()));
      }
    }
  }
  EXPECT_GT(weighted, 0u);
  EXPECT_GT(backup, 0u);
  EXPECT_GT(tunnel, 0u);
  EXPECT_GT(ecmp, fecs->size() / 2);
}

TEST(Generator, ExtraVrfsAreSmallAndHaveTheirOwnIds) {
  auto em = generated(100, 10, 1, 3);
  auto ids = layout::mount(*em, layout::vrfIdMap);
  EXPECT_EQ(ids->size(), 4u);
  EXPECT_EQ(ids->vrfName(2).stringValue(), "vrf2");
  const auto n = layout::mount(*em, layout::fibRoute, "vrf3")->size();
  EXPECT_GT(n, 0u);
  EXPECT_LT(n, 100u);
}

// The internet profile: the public table's shape over four peers.
TEST(Generator, TheInternetProfileIsShapedLikeTheInternetTable) {
  Snapshot::GeneratorOptions o;
  o.profile = Snapshot::GeneratorProfile::internet;
  o.ipv4Routes = 40000;
  o.ipv6Routes = 8000;
  const std::string text = Snapshot::generate(o);
  EXPECT_EQ(text, Snapshot::generate(o));  // the same seed gives the same state
  o.seed = 43;
  EXPECT_NE(text, Snapshot::generate(o));
  auto em = Snapshot::load(text);
  auto routes = layout::mount(*em, layout::fibRoute, "default");
  auto fecs = layout::mount(*em, layout::fibFec, "default");
  auto routes6 = layout::mount(*em, layout::fib6Route, "default");
  ASSERT_EQ(routes->size(), 40000u);
  ASSERT_EQ(routes6->size(), 8000u);

  std::map<int, int> v4, v6, ecmpSizes;
  std::size_t vias = 0;
  std::set<std::string> interfaces;
  for (const auto& r : *routes) {
    ++v4[r.prefix.len()];
    const auto fec = fecs->lookup(r.fecId);
    ASSERT_GT(fec.via.size(), 0u) << r.prefix.stringValue();
    vias += fec.via.size();
    if (fec.via.size() > 1) ++ecmpSizes[int(fec.via.size())];
    for (const auto& v : fec.via)
      interfaces.insert(v.intfId.stringValue());
  }
  for (const auto& r : *routes6)
    ++v6[r.prefix.len()];
  EXPECT_NEAR(v4[24] / 40000.0, 0.6, 0.03);
  EXPECT_NEAR(double(vias) / 40000, 1.14, 0.04);
  int ecmp = 0;
  for (const auto& [size, n] : ecmpSizes)
    ecmp += n;
  EXPECT_NEAR(ecmp / 40000.0, 0.1, 0.01);
  EXPECT_EQ(ecmpSizes.begin()->first, 2);
  EXPECT_EQ(ecmpSizes.rbegin()->first, 4);
  EXPECT_GT(ecmpSizes[2], ecmpSizes[3]);
  EXPECT_GT(ecmpSizes[3], ecmpSizes[4]);
  EXPECT_EQ(interfaces,
            (std::set<std::string>{"Cpu", "Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4"}));
  const auto largest6 = std::max_element(
      v6.begin(), v6.end(), [](const auto& a, const auto& b) { return a.second < b.second; });
  EXPECT_EQ(largest6->first, 48);
  EXPECT_NEAR(v6[48] / 8000.0, 0.5, 0.03);
}

}  // namespace
