#pragma once
// Sorter inputs from a loaded state: the tables the rova program hands a sorter for one VRF,
// for tests and benchmarks that build sorters directly. Options are the caller's to set.

#include <string>

#include "lib/route_listing/RouteSorter.h"
#include "platform/statum/EntityManager.h"
#include "snapshot/StatePaths.h"

namespace rovatest {

template <class Sorter>
typename Sorter::Inputs stateInputs(const Statum::EntityManager& em, const std::string& vrfName) {
  namespace p = Snapshot::paths;
  using Fam = typename Sorter::Family;
  constexpr bool v6 = Fam::kIsV6;
  const auto vrf = [&](const char* leaf) { return p::vrfPath(vrfName, leaf); };
  typename Sorter::Inputs in;
  in.routingConfig = em.find<Routing::ConfigGen>(vrf(v6 ? p::kRouting6Config : p::kRoutingConfig));
  in.routingStatus = em.find<typename Fam::RouteStatus>(vrf(v6 ? p::kFib6Route : p::kFibRoute));
  in.forwardingStatus = em.find<typename Fam::ForwardingStatus>(vrf(v6 ? p::kFib6Fec : p::kFibFec));
  if constexpr (!v6)
    in.forwarding6Status = em.find<Brine::Fib6::ForwardingStatus>(vrf(p::kFib6Fec));
  in.tunnelFib = em.find<Tunnel::TunnelFib::MplsTunnelFib>(p::kTunnelFib);
  in.arpBrine = em.find<Arp::Table::Status>(p::kArpStatus);
  in.vrfIdMap = em.find<Vrf::VrfIdMap::Status>(p::kVrfIdMap);
  in.allIntfConfig = em.find<Interface::AllIntfConfigDir>(p::kIntfConfig);
  in.ipStatus = em.find<typename Fam::IpStatus>(v6 ? p::kIp6Status : p::kIpStatus);
  in.routingHwStatus = em.find<Routing::Hardware::VrfStatus>(vrf(p::kHwVrfStatus));
  in.routingHardwareStatus =
      em.find<typename Fam::HardwareStatus>(v6 ? p::kRouting6Hw : p::kRoutingHw);
  in.nhEntryStatus = em.find<NexthopGroup::EntryStatus>(p::kNhgEntryStatus);
  in.kernelUnprogrammedRoute = em.find<Brine::KernelUnprogrammedRoute::UnprogrammedRoute>(
      vrf(v6 ? p::kKernelUnprogrammed6 : p::kKernelUnprogrammed));
  in.evpnVxlanTunnelTable = em.find<Tunnel::TunnelTable::EvpnVxlanTunnelTable>(p::kEvpnVxlan);
  in.tunnelTableDir = em.find<Mox::Dir>(p::kTunnelTables);
  in.srTePolicyStatus = em.find<SrTePolicy::PolicyStatus>(p::kSrTePolicy);
  in.vrfName = L3::VrfName(vrfName);
  in.fd = 1;
  return in;
}

}  // namespace rovatest
