#pragma once
// Route types of the forwarding tables (one enumeration per family, each with its own
// numbers) and of the routing information base. The enumerator names are also the words of
// the state snapshot.

#include <cstdint>
#include <string_view>

namespace Routing::Fib {

enum class RouteType : std::uint32_t {
  invalid = 0,
  receive = 1,
  receiveLoopback = 2,
  broadcast = 3,
  directedBcast = 4,
  attached = 5,
  staticConfig = 7,
  vcs = 8,
  kernel = 9,
  rip = 10,
  connected = 11,
  reserved = 12,
  bgpAggregate = 13,
  ospfSummary = 14,
  ospfIntraArea = 15,
  ospfInterArea = 16,
  ospfExternalType1 = 17,
  ospfExternalType2 = 18,
  ospfNssaExternalType1 = 19,
  ospfNssaExternalType2 = 20,
  iBgp = 21,
  eBgp = 22,
  isisLevel1 = 23,
  isisLevel2 = 24,
  nexthopGroupStaticRoute = 25,
  dropRoute = 26,
  ospfv3 = 27,
  dhcp = 28,
  martian = 29,
  unknown = 31,
};

// The enumerator's name; "" for a value without one.
std::string_view routeTypeName(RouteType t);
bool routeTypeFromName(std::string_view name, RouteType& out);

}  // namespace Routing::Fib

namespace Routing6::Fib {

enum class RouteType : std::uint32_t {
  invalid = 0,
  receive = 1,
  receiveLoopback = 2,
  attached = 3,
  staticConfig = 4,
  kernel = 5,
  rip = 6,
  connected = 7,
  reserved = 8,
  bgpAggregate = 9,
  ospfSummary = 10,
  ospf3 = 11,
  bgp = 12,
  isisLevel1 = 13,
  isisLevel2 = 14,
  nexthopGroupStaticRoute = 15,
  dropRoute = 16,
  dhcp = 17,
  martian = 18,
  unknown = 20,
};

std::string_view routeTypeName(RouteType t);
bool routeTypeFromName(std::string_view name, RouteType& out);

}  // namespace Routing6::Fib

namespace Routing {

// The kind of a configured or RIB route.
enum class RouteType : std::uint32_t { forward = 0, drop = 1, nexthopGroup = 2 };

std::string_view routeTypeName(RouteType t);
bool routeTypeFromName(std::string_view name, RouteType& out);

// Its text form and registered name, for the records that hold one.
constexpr const char* moxEnumTypeName(RouteType) {
  return "Routing::RouteType";
}
// "" for a number without a name (the names are literals, so the view ends in a NUL).
inline const char* moxEnumName(RouteType t) {
  const std::string_view name = routeTypeName(t);
  return name.empty() ? "" : name.data();
}
inline bool moxEnumFromName(std::string_view name, RouteType& out) {
  return routeTypeFromName(name, out);
}

}  // namespace Routing
