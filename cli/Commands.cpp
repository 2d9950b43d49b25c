// The rova program's commands: one table of rows, each mapped to one library object built by
// type name through the registry, with state and options as its inputs, and one operation.
// The front end includes no library class header: what it knows of the library is names.

#include "cli/Commands.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "cli/ConfigMode.h"
#include "cli/DeviceState.h"
#include "cli/StateInputs.h"
#include "lib/registry/TypeRegistry.h"
#include "platform/mox/Exception.h"
#include "platform/plexa/IpAddr.h"
#include "platform/plexa/Prefix.h"
#include "platform/plexa/RouteDistinguisher.h"
#include "platform/plexa/VrfName.h"
#include "platform/rendr/Printer.h"
#include "snapshot/Snapshot.h"
#include "snapshot/StateLayout.h"

namespace cli {

namespace {

namespace layout = Snapshot::layout;
using Rova::Value;

// ---- printing ----

// Whether the running command has begun its output. A command that fails before writing
// anything still leaves the output a command with nothing to show leaves ({} in JSON).
bool outputStarted = false;

// The output of a command that shows nothing.
void writeNothing(const Match& m, const Context& c) {
  rendr::writeEmptyOutput(c.out, static_cast<unsigned>(m.formatNumber()));
}

Action oneDocument(Action action) {
  return [action](const Match& m, const Context& c) {
    outputStarted = false;
    const auto writeEmpty = [&] {
      if (!outputStarted) writeNothing(m, c);
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

int showTypes(const Match& m, const Context& c) {
  return withPrinter(m, c, [&](rendr::Printer& p) {
    rendr::StringAttrInfo name("name", p.format());
    rendr::StringAttrInfo kind("kind", p.format());
    p.startList("types");
    for (const auto& t : registry().types()) {
      p.startListEntry();
      name.setValue(t->name);
      kind.setValue(Rova::kindName(t->kind));
      p.addAttributes("%-44s %s\n", 2, name.getArg(), kind.getArg());
      p.endListEntry();
    }
    p.endList();
  });
}

// A list of (name, type) pairs: "name Type, name Type" in text, objects in JSON.
void printParams(rendr::Printer& p, const char* listName, const std::vector<Rova::Param>& params) {
  rendr::StringAttrInfo name("name", p.format());
  rendr::StringAttrInfo type("type", p.format());
  p.startList(listName);
  for (std::size_t i = 0; i < params.size(); ++i) {
    if (i) p.addFrills(", ");
    p.startListEntry();
    name.setValue(params[i].name);
    type.setValue(params[i].typeName);
    p.addAttributes("%s %s", 2, name.getArg(), type.getArg());
    p.endListEntry();
  }
  p.endList();
}

// One registry entry: how it is built, its attributes with their kinds, its operations.
int showType(const Match& m, const Context& c) {
  const Rova::TypeEntry& t = registry().type(m.value("TYPE"));
  return withPrinter(m, c, [&](rendr::Printer& p) {
    const unsigned f = p.format();
    rendr::StringAttrInfo name("name", f);
    rendr::StringAttrInfo kind("kind", f);
    name.setValue(t.name);
    kind.setValue(Rova::kindName(t.kind));
    p.addAttributes("Type: %s (%s)\n", 2, name.getArg(), kind.getArg());

    rendr::BoolAttrInfo constructible("constructible", f);
    constructible.setValue(bool(t.construct));
    p.addAttributesJson(1, constructible.getArg());
    if (t.construct) {
      rendr::StringAttrInfo by("constructedBy", f);
      by.setValue(t.factory.empty() ? t.name : t.factory);
      p.addAttributes("Construction: %s(", 1, by.getArg());
      printParams(p, "constructorInputs", t.constructorInputs);
      p.addFrills(")\n");
    } else {
      p.addFrills("Construction: none\n");
    }

    if (!t.enumNames.empty()) {
      rendr::StringAttrInfo enumName("name", f);
      rendr::UintAttrInfo number("value", f);
      p.addFrills("Names:\n");
      p.startList("enumNames");
      for (std::size_t i = 0; i < t.enumNames.size(); ++i) {
        p.startListEntry();
        enumName.setValue(t.enumNames[i]);
        number.setValue(static_cast<std::uint32_t>(i));
        p.addAttributes("  %-30s %s\n", 2, enumName.getArg(), number.getArg());
        p.endListEntry();
      }
      p.endList();
    }

    rendr::StringAttrInfo attrName("name", f);
    rendr::StringAttrInfo attrType("type", f);
    rendr::StringAttrInfo attrKind("kind", f);
    rendr::BoolAttrInfo writable("writable", f);
    rendr::StringAttrInfo keyType("keyType", f);
    rendr::StringAttrInfo valueType("valueType", f);
    // Columns as wide as this type's longest name and type, so that every row lines up.
    const auto typeText = [](const Rova::AttrEntry& a) {
      return a.kind == Mox::AttrKind::collection ? a.keyType + " -> " + a.valueType : a.typeName;
    };
    std::size_t nameWidth = 0, typeWidth = 0;
    for (const auto& a : t.attrs) {
      nameWidth = std::max(nameWidth, a.name.size());
      typeWidth = std::max(typeWidth, typeText(a).size());
    }
    const std::string nameColumn = "  %-" + std::to_string(nameWidth + 2) + "s";
    const std::string typeColumn = "%-" + std::to_string(typeWidth + 2) + "s";
    p.addFrills(t.attrs.empty() ? "Attributes: none\n" : "Attributes:\n");
    p.startList("attributes");
    for (const auto& a : t.attrs) {
      p.startListEntry();
      attrName.setValue(a.name);
      attrKind.setValue(Rova::kindName(a.kind));
      writable.setValue(a.writable);
      attrType.setValue(a.typeName);
      p.addAttributes(nameColumn.c_str(), 1, attrName.getArg());
      if (a.kind == Mox::AttrKind::collection) {
        keyType.setValue(a.keyType);
        valueType.setValue(a.valueType);
        p.addArgs(typeColumn.c_str(), typeText(a).c_str());
        p.addAttributesJson(3, attrType.getArg(), keyType.getArg(), valueType.getArg());
      } else {
        p.addAttributes(typeColumn.c_str(), 1, attrType.getArg());
      }
      p.addAttributes("%s", 1, attrKind.getArg());
      p.addAttributesJson(1, writable.getArg());
      p.addFrills("%s\n", a.writable ? ", writable" : "");
      p.endListEntry();
    }
    p.endList();

    rendr::StringAttrInfo opName("name", f);
    rendr::StringAttrInfo result("result", f);
    p.addFrills(t.ops.empty() ? "Operations: none\n" : "Operations:\n");
    p.startList("operations");
    for (const auto& o : t.ops) {
      p.startListEntry();
      opName.setValue(o.name);
      result.setValue(o.resultType);
      p.addAttributes("  %s(", 1, opName.getArg());
      printParams(p, "parameters", o.params);
      p.addAttributes(") -> %s\n", 1, result.getArg());
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

  const char* type = v6 ? "Rova::Route6Sorter" : "Rova::RouteSorter";
  std::vector<Rova::NamedValue> args = stateInputs(state(), registry().type(type), vrf);
  args.push_back({"prefix", Value(prefix.c_str())});
  if (m.has("INTF")) {
    args.push_back({"intfStatus", intfStatus});
    args.push_back({"intf", Value(true)});
  }
  const std::string protocol = protocolCode(m.has("PROTOCOL") ? m.value("PROTOCOL") : "");
  args.push_back({"protocol", Value(protocol.c_str())});
  args.push_back({"detail", Value(m.flag("detail"))});
  args.push_back({"longerPrefixes", Value(m.flag("longer-prefixes"))});
  args.push_back({"vrfName", Value(vrf.c_str())});
  args.push_back({"host", Value(m.flag("host"))});
  args.push_back({"fd", Value(c.out)});
  args.push_back({"quantify", Value(start)});
  args.push_back({"originalMask", Value(originalMask)});

  rendr::Printer::clearOutputFailed();
  Value sorter = registry().constructNamed(type, args);
  outputStarted = true;
  const Value printArgs[] = {Value(static_cast<std::uint32_t>(c.out)),
                             Value(static_cast<std::uint32_t>(m.formatNumber()))};
  registry().call(sorter, "printRoutes", printArgs);
  return rendr::Printer::outputFailed() ? kStatusFailed : kStatusOk;
}

// ---- the route summary ----

// How the summary shows each count key the library makes, in the order shown: a protocol's
// total, then its per-type counts indented beneath it. The labels are the protocol words of
// the route listings. IPv6 counts OSPFv3 under "ospfTotal" and has no OSPF or BGP sub-types.
struct SummaryRow {
  const char* key;
  const char* label;
  bool sub = false;
  const char* label6 = nullptr;  // the IPv6 label, where it differs
};
const SummaryRow kSummaryRows[] = {
    {"connected", "connected"},
    {"static", "static"},
    {"staticPersistent", "persistent", true},
    {"staticNonPersistent", "non-persistent", true},
    {"staticNexthopGroup", "nexthop-group static"},
    {"ospfTotal", "ospf", false, "ospfv3"},
    {"ospfIntraArea", "intra-area", true},
    {"ospfInterArea", "inter-area", true},
    {"ospfExternal1", "external type 1", true},
    {"ospfExternal2", "external type 2", true},
    {"nssaExternal1", "NSSA external type 1", true},
    {"nssaExternal2", "NSSA external type 2", true},
    {"ospfv3Total", "ospfv3"},
    {"bgpTotal", "bgp"},
    {"bgpInternal", "iBGP", true},
    {"bgpExternal", "eBGP", true},
    {"isisTotal", "isis"},
    {"isisLevel1", "level-1", true},
    {"isisLevel2", "level-2", true},
    {"rip", "rip"},
    {"vcs", "vcs"},
    {"aggregate", "aggregate"},
    {"DhcpDefaultRoute", "dhcp"},
    {"dhcp", "dhcp"},
    {"internal", "internal"},
    {"attached", "attached"},
    {"", "other"},
};

struct SummaryLine {
  std::string key;
  std::string label;
  std::uint64_t count;
};

// The summary's counts by key, in the order shown: the row table's, then any key the table does
// not know, by name and under its own name, so that nothing counted goes unshown. The keys come
// from a hash map, whose order must not reach the output.
std::vector<SummaryLine> summaryLines(Value& summary, bool v6) {
  std::map<std::string, std::uint64_t> counts;
  for (auto it = registry().iterate(summary, "routeCountByType"); it->valid(); it->next())
    counts.emplace(it->key().displayText(), it->value().get<std::uint64_t>());
  std::vector<SummaryLine> lines;
  for (const SummaryRow& row : kSummaryRows) {
    const auto it = counts.find(row.key);
    if (it == counts.end()) continue;
    const char* label = v6 && row.label6 ? row.label6 : row.label;
    lines.push_back({row.key, std::string(row.sub ? "  " : "") + label, it->second});
    counts.erase(it);
  }
  for (const auto& [key, n] : counts)
    lines.push_back({key, key, n});
  return lines;
}

int showRouteSummary(const Match& m, const Context& c, bool v6) {
  const std::string vrf = vrfOf(m);
  if (int s = checkVrf(vrf, c); s >= 0) return s;
  const char* type = v6 ? "Rova::Route6Summary" : "Rova::RouteSummary";
  std::vector<Rova::NamedValue> args = stateInputs(state(), registry().type(type), vrf);
  args.push_back({"vrfName", Value(vrf.c_str())});
  Value summary = registry().constructNamed(type, args);
  registry().call(summary, "loadInternalStructures", {});
  registry().call(summary, "loadAttachedRoutes", {});

  const std::vector<SummaryLine> lines = summaryLines(summary, v6);
  std::vector<std::pair<std::uint64_t, std::uint64_t>> byMask;  // ascending length
  for (auto it = registry().iterate(summary, "routeCountByMask"); it->valid(); it->next())
    byMask.emplace_back(it->key().get<std::uint64_t>(), it->value().get<std::uint64_t>());
  const auto total = registry().attribute(summary, "totalNumRoutes").get<std::uint64_t>();

  return withPrinter(m, c, [&](rendr::Printer& p) {
    rendr::StringAttrInfo vrfAttr("vrf", p.format());
    rendr::StringAttrInfo key("key", p.format());
    rendr::UintAttrInfo length("length", p.format());
    rendr::UintAttrInfo count("count", p.format());
    rendr::UintAttrInfo totalAttr("totalNumRoutes", p.format());
    const char* rule = "------------------------------ ----------\n";
    vrfAttr.setValue(vrf);
    p.addAttributes("VRF: %s\n", 1, vrfAttr.getArg());
    p.addFrills("%-30s %10s\n%s", "Route source", "Routes", rule);
    p.startDict("routeCountByType");
    for (const SummaryLine& line : lines) {
      key.setValue(line.key);
      count.setValue(static_cast<std::uint32_t>(line.count));
      p.startSimpleDictEntry(key);
      p.addFrills("%-30s ", line.label.c_str());
      p.addAttributes("%10u\n", 1, count.getArg());
      p.endSimpleDictEntry();
    }
    p.endDict();
    totalAttr.setValue(static_cast<std::uint32_t>(total));
    p.addFrills("%s%-30s ", rule, "Total");
    p.addAttributes("%10u\n", 1, totalAttr.getArg());
    p.addFrills("\n%-30s %10s\n%s", "Prefix length", "Routes", rule);
    p.startDict("routeCountByMask");
    for (const auto& [len, n] : byMask) {
      length.setValue(static_cast<std::uint32_t>(len));
      count.setValue(static_cast<std::uint32_t>(n));
      p.startSimpleDictEntry(length);
      p.addFrills("/%-29u ", static_cast<unsigned>(len));
      p.addAttributes("%10u\n", 1, count.getArg());
      p.endSimpleDictEntry();
    }
    p.endDict();
  });
}

// ---- static route configuration ----

// The defaults a saved line leaves out, from the state's static route defaults record; a state
// without that record keeps the built-in defaults (preference 1, tag 0, no name).
Value staticRouteDefaults() {
  Value consts = registry().construct("Rova::RovaConsts", {});
  const Value defaults = state().at(layout::staticRouteDefaults);
  if (defaults.isNone()) return consts;
  const auto& r = registry();
  r.attributeIs(consts, "defaultStaticRoutePreference", r.attribute(defaults, "preference"));
  r.attributeIs(consts, "defaultStaticRouteTag", r.attribute(defaults, "tag"));
  r.attributeIs(consts, "defaultStaticRouteName", r.attribute(defaults, "name"));
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
      const Value config = state().atVrf(vrf, v6 ? layout::routing6Config : layout::routingConfig);
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

// ---- static routes in the routing information base ----

int showStaticRoutesRib(const Match& m, const Context& c) {
  const std::string vrf = vrfOf(m);
  if (int s = checkVrf(vrf, c); s >= 0) return s;
  Value rib = registry().construct("Rova::StaticRoutesRibCommon",
                                   {{"allIntfConfig", state().at(layout::intfConfig)}});
  for (const auto& leaf : {layout::routingConfig, layout::routing6Config}) {
    const Value input = state().atVrf(vrf, leaf);
    if (input.isNone()) continue;
    const Value args[] = {input, Value(true)};
    registry().call(rib, "newRouteInputConf", args);
  }
  registry().attributeIs(rib, "dynamic", Value(m.flag("dynamic")));
  registry().attributeIs(rib, "fd", Value(static_cast<std::uint32_t>(c.out)));
  registry().attributeIs(rib, "fmt", Value(static_cast<std::uint32_t>(m.formatNumber())));
  rendr::Printer::clearOutputFailed();
  outputStarted = true;
  const Value args[] = {staticRouteDefaults()};
  try {
    registry().call(rib, "dump", args);
  } catch (const rendr::outputClosedException&) {
    return kStatusOk;
  } catch (const rendr::sigintException&) {
    return kStatusOk;  // the listing has said "exiting" itself
  }
  return rendr::Printer::outputFailed() ? kStatusFailed : kStatusOk;
}

int clearStaticRoutes(const Match& m, const Context& c) {
  std::vector<std::string> vrfs;
  if (m.has("NAME")) {
    if (int s = checkVrf(m.value("NAME"), c); s >= 0) return s;
    vrfs.push_back(m.value("NAME"));
  } else {
    vrfs = state().vrfNames();
  }
  Value helper = registry().construct("Rova::ClearIntfRoutesAndViasHelper", {});
  for (const std::string& vrf : vrfs) {
    for (const auto& leaf : {layout::routingConfig, layout::routing6Config}) {
      const Value config = state().atVrf(vrf, leaf);
      if (config.isNone()) continue;
      const Value args[] = {config, Value(m.value("INTF").c_str())};
      registry().call(helper, "clearIntfRoutesAndViasHelper", args);
    }
  }
  state().changed();
  writeNothing(m, c);
  return kStatusOk;
}

// ---- nexthop groups ----

bool isNexthopGroupName(std::string_view w) {
  // The words that may follow the group's place are keywords there, not group names.
  for (std::string_view keyword : {"summary", "vrf", "counters"}) {
    if (keyword.substr(0, w.size()) == w) return false;
  }
  return !w.empty() && w.size() <= 128;
}

// The state inputs a nexthop-group object takes, by name, from the one table of them.
std::vector<Rova::NamedValue> nexthopGroupStateInputs(const char* type) {
  return stateInputs(state(), registry().type(type), L3::VrfName::kDefault);
}

// The entry counters, from the counter tables of the state; the device counts every entry
// that has a counter allocated.
Value nexthopGroupCounters() {
  Value counters = registry().construct("Rova::NexthopGroupCounterHelper", {});
  const Value mountArgs[] = {state().entityManagerValue()};
  registry().call(counters, "mountCounterBrines", mountArgs);
  registry().attributeIs(counters, "counterEnabled", Value(true));
  return counters;
}

Value nexthopGroupListing(const Match& m, const std::string& vrf) {
  std::vector<Rova::NamedValue> args = nexthopGroupStateInputs("Rova::NexthopGroupHelper");
  args.push_back({"counterHelper", nexthopGroupCounters()});
  args.push_back({"nhgName", Value(m.value("GROUP").c_str())});
  Value listing = registry().constructNamed("Rova::NexthopGroupHelper", args);
  registry().attributeIs(listing, "vrfName", Value(vrf.c_str()));
  // Selecting first: an unknown group is refused before any output.
  registry().call(listing, "processNexthopVias", {});
  return listing;
}

// Calls a library object's render(fd, fmt). A listing the user or the reader stopped has said
// so itself; runCommand gives the command the signal's status.
int render(const Match& m, const Context& c, Value& object) {
  rendr::Printer::clearOutputFailed();
  outputStarted = true;
  const Value args[] = {Value(static_cast<std::uint32_t>(c.out)),
                        Value(static_cast<std::uint32_t>(m.formatNumber()))};
  try {
    registry().call(object, "render", args);
  } catch (const rendr::sigintException&) {
    return kStatusOk;
  }
  return rendr::Printer::outputFailed() ? kStatusFailed : kStatusOk;
}

int showNexthopGroupSummary(const Match& m, const Context& c) {
  const std::string vrf = vrfOf(m);
  if (int s = checkVrf(vrf, c); s >= 0) return s;
  const std::vector<Rova::NamedValue> args =
      nexthopGroupStateInputs("Rova::NexthopGroupSummaryHelper");
  Value summary = registry().constructNamed("Rova::NexthopGroupSummaryHelper", args);
  registry().attributeIs(summary, "vrfName", Value(vrf.c_str()));
  return render(m, c, summary);
}

int showNexthopGroups(const Match& m, const Context& c) {
  const std::string vrf = vrfOf(m);
  if (int s = checkVrf(vrf, c); s >= 0) return s;
  Value listing = nexthopGroupListing(m, vrf);
  return render(m, c, listing);
}

int clearNexthopGroupCounters(const Match& m, const Context& c) {
  Value listing = nexthopGroupListing(m, L3::VrfName::kDefault);
  registry().call(listing, "clearCounters", {});
  state().changed();
  writeNothing(m, c);
  return kStatusOk;
}

// ---- writing the state back ----

int writeState(const Match& m, const Context& c) {
  try {
    state().save(m.has("FILE") ? m.value("FILE") : std::string());
  } catch (const Snapshot::SaveError& e) {
    throw Mox::RangeException(std::string("Cannot write ") + e.what());
  }
  writeNothing(m, c);
  return kStatusOk;
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

// An interface the state does not have is one about to be created, as `interface INTF` in
// configuration mode creates it: it is in the default VRF and is checked against its
// interfaces.
int checkIpAddress(const Match& m, const Context& c) {
  const Value args[] = {
      state().at(layout::ipConfig),
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
  const Value args[] = {
      state().at(layout::ip6Config),
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
  const Value args[] = {v6 ? state().at(layout::ip6Config) : state().at(layout::ipConfig),
                        Value(nexthop.c_str()), Value(vrf.c_str())};
  const bool invalid = registry().call(checker, "check", args).get<bool>();
  return printVerdict(m, c, !invalid,
                      invalid
                          ? "Next hop " + nexthop + " is an address of this router in VRF " + vrf
                          : std::string());
}

int checkRd(const Match& m, const Context& c) {
  const Value args[] = {state().at(layout::rdInputDir), Value(m.value("NAME").c_str()),
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
  grammar.addType({"FILE", "File name", anyWord, {}});
  grammar.addType({"TYPE",
                   "A registered type name (Rova::RouteSorter; show types lists them)",
                   [](std::string_view w) { return registry().find(w) != nullptr; },
                   {}});
  grammar.addType({"GROUP", "Nexthop group name", isNexthopGroupName, {}});
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
  grammar.addKeywordHelp("clear", "Reset functions");
  grammar.addKeywordHelp("static-routes", "Static routes");
  grammar.addKeywordHelp("nexthop-group", "Nexthop groups");

  std::vector<Row> rows = {
      {"show version", {{"version", "Software version and the state shown"}}, showVersion},
      {"show types", {{"types", "The library's registered types"}}, showTypes},
      {"show type TYPE",
       {{"type", "One registered type: construction, attributes, operations"}},
       showType},
      {"show value VALUE", {{"value", "Parse a value text form and write it back"}}, showValue},
      {"show ip route [vrf NAME] [A.B.C.D | A.B.C.D/LEN [longer-prefixes]] [PROTOCOL] [detail] "
       "[host] [quantify]",
       {{"route", "IPv4 routing table"},
        {"host", "Host routes: receive, attached and FIB host entries"},
        {"quantify", "Time the listing"},
        {"A.B.C.D", "The longest match for an address"},
        {"A.B.C.D/LEN", "The route for a prefix"}},
       [](const Match& m, const Context& c) { return showRoute(m, c, false); }},
      {"show ip route [vrf NAME] summary",
       {{"route", "IPv4 routing table"},
        {"summary", "Route counts by source and by prefix length"}},
       [](const Match& m, const Context& c) { return showRouteSummary(m, c, false); }},
      {"show ipv6 route [vrf NAME] [X:X::X | X:X::X/LEN [longer-prefixes]] [interface INTF] "
       "[PROTOCOL] [detail] [host] [quantify]",
       {{"route", "IPv6 routing table"},
        {"interface", "Routes through one interface"},
        {"host", "Host routes: receive, attached and FIB host entries"},
        {"quantify", "Time the listing"},
        {"X:X::X", "The longest match for an address"},
        {"X:X::X/LEN", "The route for a prefix"}},
       [](const Match& m, const Context& c) { return showRoute(m, c, true); }},
      {"show ipv6 route [vrf NAME] summary",
       {{"route", "IPv6 routing table"},
        {"summary", "Route counts by source and by prefix length"}},
       [](const Match& m, const Context& c) { return showRouteSummary(m, c, true); }},
      {"show running-config static-routes [all]",
       {{"running-config", "Current configuration"},
        {"static-routes", "Static routes"},
        {"all", "With the default preference and tag too"}},
       showStaticRoutes},
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
       showNexthopGroupSummary},
      {"show nexthop-group [GROUP] [vrf NAME]",
       {{"GROUP", "One group only"}, {"vrf", "Whose hardware to check (default: the default VRF)"}},
       showNexthopGroups},
      {"clear nexthop-group counters [GROUP]",
       {{"counters", "Start the entry counters from zero"}, {"GROUP", "One group only"}},
       clearNexthopGroupCounters},
      {"write [FILE]",
       {{"write", "Save the state to the file it came from"},
        {"FILE", "Save it to this file instead"}},
       writeState},
      {"configure", {{"configure", "Enter configuration mode"}}, enterConfigMode},
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
    row.action = oneDocument(std::move(row.action));
  grammar.addRows(std::move(rows));
}

int finishOneShot(int status, const Context& context) {
  if (status != kStatusOk || !state().unsaved()) return status;
  if (state().filePath().empty()) {
    context.error("% Not saved: the " + state().source() +
                  " has no file of its own; give the state with --state FILE");
    return status;
  }
  try {
    state().save("");
  } catch (const Snapshot::SaveError& e) {
    context.error(std::string("% Cannot write ") + e.what());
    return kStatusFailed;
  }
  return status;
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
