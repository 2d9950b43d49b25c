#include "platform/state/NexthopGroupConfig.h"

namespace Routing::NexthopGroup {

namespace {
const char* const kNames[] = {"invalid", "ipInIp", "gre", "mpls", "ip", "mplsOverGre"};
}

const char* moxEnumName(NexthopGroupType t) {
  const auto i = static_cast<std::size_t>(t);
  return i < std::size(kNames) ? kNames[i] : "invalid";
}

bool moxEnumFromName(std::string_view name, NexthopGroupType& out) {
  for (std::size_t i = 0; i < std::size(kNames); ++i) {
    if (name == kNames[i]) {
      out = static_cast<NexthopGroupType>(i);
      return true;
    }
  }
  return false;
}

}  // namespace Routing::NexthopGroup
