// The snapshot writer: the loaded state written back in the documented format, so that
// loading the text gives the same state. Everything the loader derives (interface and IP
// status, the VRFs' hardware counts, kernel-unprogrammed prefixes) is written as the document
// key it came from. Tables are written in their own order, which after a load is the
// document's order; hash maps are sorted first, so the same state gives the same text.

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "platform/brine/Fib.h"
#include "platform/brine/FlexCounters.h"
#include "platform/brine/KernelRoutes.h"
#include "platform/brine/Neighbor.h"
#include "platform/brine/NexthopGroupTables.h"
#include "platform/brine/SrTePolicy.h"
#include "platform/brine/Tunnel.h"
#include "platform/mox/Dir.h"
#include "platform/rendr/JsonText.h"
#include "platform/state/Interface.h"
#include "platform/state/Ip.h"
#include "platform/state/NexthopGroupConfig.h"
#include "platform/state/RoutingConfig.h"
#include "platform/state/RoutingHardware.h"
#include "snapshot/DeviceInfo.h"
#include "snapshot/Refs.h"
#include "snapshot/Snapshot.h"
#include "snapshot/StateLayout.h"

namespace Snapshot {

namespace {

// JSON written straight into one buffer, two blanks of indent per level. Members and elements
// are separated as they come, so callers only say what to write.
class Json {
 public:
  std::string take() {
    text_ += '\n';
    return std::move(text_);
  }

  Json& openObject() { return open('{'); }
  Json& openArray() { return open('['); }
  Json& close() {
    const bool empty = first_.back();
    first_.pop_back();
    const char closing = closers_.back();
    closers_.pop_back();
    if (!empty) newline();
    text_ += closing;
    return *this;
  }
  // Starts a member; its value follows.
  Json& key(std::string_view k) {
    element();
    quoted(k);
    text_ += ": ";
    pendingValue_ = true;
    return *this;
  }
  Json& string(std::string_view s) {
    element();
    quoted(s);
    return *this;
  }
  Json& number(std::uint64_t n) {
    element();
    char buf[24];
    text_.append(buf, std::to_chars(buf, buf + sizeof buf, n).ptr);
    return *this;
  }
  Json& boolean(bool b) {
    element();
    text_ += b ? "true" : "false";
    return *this;
  }
  Json& null() {
    element();
    text_ += "null";
    return *this;
  }

  Json& member(std::string_view k, std::string_view v) { return key(k).string(v); }
  Json& member(std::string_view k, const std::string& v) { return key(k).string(v); }
  Json& member(std::string_view k, const char* v) { return key(k).string(v); }
  Json& member(std::string_view k, std::uint64_t v) { return key(k).number(v); }
  Json& memberBool(std::string_view k, bool v) { return key(k).boolean(v); }

 private:
  // A JSON string, escaped as the printer escapes one.
  void quoted(std::string_view s) { rendr::detail::appendJsonString(text_, s); }

  Json& open(char c) {
    element();
    text_ += c;
    closers_.push_back(c == '{' ? '}' : ']');
    first_.push_back(true);
    return *this;
  }
  // Before a member or an element: the separator and the line it goes on. A value after its
  // key stays on the key's line.
  void element() {
    if (pendingValue_) {
      pendingValue_ = false;
      return;
    }
    if (first_.empty()) return;
    if (!first_.back()) text_ += ',';
    first_.back() = false;
    newline();
  }
  void newline() {
    text_ += '\n';
    text_.append(2 * first_.size(), ' ');
  }

  std::string text_;
  std::vector<char> closers_;
  std::vector<bool> first_;
  bool pendingValue_ = false;
};

class Writer {
 public:
  Writer(const Statum::EntityManager& em, Sections sections) : em_(em), sections_(sections) {}
  std::string run();

 private:
  void hardware();
  void staticRouteDefaults();
  void vrfs();
  void vrf(const std::string& name);
  template <class Fam, class NameOf>
  void family(const std::string& vrf, NameOf nameOf);
  template <class Fec>
  void fec(const Fec& fec);
  void staticRoutes(const std::string& vrf);
  void staticRoute(const Routing::Route& route);
  void interfaces();
  void neighbors();
  void tunnels();
  void tunnelVias(const Tunnel::TunnelTable::TunnelViaArray& vias);
  template <class Table>
  void tunnelTable(const char* name);
  void srTePolicies();
  void nexthopGroups();
  void flexCounters();
  void counterRows(const char* key,
                   const layout::Entity<FlexCounters::CounterTable, layout::Scope::device>& table);
  void routeDistinguishers();

