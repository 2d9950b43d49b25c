#include "cli/ConfigMode.h"

#include <charconv>
#include <memory>
#include <string>
#include <vector>

#include "cli/Commands.h"
#include "cli/DeviceState.h"
#include "lib/registry/TypeRegistry.h"
#include "platform/mox/Dir.h"
#include "platform/plexa/EthAddr.h"
#include "platform/plexa/IpAddr.h"
#include "platform/plexa/Prefix.h"
#include "platform/plexa/VrfName.h"
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

enum class Mode { exec, config, interface, vrf };

struct Session {
  Mode mode = Mode::exec;
  std::string intf;  // interface mode: the interface
  std::string vrf;   // VRF mode: the VRF
};
Session session;

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

int addRoute(const Match& m, const Context& c, bool v6) {
  RouteLine line;
  if (int s = readRouteLine(m, v6, line, c); s >= 0) return s;
  if (line.type == Routing::RouteType::forward && !line.hasVia) {
    return refuse(c,
                  "Incomplete command: a static route needs a next hop, an interface, Null0 or "
                  "Nexthop-Group",
                  kStatusUsage);
  }
  if (ownAddress(line)) {
    return refuse(c, "Next hop " + line.via.hop().stringValue() +
                         " is an address of this router in VRF " + line.vrf);
  }
  auto config = routeConfig(line);
  if (!config) return refuse(c, "VRF '" + line.vrf + "' has no routing configuration");

  const Routing::RouteKey key(line.prefix, line.preference);
  Mox::Ptr<Routing::Route> route = config->route(key);
  // An agent's route is not configuration: a line neither joins nor replaces it.
  if (route && route->dynamic()) {
    return refuse(c, "A dynamic static route holds " + line.prefix.stringValue() +
                         " at preference " + std::to_string(line.preference) +
                         "; configure another preference");
  }
  // A via joins the forward route at its preference; any other line replaces what is there.
  if (!route || line.type != Routing::RouteType::forward ||
      route->routeType() != Routing::RouteType::forward) {
    route = Mox::makePtr<Routing::Route>(key);
    route->routeTypeIs(line.type);
  }
  route->tagIs(line.tag);
  if (line.type == Routing::RouteType::drop) route->dropNextHopNameIs(line.name);
  if (line.type == Routing::RouteType::nexthopGroup) route->nexthopGroupNameIs(line.group);
  if (line.type == Routing::RouteType::forward) {
    route->viaIs(line.via, true);
    if (line.trackBfd) {
      route->viaTrackBfdIs(line.via, true);
    } else {
      route->viaTrackBfdDel(line.via);
    }
    if (line.name.empty()) {
      route->viaNextHopNameDel(line.via);
    } else {
      route->viaNextHopNameIs(line.via, line.name);
    }
  }
  config->routeIs(key, route);
  state().changed();
  return kStatusOk;
}

// `no ip route PREFIX` removes every configured route of the prefix, and with a preference the
// one at that preference; with a via, that via of the route at the line's preference (the route
// goes with its last via); with Null0 or Nexthop-Group, the route of that kind at the
// preference. Removing what is not there is no error; an agent's (dynamic) route is not
// configuration, and stays.
int removeRoute(const Match& m, const Context& c, bool v6) {
  RouteLine line;
  if (int s = readRouteLine(m, v6, line, c); s >= 0) return s;
  auto config = routeConfig(line);
  if (!config) return kStatusOk;
  // A line without a via names whole routes: every one of the prefix, or with a preference the
  // one at that preference, whatever its kind.
  const bool wholeRoute = line.type == Routing::RouteType::forward && !line.hasVia;
  if (wholeRoute && !m.has("PREF")) {
    for (auto it = config->routeIterator(); it; ++it) {
      if (it.key().prefix() == line.prefix && !it.value()->dynamic()) config->routeDel(it);
    }
  } else if (auto route = config->route(Routing::RouteKey(line.prefix, line.preference))) {
    if (route->dynamic() || (!wholeRoute && route->routeType() != line.type)) return kStatusOk;
    if (!wholeRoute && line.type == Routing::RouteType::forward) {
      const auto same = [&](const Routing::Via& v) {
        return v.hop() == line.via.hop() && v.intfId() == line.via.intfId() &&
               v.vtepAddr() == line.via.vtepAddr();
      };
      for (auto via = route->viaIterator(); via; ++via) {
        if (!same(via.key())) continue;
        route->viaTrackBfdDel(via.key());
        route->viaNextHopNameDel(via.key());
        route->viaDel(via);
      }
      if (route->vias() != 0) {
        state().changed();
        return kStatusOk;
      }
    }
    config->routeDel(route->key());
  }
  state().changed();
  return kStatusOk;
}

// ---- interface addresses ----

