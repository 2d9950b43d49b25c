// The rova program's commands: one table of rows, each mapped to one library object built by
// type name through the registry, with state and options as its inputs, and one operation.
// The front end includes no library class header: what it knows of the library is names.

#include "cli/Commands.h"

#include <chrono>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "cli/DeviceState.h"
#include "lib/registry/TypeRegistry.h"
#include "platform/mox/Exception.h"
#include "platform/plexa/IpAddr.h"
#include "platform/plexa/Prefix.h"
#include "platform/plexa/RouteDistinguisher.h"
#include "platform/plexa/VrfName.h"
#include "platform/rendr/Printer.h"
#include "snapshot/Snapshot.h"
#include "snapshot/StatePaths.h"

namespace cli {

namespace {

namespace paths = Snapshot::paths;
using Rova::Value;

const Rova::TypeRegistry& registry() {
  return Rova::TypeRegistry::instance();
}
DeviceState& state() {
  return DeviceState::instance();
}

// ---- printing ----

// Whether the running command has begun its output. In JSON, standard output carries one
// document whatever happens: a command that fails before writing anything writes {}.
bool outputStarted = false;

Action jsonSafe(Action action) {
  return [action](const Match& m, const Context& c) {
    outputStarted = false;
    const auto writeEmpty = [&] {
      if (m.format() == Format::json && !outputStarted) c.print("{}\n");
    };
    try {
      const int status = action(m, c);
      if (status != kStatusOk) writeEmpty();
      return status;
    } catch (...) {
      writeEmpty();
      throw;
    }
  };
}

// Runs `body` with a printer on the command's output. A signal ends the output with
// "exiting" and the reason (on stderr in JSON, where stdout carries only the document), and
// runCommand gives the command the signal's status; a reader that went away ends it quietly.
// A write error the printer reported fails the command.
template <class Body>
int withPrinter(const Match& m, const Context& c, Body body) {
  rendr::Printer::clearOutputFailed();
  outputStarted = true;
  {
    rendr::Printer p(c.out, static_cast<unsigned>(m.formatNumber()), true, false, true, 0);
    try {
      body(p);
    } catch (const rendr::sigintException& e) {
      p.reportStop(e);
    }
  }
  return rendr::Printer::outputFailed() ? kStatusFailed : kStatusOk;
}

// One registry value as a printer attribute under `name`; a registered value becomes a
// submodel of its attributes. Collections are not shown.
void printValue(rendr::Printer& p, const std::string& name, const Value& v) {
  const unsigned f = p.format();
  if (v.holds<bool>()) {
    rendr::BoolAttrInfo a(name.c_str(), f);
    a.setValue(v.get<bool>());
    p.addAttributesJson(1, a.getArg());
  } else if (v.holds<std::uint64_t>()) {
    rendr::Uint64AttrInfo a(name.c_str(), f);
    a.setValue(v.get<std::uint64_t>());
    p.addAttributesJson(1, a.getArg());
  } else if (v.holds<std::int64_t>() && std::in_range<std::int32_t>(v.get<std::int64_t>())) {
    rendr::IntAttrInfo a(name.c_str(), f);
    a.setValue(static_cast<std::int32_t>(v.get<std::int64_t>()));
    p.addAttributesJson(1, a.getArg());
  } else if (v.holds<std::int64_t>() || v.holds<double>()) {
    rendr::DoubleAttrInfo a(name.c_str(), f);
    a.setValue(v.holds<double>() ? v.get<double>() : double(v.get<std::int64_t>()));
    p.addAttributesJson(1, a.getArg());
  } else if (v.holds<Mox::Ptr<Rova::BoxedValue>>()) {
    const auto& type = registry().typeOf(v);
    if (type.kind == Rova::TypeKind::enumeration) {
      rendr::StringAttrInfo a(name.c_str(), f);
      a.setValue(v.displayText().substr(1, v.displayText().size() - 2));
      p.addAttributesJson(1, a.getArg());
      return;
    }
    p.startSubmodel(name.c_str());
    for (const auto& attr : type.attrs) {
      if (attr.kind != Mox::AttrKind::collection) printValue(p, attr.name, attr.get(v));
    }
    p.endSubmodel();
  } else if (!v.isNone() && !v.holds<Mox::Ptr<Mox::Entity>>()) {
    rendr::StringAttrInfo a(name.c_str(), f);
    a.setValue(v.displayText());
    p.addAttributesJson(1, a.getArg());
  }
}

// ---- argument types ----

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
  if (w.empty() || !std::isalpha(static_cast<unsigned char>(w[0]))) return false;
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

// The protocol words of the route listings and the route codes they select.
struct Protocol {
  const char* word;
  const char* code;
  const char* help;
};
const Protocol kProtocols[] = {
    {"connected", "C", "Connected routes"}, {"static", "S", "Static routes"},
    {"kernel", "K", "Kernel routes"},       {"ospf", "O", "OSPF routes"},
    {"ospfv3", "O3", "OSPFv3 routes"},      {"bgp", "B", "BGP routes"},
    {"isis", "I", "IS-IS routes"},          {"rip", "R", "RIP routes"},
    {"aggregate", "A", "Aggregate routes"}, {"vcs", "V", "VXLAN Control Service routes"},
    {"dhcp", "DH", "DHCP client routes"},   {"martian", "M", "Martian routes"},
};

std::string protocolCode(const std::string& word) {
  for (const auto& p : kProtocols) {
    if (word == p.word) return p.code;
  }
  return "";
}

// ---- state inputs ----

std::string vrfOf(const Match& m, const char* key = "NAME") {
  return m.has(key) ? m.value(key) : std::string(L3::VrfName::kDefault);
}

// Refuses a VRF the state does not describe; returns the status to leave with, or -1.
int checkVrf(const std::string& vrf, const Context& c) {
  if (state().hasVrf(vrf)) return -1;
  c.error("% VRF " + Mox::shownWord(vrf) + " does not exist");
  return kStatusFailed;
}

// The same for an interface.
int checkIntf(const std::string& intf, const Context& c) {
  if (!state().intfStatus(intf).isNone()) return -1;
  c.error("% Interface " + Mox::shownWord(intf) + " does not exist");
  return kStatusFailed;
}

double clockSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// ---- show version, show types, show value ----

int showVersion(const Match& m, const Context& c) {
  return withPrinter(m, c, [&](rendr::Printer& p) {
    rendr::StringAttrInfo version("version", p.format());
    rendr::StringAttrInfo hostname("hostname", p.format());
    rendr::StringAttrInfo source("state", p.format());
    version.setValue(ROVA_VERSION);
    hostname.setValue(state().hostname());
    source.setValue(state().source());
    p.addAttributes("rova %s\n", 1, version.getArg());
    p.addAttributes("Device: %s\n", 1, hostname.getArg());
    p.addAttributes("State: %s\n", 1, source.getArg());
  });
}

const char* kindName(Rova::TypeKind k) {
  switch (k) {
    case Rova::TypeKind::value:
      return "value";
    case Rova::TypeKind::entity:
      return "entity";
    case Rova::TypeKind::enumeration:
      return "enumeration";
  }
  return "";
}

int showTypes(const Match& m, const Context& c) {
  return withPrinter(m, c, [&](rendr::Printer& p) {
    rendr::StringAttrInfo name("name", p.format());
    rendr::StringAttrInfo kind("kind", p.format());
    p.startList("types");
    for (const auto& t : registry().types()) {
      p.startListEntry();
      name.setValue(t->name);
      kind.setValue(kindName(t->kind));
      p.addAttributes("%-44s %s\n", 2, name.getArg(), kind.getArg());
      p.endListEntry();
    }
    p.endList();
  });
}

int showValue(const Match& m, const Context& c) {
  Value v;
  try {
    v = registry().parse(m.value("VALUE"));
  } catch (const Mox::RangeException& e) {
    throw Mox::RangeException(std::string("Invalid value text: ") + e.what());
  }
  const auto& type = registry().typeOf(v);
  return withPrinter(m, c, [&](rendr::Printer& p) {
    rendr::StringAttrInfo typeName("type", p.format());
    rendr::StringAttrInfo text("text", p.format());
    typeName.setValue(type.name);
    text.setValue(registry().text(v));
    p.addAttributesJson(1, typeName.getArg());
    p.addAttributes("%s\n", 1, text.getArg());
    p.startSubmodel("attributes");
    for (const auto& attr : type.attrs) {
      if (attr.kind != Mox::AttrKind::collection) printValue(p, attr.name, attr.get(v));
    }
    p.endSubmodel();
  });
}

// ---- the route listings ----

int showRoute(const Match& m, const Context& c, bool v6) {
  const double start = m.flag("quantify") ? clockSeconds() : 0.0;
  const std::string vrf = vrfOf(m);
  if (int s = checkVrf(vrf, c); s >= 0) return s;

  // An address alone is its host prefix, and the listing says so with the address alone.
  const char* addrKey = v6 ? "X:X::X" : "A.B.C.D";
  const char* prefixKey = v6 ? "X:X::X/LEN" : "A.B.C.D/LEN";
  std::string prefix;
  bool originalMask = false;
  if (m.has(prefixKey)) {
    prefix = m.value(prefixKey);
    originalMask = true;
  } else if (m.has(addrKey)) {
    prefix = m.value(addrKey) + (v6 ? "/128" : "/32");
  }
  Value intfStatus;
  if (v6 && m.has("INTF")) {
    if (int s = checkIntf(m.value("INTF"), c); s >= 0) return s;
    intfStatus = state().intfStatus(m.value("INTF"));
  }

  const auto& d = state();
  std::vector<Value> args;
  args.push_back(d.atVrf(vrf, v6 ? paths::kRouting6Config : paths::kRoutingConfig));
  args.push_back(d.atVrf(vrf, v6 ? paths::kFib6Route : paths::kFibRoute));
  args.push_back(d.atVrf(vrf, v6 ? paths::kFib6Fec : paths::kFibFec));
  if (!v6) args.push_back(d.atVrf(vrf, paths::kFib6Fec));
  args.push_back(d.at(paths::kTunnelFib));
  args.push_back(d.at(paths::kArpStatus));
  args.push_back(d.at(paths::kVrfIdMap));
  args.push_back(d.at(paths::kIntfConfig));
  args.push_back(d.at(v6 ? paths::kIp6Status : paths::kIpStatus));
  args.push_back(d.atVrf(vrf, paths::kHwVrfStatus));
  args.push_back(d.at(v6 ? paths::kRouting6Hw : paths::kRoutingHw));
  args.push_back(d.at(paths::kNhgEntryStatus));
  args.push_back(d.atVrf(vrf, v6 ? paths::kKernelUnprogrammed6 : paths::kKernelUnprogrammed));
  args.push_back(d.at(paths::kEvpnVxlan));
  args.push_back(d.at(paths::kTunnelTables));
  args.push_back(Value(prefix.c_str()));
  args.push_back(intfStatus);
  args.push_back(Value(protocolCode(m.has("PROTOCOL") ? m.value("PROTOCOL") : "").c_str()));
  args.push_back(Value(m.flag("detail")));
  args.push_back(Value(m.flag("longer-prefixes")));
  args.push_back(Value(vrf.c_str()));
  args.push_back(Value(m.flag("host")));
  args.push_back(Value(c.out));
  args.push_back(Value(start));
  args.push_back(Value(originalMask));
  if (v6) args.push_back(Value(m.has("INTF")));
  args.push_back(d.at(paths::kSrTePolicy));

  rendr::Printer::clearOutputFailed();
  Value sorter = registry().construct(v6 ? "Rova::Route6Sorter" : "Rova::RouteSorter", args);
  outputStarted = true;
  const Value printArgs[] = {Value(static_cast<std::uint32_t>(c.out)),
                             Value(static_cast<std::uint32_t>(m.formatNumber()))};
  registry().call(sorter, "printRoutes", printArgs);
  return rendr::Printer::outputFailed() ? kStatusFailed : kStatusOk;
}

// ---- static route configuration ----

Value staticRouteDefaults() {
  Value consts = registry().construct("Rova::RovaConsts", {});
  const Value defaults = state().at(paths::kStaticRouteDefaults);
  if (!defaults.isNone()) {
    const auto& r = registry();
    const auto* entry = r.find(defaults.kindName());
    if (entry) {
      registry().attributeIs(consts, "defaultStaticRoutePreference",
                             entry->attr("preference")->get(defaults));
      registry().attributeIs(consts, "defaultStaticRouteTag", entry->attr("tag")->get(defaults));
      registry().attributeIs(consts, "defaultStaticRouteName", entry->attr("name")->get(defaults));
    }
  }
  return consts;
}

int showStaticRoutes(const Match& m, const Context& c) {
  struct Section {
    std::string vrf;
    std::string text;
  };
  // Collect first: the saver may throw, and a half-written configuration helps nobody.
  std::vector<Section> sections;
  const Value consts = staticRouteDefaults();
  for (const std::string& vrf : state().vrfNames()) {
    for (bool v6 : {false, true}) {
      const Value config = state().atVrf(vrf, v6 ? paths::kRouting6Config : paths::kRoutingConfig);
      if (config.isNone()) continue;
      std::string routeCmd = v6 ? "ipv6 route " : "ip route ";
      if (vrf != L3::VrfName::kDefault) routeCmd += "vrf " + vrf + " ";
      Value saver = registry().construct("Rova::StaticRoutesCliSaver", {});
      const Value args[] = {config, Value(m.flag("all")), Value(routeCmd.c_str()), consts};
      const Value text = registry().call(saver, "save", args);
      sections.push_back({vrf, text.displayText()});
    }
  }
  return withPrinter(m, c, [&](rendr::Printer& p) {
    rendr::StringAttrInfo vrfAttr("vrf", p.format());
    rendr::StringAttrInfo command("command", p.format());
    p.startList("staticRoutes");
    for (const auto& s : sections) {
      std::string_view text = s.text;
      vrfAttr.setValue(s.vrf);
      while (!text.empty()) {
        const auto end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        p.startListEntry();
        command.setValue(line);
        p.addAttributesJson(1, vrfAttr.getArg());
        p.addAttributes("%s\n", 1, command.getArg());
        p.endListEntry();
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
      }
    }
    p.endList();
  });
}

// ---- configuration checks ----

// Prints a check's answer: "acceptable", or the refusal; exit status 0 or 1.
int printVerdict(const Match& m, const Context& c, bool acceptable, const std::string& msg,
                 const char* msgKey = "msg") {
  const int printed = withPrinter(m, c, [&](rendr::Printer& p) {
    rendr::BoolAttrInfo ok("acceptable", p.format());
    rendr::StringAttrInfo text(msgKey, p.format());
    ok.setValue(acceptable);
    text.setValue(msg);
    p.addAttributesJson(2, ok.getArg(), text.getArg());
    p.addFrills("%s\n", acceptable ? "acceptable" : msg.c_str());
  });
  if (printed != kStatusOk) return printed;
  return acceptable ? kStatusOk : kStatusFailed;
}

const char* matchType(std::string_view word, const char* fallback) {
  if (word == "none") return "allowNoMatch";
  if (word == "exact") return "allowExactMatch";
  if (word == "address") return "allowAddressMatch";
  return fallback;
}

int checkResult(const Match& m, const Context& c, const Value& params, const char* checker) {
  Value check = registry().construct(checker, {});
  const Value args[] = {params};
  const Value result = registry().call(check, "check", args);
  return printVerdict(m, c, registry().attribute(result, "acceptable").get<bool>(),
                      registry().attribute(result, "msg").displayText());
}

int checkIpAddress(const Match& m, const Context& c) {
  if (int s = checkIntf(m.value("INTF"), c); s >= 0) return s;
  const Value args[] = {
      state().at(paths::kIpConfig),
      Value(m.value("INTF").c_str()),
      Value(m.has("TEXT") ? m.value("TEXT").c_str() : "Management"),
      Value(matchType(m.after("primary-match"), "allowExactMatch")),
      Value(matchType(m.after("secondary-match"), "allowNoMatch")),
      Value(m.value("A.B.C.D/LEN").c_str()),
  };
  return checkResult(m, c, registry().construct("Rova::AddressQueryParams", args),
                     "Rova::AddressAssignmentChecker");
}

int checkIp6Address(const Match& m, const Context& c) {
  if (int s = checkIntf(m.value("INTF"), c); s >= 0) return s;
  const Value args[] = {
      state().at(paths::kIp6Config),
      Value(m.value("INTF").c_str()),
      Value(m.has("TEXT") ? m.value("TEXT").c_str() : "Management"),
      Value(m.value("X:X::X/LEN").c_str()),
  };
  return checkResult(m, c, registry().construct("Rova::Address6QueryParams", args),
                     "Rova::Address6AssignmentChecker");
}

int checkNexthop(const Match& m, const Context& c, bool v6) {
  const std::string vrf = vrfOf(m);
  if (int s = checkVrf(vrf, c); s >= 0) return s;
  const std::string nexthop = m.value(v6 ? "X:X::X" : "A.B.C.D");
  Value checker =
      registry().construct(v6 ? "Rova::InvalidNextHop6Checker" : "Rova::InvalidNextHopChecker", {});
  const Value args[] = {state().at(v6 ? paths::kIp6Config : paths::kIpConfig),
                        Value(nexthop.c_str()), Value(vrf.c_str())};
  const bool invalid = registry().call(checker, "check", args).get<bool>();
  return printVerdict(m, c, !invalid,
                      invalid
                          ? "Next hop " + nexthop + " is an address of this router in VRF " + vrf
                          : std::string());
}

int checkRd(const Match& m, const Context& c) {
  const Value args[] = {state().at(paths::kRdInputDir), Value(m.value("NAME").c_str()),
                        Value(m.value("RD").c_str())};
  const Value checker = registry().construct("Rova::RdAssignmentChecker", args);
  return printVerdict(m, c, registry().attribute(checker, "acceptable").get<bool>(),
                      registry().attribute(checker, "errorMessage").displayText(), "errorMessage");
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
  std::vector<Choice> protocols;
  for (const auto& p : kProtocols)
    protocols.push_back({p.word, p.help});
  grammar.addType({"PROTOCOL", "Routes of one protocol", {}, protocols});

  grammar.addKeywordHelp("show", "Show running system information");
  grammar.addKeywordHelp("check", "Check proposed configuration");
  grammar.addKeywordHelp("ip", "IPv4");
  grammar.addKeywordHelp("ipv6", "IPv6");
  grammar.addKeywordHelp("vrf", "A VRF");
  grammar.addKeywordHelp("detail", "More detail");
  grammar.addKeywordHelp("longer-prefixes", "The prefix and every route inside it");

  std::vector<Row> rows = {
      {"show version", {{"version", "Software version and the state shown"}}, showVersion},
      {"show types", {{"types", "The library's registered types"}}, showTypes},
      {"show value VALUE", {{"value", "Parse a value text form and write it back"}}, showValue},
      {"show ip route [vrf NAME] [A.B.C.D | A.B.C.D/LEN [longer-prefixes]] [PROTOCOL] [detail] "
       "[host] [quantify]",
       {{"route", "IPv4 routing table"},
        {"host", "Host routes: receive, attached and FIB host entries"},
        {"quantify", "Time the listing"},
        {"A.B.C.D", "The longest match for an address"},
        {"A.B.C.D/LEN", "The route for a prefix"}},
       [](const Match& m, const Context& c) { return showRoute(m, c, false); }},
      {"show ipv6 route [vrf NAME] [X:X::X | X:X::X/LEN [longer-prefixes]] [interface INTF] "
       "[PROTOCOL] [detail] [host]",
       {{"route", "IPv6 routing table"},
        {"interface", "Routes through one interface"},
        {"host", "Host routes: receive, attached and FIB host entries"},
        {"X:X::X", "The longest match for an address"},
        {"X:X::X/LEN", "The route for a prefix"}},
       [](const Match& m, const Context& c) { return showRoute(m, c, true); }},
      {"show running-config static-routes [all]",
       {{"running-config", "Current configuration"},
        {"static-routes", "Static routes"},
        {"all", "With the default preference and tag too"}},
       showStaticRoutes},
      {"check ip address INTF A.B.C.D/LEN [primary-match (none|exact|address)] "
       "[secondary-match (none|exact|address)] [mgmt-prefix TEXT]",
       {{"address", "May this address be assigned to the interface?"},
        {"primary-match", "How an equal primary address on the interface is judged"},
        {"secondary-match", "How an equal secondary address on the interface is judged"},
        {"none", "Any equal address is a conflict"},
        {"exact", "An equal address conflicts when its mask length differs"},
        {"address", "An equal address never conflicts"},
        {"mgmt-prefix", "Name prefix of management interfaces (default Management)"}},
       checkIpAddress},
      {"check ipv6 address INTF X:X::X/LEN [mgmt-prefix TEXT]",
       {{"address", "May this address be assigned to the interface?"},
        {"mgmt-prefix", "Name prefix of management interfaces (default Management)"}},
       checkIp6Address},
      {"check ip nexthop A.B.C.D [vrf NAME]",
       {{"nexthop", "Is this next hop one of the router's own addresses?"}},
       [](const Match& m, const Context& c) { return checkNexthop(m, c, false); }},
      {"check ipv6 nexthop X:X::X [vrf NAME]",
       {{"nexthop", "Is this next hop one of the router's own addresses?"}},
       [](const Match& m, const Context& c) { return checkNexthop(m, c, true); }},
      {"check rd NAME RD",
       {{"rd", "Is this route distinguisher free for the VRF?"}, {"NAME", "The VRF to receive it"}},
       checkRd},
  };
  for (Row& row : rows)
    row.action = jsonSafe(std::move(row.action));
  grammar.addRows(std::move(rows));
}

int loadState(const std::string& path, std::span<const std::string> command,
              const Context& context) {
  try {
    DeviceState::instance().load(path);
  } catch (const Snapshot::LoadError& e) {
    // A file that cannot be read is named once, here.
    return refuseLine(command,
                      "% Cannot load state " +
                          (path.empty() ? std::string("(built-in)") : Mox::shownWord(path, '\0')) +
                          ": " + (e.file().empty() ? e.what() : e.reason()),
                      kStatusUsage, context);
  }
  return kStatusOk;
}

}  // namespace cli
