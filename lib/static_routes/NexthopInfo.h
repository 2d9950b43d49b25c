#pragma once
// The saved text of one static route: either one whole line tail (drop and nexthop-group
// routes) or one line tail per via, kept in via order.

#include "platform/mox/Attribute.h"
#include "platform/mox/Collection.h"
#include "platform/mox/String8.h"
#include "platform/state/RoutingConfig.h"

namespace Rova {

using SortedViaMap = Mox::OrderedMap<Routing::Via, Mox::String8>;

#define ROVA_NEXTHOP_INFO_ATTRS(F, C)                               \
  F(nexthopCmd, NexthopCmd, Mox::String8, Mox::AttrKind::value, {}) \
  C(sortedVia, SortedVia, SortedViaMap)

class NexthopInfo {
  MOX_VALUE_TYPE(NexthopInfo, "Rova::NexthopInfo", ROVA_NEXTHOP_INFO_ATTRS)
};

}  // namespace Rova
