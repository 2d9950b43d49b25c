#include "cli/ConfigMode.h"

#include <charconv>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cli/AgentChanges.h"
#include "cli/CommandActions.h"
#include "cli/Commands.h"
#include "cli/ConfigLines.h"
#include "cli/ConfigSession.h"
#include "cli/DeviceState.h"
#include "cli/Output.h"
#include "lib/registry/TypeRegistry.h"
#include "platform/mox/Dir.h"
#include "platform/mox/Exception.h"
#include "platform/plexa/EthAddr.h"
#include "platform/plexa/IpAddr.h"
#include "platform/plexa/Prefix.h"
#include "platform/plexa/VrfName.h"
#include "platform/rendr/Printer.h"
#include "platform/state/Interface.h"
#include "platform/state/Ip.h"
#include "platform/state/RoutingConfig.h"
#include "snapshot/StateLayout.h"

namespace cli {

namespace {

namespace layout = Snapshot::layout;
using Rova::Value;

// The route distinguishers configured here are published as one input of the directory, next
// to those of the agents.
constexpr const char* kRdInputName = "config";
constexpr const char* kMgmtPrefix = "Management";

// ---- where the shell is ----

using Mode = ConfigMode;
ConfigPosition& session = configPosition();

// A state entity to change; null when the state has none.
template <class T>
Mox::Ptr<T> writable(const layout::Entity<T, layout::Scope::device>& entity) {
  return Rova::fromValue<Mox::Ptr<T>>(state().at(entity));
}
template <class T>
Mox::Ptr<T> writable(std::string_view vrf, const layout::Entity<T, layout::Scope::vrf>& entity) {
  return Rova::fromValue<Mox::Ptr<T>>(state().atVrf(vrf, entity));
}

int refuse(const Context& c, const std::string& msg, int status = kStatusFailed) {
  c.error("% " + msg);
  return status;
}

// ---- argument types of the configuration lines ----

template <class N>
bool numberIn(std::string_view w, N low, N high, N* out = nullptr) {
  N n{};
  const auto r = std::from_chars(w.data(), w.data() + w.size(), n);
  if (r.ec != std::errc() || r.ptr != w.data() + w.size() || n < low || n > high) return false;
  if (out) *out = n;
  return true;
}
bool isPreference(std::string_view w) {
  return numberIn<unsigned>(w, 1, 255);
}
bool isTag(std::string_view w) {
  return numberIn<std::uint64_t>(w, 0, 0xffffffffu);
}
bool isLabel(std::string_view w) {
  return numberIn<unsigned>(w, 0, Plexa::MplsLabel::kMax);
}
bool isVni(std::string_view w) {
  return numberIn<unsigned>(w, 1, Vxlan::VniOrNone::kMax);
}
bool isMac(std::string_view w) {
  Plexa::EthAddr a;
  return Plexa::EthAddr::parse(w, a);
}
bool isGenAddr(std::string_view w) {
  Plexa::IpGenAddr a;
  return !w.empty() && Plexa::IpGenAddr::parse(w, a);
}
unsigned number(const std::string& w) {
  std::uint64_t n = 0;
  std::from_chars(w.data(), w.data() + w.size(), n);
  return static_cast<unsigned>(n);
}

// ---- static routes ----

struct Defaults {
  Routing::RoutePreference preference = 1;
  std::uint32_t tag = 0;
  std::string name;
};

Defaults staticDefaults() {
  Defaults d;
  if (auto r = layout::find(state().entities(), layout::staticRouteDefaults)) {
    d.preference = r->preference();
    d.tag = r->tag();
    d.name = r->name().stringValue();
  }
  return d;
}

// One `ip route` / `ipv6 route` line, read.
struct RouteLine {
  std::string vrf;
  Plexa::IpGenPrefix prefix;
  Routing::RoutePreference preference = 1;
  std::uint32_t tag = 0;
  Routing::RouteType type = Routing::RouteType::forward;
  std::string group;
  std::string name;
  bool hasVia = false;
  Routing::Via via;
  bool trackBfd = false;
};

// Reads the words of a route line; returns -1, or the status of a refusal it has reported.
int readRouteLine(const Match& m, bool v6, RouteLine& line, const Context& c) {
  line.vrf = m.has("NAME") ? m.value("NAME") : std::string(L3::VrfName::kDefault);
  if (!state().hasVrf(line.vrf)) return refuse(c, "VRF '" + line.vrf + "' does not exist");
  const std::string prefixWord = m.value(v6 ? "X:X::X/LEN" : "A.B.C.D/LEN");
  bool hostBits;
  if (v6) {
    const auto a = Plexa::Ip6AddrWithMask::fromString(prefixWord);
    line.prefix = Plexa::IpGenPrefix(a.subnet());
    hostBits = !(a.subnet().address() == a.address());
  } else {
    const auto a = Plexa::IpAddrWithMask::fromString(prefixWord);
    line.prefix = Plexa::IpGenPrefix(a.subnet());
    hostBits = !(a.subnet().address() == a.address());
  }
  if (hostBits) {
    return refuse(c,
                  "Invalid input at '" + prefixWord + "': host bits are set; the prefix is " +
                      line.prefix.stringValue(),
                  kStatusUsage);
  }

  const Defaults d = staticDefaults();
  line.preference =
      m.has("PREF") ? Routing::RoutePreference(number(m.value("PREF"))) : d.preference;
  line.tag = m.has("TAG") ? std::uint32_t(std::stoul(m.value("TAG"))) : d.tag;
  // A line without a name has the default name; "name" alone is the empty name.
  line.name = m.flag("name") ? (m.has("TEXT") ? m.value("TEXT") : std::string()) : d.name;
  if (m.flag("null0")) {
    line.type = Routing::RouteType::drop;
    return -1;
  }
  if (m.flag("nexthop-group")) {
    line.type = Routing::RouteType::nexthopGroup;
    line.group = m.value("group");
    return -1;
  }
  if (m.has("INTF")) line.via.intfIdIs(Plexa::IntfId(m.value("INTF")));
  if (m.has("nexthop")) line.via.hopIs(Plexa::IpGenAddr::fromString(m.value("nexthop")));
  if (m.has("LABEL")) line.via.mplsLabelIs(Plexa::MplsLabel(number(m.value("LABEL"))));
  if (m.flag("vtep")) {
    if (line.via.hop())
      return refuse(c,
                    "Invalid input at 'vtep': a via has a next hop or a VXLAN end point, not both",
                    kStatusUsage);
    line.via.vtepAddrIs(Plexa::IpGenAddr::fromString(m.value("ADDR")));
    line.via.vniIs(Vxlan::VniOrNone(number(m.value("VNI"))));
    line.via.routerMacIs(Plexa::EthAddr::fromString(m.value("MAC")));
  }
  line.trackBfd = m.flag("track");
  Routing::dropZeroAddresses(line.via);
  line.hasVia = line.via.intfId().isValid() || line.via.hop() || line.via.vtepAddr();
  return -1;
}

Mox::Ptr<Routing::ConfigGen> routeConfig(const RouteLine& line) {
  const bool v6 = line.prefix.af() == Plexa::AddressFamily::ipv6;
  return writable<Routing::ConfigGen>(line.vrf,
                                      v6 ? layout::routing6Config : layout::routingConfig);
}

// A gateway that is one of the router's own addresses in the VRF is refused.
bool ownAddress(const RouteLine& line) {
  if (!line.via.hop()) return false;
  const bool v6 = line.prefix.af() == Plexa::AddressFamily::ipv6;
  Value checker =
      registry().construct(v6 ? "Rova::InvalidNextHop6Checker" : "Rova::InvalidNextHopChecker", {});
  const Value args[] = {v6 ? state().at(layout::ip6Config) : state().at(layout::ipConfig),
                        Value(line.via.hop().stringValue().c_str()), Value(line.vrf.c_str())};
  return registry().call(checker, "check", args).get<bool>();
}

// The line as a route of its own, which is how the static route editor takes it.
Value lineRoute(const RouteLine& line) {
  auto route = Mox::makePtr<Routing::Route>(Routing::RouteKey(line.prefix, line.preference));
  route->routeTypeIs(line.type);
  route->tagIs(line.tag);
  if (line.type == Routing::RouteType::drop) route->dropNextHopNameIs(line.name);
  if (line.type == Routing::RouteType::nexthopGroup) route->nexthopGroupNameIs(line.group);
  if (line.hasVia) {
    route->viaIs(line.via, true);
    if (line.trackBfd) route->viaTrackBfdIs(line.via, true);
    if (!line.name.empty()) route->viaNextHopNameIs(line.via, line.name);
  }
  return Rova::toValue(route);
}

int addRoute(const Match& m, const Context& c, bool v6) {
  RouteLine line;
  if (int s = readRouteLine(m, v6, line, c); s >= 0) return s;
  if (line.type == Routing::RouteType::forward && !line.hasVia) {
    return refuse(c,
                  "Incomplete command: a static route needs a next hop, an interface, Null0 or "
                  "Nexthop-Group",
                  kStatusUsage);
  }
  if (line.type == Routing::RouteType::forward) {
    Routing::ViaParts parts;
    parts.hop = bool(line.via.hop());
    parts.interface = m.has("INTF");
    parts.label = m.has("LABEL");
    parts.vtep = bool(line.via.vtepAddr());
    parts.vni = m.has("VNI");
    parts.routerMac = m.has("MAC");
    if (const char* why = Routing::staticViaProblem(parts))
      return refuse(c, std::string("Invalid input: ") + why, kStatusUsage);
  }
  if (ownAddress(line)) {
    return refuse(c, "Next hop " + line.via.hop().stringValue() +
                         " is an address of this router in VRF " + line.vrf);
  }
  auto config = routeConfig(line);
  if (!config) return refuse(c, "VRF '" + line.vrf + "' has no routing configuration");
  Value editor = registry().construct("Rova::StaticRouteEditor", {});
  const Value args[] = {Rova::toValue(config), lineRoute(line)};
  const std::string refusal = registry().call(editor, "addRoute", args).displayText();
  if (!refusal.empty()) return refuse(c, refusal);
  state().changed();
  return kStatusOk;
}

// `no ip route PREFIX` removes every configured route of the prefix, and with a preference the
// one at that preference; the editor says what the other lines remove.
int removeRoute(const Match& m, const Context& c, bool v6) {
  RouteLine line;
  if (int s = readRouteLine(m, v6, line, c); s >= 0) return s;
  auto config = routeConfig(line);
  if (!config) return kStatusOk;
  Value editor = registry().construct("Rova::StaticRouteEditor", {});
  const Value args[] = {Rova::toValue(config), lineRoute(line), Value(!m.has("PREF"))};
  if (registry().call(editor, "removeRoute", args).get<bool>()) state().changed();
  return kStatusOk;
}

// ---- interface addresses ----

// `ip address ADDR [secondary]`, `ipv6 address ADDR`: `key` is the address's placeholder.
int address(const Match& m, const Context& c, const char* key) {
  Value editor = intfAddressEditor();
  const Value args[] = {Value(Plexa::IntfId(session.intf)), Value(m.value(key).c_str()),
                        Value(m.flag("secondary"))};
  const std::string refusal = registry().call(editor, "addAddress", args).displayText();
  if (!refusal.empty()) return refuse(c, refusal);
  state().changed();
  return kStatusOk;
}

// `no ip address [ADDR [secondary]]`, `no ipv6 address [ADDR]`: one address, or every one of
// the family.
int noAddress(const Match& m, const Context& c, const char* key, bool v6) {
  Value editor = intfAddressEditor();
  const Value intf(Plexa::IntfId(session.intf));
  if (!m.has(key)) {
    const Value args[] = {intf, Value(v6)};
    if (registry().call(editor, "removeAddresses", args).get<bool>()) state().changed();
    return kStatusOk;
  }
  const Value args[] = {intf, Value(m.value(key).c_str()), Value(m.flag("secondary"))};
  const std::string refusal = registry().call(editor, "removeAddress", args).displayText();
  if (!refusal.empty()) return refuse(c, refusal);
  state().changed();
  return kStatusOk;
}

// Entering an interface that the state does not have creates it, in the default VRF, as a
// router creates a loopback or VLAN interface.
int enterInterface(const Match& m, const Context& c) {
  const Plexa::IntfId id(m.value("INTF"));
  auto all = writable<Interface::AllIntfConfigDir>(layout::intfConfig);
  auto statuses = writable<Interface::AllIntfStatusDir>(layout::intfStatus);
  if (!all || !statuses) return refuse(c, "The state has no interface configuration");
  if (changesHere() && !all->intfConfig().contains(id)) {
    auto config = Mox::makePtr<Interface::IntfConfig>(id);
    config->vrfIs(L3::VrfName::defaultVrf());
    all->intfConfigIs(id, config);
    statuses->intfStatusIs(id, Mox::makePtr<Interface::IntfStatus>(id));
    state().changed();
  }
  session.mode = Mode::interface;
  session.intf = id.stringValue();
  return kStatusOk;
}

// ---- VRF route distinguishers ----

// A name the state cannot hold is refused here, before `rd` would save it under that name.
int enterVrf(const Match& m, const Context& c) {
  if (!L3::VrfName::validName(m.value("NAME"))) {
    return refuse(c,
                  "Invalid input at " + Mox::shownWord(m.value("NAME")) + ": a VRF name is " +
                      L3::VrfName::kNameRule,
                  kStatusUsage);
  }
  if (changesHere()) {
    if (int s = createVrf(m.value("NAME"), c); s >= 0) return s;
  }
  session.mode = Mode::vrf;
  session.vrf = m.value("NAME");
  return kStatusOk;
}

int rd(const Match& m, const Context& c) {
  const Value checker = registry().construct(
      "Rova::RdAssignmentChecker", {{"routeDistinguisherInputDir", state().at(layout::rdInputDir)},
                                    {"vrfName", Value(session.vrf.c_str())},
                                    {"routeDistinguisher", Value(m.value("RD").c_str())}});
  if (!registry().attribute(checker, "acceptable").get<bool>())
    return refuse(c, registry().attribute(checker, "errorMessage").displayText());
  auto dir = writable<Mox::Dir>(layout::rdInputDir);
  if (!dir) return refuse(c, "The state has no route distinguisher directory");
  Mox::Ptr<Ip::RouteDistinguisherInput> input;
  if (auto it = dir->entries().find(kRdInputName); it != dir->entries().end())
    input = Mox::ptrCast<Ip::RouteDistinguisherInput>(it->second);
  if (!input) {
    input = Mox::makePtr<Ip::RouteDistinguisherInput>();
    dir->entityIs(kRdInputName, input);
  }
  input->routeDistinguisherIs(Mox::String8(session.vrf),
                              Plexa::RouteDistinguisher::fromString(m.value("RD")));
  state().changed();
  return kStatusOk;
}

int noRd(const Match&, const Context&) {
  auto dir = writable<Mox::Dir>(layout::rdInputDir);
  if (!dir) return kStatusOk;
  auto it = dir->entries().find(kRdInputName);
  auto input =
      it == dir->entries().end() ? nullptr : Mox::ptrCast<Ip::RouteDistinguisherInput>(it->second);
  if (input && input->routeDistinguisherDel(Mox::String8(session.vrf))) state().changed();
  return kStatusOk;
}

// ---- the grammars ----

int exitMode(const Match&, const Context&) {
  session.mode = session.mode == Mode::config ? Mode::exec : Mode::config;
  session.enteredBy.clear();
  // A session left for the command table stays pending, under its name.
  if (session.mode == Mode::exec) leaveSession();
  return kStatusOk;
}
int endMode(const Match&, const Context&) {
  session.mode = Mode::exec;
  session.enteredBy.clear();
  leaveSession();
  return kStatusOk;
}

// The words after the prefix, in the order `show running-config static-routes` writes them.
std::vector<Row> routeRows(bool v6, bool no) {
  const std::string head = std::string(no ? "no " : "") + (v6 ? "ipv6 route" : "ip route") +
                           " [vrf NAME] " + (v6 ? "X:X::X/LEN" : "A.B.C.D/LEN");
  const std::string hop = v6 ? "X:X::X:nexthop" : "A.B.C.D:nexthop";
  const std::vector<WordHelp> help = {
      {"route", no ? "Remove a static route" : "Add a static route"},
      {"null0", "Drop the traffic"},
      {"nexthop-group", "Forward through a nexthop group"},
      {"group", "Nexthop group name"},
      {"nexthop", "Next hop address"},
      {"INTF", "Outgoing interface"},
      {"label", "MPLS label to push"},
      {"track", "Track the next hop"},
      {"bfd", "With BFD"},
      {"vtep", "VXLAN tunnel end point"},
      {"ADDR", "End point address"},
      {"vni", "VXLAN network identifier"},
      {"router-mac-address", "Router MAC address of the end point"},
      {"PREF", "Preference (administrative distance)"},
      {"tag", "Route tag"},
      {"name", "Name of the next hop or drop route"}};
  Action action = [v6, no](const Match& m, const Context& c) {
    return no ? removeRoute(m, c, v6) : addRoute(m, c, v6);
  };
  std::vector<Row> rows;
  if (no) rows.push_back({head, help, action});
  rows.push_back({head + " null0 [PREF] [tag TAG] [name [TEXT]]", help, action});
  rows.push_back({head + " nexthop-group TEXT:group [PREF] [tag TAG]", help, action});
  rows.push_back({head + " [INTF] [" + hop +
                      " [label LABEL]] [track bfd] [vtep ADDR vni VNI router-mac-address MAC] "
                      "[PREF] [tag TAG] [name TEXT]",
                  help, action});
  return rows;
}

void addConfigTypes(Grammar& g) {
  g.addType({"PREF", "Preference, 1 to 255", isPreference, {}});
  g.addType({"TAG", "Route tag, 0 to 4294967295", isTag, {}});
  g.addType({"LABEL", "MPLS label, 0 to 1048575", isLabel, {}});
  g.addType({"VNI", "VNI, 1 to 16777215", isVni, {}});
  g.addType({"MAC", "MAC address (00:11:22:33:44:55)", isMac, {}});
  g.addType({"ADDR", "IPv4 or IPv6 address", isGenAddr, {}});
  g.addKeywordHelp("no", "Remove configuration");
  g.addKeywordHelp("exit", "Leave this mode");
  g.addKeywordHelp("end", "Leave configuration mode");
  addDeviceConfigTypes(g);
}

// A configuration line prints nothing; in JSON mode it leaves, as every command does, one
// document: {}. (A refused line's message goes to standard error.)
// In a configuration session a line that changes the configuration is recorded instead
// (ConfigSession.h), and a line that enters a sub-mode is recorded and only moves there.
std::vector<Row> leavingOneDocument(std::vector<Row> rows, LineKind kind = LineKind::edit) {
  for (Row& r : rows) {
    changeLineKinds()[r.syntax] = kind;
    r.action = oneDocument(
        [action = std::move(r.action), kind](const Match& m, const Context& c, Output& out) {
          if (kind == LineKind::edit && inSession()) {
            sessionRecord(m, false);
            return out.nothing();
          }
          // Attached: the agent applies the line; a line that enters a sub-mode then only
          // moves there here.
          if (kind != LineKind::leave && !inSession() && changesGoToAgent()) {
            const int sent = sendLine(m, kind == LineKind::edit ? session.enteredBy : "", c);
            if (sent != kStatusOk) return sent;
            if (kind == LineKind::edit) return out.nothing();
          }
          const int status = action(m, c);
          if (status != kStatusOk) return status;
          // Whatever a line changed (a route, an address, an interface) may change what the
          // static routes resolve through.
          if (state().unsaved()) updateStaticRouteFibs();
          if (kind == LineKind::enter) {
            session.enteredBy = lineOf(m);
            if (inSession()) sessionRecord(m, true);
          }
          return out.nothing();
        });
  }
  return rows;
}

// Configuration mode: the commands of the command table, the route lines, and the ways into
// the sub-modes and out.
void addConfigRows(Grammar& g) {
  addCommands(g);
  addConfigureRow(g);
  addConfigTypes(g);
  std::vector<Row> rows;
  for (bool no : {false, true}) {
    for (bool v6 : {false, true}) {
      for (Row& r : routeRows(v6, no))
        rows.push_back(std::move(r));
    }
  }
  for (Row& r : deviceRows())
    rows.push_back(std::move(r));
  g.addRows(leavingOneDocument(std::move(rows)));
  g.addRows(leavingOneDocument(
      {{"interface INTF", {{"interface", "Configure an interface"}}, enterInterface},
       {"vrf instance NAME", {{"instance", "Configure a VRF"}}, enterVrf},
       {"nexthop-group GROUP [type NHGTYPE]",
        {{"nexthop-group", "Configure a nexthop group"}, {"type", "What the group encapsulates"}},
        enterNexthopGroup}},
      LineKind::enter));
  g.addRows(leavingOneDocument({{"exit", {}, exitMode}, {"end", {}, endMode}}, LineKind::leave));
  addSessionRows(g);
}

struct ConfigGrammars {
  Grammar config, interface, vrf, nexthopGroup;
  ConfigGrammars() {
    addConfigRows(config);
    addConfigRows(interface);
    interface.addRows(leavingOneDocument({
        {"ip address A.B.C.D/LEN [secondary]",
         {{"address", "Assign an IPv4 address"}, {"secondary", "As a secondary address"}},
         [](const Match& m, const Context& c) { return address(m, c, "A.B.C.D/LEN"); }},
        {"no ip address [A.B.C.D/LEN [secondary]]",
         {{"address", "Remove the IPv4 addresses, or one"}},
         [](const Match& m, const Context& c) { return noAddress(m, c, "A.B.C.D/LEN", false); }},
        {"ipv6 address X:X::X/LEN",
         {{"address", "Assign an IPv6 address"}},
         [](const Match& m, const Context& c) { return address(m, c, "X:X::X/LEN"); }},
        {"no ipv6 address [X:X::X/LEN]",
         {{"address", "Remove the IPv6 addresses, or one"}},
         [](const Match& m, const Context& c) { return noAddress(m, c, "X:X::X/LEN", true); }},
    }));
    addConfigRows(vrf);
    vrf.addRows(leavingOneDocument({
        {"rd RD", {{"rd", "Route distinguisher of the VRF"}}, rd},
        {"no rd", {{"rd", "Remove the VRF's route distinguisher"}}, noRd},
    }));
    interface.addRows(leavingOneDocument(interfaceRows()));
    addConfigRows(nexthopGroup);
    nexthopGroup.addRows(leavingOneDocument(nexthopGroupRows()));
  }
};

ConfigGrammars& grammars() {
  static ConfigGrammars g;
  return g;
}

}  // namespace

// Both families' address lines, in configuration and interface mode, go through one editor,
// which checks the address and keeps the interface's IP status in step with its configuration.
Value intfAddressEditor() {
  return registry().construct("Rova::IntfAddressEditor",
                              {{"ipConfig", state().at(layout::ipConfig)},
                               {"ipStatus", state().at(layout::ipStatus)},
                               {"ip6Config", state().at(layout::ip6Config)},
                               {"ip6Status", state().at(layout::ip6Status)},
                               {"allIntfConfig", state().at(layout::intfConfig)},
                               {"mgmtPrefix", Value(kMgmtPrefix)}});
}

void addConfigureRow(Grammar& exec) {
  exec.addType({"SESSION", "Session name", [](std::string_view w) { return !w.empty(); }, {}});
  exec.addRows({{"configure",
                 {{"configure", "Enter configuration mode"}},
                 oneDocument([](const Match&, const Context&, Output& out) {
                   leaveSession();
                   session.mode = Mode::config;
                   return out.nothing();
                 })},
                {"configure session [SESSION]",
                 {{"session", "Collect lines into a candidate, applied whole by commit"},
                  {"SESSION", "The session's name (default: a new one)"}},
                 oneDocument([](const Match& m, const Context& c, Output& out) {
                   if (int s = enterSession(m.value("SESSION"), c); s >= 0) return s;
                   session.mode = Mode::config;
                   session.enteredBy.clear();
                   return out.nothing();
                 })}});
}

ConfigPosition& configPosition() {
  static ConfigPosition position;
  return position;
}

std::map<std::string, LineKind>& changeLineKinds() {
  static std::map<std::string, LineKind> kinds;
  return kinds;
}

const Grammar& configGrammar(ConfigMode mode) {
  ConfigGrammars& g = grammars();
  switch (mode) {
    case Mode::interface:
      return g.interface;
    case Mode::vrf:
      return g.vrf;
    case Mode::nexthopGroup:
      return g.nexthopGroup;
    default:
      return g.config;
  }
}

ModeSource shellModes(const Grammar& exec) {
  return [&exec]() -> ShellMode {
    if (session.mode == Mode::exec) return {&exec, Shell::kPrompt, false};
    // A session shows its name, as router shells do: rova(config-s-NAME)#.
    const std::string s = inSession() ? "-s-" + sessionName() : "";
    const Grammar& g = configGrammar(session.mode);
    switch (session.mode) {
      case Mode::interface:
        return {&g, "rova(config" + s + "-if-" + session.intf + ")#", true};
      case Mode::vrf:
        return {&g, "rova(config" + s + "-vrf-" + session.vrf + ")#", true};
      case Mode::nexthopGroup:
        return {&g, "rova(config" + s + "-nexthop-group-" + session.group + ")#", true};
      default:
        return {&g, "rova(config" + s + ")#", true};
    }
  };
}

int runInMode(const Grammar& exec, std::span<const std::string> words, const Context& context) {
  const Grammar& g = session.mode == Mode::exec ? exec : configGrammar(session.mode);
  return runCommand(g, words, context);
}

}  // namespace cli