L3::VrfName intfVrf(const Plexa::IntfId& id) {
  auto all = layout::find(state().entities(), layout::intfConfig);
  const auto* config = all ? all->intfConfig().find(id) : nullptr;
  return config && *config ? (*config)->vrf() : L3::VrfName::defaultVrf();
}

// The status records mirror the configuration, as a loaded state's do.
void syncIpStatus(const Ip::IpIntfConfig& config) {
  auto status = writable<Ip::Status>(layout::ipStatus);
  if (!status) return;
  auto st = Mox::makePtr<Ip::IpIntfStatus>(config.intfId());
  st->activeAddrWithMaskIs(config.addrWithMask());
  if (!config.virtualAddrWithMask().address().isZero())
    st->activeSecondaryWithMaskIs(config.virtualAddrWithMask(), true);
  for (const auto& a : config.secondaryWithMask())
    st->activeSecondaryWithMaskIs(a, true);
  for (const auto& a : config.virtualSecondaryWithMask())
    st->activeSecondaryWithMaskIs(a, true);
  status->ipIntfStatusIs(config.intfId(), st);
}

void syncIp6Status(const Ip6::IntfConfig& config) {
  auto status = writable<Ip6::Status>(layout::ip6Status);
  if (!status) return;
  auto st = Mox::makePtr<Ip6::IntfStatus>(config.intfId());
  for (const auto& entry : config.addr())
    st->addrIs(entry.first, true);
  status->intfIs(config.intfId(), st);
}

int ipAddress(const Match& m, const Context& c) {
  const bool secondary = m.flag("secondary");
  const std::string addr = m.value("A.B.C.D/LEN");
  // A new primary may change the mask of the one it replaces; a secondary may be entered
  // again, but not with another mask, and never equal to the primary.
  const Value params = registry().construct(
      "Rova::AddressQueryParams",
      {{"ipConfig", state().at(layout::ipConfig)},
       {"intfName", Value(session.intf.c_str())},
       {"mgmtPrefix", Value(kMgmtPrefix)},
       {"primaryMatch", Value(secondary ? "allowNoMatch" : "allowAddressMatch")},
       {"secondaryMatch", Value(secondary ? "allowExactMatch" : "allowNoMatch")},
       {"addrWithMask", Value(addr.c_str())}});
  Value checker = registry().construct("Rova::AddressAssignmentChecker", {});
  const Value args[] = {params};
  const Value result = registry().call(checker, "check", args);
  if (!registry().attribute(result, "acceptable").get<bool>())
    return refuse(c, registry().attribute(result, "msg").displayText());

  auto ip = writable<Ip::Config>(layout::ipConfig);
  if (!ip) return refuse(c, "The state has no IP configuration");
  const Plexa::IntfId id(session.intf);
  Mox::Ptr<Ip::IpIntfConfig> config = ip->intfConfig(id);
  if (!config) {
    config = Mox::makePtr<Ip::IpIntfConfig>(id);
    config->vrfIs(intfVrf(id));
    ip->intfConfigIs(id, config);
  }
  const auto value = Plexa::IpAddrWithMask::fromString(addr);
  if (secondary) {
    config->secondaryWithMaskIs(value, true);
  } else {
    config->addrWithMaskIs(value);
  }
  syncIpStatus(*config);
  state().changed();
  return kStatusOk;
}

int noIpAddress(const Match& m, const Context& c) {
  auto ip = writable<Ip::Config>(layout::ipConfig);
  const Plexa::IntfId id(session.intf);
  Mox::Ptr<Ip::IpIntfConfig> config = ip ? ip->intfConfig(id) : nullptr;
  if (!m.has("A.B.C.D/LEN")) {
    if (!config) return kStatusOk;
    config->addrWithMaskIs({});
    config->secondaryWithMaskDelAll();
  } else {
    const std::string addr = m.value("A.B.C.D/LEN");
    const auto value = Plexa::IpAddrWithMask::fromString(addr);
    const bool assigned =
        config && (m.flag("secondary") ? config->secondaryWithMask().contains(value)
                                       : config->addrWithMask() == value);
    if (!assigned)
      return refuse(c, "Address " + addr + " is not assigned to interface " + session.intf);
    if (m.flag("secondary")) {
      config->secondaryWithMaskDel(value);
    } else {
      config->addrWithMaskIs({});
    }
  }
  syncIpStatus(*config);
  state().changed();
  return kStatusOk;
}

