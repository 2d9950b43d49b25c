#pragma once
// Configuration applied by a live agent (rova-agent --live): a line of configuration mode,
// read by the same grammar and the same editors as in rova's own configuration mode, changes
// the static configuration in the agent's state; the kernel is then programmed to match
// (KernelStatics) and the static configuration file written again.
//
// A live agent takes the static route lines only (`ip route ...`, `ipv6 route ...`, their
// `no` forms, with or without `vrf NAME`): everything else in a live state is the kernel's.

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "agent/KernelStatics.h"
#include "platform/statum/EntityManager.h"

namespace Agent {

// The refusal of every line but the static route lines.
inline constexpr const char* kStaticLinesOnly =
    "% A live agent takes static route lines only (ip route, ipv6 route and their no forms): "
    "the rest of a live state is the kernel's";

// ok: the line was taken (the configuration changed, or already said so). message: what the
// user should see; a refusal when !ok ("% ..." as configuration mode says it), and when ok
// a warning for each route the kernel refused or cannot hold (it stays configured), or
// empty.
struct LiveChangeResult {
  bool ok;
  std::string message;
};

// Configuration mode's reading of static route lines. The front end's grammar and editors sit
// above this layer: the front end provides them (cli/AgentStaticLines.cpp), and a program that
// applies live changes links it (rova-agent does).
struct StaticRouteLines {
  // Applies one line to the static configuration in `state`: {true, ""}, or the refusal as
  // configuration mode words it ("% ..."), having changed nothing. Only static route lines are
  // taken.
  LiveChangeResult (*apply)(Statum::EntityManager& state, std::string_view line);
  // The lines of one VRF's routing configuration of one family, as `show running-config
  // static-routes` prints them for it (with `state`'s static route defaults).
  std::string (*lines)(Statum::EntityManager& state, const Routing::ConfigGen& config,
                       const std::string& vrf, bool v6);
};
const StaticRouteLines& staticRouteLines();

// Applies one configuration line to `state` (the entity manager the agent's follower writes)
// and programs the kernel; the caller publishes the state afterwards. A refused line changes
// nothing, and neither does one whose configuration file cannot be written.
LiveChangeResult applyLiveChange(KernelStatics& statics, Statum::EntityManager& state,
                                 std::string_view line);

// At the agent's start: every line of the static configuration file is applied and programmed.
// A line the state cannot take now (its VRF has no device yet) is held, written back with the
// file and tried again when links change. Returns what to log. Throws std::runtime_error when
// the file cannot be read.
std::vector<std::string> loadStaticConfig(KernelStatics& statics, Statum::EntityManager& state);

// After the kernel was read again (links or addresses changed): held lines and the routes the
// kernel does not hold are tried again. Returns what to log.
std::vector<std::string> retryStaticConfig(KernelStatics& statics, Statum::EntityManager& state);

// ---- lines sent by attached rova programs ----

// One configuration line of a request from an attached rova.
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
  KernelStatics& statics;
  // The agent's name (`--name`).
  std::string name;
};

struct LiveBatchResult {
  // 0: every line was applied. Otherwise the exit status of the refused line: 1.
  int status = 0;
  // The index in the request of the line refused; past the end when the request as a whole
  // failed (its file could not be written).
  std::size_t refused = 0;
  // Its refusal as the user reads it: one line beginning "% ", without a newline.
  std::string message;
  // When applied: what the kernel refused or cannot hold of the routes (they stay configured),
  // one "% ..." line each; empty when all went in.
  std::string warning;
};

// Applies the lines of one request: all of them, or, when one is refused, none (a session's
// commit is one request; a line typed alone is a request of one line). The configuration is
// changed line by line, then written to the file and programmed into the kernel once. A line of
// a sub-mode is refused: interfaces, addresses and VRFs of a live state are the kernel's own,
// changed with ip(8).
LiveBatchResult applyLiveChanges(LiveAgent& agent, std::span<const LiveChange> changes);

}  // namespace Agent
