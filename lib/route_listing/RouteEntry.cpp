// One route entry: the line with its codes, prefix, preference and metric, then the layout its
// forwarding takes (dropped, connected, vias, or a nexthop group or SR-TE policy).

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>

#include "lib/common/RouteTypes.h"
#include "lib/route_listing/internal/ListingParts.h"
#include "lib/route_listing/internal/SorterAlgorithms.h"

namespace Rova {

namespace listing {

namespace {

// One entry of the FEC: its next hop, interface, description, labels, EVPN tunnel, weight,
// backup mark, and for a tunnel via the tunnel and the next hops it resolves to.
// How each via line begins: the first on the route's line, the others on lines of their own,
// under it. A template is text-only, so the beginning goes into the template of the via's
// first attributes: one printer call writes it and them.
class ViaTemplate {
 public:
  // `newline` is "\n" and the indent, for every via but the first.
  ViaTemplate(const char* newline, std::size_t newlineLen, const char* word) {
    append(newline, newlineLen);
    append(word, std::strlen(word));
  }
  void append(const char* text, std::size_t n) {
    n = std::min(n, sizeof buf_ - 1 - len_);
    std::memcpy(buf_ + len_, text, n);
    len_ += n;
    buf_[len_] = '\0';
  }
  const char* text() const { return buf_; }

