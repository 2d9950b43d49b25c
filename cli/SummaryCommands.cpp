// The route summary of both families: counts by source and by prefix length.

#include "cli/CommandActions.h"

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "cli/DeviceState.h"
#include "cli/StateInputs.h"
#include "lib/registry/TypeRegistry.h"

namespace cli {

namespace {

using Rova::Value;

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

}  // namespace

int showRouteSummary(const Match& m, const Context& c, Output& out, bool v6) {
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

  return out.print([&](rendr::Printer& p) {
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

}  // namespace cli
