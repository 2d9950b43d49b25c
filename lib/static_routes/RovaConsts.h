#pragma once
// The configuration defaults a saved static route line is compared against: what equals them
// is left out of the line.

#include <cstdint>

#include "platform/mox/Attribute.h"
#include "platform/mox/String8.h"
#include "platform/state/RoutingConfig.h"

namespace Rova {

#define ROVA_ROVA_CONSTS_ATTRS(F, C)                                                       \
  F(defaultStaticRoutePreference, DefaultStaticRoutePreference, Routing::RoutePreference,  \
    Mox::AttrKind::value, {1})                                                             \
  F(defaultStaticRouteTag, DefaultStaticRouteTag, std::uint32_t, Mox::AttrKind::value, {}) \
  F(defaultStaticRouteName, DefaultStaticRouteName, Mox::String8, Mox::AttrKind::value, {})

class RovaConsts {
  MOX_VALUE_TYPE(RovaConsts, "Rova::RovaConsts", ROVA_ROVA_CONSTS_ATTRS)
};

}  // namespace Rova
