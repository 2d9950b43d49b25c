#pragma once
// IP interface configuration and status, IPv4 and IPv6, and the route distinguishers that
// agents publish per VRF.

#include "platform/mox/Attribute.h"
#include "platform/mox/Ptr.h"
#include "platform/mox/String8.h"
#include "platform/plexa/IntfId.h"
#include "platform/plexa/Prefix.h"
#include "platform/plexa/RouteDistinguisher.h"
#include "platform/plexa/VrfName.h"

namespace Ip {

using AddrWithMaskSet = Mox::OrderedSet<Plexa::IpAddrWithMask>;

// An interface's configured IPv4 addresses. `vrf` is the VRF the interface is linked to; an
// interface without a VRF link has the unset name.
#define IP_INTF_CONFIG_ATTRS(F, C)                                                             \
  F(intfId, IntfId, Plexa::IntfId, Mox::AttrKind::input, {})                                   \
  F(addrWithMask, AddrWithMask, Plexa::IpAddrWithMask, Mox::AttrKind::value, {})               \
  F(virtualAddrWithMask, VirtualAddrWithMask, Plexa::IpAddrWithMask, Mox::AttrKind::value, {}) \
  F(vrf, Vrf, L3::VrfName, Mox::AttrKind::value, {})                                           \
  C(secondaryWithMask, SecondaryWithMask, AddrWithMaskSet)                                     \
  C(virtualSecondaryWithMask, VirtualSecondaryWithMask, AddrWithMaskSet)

class IpIntfConfig : public Mox::Entity {
  MOX_ENTITY_TYPE(IpIntfConfig, "Ip::IpIntfConfig", IP_INTF_CONFIG_ATTRS)

 public:
  explicit IpIntfConfig(Plexa::IntfId id = {}) : intfId_(id) {}
};

using IpIntfConfigMap = Mox::OrderedMap<Plexa::IntfId, Mox::Ptr<IpIntfConfig>>;
#define IP_CONFIG_ATTRS(F, C) C(intfConfig, IntfConfig, IpIntfConfigMap)

class Config : public Mox::Entity {
  MOX_ENTITY_TYPE(Config, "Ip::Config", IP_CONFIG_ATTRS)
};

// The addresses an interface really has (what the route listing maps receive routes to).
#define IP_INTF_STATUS_ATTRS(F, C)                                                           \
  F(intfId, IntfId, Plexa::IntfId, Mox::AttrKind::input, {})                                 \
  F(activeAddrWithMask, ActiveAddrWithMask, Plexa::IpAddrWithMask, Mox::AttrKind::value, {}) \
  C(activeSecondaryWithMask, ActiveSecondaryWithMask, AddrWithMaskSet)

class IpIntfStatus : public Mox::Entity {
  MOX_ENTITY_TYPE(IpIntfStatus, "Ip::IpIntfStatus", IP_INTF_STATUS_ATTRS)

 public:
  explicit IpIntfStatus(Plexa::IntfId id = {}) : intfId_(id) {}
};

using IpIntfStatusMap = Mox::OrderedMap<Plexa::IntfId, Mox::Ptr<IpIntfStatus>>;
#define IP_STATUS_ATTRS(F, C) C(ipIntfStatus, IpIntfStatus, IpIntfStatusMap)

class Status : public Mox::Entity {
  MOX_ENTITY_TYPE(Status, "Ip::Status", IP_STATUS_ATTRS)
};

// The route distinguishers one agent holds, by VRF name.
using RdMap = Mox::HashMap<Mox::String8, Plexa::RouteDistinguisher>;
#define IP_RD_INPUT_ATTRS(F, C) C(routeDistinguisher, RouteDistinguisher, RdMap)

class RouteDistinguisherInput : public Mox::Entity {
  MOX_ENTITY_TYPE(RouteDistinguisherInput, "Ip::RouteDistinguisherInput", IP_RD_INPUT_ATTRS)
};

}  // namespace Ip

namespace Ip6 {

#define IP6_ADDRESS_INFO_ATTRS(F, C) F(addr, Addr, Plexa::Ip6AddrWithMask, Mox::AttrKind::value, {})

class AddressInfo {
  MOX_VALUE_TYPE(AddressInfo, "Ip6::AddressInfo", IP6_ADDRESS_INFO_ATTRS)
};

using AddressMap = Mox::OrderedMap<Plexa::Ip6AddrWithMask, AddressInfo>;
#define IP6_INTF_CONFIG_ATTRS(F, C)                          \
  F(intfId, IntfId, Plexa::IntfId, Mox::AttrKind::input, {}) \
  F(vrf, Vrf, L3::VrfName, Mox::AttrKind::value, {})         \
  C(addr, Addr, AddressMap)

class IntfConfig : public Mox::Entity {
  MOX_ENTITY_TYPE(IntfConfig, "Ip6::IntfConfig", IP6_INTF_CONFIG_ATTRS)

 public:
  explicit IntfConfig(Plexa::IntfId id = {}) : intfId_(id) {}
};

using IntfConfigMap = Mox::OrderedMap<Plexa::IntfId, Mox::Ptr<IntfConfig>>;
#define IP6_CONFIG_ATTRS(F, C) C(intf, Intf, IntfConfigMap)

class Config : public Mox::Entity {
  MOX_ENTITY_TYPE(Config, "Ip6::Config", IP6_CONFIG_ATTRS)
};

using AddrWithMaskSet = Mox::OrderedSet<Plexa::Ip6AddrWithMask>;
#define IP6_INTF_STATUS_ATTRS(F, C)                          \
  F(intfId, IntfId, Plexa::IntfId, Mox::AttrKind::input, {}) \
  C(addr, Addr, AddrWithMaskSet)

class IntfStatus : public Mox::Entity {
  MOX_ENTITY_TYPE(IntfStatus, "Ip6::IntfStatus", IP6_INTF_STATUS_ATTRS)

 public:
  explicit IntfStatus(Plexa::IntfId id = {}) : intfId_(id) {}
};

using IntfStatusMap = Mox::OrderedMap<Plexa::IntfId, Mox::Ptr<IntfStatus>>;
#define IP6_STATUS_ATTRS(F, C) C(intf, Intf, IntfStatusMap)

class Status : public Mox::Entity {
  MOX_ENTITY_TYPE(Status, "Ip6::Status", IP6_STATUS_ATTRS)
};

}  // namespace Ip6
