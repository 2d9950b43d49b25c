#pragma once
// Per-entry counters of nexthop groups, from the flex counter tables: what entry N of the group
// with id G has forwarded since the last clear. Clearing does not zero the hardware counters
// (other readers need them running); it saves their current values as a snapshot, and every
// reading subtracts it.
//
//   auto counters = Rova::nexthopGroupCounterHelperFactory();
//   counters->mountCounterBrines(entityManager);
//   Rova::CounterEntry c = counters->getCounters(nhgId, 2);  // entry 2 of group nhgId

#include <cstdint>
#include <optional>
#include <span>

#include "lib/nexthop_group/NexthopGroupCliCounterInterface.h"
#include "platform/brine/FlexCounters.h"
#include "platform/brine/NexthopGroupTables.h"
#include "platform/mox/Attribute.h"
#include "platform/statum/EntityManager.h"

namespace Rova {

#define ROVA_NHG_COUNTER_HELPER_ATTRS(F, C)                                                        \
  F(counterKeyTable, CounterKeyTable,                                                              \
    Mox::Ptr<Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable>, Mox::AttrKind::input, {}) \
  F(counterTable, CounterTable, Mox::Ptr<FlexCounters::CounterTable>, Mox::AttrKind::input, {})    \
  F(snapshotTable, SnapshotTable, Mox::Ptr<FlexCounters::CounterTable>, Mox::AttrKind::input, {})  \
  F(counterEnabled, CounterEnabled, bool, Mox::AttrKind::input, {false})

class NexthopGroupCounterHelper : public NexthopGroupCliCounterInterface {
  MOX_ATTRIBUTES(NexthopGroupCounterHelper, ROVA_NHG_COUNTER_HELPER_ATTRS)

 public:
  static constexpr const char* kTypeName = "Rova::NexthopGroupCounterHelper";
  const char* typeName() const override { return kTypeName; }

  // The three tables at their fixed paths in the state database. A path that is missing, or
  // holds something else, raises Mox::RangeException and leaves the tables as they were.
  void mountCounterBrines(const Statum::EntityManager& entityManager);

  // What entry `entryIndex` of group `nexthopGroupId` counted since the last clear: zero for an
  // entry without a counter (or whose key record reads corrupt, which the key table hears of).
  CounterEntry getCounters(std::uint64_t nexthopGroupId, std::uint16_t entryIndex);
  // The current counts of one counter less its snapshot, each an unsigned 64-bit subtraction:
  // a snapshot above the current value wraps around rather than being hidden.
  const CounterEntry getCounters(CounterIndex index) override;

  // The same, but nothing when the entry has no counter allocated, so that a listing can tell
  // "no counter" from "counted nothing".
  std::optional<CounterEntry> entryCounters(std::uint64_t nexthopGroupId, std::uint16_t entryIndex);
  // The same for many entries of one group, out[i] for entryIndexes[i] (the two the same
  // length). Each entry costs three lookups in tables far larger than the cache (its key, its
  // counter, its snapshot); asked together, their cache misses overlap instead of following
  // one another, which on a large device is most of a listing's time.
  void entryCounters(std::uint64_t nexthopGroupId, std::span<const std::uint16_t> entryIndexes,
                     std::span<std::optional<CounterEntry>> out);

  // Clears one entry's counts: its current values become its snapshot. An entry without a
  // counter has nothing to clear. Returns whether a snapshot was written.
  bool clearCounters(std::uint64_t nexthopGroupId, std::uint16_t entryIndex);

 private:
  // The entry's counter key; the empty key information when it has no counter.
  Routing::NexthopGroup::NexthopGroupEntryCounterKeyInfo keyInfo(std::uint64_t nexthopGroupId,
                                                                 std::uint16_t entryIndex) const;
};

// A helper with no tables mounted and counters off.
Mox::Ptr<NexthopGroupCounterHelper> nexthopGroupCounterHelperFactory();

}  // namespace Rova
