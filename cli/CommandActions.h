#pragma once
// The actions of the command table (Commands.cpp), one file per subject, as the registry keeps
// its entries: each file names the library objects of its commands and nothing else does. An
// action reads its words from the Match and writes through the command's Output.

#include <string>
#include <string_view>
#include <vector>

#include "cli/Grammar.h"
#include "cli/Output.h"
#include "cli/Runner.h"
#include "platform/mox/Ptr.h"

namespace Statum {
class EntityManager;
}

namespace cli {

// StateCommands.cpp: the state itself, and what the other subjects ask of it.
int showVersion(const Match& m, const Context& c, Output& out);
int writeState(const Match& m, const Context& c, Output& out);
// The VRF a command names with `key`, or the default VRF.
std::string vrfOf(const Match& m, const char* key = "NAME");
// Refuses a VRF the state does not describe; returns the status to leave with, or -1.
int checkVrf(const std::string& vrf, const Context& c);
// The same for an interface.
int checkIntf(const std::string& intf, const Context& c);

// TypeCommands.cpp: the registry's types and value text forms.
int showTypes(const Match& m, const Context& c, Output& out);
int showType(const Match& m, const Context& c, Output& out);
int showValue(const Match& m, const Context& c, Output& out);

// RouteCommands.cpp: the route listings.
int showRoute(const Match& m, const Context& c, Output& out, bool v6);
// The protocol words of the listings, with their help.
std::vector<Choice> protocolChoices();

// SummaryCommands.cpp: the route summary.
int showRouteSummary(const Match& m, const Context& c, Output& out, bool v6);

// StaticRouteCommands.cpp: the static routes' configuration, RIB view and clearing.
int showStaticRoutes(const Match& m, const Context& c, Output& out);
int showStaticRoutesRib(const Match& m, const Context& c, Output& out);
int clearStaticRoutes(const Match& m, const Context& c, Output& out);
// Brings every VRF's forwarding tables in line with its static route configuration and the
// interfaces, as a routing agent would; a writer of configuration calls it after each change.
// What a static displaced is remembered for as long as the state in use stays loaded.
void updateStaticRouteFibs();
// Takes on, before any change, the statics the state in use holds for its configured static
// routes (an earlier process wrote them), so that removing their configuration removes them.
// Called when a state that may change is loaded.
void prepareStaticRouteFibs();
// Drops what updateStaticRouteFibs() remembers of a state that is going away.
void forgetStaticRouteFibs(const Mox::Ptr<Statum::EntityManager>& em);

// RunningConfig.cpp: the whole running configuration, and one interface's.
int showRunningConfig(const Match& m, const Context& c, Output& out);
int showRunningConfigInterface(const Match& m, const Context& c, Output& out);

// NexthopGroupCommands.cpp: nexthop group summary, listing and counters.
int showNexthopGroupSummary(const Match& m, const Context& c, Output& out);
int showNexthopGroups(const Match& m, const Context& c, Output& out);
int clearNexthopGroupCounters(const Match& m, const Context& c, Output& out);
// A word that may name a group where the listing's keywords may come too.
bool isNexthopGroupName(std::string_view w);

// InterfaceCommands.cpp: VRFs, interfaces and neighbours.
int showVrfs(const Match& m, const Context& c, Output& out);
int showIntfStatus(const Match& m, const Context& c, Output& out);
int showIpIntf(const Match& m, const Context& c, Output& out);
int showIp6IntfBrief(const Match& m, const Context& c, Output& out);
int showNeighbors(const Match& m, const Context& c, Output& out, bool v6);

// StateNames.cpp: the device's names offered for the placeholders (VRFs, interfaces, groups,
// route prefixes).
void addStateNames(Grammar& grammar);
// Names with numbers in the order people count: Ethernet2 before Ethernet10.
bool naturalLess(const std::string& a, const std::string& b);

// CheckCommands.cpp: the configuration checks.
int checkIpAddress(const Match& m, const Context& c, Output& out);
int checkIp6Address(const Match& m, const Context& c, Output& out);
int checkNexthop(const Match& m, const Context& c, Output& out, bool v6);
int checkRd(const Match& m, const Context& c, Output& out);

}  // namespace cli
