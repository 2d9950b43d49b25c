// The entries of the static routes' types: the configuration saver, the routing information
// base's view, the interface clearing, the editor, and the records they read.

#include "lib/registry/CliSupportTypes.h"
#include "lib/static_routes/ClearIntfRoutesAndViasHelper.h"
#include "lib/static_routes/NexthopInfo.h"
#include "lib/static_routes/RouteSortKey.h"
#include "lib/static_routes/RovaConsts.h"
#include "lib/static_routes/StaticRouteEditor.h"
#include "lib/static_routes/StaticRouteFib.h"
#include "lib/static_routes/StaticRoutesCliSaver.h"
#include "lib/static_routes/StaticRoutesRibCommon.h"
#include "platform/state/RoutingConfig.h"

namespace Rova::cliSupport {

TypeEntry staticRoutesRibCommonType() {
  using R = StaticRoutesRibCommon;
  return TypeBuilder<R>("Rova::StaticRoutesRibCommon")
      .constructor<RibAllIntfConfigPtr>({"allIntfConfig"})
      .op("newRouteInputConf", &R::newRouteInputConf<>, {"routeInput", "flag"})
      .op("dump", &R::dump, {"rovaConsts"})
      .op("legend", &R::legend)
      .build();
}

TypeEntry routeSortKeyType() {
  return TypeBuilder<RouteSortKey>("Rova::RouteSortKey")
      .constructor<Plexa::IpGenPrefix, Routing::RoutePreference>({"prefix", "preference"})
      .build();
}

TypeEntry rovaConstsType() {
  return TypeBuilder<RovaConsts>("Rova::RovaConsts").constructor<>().build();
}

TypeEntry nexthopInfoType() {
  return TypeBuilder<NexthopInfo>("Rova::NexthopInfo").constructor<>().build();
}

TypeEntry staticRoutesCliSaverType() {
  return TypeBuilder<StaticRoutesCliSaver>("Rova::StaticRoutesCliSaver")
      .constructor<>()
      .textConstructor()
      .op("save", &StaticRoutesCliSaver::save, {"config", "saveAll", "routeCmd", "rovaConsts"})
      .build();
}

TypeEntry clearIntfRoutesAndViasHelperType() {
  using H = ClearIntfRoutesAndViasHelper;
  return TypeBuilder<H>("Rova::ClearIntfRoutesAndViasHelper")
      .constructor<>()
      .op("clearIntfRoutesAndViasHelper", &H::clearIntfRoutesAndViasHelper, {"config", "intf"})
      .build();
}

TypeEntry staticRouteEditorType() {
  using E = StaticRouteEditor;
  return TypeBuilder<E>("Rova::StaticRouteEditor")
      .constructor<>()
      .op("addRoute", &E::addRoute, {"config", "line"})
      .op("removeRoute", &E::removeRoute, {"config", "line", "everyPreference"})
      .build();
}

TypeEntry staticRouteFibType() {
  using F = StaticRouteFib;
  return TypeBuilder<F>("Rova::StaticRouteFib")
      .constructor<Mox::Ptr<Brine::Fib::RouteStatus>, Mox::Ptr<Brine::Fib::ForwardingStatus>,
                   Mox::Ptr<Brine::Fib6::RouteStatus>, Mox::Ptr<Brine::Fib6::ForwardingStatus>,
                   Mox::Ptr<Routing::ConfigGen const>, Mox::Ptr<Routing::ConfigGen const>,
                   Mox::Ptr<Interface::AllIntfStatusDir const>,
                   Mox::Ptr<Interface::AllIntfConfigDir const>,
                   Mox::Ptr<NexthopGroup::EntryStatus const>>({"routes", "fecs", "routes6", "fecs6",
                                                               "config", "config6", "intfStatus",
                                                               "intfConfig", "nhgEntryStatus"})
      .op("update", &F::update)
      .build();
}

TypeEntry staticRouteDefaultsRecord() {
  return TypeBuilder<Routing::StaticRouteDefaults>("Routing::StaticRouteDefaults").build();
}

}  // namespace Rova::cliSupport
