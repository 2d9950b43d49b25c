#pragma once
// Builds one VRF's forwarding state in memory and sorters over it, so tests read as the state
// they describe.

#include <initializer_list>
#include <string>

#include "lib/route_listing/RouteSorter.h"

namespace Rova::test {

struct ViaSpec {
  const char* hop = "";
  const char* intf = "";
  std::uint16_t weight = 1;
  std::uint32_t label = Plexa::MplsLabel::kNoLabel;
  std::uint64_t tunnel = 0;
};

struct Options {
  const char* prefix = "";
  const char* protocol = "";
  bool detail = false;
  bool longerPrefixes = false;
  const char* vrf = "default";
  bool host = false;
  bool intf = false;
  const char* intfName = "";
};

using RT4 = Routing::Fib::RouteType;
using RT6 = Routing6::Fib::RouteType;

class State {
 public:
  State() {
    tunnelTables->entityIs("sr", sr);
    tunnelTables->entityIs("ldp", ldp);
    vrfEntry(0, "default");
  }

  // ---- writers ----
  void route4(const char* prefix, RT4 type, std::uint64_t fec, bool hw = true) {
    Brine::Fib::Route r;
    r.prefix = Plexa::Prefix::fromString(prefix);
    r.routeType = type;
    r.fecId = Brine::Fib::FecId(fec);
    r.hardwareProgrammed = hw;
    routes4->recordIs(r);
  }
  void route6(const char* prefix, RT6 type, std::uint64_t fec) {
    Brine::Fib6::Route r;
    r.prefix = Plexa::Ip6Prefix::fromString(prefix);
    r.routeType = type;
    r.fecId = Brine::Fib::FecId(fec);
    routes6->recordIs(r);
  }
  template <class Fec>
  static Fec makeFec(std::uint64_t id, std::initializer_list<ViaSpec> vias, std::uint16_t backup) {
    Fec f;
    f.fecId = Brine::Fib::FecId(id);
    f.backupViaIndexValue = backup;
    for (const auto& v : vias) {
      typename decltype(f.via)::value_type via{};
      if (*v.hop) via.hop = decltype(via.hop)::fromString(v.hop);
      via.intfId = Plexa::IntfId(v.intf);
      via.weight = v.weight;
      via.labelValue = v.label;
      via.tunnelIdValue = v.tunnel;
      f.via.push(via);
    }
    return f;
  }
  void fec4(std::uint64_t id, std::initializer_list<ViaSpec> vias, std::uint16_t backup = 0) {
    fecs4->recordIs(makeFec<Brine::Fib::Fec>(id, vias, backup));
  }
  void fec6(std::uint64_t id, std::initializer_list<ViaSpec> vias, std::uint16_t backup = 0) {
    fecs6->recordIs(makeFec<Brine::Fib6::Fec>(id, vias, backup));
  }
  // An interface with its VRF and IPv4/IPv6 addresses.
  void intf(const char* name, const char* vrf, const char* addr4 = "", const char* addr6 = "",
            const char* description = "") {
    const Plexa::IntfId id(name);
    auto config = Mox::makePtr<Interface::IntfConfig>(id);
    config->vrfIs(L3::VrfName(vrf));
    config->descriptionIs(description);
    intfConfig->intfConfigIs(id, config);
    if (*addr4) {
      auto st = Mox::makePtr<Ip::IpIntfStatus>(id);
      st->activeAddrWithMaskIs(Plexa::IpAddrWithMask::fromString(addr4));
      ipStatus->ipIntfStatusIs(id, st);
    }
    if (*addr6) {
      auto st = Mox::makePtr<Ip6::IntfStatus>(id);
      st->addrIs(Plexa::Ip6AddrWithMask::fromString(addr6), true);
      ip6Status->intfIs(id, st);
    }
  }
  void vrfEntry(std::uint32_t id, const char* name) {
    Vrf::VrfIdMap::Entry e;
    e.vrfId = id;
    e.vrfNameIs(L3::VrfName(name));
    vrfIdMap->recordIs(e);
  }
  void neighbor(std::uint32_t vrfId, const char* addr, const char* intf) {
    Arp::Table::ArpEntry e;
    e.arpKey = {vrfId, Plexa::IpGenAddr::fromString(addr), Plexa::IntfId(intf)};
    arp->recordIs(e);
  }
  void tunnelFibEntry(std::uint64_t id, std::initializer_list<Tunnel::TunnelTable::MplsVia> vias) {
    Tunnel::TunnelFib::MplsTunnelFibEntry e;
    e.tunnelId = Tunnel::TunnelTable::TunnelId(id);
    for (const auto& v : vias)
      e.tunnelVia.push(v);
    tunnelFib->recordIs(e);
  }

