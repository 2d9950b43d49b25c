#include "lib/route_listing/RoutePrinter.h"

#include <chrono>
#include <cstdio>
#include <cstring>

#include "lib/common/RouteTypes.h"
#include "lib/route_listing/SorterAlgorithms.h"
#include "lib/route_listing/TunnelVias.h"

namespace Rova {

namespace {

constexpr const char* kSeparator = "======================================================\n";
constexpr const char* kHardwareWarning =
    "WARNING: Some of the routes are not programmed in     \n"
    "hardware, and they are marked with '*'.               \n";
constexpr const char* kKernelWarning =
    "WARNING: Some of the routes are not programmed in     \n"
    "kernel, and they are marked with '%'.                 \n";

// Continuation lines line up under the first via; the indent is a suffix of this run of blanks.
constexpr std::size_t kMaxIndent = 255;
const char* blanks(std::size_t n) {
  static const std::string run(kMaxIndent, ' ');
  return run.c_str() + kMaxIndent - std::min(n, kMaxIndent);
}

std::size_t decimalDigits(std::uint64_t v) {
  std::size_t n = 1;
  while (v >= 10) {
    v /= 10;
    ++n;
  }
  return n;
}

double steadySeconds() {
  return sorterClockSeconds();
}

// Prints "exiting <reason>" where the user sees it: on standard output for text, and on
// standard error for JSON, whose standard output carries nothing but the document.
void printExiting(rendr::Printer& p, const rendr::sigintException& e) {
  p.reportStop(e);
}

template <class Sorter>
bool isV6() {
  return std::is_same_v<Sorter, Route6Sorter>;
}

// The routes not programmed in hardware in this sorter's family.
std::uint32_t unprogrammedInHardware(const RouteSorter& s) {
  return s.routingHwStatus() ? s.routingHwStatus()->unprogrammedRouteCount() : 0;
}
std::uint32_t unprogrammedInHardware(const Route6Sorter& s) {
  return s.routingHwStatus() ? s.routingHwStatus()->unprogrammedRoute6Count() : 0;
}

template <class Sorter>
bool kernelProgrammed(const Sorter& s, const typename Sorter::Family::Prefix& prefix) {
  const auto& table = s.kernelUnprogrammedRoute();
  return !table || table->empty() || !table->contains(Plexa::IpGenPrefix(prefix));
}

// Fills the FEC's per-entry columns the first time a route that uses it is printed: the
// tunnels' next hops for tunnel vias, the vias themselves otherwise. The columns depend on the
// FEC alone, so every later route that shares it prints from what is there.
template <class Sorter>
void prepareFec(const Sorter& s, const Mox::Ptr<CachedFec>& fec) {
  if (fec->prepared()) return;
  fec->preparedIs(true);
  const bool tunnels = tunnel::hasTunnelVia(*fec);
  if (tunnels) {
    if (tunnel::isHierarchical(s, *fec)) {
      updateTunSortedViaHierarchy(fec, s);
    } else {
      updateTunSortedVia(fec, s);
    }
  }
  auto entry = static_cast<std::uint16_t>(tunnels ? fec->numEntries() : 0);
  for (const auto& via : fec->via()) {
    if (tunnels && !via.tunnelId().isZero()) continue;
    fec->viaTypeStringIs(entry, via.isBackup() ? "backup" : "active");
    if (!via.hop().isZero()) fec->nexthopAddrIs(entry, via.hop().stringValue());
    if (!via.intfId().isEmpty()) fec->interfaceIs(entry, via.intfId().stringValue());
    fec->labelIs(entry, via.viaLabel());
    if (!via.viaWeight().empty()) fec->viaWeightIs(entry, via.viaWeight());
    if (s.evpnVxlanTunnelTable() && s.evpnVxlanTunnelTable()->isValidEvpnIntf(via.intfId())) {
      fec->viaEvpnEntryIs(entry, s.evpnVxlanTunnelTable()->entry(via.intfId()));
    }
    if (s.detail()) {
      const auto d = tunnel::description(s, via.intfId());
      if (!d.empty()) fec->interfaceDescriptionIs(entry, d);
    }
    ++entry;
  }
  fec->numEntriesIs(entry);
}

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
    a.viaType.setValue("backup");
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

template <class RouteType>
void printFormatRoute(RouteType type, const RouteLine& line, const CachedFec& fec,
                      rendr::Printer& p, RouteAttrs& a) {
  char prefixText[Plexa::Ip6Prefix::kMaxTextLen + 1];
  const std::size_t prefixLen =
      static_cast<std::size_t>(line.prefix.write(prefixText) - prefixText);
  a.prefix.setValue(prefixText, prefixLen);
  p.startDictEntry(a.prefix);

  a.hardwareProgrammed.setValue(line.hardwareProgrammed);
  a.routeType.setValue(type);
  a.kernelProgrammed.setValue(line.kernelProgrammed);
  // The marks and the code, then blanks to column 8, where the prefix always starts (codes
  // are one to four characters). A template is text-only, so the blanks and the prefix (which
  // holds no '%') are part of it, with the preference and metric where the line has them.
  const std::size_t codeLen = std::strlen(pcode(type));
  char header[32 + sizeof prefixText];
  std::size_t headerLen = 0;
  auto put = [&](const char* text, std::size_t n) {
    std::memcpy(header + headerLen, text, n);
    headerLen += n;
    header[headerLen] = '\0';
  };
  put("%s%s%s", 6);
  put(blanks(codeLen < 6 ? 6 - codeLen : 0), codeLen < 6 ? 6 - codeLen : 0);
  put(prefixText, prefixLen);
  const bool viaLayout = !line.drop && !line.connected;
  if (viaLayout) {
    a.preference.setValue(line.preference);
    a.metric.setValue(line.metric);
    if (fec.numEntries() > 0) {
      put(" [%d/%u] ", 9);
    } else {
      put(" [%d/%u]", 8);
    }
    p.addAttributes(header, 5, a.hardwareProgrammed.getArg(), a.routeType.getArg(),
                    a.kernelProgrammed.getArg(), a.preference.getArg(), a.metric.getArg());
  } else {
    p.addAttributes(header, 3, a.hardwareProgrammed.getArg(), a.routeType.getArg(),
                    a.kernelProgrammed.getArg());
  }

  if (line.drop) {
    a.directlyConnected.setValue(true);
    a.routeAction.setValue("drop");
    p.addAttributesJson(2, a.directlyConnected.getArg(), a.routeAction.getArg());
    p.addFrills(" is directly connected, Null0");
    p.startList("vias");
    p.endList();
    p.addFrills("\n");
  } else if (line.connected) {
    a.directlyConnected.setValue(true);
    a.routeAction.setValue("forward");
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
  } else if (fec.numEntries() > 0) {
    a.directlyConnected.setValue(false);
    a.routeAction.setValue("forward");
    p.addAttributesJson(2, a.directlyConnected.getArg(), a.routeAction.getArg());
    // The vias after the first line up under it: column 8, the address and length, and the
    // " [preference/metric] " that the first line carries.
    const std::size_t indentLen =
        8 + prefixLen + 2 + decimalDigits(std::uint64_t(std::max(line.preference, 0))) +
        (line.preference < 0 ? 1 : 0) + 1 + decimalDigits(line.metric) + 2;
    const char* indent = blanks(indentLen);
    char newline[kMaxIndent + 2];
    newline[0] = '\n';
    const std::size_t indentChars = std::min(indentLen, kMaxIndent);
    std::memcpy(newline + 1, indent, indentChars);
    const CommonViaTemplates common(newline, indentChars + 1);
    p.startList("vias");
    for (int i = 0; i < fec.numEntries(); ++i) {
      p.startListEntry();
      printVia(fec, static_cast<std::uint16_t>(i), indent, newline, indentChars + 1, common, p, a);
      p.endListEntry();
    }
    p.endList();
    p.addFrills("\n");
  } else {
    // No vias of its own: a nexthop group or an SR-TE policy forwards it.
    a.directlyConnected.setValue(false);
    a.routeAction.setValue("forward");
    p.addAttributesJson(2, a.directlyConnected.getArg(), a.routeAction.getArg());
    // " via" stands even when neither follows (an empty FEC): the line still says the route
    // forwards, through nothing the table can name.
    p.addFrills(" via");
    if (line.groupName) {
      p.startSubmodel("nexthopGroup");
      a.groupName.setValue(line.groupName);
      a.groupId.setValue(static_cast<std::uint32_t>(line.groupId));
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
  p.endDictEntry();
}

template <class Sorter>
bool isDropRoute(typename Sorter::Family::RouteType t) {
  return t == Sorter::Family::RouteType::dropRoute;
}

template <class Sorter>
void printRoute(Sorter& s, const typename Sorter::Family::Route& route, rendr::Printer& p,
                RouteAttrs& a) {
  const Mox::Ptr<CachedFec>* cached = s.fec().find(route.fecId);
  if (!sorter::isPrintable(s, route, cached) || !protocolMatch(route, s.protocol())) return;
  if constexpr (std::is_same_v<Sorter, Route6Sorter>) {
    // The interface filter reads the routes the count leaves out, and the listing shows what
    // it counts.
    if (s.intf() && !sorter::passesInterfaceFilter(s, cached)) return;
  }
  if (!cached) {
    p.addFrills(" <FecId %s not found>", route.fecId.stringValue().c_str());
    return;
  }
  const Mox::Ptr<CachedFec>& fec = *cached;
  RouteLine line;
  line.prefix = Plexa::IpGenPrefix(route.prefix);
  line.hardwareProgrammed = route.hardwareProgrammed;
  line.kernelProgrammed = kernelProgrammed(s, route.prefix);
  line.preference = route.preference;
  line.metric = route.metric;
  line.drop = isDropRoute<Sorter>(route.routeType);

  Mox::String8 groupName;
  SrTePolicy::PolicyKey policy;
  if (Brine::Fib::isNexthopGroupFec(route.fecId)) {
    if (!s.stats().groupNamesBuilt) {
      s.buildNexthopGroupIdToName();
      s.stats().groupNamesBuilt = true;
    }
    const std::uint64_t id = Brine::Fib::nexthopGroupIdFromFec(route.fecId);
    groupName = s.cachedNexthopGroupIdToName(id);
    if (groupName.empty()) groupName = "NexthopGroupUnknown";
    line.groupName = groupName.charPtr();
    line.groupId = id;
  } else if (Brine::Fib::isSrTePolicyFec(route.fecId)) {
    if (s.srTePolicyStatus()) policy = s.srTePolicyStatus()->fecIdToPolicyKey(route.fecId);
    line.policy = &policy;
  }

  prepareFec(s, fec);
  // A route is connected on an interface that holds its prefix. A receive route is the
  // router's own address, so the interface that holds the address is its interface whatever
  // its FEC points at (the CPU, or a next hop); any other route is connected only through a
  // first via without a next hop.
  Mox::String8 connectedIntf;
  if (!line.drop && fec->viaEvpnEntrys() == 0) {
    const typename Sorter::Family::AddrWithMask own(route.prefix.address(), route.prefix.len());
    const Plexa::IntfId* holder = isReceive(route.routeType) ? s.addrToIntfId().find(own) : nullptr;
    if (holder) {
      connectedIntf = holder->stringValue();
    } else if (fec->numEntries() > 0 && fec->lspVias() == 0 && !fec->nexthopAddr().contains(0)) {
      if (const auto* intf = fec->interface().find(0)) connectedIntf = *intf;
    }
    line.connected = isDirectlyConnected(s, route.prefix, connectedIntf);
    line.connectedIntf = connectedIntf.charPtr();
  }
  // An IPv4 route whose vias are IPv6 next hops takes the IPv6 via layout.
  bool v6Vias = isV6<Sorter>();
  if constexpr (std::is_same_v<Sorter, RouteSorter>) {
    v6Vias = Brine::Fib::isV6FecId(route.fecId);
  }
  if (v6Vias) {
    printFormatRoute6(route.routeType, line, *fec, p, a);
  } else {
    printFormatRoute4(route.routeType, line, *fec, p, a);
  }
}

template <class Sorter>
void printDefaultRoute(Sorter& s, rendr::Printer& p, RouteAttrs& a) {
  using Prefix = typename Sorter::Family::Prefix;
  const Prefix defaultPrefix(typename Sorter::Family::Addr(), 0);
  const auto* route = s.sortedRoute().find(defaultPrefix);
  rendr::StringAttrInfo state("defaultRouteState", p.format());
  const bool reachable = route && sorter::isPrintable(s, *route);
  state.setValue(!route ? "notSet" : reachable ? "reachable" : "notReachable");
  p.addAttributes("", 1, state.getArg());
  if (!route) {
    p.addFrills("Gateway of last resort is not set\n\n");
    return;
  }
  if (!reachable) {
    p.addFrills("Gateway of last resort is not reachable\n\n");
  } else if (p.format() == rendr::kFormatText) {
    p.addFrills("Gateway of last resort:\n");
    p.startDict("gatewayOfLastResort");  // text only: JSON lists the route with the others
    if (protocolMatch(*route, s.protocol())) printRoute(s, *route, p, a);
    p.endDict();
    p.addFrills("\n");
  }
  // Printed above in text, so the main loop leaves it out; JSON keeps it under "routes".
  if (p.format() == rendr::kFormatText) s.sortedRouteDel(defaultPrefix);
}

void routingEntryLine(const RouteSorter&, rendr::Printer&) {}

void routingEntryLine(Route6Sorter& s, rendr::Printer& p) {
  if (s.prefix().isNullPrefix()) {
    s.printCountIs(s.printCount() - getFilteredRoutesCount(s));
    p.addFrills("Displaying %u of %u IPv6 routing table entries\n", s.printCount(),
                s.routingStatus() ? unsigned(s.routingStatus()->size()) : 0u);
  } else if (s.originalMask()) {
    p.addFrills("Routing entry for %s\n", s.prefix().stringValue().c_str());
  } else {
    p.addFrills("Routing entry for %s\n", s.prefix().address().stringValue().c_str());
  }
}

template <class Sorter>
void addTimingLines(const Sorter& s, double start, rendr::Printer& p) {
  if (s.quantify() == 0) return;
  rendr::DoubleAttrInfo rsTime("rsTime", p.format());
  rendr::DoubleAttrInfo quantify("quantify", p.format());
  rsTime.setValue(steadySeconds() - start);
  quantify.setValue(s.stats().creationSeconds);
  p.addAttributes("Time taken for the routes to be printed: %f seconds.\n", 1, rsTime.getArg());
  p.addAttributes("Time taken to create the routeSorter: %f seconds.\n", 1, quantify.getArg());
}

}  // namespace

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
      color("color", f) {}

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

template <class Sorter>
bool isDirectlyConnected(const Sorter& s, const typename Sorter::Family::Prefix& prefix,
                         const Mox::String8& intfName) {
  if (intfName.empty()) return false;
  const Plexa::IntfId intf(intfName.view());
  for (const auto& [addr, id] : s.addrToIntfId()) {
    if (id != intf) continue;
    if (addr.subnet() == prefix) return true;
    if (addr.address() == prefix.address() && addr.len() == prefix.len()) return true;
  }
  return false;
}
template bool isDirectlyConnected(const RouteSorter&, const Plexa::Prefix&, const Mox::String8&);
template bool isDirectlyConnected(const Route6Sorter&, const Plexa::Ip6Prefix&,
                                  const Mox::String8&);

template <class Sorter>
void formatOutput(Sorter& s, std::uint32_t, std::uint32_t format, rendr::Printer& p) {
  const double start = steadySeconds();
  rendr::BoolAttrInfo routingDisabled("routingDisabled", format);
  rendr::BoolAttrInfo allHardware("allRoutesProgrammedHardware", format);
  rendr::BoolAttrInfo allKernel("allRoutesProgrammedKernel", format);

  routingEntryLine(s, p);
  const bool hardwareBanner = unprogrammedInHardware(s) != 0;
  if (hardwareBanner) {
    p.addFrills("%s", kSeparator);
    p.addFrills("%s", kHardwareWarning);
  }
  allHardware.setValue(!hardwareBanner);
  const bool kernelBanner = kernelUnprogrammedRoutes(s);
  if (kernelBanner) p.addFrills("%s", kKernelWarning);
  allKernel.setValue(!kernelBanner);
  if (hardwareBanner) p.addFrills("%s", kSeparator);
  routingDisabled.setValue(!s.routingConfig() || !s.routingConfig()->routingEnabled());
  p.addAttributes("", 3, routingDisabled.getArg(), allHardware.getArg(), allKernel.getArg());
  p.addFrills("%s\n", Sorter::legend().charPtr());

  RouteAttrs attrs(format);
  printDefaultRoute(s, p, attrs);
  p.ioflush();

  p.startDict("routes");
  // Print what the table holds now: a route gone since selection prints from an empty record.
  // While nothing was written to the table since selection, the copy selection took is what
  // the table holds, and reading it again would only cost a random access per route.
  const auto& table = s.routingStatus();
  const bool unchanged = !table || table->generation() == s.stats().routeTableGeneration;
  for (const auto& [prefix, selected] : s.sortedRoute()) {
    if (unchanged) {
      printRoute(s, selected, p, attrs);
    } else {
      printRoute(s, sorter::readRecord(*table, prefix), p, attrs);
    }
    if (p.fullness() > 66) p.ioflush();
  }
  p.endDict();
  p.addFrills("\n");
  addTimingLines(s, start, p);
}
template void formatOutput(RouteSorter&, std::uint32_t, std::uint32_t, rendr::Printer&);
template void formatOutput(Route6Sorter&, std::uint32_t, std::uint32_t, rendr::Printer&);

// ---- the host listing ----

namespace {

template <class Sorter>
void formatHostRoutes(Sorter& s, std::uint32_t format, rendr::Printer& p) {
  const double start = steadySeconds();
  p.start();
  rendr::BoolAttrInfo routingDisabled("routingDisabled", format);
  rendr::BoolAttrInfo allHardware("allRoutesProgrammedHardware", format);
  const bool unprogrammed = unprogrammedInHardware(s) != 0;
  if (unprogrammed) {
    if constexpr (std::is_same_v<Sorter, RouteSorter>) {
      p.addFrills("%s", kSeparator);
      p.addFrills("%s", kHardwareWarning);
      p.addFrills("%s", kSeparator);
    } else {
      p.addFrills("%s%s%s", kSeparator, kHardwareWarning, kSeparator);
    }
  }
  allHardware.setValue(!unprogrammed);
  routingDisabled.setValue(!s.routingConfig() || !s.routingConfig()->routingEnabled());
  p.addFrills("%s\n", Sorter::hostLegend().charPtr());
  p.addAttributes("", 2, routingDisabled.getArg(), allHardware.getArg());
  p.ioflush();
  p.startDict("routes");

  rendr::StringAttrInfo prefixAttr("prefix", format);
  rendr::HostRouteTypeAttrInfo routeType("routeType", format);
  rendr::HardwareProgrammedAttrInfo hardware("hardwareProgrammed", format);
  rendr::StringAttrInfo nexthopAddr("nexthopAddr", format);
  rendr::BoolAttrInfo toCpu("toCpu", format);
  rendr::StringAttrInfo interface("interface", format);

  for (const auto& [prefix, route] : s.sortedRoute()) {
    char text[Plexa::Ip6Prefix::kMaxTextLen + 1];
    const std::size_t len = static_cast<std::size_t>(prefix.write(text) - text);
    const char* indent = blanks(len + 4);
    prefixAttr.setValue(text, len);
    p.startDictEntry(prefixAttr);
    routeType.setValue(route.routeType);
    hardware.setValue(route.hardwareProgrammed);
    p.addAttributes("%s%s", 2, hardware.getArg(), routeType.getArg());
    p.addFrills("%.*s", int(len), text);
    p.startList("vias");

    const Mox::Ptr<CachedFec>* fec = s.fec().find(route.fecId);
    if (isHostToCpu(route.routeType)) {
      p.startListEntry();
      toCpu.setValue(true);
      p.addAttributes(" to cpu\n", 1, toCpu.getArg());
      p.endListEntry();
      p.endList();
    } else if (!fec || (*fec)->vias() == 0) {
      p.addFrills("\n");
      p.endList();
    } else if ((*fec)->vias() == 1 && !(*fec)->via().begin()->hop().isZero() &&
               (*fec)->via().begin()->hop() == Plexa::IpGenAddr(prefix.address()) &&
               (*fec)->via().begin()->intfId().isValid()) {
      // A resolved neighbour: the route is the neighbour itself.
      p.startListEntry();
      toCpu.setValue(false);
      p.addAttributes("", 1, toCpu.getArg());
      interface.setValue((*fec)->via().begin()->intfId().stringValue());
      p.addAttributes(" on %s", 1, interface.getArg());
      p.endListEntry();
      p.endList();
      p.addFrills("\n");
    } else {
      int i = 0;
      for (const auto& via : (*fec)->via()) {
        p.startListEntry();
        if (i > 0) p.addFrills("\n%s", indent);
        if (!via.hop().isZero()) {
          nexthopAddr.setValue(via.hop().stringValue());
          p.addAttributes(" via %s", 1, nexthopAddr.getArg());
        }
        const bool cpu = via.intfId() == Plexa::IntfId("Cpu") ||
                         (*fec)->hostToCpu(static_cast<std::uint16_t>(i));
        toCpu.setValue(cpu);
        p.addAttributes(cpu ? " to cpu" : "", 1, toCpu.getArg());
        if (!via.intfId().isEmpty() && !cpu) {
          interface.setValue(via.intfId().stringValue());
          p.addAttributes(" on %s", 1, interface.getArg());
        }
        p.endListEntry();
        ++i;
      }
      p.endList();
      p.addFrills("\n");
    }
    p.endDictEntry();
    if (p.fullness() > 66) p.ioflush();
  }
  p.endDict();
  p.addFrills("\n");
  addTimingLines(s, start, p);
  p.end();
}

template <class Sorter>
void printRoutesOf(Sorter& s, std::uint32_t fd, std::uint32_t format) {
  rendr::Printer p(static_cast<int>(fd), format, true, false, true, 0);
  if (s.host()) {
    try {
      formatHostRouteOutput(s, fd, format, p);
      return;
    } catch (const rendr::sigintException& e) {
      // Cut short, the host listing gives way to the ordinary one.
      printExiting(p, e);
      p.unwind();
    }
  }
  try {
    formatOutput(s, fd, format, p);
  } catch (const rendr::sigintException& e) {
    printExiting(p, e);
  }
}

}  // namespace

void formatHostRouteOutput(RouteSorter& s, std::uint32_t, std::uint32_t format, rendr::Printer& p) {
  formatHostRoutes(s, format, p);
}

void formatHostRouteOutput(Route6Sorter& s, std::uint32_t, std::uint32_t format,
                           rendr::Printer& p) {
  formatHostRoutes(s, format, p);
}

template <class Self, class Fam>
void SorterOperations<Self, Fam>::printRoutes(std::uint32_t fd, std::uint32_t format) {
  printRoutesOf(self(), fd, format);
}
template void SorterOperations<RouteSorter, Routing::V4>::printRoutes(std::uint32_t, std::uint32_t);
template void SorterOperations<Route6Sorter, Routing::V6>::printRoutes(std::uint32_t,
                                                                       std::uint32_t);

}  // namespace Rova
