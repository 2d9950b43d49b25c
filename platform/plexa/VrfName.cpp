#include "platform/plexa/VrfName.h"

#include "platform/mox/Exception.h"

namespace L3 {

bool VrfName::validName(std::string_view name) {
  if (name.empty() || name.size() > kMaxBytes) return false;
  for (char c : name) {
    if (c <= ' ' || c >= 127 || c == '/') return false;
  }
  return true;
}

VrfName::VrfName(std::string_view name) : name_(name) {
  if (name.size() > kMaxBytes) throw Mox::RangeException(kRangeMessage);
}

}  // namespace L3
