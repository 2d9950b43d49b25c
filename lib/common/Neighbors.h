#pragma once
// The resolved neighbours of one VRF and one family, for the listings that show them as host
// routes (the host listing) or count them (the route summary).

#include "platform/brine/Neighbor.h"
#include "platform/plexa/VrfName.h"

namespace Rova {

// Calls f(key) for each neighbour of family Fam in `vrf`, in the table's order. One table
// holds both families' neighbours of every VRF; management interfaces' neighbours are never
// routes. A table found changing under the walk is reported to it and not walked further.
template <class Fam, class F>
void forEachNeighborInVrf(const Arp::Table::Status& arp, const Vrf::VrfIdMap::Status* vrfIds,
                          const L3::VrfName& vrf, F&& f) {
  const bool defaultVrf = vrf.isDefault();
  for (auto it = arp.begin(); it != arp.end(); ++it) {
    Arp::Table::ArpEntry entry;
    try {
      entry = *it;
    } catch (const Velt::CorruptionDetectedException& e) {
      arp.corruptionDetected(e.what());
      break;
    }
    const auto& key = entry.arpKey;
    if (!Fam::ofFamily(key.addr) || key.intfId.isManagement()) continue;
    // An id missing from the map has the unset name, which names no VRF.
    const bool inVrf = defaultVrf ? key.vrfId == Vrf::VrfIdMap::kDefaultVrfId
                                  : vrfIds && vrfIds->vrfName(key.vrfId) == vrf;
    if (inVrf) f(key);
  }
}

}  // namespace Rova
