#include "platform/state/Family.h"

namespace Routing {

std::uint8_t V4::defaultPreference(RouteType t) {
  using T = RouteType;
  switch (t) {
    case T::staticConfig:
    case T::nexthopGroupStaticRoute:
    case T::dropRoute:
    case T::dhcp:
      return 1;
    case T::rip:
      return 120;
    case T::ospfSummary:
    case T::ospfIntraArea:
    case T::ospfInterArea:
    case T::ospfExternalType1:
    case T::ospfExternalType2:
    case T::ospfNssaExternalType1:
    case T::ospfNssaExternalType2:
    case T::ospfv3:
      return 110;
    case T::isisLevel1:
    case T::isisLevel2:
      return 115;
    case T::iBgp:
    case T::eBgp:
    case T::bgpAggregate:
      return 200;
    default:
      return 0;
  }
}

std::uint8_t V6::defaultPreference(RouteType t) {
  using T = RouteType;
  switch (t) {
    case T::staticConfig:
    case T::nexthopGroupStaticRoute:
    case T::dropRoute:
    case T::dhcp:
      return 1;
    case T::rip:
      return 120;
    case T::ospfSummary:
    case T::ospf3:
      return 110;
    case T::isisLevel1:
    case T::isisLevel2:
      return 115;
    case T::bgp:
    case T::bgpAggregate:
      return 200;
    default:
      return 0;
  }
}

}  // namespace Routing