 private:
  char buf_[kMaxIndent + 64];
  std::size_t len_ = 0;
};

// The templates of the commonest via, with a next hop and an interface: the first of a route
// and the ones after it. Built once per route.
struct CommonViaTemplates {
  CommonViaTemplates(const char* newline, std::size_t newlineLen)
      : first(newline, 0, "via %s, %s"), next(newline, newlineLen, "via %s, %s") {}
  ViaTemplate first;
  ViaTemplate next;
};

// What follows a via's next hop and interface: its description, labels, EVPN tunnel, weight,
// backup mark, and for a tunnel on tunnels the next hops it resolves to.
void printViaTail(const CachedFec& fec, std::uint16_t i, const char* indent,
                  const CachedLspVia* lsp, rendr::Printer& p, RouteAttrs& a) {
  if (!lsp) {
    const Mox::String8* description = fec.interfaceDescription().find(i);
    if (description && !description->empty()) {
      a.interfaceDescription.setValue(*description);
      p.addAttributes(" %s", 1, a.interfaceDescription.getArg());
    }
  }
  const Plexa::MplsLabelOperation* stack = fec.viaLabelStack().find(i);
  const Plexa::MplsLabel* label = fec.label().find(i);
  if ((label && !label->isNoLabel()) || (stack && !stack->empty())) {
    static const Plexa::MplsLabelOperation kNone;
    maybeAddLabelStackToOutput(p, a, label ? *label : Plexa::MplsLabel(), stack ? *stack : kNone);
  }
  if (const auto* evpn = fec.viaEvpnEntry().find(i)) {
    a.vtepAddr.setValue(evpn->vtepAddr.stringValue());
    a.vni.setValue(evpn->vni.isNone() ? 0 : evpn->vni.value());
    a.routerMac.setValue(evpn->routerMac.stringValue());
    p.addAttributes(" VTEP %s", 1, a.vtepAddr.getArg());
    p.addAttributes(" VNI %d", 1, a.vni.getArg());
    p.addAttributes(" router-mac %s", 1, a.routerMac.getArg());
  }
  const Mox::String8* weight = fec.viaWeight().find(i);
  if (weight && !weight->empty()) {
    a.viaWeight.setValue(*weight);
    p.addAttributes(", weight %s", 1, a.viaWeight.getArg());
  }
  const Mox::String8* viaType = fec.viaTypeString().find(i);
  if (viaType && *viaType == "backup") {
    a.viaType.setValue(std::string_view("backup"));
    p.addAttributes(", %s", 1, a.viaType.getArg());
  }
  if (lsp && fec.hierarchicalVia()) {
    p.startList("lspVias");
    for (std::uint16_t j = 0; j < lsp->numEntries(); ++j) {
      p.startListEntry();
      const Mox::String8 lspHop = lsp->nexthopAddr(j);
      if (lspHop.empty()) {
        p.addFrills("\n%s   is directly connected", indent);
      } else {
        p.addFrills("\n%s   via ", indent);
        a.nexthopAddr.setValue(lspHop);
        p.addAttributes("%s", 1, a.nexthopAddr.getArg());
      }
      const Mox::String8 lspIntf = lsp->interface(j);
      if (!lspIntf.empty()) {
        a.interface.setValue(lspIntf);
        p.addAttributes(", %s", 1, a.interface.getArg());
      }
      const Mox::String8 lspDescription = lsp->interfaceDescription(j);
      if (!lspDescription.empty()) {
        a.interfaceDescription.setValue(lspDescription);
        p.addAttributes(" %s", 1, a.interfaceDescription.getArg());
      }
      maybeAddLabelStackToOutput(p, a, Plexa::MplsLabel(), lsp->viaLabelStack(j));
      p.endListEntry();
    }
    p.endList();
  }
}

void printVia(const CachedFec& fec, std::uint16_t i, const char* indent, const char* newline,
              std::size_t newlineLen, const CommonViaTemplates& common, rendr::Printer& p,
              RouteAttrs& a) {
  const CachedLspVia* lsp = fec.lspVia().find(i);
  const Mox::String8* hop = fec.nexthopAddr().find(i);
  const Mox::String8* intf = fec.interface().find(i);
  const bool connectedVia = !lsp && (!hop || hop->empty());
  if (!lsp && !connectedVia && intf && !intf->empty()) {
    a.nexthopAddr.setValue(*hop);
    a.interface.setValue(*intf);
    p.addAttributes((i ? common.next : common.first).text(), 2, a.nexthopAddr.getArg(),
                    a.interface.getArg());
    printViaTail(fec, i, indent, lsp, p, a);
    return;
  }
  ViaTemplate lead(newline, i ? newlineLen : 0, connectedVia ? "is directly connected" : "via");
  if (lsp) {
    p.addFrills("%s", lead.text());
    p.startSubmodel("tunnelDescriptor");
    a.tunnelEndPoint.setValue(lsp->tunnelEndPoint());
    a.tunnelType.setValue(lsp->tunnelType());
    a.tunnelAddressFamily.setValue(lsp->tunnelAddressFamily());
    a.tunnelIndex.setValue(lsp->tunnelIndex());
    p.addAttributes(" %s %s %s Tunnel index %d", 4, a.tunnelEndPoint.getArg(),
                    a.tunnelType.getArg(), a.tunnelAddressFamily.getArg(), a.tunnelIndex.getArg());
    p.endSubmodel();
  } else {
    const bool hasHop = hop && !hop->empty();
    const bool hasIntf = intf && !intf->empty();
    const rendr::AttrInfo* args[2];
    int n = 0;
    if (hasHop) {
      a.nexthopAddr.setValue(*hop);
      lead.append(" %s", 3);
      args[n++] = a.nexthopAddr.getArg();
    }
    if (hasIntf) {
      a.interface.setValue(*intf);
      lead.append(", %s", 4);
      args[n++] = a.interface.getArg();
    }
    if (n == 2) {
      p.addAttributes(lead.text(), 2, args[0], args[1]);
    } else if (n == 1) {
      p.addAttributes(lead.text(), 1, args[0]);
    } else {
      p.addFrills("%s", lead.text());
    }
  }
  printViaTail(fec, i, indent, lsp, p, a);
}

// A dropped route: "is directly connected, Null0" and no vias.
void printDropLayout(rendr::Printer& p, RouteAttrs& a) {
  a.directlyConnected.setValue(true);
  a.routeAction.setValue(std::string_view("drop"));
  p.addAttributesJson(2, a.directlyConnected.getArg(), a.routeAction.getArg());
  p.addFrills(" is directly connected, Null0");
  p.startList("vias");
  p.endList();
  p.addFrills("\n");
}

// A route on an interface that holds its prefix: the interface, or "<Internal>" without one.
void printConnectedLayout(const RouteLine& line, rendr::Printer& p, RouteAttrs& a) {
  a.directlyConnected.setValue(true);
  a.routeAction.setValue(std::string_view("forward"));
  p.addAttributesJson(2, a.directlyConnected.getArg(), a.routeAction.getArg());
  p.addFrills(" is directly connected, ");
  p.startList("vias");
  if (line.connectedIntf && *line.connectedIntf) {
    p.startListEntry();
    a.interface.setValue(line.connectedIntf);
    p.addAttributes("%s", 1, a.interface.getArg());
    p.endListEntry();
  } else {
    p.addFrills("<Internal>");
  }
  p.endList();
  p.addFrills("\n");
}

// A route line's head in text: the marks, the code and the blanks to column 8, the prefix,
// and for a route with vias " [preference/metric] ", as the printer's templates write them
// (" [%d/%u] "). Longer pieces than a line can hold are cut, never written past the buffer.
class RouteHead {
 public:
  void append(std::string_view text) {
    const std::size_t n = std::min(text.size(), sizeof buf_ - len_);
    std::memcpy(buf_ + len_, text.data(), n);
    len_ += n;
  }
  void blanks(std::size_t n) {
    n = std::min(n, sizeof buf_ - len_);
    std::memset(buf_ + len_, ' ', n);
    len_ += n;
  }
  void preferenceAndMetric(int preference, std::uint32_t metric) {
    char pref[16];
    char met[16];
    const char* prefEnd = std::to_chars(pref, pref + sizeof pref, preference).ptr;
    const char* metEnd = std::to_chars(met, met + sizeof met, metric).ptr;
    append(" [");
    append(std::string_view(pref, static_cast<std::size_t>(prefEnd - pref)));
    append("/");
    append(std::string_view(met, static_cast<std::size_t>(metEnd - met)));
    append("] ");
  }
  std::string_view text() const { return {buf_, len_}; }

