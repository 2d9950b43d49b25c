// Registration of every library type, in registration order, by name: an entry is built the
// first time its type is asked for, so a command pays for the types it uses. Each entry comes from
// the class's own attribute list; the lines that make it (CliSupportListing.cpp and the other files
// of CliSupportTypes.h) add what a list cannot say: how the type is constructed and which
// operations the front end may call.

#include "lib/registry/CliSupportTypes.h"

namespace Rova {

void registerTypes(TypeRegistry& r) {
  using namespace cliSupport;
  r.add({"Rova::CounterIndex", madeBy<counterIndexType>});
  r.add({"Rova::CachedVia", madeBy<cachedViaType>});
  r.add({"Rova::AddressQueryResult", madeBy<addressQueryResultType>});
  r.add({"Rova::Address6QueryParams", madeBy<address6QueryParamsType>});
  r.add({"Rova::Route6Sorter", madeBy<route6SorterType>});
  r.add({"Rova::StaticRoutesRibCommon", madeBy<staticRoutesRibCommonType>});
  r.add({"Rova::CounterEntry", madeBy<counterEntryType>});
  r.add({"Rova::AddressAssignmentChecker", madeBy<addressAssignmentCheckerType>});
  r.add({"Rova::NexthopGroupHelper", madeBy<nexthopGroupHelperType>});
  r.add({"Rova::RouteSortKey", madeBy<routeSortKeyType>});
  r.add({"Rova::RovaConsts", madeBy<rovaConstsType>});
  r.add({"Rova::NexthopInfo", madeBy<nexthopInfoType>});
  r.add({"Rova::NexthopGroupSummaryHelper", madeBy<nexthopGroupSummaryHelperType>});
  r.add({"Rova::AddressQueryParams", madeBy<addressQueryParamsType>});
  r.add({"Rova::NexthopGroupCliCounterInterface", madeBy<nexthopGroupCliCounterInterfaceType>});
  r.add({"Rova::InvalidNextHop6Checker", madeBy<invalidNextHop6CheckerType>});
  r.add({"Rova::Address6AssignmentChecker", madeBy<address6AssignmentCheckerType>});
  r.add({"Rova::StaticRoutesCliSaver", madeBy<staticRoutesCliSaverType>});
  r.add({"Rova::RouteSummary", madeBy<routeSummaryType>});
  r.add({"Rova::InvalidNextHopChecker", madeBy<invalidNextHopCheckerType>});
  r.add({"Rova::AddrMatchType", madeBy<addrMatchTypeType>});
  r.add({"Rova::RouteSorter", madeBy<routeSorterType>});
  r.add({"Rova::CachedLspVia", madeBy<cachedLspViaType>});
  r.add({"Rova::RdAssignmentChecker", madeBy<rdAssignmentCheckerType>});
  r.add({"Rova::NexthopGroupCounterHelper", madeBy<nexthopGroupCounterHelperType>});
  r.add({"Rova::Route6Summary", madeBy<route6SummaryType>});
  r.add({"Rova::CachedFec", madeBy<cachedFecType>});
  r.add({"Rova::ClearIntfRoutesAndViasHelper", madeBy<clearIntfRoutesAndViasHelperType>});

  // State records the front end reads by attribute name.
  r.addRecord({"Routing::StaticRouteDefaults", madeBy<staticRouteDefaultsRecord>});
  for (const TypeMaker& m : stateRecords())
    r.addRecord(m);

  // What writers of configuration call to change it.
  r.addEditor({"Rova::StaticRouteEditor", madeBy<staticRouteEditorType>});
  r.addEditor({"Rova::IntfAddressEditor", madeBy<intfAddressEditorType>});
  r.addEditor({"Rova::StaticRouteFib", madeBy<staticRouteFibType>});
}

}  // namespace Rova
