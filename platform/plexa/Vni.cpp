#include "platform/plexa/Vni.h"

#include <charconv>

#include "platform/mox/Exception.h"

namespace Vxlan {

VniOrNone::VniOrNone(std::uint32_t vni) : value_(vni) {
  if (vni > kMax) throw Mox::RangeException("VNI " + std::to_string(vni) + " out of range");
}

VniOrNone VniOrNone::fromString(std::string_view text) {
  if (text == "none") return VniOrNone();
  std::uint64_t v;
  auto r = std::from_chars(text.data(), text.data() + text.size(), v);
  if (text.empty() || r.ec != std::errc() || r.ptr != text.data() + text.size() || v > kMax) {
    throw Mox::RangeException("invalid VNI " + Mox::shownWord(text));
  }
  return VniOrNone(static_cast<std::uint32_t>(v));
}

}  // namespace Vxlan
