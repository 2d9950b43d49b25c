#include "agent/LiveChanges.h"

#include "platform/mox/Exception.h"

namespace Agent {

// A live agent shows the kernel's state; until it programs configuration into the kernel it
// refuses every line, and refusing the first changes nothing.
LiveChangeResult applyLiveChanges(LiveAgent& agent, std::span<const LiveChange> changes) {
  LiveChangeResult result;
  if (changes.empty()) return result;
  result.status = 1;
  result.refused = 0;
  result.message = "% Configuration is refused by the state agent " + Mox::shownWord(agent.name) +
                   ": it follows the kernel and does not program it";
  return result;
}

}  // namespace Agent