int ipv6Address(const Match& m, const Context& c) {
  const std::string addr = m.value("X:X::X/LEN");
  const Value params = registry().construct("Rova::Address6QueryParams",
                                            {{"ip6Config", state().at(layout::ip6Config)},
                                             {"intfName", Value(session.intf.c_str())},
                                             {"mgmtPrefix", Value(kMgmtPrefix)},
                                             {"addrWithMask", Value(addr.c_str())}});
  Value checker = registry().construct("Rova::Address6AssignmentChecker", {});
  const Value args[] = {params};
  const Value result = registry().call(checker, "check", args);
  if (!registry().attribute(result, "acceptable").get<bool>())
    return refuse(c, registry().attribute(result, "msg").displayText());

  auto ip6 = writable<Ip6::Config>(layout::ip6Config);
  if (!ip6) return refuse(c, "The state has no IPv6 configuration");
  const Plexa::IntfId id(session.intf);
  Mox::Ptr<Ip6::IntfConfig> config = ip6->intf(id);
  if (!config) {
    config = Mox::makePtr<Ip6::IntfConfig>(id);
    config->vrfIs(intfVrf(id));
    ip6->intfIs(id, config);
  }
  Ip6::AddressInfo info;
  info.addrIs(Plexa::Ip6AddrWithMask::fromString(addr));
  config->addrIs(info.addr(), info);
  syncIp6Status(*config);
  state().changed();
  return kStatusOk;
}

int noIpv6Address(const Match& m, const Context& c) {
  auto ip6 = writable<Ip6::Config>(layout::ip6Config);
  Mox::Ptr<Ip6::IntfConfig> config = ip6 ? ip6->intf(Plexa::IntfId(session.intf)) : nullptr;
  if (!m.has("X:X::X/LEN")) {
    if (!config) return kStatusOk;
    config->addrDelAll();
  } else {
    const std::string addr = m.value("X:X::X/LEN");
    if (!config || !config->addrDel(Plexa::Ip6AddrWithMask::fromString(addr)))
      return refuse(c, "Address " + addr + " is not assigned to interface " + session.intf);
  }
  syncIp6Status(*config);
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
  if (!all->intfConfig().contains(id)) {
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

int enterVrf(const Match& m, const Context&) {
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
  return kStatusOk;
}
int endMode(const Match&, const Context&) {
  session.mode = Mode::exec;
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
}

// Configuration mode: the commands of the command table, the route lines, and the ways into
// the sub-modes and out.
void addConfigRows(Grammar& g) {
  addCommands(g);
  addConfigTypes(g);
  std::vector<Row> rows;
  for (bool no : {false, true}) {
    for (bool v6 : {false, true}) {
      for (Row& r : routeRows(v6, no))
        rows.push_back(std::move(r));
    }
  }
  rows.push_back({"interface INTF", {{"interface", "Configure an interface"}}, enterInterface});
  rows.push_back({"vrf instance NAME", {{"instance", "Configure a VRF"}}, enterVrf});
  rows.push_back({"exit", {}, exitMode});
  rows.push_back({"end", {}, endMode});
  g.addRows(std::move(rows));
}

struct ConfigGrammars {
  Grammar config, interface, vrf;
  ConfigGrammars() {
    addConfigRows(config);
    addConfigRows(interface);
    interface.addRows({
        {"ip address A.B.C.D/LEN [secondary]",
         {{"address", "Assign an IPv4 address"}, {"secondary", "As a secondary address"}},
         ipAddress},
        {"no ip address [A.B.C.D/LEN [secondary]]",
         {{"address", "Remove the IPv4 addresses, or one"}},
         noIpAddress},
        {"ipv6 address X:X::X/LEN", {{"address", "Assign an IPv6 address"}}, ipv6Address},
        {"no ipv6 address [X:X::X/LEN]",
         {{"address", "Remove the IPv6 addresses, or one"}},
         noIpv6Address},
    });
    addConfigRows(vrf);
    vrf.addRows({
        {"rd RD", {{"rd", "Route distinguisher of the VRF"}}, rd},
        {"no rd", {{"rd", "Remove the VRF's route distinguisher"}}, noRd},
    });
  }
};

}  // namespace

int enterConfigMode(const Match&, const Context&) {
  session.mode = Mode::config;
  return kStatusOk;
}

ModeSource shellModes(const Grammar& exec) {
  auto grammars = std::make_shared<std::unique_ptr<ConfigGrammars>>();
  return [&exec, grammars]() -> ShellMode {
    if (session.mode == Mode::exec) return {&exec, Shell::kPrompt, false};
    if (!*grammars) *grammars = std::make_unique<ConfigGrammars>();
    ConfigGrammars& g = **grammars;
    switch (session.mode) {
      case Mode::interface:
        return {&g.interface, "rova(config-if-" + session.intf + ")#", true};
      case Mode::vrf:
        return {&g.vrf, "rova(config-vrf-" + session.vrf + ")#", true};
      default:
        return {&g.config, "rova(config)#", true};
    }
  };
}

}  // namespace cli
