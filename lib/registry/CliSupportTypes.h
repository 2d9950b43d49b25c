#pragma once
// The entry of each library type, one function per type, written in a file of its subject
// (CliSupportListing.cpp, ...); CliSupport.cpp registers them in order. The entries are the
// heaviest code of the registry to compile: apart, they build side by side. Each file sees the
// text forms and names of the forwarding records (RecordText.h), which operations hand back.

#include "lib/registry/RecordText.h"
#include "lib/registry/TypeRegistry.h"

namespace Rova::cliSupport {

// CliSupportRouteSorter.cpp, CliSupportRoute6Sorter.cpp
TypeEntry routeSorterType();
TypeEntry route6SorterType();

// CliSupportListing.cpp
TypeEntry routeSummaryType();
TypeEntry route6SummaryType();
TypeEntry cachedViaType();
TypeEntry cachedLspViaType();
TypeEntry cachedFecType();

// CliSupportNexthopGroups.cpp
TypeEntry counterIndexType();
TypeEntry counterEntryType();
TypeEntry nexthopGroupHelperType();
TypeEntry nexthopGroupSummaryHelperType();
TypeEntry nexthopGroupCliCounterInterfaceType();
TypeEntry nexthopGroupCounterHelperType();

// CliSupportConfigChecks.cpp
TypeEntry addressQueryResultType();
TypeEntry address6QueryParamsType();
TypeEntry addressAssignmentCheckerType();
TypeEntry addressQueryParamsType();
TypeEntry invalidNextHop6CheckerType();
TypeEntry address6AssignmentCheckerType();
TypeEntry invalidNextHopCheckerType();
TypeEntry addrMatchTypeType();
TypeEntry rdAssignmentCheckerType();

// CliSupportStaticRoutes.cpp
TypeEntry staticRoutesRibCommonType();
TypeEntry routeSortKeyType();
TypeEntry rovaConstsType();
TypeEntry nexthopInfoType();
TypeEntry staticRoutesCliSaverType();
TypeEntry clearIntfRoutesAndViasHelperType();
// A state record the front end reads by attribute name.
TypeEntry staticRouteDefaultsRecord();
// The other state records and the forwarding routes listings hand back (CliSupportRecords.cpp).
std::vector<TypeMaker> stateRecords();

// The configuration editors (CliSupportStaticRoutes.cpp, CliSupportConfigChecks.cpp).
TypeEntry staticRouteEditorType();
TypeEntry staticRouteFibType();
TypeEntry intfAddressEditorType();

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

}  // namespace Rova::cliSupport
