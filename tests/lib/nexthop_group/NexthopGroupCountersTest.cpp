// Entry counters: what an entry counted since the last clear, from the key table, the current
// counters and the snapshot; mounting the tables; clearing; the base class's assertion.

#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <vector>

#include "lib/nexthop_group/NexthopGroupCounterHelper.h"
#include "lib/registry/TypeRegistry.h"
#include "platform/mox/Exception.h"
#include "tests/lib/nexthop_group/NexthopGroupFixture.h"

namespace {

using nhgtest::NhgState;
using Rova::CounterEntry;

Mox::Ptr<Rova::NexthopGroupCounterHelper> mounted(const NhgState& s) {
  auto h = Rova::nexthopGroupCounterHelperFactory();
  h->mountCounterBrines(*s.entityManager());
  return h;
}

TEST(NexthopGroupCounters, CurrentLessSnapshotAndEveryAbsence) {
  NhgState s;
  s.counterKey(7, 0, 100);
  s.counterKey(7, 1, 101);
  s.counterKey(7, 2, 102);
  s.counterKey(7, 3, 103, 6);
  NhgState::row(*s.current, 100, 100, 6400);
  NhgState::row(*s.snapshot, 100, 40, 2560);
  NhgState::row(*s.current, 101, 5, 320);  // never cleared
  // 102 has a key but no counter row in either table.
  NhgState::row(*s.current, 103, 9, 90, 6);
  NhgState::row(*s.current, 103, 1000, 1000, 1);  // same index, another chip mask
  auto h = mounted(s);

  EXPECT_EQ(h->getCounters(7, 0), CounterEntry(60, 3840));
  EXPECT_EQ(h->getCounters(7, 1), CounterEntry(5, 320));
  EXPECT_EQ(h->getCounters(7, 2), CounterEntry(0, 0));
  EXPECT_EQ(h->getCounters(7, 3), CounterEntry(9, 90));
  // No key for this entry, nor for this group.
  EXPECT_EQ(h->getCounters(7, 4), CounterEntry(0, 0));
  EXPECT_EQ(h->getCounters(8, 0), CounterEntry(0, 0));
  EXPECT_FALSE(h->entryCounters(7, 4).has_value());
  EXPECT_TRUE(h->entryCounters(7, 2).has_value());
}

TEST(NexthopGroupCounters, SnapshotAboveCurrentWrapsInsteadOfClamping) {
  NhgState s;
  s.counterKey(1, 0, 5);
  s.counterKey(1, 1, 6);
  NhgState::row(*s.current, 5, 10, 100);
  NhgState::row(*s.snapshot, 5, 11, 300);
  NhgState::row(*s.snapshot, 6, 1, 64);  // only in the snapshot
  auto h = mounted(s);
  constexpr auto kMax = std::numeric_limits<std::uint64_t>::max();
  EXPECT_EQ(h->getCounters(1, 0), CounterEntry(kMax, kMax - 199));
  EXPECT_EQ(h->getCounters(1, 1), CounterEntry(kMax, kMax - 63));
}

TEST(NexthopGroupCounters, TheEmptyKeyInformationMeansNoCounter) {
  NhgState s;
  // A key record holding the empty value (all ones, then zero) names no counter, even when a
  // row with that index exists.
  s.counterKey(1, 0, 0xffffffffu, 0);
  NhgState::row(*s.current, 0xffffffffu, 5, 5, 0);
  // All ones with another chip mask is a counter like any other.
  s.counterKey(1, 1, 0xffffffffu, 1);
  NhgState::row(*s.current, 0xffffffffu, 3, 30, 1);
  auto h = mounted(s);
  EXPECT_FALSE(h->entryCounters(1, 0).has_value());
  EXPECT_EQ(h->getCounters(1, 1), CounterEntry(3, 30));
}

// A whole group asked at once answers entry for entry what one-entry reading answers, in the
// order asked, with every kind of entry mixed and more entries than one pass takes.
TEST(NexthopGroupCounters, AGroupAskedAtOnceAnswersAsEntryByEntry) {
  NhgState s;
  std::vector<std::uint16_t> asked;
  for (std::uint16_t e = 0; e < 100; ++e) {
    asked.push_back(std::uint16_t(99 - e));  // not in index order
    switch (e % 5) {
      case 0:  // no key
        break;
      case 1:  // a key, no counter row anywhere
        s.counterKey(3, e, 1000u + e);
        break;
      case 2:  // current less snapshot
        s.counterKey(3, e, 1000u + e);
        NhgState::row(*s.current, 1000u + e, 500 + e, 64 * (500 + e));
        NhgState::row(*s.snapshot, 1000u + e, e, 64 * e);
        break;
      case 3:  // snapshot above current: wraps
        s.counterKey(3, e, 1000u + e, 2);
        NhgState::row(*s.current, 1000u + e, 1, 1, 2);
        NhgState::row(*s.snapshot, 1000u + e, 2, 2, 2);
        break;
      case 4:  // the empty key information
        s.counterKey(3, e, 0xffffffffu, 0);
        break;
    }
  }
  s.counterKey(3, 200, 7);
  NhgState::row(*s.current, 7, 70, 700);
  s.keys->corruptionInjectedIs({3, 200}, true);
  asked.push_back(200);

  auto h = mounted(s);
  std::vector<std::optional<CounterEntry>> batch(asked.size());
  h->entryCounters(3, asked, batch);
  for (std::size_t i = 0; i < asked.size(); ++i)
    EXPECT_EQ(batch[i], h->entryCounters(3, asked[i])) << "entry " << asked[i];
  constexpr auto kMax = std::numeric_limits<std::uint64_t>::max();
  EXPECT_EQ(batch[0], std::nullopt);                  // entry 99: empty key information
  EXPECT_EQ(batch[96], CounterEntry(kMax, kMax));     // entry 3: snapshot above current
  EXPECT_EQ(batch[97], CounterEntry(500, 64 * 500));  // entry 2
  EXPECT_EQ(batch[98], CounterEntry(0, 0));           // entry 1: a key, no rows
  EXPECT_EQ(batch[100], std::nullopt);                // the corrupt record, reported
  EXPECT_EQ(s.keys->corruptionReports(), 2u);
}

TEST(NexthopGroupCounters, MountsTheFixedPathsAndRefusesAMissingOne) {
  NhgState s;
  auto partial = Mox::makePtr<Statum::EntityManager>();
  partial->entityIs("tunnel/nexthop/counterkeyinfo", s.keys);
  partial->entityIs("flexCounter/counterTable/16/4294967295", s.current);
  auto fresh = Rova::nexthopGroupCounterHelperFactory();
  EXPECT_THROW(fresh->mountCounterBrines(*partial), Mox::RangeException);
  // Nothing half-mounted.
  EXPECT_FALSE(fresh->counterKeyTable());
  EXPECT_FALSE(fresh->counterTable());
  // Without tables every entry reads zero.
  EXPECT_EQ(fresh->getCounters(1, 0), CounterEntry(0, 0));
}

TEST(NexthopGroupCounters, ClearingMakesTheCurrentCountsTheSnapshot) {
  NhgState s;
  s.counterKey(1, 0, 5);
  s.counterKey(1, 1, 6);
  NhgState::row(*s.current, 5, 10, 100);
  NhgState::row(*s.snapshot, 5, 4, 40);
  // Entry 1's counter has not counted yet: no current row.
  auto h = mounted(s);
  EXPECT_TRUE(h->clearCounters(1, 0));
  EXPECT_TRUE(h->clearCounters(1, 1));
  EXPECT_FALSE(h->clearCounters(1, 2));  // no counter
  EXPECT_EQ(h->getCounters(1, 0), CounterEntry(0, 0));
  EXPECT_EQ(h->getCounters(1, 1), CounterEntry(0, 0));
  // The hardware counter runs on; the reading counts from the clear.
  NhgState::row(*s.current, 5, 25, 250);
  EXPECT_EQ(h->getCounters(1, 0), CounterEntry(15, 150));
  EXPECT_EQ(s.snapshot->lookup({5, 1}).packets, 10u);
}

TEST(NexthopGroupCounters, TheBaseClassStopsTheCommandWithItsAssertion) {
  const auto& reg = Rova::TypeRegistry::instance();
  Rova::Value base = reg.construct("Rova::NexthopGroupCliCounterInterface", {});
  const Rova::Value index[] = {Rova::Value(1u), Rova::Value(2u)};
  const Rova::Value args[] = {reg.construct("Rova::CounterIndex", index)};
  EXPECT_THROW(reg.call(base, "getCounters", args), Mox::InternalException);
  // A derived helper answers the same question by counter index.
  NhgState s;
  NhgState::row(*s.current, 1, 8, 80, 2);
  Rova::Value helper = Rova::toValue(mounted(s));
  const Rova::Value entry[] = {Rova::Value(std::uint64_t(9)), Rova::Value(0u)};
  const Rova::Value out = reg.call(helper, "getCounters", entry);
  EXPECT_EQ(reg.text(out), "Value('Rova::CounterEntry', ** {'packets': 0, 'bytes': 0})");
}

}  // namespace
