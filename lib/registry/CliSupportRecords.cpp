// The state records a script reads by attribute name: the configuration and status records
// of the state, each from its own attribute list, and the forwarding routes a listing hands
// back, whose plain layout is named field by field here.

#include "lib/registry/CliSupportTypes.h"
#include "platform/state/Interface.h"
#include "platform/state/Ip.h"
#include "platform/state/NexthopGroupConfig.h"
#include "platform/state/RoutingConfig.h"
#include "platform/state/RoutingHardware.h"

namespace Rova::cliSupport {

namespace {

template <class T>
TypeEntry record(const char* name) {
  return TypeBuilder<T>(name).build();
}

// A forwarding route: a fixed-size record without an attribute list (it lives in tables that
// shared memory may hold), read field by field. The route type reads as its enumerator name,
// the word of the state document.
template <class Route>
TypeEntry routeRecord(const char* name) {
  TypeEntry e;
  e.name = name;
  auto field = [&](const char* attr, const char* type, Thunk<Value(const Value&)> get) {
    detail::addAttr(e.attrs, attr, type, Mox::AttrKind::value, "", "", get, {}, {});
  };
  field("prefix", typeNameOf<decltype(Route::prefix)>(),
        [](const Value& v) { return toValue(detail::constObject<Route>(v).prefix); });
  field("routeType", "Mox::String8", [](const Value& v) {
    return toValue(
        Mox::String8(std::string(routeTypeName(detail::constObject<Route>(v).routeType))));
  });
  field("fecId", "Brine::Fib::FecId",
        [](const Value& v) { return toValue(detail::constObject<Route>(v).fecId); });
  field("metric", "U32",
        [](const Value& v) { return toValue(detail::constObject<Route>(v).metric); });
  field("preference", "U8",
        [](const Value& v) { return toValue(detail::constObject<Route>(v).preference); });
  field("hardwareProgrammed", "bool",
        [](const Value& v) { return toValue(detail::constObject<Route>(v).hardwareProgrammed); });
  return e;
}

}  // namespace

std::vector<TypeMaker> stateRecords() {
  return {
      {"Routing::Route", record<Routing::Route>},
      {"Routing::ConfigGen", record<Routing::ConfigGen>},
      {"Interface::IntfConfig", record<Interface::IntfConfig>},
      {"Interface::AllIntfConfigDir", record<Interface::AllIntfConfigDir>},
      {"Interface::IntfStatus", record<Interface::IntfStatus>},
      {"Interface::AllIntfStatusDir", record<Interface::AllIntfStatusDir>},
      {"Routing::NexthopGroup::NexthopGroupEntry",
       record<Routing::NexthopGroup::NexthopGroupEntry>},
      {"Routing::NexthopGroup::NexthopGroupConfigEntry",
       record<Routing::NexthopGroup::NexthopGroupConfigEntry>},
      {"Routing::NexthopGroup::Config", record<Routing::NexthopGroup::Config>},
      {"Ip::IpIntfConfig", record<Ip::IpIntfConfig>},
      {"Ip::Config", record<Ip::Config>},
      {"Ip::IpIntfStatus", record<Ip::IpIntfStatus>},
      {"Ip::Status", record<Ip::Status>},
      {"Ip::RouteDistinguisherInput", record<Ip::RouteDistinguisherInput>},
      {"Ip6::AddressInfo", record<Ip6::AddressInfo>},
      {"Ip6::IntfConfig", record<Ip6::IntfConfig>},
      {"Ip6::Config", record<Ip6::Config>},
      {"Ip6::IntfStatus", record<Ip6::IntfStatus>},
      {"Ip6::Status", record<Ip6::Status>},
      {"Routing::Hardware::Status", record<Routing::Hardware::Status>},
      {"Routing::Hardware::VrfStatus", record<Routing::Hardware::VrfStatus>},
      {"Routing::Hardware::VrfNexthopGroupStatus",
       record<Routing::Hardware::VrfNexthopGroupStatus>},
      {"Routing::Hardware::NexthopGroupStatus", record<Routing::Hardware::NexthopGroupStatus>},
      {"Routing6::Hardware::Status", record<Routing6::Hardware::Status>},
      {"Brine::Fib::Route", routeRecord<Brine::Fib::Route>},
      {"Brine::Fib6::Route", routeRecord<Brine::Fib6::Route>},
  };
}

}  // namespace Rova::cliSupport
