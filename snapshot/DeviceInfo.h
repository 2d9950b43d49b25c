#pragma once
// What the snapshot says about the device itself, at layout::device (StateLayout.h).

#include "platform/mox/Attribute.h"
#include "platform/mox/Ptr.h"
#include "platform/mox/String8.h"

namespace Snapshot {

#define SNAPSHOT_DEVICE_INFO_ATTRS(F, C) \
  F(hostname, Hostname, Mox::String8, Mox::AttrKind::value, {})

class DeviceInfo : public Mox::Entity {
  MOX_ENTITY_TYPE(DeviceInfo, "Snapshot::DeviceInfo", SNAPSHOT_DEVICE_INFO_ATTRS)
};

}  // namespace Snapshot
