// The snapshot loader: one pass over the document with simdjson's on-demand parser, writing
// straight into the platform's tables. Everything is built into a fresh entity manager that
// is handed out only when the whole document has been read, so a refused document leaves
// nothing behind.
//
// The document's sections may come in any order, but some refer to VRFs by name (interfaces,
// neighbours, nexthop groups). Those references are noted as they are read and checked once
// the VRFs are known; neighbours, whose table key holds the VRF id, are kept aside until then.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <unordered_map>

#include "platform/brine/Fib.h"
#include "platform/brine/Neighbor.h"
#include "platform/brine/Tables.h"
#include "platform/brine/Tunnel.h"
#include "platform/mox/Dir.h"
#include "platform/plexa/EthAddr.h"
#include "platform/plexa/RouteDistinguisher.h"
#include "platform/state/Family.h"
#include "platform/state/Interface.h"
#include "platform/state/Ip.h"
#include "platform/state/Routing.h"
#include "snapshot/DeviceInfo.h"
#include "snapshot/JsonReader.h"
#include "snapshot/Refs.h"
#include "snapshot/Snapshot.h"
#include "snapshot/StatePaths.h"

namespace Snapshot {

namespace {

using Mox::makePtr;
using Mox::Ptr;

constexpr std::uint64_t kU32Max = 0xffffffffu;

// A word of the document in a message: quoted, escaped and cut like every other one.
std::string quote(std::string_view s) {
  return Mox::shownWord(s, '"');
}

// ---- the two address families, so that routes and FECs are read by one template ----

template <class RouteType>
class RouteTypeWords {
 public:
  template <class NameOf>
  explicit RouteTypeWords(NameOf nameOf) {
    for (std::uint32_t v = 0; v < 64; ++v) {
      const std::string_view name = nameOf(static_cast<RouteType>(v));
      if (!name.empty()) byName_.emplace(name, static_cast<RouteType>(v));
    }
  }
  bool find(std::string_view word, RouteType& out) const {
    auto it = byName_.find(word);
    if (it == byName_.end()) return false;
    out = it->second;
    return true;
  }

 private:
  std::unordered_map<std::string_view, RouteType> byName_;
};

// The route type words of each family, looked up by name (the document never writes numbers).
template <class Fam>
const RouteTypeWords<typename Fam::RouteType>& routeTypeWords() {
  static const RouteTypeWords<typename Fam::RouteType> w(
      [](typename Fam::RouteType t) { return Fam::typeName(t); });
  return w;
}

using Routing::V4;
using Routing::V6;

// Everything one VRF owns.
struct VrfState {
  std::string name;
  bool hasId = false;
  std::uint32_t id = 0;
  Ptr<Routing::ConfigGen> config4 = makePtr<Routing::ConfigGen>();
  Ptr<Routing::ConfigGen> config6 = makePtr<Routing::ConfigGen>();
  Ptr<Brine::Fib::RouteStatus> route4 = makePtr<Brine::Fib::RouteStatus>();
  Ptr<Brine::Fib::ForwardingStatus> fec4 = makePtr<Brine::Fib::ForwardingStatus>();
  Ptr<Brine::Fib6::RouteStatus> route6 = makePtr<Brine::Fib6::RouteStatus>();
  Ptr<Brine::Fib6::ForwardingStatus> fec6 = makePtr<Brine::Fib6::ForwardingStatus>();
  Ptr<Routing::Hardware::VrfStatus> hw = makePtr<Routing::Hardware::VrfStatus>();
  using Unprogrammed = Brine::KernelUnprogrammedRoute::UnprogrammedRoute;
  Ptr<Unprogrammed> kernel4 = makePtr<Unprogrammed>();
  Ptr<Unprogrammed> kernel6 = makePtr<Unprogrammed>();

  template <class Fam>
  auto& routes() {
    if constexpr (std::is_same_v<Fam, V4>) {
      return *route4;
    } else {
      return *route6;
    }
  }
  template <class Fam>
  auto& fecs() {
    if constexpr (std::is_same_v<Fam, V4>) {
      return *fec4;
    } else {
      return *fec6;
    }
  }
  template <class Fam>
  Unprogrammed& kernel() {
    return std::is_same_v<Fam, V4> ? *kernel4 : *kernel6;
  }
  template <class Fam>
  void countUnprogrammed(std::uint32_t n) {
    if constexpr (std::is_same_v<Fam, V4>) {
      hw->unprogrammedRouteCountIs(hw->unprogrammedRouteCount() + n);
    } else {
      hw->unprogrammedRoute6CountIs(hw->unprogrammedRoute6Count() + n);
    }
  }
};

// A neighbour waits for its VRF's id.
struct PendingNeighbor {
  Arp::Table::ArpEntry entry;
  std::size_t vrfRef;
  std::size_t index;
};

class Loader {
 public:
  // `text` is the document's first byte, for offsets in messages.
  Ptr<Statum::EntityManager> run(od::document& doc, const char* text);

 private:
  // ---- sections ----
  void top(od::object obj);
  void hardware(od::value& v);
  void staticRouteDefaults(od::value& v);
  void vrfs(od::value& v);
  void vrf(std::string_view name, od::value& v);
  template <class Fam>
  void family(od::value& v, VrfState& vrf);
  template <class Fam>
  void routes(od::value& v, VrfState& vrf);
  template <class Fam>
  void fecs(od::value& v, VrfState& vrf);
  template <class Fam>
  typename Fam::Via fecVia(od::value& v);
  void staticRoutes(od::value& v, VrfState& vrf);
  Routing::Via staticVia(od::value& v, bool& trackBfd, std::string& name);
  void interfaces(od::value& v);
  void interface(od::value& v);
  void neighbors(od::value& v);
  void tunnels(od::value& v);
  void tunnelFib(od::value& v);
  void tunnelTable(
      od::value& v,
      Brine::Table<Tunnel::TunnelTable::TunnelId, Tunnel::TunnelTable::TunnelTableEntry>& table,
      Tunnel::TunnelTable::TunnelType type, const char* word);
  Tunnel::TunnelTable::TunnelViaArray tunnelVias(od::value& v);
  void evpnVxlan(od::value& v);
  void srTePolicies(od::value& v);
  void nexthopGroups(od::value& v);
  void nexthopGroup(od::value& v);
  void flexCounters(od::value& v);
  void counterRows(od::value& v, FlexCounters::CounterTable& table);
  void counterKeys(od::value& v);
  void routeDistinguishers(od::value& v);
  void finish();

  // ---- values ----
  template <class Fam>
  typename Fam::Prefix prefix(od::value& v);
  Plexa::IpGenPrefix genPrefix(od::value& v);
  template <class Addr>
  Addr address(od::value& v, const char* what);
  Plexa::IpGenAddr genAddress(od::value& v);
  template <class AddrWithMask>
  AddrWithMask addressWithMask(od::value& v, const char* what);
  Plexa::IntfId intf(od::value& v);
  Plexa::MplsLabel label(od::value& v);
  Plexa::MplsLabelOperation labelOp(od::value& v);
  Plexa::EthAddr mac(od::value& v);
  Vxlan::VniOrNone vni(od::value& v);
  Brine::Fib::FecId fecRef(od::value& v);
  // A FEC named in a table of family Fam: in the IPv6 tables a bare number is an ip6: FEC.
  template <class Fam>
  Brine::Fib::FecId familyFecRef(od::value& v);
  Tunnel::TunnelTable::TunnelId tunnelRef(od::value& v);
  L3::VrfName vrfName(std::string_view text);
  // Notes a reference to a VRF by name, checked by finish(); returns its slot.
  std::size_t vrfRef(const L3::VrfName& name);

  JsonReader r_;
  int version_ = 0;
  std::map<std::string, std::unique_ptr<VrfState>> vrfs_;
  std::map<std::uint32_t, std::string> vrfIds_;
  // VRF names referred to, each with the path of its first reference.
  std::vector<std::pair<L3::VrfName, std::string>> vrfRefs_;
  std::vector<PendingNeighbor> neighbors_;

