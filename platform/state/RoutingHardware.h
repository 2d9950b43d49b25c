#pragma once
// What the forwarding hardware can do and what it holds: per VRF, and its nexthop groups.

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
