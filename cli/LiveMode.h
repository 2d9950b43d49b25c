#pragma once
// rova --live: the running kernel's routing state instead of a snapshot. Every show and check
// command works on it unchanged; configuration is refused, since rova does not program the
// kernel.

#include <span>
#include <string>

#include "cli/Grammar.h"
#include "cli/Runner.h"
#include "snapshot/Live.h"

namespace cli {

// Reads the kernel's state into the device state and sets the gate that refuses
// configuration. Returns kStatusOk, or kStatusUsage after refusing `command` (refuseLine)
// with "% Cannot read live state: ...".
// Reads only what `command` needs: `show ip route ...` the IPv4 routes, `show ipv6 route ...`
// the IPv6 ones (abbreviated words as the grammar takes them); any other command, and the
// shell (no command), everything.
Snapshot::LiveScope liveScopeOf(const Grammar& grammar, std::span<const std::string> command);

int startLiveMode(const Grammar& grammar, std::span<const std::string> command,
                  const Context& context);

// The gate: a line whose first word is (a beginning of) a configuration command and of no
// other command is refused with kStatusFailed; -1 lets every other line run.
int refuseConfiguration(const Grammar& grammar, std::span<const std::string> words,
                        const Context& context);

}  // namespace cli
