#pragma once
// rova --attach NAME: the tables the state agent NAME publishes, read in place. Every show and
// check command works on them unchanged; configuration lines, commits, `clear` and `write` are
// sent to the agent, which owns the state (AgentChanges.h). Once the agent ends, every command
// says so and ends with kStatusUnavailable.

#include <span>
#include <string>

#include "cli/Grammar.h"
#include "cli/Runner.h"

namespace cli {

// Attaches the device state to the agent's store and sets the gate. Returns kStatusOk, or
// kStatusUnavailable after refusing `command` with "% Cannot attach: ...".
int startAttachMode(const Grammar& grammar, const std::string& name,
                    std::span<const std::string> command, const Context& context);

// The gate of an attached state's commands: refuses every command once the agent has ended,
// and reads the state again when the agent published since it was read; -1 lets the command
// run.
int attachedGate(const Grammar& grammar, std::span<const std::string> words,
                 const Context& context);

// After a command of an attached state: a command that ended well while the agent died under
// it says so, and its status becomes kStatusUnavailable, since what it showed may be out of
// date. Any other status is kept.
int checkAttachedAfter(int status, const Context& context);

}  // namespace cli
