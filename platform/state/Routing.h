#pragma once
// Routing configuration (static routes and whether routing is on) and routing hardware status.

#include <cstdint>

#include "platform/brine/RouteType.h"
#include "platform/mox/Attribute.h"
#include "platform/mox/Ptr.h"
#include "platform/mox/String8.h"
#include "platform/plexa/EthAddr.h"
#include "platform/plexa/IntfId.h"
#include "platform/plexa/Mpls.h"
#include "platform/plexa/Prefix.h"
#include "platform/plexa/Vni.h"
#include "platform/plexa/VrfName.h"

namespace Routing {

using RoutePreference = std::uint8_t;

#define ROUTING_ROUTE_KEY_ATTRS(F, C)                             \
  F(prefix, Prefix, Plexa::IpGenPrefix, Mox::AttrKind::value, {}) \
  F(preference, Preference, Routing::RoutePreference, Mox::AttrKind::value, {1})

// A static route is known by its prefix and preference: one prefix may have routes of several
// preferences (a floating static route).
class RouteKey {
  MOX_KEY_TYPE(RouteKey, "Routing::RouteKey", ROUTING_ROUTE_KEY_ATTRS)

 public:
  RouteKey() = default;
  RouteKey(const Plexa::IpGenPrefix& p, RoutePreference pref) : prefix_(p), preference_(pref) {}
};

// One next hop of a static route: a gateway address, an interface, or both; optionally an MPLS
// label, or a VXLAN tunnel end point with its VNI and router MAC.
#define ROUTING_VIA_ATTRS(F, C)                                       \
  F(hop, Hop, Plexa::IpGenAddr, Mox::AttrKind::value, {})             \
  F(intfId, IntfId, Plexa::IntfId, Mox::AttrKind::value, {})          \
  F(mplsLabel, MplsLabel, Plexa::MplsLabel, Mox::AttrKind::value, {}) \
  F(vtepAddr, VtepAddr, Plexa::IpGenAddr, Mox::AttrKind::value, {})   \
  F(vni, Vni, Vxlan::VniOrNone, Mox::AttrKind::value, {})             \
  F(routerMac, RouterMac, Plexa::EthAddr, Mox::AttrKind::value, {})

class Via {
  MOX_KEY_TYPE(Via, "Routing::Via", ROUTING_VIA_ATTRS)
};

}  // namespace Routing

MOX_STD_HASH(Routing::RouteKey)
MOX_STD_HASH(Routing::Via)

namespace Routing {

using ViaSet = Mox::OrderedSet<Via>;
using ViaFlagMap = Mox::OrderedMap<Via, bool>;
using ViaNameMap = Mox::OrderedMap<Via, Mox::String8>;

#define ROUTING_ROUTE_ATTRS(F, C)                                               \
  F(key, Key, Routing::RouteKey, Mox::AttrKind::input, {})                      \
  F(routeType, RouteType, Routing::RouteType, Mox::AttrKind::value, {})         \
  F(tag, Tag, std::uint32_t, Mox::AttrKind::value, {})                          \
  F(dynamic, Dynamic, bool, Mox::AttrKind::value, {})                           \
  F(persistent, Persistent, bool, Mox::AttrKind::value, {true})                 \
  F(dropNextHopName, DropNextHopName, Mox::String8, Mox::AttrKind::value, {})   \
  F(nexthopGroupName, NexthopGroupName, Mox::String8, Mox::AttrKind::value, {}) \
  C(via, Via, ViaSet)                                                           \
  C(viaTrackBfd, ViaTrackBfd, ViaFlagMap)                                       \
  C(viaNextHopName, ViaNextHopName, ViaNameMap)

class Route : public Mox::Entity {
  MOX_ENTITY_TYPE(Route, "Routing::Route", ROUTING_ROUTE_ATTRS)

 public:
  explicit Route(const RouteKey& key = {}) : key_(key) {}
  const Plexa::IpGenPrefix& prefix() const { return key_.prefix(); }
  RoutePreference preference() const { return key_.preference(); }
};

using RouteMap = Mox::HashMap<RouteKey, Mox::Ptr<Route>>;

// The routing configuration of one VRF and address family.
#define ROUTING_CONFIG_GEN_ATTRS(F, C)                                  \
  F(routingEnabled, RoutingEnabled, bool, Mox::AttrKind::value, {true}) \
  C(route, Route, RouteMap)

class ConfigGen : public Mox::Entity {
  MOX_ENTITY_TYPE(ConfigGen, "Routing::ConfigGen", ROUTING_CONFIG_GEN_ATTRS)
};

// A route input is a source of static routes for the routing information base. Each VRF and
// family has one, its routing configuration, which holds the configured routes and those
// installed by agents alike; each route's `dynamic` flag tells them apart.
using RouteInput = ConfigGen;

// The defaults of static route configuration: a saved route line leaves out what equals them.
#define ROUTING_STATIC_ROUTE_DEFAULTS_ATTRS(F, C)                                \
  F(preference, Preference, Routing::RoutePreference, Mox::AttrKind::value, {1}) \
  F(tag, Tag, std::uint32_t, Mox::AttrKind::value, {})                           \
  F(name, Name, Mox::String8, Mox::AttrKind::value, {})

class StaticRouteDefaults : public Mox::Entity {
  MOX_ENTITY_TYPE(StaticRouteDefaults, "Routing::StaticRouteDefaults",
                  ROUTING_STATIC_ROUTE_DEFAULTS_ATTRS)
};

}  // namespace Routing

