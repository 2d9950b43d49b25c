// The rova program's command table: every command of the program, one row each, with the
// argument types and keyword help its rows share. The actions live beside it by subject
// (CommandActions.h); each builds its library objects by type name through the registry, with
// state and options as their inputs, and calls one operation. The front end includes no library
// class header: what it knows of the library is names.

#include "cli/Commands.h"

#include <cctype>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "cli/AgentChanges.h"
#include "cli/CommandActions.h"
#include "cli/DeviceState.h"
#include "cli/Output.h"
#include "cli/Shell.h"
#include "platform/plexa/IntfId.h"
#include "platform/plexa/IpAddr.h"
#include "platform/plexa/Prefix.h"
#include "platform/plexa/RouteDistinguisher.h"
#include "platform/plexa/VrfName.h"

namespace cli {

namespace {

// A row of the table, before every action is given the one policy for the command's output.
// `reads` is what of the state the command reads: a one-shot command loads only that (the
// route tables it leaves out are still checked). A row that changes the state, or may read
// any table, reads everything, which is the default.
struct Command {
  std::string syntax;
  std::vector<WordHelp> help;
  OutputAction action;
  Snapshot::Sections reads = Snapshot::Sections::all();
};

constexpr Snapshot::Sections kNoRoutes = Snapshot::Sections::none();
constexpr Snapshot::Sections kIpv4Routes = {.ipv4Routes = true, .ipv6Routes = false};
constexpr Snapshot::Sections kIpv6Routes = {.ipv4Routes = false, .ipv6Routes = true};

// The rows' declarations by syntax, as addCommands registered them.
std::map<std::string, Snapshot::Sections>& readsBySyntax() {
  static std::map<std::string, Snapshot::Sections> reads;
  return reads;
}

// The argument types the rows share.
bool isVrfName(std::string_view w) {
  return !w.empty() && w.size() <= L3::VrfName::kMaxBytes;
}
bool isIpAddr(std::string_view w) {
  Plexa::IpAddr a;
  return Plexa::IpAddr::parse(w, a);
}
bool isIpAddrWithMask(std::string_view w) {
  Plexa::IpAddrWithMask a;
  return Plexa::IpAddrWithMask::parse(w, a);
}
bool isIp6Addr(std::string_view w) {
  Plexa::Ip6Addr a;
  return Plexa::Ip6Addr::parse(w, a);
}
bool isIp6AddrWithMask(std::string_view w) {
  Plexa::Ip6AddrWithMask a;
  return Plexa::Ip6AddrWithMask::parse(w, a);
}
bool isIntfName(std::string_view w) {
  if (!Plexa::IntfId::validName(w) || !std::isalpha(static_cast<unsigned char>(w[0]))) return false;
  for (char c : w) {
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '/' && c != '.' && c != '-' &&
        c != '_')
      return false;
  }
  return true;
}
bool isRd(std::string_view w) {
  Plexa::RouteDistinguisher rd;
  return Plexa::RouteDistinguisher::parse(w, rd);
}
bool anyWord(std::string_view w) {
  return !w.empty();
}
bool isPageLength(std::string_view w) {
  if (w.empty() || w.size() > 3) return false;
  for (char c : w) {
    if (!std::isdigit(static_cast<unsigned char>(c))) return false;
  }
  return true;
}

// The shell pages every N lines, or never (0); one-shot commands never page.
int setTerminalLength(const Match& m, const Context&, Output& out) {
  terminalLength() = std::stoi(m.value("LINES"));
  return out.nothing();
}

}  // namespace

