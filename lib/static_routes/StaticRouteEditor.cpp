#include "lib/static_routes/StaticRouteEditor.h"

#include <string>

#include "platform/mox/Trace.h"

namespace Rova {

namespace {

Mox::TraceHandle editorTrace("CliSupport");

bool isForward(const Routing::Route& r) {
  return r.routeType() == Routing::RouteType::forward;
}

// A `no` line names a via by where it leads; its label, VNI and router MAC are not part of it.
bool sameVia(const Routing::Via& a, const Routing::Via& b) {
  return a.hop() == b.hop() && a.intfId() == b.intfId() && a.vtepAddr() == b.vtepAddr();
}

void removeVias(Routing::Route& route, const Routing::Via& named) {
  for (auto via = route.viaIterator(); via; ++via) {
    if (!sameVia(via.key(), named)) continue;
    route.viaTrackBfdDel(via.key());
    route.viaNextHopNameDel(via.key());
    route.viaDel(via);
  }
}

}  // namespace

Mox::String8 StaticRouteEditor::addRoute(Mox::Ptr<Routing::ConfigGen> config,
                                         const Routing::Route& line) {
  if (!config) return Mox::String8("The VRF has no routing configuration");
  if (isForward(line) && line.vias() == 0) {
    return Mox::String8("A static route needs a next hop, an interface, Null0 or Nexthop-Group");
  }
  const Routing::RouteKey& key = line.key();
  MOX_TRACE(editorTrace, 5, "Adding static route ", line.prefix().stringValue());
  Mox::Ptr<Routing::Route> route = config->route(key);
  // An agent's route is not configuration: a line neither joins nor replaces it.
  if (route && route->dynamic()) {
    return Mox::String8("A dynamic static route holds " + line.prefix().stringValue() +
                        " at preference " + std::to_string(line.preference()) +
                        "; configure another preference");
  }
  // A via joins the forward route at its preference; any other line replaces what is there.
  if (!route || !isForward(line) || !isForward(*route)) {
    route = Mox::makePtr<Routing::Route>(key);
    route->routeTypeIs(line.routeType());
  }
  route->tagIs(line.tag());
  if (line.routeType() == Routing::RouteType::drop)
    route->dropNextHopNameIs(line.dropNextHopName());
  if (line.routeType() == Routing::RouteType::nexthopGroup)
    route->nexthopGroupNameIs(line.nexthopGroupName());
  if (isForward(line)) {
    for (const Routing::Via& via : line.via()) {
      route->viaIs(via, true);
      if (const bool* track = line.viaTrackBfd().find(via); track && *track) {
        route->viaTrackBfdIs(via, true);
      } else {
        route->viaTrackBfdDel(via);
      }
      const Mox::String8* name = line.viaNextHopName().find(via);
      if (!name || name->empty()) {
        route->viaNextHopNameDel(via);
      } else {
        route->viaNextHopNameIs(via, *name);
      }
    }
  }
  config->routeIs(key, route);
  return Mox::String8();
}

bool StaticRouteEditor::removeRoute(Mox::Ptr<Routing::ConfigGen> config, const Routing::Route& line,
                                    bool everyPreference) {
  if (!config) return false;
  MOX_TRACE(editorTrace, 5, "Removing static route ", line.prefix().stringValue());
  // A line without a via names whole routes: every one of the prefix, or the one at the
  // line's preference, whatever its kind.
  const bool wholeRoute = isForward(line) && line.vias() == 0;
  if (wholeRoute && everyPreference) {
    bool removed = false;
    for (auto it = config->routeIterator(); it; ++it) {
      if (it.key().prefix() == line.prefix() && !it.value()->dynamic()) {
        config->routeDel(it);
        removed = true;
      }
    }
    return removed;
  }
  Mox::Ptr<Routing::Route> route = config->route(line.key());
  if (!route || route->dynamic()) return false;
  if (!wholeRoute && route->routeType() != line.routeType()) return false;
  if (!wholeRoute && isForward(line)) {
    const auto before = route->vias();
    for (const Routing::Via& via : line.via())
      removeVias(*route, via);
    if (route->vias() != 0) return route->vias() != before;
  }
  config->routeDel(route->key());
  return true;
}

}  // namespace Rova
