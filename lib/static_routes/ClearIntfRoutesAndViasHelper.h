#pragma once
// Clearing an interface's static routes: every static via that leaves through the interface
// goes from the routing configuration, with its name, and a route left with no via goes too,
// unless it is a drop route.

#include "platform/mox/Attribute.h"
#include "platform/mox/Ptr.h"
#include "platform/mox/String8.h"
#include "platform/state/RoutingConfig.h"

namespace Rova {

#define ROVA_CLEAR_INTF_ROUTES_AND_VIAS_HELPER_ATTRS(F, C)

class ClearIntfRoutesAndViasHelper : public Mox::Entity {
  MOX_ENTITY_TYPE(ClearIntfRoutesAndViasHelper, "Rova::ClearIntfRoutesAndViasHelper",
                  ROVA_CLEAR_INTF_ROUTES_AND_VIAS_HELPER_ATTRS)

 public:
  // One pass over the routes of `config`. Vias without an interface are never removed, and a
  // route nothing was removed from stays whatever it holds. An interface name that no via
  // uses (or that is no interface name at all) changes nothing.
  void clearIntfRoutesAndViasHelper(Mox::Ptr<Routing::ConfigGen> config, Mox::String8 intf);
};

}  // namespace Rova