  Ptr<DeviceInfo> device_ = makePtr<DeviceInfo>();
  Ptr<Routing::StaticRouteDefaults> staticDefaults_ = makePtr<Routing::StaticRouteDefaults>();
  Ptr<Interface::AllIntfConfigDir> intfConfig_ = makePtr<Interface::AllIntfConfigDir>();
  Ptr<Interface::AllIntfStatusDir> intfStatus_ = makePtr<Interface::AllIntfStatusDir>();
  Ptr<Ip::Config> ipConfig_ = makePtr<Ip::Config>();
  Ptr<Ip::Status> ipStatus_ = makePtr<Ip::Status>();
  Ptr<Ip6::Config> ip6Config_ = makePtr<Ip6::Config>();
  Ptr<Ip6::Status> ip6Status_ = makePtr<Ip6::Status>();
  Ptr<Arp::Table::Status> arp_ = makePtr<Arp::Table::Status>();
  Ptr<Vrf::VrfIdMap::Status> vrfIdMap_ = makePtr<Vrf::VrfIdMap::Status>();
  Ptr<Tunnel::TunnelFib::MplsTunnelFib> tunnelFib_ = makePtr<Tunnel::TunnelFib::MplsTunnelFib>();
  Ptr<Mox::Dir> tunnelTables_ = makePtr<Mox::Dir>();
  Ptr<Tunnel::TunnelTable::EvpnVxlanTunnelTable> evpn_ =
      makePtr<Tunnel::TunnelTable::EvpnVxlanTunnelTable>();
  Ptr<SrTePolicy::PolicyStatus> srTe_ = makePtr<SrTePolicy::PolicyStatus>();
  Ptr<Routing::NexthopGroup::Config> nhgConfig_ = makePtr<Routing::NexthopGroup::Config>();
  Ptr<NexthopGroup::EntryStatus> nhgEntryStatus_ = makePtr<NexthopGroup::EntryStatus>();
  Ptr<Routing::Hardware::NexthopGroupStatus> nhgHw_ =
      makePtr<Routing::Hardware::NexthopGroupStatus>();
  Ptr<Routing::Hardware::Status> routingHw_ = makePtr<Routing::Hardware::Status>();
  Ptr<Routing6::Hardware::Status> routing6Hw_ = makePtr<Routing6::Hardware::Status>();
  Ptr<Mox::Dir> rdInputs_ = makePtr<Mox::Dir>();
  Ptr<Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable> counterKeys_ =
      makePtr<Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable>();
  Ptr<FlexCounters::CounterTable> counters_ = makePtr<FlexCounters::CounterTable>();
  Ptr<FlexCounters::CounterTable> counterSnapshot_ = makePtr<FlexCounters::CounterTable>();
  std::map<std::uint64_t, std::string> nhgIds_;
};

// ---- the document ----

Ptr<Statum::EntityManager> Loader::run(od::document& doc, const char* text) {
  od::json_type t;
  r_.check(doc.type().get(t));
  if (t != od::json_type::object) r_.fail("a state snapshot is a JSON object");
  od::object obj;
  r_.check(doc.get_object().get(obj));
  top(obj);
  // The parser stops where the object ends. Whatever follows (a second document, a stray
  // bracket) means the file is not what its writer meant, so nothing of it is taken.
  if (const char* at = nullptr; doc.current_location().get(at) == simdjson::SUCCESS) {
    r_.fail("more data after the end of the document, at byte offset " + std::to_string(at - text));
  }
  finish();

  auto em = makePtr<Statum::EntityManager>();
  namespace p = paths;
  em->entityIs(p::kDevice, device_);
  em->entityIs(p::kStaticRouteDefaults, staticDefaults_);
  em->entityIs(p::kIntfConfig, intfConfig_);
  em->entityIs(p::kIntfStatus, intfStatus_);
  em->entityIs(p::kIpConfig, ipConfig_);
  em->entityIs(p::kIpStatus, ipStatus_);
  em->entityIs(p::kIp6Config, ip6Config_);
  em->entityIs(p::kIp6Status, ip6Status_);
  em->entityIs(p::kArpStatus, arp_);
  em->entityIs(p::kVrfIdMap, vrfIdMap_);
  em->entityIs(p::kTunnelFib, tunnelFib_);
  em->entityIs(p::kTunnelTables, tunnelTables_);
  em->entityIs(p::kEvpnVxlan, evpn_);
  em->entityIs(p::kSrTePolicy, srTe_);
  em->entityIs(p::kNhgConfig, nhgConfig_);
  em->entityIs(p::kNhgEntryStatus, nhgEntryStatus_);
  em->entityIs(p::kNhgHwStatus, nhgHw_);
  em->entityIs(p::kRoutingHw, routingHw_);
  em->entityIs(p::kRouting6Hw, routing6Hw_);
  em->entityIs(p::kRdInputDir, rdInputs_);
  em->entityIs(p::kCounterKeyTable, counterKeys_);
  em->entityIs(p::kCounterTable, counters_);
  em->entityIs(p::kSnapshotCounterTable, counterSnapshot_);
  for (auto& [name, v] : vrfs_) {
    em->entityIs(p::vrfPath(name, p::kRoutingConfig), v->config4);
    em->entityIs(p::vrfPath(name, p::kRouting6Config), v->config6);
    em->entityIs(p::vrfPath(name, p::kFibRoute), v->route4);
    em->entityIs(p::vrfPath(name, p::kFibFec), v->fec4);
    em->entityIs(p::vrfPath(name, p::kFib6Route), v->route6);
    em->entityIs(p::vrfPath(name, p::kFib6Fec), v->fec6);
    em->entityIs(p::vrfPath(name, p::kHwVrfStatus), v->hw);
    em->entityIs(p::vrfPath(name, p::kKernelUnprogrammed), v->kernel4);
    em->entityIs(p::vrfPath(name, p::kKernelUnprogrammed6), v->kernel6);
  }
  return em;
}

enum TopKey {
  kVersion,
  kHostname,
  kHardware,
  kVrfs,
  kInterfaces,
  kNeighbors,
  kTunnels,
  kSrTePolicies,
  kNexthopGroups,
  kFlexCounters,
  kRouteDistinguisherInputs,
  kStaticRouteDefaults,
};
constexpr Keys<12> kTopKeys = {
    "version",
    "hostname",
    "hardware",
    "vrfs",
    "interfaces",
    "neighbors",
    "tunnels",
    "srTePolicies",
    "nexthopGroups",
    "flexCounters",
    "routeDistinguisherInputs",
    "staticRouteDefaults",
};

void Loader::top(od::object obj) {
  r_.fields(obj, kTopKeys, bit(kVersion) | bit(kVrfs), [&](unsigned k, od::value& v) {
    switch (k) {
      case kVersion:
        version_ = int(r_.number(v, 1000000));
        if (version_ != kFormatVersion) {
          r_.fail("unsupported version " + std::to_string(version_) + " (this program reads " +
                  std::to_string(kFormatVersion) + ")");
        }
        break;
      case kHostname:
        device_->hostnameIs(std::string(r_.string(v)));
        break;
      case kHardware:
        hardware(v);
        break;
      case kVrfs:
        vrfs(v);
        break;
      case kInterfaces:
        interfaces(v);
        break;
      case kNeighbors:
        neighbors(v);
        break;
      case kTunnels:
        tunnels(v);
        break;
      case kSrTePolicies:
        srTePolicies(v);
        break;
      case kNexthopGroups:
        nexthopGroups(v);
        break;
      case kFlexCounters:
        flexCounters(v);
        break;
      case kRouteDistinguisherInputs:
        routeDistinguishers(v);
        break;
      case kStaticRouteDefaults:
        staticRouteDefaults(v);
        break;
    }
  });
}

void Loader::staticRouteDefaults(od::value& v) {
  static constexpr Keys<3> keys = {"preference", "tag", "name"};
  r_.fields(r_.object(v), keys, 0, [&](unsigned k, od::value& f) {
    if (k == 0) {
      const auto preference = r_.number(f, 255);
      if (preference < 1) r_.fail("a preference is 1 to 255");
      staticDefaults_->preferenceIs(Routing::RoutePreference(preference));
    } else if (k == 1) {
      staticDefaults_->tagIs(std::uint32_t(r_.number(f, kU32Max)));
    } else {
      staticDefaults_->nameIs(std::string(r_.string(f)));
    }
  });
}

void Loader::hardware(od::value& v) {
  static constexpr Keys<3> keys = {"fecWeightLimit", "maxEcmp", "nexthopGroupMaxSize"};
  r_.fields(r_.object(v), keys, 0, [&](unsigned k, od::value& f) {
    const auto n = std::uint32_t(r_.number(f, kU32Max));
    if (k == 0) {
      routingHw_->fecWeightLimitIs(n);
      routing6Hw_->fecWeightLimitIs(n);
    } else if (k == 1) {
      routingHw_->maxEcmpIs(n);
      routing6Hw_->maxEcmpIs(n);
    } else {
      routingHw_->nexthopGroupMaxSizeIs(n);
    }
  });
}

// ---- VRFs and their routes ----

void Loader::vrfs(od::value& v) {
  r_.entries(r_.object(v), [&](std::string_view name, od::value& f) { vrf(name, f); });
}

enum VrfKey { kVrfId, kRoutingEnabled, kRouting6Enabled, kStaticRoutes, kIpv4, kIpv6 };
constexpr Keys<6> kVrfKeys = {"id",           "routingEnabled", "routing6Enabled",
                              "staticRoutes", "ipv4",           "ipv6"};

void Loader::vrf(std::string_view name, od::value& v) {
  const L3::VrfName vrfName = this->vrfName(name);
  auto state = std::make_unique<VrfState>();
  VrfState& s = *state;
  s.name = vrfName.stringValue();
  s.hw->vrfNameIs(vrfName);
  vrfs_.emplace(s.name, std::move(state));
  r_.fields(r_.object(v), kVrfKeys, 0, [&](unsigned k, od::value& f) {
    switch (k) {
      case kVrfId:
        s.id = std::uint32_t(r_.number(f, kU32Max - 1));
        s.hasId = true;
        if (vrfName.isDefault() && s.id != Vrf::VrfIdMap::kDefaultVrfId)
          r_.fail("the VRF \"default\" has id 0");
        if (auto it = vrfIds_.find(s.id); it != vrfIds_.end())
          r_.fail("VRF id " + std::to_string(s.id) + " is already the id of VRF " +
                  quote(it->second));
        vrfIds_.emplace(s.id, s.name);
        break;
      case kRoutingEnabled:
        s.config4->routingEnabledIs(r_.boolean(f));
        break;
      case kRouting6Enabled:
        s.config6->routingEnabledIs(r_.boolean(f));
        break;
      case kStaticRoutes:
        staticRoutes(f, s);
        break;
      case kIpv4:
        family<V4>(f, s);
        break;
      case kIpv6:
        family<V6>(f, s);
        break;
    }
  });
  if (!s.hasId) {
    if (!vrfName.isDefault()) r_.fail("missing required key \"id\"");
    if (auto it = vrfIds_.find(0); it != vrfIds_.end())
      r_.fail("VRF id 0 belongs to the VRF \"default\", not " + quote(it->second));
    s.hasId = true;
    vrfIds_.emplace(0, s.name);
  }
  Vrf::VrfIdMap::Entry entry;
  entry.vrfId = s.id;
  entry.vrfNameIs(vrfName);
  vrfIdMap_->recordIs(entry);
}

template <class Fam>
void Loader::family(od::value& v, VrfState& vrf) {
  static constexpr Keys<2> keys = {"routes", "fecs"};
  r_.fields(r_.object(v), keys, 0, [&](unsigned k, od::value& f) {
    if (k == 0) {
      routes<Fam>(f, vrf);
    } else {
      fecs<Fam>(f, vrf);
    }
  });
}

enum RouteKey { kPrefix, kType, kFec, kPreference, kMetric, kHwProgrammed, kKernelProgrammed };
constexpr Keys<7> kRouteKeys = {
    "prefix", "type", "fec", "preference", "metric", "hardwareProgrammed", "kernelProgrammed"};

template <class Fam>
void Loader::routes(od::value& v, VrfState& vrf) {
  od::array arr = r_.array(v);
  auto& table = vrf.routes<Fam>();
  table.reserve(table.size() + r_.count(arr));
  std::uint32_t unprogrammed = 0;
  r_.elements(arr, [&](std::size_t, od::value& e) {
    typename Fam::Route route;
    int preference = -1;
    bool kernelProgrammed = true;
    r_.fields(r_.object(e), kRouteKeys, bit(kPrefix) | bit(kType), [&](unsigned k, od::value& f) {
      switch (k) {
        case kPrefix:
          route.prefix = prefix<Fam>(f);
          break;
        case kType: {
          const std::string_view word = r_.string(f);
          if (!routeTypeWords<Fam>().find(word, route.routeType))
            r_.fail("unknown " + std::string(Fam::kName) + " route type " + quote(word));
          break;
        }
        case kFec:
          route.fecId = familyFecRef<Fam>(f);
          break;
        case kPreference:
          preference = int(r_.number(f, 255));
          break;
        case kMetric:
          route.metric = std::uint32_t(r_.number(f, kU32Max));
          break;
        case kHwProgrammed:
          route.hardwareProgrammed = r_.boolean(f);
          break;
        case kKernelProgrammed:
          kernelProgrammed = r_.boolean(f);
          break;
      }
    });
    route.preference =
        preference >= 0 ? std::uint8_t(preference) : Fam::defaultPreference(route.routeType);
    const std::size_t before = table.size();
    table.recordIs(route);
    if (table.size() == before) r_.fail("duplicate route for " + route.prefix.stringValue());
    if (!route.hardwareProgrammed) ++unprogrammed;
    if (!kernelProgrammed) vrf.kernel<Fam>().recordIs({Plexa::IpGenPrefix(route.prefix)});
  });
  vrf.countUnprogrammed<Fam>(unprogrammed);
}

enum FecKey { kFecId, kBackupIndex, kVias };
constexpr Keys<3> kFecKeys = {"id", "backupIndex", "vias"};

template <class Fam>
void Loader::fecs(od::value& v, VrfState& vrf) {
  od::array arr = r_.array(v);
  auto& table = vrf.fecs<Fam>();
  table.reserve(table.size() + r_.count(arr));
  // A FEC record holds room for 512 vias: one scratch record, not one on the stack per FEC.
  auto fec = std::make_unique<typename Fam::Fec>();
  r_.elements(arr, [&](std::size_t, od::value& e) {
    fec->fecId = {};
    fec->backupViaIndexValue = 0;
    fec->via.clear();
    r_.fields(r_.object(e), kFecKeys, bit(kFecId), [&](unsigned k, od::value& f) {
      switch (k) {
        case kFecId:
          fec->fecId = familyFecRef<Fam>(f);
          if (std::is_same_v<Fam, V4> && Brine::Fib::isV6FecId(fec->fecId))
            r_.fail("an ip6: FEC lives in the VRF's ipv6.fecs");
          break;
        case kBackupIndex:
          fec->backupViaIndexValue =
              r_.guarded([&] {
                  return Brine::ViaIndex(std::uint32_t(r_.number(f, kU32Max)));
                }).value();
          break;
        case kVias:
          r_.elements(r_.array(f), [&](std::size_t, od::value& via) {
            if (fec->via.size() >= Fam::Fec::kMaxVias) {
              r_.fail(std::string(Pelo::kPodArraySizeMessage) + " " +
                      std::to_string(Fam::Fec::kMaxVias) + ": a FEC holds at most " +
                      std::to_string(Fam::Fec::kMaxVias) + " vias");
            }
            fec->via.push(fecVia<Fam>(via));
          });
          break;
      }
    });
    // An index equal to the number of vias says the backups start past the last via: there
    // are none. One beyond that points at vias the FEC does not have.
    if (fec->backupViaIndexValue > fec->via.size()) {
      r_.fail("backupIndex " + std::to_string(fec->backupViaIndexValue) +
              " is above the number of vias (" + std::to_string(fec->via.size()) + ")");
    }
    const std::size_t before = table.size();
    table.recordIs(*fec);
    if (table.size() == before) r_.fail("duplicate FEC " + fecRefText(fec->fecId));
  });
}

enum FecViaKey { kViaNexthop, kViaInterface, kViaWeight, kViaLabel, kViaTunnel };
constexpr Keys<5> kFecViaKeys = {"nexthop", "interface", "weight", "label", "tunnel"};

template <class Fam>
typename Fam::Via Loader::fecVia(od::value& v) {
  typename Fam::Via via;
  const std::uint64_t seen = r_.fields(r_.object(v), kFecViaKeys, 0, [&](unsigned k, od::value& f) {
    switch (k) {
      case kViaNexthop:
        via.hop = address<typename Fam::Addr>(f, Fam::kName);
        break;
      case kViaInterface:
        via.intfId = intf(f);
        break;
      case kViaWeight:
        via.weight = std::uint16_t(r_.number(f, 65535));
        if (via.weight == 0) r_.fail("a via's weight is at least 1");
        break;
      case kViaLabel:
        via.labelValue = label(f).value();
        break;
      case kViaTunnel: {
        const auto id = tunnelRef(f);
        via.tunnelIdValue = id.value();
        // A tunnel via leaves through the dynamic interface that stands for the tunnel.
        via.intfId = Plexa::DynamicTunnelIntfId::intfId(id.value());
        break;
      }
    }
  });
  if ((seen & bit(kViaInterface)) && (seen & bit(kViaTunnel)))
    r_.fail("a via names an interface or a tunnel, not both");
  if (!(seen & (bit(kViaNexthop) | bit(kViaInterface) | bit(kViaTunnel))))
    r_.fail("a via needs a nexthop, an interface or a tunnel");
  return via;
}

// ---- static routes ----

enum StaticKey {
  kStPrefix,
  kStPreference,
  kStType,
  kStTag,
  kStDynamic,
  kStPersistent,
  kStName,
  kStNexthopGroup,
  kStVias,
};
constexpr Keys<9> kStaticKeys = {"prefix",     "preference", "type",         "tag", "dynamic",
                                 "persistent", "name",       "nexthopGroup", "vias"};

void Loader::staticRoutes(od::value& v, VrfState& vrf) {
  r_.elements(r_.array(v), [&](std::size_t, od::value& e) {
    Plexa::IpGenPrefix prefix;
    int preference = 1;
    auto type = Routing::RouteType::forward;
    std::uint32_t tag = 0;
    bool dynamic = false, persistent = true;
    std::string name, group;
    struct ViaInfo {
      Routing::Via via;
      bool trackBfd;
      std::string name;
    };
    std::vector<ViaInfo> vias;
    const std::uint64_t seen =
        r_.fields(r_.object(e), kStaticKeys, bit(kStPrefix), [&](unsigned k, od::value& f) {
          switch (k) {
            case kStPrefix:
              prefix = genPrefix(f);
              break;
            case kStPreference:
              preference = int(r_.number(f, 255));
              break;
            case kStType: {
              const std::string_view word = r_.string(f);
              if (!Routing::routeTypeFromName(word, type))
                r_.fail("unknown static route type " + quote(word) +
                        " (expected forward, drop or nexthopGroup)");
              break;
            }
            case kStTag:
              tag = std::uint32_t(r_.number(f, kU32Max));
              break;
            case kStDynamic:
              dynamic = r_.boolean(f);
              break;
            case kStPersistent:
              persistent = r_.boolean(f);
              break;
            case kStName:
              name = r_.string(f);
              break;
            case kStNexthopGroup:
              group = r_.string(f);
              break;
            case kStVias:
              // The prefix may come after the vias; its family is checked below.
              r_.elements(r_.array(f), [&](std::size_t, od::value& via) {
                ViaInfo info;
                info.via = staticVia(via, info.trackBfd, info.name);
                for (const auto& other : vias) {
                  if (other.via == info.via) r_.fail("duplicate via");
                }
                vias.push_back(std::move(info));
              });
              break;
          }
        });
    if (type != Routing::RouteType::forward && !vias.empty())
      r_.fail(std::string("a ") + std::string(Routing::routeTypeName(type)) + " route has no vias");
    if (type == Routing::RouteType::forward && vias.empty())
      r_.fail("a forward route needs at least one via");
    if ((seen & bit(kStName)) && type != Routing::RouteType::drop)
      r_.fail("\"name\" names a drop route; a forward route names its vias");
    if ((seen & bit(kStNexthopGroup)) != 0 && type != Routing::RouteType::nexthopGroup)
      r_.fail("\"nexthopGroup\" is for routes of type nexthopGroup");
    if (type == Routing::RouteType::nexthopGroup && group.empty())
      r_.fail("a nexthopGroup route needs \"nexthopGroup\"");
    for (std::size_t i = 0; i < vias.size(); ++i) {
      const auto& hop = vias[i].via.hop();
      if (!hop.isZero() && hop.af() != prefix.af()) {
        r_.path().push(std::string_view("vias"));
        r_.path().push(i);
        r_.fail("the nexthop " + hop.stringValue() + " is not of the family of " +
                prefix.stringValue());
      }
    }
    const Routing::RouteKey key(prefix, std::uint8_t(preference));
    auto route = makePtr<Routing::Route>(key);
    route->routeTypeIs(type);
    route->tagIs(tag);
    route->dynamicIs(dynamic);
    route->persistentIs(persistent);
    route->dropNextHopNameIs(name);
    route->nexthopGroupNameIs(group);
    for (const auto& info : vias) {
      route->viaIs(info.via, true);
      if (info.trackBfd) route->viaTrackBfdIs(info.via, true);
      if (!info.name.empty()) route->viaNextHopNameIs(info.via, info.name);
    }
    auto& config = prefix.af() == Plexa::AddressFamily::ipv4 ? *vrf.config4 : *vrf.config6;
    if (config.route().contains(key))
      r_.fail("duplicate static route for " + prefix.stringValue() + " at preference " +
              std::to_string(preference));
    config.routeIs(key, route);
  });
}

enum StaticViaKey {
  kSvNexthop,
  kSvInterface,
  kSvLabel,
  kSvVtep,
  kSvVni,
  kSvRouterMac,
  kSvTrackBfd,
  kSvName,
};
constexpr Keys<8> kStaticViaKeys = {"nexthop", "interface", "label",    "vtep",
                                    "vni",     "routerMac", "trackBfd", "name"};

Routing::Via Loader::staticVia(od::value& v, bool& trackBfd, std::string& name) {
  Routing::Via via;
  trackBfd = false;
  const std::uint64_t seen =
      r_.fields(r_.object(v), kStaticViaKeys, 0, [&](unsigned k, od::value& f) {
        switch (k) {
          case kSvNexthop:
            via.hopIs(genAddress(f));
            break;
          case kSvInterface:
            via.intfIdIs(intf(f));
            break;
          case kSvLabel:
            via.mplsLabelIs(label(f));
            break;
          case kSvVtep:
            via.vtepAddrIs(genAddress(f));
            break;
          case kSvVni:
            via.vniIs(vni(f));
            break;
          case kSvRouterMac:
            via.routerMacIs(mac(f));
            break;
          case kSvTrackBfd:
            trackBfd = r_.boolean(f);
            break;
          case kSvName:
            name = r_.string(f);
            break;
        }
      });
  const bool hasHop = seen & bit(kSvNexthop), hasVtep = seen & bit(kSvVtep);
  if (hasHop && hasVtep) r_.fail("a via has a nexthop or a vtep, not both");
  if (!hasHop && !hasVtep && !(seen & bit(kSvInterface)))
    r_.fail("a via needs a nexthop, an interface or a vtep");
  if ((seen & bit(kSvLabel)) && !hasHop) r_.fail("a label goes with a nexthop");
  if (hasVtep && !(seen & bit(kSvVni))) r_.fail("a vtep via needs a vni");
  if (!hasVtep && (seen & (bit(kSvVni) | bit(kSvRouterMac))))
    r_.fail("vni and routerMac go with a vtep");
  return via;
}

// ---- interfaces and neighbours ----

void Loader::interfaces(od::value& v) {
  od::array arr = r_.array(v);
  r_.elements(arr, [&](std::size_t, od::value& e) { interface(e); });
}

enum IntfKey { kIfName, kIfVrf, kIfDescription, kIfOperUp, kIfEnabled, kIfIpv4, kIfIpv6 };
constexpr Keys<7> kIntfKeys = {"name", "vrf", "description", "operUp", "enabled", "ipv4", "ipv6"};
enum Ipv4Key { kPrimary, kSecondaries, kVirtualPrimary, kVirtualSecondaries };
constexpr Keys<4> kIpv4Keys = {"primary", "secondaries", "virtualPrimary", "virtualSecondaries"};

void Loader::interface(od::value& v) {
  Plexa::IntfId id;
  L3::VrfName vrf = L3::VrfName::defaultVrf();
  bool linked = true;
  std::string description;
  bool operUp = true, enabled = true;
  Ptr<Ip::IpIntfConfig> ip;
  Ptr<Ip6::IntfConfig> ip6;
  auto addSet = [&](od::value& f, Ip::AddrWithMaskSet& set) {
    r_.elements(r_.array(f), [&](std::size_t, od::value& a) {
      const auto am = addressWithMask<Plexa::IpAddrWithMask>(a, "IPv4");
      if (!set.newEntry(am)) r_.fail("duplicate address " + am.stringValue());
    });
  };
  r_.fields(r_.object(v), kIntfKeys, bit(kIfName), [&](unsigned k, od::value& f) {
    switch (k) {
      case kIfName:
        id = intf(f);
        if (intfConfig_->intfConfig().contains(id))
          r_.fail("duplicate interface " + id.stringValue());
        break;
      case kIfVrf:
        if (r_.isNull(f)) {
          linked = false;
          vrf = L3::VrfName();
        } else if (!r_.isString(f)) {
          r_.fail("expected a VRF name or null");
        } else {
          vrf = vrfName(r_.string(f));
          vrfRef(vrf);
        }
        break;
      case kIfDescription:
        description = r_.string(f);
        break;
      case kIfOperUp:
        operUp = r_.boolean(f);
        break;
      case kIfEnabled:
        enabled = r_.boolean(f);
        break;
      case kIfIpv4:
        ip = makePtr<Ip::IpIntfConfig>();
        r_.fields(r_.object(f), kIpv4Keys, 0, [&](unsigned a, od::value& g) {
          switch (a) {
            case kPrimary:
              ip->addrWithMaskIs(addressWithMask<Plexa::IpAddrWithMask>(g, "IPv4"));
              break;
            case kSecondaries:
              addSet(g, ip->secondaryWithMaskMutable());
              break;
            case kVirtualPrimary:
              ip->virtualAddrWithMaskIs(addressWithMask<Plexa::IpAddrWithMask>(g, "IPv4"));
              break;
            case kVirtualSecondaries:
              addSet(g, ip->virtualSecondaryWithMaskMutable());
              break;
          }
        });
        break;
      case kIfIpv6:
        ip6 = makePtr<Ip6::IntfConfig>();
        r_.elements(r_.array(f), [&](std::size_t, od::value& a) {
          const auto am = addressWithMask<Plexa::Ip6AddrWithMask>(a, "IPv6");
          Ip6::AddressInfo info;
          info.addrIs(am);
          if (!ip6->newAddr(am, info)) r_.fail("duplicate address " + am.stringValue());
        });
        break;
    }
  });
  if (!linked) vrf = L3::VrfName();

  auto config = makePtr<Interface::IntfConfig>(id);
  config->descriptionIs(description);
  config->vrfIs(vrf);
  config->enabledIs(enabled);
  intfConfig_->intfConfigIs(id, config);
  auto status = makePtr<Interface::IntfStatus>(id);
  status->operUpIs(operUp);
  intfStatus_->intfStatusIs(id, status);

  // The status mirrors the configuration: a snapshot describes a settled device.
  if (ip) {
    ip->intfIdIs(id);
    ip->vrfIs(vrf);
    auto st = makePtr<Ip::IpIntfStatus>(id);
    // The interface answers on its virtual addresses too, so they are active like the others.
    st->activeAddrWithMaskIs(ip->addrWithMask());
    if (!ip->virtualAddrWithMask().address().isZero()) {
      st->activeSecondaryWithMaskIs(ip->virtualAddrWithMask(), true);
    }
    for (const auto& a : ip->secondaryWithMask())
      st->activeSecondaryWithMaskIs(a, true);
    for (const auto& a : ip->virtualSecondaryWithMask())
      st->activeSecondaryWithMaskIs(a, true);
    ipConfig_->intfConfigIs(id, ip);
    ipStatus_->ipIntfStatusIs(id, st);
  }
  if (ip6) {
    ip6->intfIdIs(id);
    ip6->vrfIs(vrf);
    auto st = makePtr<Ip6::IntfStatus>(id);
    for (const auto& entry : ip6->addr())
      st->addrIs(entry.first, true);
    ip6Config_->intfIs(id, ip6);
    ip6Status_->intfIs(id, st);
  }
}

enum NeighborKey { kNbVrf, kNbAddress, kNbInterface, kNbMac };
constexpr Keys<4> kNeighborKeys = {"vrf", "address", "interface", "mac"};

void Loader::neighbors(od::value& v) {
  od::array arr = r_.array(v);
  neighbors_.reserve(r_.count(arr));
  r_.elements(arr, [&](std::size_t i, od::value& e) {
    PendingNeighbor n{{}, std::size_t(-1), i};
    r_.fields(r_.object(e), kNeighborKeys, bit(kNbAddress) | bit(kNbInterface) | bit(kNbMac),
              [&](unsigned k, od::value& f) {
                switch (k) {
                  case kNbVrf:
                    n.vrfRef = vrfRef(vrfName(r_.string(f)));
                    break;
                  case kNbAddress:
                    n.entry.arpKey.addr = genAddress(f);
                    break;
                  case kNbInterface:
                    n.entry.arpKey.intfId = intf(f);
                    break;
                  case kNbMac:
                    n.entry.ethAddr = mac(f);
                    break;
                }
              });
    if (n.vrfRef == std::size_t(-1)) n.vrfRef = vrfRef(L3::VrfName::defaultVrf());
    neighbors_.push_back(n);
  });
}

// ---- tunnels ----

enum TunnelsKey { kTnFib, kTnSr, kTnStatic, kTnLdp, kTnBgpLu, kTnEvpn };
constexpr Keys<6> kTunnelsKeys = {"fib", "sr", "static", "ldp", "bgpLu", "evpnVxlan"};

void Loader::tunnels(od::value& v) {
  using namespace Tunnel::TunnelTable;
  r_.fields(r_.object(v), kTunnelsKeys, 0, [&](unsigned k, od::value& f) {
    // A protocol's table exists when the document names it, even empty: a device may run a
    // protocol that has built no tunnel yet.
    switch (k) {
      case kTnFib:
        tunnelFib(f);
        break;
      case kTnSr: {
        auto t = makePtr<SrTunnelTable>();
        tunnelTable(f, *t, TunnelType::srTunnel, "sr");
        tunnelTables_->entityIs("sr", t);
        break;
      }
      case kTnStatic: {
        auto t = makePtr<StaticTunnelTable>();
        tunnelTable(f, *t, TunnelType::staticTunnel, "static");
        tunnelTables_->entityIs("static", t);
        break;
      }
      case kTnLdp: {
        auto t = makePtr<LdpTunnelTable>();
        tunnelTable(f, *t, TunnelType::ldpTunnel, "ldp");
        tunnelTables_->entityIs("ldp", t);
        break;
      }
      case kTnBgpLu: {
        auto t = makePtr<BgpLuTunnelTable>();
        tunnelTable(f, *t, TunnelType::bgpLuTunnel, "bgpLu");
        tunnelTables_->entityIs("bgpLu", t);
        break;
      }
      case kTnEvpn:
        evpnVxlan(f);
        break;
    }
  });
}

void Loader::tunnelFib(od::value& v) {
  static constexpr Keys<2> keys = {"tunnel", "vias"};
  r_.elements(r_.array(v), [&](std::size_t, od::value& e) {
    Tunnel::TunnelFib::MplsTunnelFibEntry entry;
    r_.fields(r_.object(e), keys, bit(0), [&](unsigned k, od::value& f) {
      if (k == 0) {
        entry.tunnelId = tunnelRef(f);
      } else {
        entry.tunnelVia = tunnelVias(f);
      }
    });
    if (tunnelFib_->contains(entry.tunnelId))
      r_.fail("duplicate tunnel " + tunnelRefText(entry.tunnelId));
    tunnelFib_->recordIs(entry);
  });
}

void Loader::tunnelTable(
    od::value& v,
    Brine::Table<Tunnel::TunnelTable::TunnelId, Tunnel::TunnelTable::TunnelTableEntry>& table,
    Tunnel::TunnelTable::TunnelType type, const char* word) {
  static constexpr Keys<3> keys = {"tunnel", "endpoint", "vias"};
  r_.elements(r_.array(v), [&](std::size_t, od::value& e) {
    Tunnel::TunnelTable::TunnelTableEntry entry;
    r_.fields(r_.object(e), keys, bit(0) | bit(1), [&](unsigned k, od::value& f) {
      if (k == 0) {
        entry.tunnelId = tunnelRef(f);
        if (entry.tunnelId.tunnelType() != static_cast<std::uint64_t>(type))
          r_.fail(std::string("the tunnels of this table are written \"") + word + ":<index>\"");
      } else if (k == 1) {
        entry.endpoint = genPrefix(f);
      } else {
        entry.via = tunnelVias(f);
      }
    });
    if (table.contains(entry.tunnelId))
      r_.fail("duplicate tunnel " + tunnelRefText(entry.tunnelId));
    table.recordIs(entry);
  });
}

Tunnel::TunnelTable::TunnelViaArray Loader::tunnelVias(od::value& v) {
  static constexpr Keys<4> keys = {"nexthop", "interface", "tunnel", "labels"};
  Tunnel::TunnelTable::TunnelViaArray vias;
  r_.elements(r_.array(v), [&](std::size_t, od::value& e) {
    if (vias.size() >= vias.capacity()) {
      r_.fail(std::string(Pelo::kPodArraySizeMessage) + " " + std::to_string(vias.capacity()) +
              ": a tunnel has at most " + std::to_string(vias.capacity()) + " vias");
    }
    Tunnel::TunnelTable::MplsVia via;
    const std::uint64_t seen = r_.fields(r_.object(e), keys, 0, [&](unsigned k, od::value& f) {
      switch (k) {
        case 0:
          via.nexthop = genAddress(f);
          break;
        case 1:
          via.intfId = intf(f);
          break;
        case 2:
          // A tunnel that rides on another tunnel leaves through that tunnel's interface.
          via.intfId = Plexa::DynamicTunnelIntfId::intfId(tunnelRef(f).value());
          break;
        case 3:
          via.labelOp = labelOp(f);
          break;
      }
    });
    if ((seen & bit(1)) && (seen & bit(2)))
      r_.fail("a tunnel via names an interface or a tunnel, not both");
    if (!(seen & (bit(0) | bit(1) | bit(2))))
      r_.fail("a tunnel via needs a nexthop, an interface or a tunnel");
    vias.push(via);
  });
  return vias;
}

void Loader::evpnVxlan(od::value& v) {
  static constexpr Keys<4> keys = {"interface", "vtep", "vni", "routerMac"};
  r_.elements(r_.array(v), [&](std::size_t, od::value& e) {
    Tunnel::TunnelTable::EvpnVxlanTunnelEntry entry;
    r_.fields(r_.object(e), keys, bit(0) | bit(1) | bit(2), [&](unsigned k, od::value& f) {
      switch (k) {
        case 0:
          entry.intfId = intf(f);
          break;
        case 1:
          entry.vtepAddr = genAddress(f);
          break;
        case 2:
          entry.vni = vni(f);
          break;
        case 3:
          entry.routerMac = mac(f);
          break;
      }
    });
    if (evpn_->contains(entry.intfId))
      r_.fail("duplicate EVPN VXLAN tunnel on " + entry.intfId.stringValue());
    evpn_->recordIs(entry);
  });
}

void Loader::srTePolicies(od::value& v) {
  static constexpr Keys<3> keys = {"fec", "endpoint", "color"};
  r_.elements(r_.array(v), [&](std::size_t, od::value& e) {
    SrTePolicy::PolicyEntry entry;
    r_.fields(r_.object(e), keys, bit(0) | bit(1) | bit(2), [&](unsigned k, od::value& f) {
      switch (k) {
        case 0:
          entry.fecId = fecRef(f);
          if (!Brine::Fib::isSrTePolicyFec(entry.fecId))
            r_.fail("an SR-TE policy's FEC is written \"srte:<n>\"");
          break;
        case 1:
          entry.policyKey.endpoint = genAddress(f);
          break;
        case 2:
          entry.policyKey.color = SrTePolicy::Color(r_.number(f, kU32Max));
          break;
      }
    });
    if (srTe_->contains(entry.fecId)) r_.fail("duplicate policy FEC " + fecRefText(entry.fecId));
    srTe_->recordIs(entry);
  });
}

// ---- nexthop groups and their counters ----

void Loader::nexthopGroups(od::value& v) {
  r_.elements(r_.array(v), [&](std::size_t, od::value& e) { nexthopGroup(e); });
}

enum NhgKey { kNgName, kNgId, kNgType, kNgSize, kNgTtl, kNgSource, kNgEntries, kNgProgrammed };
constexpr Keys<8> kNhgKeys = {"name", "id",     "type",    "size",
                              "ttl",  "source", "entries", "programmedInVrfs"};

void Loader::nexthopGroup(od::value& v) {
  using namespace Routing::NexthopGroup;
  auto group = makePtr<NexthopGroupConfigEntry>();
  NexthopGroup::EntryStatusRecord status;
  std::vector<L3::VrfName> programmed;
  r_.fields(r_.object(v), kNhgKeys, bit(kNgName) | bit(kNgId) | bit(kNgType),
            [&](unsigned k, od::value& f) {
              switch (k) {
                case kNgName: {
                  const std::string_view name = r_.string(f);
                  if (name.empty()) r_.fail("a nexthop group name is not empty");
                  if (name.size() > status.entryKey.name.capacity()) {
                    r_.fail(std::string(Pelo::kPodArraySizeMessage) + " 128: a nexthop group " +
                            "name has at most 128 bytes");
                  }
                  status.entryKey.name.setText(name);
                  group->nameIs(std::string(name));
                  if (nhgConfig_->nexthopGroup().contains(group->name()))
                    r_.fail("duplicate nexthop group " + quote(name));
                  break;
                }
                case kNgId:
                  status.nhgId = r_.number(f, Brine::Fib::adjIndexMask());
                  if (auto it = nhgIds_.find(status.nhgId); it != nhgIds_.end())
                    r_.fail("nexthop group id " + std::to_string(status.nhgId) +
                            " is already the id of " + quote(it->second));
                  break;
                case kNgType: {
                  const std::string_view word = r_.string(f);
                  NexthopGroupType t;
                  // "invalid" is a real state: a group whose type the agent has not set yet.
                  if (!moxEnumFromName(word, t))
                    r_.fail("unknown nexthop group type " + quote(word) +
                            " (expected invalid, ipInIp, gre, mpls, ip or mplsOverGre)");
                  group->typeIs(t);
                  break;
                }
                case kNgSize:
                  group->sizeIs(std::uint32_t(r_.number(f, 65536)));
                  break;
                case kNgTtl:
                  group->ttlIs(std::uint8_t(r_.number(f, 255)));
                  break;
                case kNgSource:
                  group->sourceIs(genAddress(f));
                  break;
                case kNgEntries: {
                  static constexpr Keys<2> keys = {"destination", "labels"};
                  r_.elements(r_.array(f), [&](std::size_t i, od::value& en) {
                    if (i > 65535) r_.fail("a nexthop group has at most 65536 entries");
                    NexthopGroupEntry entry;
                    r_.fields(r_.object(en), keys, bit(0), [&](unsigned a, od::value& g) {
                      if (a == 0) {
                        entry.destinationIs(genAddress(g));
                      } else {
                        entry.mplsLabelsIs(labelOp(g));
                      }
                    });
                    group->entryIs(std::uint16_t(i), entry);
                  });
                  break;
                }
                case kNgProgrammed:
                  r_.elements(r_.array(f), [&](std::size_t, od::value& n) {
                    const L3::VrfName vrf = vrfName(r_.string(n));
                    for (const auto& p : programmed) {
                      if (p == vrf) r_.fail("duplicate VRF " + quote(vrf.stringValue()));
                    }
                    vrfRef(vrf);
                    programmed.push_back(vrf);
                  });
                  break;
              }
            });
  if (group->size() != 0 && group->entrys() > group->size())
    r_.fail("the group has " + std::to_string(group->entrys()) + " entries but size " +
            std::to_string(group->size()));
  nhgIds_.emplace(status.nhgId, group->name().stringValue());
  nhgConfig_->nexthopGroupIs(group->name(), group);
  nhgEntryStatus_->recordIs(status);
  for (const auto& vrf : programmed) {
    auto hw = nhgHw_->vrf(vrf);
    if (!hw) {
      hw = makePtr<Routing::Hardware::VrfNexthopGroupStatus>();
      hw->vrfNameIs(vrf);
      nhgHw_->vrfIs(vrf, hw);
    }
    hw->nexthopGroupIs(status.nhgId, true);
  }
}

void Loader::flexCounters(od::value& v) {
  static constexpr Keys<3> keys = {"counters", "snapshot", "entryKeys"};
  r_.fields(r_.object(v), keys, 0, [&](unsigned k, od::value& f) {
    if (k == 0) {
      counterRows(f, *counters_);
    } else if (k == 1) {
      counterRows(f, *counterSnapshot_);
    } else {
      counterKeys(f);
    }
  });
}

// A counter exists on chip 0 unless the document says otherwise.
constexpr std::uint32_t kDefaultChipMask = 1;

void Loader::counterRows(od::value& v, FlexCounters::CounterTable& table) {
  static constexpr Keys<4> keys = {"index", "chipMask", "packets", "bytes"};
  r_.elements(r_.array(v), [&](std::size_t, od::value& e) {
    FlexCounters::CounterRow row;
    row.counterKey.chipMask = kDefaultChipMask;
    r_.fields(r_.object(e), keys, bit(0), [&](unsigned k, od::value& f) {
      switch (k) {
        case 0:
          row.counterKey.counterIndex = std::uint32_t(r_.number(f, kU32Max));
          break;
        case 1:
          row.counterKey.chipMask = std::uint32_t(r_.number(f, kU32Max));
          break;
        case 2:
          row.packets = r_.number(f, ~std::uint64_t(0));
          break;
        case 3:
          row.bytes = r_.number(f, ~std::uint64_t(0));
          break;
      }
    });
    if (table.contains(row.counterKey))
      r_.fail("duplicate counter " + std::to_string(row.counterKey.counterIndex) + " on chips " +
              std::to_string(row.counterKey.chipMask));
    table.recordIs(row);
  });
}

void Loader::counterKeys(od::value& v) {
  static constexpr Keys<4> keys = {"nexthopGroupId", "entry", "counterIndex", "chipMask"};
  r_.elements(r_.array(v), [&](std::size_t, od::value& e) {
    Routing::NexthopGroup::CounterKeyRecord rec;
    rec.info.chipMask = kDefaultChipMask;
    r_.fields(r_.object(e), keys, bit(0) | bit(1) | bit(2), [&](unsigned k, od::value& f) {
      switch (k) {
        case 0:
          rec.entry.nhgId = r_.number(f, Brine::Fib::adjIndexMask());
          break;
        case 1:
          rec.entry.entryIndex = std::uint16_t(r_.number(f, 65535));
          break;
        case 2:
          // All ones is how the table says "no counter": such an entry is left out instead.
          rec.info.counterIndex = std::uint32_t(r_.number(f, kU32Max - 1));
          break;
        case 3:
          rec.info.chipMask = std::uint32_t(r_.number(f, kU32Max));
          break;
      }
    });
    if (counterKeys_->contains(rec.entry))
      r_.fail("duplicate counter key for nexthop group " + std::to_string(rec.entry.nhgId) +
              " entry " + std::to_string(rec.entry.entryIndex));
    counterKeys_->recordIs(rec);
  });
}

void Loader::routeDistinguishers(od::value& v) {
  r_.entries(r_.object(v), [&](std::string_view inputName, od::value& f) {
    if (inputName.empty()) r_.fail("an input has a name");
    auto input = makePtr<Ip::RouteDistinguisherInput>();
    r_.entries(r_.object(f), [&](std::string_view vrf, od::value& rd) {
      const L3::VrfName name = vrfName(vrf);
      const std::string_view text = r_.string(rd);
      Plexa::RouteDistinguisher value;
      if (!Plexa::RouteDistinguisher::parse(text, value))
        r_.fail("bad route distinguisher " + quote(text) +
                " (expected ASN:n or IPv4-address:n, for example 100:1)");
      input->routeDistinguisherIs(name.string8(), value);
    });
    rdInputs_->entityIs(std::string(inputName), input);
  });
}

// ---- after the document ----

void Loader::finish() {
  auto def = vrfs_.find(L3::VrfName::kDefault);
  if (def == vrfs_.end()) {
    r_.path().push(std::string_view("vrfs"));
    r_.fail("the VRF \"default\" is missing; every device has it");
  }
  for (const auto& [name, path] : vrfRefs_) {
    if (vrfs_.find(name.stringValue()) == vrfs_.end())
      throw LoadError(path, "unknown VRF " + quote(name.stringValue()) + " (not in \"vrfs\")");
  }
  arp_->reserve(neighbors_.size());
  for (PendingNeighbor& n : neighbors_) {
    n.entry.arpKey.vrfId = vrfs_.at(vrfRefs_[n.vrfRef].first.stringValue())->id;
    if (arp_->contains(n.entry.arpKey)) {
      throw LoadError("$.neighbors[" + std::to_string(n.index) + "]",
                      "duplicate neighbour " + n.entry.arpKey.addr.stringValue() + " on " +
                          n.entry.arpKey.intfId.stringValue());
    }
    arp_->recordIs(n.entry);
  }
}

std::size_t Loader::vrfRef(const L3::VrfName& name) {
  for (std::size_t i = 0; i < vrfRefs_.size(); ++i) {
    if (vrfRefs_[i].first == name) return i;
  }
  vrfRefs_.emplace_back(name, r_.path().text());
  return vrfRefs_.size() - 1;
}

// ---- values ----

template <class Fam>
typename Fam::Prefix Loader::prefix(od::value& v) {
  const std::string_view text = r_.string(v);
  typename Fam::AddrWithMask a;
  if (!Fam::AddrWithMask::parse(text, a))
    r_.fail("bad " + std::string(Fam::kName) + " prefix " + quote(text));
  const typename Fam::Prefix p = a.subnet();
  if (!(p.address() == a.address())) {
    r_.fail(quote(text) + " has host bits set; the prefix is " + p.stringValue());
  }
  return p;
}

Plexa::IpGenPrefix Loader::genPrefix(od::value& v) {
  // Both families are spelled apart by the colon, as the address types do.
  const std::string_view text = r_.string(v);
  if (text.find(':') != std::string_view::npos) {
    Plexa::Ip6AddrWithMask a;
    if (!Plexa::Ip6AddrWithMask::parse(text, a)) r_.fail("bad prefix " + quote(text));
    if (!(a.subnet().address() == a.address()))
      r_.fail(quote(text) + " has host bits set; the prefix is " + a.subnet().stringValue());
    return a.subnet();
  }
  Plexa::IpAddrWithMask a;
  if (!Plexa::IpAddrWithMask::parse(text, a)) r_.fail("bad prefix " + quote(text));
  if (!(a.subnet().address() == a.address()))
    r_.fail(quote(text) + " has host bits set; the prefix is " + a.subnet().stringValue());
  return a.subnet();
}

template <class Addr>
Addr Loader::address(od::value& v, const char* what) {
  const std::string_view text = r_.string(v);
  Addr a;
  if (!Addr::parse(text, a)) r_.fail("bad " + std::string(what) + " address " + quote(text));
  return a;
}

Plexa::IpGenAddr Loader::genAddress(od::value& v) {
  const std::string_view text = r_.string(v);
  Plexa::IpGenAddr a;
  if (text.empty() || !Plexa::IpGenAddr::parse(text, a)) r_.fail("bad IP address " + quote(text));
  return a;
}

template <class AddrWithMask>
AddrWithMask Loader::addressWithMask(od::value& v, const char* what) {
  const std::string_view text = r_.string(v);
  AddrWithMask a;
  if (!AddrWithMask::parse(text, a))
    r_.fail("bad " + std::string(what) + " address with mask " + quote(text) +
            " (expected address/length)");
  return a;
}

Plexa::IntfId Loader::intf(od::value& v) {
  constexpr std::size_t kMaxName = 64;
  const std::string_view text = r_.string(v);
  bool ok = !text.empty() && text.size() <= kMaxName;
  for (char c : text)
    ok = ok && c > ' ' && c < 127;
  if (!ok)
    r_.fail("bad interface name " + quote(text) + " (1 to 64 printable characters without blanks)");
  return Plexa::IntfId(text);
}

Plexa::MplsLabel Loader::label(od::value& v) {
  const std::uint64_t n = r_.number(v, kU32Max);
  try {
    return Plexa::MplsLabel(std::uint32_t(n));
  } catch (const Mox::RangeException& e) {
    r_.fail(std::string(e.what()) + " (label " + std::to_string(n) + ")");
  }
}

Plexa::MplsLabelOperation Loader::labelOp(od::value& v) {
  const std::string_view text = r_.string(v);
  return r_.guarded([&] { return Plexa::MplsLabelOperation::fromString(text); });
}

Plexa::EthAddr Loader::mac(od::value& v) {
  const std::string_view text = r_.string(v);
  Plexa::EthAddr a;
  if (!Plexa::EthAddr::parse(text, a))
    r_.fail("bad MAC address " + quote(text) + " (expected 00:11:22:33:44:55)");
  return a;
}

Vxlan::VniOrNone Loader::vni(od::value& v) {
  const std::uint64_t n = r_.number(v, Vxlan::VniOrNone::kMax);
  return Vxlan::VniOrNone(std::uint32_t(n));
}

Brine::Fib::FecId Loader::fecRef(od::value& v) {
  const std::string_view text = r_.string(v);
  Brine::Fib::FecId id;
  if (const char* why = parseFecRef(text, id)) r_.fail("bad FEC " + quote(text) + ": " + why);
  return id;
}

// The IPv6 tables hold IPv6 FECs only, so "12" there can mean nothing but "ip6:12"; taking
// both spellings as one id keeps an IPv6 route and an IPv4 route over IPv6 next hops pointing
// at the same FEC whichever way the document writes it.
template <class Fam>
Brine::Fib::FecId Loader::familyFecRef(od::value& v) {
  const Brine::Fib::FecId id = fecRef(v);
  if (std::is_same_v<Fam, V6> && id.adjType() == Brine::Fib::AdjType::ipAdj)
    return Brine::Fib::FecId(Brine::Fib::AdjType::ip6Adj, id.index());
  return id;
}

Tunnel::TunnelTable::TunnelId Loader::tunnelRef(od::value& v) {
  const std::string_view text = r_.string(v);
  Tunnel::TunnelTable::TunnelId id;
  if (const char* why = parseTunnelRef(text, id)) r_.fail("bad tunnel " + quote(text) + ": " + why);
  return id;
}

L3::VrfName Loader::vrfName(std::string_view text) {
  L3::VrfName name = r_.guarded([&] { return L3::VrfName(text); });
  bool ok = !text.empty();
  // The name becomes a path step ("vrf/<name>/..."), so no slash.
  for (char c : text)
    ok = ok && c > ' ' && c < 127 && c != '/';
  if (!ok) r_.fail("bad VRF name " + quote(text) + " (printable, no blanks or slashes)");
  return name;
}

Ptr<Statum::EntityManager> loadPadded(simdjson::padded_string_view json) {
  od::parser parser;
  od::document doc;
  Loader loader;
  const auto err = parser.iterate(json).get(doc);
  if (err != simdjson::SUCCESS)
    throw LoadError("$", std::string("malformed JSON: ") + simdjson::error_message(err));
  return loader.run(doc, json.data());
}

// The parser reads documents of up to 4 GiB; a longer source is refused before it is all read.
constexpr std::size_t kMaxDocumentBytes = 0xffffffffu;

[[noreturn]] void failFile(const std::string& path, int err) {
  throw LoadError("", std::strerror(err), path);
}

// A file's bytes with the parser's padding after them.
class FileText {
 public:
  // Reads `fd` to its end. `expected` is the size when it is known (a regular file), so that
  // such a file is read into one buffer of its size; other sources grow the buffer as they
  // come.
  FileText(int fd, std::size_t expected, const std::string& path) {
    reserve(expected + 1);  // room for the read that finds the end
    for (;;) {
      if (size_ == room()) reserve(2 * size_);
      const ssize_t n = ::read(fd, data_.get() + size_, room() - size_);
      if (n == 0) return;
      if (n < 0) {
        if (errno == EINTR) continue;
        failFile(path, errno);
      }
      size_ += static_cast<std::size_t>(n);
      if (size_ > kMaxDocumentBytes)
        throw LoadError("", "larger than 4 GiB, the most a state may be", path);
    }
  }

