#pragma once
// How the configuration checks scope an interface to its VRF. An interface the configuration
// does not know yet is about to be created in VRF "default", so that is the VRF its new address
// is compared in. A known interface without a VRF link keeps the unset name and so is compared
// only with the other unlinked interfaces.

#include <string_view>

#include "platform/mox/String8.h"
#include "platform/plexa/IntfId.h"
#include "platform/plexa/VrfName.h"

namespace Rova {

// `intfMap` is one of the interface maps of the IP configuration (IntfId -> record handle).
template <class IntfMap>
L3::VrfName intfVrf(const IntfMap& intfMap, const Mox::String8& intfName) {
  const auto* record = intfMap.find(Plexa::IntfId(intfName.view()));
  return record && *record ? (*record)->vrf() : L3::VrfName::defaultVrf();
}

inline bool isManagementIntf(std::string_view intfName, const Mox::String8& mgmtPrefix) {
  return intfName.starts_with(mgmtPrefix.view());
}

}  // namespace Rova
