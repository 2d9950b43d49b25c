#include "lib/static_routes/ClearIntfRoutesAndViasHelper.h"

#include "platform/mox/Trace.h"
#include "platform/plexa/IntfId.h"

namespace Rova {

namespace {
Mox::TraceHandle clearTrace("CliSupport");

bool leavesThrough(const Routing::Via& via, const Plexa::IntfId& intf) {
  return via.intfId().isValid() && via.intfId() == intf;
}
}  // namespace

void ClearIntfRoutesAndViasHelper::clearIntfRoutesAndViasHelper(Mox::Ptr<Routing::ConfigGen> config,
                                                                Mox::String8 intf) {
  if (!config) return;
  MOX_TRACE(clearTrace, 5, "Clearing static routes and vias of ", intf.view());
  const Plexa::IntfId intfId(intf.view());
  // The iterator steps past an entry it deletes, so removing a route does not end the walk.
  for (auto it = config->routeIterator(); it; ++it) {
    Routing::Route& route = *it.value();
    bool changed = false;
    for (auto via = route.viaIterator(); via; ++via) {
      if (leavesThrough(via.key(), intfId)) {
        route.viaDel(via);
        changed = true;
      }
    }
    for (auto name = route.viaNextHopNameIterator(); name; ++name) {
      if (leavesThrough(name.key(), intfId)) {
        route.viaNextHopNameDel(name);
        changed = true;
      }
    }
    if (changed && route.vias() == 0 && route.routeType() != Routing::RouteType::drop)
      config->routeDel(it);
  }
}

}  // namespace Rova
