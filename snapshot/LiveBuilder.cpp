// The live source's mapping: kernel records in, the snapshot's tables out. A full table goes
// through route() a million times, so the per-route path does no allocation of its own: next
// hops become FECs through an interning map keyed by their bytes, and routes that share next
// hops (or a nexthop object) share one FEC, as the forwarding agent's FECs are shared.

#include "snapshot/LiveBuilder.h"

#include "platform/state/Family.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <unordered_set>

#include "platform/brine/Fib.h"
#include "platform/brine/FlexCounters.h"
#include "platform/brine/KernelRoutes.h"
#include "platform/brine/Neighbor.h"
#include "platform/brine/NexthopGroupTables.h"
#include "platform/brine/SrTePolicy.h"
#include "platform/brine/Tunnel.h"
#include "platform/mox/Dir.h"
#include "platform/plexa/EthAddr.h"
#include "platform/plexa/VrfName.h"
#include "platform/state/Interface.h"
#include "platform/state/Ip.h"
#include "platform/state/NexthopGroupConfig.h"
#include "platform/state/RoutingConfig.h"
#include "platform/state/RoutingHardware.h"
#include "snapshot/DeviceInfo.h"
#include "snapshot/JsonLibrary.h"
#include "snapshot/JsonReader.h"
#include "snapshot/LiveFecTable.h"
#include "snapshot/LiveRouteTypes.h"
#include "snapshot/StateLayout.h"

namespace Snapshot {

namespace {

using Mox::makePtr;
using Mox::Ptr;
namespace k = kernel;

using live::distanceOf;
using live::FecTable;
using live::Hop;
using live::isForwarding;
using live::routeTypeOf;
using live::V4;
using live::V6;

// ---- VRFs ----

template <class Fam>
struct RouteTable {
  explicit RouteTable(Ptr<typename Fam::RouteStatus> t) : table(std::move(t)) {}

  Ptr<typename Fam::RouteStatus> table;
  // The rank of the kernel table each route came from, for every route but the bulk table's
  // (main, or a VRF's own): the few others need not cost a million-entry map.
  std::unordered_map<typename Fam::Prefix, std::uint8_t> rankOf;
  // Routes without an offload flag (noted from the first flag on: before it, every route),
  // and flagged routes that replaced one of those: whether the former count as held by the
  // hardware is known only at the end.
  std::vector<typename Fam::Prefix> unflagged;
  std::unordered_set<typename Fam::Prefix> flaggedLater;
};

// A VRF's tables, and what building them needs.
struct VrfState : layout::VrfTables {
  std::string name;
  std::uint32_t id = 0;
  // The kernel tables of this VRF, best first: a route of a later table is used only when no
  // earlier one has its prefix, as the kernel's rules consult them.
  std::vector<std::uint32_t> tables;
  std::size_t bulkRank = 0;

  RouteTable<V4> routes4{fibRoute};
  RouteTable<V6> routes6{fib6Route};
  FecTable<V4> fecs4{fibFec};
  FecTable<V6> fecs6{fib6Fec};
  // The FEC of each nexthop object the VRF's routes use.
  std::unordered_map<std::uint32_t, Brine::Fib::FecId> fecOfNexthop4, fecOfNexthop6;

  template <class Fam>
  RouteTable<Fam>& routes() {
    if constexpr (std::is_same_v<Fam, V4>) {
      return routes4;
    } else {
      return routes6;
    }
  }
  template <class Fam>
  FecTable<Fam>& fecs() {
    if constexpr (std::is_same_v<Fam, V4>) {
      return fecs4;
    } else {
      return fecs6;
    }
  }
};

struct LinkState {
  k::Link link;
  Plexa::IntfId id;
  VrfState* vrf = nullptr;
  Ptr<Ip::IpIntfConfig> ip;
  Ptr<Ip6::IntfConfig> ip6;
};

// A VRF name the snapshot format can hold, which the default VRF's does not already take.
bool usableVrfName(const std::string& name) {
  if (name.empty() || name.size() > L3::VrfName::kMaxBytes || name == L3::VrfName::kDefault)
    return false;
  return std::all_of(name.begin(), name.end(),
                     [](char c) { return c > ' ' && c < 127 && c != '/'; });
}

}  // namespace

// The device's tables, and what building them needs.
struct LiveBuilder::Impl : layout::DeviceTables {
  bool forwarding4 = true, forwarding6 = true;
  std::map<std::uint32_t, LinkState> links;
  bool settled = false;
  std::map<std::string, std::unique_ptr<VrfState>> vrfs;
  // Each kernel table's VRFs, with the table's rank in each.
  std::unordered_map<std::uint32_t, std::vector<std::pair<VrfState*, std::uint8_t>>> tableVrfs;
  std::map<std::uint32_t, k::NexthopObject> nexthops;
  // Label stacks of more than one label ride a tunnel each: the FEC's via holds one label.
  std::map<std::string, Tunnel::TunnelTable::TunnelId> tunnels;
  // Whether anything said it is held by the hardware (or failed to be): only then does a
  // route without the flag count as not programmed in hardware.
  bool offloading = false;
  // Scratch for one route's next hops, kept across routes.
  std::vector<Hop> hops;

