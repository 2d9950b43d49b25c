// The entries of the nexthop groups' types: the listing, the summary and the entry counters.

#include "lib/nexthop_group/CounterEntry.h"
#include "lib/nexthop_group/NexthopGroupCliCounterInterface.h"
#include "lib/nexthop_group/NexthopGroupCounterHelper.h"
#include "lib/nexthop_group/NexthopGroupHelper.h"
#include "lib/nexthop_group/NexthopGroupSummaryHelper.h"
#include "lib/registry/CliSupportTypes.h"

namespace Rova::cliSupport {

TypeEntry counterIndexType() {
  return TypeBuilder<CounterIndex>("Rova::CounterIndex")
      .constructor<std::uint32_t, std::uint32_t>({"counterIndex", "chipMask"})
      .build();
}

TypeEntry counterEntryType() {
  return TypeBuilder<CounterEntry>("Rova::CounterEntry")
      .constructor<std::uint64_t, std::uint64_t>({"packets", "bytes"})
      .build();
}

TypeEntry nexthopGroupHelperType() {
  return TypeBuilder<NexthopGroupHelper>("Rova::NexthopGroupHelper")
      .factory("nexthopGroupHelperFactory", &nexthopGroupHelperFactory,
               {"nhgConfig", "nhgEntryStatus", "nhgHwStatus", "routingHwStatus", "counterHelper",
                "nhgName"})
      .op("vrfNameIs", &NexthopGroupHelper::vrfNameIs, {"vrfName"})
      .op("processNexthopVias", &NexthopGroupHelper::processNexthopVias)
      .op("render", &NexthopGroupHelper::render, {"fd", "fmt"})
      .op("clearCounters", &NexthopGroupHelper::clearCounters)
      .build();
}

// The summary's two count maps, with the collection operations the front end may call on them.
TypeEntry nexthopGroupSummaryHelperType() {
  using S = NexthopGroupSummaryHelper;
  using Type = Routing::NexthopGroup::NexthopGroupType;
  return TypeBuilder<S>("Rova::NexthopGroupSummaryHelper")
      .inputs()
      .op("vrfNameIs", &S::vrfNameIs, {"vrfName"})
      .op("processNexthopGroups", &S::processNexthopGroups)
      .op("render", &S::render, {"fd", "fmt"})
      .op("newNhgPerType", &S::newNhgPerType<>, {"type", "count"})
      .op("nhgPerTypeIs",
          static_cast<void (S::*)(const Type&, const std::uint32_t&)>(&S::nhgPerTypeIs),
          {"type", "count"})
      .op("nhgPerTypeDel", static_cast<bool (S::*)(const Type&)>(&S::nhgPerTypeDel), {"type"})
      .op("nhgPerTypeDelAll", &S::nhgPerTypeDelAll<>)
      .op("newNhgPerSize", &S::newNhgPerSize<>, {"size", "count"})
      .op("nhgPerSizeIs",
          static_cast<void (S::*)(const std::uint32_t&, const std::uint32_t&)>(&S::nhgPerSizeIs),
          {"size", "count"})
      .op("nhgPerSizeDel", static_cast<bool (S::*)(const std::uint32_t&)>(&S::nhgPerSizeDel),
          {"size"})
      .op("nhgPerSizeDelAll", &S::nhgPerSizeDelAll<>)
      .build();
}

TypeEntry nexthopGroupCliCounterInterfaceType() {
  return TypeBuilder<NexthopGroupCliCounterInterface>("Rova::NexthopGroupCliCounterInterface")
      .constructor<>()
      .op("getCounters", &NexthopGroupCliCounterInterface::getCounters, {"index"})
      .build();
}

TypeEntry nexthopGroupCounterHelperType() {
  using H = NexthopGroupCounterHelper;
  return TypeBuilder<H>("Rova::NexthopGroupCounterHelper")
      .factory("nexthopGroupCounterHelperFactory", &nexthopGroupCounterHelperFactory, {})
      .op("mountCounterBrines", &H::mountCounterBrines, {"entityManager"})
      .op("getCounters",
          static_cast<CounterEntry (H::*)(std::uint64_t, std::uint16_t)>(&H::getCounters),
          {"nhgId", "entryId"})
      .op("clearCounters", &H::clearCounters, {"nhgId", "entryId"})
      .op("counterKeyTableIs", &H::counterKeyTableIs, {"counterKeyTable"})
      .op("counterTableIs", &H::counterTableIs, {"counterTable"})
      .op("snapshotTableIs", &H::snapshotTableIs, {"snapshotTable"})
      .op("counterEnabledIs", &H::counterEnabledIs, {"counterEnabled"})
      .build();
}

}  // namespace Rova::cliSupport
