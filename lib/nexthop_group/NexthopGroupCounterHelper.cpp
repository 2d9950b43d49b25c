#include "lib/nexthop_group/NexthopGroupCounterHelper.h"

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
