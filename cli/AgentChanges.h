#pragma once
// Changes typed in an attached rova go to the state agent, which owns the state: a
// configuration line, a session's commit, `clear` and `write` are sent over the agent's change
// socket (agent/Channel.h) and applied there by the same editors a loaded state uses; the
// reply is printed as if the line had run here, and the attached state is read again so that
// the next command sees the change.
//
// The agent's side is here too: serveChange applies a request to the state of the agent's own
// process (DeviceState), as the one-shot and shell paths would.

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "agent/Channel.h"
#include "agent/LiveChanges.h"
#include "cli/ConfigSession.h"
#include "cli/Grammar.h"
#include "cli/Output.h"
#include "cli/Runner.h"

namespace cli {

// Whether a change made now goes to the agent: the state is attached and no session's
// candidate is being judged on a copy of it.
bool changesGoToAgent();

// Sends the matched configuration line, typed in the sub-mode entered by `mode` (empty:
// configuration mode); prints the agent's messages and returns its status.
int sendLine(const Match& m, const std::string& mode, const Context& c);
// Sends a session's candidate to be committed whole.
int sendCommit(const std::string& session, const std::vector<SessionLine>& lines, const Context& c);
// The action of a command of the table that changes the state (clear, write): run here, or
// sent to the agent when changesGoToAgent().
OutputAction changeGoesToAgent(OutputAction local);

// ---- the agent's side ----

struct ServeOptions {
  std::string agentName;
  // The sender may change the state; a request from anyone else is refused.
  bool allowed = false;
  // Who sent it, for the refusal.
  std::string user;
  // Set on a live agent: configuration lines and commits go here; commands are refused.
  std::function<Agent::LiveBatchResult(std::span<const Agent::LiveChange>)> live;
};

// Applies one request to the device state of this process. `exec` is the command table.
Agent::Reply serveChange(const Grammar& exec, const Agent::Request& request,
                         const ServeOptions& options);

}  // namespace cli
