#pragma once
// Sorter inputs from a loaded state: the tables the rova program hands a sorter for one VRF,
// for tests and benchmarks that build sorters directly. Options are the caller's to set.

#include <string>

#include "lib/route_listing/RouteSorter.h"
#include "platform/statum/EntityManager.h"
#include "snapshot/StateLayout.h"

namespace rovatest {

template <class Sorter>
typename Sorter::Inputs stateInputs(const Statum::EntityManager& em, const std::string& vrfName) {
  namespace layout = Snapshot::layout;
  using Fam = typename Sorter::Family;
  using Own = layout::FamilyEntities<Fam>;
  typename Sorter::Inputs in;
  in.routingConfig = layout::find(em, Own::routingConfig, vrfName);
  in.routingStatus = layout::find(em, Own::routes, vrfName);
  in.forwardingStatus = layout::find(em, Own::fecs, vrfName);
  if constexpr (!Fam::kIsV6) in.forwarding6Status = layout::find(em, layout::fib6Fec, vrfName);
  in.tunnelFib = layout::find(em, layout::tunnelFib);
  in.arpBrine = layout::find(em, layout::arpStatus);
  in.vrfIdMap = layout::find(em, layout::vrfIdMap);
  in.allIntfConfig = layout::find(em, layout::intfConfig);
  in.ipStatus = layout::find(em, Own::ipStatus);
  in.routingHwStatus = layout::find(em, layout::hwVrfStatus, vrfName);
  in.routingHardwareStatus = layout::find(em, Own::hardware);
  in.nhEntryStatus = layout::find(em, layout::nhgEntryStatus);
  in.kernelUnprogrammedRoute = layout::find(em, Own::kernelUnprogrammed, vrfName);
  in.evpnVxlanTunnelTable = layout::find(em, layout::evpnVxlan);
  in.tunnelTableDir = layout::find(em, layout::tunnelTables);
  in.srTePolicyStatus = layout::find(em, layout::srTePolicy);
  in.vrfName = L3::VrfName(vrfName);
  in.fd = 1;
  return in;
}

}  // namespace rovatest
