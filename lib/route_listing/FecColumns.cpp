// The FEC columns: what every route through one FEC prints the same, filled once per FEC.

#include "lib/route_listing/internal/ListingParts.h"
#include "lib/route_listing/internal/SorterAlgorithms.h"
#include "lib/route_listing/internal/TunnelVias.h"

namespace Rova {

namespace listing {

// Fills the FEC's per-entry columns the first time a route that uses it is printed: the
// tunnels' next hops for tunnel vias, the vias themselves otherwise. Resolution numbers what
// the tunnel vias become from the first entry on, so the plain vias follow all of it, in their
// own order, wherever they sort among the tunnel vias. The columns depend on the FEC alone, so
// every later route that shares it prints from what is there.
template <class Sorter>
void prepareFec(const Sorter& s, const Mox::Ptr<CachedFec>& fec) {
  if (fec->prepared()) return;
  fec->preparedIs(true);
  const bool tunnels = tunnel::hasTunnelVia(*fec);
  if (tunnels) {
    if (tunnel::isHierarchical(s, *fec)) {
      updateTunSortedViaHierarchy(fec, s);
    } else {
      updateTunSortedVia(fec, s);
    }
  }
  auto entry = static_cast<std::uint16_t>(tunnels ? fec->numEntries() : 0);
  for (const auto& via : fec->via()) {
    if (tunnels && !via.tunnelId().isZero()) continue;
    fec->viaTypeStringIs(entry, via.isBackup() ? "backup" : "active");
    if (!via.hop().isZero()) fec->nexthopAddrIs(entry, via.hop().stringValue());
    if (!via.intfId().isEmpty()) fec->interfaceIs(entry, via.intfId().stringValue());
    fec->labelIs(entry, via.viaLabel());
    if (!via.viaWeight().empty()) fec->viaWeightIs(entry, via.viaWeight());
    if (s.evpnVxlanTunnelTable() && s.evpnVxlanTunnelTable()->isValidEvpnIntf(via.intfId())) {
      fec->viaEvpnEntryIs(entry, s.evpnVxlanTunnelTable()->entry(via.intfId()));
    }
    if (s.detail()) {
      const auto d = tunnel::description(s, via.intfId());
      if (!d.empty()) fec->interfaceDescriptionIs(entry, d);
    }
    ++entry;
  }
  fec->numEntriesIs(entry);
}

template void prepareFec(const RouteSorter&, const Mox::Ptr<CachedFec>&);
template void prepareFec(const Route6Sorter&, const Mox::Ptr<CachedFec>&);

}  // namespace listing

}  // namespace Rova
