// Registration of every library type, in registration order. Each entry comes from the class's
// own attribute list; the lines that make it (CliSupportListing.cpp and the other files of
// CliSupportTypes.h) add what a list cannot say: how the type is constructed and which
// operations the front end may call.

#include "lib/registry/CliSupportTypes.h"

namespace Rova {

void registerTypes(TypeRegistry& r) {
  using namespace cliSupport;
  r.add(counterIndexType());
  r.add(cachedViaType());
  r.add(addressQueryResultType());
  r.add(address6QueryParamsType());
  r.add(route6SorterType());
  r.add(staticRoutesRibCommonType());
  r.add(counterEntryType());
  r.add(addressAssignmentCheckerType());
  r.add(nexthopGroupHelperType());
  r.add(routeSortKeyType());
  r.add(rovaConstsType());
  r.add(nexthopInfoType());
  r.add(nexthopGroupSummaryHelperType());
  r.add(addressQueryParamsType());
  r.add(nexthopGroupCliCounterInterfaceType());
  r.add(invalidNextHop6CheckerType());
  r.add(address6AssignmentCheckerType());
  r.add(staticRoutesCliSaverType());
  r.add(routeSummaryType());
  r.add(invalidNextHopCheckerType());
  r.add(addrMatchTypeType());
  r.add(routeSorterType());
  r.add(cachedLspViaType());
  r.add(rdAssignmentCheckerType());
  r.add(nexthopGroupCounterHelperType());
  r.add(route6SummaryType());
  r.add(cachedFecType());
  r.add(clearIntfRoutesAndViasHelperType());

  // State records the front end reads by attribute name.
  r.addRecord(staticRouteDefaultsRecord());
  for (TypeEntry& e : stateRecords())
    r.addRecord(std::move(e));

  // What writers of configuration call to change it.
  r.addEditor(staticRouteEditorType());
  r.addEditor(intfAddressEditorType());
  r.addEditor(staticRouteFibType());
}

}  // namespace Rova
