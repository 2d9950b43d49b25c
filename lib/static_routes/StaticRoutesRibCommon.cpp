#include "lib/static_routes/StaticRoutesRibCommon.h"

#include <exception>
#include <iterator>

#include "lib/common/RouteAttrs.h"
#include "lib/common/RouteTypes.h"
#include "platform/mox/Exception.h"
#include "platform/mox/Trace.h"
#include "platform/rendr/Printer.h"

namespace Rova {

namespace {

Mox::TraceHandle ribTrace("CliSupport");

// Above this fill the printer's buffer is written out before the next via, so that a long
// listing streams instead of growing.
constexpr unsigned kFlushFullness = 66;

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

void StaticRoutesRibCommon::print(const RovaConsts& rovaConsts) {
  rendr::Printer p(static_cast<int>(fd_), fmt_, true, false, true, 0);
  try {
    RibAttrs a(p.format());
    const Mox::String8& defaultName = rovaConsts.defaultStaticRouteName();
    p.startDict("routes");
    p.addFrills("%s\n", legend().charPtr());
    const auto& routes = sortedRoute();
    for (auto it = routes.begin(); it != routes.end(); ++it) {
      const Routing::Route* route = it->second.get();
      const std::string prefixText = route->prefix().stringValue();
      // Each route is an entry of its own, keyed by its prefix: routes of one prefix at several
      // preferences repeat the prefix's key, each with its one preference inside.
      a.prefix.setValue(prefixText);
      p.startDictEntry(a.prefix);
      p.startDict("preference");
      a.preference.setValue(route->preference());
      p.startDictEntry(a.preference);

      // The code column's width is the indent of every line below the first.
      a.routeType.setValue(route->routeType());
      p.addAttributes("%-5s", 1, a.routeType.getArg());
      const int width = std::snprintf(nullptr, 0, "%-5s", ribRouteTypeCode(route->routeType()));
      MOX_ASSERT(width >= 0 && "n >= 0");
      p.addFrills("%s", prefixText.c_str());
      p.addFrills(" [%d]", int(route->preference()));
      a.tag.setValue(route->tag());
      p.addAttributes(" tag %u", 1, a.tag.getArg());

      switch (route->routeType()) {
        case Routing::RouteType::nexthopGroup:
          p.addFrills("\n%*s", width, " ");
          a.nexthopGroupName.setValue(route->nexthopGroupName());
          p.addAttributes(" nexthop-group %s", 1, a.nexthopGroupName.getArg());
          break;
        case Routing::RouteType::drop:
          p.addFrills("\n%*s Null0", width, " ");
          // Unlike a via's name, an empty drop name is not tested for: with a non-empty
          // default it prints ", name: " with nothing after it, as the saved line does.
          if (route->dropNextHopName() != defaultName) {
            a.dropNextHopName.setValue(route->dropNextHopName());
            p.addAttributes(", name: %s", 1, a.dropNextHopName.getArg());
          }
          break;
        default:
          p.startList("vias");
          for (const Routing::Via& via : route->via()) {
            if (p.fullness() > kFlushFullness) p.ioflush();
            p.startListEntry();
            p.addFrills("\n%*s", width, " ");
            const char* separator = " ";
            if (via.hop()) {
              a.nexthopAddr.setValue(via.hop().stringValue());
              p.addAttributes(" via %s", 1, a.nexthopAddr.getArg());
              if (!via.mplsLabel().isNoLabel()) {
                a.mplsLabel.setValue(via.mplsLabel().value());
                p.addAttributes(", label %u", 1, a.mplsLabel.getArg());
              }
              separator = ", ";
            }
            if (via.intfId().isValid()) {
              p.addFrills("%s", separator);
              a.interface.setValue(via.intfId().stringValue());
              p.addAttributes("%s", 1, a.interface.getArg());
              if (allIntfConfig_) {
                const auto* config = allIntfConfig_->intfConfig().find(via.intfId());
                if (config && *config && !(*config)->description().empty()) {
                  a.interfaceDescription.setValue((*config)->description());
                  p.addAttributes(" (%s)", 1, a.interfaceDescription.getArg());
                }
              }
            }
            const Mox::String8* name = route->viaNextHopName().find(via);
            if (name && !name->empty() && *name != defaultName) {
              a.nexthopName.setValue(*name);
              p.addAttributes(", name: %s", 1, a.nexthopName.getArg());
            }
            p.endListEntry();
          }
          p.endList();
          break;
      }
      p.addFrills("\n");
      p.endDictEntry();
      p.endDict();
      p.endDictEntry();
    }
    p.endDict();
  } catch (const std::exception& e) {
    p.reportFailure(e);
    throw;
  }
}

}  // namespace Rova
