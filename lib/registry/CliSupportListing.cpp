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

// One collection's operation family: insert (false when the key is there), set, delete one,
// delete all. Reads go through the attribute's iteration.
#define ROVA_CACHED_FEC_COLLECTION_OPS(name, Name, Coll, key, value)                       \
  .op("new" #Name, &F::new##Name<>, {key, value})                                          \
      .op(#name "Is",                                                                      \
          static_cast<void (F::*)(const Coll::Key&, const Coll::Value&)>(&F::name##Is<>),  \
          {key, value})                                                                    \
      .op(#name "Del", static_cast<bool (F::*)(const Coll::Key&)>(&F::name##Del<>), {key}) \
      .op(#name "DelAll", &F::name##DelAll<>)

// A cached FEC as printing fills it: its collections' operations and the setters of the facts
// printing works out (an EVPN entry has no value form, so its map is read, not written).
TypeEntry cachedFecType() {
  using F = CachedFec;
  return TypeBuilder<F>("Rova::CachedFec")
      .factory("cachedFecFactory", &cachedFecFactory, {"fecId"})
      // clang-format off
      ROVA_CACHED_FEC_COLLECTION_OPS(via, Via, CachedViaSet, "via", "flag")
      ROVA_CACHED_FEC_COLLECTION_OPS(viaTypeString, ViaTypeString, EntryTextMap, "entry", "value")
      ROVA_CACHED_FEC_COLLECTION_OPS(nexthopAddr, NexthopAddr, EntryTextMap, "entry", "value")
      ROVA_CACHED_FEC_COLLECTION_OPS(interface, Interface, EntryTextMap, "entry", "value")
      ROVA_CACHED_FEC_COLLECTION_OPS(interfaceDescription, InterfaceDescription, EntryTextMap,
                                     "entry", "value")
      ROVA_CACHED_FEC_COLLECTION_OPS(label, Label, EntryMplsLabelMap, "entry", "value")
      ROVA_CACHED_FEC_COLLECTION_OPS(viaWeight, ViaWeight, EntryWeightMap, "entry", "value")
      ROVA_CACHED_FEC_COLLECTION_OPS(viaLabelStack, ViaLabelStack, EntryLabelStackMap,
                                     "entry", "value")
      ROVA_CACHED_FEC_COLLECTION_OPS(hostToCpu, HostToCpu, EntryFlagMap, "entry", "value")
      ROVA_CACHED_FEC_COLLECTION_OPS(lspVia, LspVia, EntryLspViaMap, "entry", "value")
      // clang-format on
      .op("connectedIs", &F::connectedIs, {"connected"})
      .op("backupViaIndexIs", &F::backupViaIndexIs, {"backupViaIndex"})
      .op("numEntriesIs", &F::numEntriesIs, {"numEntries"})
      .op("hasBackupIs", &F::hasBackupIs, {"hasBackup"})
      .op("weightIs", &F::weightIs, {"weight"})
      .op("hierarchicalViaIs", &F::hierarchicalViaIs, {"hierarchicalVia"})
      .build();
}
#undef ROVA_CACHED_FEC_COLLECTION_OPS

}  // namespace Rova::cliSupport
