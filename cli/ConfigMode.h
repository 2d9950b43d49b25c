#pragma once
// The shell's configuration modes, as router users know them. `configure` enters
// configuration mode (prompt rova(config)#); there `ip route ...` and `ipv6 route ...` take
// the very lines `show running-config static-routes` writes and `no ...` removes routes;
// `interface INTF` and `vrf instance NAME` enter their own modes, whose address and route
// distinguisher lines are checked before anything changes. `exit` leaves a mode, `end` all of
// them. A refused line changes nothing. docs/cli.md describes the commands.

#include "cli/Grammar.h"
#include "cli/Runner.h"
#include "cli/Shell.h"

namespace cli {

// The way into configuration mode: the `configure` row, added to the command table `exec`
// (the configuration grammars have it too, from addConfigRows).
void addConfigureRow(Grammar& exec);

// The shell's modes: the command table `exec` outside configuration mode, the configuration
// grammars (built on first use) inside it, with their prompts.
ModeSource shellModes(const Grammar& exec);

}  // namespace cli
