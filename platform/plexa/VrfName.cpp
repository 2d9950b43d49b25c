#include "platform/plexa/VrfName.h"

#include "platform/mox/Exception.h"

namespace L3 {

VrfName::VrfName(std::string_view name) : name_(name) {
  if (name.size() > kMaxBytes) throw Mox::RangeException(kRangeMessage);
}

}  // namespace L3
