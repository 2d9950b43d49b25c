#pragma once
// The shell's configuration modes, as router users know them. `configure` enters
// configuration mode (prompt rova(config)#); there `ip route ...` and `ipv6 route ...` take
// the very lines `show running-config static-routes` writes and `no ...` removes routes;
// `interface INTF` and `vrf instance NAME` enter their own modes, whose address and route
// distinguisher lines are checked before anything changes. `exit` leaves a mode, `end` all of
// them. A refused line changes nothing. docs/cli.md describes the commands.

#include <map>
#include <span>
#include <string>

#include "cli/ConfigSession.h"
#include "cli/Grammar.h"
#include "cli/Runner.h"
#include "cli/Shell.h"
#include "lib/registry/Value.h"

namespace cli {

// The way into configuration mode: the `configure` row, added to the command table `exec`
// (the configuration grammars have it too, from addConfigRows).
void addConfigureRow(Grammar& exec);

// The shell's modes: the command table `exec` outside configuration mode, the configuration
// grammars (built on first use) inside it, with their prompts.
ModeSource shellModes(const Grammar& exec);

// Where configuration mode is: the mode, and the interface, VRF or nexthop group of a sub-mode.
enum class ConfigMode { exec, config, interface, vrf, nexthopGroup };
struct ConfigPosition {
  ConfigMode mode = ConfigMode::exec;
  std::string intf;   // interface mode: the interface
  std::string vrf;    // VRF mode: the VRF
  std::string group;  // nexthop-group mode: the group
  // The line that entered the sub-mode, as a session records it.
  std::string enteredBy;
};
ConfigPosition& configPosition();

// The editor every interface-address line goes through.
Rova::Value intfAddressEditor();
// The kind of each configuration line, by its row's syntax: the lines a session records and an
// attached rova sends to the agent.
std::map<std::string, LineKind>& changeLineKinds();
// The grammar of a configuration mode (not exec).
const Grammar& configGrammar(ConfigMode mode);

// Runs one line in the mode the shell is in, as the shell would: `exec` outside configuration
// mode. Scripts from the Python module go through it.
int runInMode(const Grammar& exec, std::span<const std::string> words, const Context& context);

}  // namespace cli
