#include "platform/brine/TunnelId.h"

#include "platform/mox/Exception.h"

namespace Tunnel::TunnelTable {

TunnelId::TunnelId(std::uint64_t value) : value_(value) {
  if (value > maxValue) throw Mox::RangeException(kRangeMessage);
}

}  // namespace Tunnel::TunnelTable
