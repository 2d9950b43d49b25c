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

std::vector<TypeEntry> stateRecords() {
  std::vector<TypeEntry> out;
  out.push_back(record<Routing::Route>("Routing::Route"));
  out.push_back(record<Routing::ConfigGen>("Routing::ConfigGen"));
  out.push_back(record<Interface::IntfConfig>("Interface::IntfConfig"));
  out.push_back(record<Interface::AllIntfConfigDir>("Interface::AllIntfConfigDir"));
  out.push_back(record<Interface::IntfStatus>("Interface::IntfStatus"));
  out.push_back(record<Interface::AllIntfStatusDir>("Interface::AllIntfStatusDir"));
  out.push_back(
      record<Routing::NexthopGroup::NexthopGroupEntry>("Routing::NexthopGroup::NexthopGroupEntry"));
  out.push_back(record<Routing::NexthopGroup::NexthopGroupConfigEntry>(
      "Routing::NexthopGroup::NexthopGroupConfigEntry"));
  out.push_back(record<Routing::NexthopGroup::Config>("Routing::NexthopGroup::Config"));
  out.push_back(record<Ip::IpIntfConfig>("Ip::IpIntfConfig"));
  out.push_back(record<Ip::Config>("Ip::Config"));
  out.push_back(record<Ip::IpIntfStatus>("Ip::IpIntfStatus"));
  out.push_back(record<Ip::Status>("Ip::Status"));
  out.push_back(record<Ip::RouteDistinguisherInput>("Ip::RouteDistinguisherInput"));
  out.push_back(record<Ip6::AddressInfo>("Ip6::AddressInfo"));
  out.push_back(record<Ip6::IntfConfig>("Ip6::IntfConfig"));
  out.push_back(record<Ip6::Config>("Ip6::Config"));
  out.push_back(record<Ip6::IntfStatus>("Ip6::IntfStatus"));
  out.push_back(record<Ip6::Status>("Ip6::Status"));
  out.push_back(record<Routing::Hardware::Status>("Routing::Hardware::Status"));
  out.push_back(record<Routing::Hardware::VrfStatus>("Routing::Hardware::VrfStatus"));
  out.push_back(
      record<Routing::Hardware::VrfNexthopGroupStatus>("Routing::Hardware::VrfNexthopGroupStatus"));
  out.push_back(
      record<Routing::Hardware::NexthopGroupStatus>("Routing::Hardware::NexthopGroupStatus"));
  out.push_back(record<Routing6::Hardware::Status>("Routing6::Hardware::Status"));
  out.push_back(routeRecord<Brine::Fib::Route>("Brine::Fib::Route"));
  out.push_back(routeRecord<Brine::Fib6::Route>("Brine::Fib6::Route"));
  return out;
}

}  // namespace Rova::cliSupport