void addCommands(Grammar& grammar) {
  grammar.addType({"NAME", "VRF name", isVrfName, {}});
  grammar.addType({"A.B.C.D", "IPv4 address", isIpAddr, {}});
  grammar.addType({"A.B.C.D/LEN", "IPv4 address with a mask length", isIpAddrWithMask, {}});
  grammar.addType({"X:X::X", "IPv6 address", isIp6Addr, {}});
  grammar.addType({"X:X::X/LEN", "IPv6 address with a mask length", isIp6AddrWithMask, {}});
  grammar.addType({"INTF", "Interface name (Ethernet1, Vlan100, ...)", isIntfName, {}});
  grammar.addType({"TEXT", "Text", anyWord, {}});
  grammar.addType({"RD", "Route distinguisher (ASN:n or A.B.C.D:n)", isRd, {}});
  grammar.addType(
      {"VALUE", "A value text form, quoted: \"Value('Ns::Type', ** {...})\"", anyWord, {}});
  grammar.addType({"FILE", "File name", anyWord, {}});
  grammar.addType({"TYPE",
                   "A registered type name (Rova::RouteSorter; show types lists them)",
                   [](std::string_view w) { return registry().find(w) != nullptr; },
                   {}});
  grammar.addType({"GROUP", "Nexthop group name", isNexthopGroupName, {}});
  grammar.addType({"PROTOCOL", "Routes of one protocol", {}, protocolChoices()});
  grammar.addType({"LINES", "Lines of a page, 0 to 999 (0: no paging)", isPageLength, {}});

  addStateNames(grammar);

  grammar.addKeywordHelp("show", "Show running system information");
  grammar.addKeywordHelp("check", "Check proposed configuration");
  grammar.addKeywordHelp("ip", "IPv4");
  grammar.addKeywordHelp("ipv6", "IPv6");
  grammar.addKeywordHelp("vrf", "A VRF");
  grammar.addKeywordHelp("detail", "More detail");
  grammar.addKeywordHelp("longer-prefixes", "The prefix and every route inside it");
  grammar.addKeywordHelp("clear", "Reset functions");
  grammar.addKeywordHelp("static-routes", "Static routes");
  grammar.addKeywordHelp("nexthop-group", "Nexthop groups");

  Command commands[] = {
      {"show version",
       {{"version", "Software version and the state shown"}},
       showVersion,
       kNoRoutes},
      {"show types", {{"types", "The library's registered types"}}, showTypes, kNoRoutes},
      {"show type TYPE",
       {{"type", "One registered type: construction, attributes, operations"}},
       showType,
       kNoRoutes},
      {"show value VALUE",
       {{"value", "Parse a value text form and write it back"}},
       showValue,
       kNoRoutes},
      {"show ip route [vrf NAME] [A.B.C.D | A.B.C.D/LEN [longer-prefixes]] [PROTOCOL] [detail] "
       "[host] [quantify]",
       {{"route", "IPv4 routing table"},
        {"host", "Host routes: receive, attached and FIB host entries"},
        {"quantify", "Time the listing"},
        {"A.B.C.D", "The longest match for an address"},
        {"A.B.C.D/LEN", "The route for a prefix"}},
       [](const Match& m, const Context& c, Output& out) { return showRoute(m, c, out, false); },
       kIpv4Routes},
      {"show ip route [vrf NAME] summary",
       {{"route", "IPv4 routing table"},
        {"summary", "Route counts by source and by prefix length"}},
       [](const Match& m, const Context& c, Output& out) {
         return showRouteSummary(m, c, out, false);
       },
       kIpv4Routes},
      {"show ipv6 route [vrf NAME] [X:X::X | X:X::X/LEN [longer-prefixes]] [interface INTF] "
       "[PROTOCOL] [detail] [host] [quantify]",
       {{"route", "IPv6 routing table"},
        {"interface", "Routes through one interface"},
        {"host", "Host routes: receive, attached and FIB host entries"},
        {"quantify", "Time the listing"},
        {"X:X::X", "The longest match for an address"},
        {"X:X::X/LEN", "The route for a prefix"}},
       [](const Match& m, const Context& c, Output& out) { return showRoute(m, c, out, true); },
       kIpv6Routes},
      {"show ipv6 route [vrf NAME] summary",
       {{"route", "IPv6 routing table"},
        {"summary", "Route counts by source and by prefix length"}},
       [](const Match& m, const Context& c, Output& out) {
         return showRouteSummary(m, c, out, true);
       },
       kIpv6Routes},
      {"show running-config [all]",
       {{"running-config", "Current configuration"},
        {"all", "With the static routes' default preference and tag too"}},
       showRunningConfig,
       kNoRoutes},
      {"show running-config interface INTF",
       {{"running-config", "Current configuration"},
        {"interface", "One interface's configuration"}},
       showRunningConfigInterface,
       kNoRoutes},
      {"show vrf", {{"vrf", "VRFs: their routes and interfaces"}}, showVrfs},
      {"show interfaces status",
       {{"interfaces", "Interfaces"}, {"status", "Link state, description and VRF of each"}},
       showIntfStatus},
      {"show ip interface [brief] [vrf NAME]",
       {{"interface", "IPv4 addresses of the interfaces"},
        {"brief", "One line each"},
        {"vrf", "In one VRF only"}},
       showIpIntf},
      {"show ipv6 interface brief [vrf NAME]",
       {{"interface", "IPv6 addresses of the interfaces"},
        {"brief", "One line each"},
        {"vrf", "In one VRF only"}},
       showIp6IntfBrief},
      {"show arp [vrf NAME]",
       {{"arp", "Resolved IPv4 neighbours (default: the default VRF)"}},
       [](const Match& m, const Context& c, Output& out) {
         return showNeighbors(m, c, out, false);
       }},
      {"show ipv6 neighbors [vrf NAME]",
       {{"neighbors", "Resolved IPv6 neighbours (default: the default VRF)"}},
       [](const Match& m, const Context& c, Output& out) {
         return showNeighbors(m, c, out, true);
       }},
      {"show running-config static-routes [all]",
       {{"running-config", "Current configuration"},
        {"static-routes", "Static routes"},
        {"all", "With the default preference and tag too"}},
       showStaticRoutes,
       kNoRoutes},
      {"show static-routes [vrf NAME] [dynamic]",
       {{"static-routes", "Static routes as the routing information base holds them"},
        {"dynamic", "The routes installed by agents instead of the configured ones"}},
       showStaticRoutesRib},
      {"clear static-routes interface INTF [vrf NAME]",
       {{"interface", "Remove the static routes and vias through an interface"},
        {"vrf", "In one VRF only (default: every VRF)"}},
       clearStaticRoutes},
      {"show nexthop-group summary [vrf NAME]",
       {{"summary", "Nexthop group counts by type and by size"},
        {"vrf", "Whose hardware to check (default: the default VRF)"}},
       showNexthopGroupSummary,
       kNoRoutes},
      {"show nexthop-group [GROUP] [vrf NAME]",
       {{"GROUP", "One group only"}, {"vrf", "Whose hardware to check (default: the default VRF)"}},
       showNexthopGroups,
       kNoRoutes},
      {"clear nexthop-group counters [GROUP]",
       {{"counters", "Start the entry counters from zero"}, {"GROUP", "One group only"}},
       clearNexthopGroupCounters},
      {"terminal length LINES",
       {{"terminal", "The shell's terminal"},
        {"length", "Page long output every LINES lines, or never (0)"}},
       setTerminalLength},
      {"write [FILE]",
       {{"write", "Save the state to the file it came from"},
        {"FILE", "Save it to this file instead"}},
       writeState},
      {"check ip address INTF A.B.C.D/LEN [primary-match (none|exact|address)] "
       "[secondary-match (none|exact|address)] [mgmt-prefix TEXT]",
       {{"address", "May this address be assigned to the interface?"},
        {"primary-match", "How an equal primary address on the interface is judged"},
        {"secondary-match", "How an equal secondary address on the interface is judged"},
        {"none", "Any equal address is a conflict"},
        {"exact", "An equal address conflicts when its mask length differs"},
        {"address", "An equal address never conflicts"},
        {"mgmt-prefix", "Name prefix of management interfaces (default Management)"}},
       checkIpAddress,
       kNoRoutes},
      {"check ipv6 address INTF X:X::X/LEN [mgmt-prefix TEXT]",
       {{"address", "May this address be assigned to the interface?"},
        {"mgmt-prefix", "Name prefix of management interfaces (default Management)"}},
       checkIp6Address,
       kNoRoutes},
      {"check ip nexthop A.B.C.D [vrf NAME]",
       {{"nexthop", "Is this next hop one of the router's own addresses?"}},
       [](const Match& m, const Context& c, Output& out) { return checkNexthop(m, c, out, false); },
       kNoRoutes},
      {"check ipv6 nexthop X:X::X [vrf NAME]",
       {{"nexthop", "Is this next hop one of the router's own addresses?"}},
       [](const Match& m, const Context& c, Output& out) { return checkNexthop(m, c, out, true); },
       kNoRoutes},
      {"check rd NAME RD",
       {{"rd", "Is this route distinguisher free for the VRF?"}, {"NAME", "The VRF to receive it"}},
       checkRd,
       kNoRoutes},
  };
  // Every program builds this table at start: the rows take the commands' texts and actions
  // over rather than copying them.
  std::vector<Row> rows;
  rows.reserve(std::size(commands));
  for (Command& command : commands) {
    // The commands that change the state are the agent's to run when the state is attached.
    const bool changes = command.syntax.rfind("clear ", 0) == 0 || command.syntax == "write [FILE]";
    readsBySyntax()[command.syntax] = command.reads;
    OutputAction action = std::move(command.action);
    rows.push_back(
        {std::move(command.syntax), std::move(command.help),
         oneDocument(changes ? changeGoesToAgent(std::move(action)) : std::move(action))});
  }
  grammar.addRows(std::move(rows));
}

Snapshot::Sections sectionsRead(const Grammar& grammar, std::span<const std::string> command) {
  if (command.empty()) return Snapshot::Sections::all();
  const MatchResult result = grammar.match(command);
  if (!result.match) return Snapshot::Sections::all();
  const auto& reads = readsBySyntax();
  const auto it = reads.find(result.match->row().syntax);
  return it == reads.end() ? Snapshot::Sections::all() : it->second;
}

}  // namespace cli
