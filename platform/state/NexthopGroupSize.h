#pragma once
// How many hardware entries a nexthop group takes: the size the nexthop-group summary counts
// groups by.

#include <cstdint>

#include "platform/state/NexthopGroupConfig.h"

namespace Routing::NexthopGroup {

// A group configured with a size takes that many entries; one left at size 0 is sized for what
// it holds, up to its highest entry index (entries may leave gaps, and a gap still takes its
// slot). Hardware cannot program a group larger than `limit` (the routing hardware's
// nexthopGroupMaxSize), so a larger size counts as `limit`; a limit of 0 sets no bound.
std::uint32_t getNhgSize(const NexthopGroupConfigEntry& group, std::uint32_t limit);

}  // namespace Routing::NexthopGroup