  Plexa::IntfId null0{"Null0"};
  Plexa::IntfId cpu{"Cpu"};

  // Following (followIs): route records are written in place, and FECs no route names go.
  bool following = false;
  // While a prefix's record is made again: the one VRF it is made in, and the record its
  // routes make so far, in place of the table's.
  VrfState* onlyVrf = nullptr;
  template <class Fam>
  struct Pending {
    bool active = false;
    bool set = false;
    typename Fam::Route route;
  };
  Pending<V4> pending4;
  Pending<V6> pending6;
  template <class Fam>
  Pending<Fam>& pending() {
    if constexpr (std::is_same_v<Fam, V4>) {
      return pending4;
    } else {
      return pending6;
    }
  }
  // A route record names a FEC, or no longer does.
  void acquire(VrfState& v, Brine::Fib::FecId id) {
    if (Brine::Fib::isV6FecId(id)) {
      v.fecs6.acquire(id);
    } else {
      v.fecs4.acquire(id);
    }
  }
  void release(VrfState& v, Brine::Fib::FecId id) {
    const bool removed =
        Brine::Fib::isV6FecId(id) ? v.fecs6.release(id, following) : v.fecs4.release(id, following);
    // The nexthop objects' FECs are found again.
    if (removed) {
      v.fecOfNexthop4.clear();
      v.fecOfNexthop6.clear();
    }
  }
  template <class Fam>
  void remake(const typename Fam::Prefix& prefix, std::uint32_t table,
              const LiveBuilder::RoutesOf& routesOf);

  void settleLinks();
  VrfState& addVrf(const std::string& name, std::uint32_t id, std::vector<std::uint32_t> tables,
                   std::size_t bulkRank);
  const LinkState* linkOf(std::uint32_t ifindex) const {
    auto it = links.find(ifindex);
    return it == links.end() ? nullptr : &it->second;
  }
  Plexa::IntfId intfOf(std::uint32_t ifindex) const {
    const LinkState* l = linkOf(ifindex);
    return l ? l->id : Plexa::IntfId();
  }
  void noteOffload(k::Offload o) {
    if (o == k::Offload::none || offloading) return;
    offloading = true;
    if (following) return;
    // Every route written before the first flag was written without one: those are noted
    // here, once, rather than every route of a table without offloading hardware.
    for (auto& [name, v] : vrfs) {
      for (const auto& route : *v->routes4.table)
        v->routes4.unflagged.push_back(route.key());
      for (const auto& route : *v->routes6.table)
        v->routes6.unflagged.push_back(route.key());
    }
  }

