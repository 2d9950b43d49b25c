#pragma once
// Configuration typed in a `rova --attach` of a live agent (rova-agent --live): every line an
// attached rova sends goes through applyLiveChanges, whose answer the user reads as if the line
// had been applied locally.

#include <cstddef>
#include <span>
#include <string>

namespace Statum {
class EntityManager;
}

namespace Agent {

// One configuration line of a request.
struct LiveChange {
  // The line that entered the sub-mode the line was typed in ("interface Ethernet1",
  // "vrf instance red"); empty for a line of configuration mode itself.
  std::string mode;
  // The line as the client's grammar matched it: keywords in full, a word holding a blank in
  // double quotes ("ip route 10.1.0.0/16 Ethernet1 10.0.0.2 name \"to core\"").
  std::string line;
};

// What a change may touch in the live agent.
struct LiveAgent {
  // The state the agent publishes; the agent publishes it again after an applied request.
  Statum::EntityManager& em;
  // The agent's name (`--name`), for what it keeps of its own.
  std::string name;
};

struct LiveChangeResult {
  // 0: every line was applied. Otherwise the exit status of the refused line: 1 (a refused
  // change), 2 (words the grammar does not take).
  int status = 0;
  // The index in the request of the line refused.
  std::size_t refused = 0;
  // Its refusal as the user reads it: one line beginning "% ", without a newline.
  std::string message;
};

// Applies the lines of one request in order: all of them, or, when one is refused, none (a
// session's commit is one request; a line typed alone is a request of one line). Every line is
// a configuration line of the rova grammar, already matched by the agent in the mode `mode`
// enters. A live agent takes static routes (`ip route ...`, `ipv6 route ...`, their `no`
// forms), which it programs into the kernel; any other line is refused, since interfaces,
// addresses and VRFs of a live state are the kernel's own, changed with ip(8).
LiveChangeResult applyLiveChanges(LiveAgent& agent, std::span<const LiveChange> changes);

}  // namespace Agent
