#pragma once
// How configuration lines change the static routes of one routing configuration (one VRF, one
// family): the rules configuration mode applies, and that every other writer of configuration
// (the Python module, a state agent) applies the same way. The saver writes these routes back
// as the very lines that made them.
//
// A line is given as a route of its own: its key (prefix, preference), its kind and tag, the
// drop name or group name of its kind, and for a forwarding line its one via, with that via's
// BFD tracking and name.
//
//   Rova::StaticRouteEditor editor;
//   auto line = Mox::makePtr<Routing::Route>(Routing::RouteKey(prefix, 1));
//   line->viaIs(via, true);
//   editor.addRoute(config, *line);          // "" when added, else why not
//   editor.removeRoute(config, *line, false);

#include "platform/mox/Attribute.h"
#include "platform/mox/Ptr.h"
#include "platform/mox/String8.h"
#include "platform/state/RoutingConfig.h"

namespace Rova {

#define ROVA_STATIC_ROUTE_EDITOR_ATTRS(F, C)

class StaticRouteEditor : public Mox::Entity {
  MOX_ENTITY_TYPE(StaticRouteEditor, "Rova::StaticRouteEditor", ROVA_STATIC_ROUTE_EDITOR_ATTRS)

 public:
  // A via joins the forwarding route at the line's preference, keeping the vias it has; any
  // other line replaces what is at that preference (a drop line a forwarding route, a via a
  // drop route). The line's tag becomes the route's; a via's name and tracking become that
  // via's, an empty name removing the one it had. A route an agent installed (dynamic) is not
  // configuration: the line is refused rather than join or replace it. Returns the refusal,
  // empty when the route is in `config`.
  Mox::String8 addRoute(Mox::Ptr<Routing::ConfigGen> config, const Routing::Route& line);

  // What a `no` line names goes from `config`: a forwarding line without a via names the whole
  // route at its preference, or with `everyPreference` every configured route of its prefix; a
  // line with a via, that via of the forwarding route at its preference (the same next hop,
  // interface and VXLAN end point), the route going with its last via; a drop or
  // nexthop-group line, the route at its preference when it is of that kind. Removing what is
  // not there is no error, and an agent's route stays. Returns whether anything was removed.
  bool removeRoute(Mox::Ptr<Routing::ConfigGen> config, const Routing::Route& line,
                   bool everyPreference);
};

}  // namespace Rova
