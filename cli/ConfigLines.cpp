#include "cli/ConfigLines.h"

#include <charconv>
#include <string>
#include <vector>

#include "cli/ConfigMode.h"
#include "cli/ConfigSession.h"
#include "cli/DeviceState.h"
#include "cli/RunningConfig.h"
#include "lib/registry/TypeRegistry.h"
#include "platform/plexa/IpAddr.h"
#include "platform/plexa/Mpls.h"
#include "platform/plexa/VrfName.h"
#include "snapshot/StateLayout.h"

namespace cli {

namespace {

namespace layout = Snapshot::layout;
using Routing::NexthopGroup::NexthopGroupConfigEntry;
using Routing::NexthopGroup::NexthopGroupType;
using Rova::Value;

constexpr unsigned kMaxLabelsInLine = Plexa::MplsLabelOperation::kMaxLabels;

int say(const Context& c, const std::string& msg, int status = kStatusFailed) {
  c.error("% " + msg);
  return status;
}

template <class T>
Mox::Ptr<T> mutableEntity(const layout::Entity<T, layout::Scope::device>& entity) {
  return Rova::fromValue<Mox::Ptr<T>>(state().at(entity));
}

unsigned toNumber(const std::string& w) {
  unsigned n = 0;
  std::from_chars(w.data(), w.data() + w.size(), n);
  return n;
}

// ---- hostname ----

int hostname(const Match& m, const Context& c) {
  auto device = mutableEntity<Snapshot::DeviceInfo>(layout::device);
  if (!device) return say(c, "The state has no device record");
  device->hostnameIs(m.flag("no") ? std::string() : m.value("TEXT"));
  state().changed();
  return kStatusOk;
}

// ---- VRFs ----

std::uint32_t freeVrfId(const Vrf::VrfIdMap::Status& ids) {
  std::uint32_t id = 1;
  for (const auto& entry : ids) {
    if (entry.vrfId >= id) id = entry.vrfId + 1;
  }
  return id;
}

// ---- interfaces ----

// An interface that moves to another VRF loses its addresses, as on a router: they were
// judged against the subnets of the VRF it leaves.
int intfVrf(const Match& m, const Context& c) {
  const std::string& intf = configPosition().intf;
  const std::string vrf = m.flag("no") ? std::string(L3::VrfName::kDefault) : m.value("NAME");
  if (!state().hasVrf(vrf)) return say(c, "VRF '" + vrf + "' does not exist");
  auto all = mutableEntity<Interface::AllIntfConfigDir>(layout::intfConfig);
  const Plexa::IntfId id(intf);
  auto config = all ? all->intfConfig(id) : nullptr;
  if (!config) return say(c, "Interface " + intf + " does not exist");
  const L3::VrfName name(vrf);
  if (config->vrf() == name) return kStatusOk;
  Value editor = intfAddressEditor();
  for (bool v6 : {false, true}) {
    const Value args[] = {Value(id), Value(v6)};
    registry().call(editor, "removeAddresses", args);
  }
  config->vrfIs(name);
  if (auto ip = mutableEntity<Ip::Config>(layout::ipConfig)) {
    if (auto r = ip->intfConfig(id)) r->vrfIs(name);
  }
  if (auto ip6 = mutableEntity<Ip6::Config>(layout::ip6Config)) {
    if (auto r = ip6->intf(id)) r->vrfIs(name);
  }
  state().changed();
  return kStatusOk;
}

int linkLocal(const Match& m, const Context& c) {
  Value editor = intfAddressEditor();
  const Value args[] = {Value(Plexa::IntfId(configPosition().intf)),
                        Value(m.value("X:X::X/LEN").c_str()), Value(true)};
  const std::string refusal = registry().call(editor, "addAddress", args).displayText();
  if (!refusal.empty()) return say(c, refusal);
  state().changed();
  return kStatusOk;
}

// ---- nexthop groups ----

Mox::Ptr<NexthopGroupConfigEntry> currentGroup(const Context& c) {
  auto config = mutableEntity<Routing::NexthopGroup::Config>(layout::nhgConfig);
  auto group = config ? config->nexthopGroup(Mox::String8(configPosition().group)) : nullptr;
  if (!group) say(c, "Nexthop group " + configPosition().group + " does not exist");
  return group;
}

int groupSize(const Match& m, const Context& c) {
  auto group = currentGroup(c);
  if (!group) return kStatusFailed;
  const std::uint32_t size = m.flag("no") ? 0 : toNumber(m.value("SIZE"));
  for (const auto& [index, entry] : group->entry()) {
    if (size != 0 && index >= size)
      return say(c, "The group has an entry " + std::to_string(index) + ", beyond size " +
                        std::to_string(size));
  }
  group->sizeIs(size);
  state().changed();
  return kStatusOk;
}

int groupTtl(const Match& m, const Context& c) {
  auto group = currentGroup(c);
  if (!group) return kStatusFailed;
  group->ttlIs(std::uint8_t(m.flag("no") ? 64 : toNumber(m.value("TTL"))));
  state().changed();
  return kStatusOk;
}

int groupSource(const Match& m, const Context& c) {
  auto group = currentGroup(c);
  if (!group) return kStatusFailed;
  group->sourceIs(m.flag("no") ? Plexa::IpGenAddr()
                               : Plexa::IpGenAddr::fromString(m.value("ADDR")));
  state().changed();
  return kStatusOk;
}

int groupEntry(const Match& m, const Context& c) {
  auto group = currentGroup(c);
  if (!group) return kStatusFailed;
  // A group's entries are numbered from 0 without a gap, as a state holds them (entry i is
  // the i-th): a new entry comes next, and only the last one goes.
  const unsigned index = toNumber(m.value("INDEX"));
  const std::size_t count = group->entrys();
  if (m.flag("no")) {
    if (index >= count) return kStatusOk;
    if (index + 1 != count)
      return say(c, "Entry " + std::to_string(index) + " is not the last (" +
                        std::to_string(count - 1) + "); the entries have no gaps");
    group->entryDel(std::uint16_t(index));
    state().changed();
    return kStatusOk;
  }
  if (index > count)
    return say(c, "Entry " + std::to_string(index) + " would leave a gap; the next entry is " +
                      std::to_string(count));
  if (group->size() != 0 && index >= group->size())
    return say(c, "Entry " + std::to_string(index) + " is beyond the group's size " +
                      std::to_string(group->size()));
  Routing::NexthopGroup::NexthopGroupEntry entry;
  entry.destinationIs(Plexa::IpGenAddr::fromString(m.value("ADDR")));
  if (m.flag("label")) {
    std::string op = m.flag("push") ? "push" : m.flag("swap") ? "swap" : "pop";
    for (unsigned i = 1; i <= kMaxLabelsInLine; ++i) {
      const std::string key = i == 1 ? "LABEL" : "LABEL#" + std::to_string(i);
      if (m.has(key)) op += " " + m.value(key);
    }
    entry.mplsLabelsIs(Plexa::MplsLabelOperation::fromString(op));
  }
  group->entryIs(std::uint16_t(index), entry);
  state().changed();
  return kStatusOk;
}

// Removes the group with its id and hardware status.
int noGroup(const Match& m, const Context&) {
  auto config = mutableEntity<Routing::NexthopGroup::Config>(layout::nhgConfig);
  const Mox::String8 name(m.value("GROUP"));
  if (!config || !config->nexthopGroupDel(name)) return kStatusOk;
  const NexthopGroup::NexthopGroupEntryKey key(m.value("GROUP"));
  if (auto ids = mutableEntity<NexthopGroup::EntryStatus>(layout::nhgEntryStatus)) {
    const auto status = ids->lookup(key);
    ids->recordDel(key);
    if (auto hw = mutableEntity<Routing::Hardware::NexthopGroupStatus>(layout::nhgHwStatus)) {
      for (const auto& [vrf, programmed] : hw->vrf()) {
        if (programmed) programmed->nexthopGroupDel(status.nhgId);
      }
    }
  }
  state().changed();
  return kStatusOk;
}

std::string labelSyntax() {
  // (push|swap) and one label or more, nested so that each further label is optional.
  std::string labels = "LABEL";
  std::string tail;
  for (unsigned i = 1; i < kMaxLabelsInLine; ++i) {
    labels += " [LABEL";
    tail += "]";
  }
  return "[label (pop | (push | swap) " + labels + tail + ")]";
}

bool sizeWord(std::string_view w) {
  unsigned n = 0;
  const auto r = std::from_chars(w.data(), w.data() + w.size(), n);
  return r.ec == std::errc() && r.ptr == w.data() + w.size() && n <= 65536;
}
bool byteWord(std::string_view w, unsigned low) {
  unsigned n = 0;
  const auto r = std::from_chars(w.data(), w.data() + w.size(), n);
  return r.ec == std::errc() && r.ptr == w.data() + w.size() && n >= low && n <= 255;
}
bool indexWord(std::string_view w) {
  unsigned n = 0;
  const auto r = std::from_chars(w.data(), w.data() + w.size(), n);
  return r.ec == std::errc() && r.ptr == w.data() + w.size() && n <= 65535;
}

}  // namespace

void addDeviceConfigTypes(Grammar& g) {
  std::vector<Choice> types;
  for (int t = 0; t <= 5; ++t) {
    const std::string word = nexthopGroupTypeWord(t);
    if (!word.empty()) types.push_back({word, ""});
  }
  g.addType({"NHGTYPE", "Nexthop group type", {}, types});
  g.addType({"SIZE", "Entries, 0 to 65536 (0: as many as it holds)", sizeWord, {}});
  g.addType({"TTL", "TTL, 0 to 255", [](std::string_view w) { return byteWord(w, 0); }, {}});
  g.addType({"INDEX", "Entry index, 0 to 65535", indexWord, {}});
  g.addKeywordHelp("hostname", "The device's name");
}

std::vector<Row> deviceRows() {
  return {{"hostname TEXT", {}, hostname},
          {"no hostname", {}, hostname},
          {"no nexthop-group GROUP", {{"nexthop-group", "Remove a nexthop group"}}, noGroup}};
}

std::vector<Row> interfaceRows() {
  return {{"vrf NAME", {{"vrf", "The VRF the interface is in (its addresses go)"}}, intfVrf},
          {"no vrf", {{"vrf", "Back to the default VRF (its addresses go)"}}, intfVrf},
          {"ipv6 address X:X::X/LEN link-local",
           {{"address", "Assign an IPv6 address"}, {"link-local", "A link-local address"}},
           linkLocal}};
}

std::vector<Row> nexthopGroupRows() {
  return {{"size SIZE", {{"size", "The number of entries the group is sized for"}}, groupSize},
          {"no size", {{"size", "Sized for as many entries as it holds"}}, groupSize},
          {"ttl TTL", {{"ttl", "TTL of encapsulated packets"}}, groupTtl},
          {"no ttl", {{"ttl", "TTL 64"}}, groupTtl},
          {"tunnel-source ADDR", {{"tunnel-source", "Tunnel source address"}}, groupSource},
          {"no tunnel-source", {{"tunnel-source", "No tunnel source"}}, groupSource},
          {"entry INDEX nexthop ADDR " + labelSyntax(),
           {{"entry", "One entry of the group"},
            {"nexthop", "Its destination"},
            {"label", "MPLS label operation"}},
           groupEntry},
          {"no entry INDEX", {{"entry", "Remove one entry"}}, groupEntry}};
}

int createVrf(const std::string& name, const Context& c) {
  if (state().hasVrf(name)) return -1;
  auto ids = mutableEntity<Vrf::VrfIdMap::Status>(layout::vrfIdMap);
  if (!ids) return say(c, "The state has no VRF id map");
  auto& em = const_cast<Statum::EntityManager&>(state().entities());
  Vrf::VrfIdMap::Entry entry;
  entry.vrfId = freeVrfId(*ids);
  entry.vrfNameIs(L3::VrfName(name));
  layout::publish(em, name, layout::VrfTables());
  ids->recordIs(entry);
  state().changed();
  return -1;
}

int enterNexthopGroup(const Match& m, const Context& c) {
  const std::string name = m.value("GROUP");
  if (changesHere()) {
    auto config = mutableEntity<Routing::NexthopGroup::Config>(layout::nhgConfig);
    auto ids = mutableEntity<NexthopGroup::EntryStatus>(layout::nhgEntryStatus);
    if (!config || !ids) return say(c, "The state has no nexthop group configuration");
    auto group = config->nexthopGroup(Mox::String8(name));
    if (!group) {
      group = Mox::makePtr<NexthopGroupConfigEntry>();
      group->nameIs(name);
      NexthopGroup::EntryStatusRecord status;
      status.entryKey.name.setText(name);
      status.nhgId = 1;
      for (const auto& r : *ids) {
        if (r.nhgId >= status.nhgId) status.nhgId = r.nhgId + 1;
      }
      config->nexthopGroupIs(group->name(), group);
      ids->recordIs(status);
    }
    if (m.has("NHGTYPE")) {
      int type = 0;
      nexthopGroupTypeOfWord(m.value("NHGTYPE"), type);
      group->typeIs(static_cast<NexthopGroupType>(type));
    }
    state().changed();
  }
  configPosition().mode = ConfigMode::nexthopGroup;
  configPosition().group = name;
  return kStatusOk;
}

}  // namespace cli
