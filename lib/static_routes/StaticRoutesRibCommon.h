#pragma once
// The static routes as the routing information base holds them: one block per route with its
// type code, prefix, preference and tag, then its vias, its nexthop group or its drop target.
// The routes come from route inputs (routeInputConf); `dynamic` chooses the configured routes
// (false) or those installed by agents (true). One printer writes text or JSON.
//
//   auto rib = Mox::makePtr<Rova::StaticRoutesRibCommon>(allIntfConfig);
//   rib->newRouteInputConf(config, true);
//   rib->fdIs(1);
//   rib->fmtIs(rendr::kFormatText);
//   rib->dump(rovaConsts);

#include <cstdint>

#include "lib/static_routes/RovaConsts.h"
#include "platform/mox/Attribute.h"
#include "platform/mox/Collection.h"
#include "platform/mox/Ptr.h"
#include "platform/mox/String8.h"
#include "platform/state/Interface.h"
#include "platform/state/RoutingConfig.h"

namespace Rova {

// The routes to list, by their own key. A null route has no key to be listed under, so every
// mutator refuses one.
class RibRouteMap : public Mox::OrderedMap<Routing::RouteKey, Mox::Ptr<Routing::Route const>> {
  using Base = Mox::OrderedMap<Routing::RouteKey, Mox::Ptr<Routing::Route const>>;

 public:
  bool newEntry(const Key& k, const Value& v) {
    requireRoute(v);
    return Base::newEntry(k, v);
  }
  void set(const Key& k, const Value& v) {
    requireRoute(v);
    Base::set(k, v);
  }
  void set(const Key& k, Value&& v) {
    requireRoute(v);
    Base::set(k, std::move(v));
  }

 private:
  static void requireRoute(const Value& v);
};

}  // namespace Rova

// Still a collection of the framework, for the registry and the value text form.
template <>
struct Mox::IsCollection<Rova::RibRouteMap> : std::true_type {};

namespace Rova {

using RouteInputConfMap = Mox::OrderedMap<Mox::Ptr<Routing::RouteInput const>, bool>;
using RibAllIntfConfigPtr = Mox::Ptr<Interface::AllIntfConfigDir const>;

#define ROVA_STATIC_ROUTES_RIB_COMMON_ATTRS(F, C)                                \
  C(sortedRoute, SortedRoute, RibRouteMap)                                       \
  F(allIntfConfig, AllIntfConfig, RibAllIntfConfigPtr, Mox::AttrKind::input, {}) \
  F(dynamic, Dynamic, bool, Mox::AttrKind::value, {})                            \
  F(fd, Fd, std::uint32_t, Mox::AttrKind::value, {1})                            \
  F(fmt, Fmt, std::uint32_t, Mox::AttrKind::value, {1})                          \
  C(routeInputConf, RouteInputConf, RouteInputConfMap)

class StaticRoutesRibCommon : public Mox::Entity {
  MOX_ENTITY_TYPE(StaticRoutesRibCommon, "Rova::StaticRoutesRibCommon",
                  ROVA_STATIC_ROUTES_RIB_COMMON_ATTRS)

 public:
  explicit StaticRoutesRibCommon(RibAllIntfConfigPtr allIntfConfig = nullptr)
      : allIntfConfig_(std::move(allIntfConfig)) {}

  // Adds (or replaces) a route under its own key; a null route is a range error.
  bool newSortedRoute(const Mox::Ptr<Routing::Route const>& route);
  void sortedRouteIs(const Mox::Ptr<Routing::Route const>& route);

  static Mox::String8 legend();

  // Collects the routes of every route input whose `dynamic` flag is this object's, then lists
  // them on fd in format fmt. Names equal to the default name of `rovaConsts` are left out.
  // Whatever cuts the listing short is reported as "exiting <reason>" and passed on.
  void dump(Rova::RovaConsts rovaConsts);

 private:
  void collect();
  void print(const RovaConsts& rovaConsts);
};

}  // namespace Rova
