#include "lib/nexthop_group/NexthopGroupCounterHelper.h"

#include <algorithm>
#include <cstdio>

namespace Rova {

namespace {

// The counter tables are one per counter feature and chip set; nexthop-group entries use the
// feature numbered 16 on every chip (a mask of all ones).
constexpr unsigned kNexthopGroupFeature = 16;
constexpr unsigned kAllChips = 4294967295u;

std::string counterPath(const char* format) {
  char path[96];
  std::snprintf(path, sizeof path, format, kNexthopGroupFeature, kAllChips);
  return path;
}

// The framework's mounts hand out read-only handles; the helper keeps writable ones because
// clearing writes the snapshot table.
template <class T>
Mox::Ptr<T> mountTable(const Statum::EntityManager& em, const std::string& path) {
  return Mox::Ptr<T>(const_cast<T*>(em.mount<T>(path).get()));
}

FlexCounters::CounterRow counterRow(const Mox::Ptr<FlexCounters::CounterTable>& table,
                                    const FlexCounters::CounterKey& key) {
  return table ? table->lookup(key) : FlexCounters::CounterRow{};
}

}  // namespace

void NexthopGroupCounterHelper::mountCounterBrines(const Statum::EntityManager& em) {
  using Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable;
  auto keys = mountTable<NexthopGroupEntryToCounterKeyTable>(em, "tunnel/nexthop/counterkeyinfo");
  auto current =
      mountTable<FlexCounters::CounterTable>(em, counterPath("flexCounter/counterTable/%u/%u"));
  auto snapshot = mountTable<FlexCounters::CounterTable>(
      em, counterPath("flexCounter/snapshotCounterTable/%u/%u"));
  counterKeyTableIs(keys);
  counterTableIs(current);
  snapshotTableIs(snapshot);
}

Routing::NexthopGroup::NexthopGroupEntryCounterKeyInfo NexthopGroupCounterHelper::keyInfo(
    std::uint64_t nexthopGroupId, std::uint16_t entryIndex) const {
  using Routing::NexthopGroup::CounterKeyRecord;
  if (!counterKeyTable()) return {};
  CounterKeyRecord record;
  try {
    record = counterKeyTable()->lookup({nexthopGroupId, entryIndex});
  } catch (const Velt::CorruptionDetectedException& e) {
    counterKeyTable()->corruptionDetected(e.what());
    record = CounterKeyRecord{};
  }
  return record.info;
}

CounterEntry NexthopGroupCounterHelper::getCounters(std::uint64_t nexthopGroupId,
                                                    std::uint16_t entryIndex) {
  return entryCounters(nexthopGroupId, entryIndex).value_or(CounterEntry(0, 0));
}

std::optional<CounterEntry> NexthopGroupCounterHelper::entryCounters(std::uint64_t nexthopGroupId,
                                                                     std::uint16_t entryIndex) {
  const auto info = keyInfo(nexthopGroupId, entryIndex);
  if (info == Routing::NexthopGroup::NexthopGroupEntryCounterKeyInfo{}) return std::nullopt;
  return getCounters(CounterIndex(info.counterIndex, info.chipMask));
}

void NexthopGroupCounterHelper::entryCounters(std::uint64_t nexthopGroupId,
                                              std::span<const std::uint16_t> entryIndexes,
                                              std::span<std::optional<CounterEntry>> out) {
  using Routing::NexthopGroup::NexthopGroupEntryCounterKeyInfo;
  // Enough keys in flight to keep the memory system busy, few enough to sit on the stack.
  constexpr std::size_t kBatch = 32;
  const auto* keys = counterKeyTable().get();
  const auto* current = counterTable().get();
  const auto* snapshot = snapshotTable().get();
  for (std::size_t base = 0; base < entryIndexes.size(); base += kBatch) {
    const auto indexes = entryIndexes.subspan(base, std::min(kBatch, entryIndexes.size() - base));
    const std::size_t n = indexes.size();
    // Each pass starts the misses of the next: slots, then records, of the key table, then of
    // the two counter tables. Only the last pass reads values, the same way one entry's
    // reading does.
    if (keys) {
      for (std::size_t i = 0; i < n; ++i)
        keys->prefetchSlot({nexthopGroupId, indexes[i]});
      for (std::size_t i = 0; i < n; ++i)
        keys->prefetchRecord({nexthopGroupId, indexes[i]});
    }
    NexthopGroupEntryCounterKeyInfo info[kBatch];
    for (std::size_t i = 0; i < n; ++i) {
      info[i] = keyInfo(nexthopGroupId, indexes[i]);
      const FlexCounters::CounterKey key{info[i].counterIndex, info[i].chipMask};
      if (current) current->prefetchSlot(key);
      if (snapshot) snapshot->prefetchSlot(key);
    }
    for (std::size_t i = 0; i < n; ++i) {
      const FlexCounters::CounterKey key{info[i].counterIndex, info[i].chipMask};
      if (current) current->prefetchRecord(key);
      if (snapshot) snapshot->prefetchRecord(key);
    }
    for (std::size_t i = 0; i < n; ++i) {
      if (info[i] == NexthopGroupEntryCounterKeyInfo{}) {
        out[base + i] = std::nullopt;
      } else {
        out[base + i] = getCounters(CounterIndex(info[i].counterIndex, info[i].chipMask));
      }
    }
  }
}

const CounterEntry NexthopGroupCounterHelper::getCounters(CounterIndex index) {
  const FlexCounters::CounterKey key{index.counterIndex(), index.chipMask()};
  const auto current = counterRow(counterTable(), key);
  const auto snapshot = counterRow(snapshotTable(), key);
  return {current.packets - snapshot.packets, current.bytes - snapshot.bytes};
}

bool NexthopGroupCounterHelper::clearCounters(std::uint64_t nexthopGroupId,
                                              std::uint16_t entryIndex) {
  const auto info = keyInfo(nexthopGroupId, entryIndex);
  if (info == Routing::NexthopGroup::NexthopGroupEntryCounterKeyInfo{} || !snapshotTable()) {
    return false;
  }
  const FlexCounters::CounterKey key{info.counterIndex, info.chipMask};
  FlexCounters::CounterRow row = counterRow(counterTable(), key);
  row.counterKey = key;
  snapshotTable()->recordIs(row);
  return true;
}

Mox::Ptr<NexthopGroupCounterHelper> nexthopGroupCounterHelperFactory() {
  return Mox::makePtr<NexthopGroupCounterHelper>();
}

}  // namespace Rova
