#pragma once
// The state's layout, declared once: every entity of a device's state, with its record type
// and where the entity manager keeps it. The snapshot loader and the live builder publish their
// tables by it, the writer, the front end and the tests find them by it, and a store that
// mounts the tables elsewhere walks the same list. A new table is one line in one of the two
// lists below; every user that walks a list gets it, and every lookup of it is typed.
//
//   Snapshot::layout::DeviceTables device;              // one fresh table per device entity
//   device.ipConfig->intfConfigIs(...);
//   Snapshot::layout::publish(em, device);
//   auto routes = Snapshot::layout::find(em, Snapshot::layout::fibRoute, "red");
//   // routes: Mox::Ptr<Brine::Fib::RouteStatus const>, empty when "red" has none
//   Snapshot::layout::forEachEntity([](const auto& entity) { entity.path; });

#include <string>
#include <string_view>
#include <vector>

#include "platform/brine/Fib.h"
#include "platform/brine/FlexCounters.h"
#include "platform/brine/KernelRoutes.h"
#include "platform/brine/Neighbor.h"
#include "platform/brine/NexthopGroupTables.h"
#include "platform/brine/SrTePolicy.h"
#include "platform/brine/Tunnel.h"
#include "platform/mox/Dir.h"
#include "platform/mox/Ptr.h"
#include "platform/state/Family.h"
#include "platform/state/Interface.h"
#include "platform/state/Ip.h"
#include "platform/state/NexthopGroupConfig.h"
#include "platform/state/RoutingConfig.h"
#include "platform/state/RoutingHardware.h"
#include "platform/statum/EntityManager.h"
#include "snapshot/DeviceInfo.h"

// Device-wide entities: name, record type, path.
// clang-format off
#define SNAPSHOT_DEVICE_ENTITIES(E)                                                              \
  E(device,               Snapshot::DeviceInfo,                       "sys/device")              \
  E(staticRouteDefaults,  Routing::StaticRouteDefaults,               "routing/staticRouteDefaults") \
  E(intfConfig,           Interface::AllIntfConfigDir,                "interface/config")        \
  E(intfStatus,           Interface::AllIntfStatusDir,                "interface/status")        \
  E(ipConfig,             Ip::Config,                                 "ip/config")               \
  E(ipStatus,             Ip::Status,                                 "ip/status")               \
  E(ip6Config,            Ip6::Config,                                "ip6/config")              \
  E(ip6Status,            Ip6::Status,                                "ip6/status")              \
  E(arpStatus,            Arp::Table::Status,                         "arp/status")              \
  E(vrfIdMap,             Vrf::VrfIdMap::Status,                      "vrf/idMap")               \
  E(tunnelFib,            Tunnel::TunnelFib::MplsTunnelFib,           "tunnel/fib")              \
  /* a directory of the tunnel tables by name: sr, static, ldp, bgpLu */                         \
  E(tunnelTables,         Mox::Dir,                                   "tunnel/tables")           \
  E(evpnVxlan,            Tunnel::TunnelTable::EvpnVxlanTunnelTable,  "tunnel/evpnVxlan")        \
  E(srTePolicy,           SrTePolicy::PolicyStatus,                   "srTePolicy/status")       \
  E(nhgConfig,            Routing::NexthopGroup::Config,              "nexthopGroup/config")     \
  E(nhgEntryStatus,       NexthopGroup::EntryStatus,                  "nexthopGroup/entryStatus") \
  E(nhgHwStatus,          Routing::Hardware::NexthopGroupStatus,      "hardware/nexthopGroup")   \
  E(routingHw,            Routing::Hardware::Status,                  "hardware/routing")        \
  E(routing6Hw,           Routing6::Hardware::Status,                 "hardware/routing6")       \
  /* a directory of Ip::RouteDistinguisherInput, one per agent that configures them */           \
  E(rdInputDir,           Mox::Dir,                                   "ip/routeDistinguisherInput") \
  /* the counter tables, at the paths the nexthop-group counters mount */                        \
  E(counterKeyTable,      Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable,             \
                                                                      "tunnel/nexthop/counterkeyinfo") \
  E(counterTable,         FlexCounters::CounterTable,                 "flexCounter/counterTable/16/4294967295") \
  E(snapshotCounterTable, FlexCounters::CounterTable,                 "flexCounter/snapshotCounterTable/16/4294967295")

// Per-VRF entities, at "vrf/<name>/<path>": name, record type, path.
#define SNAPSHOT_VRF_ENTITIES(E)                                                                 \
  E(routingConfig,        Routing::ConfigGen,                         "routing/config")          \
  E(routing6Config,       Routing::ConfigGen,                         "routing6/config")         \
  E(fibRoute,             Brine::Fib::RouteStatus,                    "fib/route")               \
  E(fibFec,               Brine::Fib::ForwardingStatus,               "fib/fec")                 \
  E(fib6Route,            Brine::Fib6::RouteStatus,                   "fib6/route")              \
  E(fib6Fec,              Brine::Fib6::ForwardingStatus,              "fib6/fec")                \
  E(hwVrfStatus,          Routing::Hardware::VrfStatus,               "hardware/status")         \
  E(kernelUnprogrammed,   Brine::KernelUnprogrammedRoute::UnprogrammedRoute, "kernel/unprogrammedRoute") \
  E(kernelUnprogrammed6,  Brine::KernelUnprogrammedRoute::UnprogrammedRoute, "kernel/unprogrammedRoute6")
// clang-format on

