#pragma once
// The text form of the forwarding records that operations hand back (a route made up by the
// host listing), so that the front end can show them like any registered value.

#include <string>

#include "lib/registry/Value.h"
#include "platform/brine/Fib.h"
#include "platform/mox/TextForm.h"

namespace Brine {

template <class Prefix, class RouteType>
void writeText(std::string& out, const BasicRoute<Prefix, RouteType>& r) {
  out += std::is_same_v<Prefix, Plexa::Prefix> ? "Value('Brine::Fib::Route', ** {"
                                               : "Value('Brine::Fib6::Route', ** {";
  out += "'prefix': ";
  Mox::writeText(out, r.prefix);
  out += ", 'routeType': ";
  Mox::writeText(out, Mox::String8(routeTypeName(r.routeType)));
  out += ", 'fecId': ";
  Mox::writeText(out, r.fecId.value());
  out += ", 'metric': ";
  Mox::writeText(out, r.metric);
  out += ", 'preference': ";
  Mox::writeText(out, r.preference);
  out += ", 'hardwareProgrammed': ";
  Mox::writeText(out, r.hardwareProgrammed);
  out += "})";
}

}  // namespace Brine

namespace Rova {

template <>
struct TypeName<Brine::Fib::Route> {
  static constexpr const char* value = "Brine::Fib::Route";
};
template <>
struct TypeName<Brine::Fib6::Route> {
  static constexpr const char* value = "Brine::Fib6::Route";
};

}  // namespace Rova
