#pragma once
// The static routes of one VRF's configuration, put into its forwarding tables as a routing
// agent puts them there: each prefix's configured routes compete by preference with the route
// another protocol has for that prefix, and the winner's next hops are resolved through the
// forwarding table itself. Whoever changes the configuration or the interfaces (configuration
// mode, the Python module, a state agent) calls update() afterwards; one object is kept per
// VRF for as long as its tables live, because it remembers the routes a static displaced, to
// bring them back when the static goes. docs/static-routes.md states the rules.
//
//   Rova::StaticRouteFib fib(routes, fecs, routes6, fecs6, config, config6, intfStatus,
//                            intfConfig, nhgEntryStatus);
//   editor.addRoute(config, line);
//   fib.update();   // the number of prefixes whose forwarding entry changed

#include <cstdint>
#include <map>
#include <memory>

#include "platform/brine/Fib.h"
#include "platform/brine/NexthopGroupTables.h"
#include "platform/mox/Attribute.h"
#include "platform/mox/Ptr.h"
#include "platform/state/Family.h"
#include "platform/state/Interface.h"
#include "platform/state/RoutingConfig.h"

namespace Rova {

#define ROVA_STATIC_ROUTE_FIB_ATTRS(F, C)

class StaticRouteFib : public Mox::Entity {
  MOX_ENTITY_TYPE(StaticRouteFib, "Rova::StaticRouteFib", ROVA_STATIC_ROUTE_FIB_ATTRS)

 public:
  // How many routes a next hop may resolve through, one through the next, before it is taken
  // as unresolved: a chain that long is a loop or a mistake.
  static constexpr int kMaxResolveDepth = 8;

  // A family whose tables or configuration are null is left alone. `nhgEntryStatus` gives a
  // nexthop group's id by name; without it no group route resolves.
  StaticRouteFib(Mox::Ptr<Brine::Fib::RouteStatus> routes,
                 Mox::Ptr<Brine::Fib::ForwardingStatus> fecs,
                 Mox::Ptr<Brine::Fib6::RouteStatus> routes6,
                 Mox::Ptr<Brine::Fib6::ForwardingStatus> fecs6,
                 Mox::Ptr<Routing::ConfigGen const> config,
                 Mox::Ptr<Routing::ConfigGen const> config6,
                 Mox::Ptr<Interface::AllIntfStatusDir const> intfStatus,
                 Mox::Ptr<Interface::AllIntfConfigDir const> intfConfig,
                 Mox::Ptr<NexthopGroup::EntryStatus const> nhgEntryStatus);
  ~StaticRouteFib() override;

  // Brings the forwarding tables in line with the configuration and the interfaces as they
  // are now; returns how many prefixes' forwarding entries it wrote or removed. A second call
  // with nothing changed writes nothing.
  std::uint32_t update();

 private:
  template <class Fam>
  struct Side;
  template <class Fam>
  class Resolver;

  Mox::Ptr<Interface::AllIntfStatusDir const> intfStatus_;
  Mox::Ptr<Interface::AllIntfConfigDir const> intfConfig_;
  Mox::Ptr<NexthopGroup::EntryStatus const> nhgEntryStatus_;
  std::unique_ptr<Side<Routing::V4>> v4_;
  std::unique_ptr<Side<Routing::V6>> v6_;

  bool intfUsable(const Plexa::IntfId& intf, bool mustBeKnown) const;
};

}  // namespace Rova
