// Registration of every library type, in registration order. Each entry comes from the class's
// own attribute list; the lines here add what a list cannot say: how the type is constructed
// and which operations the front end may call.

#include "lib/config_checks/Address6AssignmentChecker.h"
#include "lib/config_checks/Address6QueryParams.h"
#include "lib/config_checks/AddressAssignmentChecker.h"
#include "lib/config_checks/AddressQueryParams.h"
#include "lib/config_checks/AddressQueryResult.h"
#include "lib/config_checks/InvalidNextHop6Checker.h"
#include "lib/config_checks/InvalidNextHopChecker.h"
#include "lib/config_checks/RdAssignmentChecker.h"
#include "lib/nexthop_group/CounterEntry.h"
#include "lib/nexthop_group/NexthopGroupCliCounterInterface.h"
#include "lib/nexthop_group/NexthopGroupCounterHelper.h"
#include "lib/nexthop_group/NexthopGroupHelper.h"
#include "lib/nexthop_group/NexthopGroupSummaryHelper.h"
#include "lib/registry/RecordText.h"
#include "lib/registry/TypeRegistry.h"
#include "lib/route_listing/CachedFec.h"
#include "lib/route_listing/RouteSorter.h"
#include "lib/route_summary/RouteSummary.h"
#include "lib/static_routes/ClearIntfRoutesAndViasHelper.h"
#include "lib/static_routes/NexthopInfo.h"
#include "lib/static_routes/RouteSortKey.h"
#include "lib/static_routes/RovaConsts.h"
#include "lib/static_routes/StaticRoutesCliSaver.h"
#include "lib/static_routes/StaticRoutesRibCommon.h"
#include "platform/state/RoutingConfig.h"

