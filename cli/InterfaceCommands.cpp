// The listings around the routes: VRFs, interfaces with their addresses and state, and the
// resolved neighbours, read from the state's own tables.

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "cli/CommandActions.h"
#include "cli/DeviceState.h"

namespace cli {

namespace {

namespace layout = Snapshot::layout;

const Statum::EntityManager& em() {
  return state().entities();
}

std::string vrfText(const L3::VrfName& vrf) {
  return vrf.empty() ? std::string(L3::VrfName::kDefault) : vrf.stringValue();
}

// The VRF an interface is in: its own configuration's, else its IPv4 or IPv6 configuration's,
// else the default VRF. A configuration that links it to no VRF gives the empty name.
std::string vrfOfIntf(const Plexa::IntfId& id) {
  if (auto config = layout::find(em(), layout::intfConfig)) {
    if (const auto* c = config->intfConfig().find(id); c && *c) return (*c)->vrf().stringValue();
  }
  if (auto ip = layout::find(em(), layout::ipConfig)) {
    if (const auto* c = ip->intfConfig().find(id); c && *c) return (*c)->vrf().stringValue();
  }
  if (auto ip6 = layout::find(em(), layout::ip6Config)) {
    if (const auto* c = ip6->intf().find(id); c && *c) return (*c)->vrf().stringValue();
  }
  return std::string(L3::VrfName::kDefault);
}

// "up", "down", or "disabled" when the interface is shut down.
std::string intfState(const Plexa::IntfId& id) {
  if (auto config = layout::find(em(), layout::intfConfig)) {
    if (const auto* c = config->intfConfig().find(id); c && *c && !(*c)->enabled())
      return "disabled";
  }
  if (auto status = layout::find(em(), layout::intfStatus)) {
    if (const auto* s = status->intfStatus().find(id); s && *s)
      return (*s)->operUp() ? "up" : "down";
  }
  return "down";
}

std::string description(const Plexa::IntfId& id) {
  if (auto config = layout::find(em(), layout::intfConfig)) {
    if (const auto* c = config->intfConfig().find(id); c && *c)
      return (*c)->description().stringValue();
  }
  return {};
}

// Every interface the state names, in counting order (Ethernet2 before Ethernet10).
std::vector<Plexa::IntfId> allInterfaces() {
  std::map<std::string, Plexa::IntfId> byName;
  const auto add = [&](const Plexa::IntfId& id) { byName.emplace(id.stringValue(), id); };
  if (auto config = layout::find(em(), layout::intfConfig)) {
    for (const auto& [id, c] : config->intfConfig())
      add(id);
  }
  if (auto status = layout::find(em(), layout::intfStatus)) {
    for (const auto& [id, s] : status->intfStatus())
      add(id);
  }
  if (auto ip = layout::find(em(), layout::ipConfig)) {
    for (const auto& [id, c] : ip->intfConfig())
      add(id);
  }
  if (auto ip6 = layout::find(em(), layout::ip6Config)) {
    for (const auto& [id, c] : ip6->intf())
      add(id);
  }
  std::vector<std::string> names;
  for (const auto& [name, id] : byName)
    names.push_back(name);
  std::sort(names.begin(), names.end(), naturalLess);
  std::vector<Plexa::IntfId> ids;
  for (const std::string& name : names)
    ids.push_back(byName.at(name));
  return ids;
}

bool unset(const Plexa::IpAddrWithMask& a) {
  return a.len() == 0 && a.address() == Plexa::IpAddr();
}

}  // namespace

// ---- show vrf ----

int showVrfs(const Match&, const Context&, Output& out) {
  std::map<std::string, std::vector<std::string>> intfs;
  for (const Plexa::IntfId& id : allInterfaces())
    intfs[vrfOfIntf(id)].push_back(id.stringValue());
  return out.print([&](rendr::Printer& p) {
    const unsigned f = p.format();
    rendr::StringAttrInfo name("name", f);
    rendr::UintAttrInfo v4("ipv4Routes", f);
    rendr::UintAttrInfo v6("ipv6Routes", f);
    rendr::StringAttrInfo intf("name", f);
    p.addFrills("%-20s %11s %11s  %s\n", "VRF", "IPv4 routes", "IPv6 routes", "Interfaces");
    p.addFrills("%-20s %11s %11s  %s\n", "--------------------", "-----------", "-----------",
                "----------");
    auto vrfs = p.dict("vrfs");
    for (const std::string& vrf : state().vrfNames()) {
      name.setValue(vrf);
      auto entry = p.dictEntry(name);
      auto routes = layout::find(em(), layout::fibRoute, vrf);
      auto routes6 = layout::find(em(), layout::fib6Route, vrf);
      v4.setValue(routes ? static_cast<std::uint32_t>(routes->size()) : 0);
      v6.setValue(routes6 ? static_cast<std::uint32_t>(routes6->size()) : 0);
      p.addAttributes("%-20s %11u %11u  ", 3, name.getArg(), v4.getArg(), v6.getArg());
      {
        auto list = p.list("interfaces");
        bool first = true;
        for (const std::string& i : intfs[vrf]) {
          auto item = p.listEntry();
          intf.setValue(i);
          p.addAttributes(first ? "%s" : ", %s", 1, intf.getArg());
          first = false;
        }
      }
      p.addText("\n");
      p.itemDone();
    }
  });
}

// ---- show interfaces status ----

int showIntfStatus(const Match&, const Context&, Output& out) {
  return out.print([&](rendr::Printer& p) {
    const unsigned f = p.format();
    rendr::StringAttrInfo name("name", f);
    rendr::StringAttrInfo desc("description", f);
    rendr::StringAttrInfo link("linkStatus", f);
    rendr::StringAttrInfo vrf("vrf", f);
    p.addFrills("%-16s %-28s %-10s %s\n", "Port", "Name", "Status", "Vrf");
    auto statuses = p.dict("interfaceStatuses");
    for (const Plexa::IntfId& id : allInterfaces()) {
      name.setValue(id.stringValue());
      desc.setValue(description(id));
      const std::string s = intfState(id);
      link.setValue(s == "up" ? "connected" : s == "down" ? "notconnect" : "disabled");
      vrf.setValue(vrfOfIntf(id));
      auto entry = p.dictEntry(name);
      p.addAttributes("%-16s %-28s %-10s %s\n", 4, name.getArg(), desc.getArg(), link.getArg(),
                      vrf.getArg());
      p.itemDone();
    }
  });
}

// ---- show ip interface [brief], show ipv6 interface brief ----

int showIpIntf(const Match& m, const Context& c, Output& out) {
  const bool brief = m.flag("brief");
  const bool anyVrf = !m.has("NAME");
  const std::string only = vrfOf(m);
  if (!anyVrf) {
    if (int s = checkVrf(only, c); s >= 0) return s;
  }
  auto config = layout::find(em(), layout::ipConfig);
  return out.print([&](rendr::Printer& p) {
    const unsigned f = p.format();
    rendr::StringAttrInfo name("name", f);
    rendr::StringAttrInfo addr("ipAddress", f);
    rendr::StringAttrInfo status("status", f);
    rendr::StringAttrInfo vrf("vrf", f);
    rendr::StringAttrInfo desc("description", f);
    rendr::StringAttrInfo secondary("address", f);
    rendr::StringAttrInfo virt("virtualAddress", f);
    if (brief) {
      p.addFrills("%-16s %-20s %-10s %s\n", "Interface", "IP Address", "Status", "Vrf");
      p.addFrills("%-16s %-20s %-10s %s\n", "----------------", "--------------------",
                  "----------", "--------");
    }
    auto intfs = p.dict("interfaces");
    if (!config) return;
    std::vector<std::string> names;
    std::map<std::string, Plexa::IntfId> ids;
    for (const auto& [id, ic] : config->intfConfig()) {
      names.push_back(id.stringValue());
      ids.emplace(id.stringValue(), id);
    }
    std::sort(names.begin(), names.end(), naturalLess);
    for (const std::string& n : names) {
      const Plexa::IntfId& id = ids.at(n);
      const auto& ic = *config->intfConfig().find(id);
      if (!ic) continue;
      const std::string intfVrfName = vrfOfIntf(id);
      if (!anyVrf && intfVrfName != only) continue;
      name.setValue(n);
      addr.setValue(unset(ic->addrWithMask()) ? std::string("unassigned")
                                              : ic->addrWithMask().stringValue());
      status.setValue(intfState(id));
      vrf.setValue(intfVrfName);
      auto entry = p.dictEntry(name);
      if (brief) {
        p.addAttributes("%-16s %-20s %-10s %s\n", 4, name.getArg(), addr.getArg(), status.getArg(),
                        vrf.getArg());
      } else {
        desc.setValue(description(id));
        p.addAttributes("%s is %s\n", 2, name.getArg(), status.getArg());
        p.addAttributes("  Description: %s\n", 1, desc.getArg());
        p.addAttributes("  Internet address is %s\n", 1, addr.getArg());
        {
          auto list = p.list("secondaryAddresses");
          for (const auto& a : ic->secondaryWithMask()) {
            auto item = p.listEntry();
            secondary.setValue(a.stringValue());
            p.addAttributes("  Secondary address is %s\n", 1, secondary.getArg());
          }
        }
        {
          auto list = p.list("virtualSecondaryAddresses");
          for (const auto& a : ic->virtualSecondaryWithMask()) {
            auto item = p.listEntry();
            secondary.setValue(a.stringValue());
            p.addAttributes("  Virtual secondary address is %s\n", 1, secondary.getArg());
          }
        }
        if (!unset(ic->virtualAddrWithMask())) {
          virt.setValue(ic->virtualAddrWithMask().stringValue());
          p.addAttributes("  Virtual address is %s\n", 1, virt.getArg());
        }
        p.addAttributes("  VRF: %s\n", 1, vrf.getArg());
      }
      p.itemDone();
    }
  });
}

int showIp6IntfBrief(const Match& m, const Context& c, Output& out) {
  const bool anyVrf = !m.has("NAME");
  const std::string only = vrfOf(m);
  if (!anyVrf) {
    if (int s = checkVrf(only, c); s >= 0) return s;
  }
  auto config = layout::find(em(), layout::ip6Config);
  return out.print([&](rendr::Printer& p) {
    const unsigned f = p.format();
    rendr::StringAttrInfo name("name", f);
    rendr::StringAttrInfo status("status", f);
    rendr::StringAttrInfo vrf("vrf", f);
    rendr::StringAttrInfo addr("address", f);
    p.addFrills("%-16s %-10s %-10s %s\n", "Interface", "Status", "Vrf", "IPv6 Address");
    p.addFrills("%-16s %-10s %-10s %s\n", "----------------", "----------", "----------",
                "------------");
    auto intfs = p.dict("interfaces");
    if (!config) return;
    std::vector<std::string> names;
    std::map<std::string, Plexa::IntfId> ids;
    for (const auto& [id, ic] : config->intf()) {
      names.push_back(id.stringValue());
      ids.emplace(id.stringValue(), id);
    }
    std::sort(names.begin(), names.end(), naturalLess);
    for (const std::string& n : names) {
      const Plexa::IntfId& id = ids.at(n);
      const auto& ic = *config->intf().find(id);
      if (!ic) continue;
      const std::string intfVrfName = vrfOfIntf(id);
      if (!anyVrf && intfVrfName != only) continue;
      name.setValue(n);
      status.setValue(intfState(id));
      vrf.setValue(intfVrfName);
      auto entry = p.dictEntry(name);
      p.addAttributes("%-16s %-10s %-10s ", 3, name.getArg(), status.getArg(), vrf.getArg());
      {
        auto list = p.list("addresses");
        bool first = true;
        for (const auto& [a, info] : ic->addr()) {
          auto item = p.listEntry();
          addr.setValue(a.stringValue());
          if (!first) p.addText(std::string(16 + 1 + 10 + 1 + 10 + 1, ' '));
          p.addAttributes("%s\n", 1, addr.getArg());
          first = false;
        }
        if (first) p.addText("unassigned\n");
      }
      p.itemDone();
    }
  });
}

// ---- show arp, show ipv6 neighbors ----

int showNeighbors(const Match& m, const Context& c, Output& out, bool v6) {
  const std::string vrf = vrfOf(m);
  if (int s = checkVrf(vrf, c); s >= 0) return s;
  struct Neighbor {
    Plexa::IpGenAddr addr;
    std::string text, mac, intf;
  };
  std::vector<Neighbor> rows;
  auto arp = layout::find(em(), layout::arpStatus);
  auto ids = layout::find(em(), layout::vrfIdMap);
  if (arp) {
    for (const auto& e : *arp) {
      const auto& k = e.arpKey;
      if (k.addr.isV6() != v6 || k.addr.isV4() == v6) continue;
      const std::string entryVrf =
          ids ? vrfText(ids->vrfName(k.vrfId)) : std::string(L3::VrfName::kDefault);
      if (entryVrf != vrf) continue;
      rows.push_back(
          {k.addr, k.addr.stringValue(), e.ethAddr.stringValue(), k.intfId.stringValue()});
    }
  }
  std::sort(rows.begin(), rows.end(), [](const Neighbor& a, const Neighbor& b) {
    if (a.addr != b.addr) return a.addr < b.addr;
    return naturalLess(a.intf, b.intf);
  });
  return out.print([&](rendr::Printer& p) {
    const unsigned f = p.format();
    rendr::StringAttrInfo addr("address", f);
    rendr::StringAttrInfo mac("hwAddress", f);
    rendr::StringAttrInfo intf("interface", f);
    const char* row = v6 ? "%-40s %-18s %s\n" : "%-16s %-18s %s\n";
    p.addFrills(row, v6 ? "IPv6 Address" : "Address", "Hardware Addr", "Interface");
    auto list = p.list(v6 ? "ipV6Neighbors" : "ipV4Neighbors");
    for (const Neighbor& r : rows) {
      auto item = p.listEntry();
      addr.setValue(r.text);
      mac.setValue(r.mac);
      intf.setValue(r.intf);
      p.addAttributes(row, 3, addr.getArg(), mac.getArg(), intf.getArg());
      p.itemDone();
    }
  });
}

}  // namespace cli
