#include "lib/nexthop_group/NexthopGroupCliCounterInterface.h"

#include "platform/mox/Exception.h"

namespace Rova {

const CounterEntry NexthopGroupCliCounterInterface::getCounters(CounterIndex) {
  MOX_ASSERT(0 && "Need to implement getCounters in a derived class");
  return {};
}

}  // namespace Rova
