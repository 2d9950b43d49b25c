#pragma once
// Configuration sessions. `configure session [NAME]` opens (or takes up again) a candidate:
// the configuration lines typed in it are recorded, not applied. `show session diff` shows
// what the candidate would change, as a unified diff of the running configuration; `commit`
// applies the whole candidate or, when a line is refused, nothing, naming the line; `abort`
// drops it. A candidate is judged whole: its lines are applied in order to a copy of the state,
// so a route may go through an address the same session assigns.

#include <string>
#include <vector>

#include "cli/Grammar.h"
#include "cli/Runner.h"

namespace cli {

// What a configuration line does, which decides how a session treats it: an edit is recorded;
// a line that enters a sub-mode is recorded and moves there; a line that leaves a mode only
// moves.
enum class LineKind { edit, enter, leave };

// A line of a session's candidate, with the line that entered the sub-mode it was typed in
// (empty: typed in configuration mode itself).
struct SessionLine {
  std::string context;
  std::string line;
};

// Whether lines go to a session's candidate rather than to the state.
bool inSession();
// Whether a session's candidate is being judged: its lines apply to a copy of the state.
bool judgingSession();
// Whether a line that changes the state changes this process's own: not recorded by a
// session, nor sent to the agent of an attached state (AgentChanges.h).
bool changesHere();
// Applies `lines` in order from configuration mode, whole or not at all: they are judged on a
// copy of the state first. A refusal names the session `name` and the line; returns the status.
int commitLines(const std::string& name, const std::vector<SessionLine>& lines, const Context& c);
const std::string& sessionName();
// Opens the named session (a new name when empty), or takes it up again; returns -1, or the
// status of a refusal it has reported.
int enterSession(const std::string& name, const Context& c);
// Plain `configure`: lines apply at once again; a session left this way stays pending.
void leaveSession();
// Drops every session, pending or current.
void dropSessions();
// Records a matched line in the current session, under the sub-mode it was typed in (an
// `enter` line opens its own).
void sessionRecord(const Match& m, bool enter);
// The matched line as words again, full keywords, quoted where a word holds a blank.
std::string lineOf(const Match& m);

// The session's own lines: commit, abort, show session diff.
void addSessionRows(Grammar& g);

// A unified diff of two texts, line by line ("--- from", "+++ to", "@@" hunks with three lines
// of context); empty when they are equal.
std::string unifiedDiff(const std::string& from, const std::string& to, const std::string& fromName,
                        const std::string& toName);

}  // namespace cli
