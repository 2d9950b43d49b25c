// The host listing: the router's host routes, each to the CPU or to a neighbour.

#include "lib/common/RouteTypes.h"
#include "lib/route_listing/ListingParts.h"

namespace Rova {

namespace listing {

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
        const bool cpu = (*fec)->hostToCpu(static_cast<std::uint16_t>(i));
        toCpu.setValue(cpu);
        p.addAttributes(cpu ? " to cpu" : "", 1, toCpu.getArg());
        if (!via.intfId().isEmpty()) {
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

}  // namespace listing

using namespace listing;

void formatHostRouteOutput(RouteSorter& s, std::uint32_t, std::uint32_t format, rendr::Printer& p) {
  formatHostRoutes(s, format, p);
}

void formatHostRouteOutput(Route6Sorter& s, std::uint32_t, std::uint32_t format,
                           rendr::Printer& p) {
  formatHostRoutes(s, format, p);
}

}  // namespace Rova
