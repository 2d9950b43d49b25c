#pragma once
// Routing configuration: whether routing is on, and the static routes with their defaults.

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

// The one rule for what a static via may be, for every way one enters a state (a snapshot, a
// configuration line), so that whatever is accepted is saved and loads again.
//
// A zero address ("0.0.0.0", "::") is no address, as everywhere in the state: it is dropped
// before the via is judged or kept, so that a via "through Ethernet1 to 0.0.0.0" is the via
// through Ethernet1.
void dropZeroAddresses(Via& via);

// What a via was given, once its zero addresses are dropped: the label, VNI and router MAC
// count when they were given at all (a state may hold VNI 0).
struct ViaParts {
  bool hop = false;
  bool interface = false;
  bool label = false;
  bool vtep = false;
  bool vni = false;
  bool routerMac = false;
};
// Why a via of these parts cannot be held ("a label goes with a nexthop"); nullptr when it
// can.
const char* staticViaProblem(const ViaParts& parts);

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
