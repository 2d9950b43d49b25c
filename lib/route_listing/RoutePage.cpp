// The listing page, rendered from the listing model: the banners, the gateway of last resort,
// then every listed route in order, flushed as the page fills; and the entry point that picks
// the page.

#include "lib/common/RouteTypes.h"
#include "lib/route_listing/internal/ListingParts.h"
#include "lib/route_listing/internal/RouteListing.h"

namespace Rova {

namespace listing {

namespace {

// One row: its entry, or what stands for it when its FEC is not in the cache.
template <class Family>
void printRow(const ListingRow<Family>& row, rendr::Printer& p, RouteAttrs& a) {
  if (!row.fec) {
    p.addFrills(" <FecId %s not found>", row.fecId.stringValue().c_str());
  } else if (row.v6Vias) {
    printFormatRoute6(row.type, row.line, *row.fec, p, a);
  } else {
    printFormatRoute4(row.type, row.line, *row.fec, p, a);
  }
}

// The gateway of last resort. Its state is an attribute of the page; in text the route itself
// prints here, above the others, and the JSON document lists it under "routes" instead.
// Returns whether the gateway lines stood for the route (printed it, or said it is not
// reachable), so that the routes below leave it out.
template <class Sorter>
bool printDefaultRoute(const RouteListing<Sorter>& model, rendr::Printer& p, RouteAttrs& a) {
  rendr::StringAttrInfo state("defaultRouteState", p.format());
  state.setValue(defaultRouteStateName(model.defaultRouteState()));
  p.addAttributes("", 1, state.getArg());
  switch (model.defaultRouteState()) {
    case DefaultRouteState::notSet:
      p.addFrills("Gateway of last resort is not set\n\n");
      return false;
    case DefaultRouteState::notReachable:
      p.addFrills("Gateway of last resort is not reachable\n\n");
      return true;
    case DefaultRouteState::reachable:
      break;
  }
  return p.textOnly([&] {
    p.addFrills("Gateway of last resort:\n");
    p.startDict("gatewayOfLastResort");
    typename RouteListing<Sorter>::Row row;
    if (model.rowOf(*model.defaultRoute(), row)) printRow(row, p, a);
    p.endDict();
    p.addFrills("\n");
  });
}

void routingEntryLine(const RouteListing<RouteSorter>&, rendr::Printer&) {}

void routingEntryLine(const RouteListing<Route6Sorter>& model, rendr::Printer& p) {
  const Route6Sorter& s = model.sorter();
  if (s.prefix().isNullPrefix()) {
    p.addFrills("Displaying %u of %u IPv6 routing table entries\n", model.displayedCount(),
                model.tableSize());
  } else if (s.originalMask()) {
    p.addFrills("Routing entry for %s\n", s.prefix().stringValue().c_str());
  } else {
    p.addFrills("Routing entry for %s\n", s.prefix().address().stringValue().c_str());
  }
}

// The page, from the model alone.
template <class Sorter>
void renderPage(const RouteListing<Sorter>& model, double start, rendr::Printer& p) {
  const unsigned format = p.format();
  rendr::BoolAttrInfo routingDisabled("routingDisabled", format);
  rendr::BoolAttrInfo allHardware("allRoutesProgrammedHardware", format);
  rendr::BoolAttrInfo allKernel("allRoutesProgrammedKernel", format);

  routingEntryLine(model, p);
  if (model.hardwareBanner()) {
    p.addFrills("%s", kSeparator);
    p.addFrills("%s", kHardwareWarning);
  }
  allHardware.setValue(!model.hardwareBanner());
  if (model.kernelBanner()) p.addFrills("%s", kKernelWarning);
  allKernel.setValue(!model.kernelBanner());
  if (model.hardwareBanner()) p.addFrills("%s", kSeparator);
  routingDisabled.setValue(model.routingDisabled());
  p.addAttributes("", 3, routingDisabled.getArg(), allHardware.getArg(), allKernel.getArg());
  p.addFrills("%s\n", Sorter::legend().charPtr());

  RouteAttrs attrs(format);
  const bool defaultShown = printDefaultRoute(model, p, attrs);
  p.ioflush();

  {
    auto routes = p.dict("routes");
    model.forEachRow(!defaultShown, [&](const auto& row) {
      printRow(row, p, attrs);
      p.itemDone();
    });
  }
  p.addFrills("\n");
  addTimingLines(model.sorter(), start, p);
}

}  // namespace

}  // namespace listing

using namespace listing;

template <class Sorter>
void formatOutput(Sorter& s, std::uint32_t, std::uint32_t, rendr::Printer& p) {
  const double start = steadySeconds();
  const RouteListing<Sorter> model(s);
  renderPage(model, start, p);
}
template void formatOutput(RouteSorter&, std::uint32_t, std::uint32_t, rendr::Printer&);
template void formatOutput(Route6Sorter&, std::uint32_t, std::uint32_t, rendr::Printer&);

namespace listing {

template <class Sorter>
void printRoutesOf(Sorter& s, std::uint32_t fd, std::uint32_t format) {
  rendr::Printer p(static_cast<int>(fd), format, true, false, true, 0);
  if (s.host()) {
    try {
      formatHostRouteOutput(s, fd, format, p);
      return;
    } catch (const rendr::sigintException& e) {
      // Cut short, the host listing gives way to the ordinary one.
      p.reportStop(e);
      p.unwind();
    }
  }
  try {
    formatOutput(s, fd, format, p);
  } catch (const rendr::sigintException& e) {
    p.reportStop(e);
  }
}

}  // namespace listing

template <class Self, class Fam>
void SorterOperations<Self, Fam>::printRoutes(std::uint32_t fd, std::uint32_t format) {
  printRoutesOf(self(), fd, format);
}
template void SorterOperations<RouteSorter, Routing::V4>::printRoutes(std::uint32_t, std::uint32_t);
template void SorterOperations<Route6Sorter, Routing::V6>::printRoutes(std::uint32_t,
                                                                       std::uint32_t);

}  // namespace Rova