  template <class V>
  void text(std::string_view k, const V& v) {
    json_.member(k, v.stringValue());
  }

  const Statum::EntityManager& em_;
  const Sections sections_;
  Json json_;
};

std::string Writer::run() {
  json_.openObject();
  json_.member("version", std::uint64_t(kFormatVersion));
  if (auto device = layout::find(em_, layout::device))
    json_.member("hostname", device->hostname().stringValue());
  hardware();
  staticRouteDefaults();
  vrfs();
  interfaces();
  neighbors();
  tunnels();
  srTePolicies();
  nexthopGroups();
  flexCounters();
  routeDistinguishers();
  json_.close();
  return json_.take();
}

void Writer::hardware() {
  auto hw = layout::find(em_, layout::routingHw);
  if (!hw) return;
  json_.key("hardware").openObject();
  json_.member("fecWeightLimit", hw->fecWeightLimit());
  json_.member("maxEcmp", hw->maxEcmp());
  json_.member("nexthopGroupMaxSize", hw->nexthopGroupMaxSize());
  json_.close();
}

void Writer::staticRouteDefaults() {
  auto d = layout::find(em_, layout::staticRouteDefaults);
  if (!d) return;
  json_.key("staticRouteDefaults").openObject();
  json_.member("preference", d->preference());
  json_.member("tag", d->tag());
  json_.member("name", d->name().stringValue());
  json_.close();
}

void Writer::vrfs() {
  json_.key("vrfs").openObject();
  for (const std::string& name : layout::vrfNames(em_))
    vrf(name);
  json_.close();
}

void Writer::vrf(const std::string& name) {
  json_.key(name).openObject();
  if (auto ids = layout::find(em_, layout::vrfIdMap)) {
    for (const auto& entry : *ids) {
      if (entry.vrfName().stringValue() == name) json_.member("id", entry.vrfId);
    }
  }
  if (auto c = layout::find(em_, layout::routingConfig, name))
    json_.memberBool("routingEnabled", c->routingEnabled());
  if (auto c = layout::find(em_, layout::routing6Config, name))
    json_.memberBool("routing6Enabled", c->routingEnabled());
  staticRoutes(name);
  json_.key("ipv4").openObject();
  family<Routing::V4>(name, [](auto t) { return Routing::Fib::routeTypeName(t); });
  json_.close();
  json_.key("ipv6").openObject();
  family<Routing::V6>(name, [](auto t) { return Routing6::Fib::routeTypeName(t); });
  json_.close();
  json_.close();
}

template <class Fam, class NameOf>
void Writer::family(const std::string& vrf, NameOf nameOf) {
  using Entities = layout::FamilyEntities<Fam>;
  auto notInKernel = layout::find(em_, Entities::kernelUnprogrammed, vrf);
  json_.key("routes").openArray();
  const bool routes =
      std::is_same_v<Fam, Routing::V4> ? sections_.ipv4Routes : sections_.ipv6Routes;
  if (auto table = layout::find(em_, Entities::routes, vrf); table && routes) {
    for (const auto& route : *table) {
      json_.openObject();
      text("prefix", route.prefix);
      json_.member("type", nameOf(route.routeType));
      if (route.fecId.value() != 0) json_.member("fec", fecRefText(route.fecId));
      json_.member("preference", std::uint64_t(route.preference));
      if (route.metric != 0) json_.member("metric", route.metric);
      if (!route.hardwareProgrammed) json_.memberBool("hardwareProgrammed", false);
      if (notInKernel && notInKernel->contains(Plexa::IpGenPrefix(route.prefix)))
        json_.memberBool("kernelProgrammed", false);
      json_.close();
    }
  }
  json_.close();
  json_.key("fecs").openArray();
  if (auto table = layout::find(em_, Entities::fecs, vrf)) {
    // A FEC holds room for 512 vias: copied out one at a time, not all at once.
    for (auto it = table->begin(); it != table->end(); ++it)
      fec(*it);
  }
  json_.close();
}

template <class Fec>
void Writer::fec(const Fec& fec) {
  json_.openObject();
  json_.member("id", fecRefText(fec.fecId));
  if (fec.backupViaIndexValue != 0) json_.member("backupIndex", fec.backupViaIndexValue);
  json_.key("vias").openArray();
  for (const auto& via : fec.via) {
    json_.openObject();
    if (!via.hop.isZero()) text("nexthop", via.hop);
    if (via.tunnelIdValue != 0) {
      json_.member("tunnel", tunnelRefText(Tunnel::TunnelTable::TunnelId(via.tunnelIdValue)));
    } else if (via.intfId.isValid()) {
      text("interface", via.intfId);
    }
    if (via.weight != 1) json_.member("weight", via.weight);
    if (via.labelValue != Plexa::MplsLabel::kNoLabel) json_.member("label", via.labelValue);
    json_.close();
  }
  json_.close();
  json_.close();
}

void Writer::staticRoutes(const std::string& vrf) {
  std::vector<Mox::Ptr<Routing::Route>> routes;
  for (const auto& entity : {layout::routingConfig, layout::routing6Config}) {
    if (auto config = layout::find(em_, entity, vrf)) {
      for (const auto& [key, route] : config->route())
        routes.push_back(route);
    }
  }
  std::sort(routes.begin(), routes.end(),
            [](const auto& a, const auto& b) { return a->key() < b->key(); });
  json_.key("staticRoutes").openArray();
  for (const auto& route : routes)
    staticRoute(*route);
  json_.close();
}

void Writer::staticRoute(const Routing::Route& route) {
  // A forward route without vias forwards nothing, and the format has no way to hold one.
  if (route.routeType() == Routing::RouteType::forward && route.vias() == 0) return;
  json_.openObject();
  text("prefix", route.prefix());
  json_.member("preference", std::uint64_t(route.preference()));
  json_.member("type", Routing::routeTypeName(route.routeType()));
  if (route.tag() != 0) json_.member("tag", route.tag());
  if (route.dynamic()) json_.memberBool("dynamic", true);
  if (!route.persistent()) json_.memberBool("persistent", false);
  switch (route.routeType()) {
    case Routing::RouteType::drop:
      if (!route.dropNextHopName().empty())
        json_.member("name", route.dropNextHopName().stringValue());
      break;
    case Routing::RouteType::nexthopGroup:
      json_.member("nexthopGroup", route.nexthopGroupName().stringValue());
      break;
    default:
      json_.key("vias").openArray();
      for (const Routing::Via& via : route.via()) {
        json_.openObject();
        if (via.hop()) text("nexthop", via.hop());
        if (via.intfId().isValid()) text("interface", via.intfId());
        if (!via.mplsLabel().isNoLabel()) json_.member("label", via.mplsLabel().value());
        if (via.vtepAddr()) {
          text("vtep", via.vtepAddr());
          json_.member("vni", std::uint64_t(via.vni().value()));
          if (via.routerMac() != Plexa::EthAddr()) text("routerMac", via.routerMac());
        }
        if (const bool* track = route.viaTrackBfd().find(via); track && *track)
          json_.memberBool("trackBfd", true);
        if (const Mox::String8* name = route.viaNextHopName().find(via); name && !name->empty())
          json_.member("name", name->stringValue());
        json_.close();
      }
      json_.close();
      break;
  }
  json_.close();
}

void Writer::interfaces() {
  auto config = layout::find(em_, layout::intfConfig);
  auto status = layout::find(em_, layout::intfStatus);
  auto ip = layout::find(em_, layout::ipConfig);
  auto ip6 = layout::find(em_, layout::ip6Config);
  json_.key("interfaces").openArray();
  if (config) {
    for (const auto& [id, intf] : config->intfConfig()) {
      json_.openObject();
      text("name", id);
      if (intf->vrf().stringValue().empty()) {
        json_.key("vrf").null();
      } else if (!intf->vrf().isDefault()) {
        json_.member("vrf", intf->vrf().stringValue());
      }
      if (!intf->description().empty())
        json_.member("description", intf->description().stringValue());
      if (status) {
        if (const auto* st = status->intfStatus().find(id); st && *st && !(*st)->operUp())
          json_.memberBool("operUp", false);
      }
      if (!intf->enabled()) json_.memberBool("enabled", false);
      if (const auto* c = ip ? ip->intfConfig().find(id) : nullptr; c && *c) {
        const Ip::IpIntfConfig& a = **c;
        json_.key("ipv4").openObject();
        if (a.addrWithMask() != Plexa::IpAddrWithMask()) text("primary", a.addrWithMask());
        json_.key("secondaries").openArray();
        for (const auto& s : a.secondaryWithMask())
          json_.string(s.stringValue());
        json_.close();
        if (a.virtualAddrWithMask() != Plexa::IpAddrWithMask())
          text("virtualPrimary", a.virtualAddrWithMask());
        json_.key("virtualSecondaries").openArray();
        for (const auto& s : a.virtualSecondaryWithMask())
          json_.string(s.stringValue());
        json_.close();
        json_.close();
      }
      if (const auto* c = ip6 ? ip6->intf().find(id) : nullptr; c && *c) {
        json_.key("ipv6").openArray();
        for (const auto& [addr, info] : (*c)->addr())
          json_.string(addr.stringValue());
        json_.close();
      }
      json_.close();
    }
  }
  json_.close();
}

void Writer::neighbors() {
  auto arp = layout::find(em_, layout::arpStatus);
  auto ids = layout::find(em_, layout::vrfIdMap);
  json_.key("neighbors").openArray();
  if (arp) {
    for (const auto& entry : *arp) {
      json_.openObject();
      if (entry.arpKey.vrfId != Vrf::VrfIdMap::kDefaultVrfId && ids)
        json_.member("vrf", ids->vrfName(entry.arpKey.vrfId).stringValue());
      text("address", entry.arpKey.addr);
      text("interface", entry.arpKey.intfId);
      text("mac", entry.ethAddr);
      json_.close();
    }
  }
  json_.close();
}

void Writer::tunnelVias(const Tunnel::TunnelTable::TunnelViaArray& vias) {
  json_.key("vias").openArray();
  for (const auto& via : vias) {
    json_.openObject();
    if (!via.nexthop.isZero()) text("nexthop", via.nexthop);
    if (Plexa::DynamicTunnelIntfId::isDynamicTunnelIntfId(via.intfId)) {
      json_.member("tunnel", tunnelRefText(Tunnel::TunnelTable::TunnelId(
                                 Plexa::DynamicTunnelIntfId::tunnelId(via.intfId))));
    } else if (via.intfId.isValid()) {
      text("interface", via.intfId);
    }
    // A pop carries no labels and is still an operation: the action says whether there is one.
    if (via.labelOp.action() != Plexa::MplsLabelOperation::Action::none)
      text("labels", via.labelOp);
    json_.close();
  }
  json_.close();
}

template <class Table>
void Writer::tunnelTable(const char* name) {
  auto dir = layout::find(em_, layout::tunnelTables);
  auto table = dir ? dir->entity<Table>(name) : nullptr;
  if (!table) return;  // the protocol does not run: no key at all
  json_.key(name).openArray();
  for (const auto& entry : *table) {
    json_.openObject();
    json_.member("tunnel", tunnelRefText(entry.tunnelId));
    text("endpoint", entry.endpoint);
    tunnelVias(entry.via);
    json_.close();
  }
  json_.close();
}

void Writer::tunnels() {
  using namespace Tunnel::TunnelTable;
  json_.key("tunnels").openObject();
  json_.key("fib").openArray();
  if (auto fib = layout::find(em_, layout::tunnelFib)) {
    for (const auto& entry : *fib) {
      json_.openObject();
      json_.member("tunnel", tunnelRefText(entry.tunnelId));
      tunnelVias(entry.tunnelVia);
      json_.close();
    }
  }
  json_.close();
  tunnelTable<SrTunnelTable>("sr");
  tunnelTable<StaticTunnelTable>("static");
  tunnelTable<LdpTunnelTable>("ldp");
  tunnelTable<BgpLuTunnelTable>("bgpLu");
  json_.key("evpnVxlan").openArray();
  if (auto evpn = layout::find(em_, layout::evpnVxlan)) {
    for (const auto& entry : *evpn) {
      json_.openObject();
      text("interface", entry.intfId);
      text("vtep", entry.vtepAddr);
      json_.member("vni", std::uint64_t(entry.vni.value()));
      if (entry.routerMac != Plexa::EthAddr()) text("routerMac", entry.routerMac);
      json_.close();
    }
  }
  json_.close();
  json_.close();
}

void Writer::srTePolicies() {
  json_.key("srTePolicies").openArray();
  if (auto policies = layout::find(em_, layout::srTePolicy)) {
    for (const auto& entry : *policies) {
      json_.openObject();
      json_.member("fec", fecRefText(entry.fecId));
      text("endpoint", entry.policyKey.endpoint);
      json_.member("color", entry.policyKey.color);
      json_.close();
    }
  }
  json_.close();
}

void Writer::nexthopGroups() {
  auto config = layout::find(em_, layout::nhgConfig);
  auto ids = layout::find(em_, layout::nhgEntryStatus);
  auto hw = layout::find(em_, layout::nhgHwStatus);
  json_.key("nexthopGroups").openArray();
  if (config) {
    for (const auto& [name, group] : config->nexthopGroup()) {
      const std::uint64_t id =
          ids ? ids->lookup(NexthopGroup::NexthopGroupEntryKey(name.view())).nhgId : 0;
      json_.openObject();
      json_.member("name", name.stringValue());
      json_.member("id", id);
      json_.member("type", Routing::NexthopGroup::moxEnumName(group->type()));
      if (group->size() != 0) json_.member("size", group->size());
      json_.member("ttl", std::uint64_t(group->ttl()));
      if (!group->source().isZero()) text("source", group->source());
      json_.key("entries").openArray();
      for (const auto& [index, entry] : group->entry()) {
        json_.openObject();
        text("destination", entry.destination());
        if (entry.mplsLabels().action() != Plexa::MplsLabelOperation::Action::none)
          text("labels", entry.mplsLabels());
        json_.close();
      }
      json_.close();
      json_.key("programmedInVrfs").openArray();
      if (hw) {
        for (const auto& [vrf, status] : hw->vrf()) {
          if (status && status->nexthopGroup().contains(id)) json_.string(vrf.stringValue());
        }
      }
      json_.close();
      json_.close();
    }
  }
  json_.close();
}

void Writer::counterRows(
    const char* key,
    const layout::Entity<FlexCounters::CounterTable, layout::Scope::device>& entity) {
  json_.key(key).openArray();
  if (auto table = layout::find(em_, entity)) {
    for (const auto& row : *table) {
      json_.openObject();
      json_.member("index", row.counterKey.counterIndex);
      json_.member("chipMask", row.counterKey.chipMask);
      json_.member("packets", row.packets);
      json_.member("bytes", row.bytes);
      json_.close();
    }
  }
  json_.close();
}

void Writer::flexCounters() {
  json_.key("flexCounters").openObject();
  counterRows("counters", layout::counterTable);
  counterRows("snapshot", layout::snapshotCounterTable);
  json_.key("entryKeys").openArray();
  if (auto keys = layout::find(em_, layout::counterKeyTable)) {
    for (const auto& rec : *keys) {
      json_.openObject();
      json_.member("nexthopGroupId", rec.entry.nhgId);
      json_.member("entry", std::uint64_t(rec.entry.entryIndex));
      json_.member("counterIndex", rec.info.counterIndex);
      json_.member("chipMask", rec.info.chipMask);
      json_.close();
    }
  }
  json_.close();
  json_.close();
}

void Writer::routeDistinguishers() {
  json_.key("routeDistinguisherInputs").openObject();
  if (auto dir = layout::find(em_, layout::rdInputDir)) {
    for (const auto& [inputName, entity] : dir->entries()) {
      auto input = Mox::ptrCast<Ip::RouteDistinguisherInput>(entity);
      if (!input) continue;
      std::vector<std::pair<std::string, std::string>> rds;
      for (const auto& [vrf, rd] : input->routeDistinguisher())
        rds.emplace_back(vrf.stringValue(), rd.stringValue());
      std::sort(rds.begin(), rds.end());
      json_.key(inputName.view()).openObject();
      for (const auto& [vrf, rd] : rds)
        json_.member(vrf, rd);
      json_.close();
    }
  }
  json_.close();
}

}  // namespace

std::string write(const Statum::EntityManager& em) {
  return Writer(em, Sections::all()).run();
}

std::string write(const Statum::EntityManager& em, Sections sections) {
  return Writer(em, sections).run();
}

}  // namespace Snapshot
