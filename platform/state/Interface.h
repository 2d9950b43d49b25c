#pragma once
// Interface configuration and status.

#include "platform/mox/Attribute.h"
#include "platform/mox/Ptr.h"
#include "platform/mox/String8.h"
#include "platform/plexa/IntfId.h"
#include "platform/plexa/VrfName.h"

namespace Interface {

#define INTERFACE_INTF_CONFIG_ATTRS(F, C)                                               \
  F(intfId, IntfId, Plexa::IntfId, Mox::AttrKind::input, {})                            \
  F(description, Description, Mox::String8, Mox::AttrKind::value, {})                   \
  /* The VRF the interface is in; the unset name when it has none (the default VRF). */ \
  F(vrf, Vrf, L3::VrfName, Mox::AttrKind::value, {})                                    \
  F(enabled, Enabled, bool, Mox::AttrKind::value, {true})

class IntfConfig : public Mox::Entity {
  MOX_ENTITY_TYPE(IntfConfig, "Interface::IntfConfig", INTERFACE_INTF_CONFIG_ATTRS)

 public:
  explicit IntfConfig(Plexa::IntfId id = {}) : intfId_(id) {}
};

using IntfConfigMap = Mox::OrderedMap<Plexa::IntfId, Mox::Ptr<IntfConfig>>;
#define INTERFACE_ALL_INTF_CONFIG_ATTRS(F, C) C(intfConfig, IntfConfig, IntfConfigMap)

class AllIntfConfigDir : public Mox::Entity {
  MOX_ENTITY_TYPE(AllIntfConfigDir, "Interface::AllIntfConfigDir", INTERFACE_ALL_INTF_CONFIG_ATTRS)
};

#define INTERFACE_INTF_STATUS_ATTRS(F, C)                    \
  F(intfId, IntfId, Plexa::IntfId, Mox::AttrKind::input, {}) \
  F(operUp, OperUp, bool, Mox::AttrKind::value, {true})

class IntfStatus : public Mox::Entity {
  MOX_ENTITY_TYPE(IntfStatus, "Interface::IntfStatus", INTERFACE_INTF_STATUS_ATTRS)

 public:
  explicit IntfStatus(Plexa::IntfId id = {}) : intfId_(id) {}
};

using IntfStatusMap = Mox::OrderedMap<Plexa::IntfId, Mox::Ptr<IntfStatus>>;
#define INTERFACE_ALL_INTF_STATUS_ATTRS(F, C) C(intfStatus, IntfStatus, IntfStatusMap)

class AllIntfStatusDir : public Mox::Entity {
  MOX_ENTITY_TYPE(AllIntfStatusDir, "Interface::AllIntfStatusDir", INTERFACE_ALL_INTF_STATUS_ATTRS)
};

}  // namespace Interface
