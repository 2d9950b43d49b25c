#pragma once
// The configuration lines beyond static routes, addresses and route distinguishers: the
// hostname, an interface's VRF and link-local addresses, VRFs themselves and nexthop groups:
// whatever `show running-config` prints, configuration mode takes back.

#include <string>
#include <vector>

#include "cli/Grammar.h"
#include "cli/Runner.h"

namespace cli {

// The argument types of the lines below (NHGTYPE).
void addDeviceConfigTypes(Grammar& g);
// Lines of configuration mode itself: hostname, no hostname, no nexthop-group.
std::vector<Row> deviceRows();
// Lines of interface mode: its VRF, its link-local IPv6 addresses.
std::vector<Row> interfaceRows();
// Lines of nexthop-group mode: size, ttl, tunnel source, entries.
std::vector<Row> nexthopGroupRows();

// `vrf instance NAME` makes the VRF when the state has none of that name (with empty tables
// and a free VRF id); returns -1, or the status of a refusal it has reported.
int createVrf(const std::string& name, const Context& c);
// `nexthop-group NAME [type TYPE]`: makes the group when it is new, sets its type when one is
// given, and enters its mode.
int enterNexthopGroup(const Match& m, const Context& c);

}  // namespace cli
