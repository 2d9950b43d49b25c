#include "platform/brine/RouteType.h"

#include <utility>

namespace {

template <class E, std::size_t N>
std::string_view nameOf(const std::pair<E, const char*> (&names)[N], E t) {
  for (const auto& [e, n] : names) {
    if (e == t) return n;
  }
  return "";
}

template <class E, std::size_t N>
bool valueOf(const std::pair<E, const char*> (&names)[N], std::string_view name, E& out) {
  for (const auto& [e, n] : names) {
    if (name == n) {
      out = e;
      return true;
    }
  }
  return false;
}

}  // namespace

namespace Routing::Fib {

namespace {
using T = RouteType;
const std::pair<RouteType, const char*> kNames[] = {
    {T::invalid, "invalid"},
    {T::receive, "receive"},
    {T::receiveLoopback, "receiveLoopback"},
    {T::broadcast, "broadcast"},
    {T::directedBcast, "directedBcast"},
    {T::attached, "attached"},
    {T::staticConfig, "staticConfig"},
    {T::vcs, "vcs"},
    {T::kernel, "kernel"},
    {T::rip, "rip"},
    {T::connected, "connected"},
    {T::reserved, "reserved"},
    {T::bgpAggregate, "bgpAggregate"},
    {T::ospfSummary, "ospfSummary"},
    {T::ospfIntraArea, "ospfIntraArea"},
    {T::ospfInterArea, "ospfInterArea"},
    {T::ospfExternalType1, "ospfExternalType1"},
    {T::ospfExternalType2, "ospfExternalType2"},
    {T::ospfNssaExternalType1, "ospfNssaExternalType1"},
    {T::ospfNssaExternalType2, "ospfNssaExternalType2"},
    {T::iBgp, "iBgp"},
    {T::eBgp, "eBgp"},
    {T::isisLevel1, "isisLevel1"},
    {T::isisLevel2, "isisLevel2"},
    {T::nexthopGroupStaticRoute, "nexthopGroupStaticRoute"},
    {T::dropRoute, "dropRoute"},
    {T::ospfv3, "ospfv3"},
    {T::dhcp, "dhcp"},
    {T::martian, "martian"},
    {T::unknown, "unknown"},
};
}  // namespace

std::string_view routeTypeName(RouteType t) {
  return nameOf(kNames, t);
}
bool routeTypeFromName(std::string_view name, RouteType& out) {
  return valueOf(kNames, name, out);
}

}  // namespace Routing::Fib

namespace Routing6::Fib {

namespace {
using T = RouteType;
const std::pair<RouteType, const char*> kNames[] = {
    {T::invalid, "invalid"},
    {T::receive, "receive"},
    {T::receiveLoopback, "receiveLoopback"},
    {T::attached, "attached"},
    {T::staticConfig, "staticConfig"},
    {T::kernel, "kernel"},
    {T::rip, "rip"},
    {T::connected, "connected"},
    {T::reserved, "reserved"},
    {T::bgpAggregate, "bgpAggregate"},
    {T::ospfSummary, "ospfSummary"},
    {T::ospf3, "ospf3"},
    {T::bgp, "bgp"},
    {T::isisLevel1, "isisLevel1"},
    {T::isisLevel2, "isisLevel2"},
    {T::nexthopGroupStaticRoute, "nexthopGroupStaticRoute"},
    {T::dropRoute, "dropRoute"},
    {T::dhcp, "dhcp"},
    {T::martian, "martian"},
    {T::unknown, "unknown"},
};
}  // namespace

std::string_view routeTypeName(RouteType t) {
  return nameOf(kNames, t);
}
bool routeTypeFromName(std::string_view name, RouteType& out) {
  return valueOf(kNames, name, out);
}

}  // namespace Routing6::Fib

namespace Routing {

namespace {
const std::pair<RouteType, const char*> kNames[] = {
    {RouteType::forward, "forward"},
    {RouteType::drop, "drop"},
    {RouteType::nexthopGroup, "nexthopGroup"},
};
}  // namespace

std::string_view routeTypeName(RouteType t) {
  return nameOf(kNames, t);
}
bool routeTypeFromName(std::string_view name, RouteType& out) {
  return valueOf(kNames, name, out);
}

}  // namespace Routing