namespace Snapshot::layout {

enum class Scope { device, vrf };

// What every entity has, whatever its record type: enough to walk the list at run time.
struct EntityInfo {
  std::string_view name;      // its name in the lists above: "ipConfig"
  std::string_view path;      // device-wide: the whole path; per VRF: the part after the VRF
  std::string_view typeName;  // the record type's registered name: "Ip::Config"
  Scope scope;
};

// One entity, typed by its record and its scope, so that a lookup yields the record type and
// a per-VRF entity cannot be looked up without a VRF.
template <class R, Scope S>
struct Entity : EntityInfo {
  using Record = R;
  static constexpr Scope kScope = S;
};

#define SNAPSHOT_DECLARE_ENTITY(scope, name, Record, path) \
  inline constexpr Entity<Record, Scope::scope> name{      \
      {#name, path, Record::kTypeName, Scope::scope}};
#define SNAPSHOT_DECLARE_DEVICE_ENTITY(name, Record, path) \
  SNAPSHOT_DECLARE_ENTITY(device, name, Record, path)
#define SNAPSHOT_DECLARE_VRF_ENTITY(name, Record, path) \
  SNAPSHOT_DECLARE_ENTITY(vrf, name, Record, path)
SNAPSHOT_DEVICE_ENTITIES(SNAPSHOT_DECLARE_DEVICE_ENTITY)
SNAPSHOT_VRF_ENTITIES(SNAPSHOT_DECLARE_VRF_ENTITY)
#undef SNAPSHOT_DECLARE_VRF_ENTITY
#undef SNAPSHOT_DECLARE_DEVICE_ENTITY
#undef SNAPSHOT_DECLARE_ENTITY

#define SNAPSHOT_ENTITY_CALL(name, Record, path) f(::Snapshot::layout::name);
// Calls f(entity) with every entity, typed: the device-wide ones, then the per-VRF ones.
template <class F>
void forEachEntity(F&& f) {
  SNAPSHOT_DEVICE_ENTITIES(SNAPSHOT_ENTITY_CALL)
  SNAPSHOT_VRF_ENTITIES(SNAPSHOT_ENTITY_CALL)
}
#undef SNAPSHOT_ENTITY_CALL

// Where the entity manager keeps an entity: a per-VRF one under "vrf/<vrf>/".
std::string pathOf(const EntityInfo& entity, std::string_view vrf = {});

// One table of each kind, fresh and empty until filled: what a source of the state builds,
// device-wide and per VRF, and publishes whole.
#define SNAPSHOT_TABLE_MEMBER(name, Record, path) Mox::Ptr<Record> name = Mox::makePtr<Record>();
#define SNAPSHOT_TABLE_CALL(name, Record, path) f(::Snapshot::layout::name, name);
struct DeviceTables {
  SNAPSHOT_DEVICE_ENTITIES(SNAPSHOT_TABLE_MEMBER)
  // Calls f(entity, table) for every table.
  template <class F>
  void forEach(F&& f) const {
    SNAPSHOT_DEVICE_ENTITIES(SNAPSHOT_TABLE_CALL)
  }
};
struct VrfTables {
  SNAPSHOT_VRF_ENTITIES(SNAPSHOT_TABLE_MEMBER)
  template <class F>
  void forEach(F&& f) const {
    SNAPSHOT_VRF_ENTITIES(SNAPSHOT_TABLE_CALL)
  }
};
#undef SNAPSHOT_TABLE_CALL
#undef SNAPSHOT_TABLE_MEMBER

// Writes every table into the entity manager at its path.
void publish(Statum::EntityManager& em, const DeviceTables& tables);
void publish(Statum::EntityManager& em, std::string_view vrf, const VrfTables& tables);

// The entity's table, or empty when the state has none there or one of another type.
template <class R>
Mox::Ptr<R const> find(const Statum::EntityManager& em, const Entity<R, Scope::device>& e) {
  return em.find<R>(e.path);
}
template <class R>
Mox::Ptr<R const> find(const Statum::EntityManager& em, const Entity<R, Scope::vrf>& e,
                       std::string_view vrf) {
  return em.find<R>(pathOf(e, vrf));
}
// Like find, but a missing table or one of another type raises Mox::RangeException.
template <class R>
Mox::Ptr<R const> mount(const Statum::EntityManager& em, const Entity<R, Scope::device>& e) {
  return em.mount<R>(e.path);
}
template <class R>
Mox::Ptr<R const> mount(const Statum::EntityManager& em, const Entity<R, Scope::vrf>& e,
                        std::string_view vrf) {
  return em.mount<R>(pathOf(e, vrf));
}

// The VRFs the state describes, in the entity manager's order (by path).
std::vector<std::string> vrfNames(const Statum::EntityManager& em);
bool hasVrf(const Statum::EntityManager& em, std::string_view vrf);

// The entities each address family has its own of.
template <class Fam>
struct FamilyEntities;
template <>
struct FamilyEntities<Routing::V4> {
  static constexpr const auto& routingConfig = layout::routingConfig;
  static constexpr const auto& routes = fibRoute;
  static constexpr const auto& fecs = fibFec;
  static constexpr const auto& kernelUnprogrammed = layout::kernelUnprogrammed;
  static constexpr const auto& ipStatus = layout::ipStatus;
  static constexpr const auto& hardware = routingHw;
};
template <>
struct FamilyEntities<Routing::V6> {
  static constexpr const auto& routingConfig = routing6Config;
  static constexpr const auto& routes = fib6Route;
  static constexpr const auto& fecs = fib6Fec;
  static constexpr const auto& kernelUnprogrammed = kernelUnprogrammed6;
  static constexpr const auto& ipStatus = ip6Status;
  static constexpr const auto& hardware = routing6Hw;
};

}  // namespace Snapshot::layout
