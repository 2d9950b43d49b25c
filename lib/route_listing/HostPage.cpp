// The host listing, rendered from its model: the router's host routes, each to the CPU or to a
// neighbour.

#include "lib/common/RouteTypes.h"
#include "lib/route_listing/internal/HostListing.h"
#include "lib/route_listing/internal/ListingParts.h"

namespace Rova {

namespace listing {

namespace {

// The output attributes of one host page, built once and set per route.
struct HostAttrs {
  explicit HostAttrs(unsigned f)
      : prefix("prefix", f),
        routeType("routeType", f),
        hardware("hardwareProgrammed", f),
        nexthopAddr("nexthopAddr", f),
        toCpu("toCpu", f),
        interface("interface", f) {}

  rendr::StringAttrInfo prefix;
  rendr::HostRouteTypeAttrInfo routeType;
  rendr::HardwareProgrammedAttrInfo hardware;
  rendr::StringAttrInfo nexthopAddr;
  rendr::BoolAttrInfo toCpu;
  rendr::StringAttrInfo interface;
};

// The IPv4 page writes the warning block line by line, the IPv6 page in one piece; the text is
// the same.
void hardwareWarning(const HostListing<RouteSorter>&, rendr::Printer& p) {
  p.addFrills("%s", kSeparator);
  p.addFrills("%s", kHardwareWarning);
  p.addFrills("%s", kSeparator);
}
void hardwareWarning(const HostListing<Route6Sorter>&, rendr::Printer& p) {
  p.addFrills("%s%s%s", kSeparator, kHardwareWarning, kSeparator);
}

// One host route: its codes and prefix, then its vias in the form the model chose.
template <class Family>
void printHostRow(const HostRow<Family>& row, rendr::Printer& p, HostAttrs& a) {
  a.prefix.setValue(row.prefix.data(), row.prefix.size());
  p.startDictEntry(a.prefix);
  a.routeType.setValue(row.type);
  a.hardware.setValue(row.hardwareProgrammed);
  p.addAttributes("%s%s", 2, a.hardware.getArg(), a.routeType.getArg());
  p.addFrills("%.*s", int(row.prefix.size()), row.prefix.data());
  p.startList("vias");
  switch (row.form) {
    case HostRowForm::toCpu:
      p.startListEntry();
      a.toCpu.setValue(true);
      p.addAttributes(" to cpu\n", 1, a.toCpu.getArg());
      p.endListEntry();
      p.endList();
      break;
    case HostRowForm::noVias:
      p.addFrills("\n");
      p.endList();
      break;
    case HostRowForm::neighbour:
      p.startListEntry();
      a.toCpu.setValue(false);
      p.addAttributes("", 1, a.toCpu.getArg());
      a.interface.setValue(row.neighbourIntf.stringValue());
      p.addAttributes(" on %s", 1, a.interface.getArg());
      p.endListEntry();
      p.endList();
      p.addFrills("\n");
      break;
    case HostRowForm::vias: {
      // Each via after the first on a line of its own, under the first.
      const char* indent = blanks(row.prefix.size() + 4);
      bool first = true;
      for (const HostVia& via : row.vias) {
        p.startListEntry();
        if (!first) p.addFrills("\n%s", indent);
        first = false;
        if (!via.hop.isZero()) {
          a.nexthopAddr.setValue(via.hop.stringValue());
          p.addAttributes(" via %s", 1, a.nexthopAddr.getArg());
        }
        a.toCpu.setValue(via.toCpu);
        p.addAttributes(via.toCpu ? " to cpu" : "", 1, a.toCpu.getArg());
        if (!via.intf.isEmpty()) {
          a.interface.setValue(via.intf.stringValue());
          p.addAttributes(" on %s", 1, a.interface.getArg());
        }
        p.endListEntry();
      }
      p.endList();
      p.addFrills("\n");
      break;
    }
  }
  p.endDictEntry();
}

// The page, from the model alone.
template <class Sorter>
void renderHostPage(const HostListing<Sorter>& model, double start, rendr::Printer& p) {
  const unsigned format = p.format();
  p.start();
  rendr::BoolAttrInfo routingDisabled("routingDisabled", format);
  rendr::BoolAttrInfo allHardware("allRoutesProgrammedHardware", format);
  if (model.hardwareBanner()) hardwareWarning(model, p);
  allHardware.setValue(!model.hardwareBanner());
  routingDisabled.setValue(model.routingDisabled());
  p.addFrills("%s\n", Sorter::hostLegend().charPtr());
  p.addAttributes("", 2, routingDisabled.getArg(), allHardware.getArg());
  p.ioflush();
  {
    auto routes = p.dict("routes");
    HostAttrs attrs(format);
    model.forEachRow([&](const auto& row) {
      printHostRow(row, p, attrs);
      p.itemDone();
    });
  }
  p.addFrills("\n");
  addTimingLines(model.sorter(), start, p);
  p.end();
}

template <class Sorter>
void formatHostRoutes(const Sorter& s, rendr::Printer& p) {
  const double start = steadySeconds();
  const HostListing<Sorter> model(s);
  renderHostPage(model, start, p);
}

}  // namespace

}  // namespace listing

using namespace listing;

void formatHostRouteOutput(RouteSorter& s, std::uint32_t, std::uint32_t, rendr::Printer& p) {
  formatHostRoutes(s, p);
}

void formatHostRouteOutput(Route6Sorter& s, std::uint32_t, std::uint32_t, rendr::Printer& p) {
  formatHostRoutes(s, p);
}

}  // namespace Rova
