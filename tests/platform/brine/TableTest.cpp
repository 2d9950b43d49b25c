#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

#include "platform/brine/Fib.h"
#include "platform/brine/Neighbor.h"
#include "platform/brine/NexthopGroupTables.h"
#include "platform/brine/Tunnel.h"

namespace {

using Brine::Fib::FecId;
using Plexa::Prefix;

Brine::Fib::Route route(const char* prefix, std::uint64_t fec) {
  Brine::Fib::Route r;
  r.prefix = Prefix::fromString(prefix);
  r.routeType = Routing::Fib::RouteType::ospfInterArea;
  r.fecId = FecId(fec);
  return r;
}

TEST(Table, MissReturnsTheEmptyRecord) {
  Brine::Fib::RouteStatus t;
  t.recordIs(route("10.0.0.0/8", 7));
  EXPECT_EQ(t.lookup(Prefix::fromString("10.0.0.0/8")).fecId, FecId(7));
  const auto miss = t.lookup(Prefix::fromString("10.0.0.0/16"));
  EXPECT_EQ(miss.fecId, FecId());
  EXPECT_EQ(miss.routeType, Routing::Fib::RouteType::invalid);
  EXPECT_FALSE(t.contains(Prefix::fromString("10.0.0.0/16")));
}

TEST(Table, IteratesInWriteOrderAndReplacesInPlace) {
  Brine::Fib::RouteStatus t;
  for (const char* p : {"10.2.0.0/16", "10.1.0.0/16", "10.3.0.0/16"})
    t.recordIs(route(p, 1));
  t.recordIs(route("10.1.0.0/16", 9));  // replaces, keeps its place
  std::vector<std::string> seen;
  for (auto it = t.begin(); it != t.end(); ++it)
    seen.push_back((*it).prefix.stringValue() + "=" + (*it).fecId.stringValue());
  EXPECT_EQ(seen, (std::vector<std::string>{"10.2.0.0/16=1", "10.1.0.0/16=9", "10.3.0.0/16=1"}));
}

// The index must stay consistent through growth and deletions in any order.
TEST(Table, AgreesWithAMapUnderRandomWritesAndDeletes) {
  Brine::Fib::RouteStatus t;
  std::map<Prefix, std::uint64_t> model;
  std::mt19937 rng(7);
  for (int i = 0; i < 20000; ++i) {
    const Prefix p(Plexa::IpAddr(rng() % 4096 << 8), 24);
    if (rng() % 3 == 0) {
      EXPECT_EQ(t.recordDel(p), model.erase(p) == 1);
    } else {
      Brine::Fib::Route r;
      r.prefix = p;
      r.fecId = FecId(i + 1);
      t.recordIs(r);
      model[p] = i + 1;
    }
  }
  EXPECT_EQ(t.size(), model.size());
  for (const auto& [p, fec] : model)
    EXPECT_EQ(t.lookup(p).fecId, FecId(fec));
  std::set<Prefix> walked;
  for (auto r : t)
    walked.insert(r.prefix);
  EXPECT_EQ(walked.size(), model.size());
  t.recordDelAll();
  EXPECT_EQ(t.size(), 0u);
  EXPECT_FALSE(t.contains(model.begin()->first));
}

// Appended records are indexed in one pass that stops at the first key already taken, by an
// earlier record of the table or of the same batch; the table stays consistent either way.
TEST(Table, AppendedRecordsAreIndexedUpToTheFirstRepeatedKey) {
  Brine::Fib::RouteStatus t;
  t.recordIs(route("10.0.0.0/8", 1));
  t.reserve(40000);
  for (std::uint32_t i = 0; i < 30000; ++i)
    t.recordAppend(
        route(Prefix(Plexa::IpAddr(i << 8 | 0x0b000000u), 24).stringValue().c_str(), i + 2));
  EXPECT_FALSE(t.indexAppended());
  EXPECT_EQ(t.size(), 30001u);
  EXPECT_EQ(t.lookup(Prefix::fromString("11.0.117.0/24")).fecId, FecId(119));
  EXPECT_EQ(t.lookup(Prefix::fromString("10.0.0.0/8")).fecId, FecId(1));

  t.recordAppend(route("12.0.0.0/8", 7));
  t.recordAppend(route("11.0.5.0/24", 8));  // taken by the first batch
  t.recordAppend(route("13.0.0.0/8", 9));
  const auto dup = t.indexAppended();
  ASSERT_TRUE(dup);
  EXPECT_EQ(dup->position, 30002u);
  EXPECT_EQ(dup->key, Prefix::fromString("11.0.5.0/24"));
  EXPECT_EQ(t.size(), 30002u);
  EXPECT_EQ(t.lookup(Prefix::fromString("11.0.5.0/24")).fecId, FecId(7));
  EXPECT_TRUE(t.contains(Prefix::fromString("12.0.0.0/8")));
  EXPECT_FALSE(t.contains(Prefix::fromString("13.0.0.0/8")));

  // Within one batch, the second of two equal keys is the one refused; ordinary writes and
  // deletions go on from there.
  t.recordAppend(route("14.0.0.0/8", 10));
  t.recordAppend(route("14.0.0.0/8", 11));
  EXPECT_EQ(t.indexAppended()->position, 30003u);
  EXPECT_EQ(t.lookup(Prefix::fromString("14.0.0.0/8")).fecId, FecId(10));
  EXPECT_TRUE(t.recordDel(Prefix::fromString("11.0.5.0/24")));
  t.recordIs(route("15.0.0.0/8", 12));
  EXPECT_EQ(t.size(), 30003u);
  EXPECT_EQ(t.lookup(Prefix::fromString("15.0.0.0/8")).fecId, FecId(12));
  EXPECT_EQ(t.lookup(Prefix::fromString("14.0.0.0/8")).fecId, FecId(10));
}

TEST(Table, InjectedCorruptionRaisesOnReadAndIsReported) {
  Brine::Fib::RouteStatus t;
  t.recordIs(route("10.1.0.0/16", 1));
  t.recordIs(route("10.2.0.0/16", 2));
  t.corruptionInjectedIs(Prefix::fromString("10.2.0.0/16"), true);
  EXPECT_EQ(t.lookup(Prefix::fromString("10.1.0.0/16")).fecId, FecId(1));
  EXPECT_THROW(t.lookup(Prefix::fromString("10.2.0.0/16")), Velt::CorruptionDetectedException);
  int failures = 0;
  for (auto it = t.begin(); it != t.end(); ++it) {
    try {
      (void)*it;
    } catch (const Velt::CorruptionDetectedException& e) {
      ++failures;
      t.corruptionDetected(e.what());
    }
  }
  EXPECT_EQ(failures, 1);
  EXPECT_EQ(t.corruptionReports(), 1u);
  EXPECT_NE(t.lastCorruption().find("Brine::Fib::RouteStatus"), std::string::npos);
  t.corruptionInjectedIs(Prefix::fromString("10.2.0.0/16"), false);
  EXPECT_EQ(t.lookup(Prefix::fromString("10.2.0.0/16")).fecId, FecId(2));

  // The program's hook hears every report, with the table that made it.
  std::vector<std::string> heard;
  Brine::CorruptionReporter::globalHookIs(
      [&](const std::string& table, const std::string& message) {
        heard.push_back(table + ": " + message);
      });
  t.corruptionDetected("record 3 of 2");
  Brine::CorruptionReporter::globalHookIs({});
  t.corruptionDetected("not heard");
  EXPECT_EQ(heard, std::vector<std::string>{"Brine::Fib::RouteStatus: record 3 of 2"});
}

std::string internalMessage(auto&& f) {
  try {
    f();
  } catch (const Mox::InternalException& e) {
    return e.what();
  } catch (const Mox::RangeException& e) {
    return e.what();
  }
  return "no exception";
}

TEST(FecId, EncodesAdjacencyTypeAndIndex) {
  using namespace Brine::Fib;
  const FecId v6(AdjType::ip6Adj, 42);
  EXPECT_TRUE(isV6FecId(v6));
  EXPECT_FALSE(isNexthopGroupFec(v6));
  EXPECT_EQ(v6.index(), 42u);
  const FecId nhg(AdjType::nexthopGroupAdj, 0x1234);
  EXPECT_TRUE(isNexthopGroupFec(nhg));
  EXPECT_EQ(nexthopGroupIdFromFec(nhg), 0x1234u);
  EXPECT_TRUE(isSrTePolicyFec(FecId(AdjType::srTePolicyAdj, 1)));
  // An ordinary IPv4 FEC, and "no FEC".
  EXPECT_FALSE(isV6FecId(FecId(5)));
  EXPECT_EQ(FecId().adjType(), AdjType::ipAdj);
  // The index never spills into the type.
  EXPECT_EQ(FecId(AdjType::ipAdj, ~std::uint64_t(0)).adjType(), AdjType::ipAdj);
}

TEST(FecId, TypeOfSixteenOrMoreIsABrokenInvariant) {
  const Brine::Fib::FecId bad(std::uint64_t(16) << Brine::Fib::adjTypePos());
  EXPECT_THROW(bad.adjType(), Mox::InternalException);
  EXPECT_THROW(Brine::Fib::isV6FecId(bad), Mox::InternalException);
}

// Bounds of the records' fields; the loader's tests show the bounds of vias per FEC, labels
// and names with the messages a user sees.
TEST(Bounds, ViaIndicesAndTunnelIds) {
  EXPECT_EQ(Brine::ViaIndex(511).value(), 511);
  EXPECT_EQ(internalMessage([] { Brine::ViaIndex(512); }),
            "ViaIndex::value < ViaIndex::min or > ViaIndex::max not allowed");
  Brine::Fib::Via via;
  via.tunnelIdValue = std::uint64_t(65536) << 32;
  EXPECT_EQ(internalMessage([&] { via.tunnelId(); }),
            "TunnelId::value < TunnelId::minValue or > TunnelId::maxValue not allowed");
  via.tunnelIdValue = (std::uint64_t(65535) << 32) | 0xffffffffu;
  EXPECT_EQ(via.tunnelId().value(), via.tunnelIdValue);
}

}  // namespace