namespace Rova {

namespace {

// Both sorters: constructed from their inputs (in order or by name), with the same operations.
template <class Sorter>
TypeEntry sorterType(const char* name) {
  return TypeBuilder<Sorter>(name)
      .inputs()
      .op("legend", &Sorter::legend)
      .op("hostLegend", &Sorter::hostLegend)
      .op("buildNexthopGroupIdToName", &Sorter::buildNexthopGroupIdToName)
      .op("createAttachedRoute", &Sorter::createAttachedRoute, {"address", "intfId"})
      .op("handleInitialized", &Sorter::handleInitialized)
      .op("printRoutes", &Sorter::printRoutes, {"fd", "fmt"})
      .op("longestPrefixMatch", &Sorter::longestPrefixMatch)
      .op("protocolString", &Sorter::protocolString, {"prefix"})
      .op("viasForPrefix", &Sorter::viasForPrefix, {"prefix"})
      .build();
}

// Both summaries: constructed from their inputs; the front end loads, then reads the counts.
template <class Summary>
TypeEntry summaryType(const char* name) {
  return TypeBuilder<Summary>(name)
      .inputs()
      .op("loadInternalStructures", &Summary::loadInternalStructures)
      .op("loadAttachedRoutes", &Summary::loadAttachedRoutes)
      .build();
}

// The summary's two count maps, with the collection operations the front end may call on them.
TypeEntry nhgSummaryType() {
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

}  // namespace

void registerTypes(TypeRegistry& r) {
  r.add(TypeBuilder<CounterIndex>("Rova::CounterIndex")
            .constructor<std::uint32_t, std::uint32_t>({"counterIndex", "chipMask"})
            .build());
  r.add(TypeBuilder<CachedVia>("Rova::CachedVia").constructor<>().build());
  r.add(TypeBuilder<AddressQueryResult>("Rova::AddressQueryResult").constructor<>().build());
  r.add(TypeBuilder<Address6QueryParams>("Rova::Address6QueryParams")
            .factory("address6QueryParamsFactory", &address6QueryParamsFactory,
                     {"ip6Config", "intfName", "mgmtPrefix", "addrWithMask"})
            .op("ip6ConfigIs", &Address6QueryParams::ip6ConfigIs, {"ip6Config"})
            .op("intfNameIs", &Address6QueryParams::intfNameIs, {"intfName"})
            .op("mgmtPrefixIs", &Address6QueryParams::mgmtPrefixIs, {"mgmtPrefix"})
            .op("addrWithMaskIs", &Address6QueryParams::addrWithMaskIs, {"addrWithMask"})
            .build());
  r.add(sorterType<Route6Sorter>("Rova::Route6Sorter"));
  r.add(TypeBuilder<StaticRoutesRibCommon>("Rova::StaticRoutesRibCommon")
            .constructor<RibAllIntfConfigPtr>({"allIntfConfig"})
            .op("newRouteInputConf", &StaticRoutesRibCommon::newRouteInputConf<>,
                {"routeInput", "flag"})
            .op("dump", &StaticRoutesRibCommon::dump, {"rovaConsts"})
            .op("legend", &StaticRoutesRibCommon::legend)
            .build());
  r.add(TypeBuilder<CounterEntry>("Rova::CounterEntry")
            .constructor<std::uint64_t, std::uint64_t>({"packets", "bytes"})
            .build());
  r.add(TypeBuilder<AddressAssignmentChecker>("Rova::AddressAssignmentChecker")
            .constructor<>()
            .op("check", &AddressAssignmentChecker::check, {"params"})
            .build());
  r.add(TypeBuilder<NexthopGroupHelper>("Rova::NexthopGroupHelper")
            .factory("nexthopGroupHelperFactory", &nexthopGroupHelperFactory,
                     {"nhgConfig", "nhgEntryStatus", "nhgHwStatus", "routingHwStatus",
                      "counterHelper", "nhgName"})
            .op("vrfNameIs", &NexthopGroupHelper::vrfNameIs, {"vrfName"})
            .op("processNexthopVias", &NexthopGroupHelper::processNexthopVias)
            .op("render", &NexthopGroupHelper::render, {"fd", "fmt"})
            .op("clearCounters", &NexthopGroupHelper::clearCounters)
            .build());
  r.add(TypeBuilder<RouteSortKey>("Rova::RouteSortKey")
            .constructor<Plexa::IpGenPrefix, Routing::RoutePreference>({"prefix", "preference"})
            .build());
  r.add(TypeBuilder<RovaConsts>("Rova::RovaConsts").constructor<>().build());
  r.add(TypeBuilder<NexthopInfo>("Rova::NexthopInfo").constructor<>().build());
  r.add(nhgSummaryType());
  r.add(TypeBuilder<AddressQueryParams>("Rova::AddressQueryParams")
            .factory("addressQueryParamsFactory", &addressQueryParamsFactory,
                     {"ipConfig", "intfName", "mgmtPrefix", "primaryMatch", "secondaryMatch",
                      "addrWithMask"})
            .op("ipConfigIs", &AddressQueryParams::ipConfigIs, {"ipConfig"})
            .op("intfNameIs", &AddressQueryParams::intfNameIs, {"intfName"})
            .op("mgmtPrefixIs", &AddressQueryParams::mgmtPrefixIs, {"mgmtPrefix"})
            .op("primaryMatchIs", &AddressQueryParams::primaryMatchIs, {"primaryMatch"})
            .op("secondaryMatchIs", &AddressQueryParams::secondaryMatchIs, {"secondaryMatch"})
            .op("addrWithMaskIs", &AddressQueryParams::addrWithMaskIs, {"addrWithMask"})
            .build());
  r.add(TypeBuilder<NexthopGroupCliCounterInterface>("Rova::NexthopGroupCliCounterInterface")
            .constructor<>()
            .op("getCounters", &NexthopGroupCliCounterInterface::getCounters, {"index"})
            .build());
  r.add(TypeBuilder<InvalidNextHop6Checker>("Rova::InvalidNextHop6Checker")
            .constructor<>()
            .op("check", &InvalidNextHop6Checker::check, {"ip6Config", "nexthop", "vrfName"})
            .build());
  r.add(TypeBuilder<Address6AssignmentChecker>("Rova::Address6AssignmentChecker")
            .constructor<>()
            .op("check", &Address6AssignmentChecker::check, {"params"})
            .build());
  r.add(
      TypeBuilder<StaticRoutesCliSaver>("Rova::StaticRoutesCliSaver")
          .constructor<>()
          .textConstructor()
          .op("save", &StaticRoutesCliSaver::save, {"config", "saveAll", "routeCmd", "rovaConsts"})
          .build());
  r.add(summaryType<RouteSummary>("Rova::RouteSummary"));
  r.add(TypeBuilder<InvalidNextHopChecker>("Rova::InvalidNextHopChecker")
            .constructor<>()
            .op("check", &InvalidNextHopChecker::check, {"ipConfig", "nexthop", "vrfName"})
            .build());
  r.add(TypeBuilder<AddrMatchType>("Rova::AddrMatchType")
            .constructor<AddrMatchType>({"value"})
            .enumNames({"allowNoMatch", "allowExactMatch", "allowAddressMatch"})
            .build());
  r.add(sorterType<RouteSorter>("Rova::RouteSorter"));
  r.add(TypeBuilder<CachedLspVia>("Rova::CachedLspVia").constructor<>().build());
  r.add(TypeBuilder<RdAssignmentChecker>("Rova::RdAssignmentChecker")
            .constructor<Mox::Ptr<Mox::Dir const>, Mox::String8, Plexa::RouteDistinguisher>(
                {"routeDistinguisherInputDir", "vrfName", "routeDistinguisher"})
            .textConstructor()
            .op("handleInitialized", &RdAssignmentChecker::handleInitialized)
            .build());
  r.add(
      TypeBuilder<NexthopGroupCounterHelper>("Rova::NexthopGroupCounterHelper")
          .factory("nexthopGroupCounterHelperFactory", &nexthopGroupCounterHelperFactory, {})
          .op("mountCounterBrines", &NexthopGroupCounterHelper::mountCounterBrines,
              {"entityManager"})
          .op("getCounters",
              static_cast<CounterEntry (NexthopGroupCounterHelper::*)(
                  std::uint64_t, std::uint16_t)>(&NexthopGroupCounterHelper::getCounters),
              {"nhgId", "entryId"})
          .op("clearCounters", &NexthopGroupCounterHelper::clearCounters, {"nhgId", "entryId"})
          .op("counterKeyTableIs", &NexthopGroupCounterHelper::counterKeyTableIs,
              {"counterKeyTable"})
          .op("counterTableIs", &NexthopGroupCounterHelper::counterTableIs, {"counterTable"})
          .op("snapshotTableIs", &NexthopGroupCounterHelper::snapshotTableIs, {"snapshotTable"})
          .op("counterEnabledIs", &NexthopGroupCounterHelper::counterEnabledIs, {"counterEnabled"})
          .build());
  r.add(summaryType<Route6Summary>("Rova::Route6Summary"));
  r.add(TypeBuilder<CachedFec>("Rova::CachedFec")
            .factory("cachedFecFactory", &cachedFecFactory, {"fecId"})
            .build());
  r.add(TypeBuilder<ClearIntfRoutesAndViasHelper>("Rova::ClearIntfRoutesAndViasHelper")
            .constructor<>()
            .op("clearIntfRoutesAndViasHelper",
                &ClearIntfRoutesAndViasHelper::clearIntfRoutesAndViasHelper, {"config", "intf"})
            .build());

  // State records the front end reads by attribute name.
  r.addRecord(TypeBuilder<Routing::StaticRouteDefaults>("Routing::StaticRouteDefaults").build());
}

}  // namespace Rova