  // Fills `hops` with a route's next hops; false when the route drops what it matches.
  bool resolveHops(const k::Route& r);
  template <class Fam>
  void addVia(typename Fam::Fec& fec, const Hop& hop);
  Tunnel::TunnelTable::TunnelId tunnelFor(const k::Nexthop& nh, Plexa::IntfId intf);
  template <class Fam>
  Brine::Fib::FecId internHops(VrfState& v);
  template <class Fam>
  Brine::Fib::FecId internIntf(VrfState& v, Plexa::IntfId intf);
  template <class Fam>
  void route(const k::Route& r);
  // A hint that route r is written soon: its index slot in the tables it goes to, or (once
  // that slot has come) the record the slot holds.
  void prefetch(const k::Route& r, bool record) const;
  template <class Fam>
  void prefetch(const k::Route& r, bool record) const;
  template <class Fam>
  void insert(VrfState& v, std::uint8_t rank, const typename Fam::Route& route,
              bool offloadFlagged);
  template <class Fam>
  void markUnflagged(VrfState& v);
  void publishNexthopGroups();
  Mox::Ptr<Statum::EntityManager> mount();
};

LiveBuilder::LiveBuilder() : impl_(std::make_unique<Impl>()) {}
LiveBuilder::~LiveBuilder() = default;

void LiveBuilder::hostnameIs(const std::string& name) {
  impl_->device->hostnameIs(name);
}

void LiveBuilder::forwardingIs(Plexa::AddressFamily family, bool on) {
  (family == Plexa::AddressFamily::ipv6 ? impl_->forwarding6 : impl_->forwarding4) = on;
}

// ---- links and VRFs ----

void LiveBuilder::link(const kernel::Link& link) {
  impl_->settled = false;
  // The kernel takes nearly any bytes in a link's name; a name no interface of a state may
  // have (a control character, a byte beyond ASCII) is a link the read leaves out, as if it
  // had not seen it, so that the state can still be shown, written and published.
  if (!Plexa::IntfId::validName(link.name)) {
    impl_->links.erase(link.index);
    return;
  }
  LinkState& l = impl_->links[link.index];
  l.link = link;
  l.id = Plexa::IntfId(link.name);
  // A description that is not text a state holds (UTF-8 without control characters) is none.
  if (!validUtf8(link.alias) || controlCharacter(link.alias) != std::string_view::npos)
    l.link.alias.clear();
}

VrfState& LiveBuilder::Impl::addVrf(const std::string& name, std::uint32_t id,
                                    std::vector<std::uint32_t> tables, std::size_t bulkRank) {
  auto state = std::make_unique<VrfState>();
  VrfState& v = *state;
  v.name = name;
  v.id = id;
  v.tables = std::move(tables);
  v.bulkRank = bulkRank;
  v.hwVrfStatus->vrfNameIs(L3::VrfName(name));
  for (std::size_t rank = 0; rank < v.tables.size(); ++rank)
    tableVrfs[v.tables[rank]].emplace_back(&v, std::uint8_t(rank));
  vrfs.emplace(name, std::move(state));
  return v;
}

void LiveBuilder::Impl::settleLinks() {
  if (settled) return;
  settled = true;
  vrfs.clear();
  tableVrfs.clear();
  vrfIdMap->recordDelAll();
  addVrf(L3::VrfName::kDefault, Vrf::VrfIdMap::kDefaultVrfId,
         {k::kTableLocal, k::kTableMain, k::kTableDefault}, 1);
  for (const auto& [index, l] : links) {
    if (l.link.isVrf && l.link.vrfTable != 0 && usableVrfName(l.link.name))
      addVrf(l.link.name, l.link.vrfTable, {l.link.vrfTable}, 0);
  }
  // VRF ids are the VRFs' table ids; two VRFs on one table (the kernel allows it unless in
  // strict mode) share the id, which names the first of them.
  for (const auto& [name, v] : vrfs) {
    if (vrfIdMap->contains(v->id)) continue;
    Vrf::VrfIdMap::Entry entry;
    entry.vrfId = v->id;
    entry.vrfNameIs(L3::VrfName(name));
    vrfIdMap->recordIs(entry);
  }
  VrfState* def = vrfs.at(L3::VrfName::kDefault).get();
  for (auto& [index, l] : links) {
    // A VRF device is in its own VRF (its addresses are the VRF's); its members are in it.
    l.vrf = def;
    const std::uint32_t vrfLink = l.link.isVrf ? index : l.link.master;
    if (const LinkState* m = linkOf(vrfLink); m && m->link.isVrf) {
      if (auto it = vrfs.find(m->link.name); it != vrfs.end()) l.vrf = it->second.get();
    }
    auto config = makePtr<Interface::IntfConfig>(l.id);
    config->descriptionIs(l.link.alias);
    config->vrfIs(L3::VrfName(l.vrf->name));
    config->enabledIs(l.link.adminUp);
    intfConfig->intfConfigIs(l.id, config);
    auto status = makePtr<Interface::IntfStatus>(l.id);
    status->operUpIs(l.link.operUp);
    intfStatus->intfStatusIs(l.id, status);
  }
}

std::vector<std::uint32_t> LiveBuilder::routeTables() {
  impl_->settleLinks();
  std::vector<std::uint32_t> tables;
  const auto add = [&](const VrfState& v) {
    for (std::uint32_t t : v.tables) {
      if (std::find(tables.begin(), tables.end(), t) == tables.end()) tables.push_back(t);
    }
  };
  add(*impl_->vrfs.at(L3::VrfName::kDefault));
  for (const auto& [name, v] : impl_->vrfs)
    add(*v);
  return tables;
}

// ---- addresses ----

void LiveBuilder::address(const kernel::Address& a) {
  Impl& m = *impl_;
  m.settleLinks();
  auto it = m.links.find(a.ifindex);
  if (it == m.links.end()) return;
  LinkState& l = it->second;
  const L3::VrfName vrf(l.vrf->name);
  if (a.address.isV4()) {
    const Plexa::IpAddrWithMask am(a.address.v4Addr(), a.prefixLen);
    auto status = m.ipStatus->ipIntfStatus(l.id);
    if (!l.ip) {
      // The kernel lists an interface's primary address first.
      l.ip = makePtr<Ip::IpIntfConfig>();
      l.ip->intfIdIs(l.id);
      l.ip->vrfIs(vrf);
      l.ip->addrWithMaskIs(am);
      m.ipConfig->intfConfigIs(l.id, l.ip);
      status = makePtr<Ip::IpIntfStatus>(l.id);
      status->activeAddrWithMaskIs(am);
      m.ipStatus->ipIntfStatusIs(l.id, status);
    } else if (!(am == l.ip->addrWithMask()) && l.ip->secondaryWithMaskMutable().newEntry(am)) {
      status->activeSecondaryWithMaskIs(am, true);
    }
  } else if (a.address.isV6()) {
    const Plexa::Ip6AddrWithMask am(a.address.v6Addr(), a.prefixLen);
    if (!l.ip6) {
      l.ip6 = makePtr<Ip6::IntfConfig>();
      l.ip6->intfIdIs(l.id);
      l.ip6->vrfIs(vrf);
      m.ip6Config->intfIs(l.id, l.ip6);
      m.ip6Status->intfIs(l.id, makePtr<Ip6::IntfStatus>(l.id));
    }
    Ip6::AddressInfo info;
    info.addrIs(am);
    if (l.ip6->newAddr(am, info)) m.ip6Status->intf(l.id)->addrIs(am, true);
  }
}

// ---- nexthop objects ----

void LiveBuilder::nexthopObject(const kernel::NexthopObject& object) {
  impl_->settleLinks();
  impl_->noteOffload(object.offload);
  impl_->noteOffload(object.hop.offload);
  impl_->nexthops[object.id] = object;
}

bool LiveBuilder::Impl::resolveHops(const k::Route& r) {
  hops.clear();
  if (r.nhid != 0) {
    if (auto it = nexthops.find(r.nhid); it != nexthops.end()) {
      const k::NexthopObject& o = it->second;
      if (o.blackhole) return false;
      if (o.group.empty()) {
        hops.push_back({&o.hop, o.hop.weight});
        return true;
      }
      for (const auto& member : o.group) {
        auto m = nexthops.find(member.id);
        if (m == nexthops.end() || m->second.blackhole || !m->second.group.empty()) continue;
        hops.push_back({&m->second.hop, member.weight});
      }
      return true;
    }
    // An object made after the objects were read: the route's own expansion says the rest.
  }
  for (const k::Nexthop& nh : r.nexthops)
    hops.push_back({&nh, nh.weight});
  return true;
}

Tunnel::TunnelTable::TunnelId LiveBuilder::Impl::tunnelFor(const k::Nexthop& nh,
                                                           Plexa::IntfId intf) {
  Tunnel::TunnelTable::MplsVia via;
  via.nexthop = nh.gateway;
  via.intfId = intf;
  via.labelOp = nh.labels;
  std::string key =
      via.nexthop.stringValue() + " " + intf.stringValue() + " " + via.labelOp.stringValue();
  if (auto it = tunnels.find(key); it != tunnels.end()) return it->second;
  const Tunnel::TunnelTable::TunnelId id(
      static_cast<std::uint64_t>(Tunnel::TunnelTable::TunnelType::staticTunnel),
      tunnels.size() + 1);
  Tunnel::TunnelFib::MplsTunnelFibEntry entry;
  entry.tunnelId = id;
  entry.tunnelVia.push(via);
  tunnelFib->recordIs(entry);
  tunnels.emplace(std::move(key), id);
  return id;
}

// A gateway of the other family is left out: the FEC's vias have room for one family only.
template <class Fam>
void LiveBuilder::Impl::addVia(typename Fam::Fec& fec, const Hop& hop) {
  if (fec.via.size() >= Fam::Fec::kMaxVias) return;
  const k::Nexthop& nh = *hop.nexthop;
  typename Fam::Via via;
  const Plexa::IntfId intf = intfOf(nh.ifindex);
  // A hop out of a link the read did not see (one gone between the dumps) with no gateway of
  // this family (an all-zero one is none) and no label stack names nothing a via could lead
  // to: it is left out.
  const bool gateway = nh.gateway.af() == Fam::kFamily && !nh.gateway.isZero();
  if (intf == Plexa::IntfId() && !gateway && nh.labels.size() <= 1) return;
  via.weight = hop.weight == 0 ? 1 : hop.weight;
  if (nh.gateway.af() == Fam::kFamily) via.hop = Fam::addrOf(nh.gateway);
  if (nh.labels.size() > 1) {
    const auto tunnel = tunnelFor(nh, intf);
    via.hop = {};
    via.tunnelIdValue = tunnel.value();
    via.intfId = Plexa::DynamicTunnelIntfId::intfId(tunnel.value());
  } else {
    via.intfId = intf;
    if (nh.labels.size() == 1) via.labelValue = nh.labels.label(0).value();
  }
  fec.via.push(via);
}

template <class Fam>
Brine::Fib::FecId LiveBuilder::Impl::internHops(VrfState& v) {
  auto& fecs = v.fecs<Fam>();
  auto& fec = fecs.scratch();
  for (const Hop& hop : hops)
    addVia<Fam>(fec, hop);
  return fecs.intern();
}

template <class Fam>
Brine::Fib::FecId LiveBuilder::Impl::internIntf(VrfState& v, Plexa::IntfId intf) {
  auto& fecs = v.fecs<Fam>();
  typename Fam::Via via;
  via.intfId = intf;
  fecs.scratch().via.push(via);
  return fecs.intern();
}

// ---- routes ----

void LiveBuilder::route(const kernel::Route& r) {
  Impl& m = *impl_;
  m.settleLinks();
  if (r.family == Plexa::AddressFamily::ipv4) {
    m.route<V4>(r);
  } else if (r.family == Plexa::AddressFamily::ipv6) {
    m.route<V6>(r);
  }
}

void LiveBuilder::routesExpected(Plexa::AddressFamily family, std::size_t routes) {
  Impl& m = *impl_;
  m.settleLinks();
  VrfState& v = *m.vrfs.at(L3::VrfName::kDefault);
  if (family == Plexa::AddressFamily::ipv6) {
    v.routes6.table->reserve(routes);
  } else {
    v.routes4.table->reserve(routes);
  }
}

void LiveBuilder::routes(std::span<const kernel::Route> batch) {
  Impl& m = *impl_;
  m.settleLinks();
  // In a table of a million routes, nearly all of a route's write is the wait for its index
  // slot and then for the record that slot holds. The slot is fetched kAhead routes before
  // the route is written and the record half-way, so that the waits overlap; the routes are
  // written in the kernel's order all the same.
  constexpr std::size_t kAhead = 16;
  const std::size_t n = batch.size();
  for (std::size_t i = 0; i < n + kAhead; ++i) {
    if (i < n) m.prefetch(batch[i], false);
    if (i >= kAhead / 2 && i - kAhead / 2 < n) m.prefetch(batch[i - kAhead / 2], true);
    if (i >= kAhead) route(batch[i - kAhead]);
  }
}

void LiveBuilder::Impl::prefetch(const k::Route& r, bool record) const {
  if (r.family == Plexa::AddressFamily::ipv4) {
    prefetch<V4>(r, record);
  } else if (r.family == Plexa::AddressFamily::ipv6) {
    prefetch<V6>(r, record);
  }
}

template <class Fam>
void LiveBuilder::Impl::prefetch(const k::Route& r, bool record) const {
  const auto vrfsOf = tableVrfs.find(r.table);
  if (vrfsOf == tableVrfs.end() || r.destination.af() != Fam::kFamily) return;
  const typename Fam::Prefix prefix(Fam::addrOf(r.destination), r.prefixLen);
  for (const auto& [v, rank] : vrfsOf->second) {
    const auto& table = *v->template routes<Fam>().table;
    if (record) {
      table.prefetchRecord(prefix);
    } else {
      table.prefetchSlot(prefix);
    }
  }
}

template <class Fam>
void LiveBuilder::Impl::route(const k::Route& r) {
  auto vrfsOf = tableVrfs.find(r.table);
  // Only traffic of the selector's TOS uses a TOS route; a router's listing has none.
  if (vrfsOf == tableVrfs.end() || r.tos != 0) return;
  const bool forwards = resolveHops(r);
  bool hasGateway = false, v6Gateway = false, offloaded = r.offload == k::Offload::held;
  for (const Hop& h : hops) {
    hasGateway = hasGateway || !h.nexthop->gateway.isZero();
    v6Gateway = v6Gateway || h.nexthop->gateway.isV6();
    offloaded = offloaded || h.nexthop->offload == k::Offload::held;
    noteOffload(h.nexthop->offload);
  }
  if (r.nhid != 0) {
    if (auto it = nexthops.find(r.nhid); it != nexthops.end())
      offloaded = offloaded || it->second.offload == k::Offload::held;
  }
  noteOffload(r.offload);

  typename Fam::Route route;
  if (!routeTypeOf<Fam>(r, hasGateway, route.routeType)) return;
  if (!forwards) route.routeType = Fam::RouteType::dropRoute;
  route.prefix = typename Fam::Prefix(Fam::addrOf(r.destination), r.prefixLen);
  route.metric = r.metric;
  route.preference = distanceOf<Fam>(r, route.routeType);
  route.hardwareProgrammed = r.offload != k::Offload::failed;

  for (const auto& [vrfPtr, rank] : vrfsOf->second) {
    if (onlyVrf && vrfPtr != onlyVrf) continue;
    VrfState& v = *vrfPtr;
    // An IPv4 route over IPv6 next hops forwards through a FEC of the IPv6 table.
    const auto fecOfHops = [&] {
      return std::is_same_v<Fam, V4> && !v6Gateway ? internHops<V4>(v) : internHops<V6>(v);
    };
    if (route.routeType == Fam::RouteType::dropRoute) {
      route.fecId = internIntf<Fam>(v, null0);
    } else if (!isForwarding(r.type)) {
      route.fecId = internIntf<Fam>(v, cpu);
    } else if (r.nhid != 0 && nexthops.count(r.nhid)) {
      auto& cache = std::is_same_v<Fam, V4> ? v.fecOfNexthop4 : v.fecOfNexthop6;
      auto [it, added] = cache.try_emplace(r.nhid);
      if (added) it->second = fecOfHops();
      route.fecId = it->second;
    } else {
      route.fecId = fecOfHops();
    }
    insert<Fam>(v, rank, route, offloaded);
  }
}

// Puts a route in a VRF's table unless a better one has its prefix: one of an earlier kernel
// table, or of the same table with a lower metric. Routes of one table with the same prefix and
// metric (the kernel lists an IPv6 prefix on several interfaces so) forward together.
template <class Fam>
void LiveBuilder::Impl::insert(VrfState& v, std::uint8_t rank, const typename Fam::Route& route,
                               bool offloadFlagged) {
  RouteTable<Fam>& rt = v.routes<Fam>();
  const bool bulk = rank == v.bulkRank;
  auto& table = *rt.table;
  typename Fam::Route chosen = route;
  Pending<Fam>& p = pending<Fam>();
  // One probe for the route already there: a missing one reads as the empty record, whose
  // type no route written here has. A prefix made again has only what its routes made so far.
  const auto existing = !p.active ? table.lookup(route.prefix)
                        : p.set   ? p.route
                                  : typename Fam::Route{};
  const bool replacing = existing.routeType != Fam::RouteType::invalid;
  if (replacing) {
    const auto r = rt.rankOf.find(route.prefix);
    const std::size_t existingRank = r == rt.rankOf.end() ? v.bulkRank : r->second;
    if (existingRank < rank) return;
    if (existingRank == rank) {
      if (existing.metric < route.metric) return;
      if (existing.metric == route.metric) {
        const bool merge = existing.routeType == route.routeType &&
                           route.routeType != Fam::RouteType::dropRoute &&
                           existing.fecId.adjType() == route.fecId.adjType();
        if (!merge || existing.fecId == route.fecId) return;
        // Both FECs are of one table: the IPv6 one when either route crosses families.
        const auto mergeIn = [&](auto& fecs) {
          fecs.scratch();
          fecs.appendVias(existing.fecId);
          fecs.appendVias(route.fecId);
          return fecs.intern();
        };
        chosen.fecId = Brine::Fib::isV6FecId(route.fecId) ? mergeIn(v.fecs6) : mergeIn(v.fecs4);
        chosen.hardwareProgrammed = existing.hardwareProgrammed && route.hardwareProgrammed;
      }
    }
  }
  if (bulk) {
    if (!rt.rankOf.empty()) rt.rankOf.erase(route.prefix);
  } else {
    rt.rankOf[route.prefix] = rank;
  }
  if (p.active) {
    p.route = chosen;
    p.set = true;
    return;
  }
  if (offloadFlagged) {
    if (replacing) rt.flaggedLater.insert(route.prefix);
  } else if (offloading) {
    // Until the first flag, noteOffload() finds the unflagged routes in the table.
    rt.unflagged.push_back(route.prefix);
  }
  table.recordIs(chosen);
  acquire(v, chosen.fecId);
  if (replacing) release(v, existing.fecId);
}

template <class Fam>
void LiveBuilder::Impl::markUnflagged(VrfState& v) {
  RouteTable<Fam>& rt = v.routes<Fam>();
  // Without offloading hardware (no flag anywhere, nor a failure) the kernel is the forwarding
  // plane, and every route is where it forwards from.
  if (!offloading) return;
  for (const auto& prefix : rt.unflagged) {
    if (rt.flaggedLater.count(prefix)) continue;
    auto route = rt.table->lookup(prefix);
    if (!route.hardwareProgrammed) continue;
    route.hardwareProgrammed = false;
    rt.table->recordIs(route);
  }
  std::uint32_t count = 0;
  for (const auto& route : *rt.table)
    count += route.hardwareProgrammed ? 0 : 1;
  if constexpr (std::is_same_v<Fam, V4>) {
    v.hwVrfStatus->unprogrammedRouteCountIs(count);
  } else {
    v.hwVrfStatus->unprogrammedRoute6CountIs(count);
  }
}

// ---- neighbours ----

namespace {

// A neighbour whose link-layer address is known: the ARP table's.
bool resolvedNeighbor(const k::Neighbor& n) {
  constexpr std::uint16_t resolved =
      k::nud::reachable | k::nud::stale | k::nud::delay | k::nud::probe | k::nud::permanent;
  return n.hasMac && (n.state & resolved) != 0 && !n.address.isZero();
}

}  // namespace

void LiveBuilder::neighbor(const kernel::Neighbor& n) {
  Impl& m = *impl_;
  m.settleLinks();
  const LinkState* l = m.linkOf(n.ifindex);
  if (!l || !resolvedNeighbor(n)) return;
  Arp::Table::ArpEntry entry;
  entry.arpKey.vrfId = l->vrf->id;
  entry.arpKey.addr = n.address;
  entry.arpKey.intfId = l->id;
  entry.ethAddr = Plexa::EthAddr(n.mac);
  m.arpStatus->recordIs(entry);
}

// ---- the end ----

void LiveBuilder::Impl::publishNexthopGroups() {
  using namespace Routing::NexthopGroup;
  for (const auto& [id, object] : nexthops) {
    const std::string name = "nhid" + std::to_string(id);
    auto group = makePtr<NexthopGroupConfigEntry>();
    group->nameIs(name);
    std::vector<const k::Nexthop*> members;
    if (!object.blackhole && object.group.empty()) members.push_back(&object.hop);
    for (const auto& member : object.group) {
      auto m = nexthops.find(member.id);
      if (m != nexthops.end() && !m->second.blackhole && m->second.group.empty())
        members.push_back(&m->second.hop);
    }
    bool labelled = false;
    std::size_t entries = 0;
    for (const k::Nexthop* member : members) {
      // An entry is an address: a next hop out of a device alone ("dev eth1") gives none.
      if (!member->gateway.isV4() && !member->gateway.isV6()) continue;
      if (entries > 65535) break;
      NexthopGroupEntry entry;
      entry.destinationIs(member->gateway);
      entry.mplsLabelsIs(member->labels);
      labelled = labelled || !member->labels.empty();
      group->entryIs(std::uint16_t(entries++), entry);
    }
    group->typeIs(labelled ? NexthopGroupType::mpls : NexthopGroupType::ip);
    group->sizeIs(std::uint32_t(group->entrys()));
    nhgConfig->nexthopGroupIs(group->name(), group);
    NexthopGroup::EntryStatusRecord status;
    status.entryKey.name.setText(name);
    status.nhgId = id;
    nhgEntryStatus->recordIs(status);
    // Nexthop objects belong to no VRF: the hardware holds one for all of them, or none.
    if (offloading && object.offload != k::Offload::held) continue;
    for (const auto& [vrfName, v] : vrfs) {
      const L3::VrfName vrf(vrfName);
      auto hw = nhgHwStatus->vrf(vrf);
      if (!hw) {
        hw = makePtr<Routing::Hardware::VrfNexthopGroupStatus>();
        hw->vrfNameIs(vrf);
        nhgHwStatus->vrfIs(vrf, hw);
      }
      hw->nexthopGroupIs(id, true);
    }
  }
}

Mox::Ptr<Statum::EntityManager> LiveBuilder::finish() {
  Impl& m = *impl_;
  m.settleLinks();
  for (auto& [name, v] : m.vrfs) {
    // The kernel's forwarding switch is one for all its VRFs.
    v->routingConfig->routingEnabledIs(m.forwarding4);
    v->routing6Config->routingEnabledIs(m.forwarding6);
    m.markUnflagged<V4>(*v);
    m.markUnflagged<V6>(*v);
  }
  m.publishNexthopGroups();
  return m.mount();
}

// ---- following ----

namespace {

// em's table at the path, when it is one of R.
template <class R>
void adopt(Statum::EntityManager& em, const std::string& path, Ptr<R>& mine) {
  auto it = em.entities().find(path);
  if (it == em.entities().end()) return;
  if (auto t = Mox::ptrCast<R>(it->second)) mine = t;
}

}  // namespace

void LiveBuilder::followIs(Statum::EntityManager& em) {
  Impl& m = *impl_;
  m.following = true;
  adopt(em, std::string(layout::arpStatus.path), m.arpStatus);
  for (auto& [name, v] : m.vrfs) {
    adopt(em, layout::pathOf(layout::fibRoute, name), v->fibRoute);
    adopt(em, layout::pathOf(layout::fib6Route, name), v->fib6Route);
    adopt(em, layout::pathOf(layout::fibFec, name), v->fibFec);
    adopt(em, layout::pathOf(layout::fib6Fec, name), v->fib6Fec);
    v->routes4.table = v->fibRoute;
    v->routes6.table = v->fib6Route;
    v->fecs4.table = v->fibFec;
    v->fecs6.table = v->fib6Fec;
    v->fecs4.forgetMade();
    v->fecs6.forgetMade();
    // What finish() needed the routes' offload flags for is done.
    v->routes4.unflagged.clear();
    v->routes4.unflagged.shrink_to_fit();
    v->routes6.unflagged.clear();
    v->routes6.unflagged.shrink_to_fit();
    v->routes4.flaggedLater.clear();
    v->routes6.flaggedLater.clear();
  }
}

bool LiveBuilder::followable() const {
  return !impl_->offloading;
}

template <class Fam>
void LiveBuilder::Impl::remake(const typename Fam::Prefix& prefix, std::uint32_t table,
                               const LiveBuilder::RoutesOf& routesOf) {
  auto vrfsOf = tableVrfs.find(table);
  if (vrfsOf == tableVrfs.end()) return;
  for (const auto& [vrfPtr, rank] : vrfsOf->second) {
    VrfState& v = *vrfPtr;
    RouteTable<Fam>& rt = v.routes<Fam>();
    Pending<Fam>& p = pending<Fam>();
    p.active = true;
    p.set = false;
    onlyVrf = &v;
    if (!rt.rankOf.empty()) rt.rankOf.erase(prefix);
    // The VRF's tables in the order a read gives them: precedence goes by rank, whatever the
    // order.
    for (const std::uint32_t t : v.tables)
      routesOf(t, [this](const k::Route& r) { this->route<Fam>(r); });
    onlyVrf = nullptr;
    p.active = false;
    const auto old = rt.table->lookup(prefix);
    const bool had = old.routeType != Fam::RouteType::invalid;
    if (p.set) {
      if (had && old.routeType == p.route.routeType && old.fecId == p.route.fecId &&
          old.metric == p.route.metric && old.preference == p.route.preference &&
          old.hardwareProgrammed == p.route.hardwareProgrammed)
        continue;
      rt.table->recordIs(p.route);
      acquire(v, p.route.fecId);
      if (had) release(v, old.fecId);
    } else if (had) {
      rt.table->recordDel(prefix);
      release(v, old.fecId);
    }
  }
}

void LiveBuilder::prefixChanged(const Plexa::IpGenAddr& destination, std::uint8_t prefixLen,
                                std::uint32_t table, const RoutesOf& routesOf) {
  Impl& m = *impl_;
  if (destination.isV4()) {
    m.remake<V4>(V4::Prefix(destination.v4Addr(), prefixLen), table, routesOf);
  } else if (destination.isV6()) {
    m.remake<V6>(V6::Prefix(destination.v6Addr(), prefixLen), table, routesOf);
  }
}

void LiveBuilder::neighborChanged(const kernel::Neighbor& n, bool removed) {
  Impl& m = *impl_;
  const LinkState* l = m.linkOf(n.ifindex);
  if (!l || n.address.isZero()) return;
  Arp::Table::ArpKey key;
  key.vrfId = l->vrf->id;
  key.addr = n.address;
  key.intfId = l->id;
  if (removed || !resolvedNeighbor(n)) {
    m.arpStatus->recordDel(key);
  } else {
    neighbor(n);  // in place
  }
}

void LiveBuilder::changesDone() {
  for (auto& [name, v] : impl_->vrfs) {
    const bool gone4 = v->fecs4.removeUnusedMade();
    const bool gone6 = v->fecs6.removeUnusedMade();
    if (gone4 || gone6) {
      v->fecOfNexthop4.clear();
      v->fecOfNexthop6.clear();
    }
  }
}

Mox::Ptr<Statum::EntityManager> LiveBuilder::Impl::mount() {
  auto em = makePtr<Statum::EntityManager>();
  // Nothing is configured: the kernel has no static route configuration, tunnels, SR-TE
  // policies, counters or route distinguishers to give. Those tables are there, empty, as a
  // snapshot that says nothing of them has them.
  layout::publish(*em, *this);
  for (auto& [name, v] : vrfs)
    layout::publish(*em, name, *v);
  return em;
}

}  // namespace Snapshot
