#pragma once
// The rova program's command table and its state hook. This is the one place that knows which
// commands exist; everything else in cli/ is the engine that runs them.

#include <span>
#include <string>

#include "cli/Grammar.h"
#include "cli/Runner.h"
#include "snapshot/Snapshot.h"

namespace cli {

// Registers the argument types, the shared keyword help and every row.
void addCommands(Grammar& grammar);

// After a one-shot command: a command that changed the state has the state written back to
// the file it came from (--state FILE). Returns the status to leave with: `status`, or 1 when
// writing failed (reported on context.err).
int finishOneShot(int status, const Context& context);

// After the shell: changes made since the state was loaded or last written to its own file
// are lost with the process, and a note on context.err says so (the shell saves only on
// `write`). Returns `status`.
int finishShell(int status, const Context& context);

// Loads the device state named by --state (empty: the built-in default; "-": standard input)
// before the first command runs. Returns kStatusOk, or the status to leave with after refusing
// `command` (refuseLine) with the reason.
int loadState(const std::string& path, std::span<const std::string> command, const Context& context,
              Snapshot::Sections sections = {});

// What of the state the one-shot `command` reads, by its row: every table for the shell (no
// command), for a command no row matches, and for a row that does not say.
Snapshot::Sections sectionsRead(const Grammar& grammar, std::span<const std::string> command);

}  // namespace cli