namespace Routing::Hardware {

// What the forwarding hardware can do.
#define ROUTING_HW_STATUS_ATTRS(F, C)                                              \
  /* The largest total weight of the vias of one FEC that the hardware accepts. */ \
  F(fecWeightLimit, FecWeightLimit, std::uint32_t, Mox::AttrKind::value, {512})    \
  F(maxEcmp, MaxEcmp, std::uint32_t, Mox::AttrKind::value, {128})                  \
  F(nexthopGroupMaxSize, NexthopGroupMaxSize, std::uint32_t, Mox::AttrKind::value, {128})

class Status : public Mox::Entity {
  MOX_ENTITY_TYPE(Status, "Routing::Hardware::Status", ROUTING_HW_STATUS_ATTRS)
};

// The programming state of one VRF's routes in hardware.
#define ROUTING_HW_VRF_STATUS_ATTRS(F, C)                                                    \
  F(vrfName, VrfName, L3::VrfName, Mox::AttrKind::input, {})                                 \
  F(unprogrammedRouteCount, UnprogrammedRouteCount, std::uint32_t, Mox::AttrKind::value, {}) \
  F(unprogrammedRoute6Count, UnprogrammedRoute6Count, std::uint32_t, Mox::AttrKind::value, {})

class VrfStatus : public Mox::Entity {
  MOX_ENTITY_TYPE(VrfStatus, "Routing::Hardware::VrfStatus", ROUTING_HW_VRF_STATUS_ATTRS)
};

// The nexthop groups programmed in hardware for one VRF, by nexthop group id.
using NexthopGroupIdSet = Mox::OrderedSet<std::uint64_t>;
#define ROUTING_HW_VRF_NHG_STATUS_ATTRS(F, C)                \
  F(vrfName, VrfName, L3::VrfName, Mox::AttrKind::input, {}) \
  C(nexthopGroup, NexthopGroup, NexthopGroupIdSet)

class VrfNexthopGroupStatus : public Mox::Entity {
  MOX_ENTITY_TYPE(VrfNexthopGroupStatus, "Routing::Hardware::VrfNexthopGroupStatus",
                  ROUTING_HW_VRF_NHG_STATUS_ATTRS)
};

using VrfNexthopGroupStatusMap = Mox::OrderedMap<L3::VrfName, Mox::Ptr<VrfNexthopGroupStatus>>;
#define ROUTING_HW_NHG_STATUS_ATTRS(F, C) C(vrf, Vrf, VrfNexthopGroupStatusMap)

class NexthopGroupStatus : public Mox::Entity {
  MOX_ENTITY_TYPE(NexthopGroupStatus, "Routing::Hardware::NexthopGroupStatus",
                  ROUTING_HW_NHG_STATUS_ATTRS)
};

}  // namespace Routing::Hardware

namespace Routing6::Hardware {

#define ROUTING6_HW_STATUS_ATTRS(F, C)                                          \
  F(fecWeightLimit, FecWeightLimit, std::uint32_t, Mox::AttrKind::value, {512}) \
  F(maxEcmp, MaxEcmp, std::uint32_t, Mox::AttrKind::value, {128})

class Status : public Mox::Entity {
  MOX_ENTITY_TYPE(Status, "Routing6::Hardware::Status", ROUTING6_HW_STATUS_ATTRS)
};

}  // namespace Routing6::Hardware

namespace Routing::NexthopGroup {

enum class NexthopGroupType : std::uint8_t {
  invalid = 0,
  ipInIp = 1,
  gre = 2,
  mpls = 3,
  ip = 4,
  mplsOverGre = 5,
};
const char* moxEnumName(NexthopGroupType t);
bool moxEnumFromName(std::string_view name, NexthopGroupType& out);

// One entry (destination) of a nexthop group.
#define ROUTING_NHG_ENTRY_ATTRS(F, C)                                     \
  F(destination, Destination, Plexa::IpGenAddr, Mox::AttrKind::value, {}) \
  F(mplsLabels, MplsLabels, Plexa::MplsLabelOperation, Mox::AttrKind::value, {})

class NexthopGroupEntry {
  MOX_VALUE_TYPE(NexthopGroupEntry, "Routing::NexthopGroup::NexthopGroupEntry",
                 ROUTING_NHG_ENTRY_ATTRS)
};

using EntryMap = Mox::OrderedMap<std::uint16_t, NexthopGroupEntry>;
#define ROUTING_NHG_CONFIG_ENTRY_ATTRS(F, C)                                       \
  F(name, Name, Mox::String8, Mox::AttrKind::input, {})                            \
  F(type, Type, Routing::NexthopGroup::NexthopGroupType, Mox::AttrKind::value, {}) \
  /* The number of entries the group is sized for; 0 means as many as it holds. */ \
  F(size, Size, std::uint32_t, Mox::AttrKind::value, {})                           \
  F(ttl, Ttl, std::uint8_t, Mox::AttrKind::value, {64})                            \
  F(source, Source, Plexa::IpGenAddr, Mox::AttrKind::value, {})                    \
  C(entry, Entry, EntryMap)

class NexthopGroupConfigEntry : public Mox::Entity {
  MOX_ENTITY_TYPE(NexthopGroupConfigEntry, "Routing::NexthopGroup::NexthopGroupConfigEntry",
                  ROUTING_NHG_CONFIG_ENTRY_ATTRS)
};

using ConfigEntryMap = Mox::OrderedMap<Mox::String8, Mox::Ptr<NexthopGroupConfigEntry>>;
#define ROUTING_NHG_CONFIG_ATTRS(F, C) C(nexthopGroup, NexthopGroup, ConfigEntryMap)

class Config : public Mox::Entity {
  MOX_ENTITY_TYPE(Config, "Routing::NexthopGroup::Config", ROUTING_NHG_CONFIG_ATTRS)
};

}  // namespace Routing::NexthopGroup