  // ---- sorters ----
  template <class Sorter>
  Mox::Ptr<Sorter> sorter(const Options& o) const {
    typename Sorter::Inputs in;
    if constexpr (Sorter::Family::kIsV6) {
      in.routingStatus = routes6;
      in.forwardingStatus = fecs6;
      in.ipStatus = ip6Status;
      in.routingHardwareStatus = hw6;
      in.intf = o.intf;
    } else {
      in.routingStatus = routes4;
      in.forwardingStatus = fecs4;
      in.forwarding6Status = fecs6;
      in.ipStatus = ipStatus;
      in.routingHardwareStatus = hw;
    }
    in.routingConfig = config;
    in.tunnelFib = tunnelFib;
    in.arpBrine = arp;
    in.vrfIdMap = vrfIdMap;
    in.allIntfConfig = intfConfig;
    in.routingHwStatus = hwVrf;
    in.nhEntryStatus = nhEntry;
    in.kernelUnprogrammedRoute = kernel;
    in.evpnVxlanTunnelTable = evpn;
    in.tunnelTableDir = tunnelTables;
    in.prefix = decltype(in.prefix)::fromString(o.prefix);
    in.intfStatus = intfStatusOf(o.intfName);
    in.protocol = o.protocol;
    in.detail = o.detail;
    in.longerPrefixes = o.longerPrefixes;
    in.vrfName = L3::VrfName(o.vrf);
    in.host = o.host;
    in.fd = 1;
    in.originalMask = true;
    in.srTePolicyStatus = srte;
    return Mox::makePtr<Sorter>(std::move(in));
  }
  Mox::Ptr<RouteSorter> sorter4(const Options& o = {}) const { return sorter<RouteSorter>(o); }
  Mox::Ptr<Route6Sorter> sorter6(const Options& o = {}) const { return sorter<Route6Sorter>(o); }
  IntfStatusPtr intfStatusOf(const char* name) const {
    if (!*name) return nullptr;
    return Mox::makePtr<Interface::IntfStatus>(Plexa::IntfId(name));
  }

  Mox::Ptr<Routing::ConfigGen> config = Mox::makePtr<Routing::ConfigGen>();
  Mox::Ptr<Brine::Fib::RouteStatus> routes4 = Mox::makePtr<Brine::Fib::RouteStatus>();
  Mox::Ptr<Brine::Fib::ForwardingStatus> fecs4 = Mox::makePtr<Brine::Fib::ForwardingStatus>();
  Mox::Ptr<Brine::Fib6::RouteStatus> routes6 = Mox::makePtr<Brine::Fib6::RouteStatus>();
  Mox::Ptr<Brine::Fib6::ForwardingStatus> fecs6 = Mox::makePtr<Brine::Fib6::ForwardingStatus>();
  Mox::Ptr<Tunnel::TunnelFib::MplsTunnelFib> tunnelFib =
      Mox::makePtr<Tunnel::TunnelFib::MplsTunnelFib>();
  Mox::Ptr<Arp::Table::Status> arp = Mox::makePtr<Arp::Table::Status>();
  Mox::Ptr<Vrf::VrfIdMap::Status> vrfIdMap = Mox::makePtr<Vrf::VrfIdMap::Status>();
  Mox::Ptr<Interface::AllIntfConfigDir> intfConfig = Mox::makePtr<Interface::AllIntfConfigDir>();
  Mox::Ptr<Ip::Status> ipStatus = Mox::makePtr<Ip::Status>();
  Mox::Ptr<Ip6::Status> ip6Status = Mox::makePtr<Ip6::Status>();
  Mox::Ptr<Routing::Hardware::VrfStatus> hwVrf = Mox::makePtr<Routing::Hardware::VrfStatus>();
  Mox::Ptr<Routing::Hardware::Status> hw = Mox::makePtr<Routing::Hardware::Status>();
  Mox::Ptr<Routing6::Hardware::Status> hw6 = Mox::makePtr<Routing6::Hardware::Status>();
  Mox::Ptr<NexthopGroup::EntryStatus> nhEntry = Mox::makePtr<NexthopGroup::EntryStatus>();
  Mox::Ptr<Brine::KernelUnprogrammedRoute::UnprogrammedRoute> kernel =
      Mox::makePtr<Brine::KernelUnprogrammedRoute::UnprogrammedRoute>();
  Mox::Ptr<Tunnel::TunnelTable::EvpnVxlanTunnelTable> evpn =
      Mox::makePtr<Tunnel::TunnelTable::EvpnVxlanTunnelTable>();
  Mox::Ptr<Tunnel::TunnelTable::SrTunnelTable> sr =
      Mox::makePtr<Tunnel::TunnelTable::SrTunnelTable>();
  Mox::Ptr<Tunnel::TunnelTable::LdpTunnelTable> ldp =
      Mox::makePtr<Tunnel::TunnelTable::LdpTunnelTable>();
  Mox::Ptr<Mox::Dir> tunnelTables = Mox::makePtr<Mox::Dir>();
  Mox::Ptr<SrTePolicy::PolicyStatus> srte = Mox::makePtr<SrTePolicy::PolicyStatus>();
};

// The selected prefixes, in listing order.
template <class Sorter>
std::vector<std::string> selected(const Sorter& s) {
  std::vector<std::string> out;
  for (const auto& [p, r] : s.sortedRoute())
    out.push_back(p.stringValue());
  return out;
}

}  // namespace Rova::test
