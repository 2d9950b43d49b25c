// The entries of the route summary's types and of the listing's cached FECs and vias.

#include "lib/registry/CliSupportTypes.h"
#include "lib/route_listing/CachedFec.h"
#include "lib/route_summary/RouteSummary.h"

namespace Rova::cliSupport {

namespace {

// Both summaries: constructed from their inputs; the front end loads, then reads the counts.
template <class Summary>
TypeEntry summaryType(const char* name) {
  return TypeBuilder<Summary>(name)
      .inputs()
      .op("loadInternalStructures", &Summary::loadInternalStructures)
      .op("loadAttachedRoutes", &Summary::loadAttachedRoutes)
      .build();
}

}  // namespace

TypeEntry routeSummaryType() {
  return summaryType<RouteSummary>("Rova::RouteSummary");
}

TypeEntry route6SummaryType() {
  return summaryType<Route6Summary>("Rova::Route6Summary");
}

TypeEntry cachedViaType() {
  return TypeBuilder<CachedVia>("Rova::CachedVia").constructor<>().build();
}

TypeEntry cachedLspViaType() {
  return TypeBuilder<CachedLspVia>("Rova::CachedLspVia").constructor<>().build();
}

TypeEntry cachedFecType() {
  return TypeBuilder<CachedFec>("Rova::CachedFec")
      .factory("cachedFecFactory", &cachedFecFactory, {"fecId"})
      .build();
}

}  // namespace Rova::cliSupport
