#pragma once
// The question a nexthop-group listing asks of a counter source: what has the counter at this
// index counted since it was last cleared? A platform with its own counter source derives from
// this class and answers it; NexthopGroupCounterHelper answers it from the flex counter tables.

#include "lib/nexthop_group/CounterEntry.h"
#include "platform/mox/Attribute.h"
#include "platform/mox/Ptr.h"

namespace Rova {

#define ROVA_NEXTHOP_GROUP_CLI_COUNTER_INTERFACE_ATTRS(F, C)

// No attributes: its text form is that of any registered type with none.
class NexthopGroupCliCounterInterface : public Mox::Entity {
  MOX_ENTITY_TYPE(NexthopGroupCliCounterInterface, "Rova::NexthopGroupCliCounterInterface",
                  ROVA_NEXTHOP_GROUP_CLI_COUNTER_INTERFACE_ATTRS)

 public:
  // Not pure, so that the front end can build the base by name; but a base without a derived
  // answer has no counters to give, and asking it is a programming error that stops the
  // command.
  virtual const CounterEntry getCounters(CounterIndex index);
};

}  // namespace Rova
