#pragma once
// Writes the running-configuration lines of the static routes in a routing configuration: one
// line per drop or nexthop-group route, one per via of a forwarding route, in RouteSortKey
// order, with the values that equal the defaults left out unless the caller asks for all.

#include <string_view>

#include "lib/static_routes/NexthopInfo.h"
#include "lib/static_routes/RouteSortKey.h"
#include "lib/static_routes/RovaConsts.h"
#include "platform/mox/Attribute.h"
#include "platform/mox/Collection.h"
#include "platform/mox/Ptr.h"
#include "platform/mox/String8.h"
#include "platform/state/RoutingConfig.h"

namespace Rova {

using SavedRouteMap = Mox::OrderedMap<RouteSortKey, NexthopInfo>;

#define ROVA_STATIC_ROUTES_CLI_SAVER_ATTRS(F, C) C(sortedRoute, SortedRoute, SavedRouteMap)

class StaticRoutesCliSaver : public Mox::Entity {
  MOX_ENTITY_TYPE(StaticRoutesCliSaver, "Rova::StaticRoutesCliSaver",
                  ROVA_STATIC_ROUTES_CLI_SAVER_ATTRS)

 public:
  StaticRoutesCliSaver() = default;
  // From the value text form; the collection is never carried in it, so the saver starts empty.
  explicit StaticRoutesCliSaver(std::string_view text);

  // The configuration text of every static route of `config` that is not dynamic. Each line is
  // `routeCmd` followed by the prefix, so the caller ends `routeCmd` with a blank and puts any
  // VRF clause in it. sortedRoute is not cleared first: a second call merges into what the
  // first collected, and writes both.
  Mox::String8 save(Mox::Ptr<Routing::ConfigGen const> config, bool saveAll, Mox::String8 routeCmd,
                    Rova::RovaConsts rovaConsts);

 private:
  void collect(const Routing::ConfigGen& config, bool saveAll, const RovaConsts& rovaConsts);
  Mox::String8 write(const Mox::String8& routeCmd) const;
};

}  // namespace Rova
