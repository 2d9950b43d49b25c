#include "lib/static_routes/StaticRoutesRibCommon.h"

#include <exception>
#include <iterator>
#include <optional>
#include <string>

#include "lib/common/RouteAttrs.h"
#include "lib/common/RouteTypes.h"
#include "lib/static_routes/RibListing.h"
#include "platform/mox/Exception.h"
#include "platform/mox/Trace.h"
#include "platform/rendr/Printer.h"

namespace Rova {

namespace {

Mox::TraceHandle ribTrace("CliSupport");

// The output attributes of one listing, built once and set per route.
struct RibAttrs {
  explicit RibAttrs(unsigned f)
      : prefix("prefix", f),
        preference("preference", f),
        routeType("routeType", f),
        tag("tag", f),
        nexthopGroupName("nexthopGroupName", f),
        dropNextHopName("dropNextHopName", f),
        nexthopAddr("nexthopAddr", f),
        mplsLabel("mplsLabel", f),
        interface("interface", f),
        interfaceDescription("interfaceDescription", f),
        nexthopName("nexthopName", f) {}

  rendr::StringAttrInfo prefix;
  rendr::UintAttrInfo preference;
  rendr::RibRouteTypeAttrInfo routeType;
  rendr::UintAttrInfo tag;
  rendr::StringAttrInfo nexthopGroupName;
  rendr::StringAttrInfo dropNextHopName;
  rendr::StringAttrInfo nexthopAddr;
  rendr::UintAttrInfo mplsLabel;
  rendr::StringAttrInfo interface;
  rendr::StringAttrInfo interfaceDescription;
  rendr::StringAttrInfo nexthopName;
};

}  // namespace

void RibRouteMap::requireRoute(const Value& v) {
  if (!v) {
    throw Mox::RangeException(
        "null _sortedRoute parameter to mutator for Rova::StaticRoutesRibCommon::sortedRoute "
        "not allowed\"");
  }
}

bool StaticRoutesRibCommon::newSortedRoute(const Mox::Ptr<Routing::Route const>& route) {
  return sortedRoute_.newEntry(route ? route->key() : Routing::RouteKey(), route);
}

void StaticRoutesRibCommon::sortedRouteIs(const Mox::Ptr<Routing::Route const>& route) {
  sortedRoute_.set(route ? route->key() : Routing::RouteKey(), route);
}

Mox::String8 StaticRoutesRibCommon::legend() {
  return Mox::String8("Codes: F - forward, D - drop, NG - nexthop group\n");
}

void StaticRoutesRibCommon::dump(Rova::RovaConsts rovaConsts) {
  MOX_TRACE(ribTrace, 5, "Dumping static routes", dynamic_ ? " (dynamic)" : "");
  collect();
  print(rovaConsts);
}

void StaticRoutesRibCommon::collect() {
  for (const auto& [input, flag] : routeInputConf()) {
    if (!input) continue;
    for (const auto& [key, route] : input->route()) {
      if (route->dynamic() == dynamic_) sortedRouteIs(route);
    }
  }
}

namespace {

// One via on a line of its own, under the route's code column.
void printVia(const RibVia& via, int width, rendr::Printer& p, RibAttrs& a) {
  p.startListEntry();
  p.addFrills("\n%*s", width, " ");
  const char* separator = " ";
  if (via.hop) {
    a.nexthopAddr.setValue(via.hop.stringValue());
    p.addAttributes(" via %s", 1, a.nexthopAddr.getArg());
    if (via.showLabel) {
      a.mplsLabel.setValue(via.label);
      p.addAttributes(", label %u", 1, a.mplsLabel.getArg());
    }
    separator = ", ";
  }
  if (via.intf.isValid()) {
    p.addFrills("%s", separator);
    a.interface.setValue(via.intf.stringValue());
    p.addAttributes("%s", 1, a.interface.getArg());
    if (!via.description.empty()) {
      a.interfaceDescription.setValue(via.description);
      p.addAttributes(" (%s)", 1, a.interfaceDescription.getArg());
    }
  }
  if (!via.name.empty()) {
    a.nexthopName.setValue(via.name);
    p.addAttributes(", name: %s", 1, a.nexthopName.getArg());
  }
  p.endListEntry();
}

// One route: its code, prefix, preference and tag, then what it forwards to, each line below
// the first indented by the code column's width.
// The caller has opened the prefix's entry and its "preference" dictionary.
void printRow(const RibRow& row, rendr::Printer& p, RibAttrs& a) {
  a.preference.setValue(row.preference);
  auto atPreference = p.dictEntry(a.preference);

  a.routeType.setValue(row.type);
  p.addAttributes("%-5s", 1, a.routeType.getArg());
  const int width = std::snprintf(nullptr, 0, "%-5s", ribRouteTypeCode(row.type));
  MOX_ASSERT(width >= 0 && "n >= 0");
  p.addFrills("%s", row.prefix.c_str());
  p.addFrills(" [%d]", int(row.preference));
  a.tag.setValue(row.tag);
  p.addAttributes(" tag %u", 1, a.tag.getArg());

  switch (row.form) {
    case RibRowForm::nexthopGroup:
      p.addFrills("\n%*s", width, " ");
      a.nexthopGroupName.setValue(row.groupName);
      p.addAttributes(" nexthop-group %s", 1, a.nexthopGroupName.getArg());
      break;
    case RibRowForm::drop:
      p.addFrills("\n%*s Null0", width, " ");
      if (row.showDropName) {
        a.dropNextHopName.setValue(row.dropName);
        p.addAttributes(", name: %s", 1, a.dropNextHopName.getArg());
      }
      break;
    case RibRowForm::vias: {
      auto vias = p.list("vias");
      for (const RibVia& via : row.vias) {
        p.itemDone();
        printVia(via, width, p, a);
      }
      break;
    }
  }
  p.addFrills("\n");
}

void closePrefix(rendr::Printer& p) {
  p.endDict();
  p.endDictEntry();
}

}  // namespace

// The dump, from its model alone.
void StaticRoutesRibCommon::print(const RovaConsts& rovaConsts) {
  rendr::Printer p(static_cast<int>(fd_), fmt_, true, false, true, 0);
  try {
    const RibListing model(*this, rovaConsts);
    RibAttrs a(p.format());
    p.startDict("routes");
    p.addFrills("%s\n", legend().charPtr());
    // A prefix is one key, with every preference it has inside (a floating static route is
    // one more preference of its prefix): a JSON reader keeps only one of repeated keys. The
    // rows come in prefix order, so a prefix's rows are together.
    std::optional<std::string> open;
    model.forEachRow([&](const RibRow& row) {
      if (open != row.prefix) {
        if (open) closePrefix(p);
        a.prefix.setValue(row.prefix);
        p.startDictEntry(a.prefix);
        p.startDict("preference");
        open = row.prefix;
      }
      printRow(row, p, a);
    });
    if (open) closePrefix(p);
    p.endDict();
  } catch (const std::exception& e) {
    p.reportFailure(e);
    throw;
  }
}

}  // namespace Rova
