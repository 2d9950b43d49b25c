#pragma once
// The text forms by which a snapshot refers to FECs and tunnels.
//
// A FEC is "<n>" (an ordinary IPv4 adjacency) or "<kind>:<n>" with kind ip6, mpls, nhg,
// attached, tunnel or srte; n is the index within the kind (for nhg, the nexthop group id).
// A tunnel is "<type>:<index>" with type static, ldp, sr, bgpLu or srTePolicy.

#include <string>
#include <string_view>

#include "platform/brine/FecId.h"
#include "platform/brine/TunnelId.h"

namespace Snapshot {

// Each parser returns nullptr on success, or what is wrong with the text.
const char* parseFecRef(std::string_view text, Brine::Fib::FecId& out);
std::string fecRefText(Brine::Fib::FecId id);
// Writes the text at `out` (room for 32 characters) and returns its end.
char* writeFecRef(Brine::Fib::FecId id, char* out);

const char* parseTunnelRef(std::string_view text, Tunnel::TunnelTable::TunnelId& out);
std::string tunnelRefText(Tunnel::TunnelTable::TunnelId id);

}  // namespace Snapshot
