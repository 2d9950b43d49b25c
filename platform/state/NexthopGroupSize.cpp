#include "platform/state/NexthopGroupSize.h"

#include <algorithm>

namespace Routing::NexthopGroup {

std::uint32_t getNhgSize(const NexthopGroupConfigEntry& group, std::uint32_t limit) {
  std::uint32_t size = group.size();
  if (size == 0 && !group.entry().empty()) {
    // The entry map is ordered by index: its last key is the highest.
    size = std::uint32_t(std::prev(group.entry().end())->first) + 1;
  }
  return limit == 0 ? size : std::min(size, limit);
}

}  // namespace Routing::NexthopGroup