 private:
  char buf_[160];
  std::size_t len_ = 0;
};

// " [preference/metric]" of a route without vias of its own (a route through vias has them in
// its head). The template is the same on every line, so it is read once.
void printPreferenceAndMetric(const RouteLine& line, rendr::Printer& p, RouteAttrs& a) {
  static const rendr::Template metric(" [%d/%u]");
  a.preference.setValue(line.preference);
  a.metric.setValue(line.metric);
  p.addAttributes(metric, 2, a.preference.getArg(), a.metric.getArg());
}

// A route through the FEC's entries, one via per line after the first.
// The entry's head already carries " [preference/metric] " in text, and in JSON how the route
// is connected, its action, preference and metric (RouteAttrs::viaHead).
void printViaLayout(const RouteLine& line, std::size_t prefixLen, const CachedFec& fec,
                    rendr::Printer& p, RouteAttrs& a) {
  // The vias after the first line up under it: column 8, the address and length, and the
  // " [preference/metric] " that the first line carries.
  const std::size_t indentLen = 8 + prefixLen + 2 +
                                decimalDigits(std::uint64_t(std::max(line.preference, 0))) +
                                (line.preference < 0 ? 1 : 0) + 1 + decimalDigits(line.metric) + 2;
  const std::size_t indentChars = std::min(indentLen, kMaxIndent);
  if (line.viaBlock && line.viaBlock->known) {
    const auto block = a.viaBlocks.block(*line.viaBlock);
    p.replayKeptHanging(block.run, block.shape, indentChars);
    return;
  }
  if (!line.viaBlock) {
    if (const auto block = a.viaBlocks.find(&fec)) {
      p.replayKeptHanging(block->run, block->shape, indentChars);
      return;
    }
  }
  const char* indent = blanks(indentLen);
  char newline[kMaxIndent + 2];
  newline[0] = '\n';
  std::memcpy(newline + 1, indent, indentChars);
  const auto recording = p.startRecording();
  const CommonViaTemplates common(newline, indentChars + 1);
  p.startList("vias");
  for (int i = 0; i < fec.numEntries(); ++i) {
    p.startListEntry();
    printVia(fec, static_cast<std::uint16_t>(i), indent, newline, indentChars + 1, common, p, a);
    p.endListEntry();
  }
  p.endList();
  p.addFrills("\n");
  rendr::Printer::RecordedShape shape;
  if (const auto bytes = p.finishHangingRecording(recording, shape, indentChars)) {
    if (const auto run = p.keep(*bytes)) {
      const ViaBlockRef ref = a.viaBlocks.add(&fec, *run, shape);
      if (line.viaBlock) *line.viaBlock = ref;
    }
  }
}

// No vias of its own: a nexthop group or an SR-TE policy forwards it. Such an entry says
// neither how it is connected nor what it does with the traffic, only what carries it.
void printGroupOrPolicyLayout(const RouteLine& line, rendr::Printer& p, RouteAttrs& a) {
  printPreferenceAndMetric(line, p, a);
  // " via" stands even when neither follows (an empty FEC): the line still says the route
  // forwards, through nothing the table can name.
  p.addFrills(" via");
  if (line.groupName) {
    p.startSubmodel("nexthopGroup");
    a.groupName.setValue(line.groupName);
    a.groupId.setValue(line.groupId);  // a group id may pass 32 bits, as its FEC index does
    p.addAttributes(" %s, %d", 2, a.groupName.getArg(), a.groupId.getArg());
    p.endSubmodel();
  } else if (line.policy) {
    p.startSubmodel("srTePolicy");
    a.endpoint.setValue(line.policy->endpoint.stringValue());
    a.color.setValue(line.policy->color);
    p.addAttributes(" SR-TE Policy %s, %d", 2, a.endpoint.getArg(), a.color.getArg());
    p.endSubmodel();
  }
  p.addFrills("\n");
  p.startList("vias");
  p.endList();
}

template <class RouteType>
void printFormatRoute(RouteType type, const RouteLine& line, const CachedFec& fec,
                      rendr::Printer& p, RouteAttrs& a) {
  const std::size_t prefixLen = line.prefix.size();
  a.prefix.setValue(line.prefix);
  a.hardwareProgrammed.setValue(line.hardwareProgrammed);
  a.routeType.setValue(type);
  a.kernelProgrammed.setValue(line.kernelProgrammed);
  const bool viaLayout = !line.drop && !line.connected && line.entries > 0;
  if (p.format() != rendr::kFormatText) {
    // The entry's key and first members in one printer call: a whole-table listing writes a
    // million of them.
    if (viaLayout) {
      a.directlyConnected.setValue(false);
      a.routeAction.setValue(std::string_view("forward"));
      a.preference.setValue(line.preference);
      a.metric.setValue(line.metric);
      p.startDictEntry(a.prefix, a.viaHead);
    } else {
      p.startDictEntry(a.prefix, a.head);
    }
  } else {
    p.startDictEntry(a.prefix);
    // The marks and the code, then blanks to column 8, where the prefix always starts (codes
    // are one to four characters), the prefix, and " [preference/metric] " before the vias:
    // the bytes the templates "%s%s%s" and " [%d/%u] " would write, put together here and
    // handed to the printer in one call.
    RouteHead head;
    head.append(a.hardwareProgrammed.text());
    head.append(a.routeType.text());
    head.append(a.kernelProgrammed.text());
    head.blanks(6 - std::min<std::size_t>(a.routeType.text().size(), 6));
    head.append(line.prefix);
    if (viaLayout) head.preferenceAndMetric(line.preference, line.metric);
    p.addText(head.text());
  }

  if (line.drop) {
    printDropLayout(p, a);
  } else if (line.connected) {
    printConnectedLayout(line, p, a);
  } else if (viaLayout) {
    printViaLayout(line, prefixLen, fec, p, a);
  } else {
    printGroupOrPolicyLayout(line, p, a);
  }
  p.endDictEntry();
}

}  // namespace

}  // namespace listing

using namespace listing;

RouteAttrs::RouteAttrs(unsigned f)
    : prefix("prefix", f),
      hardwareProgrammed("hardwareProgrammed", f),
      kernelProgrammed("kernelProgrammed", f),
      routeType("routeType", f),
      directlyConnected("directlyConnected", f),
      routeAction("routeAction", f),
      preference("preference", f),
      metric("metric", f),
      nexthopAddr("nexthopAddr", f),
      interface("interface", f),
      interfaceDescription("interfaceDescription", f),
      mplsLabel("mplsLabel", f),
      labelStack("labelStack", f),
      vtepAddr("vtepAddr", f),
      vni("vni", f),
      routerMac("routerMac", f),
      viaWeight("viaWeight", f),
      viaType("viaType", f),
      tunnelEndPoint("tunnelEndPoint", f),
      tunnelType("tunnelType", f),
      tunnelAddressFamily("tunnelAddressFamily", f),
      tunnelIndex("tunnelIndex", f),
      groupName("groupName", f),
      groupId("groupId", f),
      endpoint("endpoint", f),
      color("color", f),
      head{&hardwareProgrammed, &routeType, &kernelProgrammed},
      viaHead{&hardwareProgrammed, &routeType, &kernelProgrammed, &directlyConnected, &routeAction,
              &preference,         &metric} {}

void ViaBlockCache::insert(const Slot& slot) {
  for (std::size_t i = slotOf(slot.fec);; i = (i + 1) & (slots_.size() - 1)) {
    if (!slots_[i].fec) {
      slots_[i] = slot;
      return;
    }
  }
}

ViaBlockRef ViaBlockCache::add(const CachedFec* fec, rendr::Printer::KeptRun run,
                               rendr::Printer::RecordedShape shape) {
  if (2 * (used_ + 1) > slots_.size()) {
    std::vector<Slot> old(std::max<std::size_t>(64, 2 * slots_.size()));
    old.swap(slots_);
    for (const Slot& slot : old) {
      if (slot.fec) insert(slot);
    }
  }
  insert(Slot{fec, run.at, run.size, shape});
  ++used_;
  return ViaBlockRef{run.at, run.size, shape, true};
}

void maybeAddLabelStackToOutput(rendr::Printer& p, RouteAttrs& a, Plexa::MplsLabel label,
                                const Plexa::MplsLabelOperation& op) {
  if (op.empty()) {
    if (label.isNoLabel()) return;
    a.mplsLabel.setValue(label.value());
    p.addAttributes(" label %u", 1, a.mplsLabel.getArg());
    return;
  }
  // The tunnel's labels on top, then the via's own.
  std::string stack = op.labelsText();
  if (!label.isNoLabel()) stack += " " + label.stringValue();
  a.labelStack.setValue(stack);
  p.addFrills(" label");
  p.addAttributes(" %s", 1, a.labelStack.getArg());
}

template <class RouteType>
void printFormatRoute4(RouteType type, const RouteLine& line, const CachedFec& fec,
                       rendr::Printer& p, RouteAttrs& a) {
  printFormatRoute(type, line, fec, p, a);
}

// The IPv6 layout is the IPv4 one with IPv6 next hops: the next hop texts already carry
// their family, so one layout serves both.
template <class RouteType>
void printFormatRoute6(RouteType type, const RouteLine& line, const CachedFec& fec,
                       rendr::Printer& p, RouteAttrs& a) {
  printFormatRoute(type, line, fec, p, a);
}

template void printFormatRoute4(Routing::Fib::RouteType, const RouteLine&, const CachedFec&,
                                rendr::Printer&, RouteAttrs&);
template void printFormatRoute4(Routing6::Fib::RouteType, const RouteLine&, const CachedFec&,
                                rendr::Printer&, RouteAttrs&);
template void printFormatRoute6(Routing::Fib::RouteType, const RouteLine&, const CachedFec&,
                                rendr::Printer&, RouteAttrs&);
template void printFormatRoute6(Routing6::Fib::RouteType, const RouteLine&, const CachedFec&,
                                rendr::Printer&, RouteAttrs&);

// Asked of the interface's own addresses, not of the address map: an address held by two
// interfaces of the VRF maps to one of them only, and a route on the other is still connected
// there.
template <class Sorter>
bool isDirectlyConnected(const Sorter& s, const typename Sorter::Family::Prefix& prefix,
                         const Mox::String8& intfName) {
  if (intfName.empty() || !s.ipStatus()) return false;
  const Plexa::IntfId intf(intfName.view());
  const auto* status = sorter::intfAddrStatus(*s.ipStatus()).find(intf);
  if (!status || !*status || !sorter::inListedVrf(s, intf)) return false;
  bool connected = false;
  sorter::forEachOwnAddress(**status, [&](const auto& addr) {
    connected = connected || addr.subnet() == prefix ||
                (addr.address() == prefix.address() && addr.len() == prefix.len());
  });
  return connected;
}
template bool isDirectlyConnected(const RouteSorter&, const Plexa::Prefix&, const Mox::String8&);
template bool isDirectlyConnected(const Route6Sorter&, const Plexa::Ip6Prefix&,
                                  const Mox::String8&);

}  // namespace Rova
