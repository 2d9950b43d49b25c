// The running configuration: hostname, VRFs with their route distinguishers, interfaces with
// their VRF and addresses, nexthop groups, then the static routes, in that order, each block
// closed by "!", as a router prints them. Every line here is one that configuration mode takes.

#include "cli/RunningConfig.h"

#include <string>
#include <vector>

#include "cli/CommandActions.h"
#include "cli/DeviceState.h"
#include "cli/Output.h"
#include "lib/registry/TypeRegistry.h"
#include "platform/mox/Dir.h"
#include "platform/plexa/VrfName.h"
#include "platform/rendr/Printer.h"
#include "snapshot/StateLayout.h"

namespace cli {

namespace {

namespace layout = Snapshot::layout;
using Rova::Value;
using NhgType = Routing::NexthopGroup::NexthopGroupType;

constexpr const char* kIndent = "   ";
// The input configuration mode writes its route distinguishers to; it is read first.
constexpr const char* kConfigRdInput = "config";

struct TypeWord {
  NhgType type;
  const char* word;
};
constexpr TypeWord kTypeWords[] = {{NhgType::ipInIp, "ip-in-ip"},
                                   {NhgType::gre, "gre"},
                                   {NhgType::mpls, "mpls"},
                                   {NhgType::ip, "ip"},
                                   {NhgType::mplsOverGre, "mpls-over-gre"}};

void line(std::string& out, std::string_view text, bool indented = false) {
  if (indented) out += kIndent;
  out += text;
  out += '\n';
}

void hostnameBlock(std::string& out) {
  const std::string name = state().hostname();
  if (name.empty()) return;
  line(out, "hostname " + name);
  line(out, "!");
}

// The VRF's route distinguisher: configuration mode's own first, then any agent's.
std::string rdOf(const std::string& vrf) {
  auto dir = layout::find(state().entities(), layout::rdInputDir);
  if (!dir) return {};
  auto rdIn = [&](const Mox::Ptr<Mox::Entity>& e) -> std::string {
    auto input = Mox::ptrCast<Ip::RouteDistinguisherInput>(e);
    if (!input) return {};
    const auto* rd = input->routeDistinguisher().find(Mox::String8(vrf));
    return rd ? rd->stringValue() : std::string();
  };
  if (auto it = dir->entries().find(kConfigRdInput); it != dir->entries().end()) {
    if (std::string rd = rdIn(it->second); !rd.empty()) return rd;
  }
  for (const auto& [name, entity] : dir->entries()) {
    if (std::string rd = rdIn(entity); !rd.empty()) return rd;
  }
  return {};
}

void vrfBlocks(std::string& out) {
  for (const std::string& vrf : state().vrfNames()) {
    if (vrf == L3::VrfName::kDefault) continue;
    line(out, "vrf instance " + vrf);
    if (std::string rd = rdOf(vrf); !rd.empty()) line(out, "rd " + rd, true);
    line(out, "!");
  }
}

void interfaceBlock(std::string& out, const Interface::IntfConfig& intf) {
  const Plexa::IntfId& id = intf.intfId();
  line(out, "interface " + id.stringValue());
  // An interface without a VRF link has nothing to write: entering it again puts it in the
  // default VRF, which is how its addresses are judged anyway.
  const L3::VrfName& vrf = intf.vrf();
  if (!vrf.stringValue().empty() && !vrf.isDefault()) line(out, "vrf " + vrf.stringValue(), true);
  if (auto ip = layout::find(state().entities(), layout::ipConfig)) {
    if (auto r = ip->intfConfig(id)) {
      if (!r->addrWithMask().address().isZero())
        line(out, "ip address " + r->addrWithMask().stringValue(), true);
      for (const auto& a : r->secondaryWithMask())
        line(out, "ip address " + a.stringValue() + " secondary", true);
    }
  }
  if (auto ip6 = layout::find(state().entities(), layout::ip6Config)) {
    if (auto r = ip6->intf(id)) {
      for (const auto& [addr, info] : r->addr()) {
        line(out,
             "ipv6 address " + addr.stringValue() +
                 (addr.address().isLinkLocal() ? " link-local" : ""),
             true);
      }
    }
  }
  line(out, "!");
}

void interfaceBlocks(std::string& out) {
  auto all = layout::find(state().entities(), layout::intfConfig);
  if (!all) return;
  for (const auto& [id, intf] : all->intfConfig()) {
    if (intf) interfaceBlock(out, *intf);
  }
}

void nexthopGroupBlocks(std::string& out) {
  auto config = layout::find(state().entities(), layout::nhgConfig);
  if (!config) return;
  for (const auto& [name, group] : config->nexthopGroup()) {
    if (!group) continue;
    const std::string type = nexthopGroupTypeWord(static_cast<int>(group->type()));
    line(out, "nexthop-group " + name.stringValue() + (type.empty() ? "" : " type " + type));
    if (group->size() != 0) line(out, "size " + std::to_string(group->size()), true);
    if (group->ttl() != 64) line(out, "ttl " + std::to_string(unsigned(group->ttl())), true);
    if (group->source()) line(out, "tunnel-source " + group->source().stringValue(), true);
    for (const auto& [index, entry] : group->entry()) {
      std::string text =
          "entry " + std::to_string(index) + " nexthop " + entry.destination().stringValue();
      if (entry.mplsLabels().action() != Plexa::MplsLabelOperation::Action::none)
        text += " label " + entry.mplsLabels().stringValue();
      line(out, text, true);
    }
    line(out, "!");
  }
}

void staticRouteBlock(std::string& out, bool all) {
  std::string routes;
  for (const StaticRouteSection& section : staticRouteSections(all))
    routes += section.text;
  if (routes.empty()) return;
  out += routes;
  line(out, "!");
}

}  // namespace

int printLines(Output& out, const std::string& text) {
  return out.print([&](rendr::Printer& p) {
    rendr::StringAttrInfo attr("line", p.format());
    std::string_view rest = text;
    p.startList("lines");
    while (!rest.empty()) {
      const auto end = rest.find('\n');
      attr.setValue(rest.substr(0, end));
      p.startListEntry();
      p.addAttributes("%s\n", 1, attr.getArg());
      p.endListEntry();
      rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    }
    p.endList();
  });
}

std::string nexthopGroupTypeWord(int type) {
  for (const TypeWord& t : kTypeWords) {
    if (static_cast<int>(t.type) == type) return t.word;
  }
  return {};
}

bool nexthopGroupTypeOfWord(std::string_view word, int& type) {
  for (const TypeWord& t : kTypeWords) {
    if (word == t.word) {
      type = static_cast<int>(t.type);
      return true;
    }
  }
  return false;
}

std::string runningConfigText(bool allStaticRouteFields) {
  std::string out;
  hostnameBlock(out);
  vrfBlocks(out);
  interfaceBlocks(out);
  nexthopGroupBlocks(out);
  staticRouteBlock(out, allStaticRouteFields);
  line(out, "end");
  return out;
}

std::string interfaceConfigText(std::string_view intf) {
  auto all = layout::find(state().entities(), layout::intfConfig);
  if (!all) return {};
  auto config = all->intfConfig(Plexa::IntfId(intf));
  if (!config) return {};
  std::string out;
  interfaceBlock(out, *config);
  return out;
}

int showRunningConfig(const Match& m, const Context&, Output& out) {
  return printLines(out, runningConfigText(m.flag("all")));
}

int showRunningConfigInterface(const Match& m, const Context& c, Output& out) {
  const std::string text = interfaceConfigText(m.value("INTF"));
  if (text.empty()) {
    c.error("% Interface " + m.value("INTF") + " does not exist");
    return kStatusFailed;
  }
  return printLines(out, text);
}

}  // namespace cli