  simdjson::padded_string_view view() const {
    return simdjson::padded_string_view(data_.get(), size_, capacity_);
  }

 private:
  std::size_t room() const { return capacity_ - simdjson::SIMDJSON_PADDING; }

  void reserve(std::size_t bytes) {
    const std::size_t capacity =
        std::max<std::size_t>(bytes, 64 * 1024) + simdjson::SIMDJSON_PADDING;
    auto grown = std::make_unique_for_overwrite<char[]>(capacity);
    if (size_) std::memcpy(grown.get(), data_.get(), size_);
    data_ = std::move(grown);
    capacity_ = capacity;
  }

  std::unique_ptr<char[]> data_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace

Mox::Ptr<Statum::EntityManager> load(std::string_view json) {
  return loadPadded(simdjson::padded_string(json));
}

Mox::Ptr<Statum::EntityManager> loadFile(const std::string& path) {
  const bool standardInput = path == "-";
  const int fd = standardInput ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) failFile(path, errno);
  struct Closer {
    int fd;
    ~Closer() {
      if (fd >= 0) ::close(fd);
    }
  } closer{standardInput ? -1 : fd};
  // What the path is decides how it is read: a directory has no text (and a size that means
  // nothing), a pipe or FIFO has no size and cannot seek, only a regular file has both.
  struct stat st {};
  if (::fstat(fd, &st) != 0) failFile(path, errno);
  if (S_ISDIR(st.st_mode)) failFile(path, EISDIR);
  const std::size_t expected = S_ISREG(st.st_mode) ? static_cast<std::size_t>(st.st_size) : 0;
  if (expected > kMaxDocumentBytes)
    throw LoadError("", "larger than 4 GiB, the most a state may be", path);
  const FileText text(fd, expected, path);
  return loadPadded(text.view());
}

}  // namespace Snapshot
