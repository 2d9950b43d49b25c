#pragma once
// The name of a VRF: at most 100 bytes. The unset name (built from no text) is a name of its
// own, different from "default": an interface with no VRF link has the unset name.

#include <compare>
#include <functional>
#include <string>
#include <string_view>

#include "platform/mox/String8.h"

namespace L3 {

class VrfName {
 public:
  static constexpr std::size_t kMaxBytes = 100;
  static constexpr const char* kRangeMessage = "VrfName::bytes > 100 not allowed";
  static constexpr const char* kDefault = "default";

  VrfName() = default;
  // More than 100 bytes raises Mox::RangeException("VrfName::bytes > 100 not allowed").
  explicit VrfName(std::string_view name);
  static VrfName fromString(std::string_view name) { return VrfName(name); }
  static VrfName defaultVrf() { return VrfName(kDefault); }

  // The names a state may hold, whoever gives them: printable ASCII without blanks, at most
  // 100 bytes, and no slash, since the name becomes a step of the state's paths
  // ("vrf/<name>/..."). kNameRule says so in a message.
  static constexpr const char* kNameRule = "printable, no blanks or slashes";
  static bool validName(std::string_view name);

  bool isDefault() const { return name_ == kDefault; }
  bool empty() const { return name_.empty(); }
  const std::string& stringValue() const { return name_.stringValue(); }
  Mox::String8 string8() const { return name_; }

  friend bool operator==(const VrfName&, const VrfName&) = default;
  friend auto operator<=>(const VrfName&, const VrfName&) = default;

 private:
  Mox::String8 name_;
};

}  // namespace L3

template <>
struct std::hash<L3::VrfName> {
  std::size_t operator()(const L3::VrfName& v) const noexcept {
    return std::hash<std::string>()(v.stringValue());
  }
};
