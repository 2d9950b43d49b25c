#pragma once
// The live source's reading of a kernel route: which family's table it goes to, the route type
// it shows as, and the distance a snapshot gives it. Used by LiveBuilder.cpp alone.

#include <cstdint>
#include <type_traits>

#include "platform/brine/FecId.h"
#include "platform/plexa/IpAddr.h"
#include "platform/state/Family.h"
#include "snapshot/KernelRecords.h"

namespace Snapshot::live {

namespace k = kernel;

// ---- the two families ----

// The platform's family traits, with what the kernel source adds: the family's netlink
// address family and the adjacency type its FECs carry.
struct V4 : Routing::V4 {
  static constexpr Plexa::AddressFamily kFamily = Plexa::AddressFamily::ipv4;
  static constexpr Brine::Fib::AdjType kAdjType = Brine::Fib::AdjType::ipAdj;
};

struct V6 : Routing::V6 {
  static constexpr Plexa::AddressFamily kFamily = Plexa::AddressFamily::ipv6;
  // IPv6 FECs carry the IPv6 adjacency type, so that an IPv4 route over IPv6 next hops can
  // name one and the listing looks it up in the IPv6 table.
  static constexpr Brine::Fib::AdjType kAdjType = Brine::Fib::AdjType::ip6Adj;
};

// The route type a kernel route shows as; false for routes a router's table does not hold
// (multicast, throw).
template <class Fam>
bool routeTypeOf(const k::Route& r, bool hasGateway, typename Fam::RouteType& out) {
  using T = typename Fam::RouteType;
  constexpr bool v4 = std::is_same_v<Fam, V4>;
  switch (r.type) {
    case k::rtn::local:
    case k::rtn::anycast:
      out = T::receive;
      return true;
    case k::rtn::broadcast:
      if constexpr (v4) {
        out = T::broadcast;
        return true;
      }
      return false;
    case k::rtn::blackhole:
    case k::rtn::unreachable:
    case k::rtn::prohibit:
      out = T::dropRoute;
      return true;
    case k::rtn::unicast:
      break;
    default:
      return false;
  }
  switch (r.protocol) {
    case k::proto::kernel:
      // The kernel's own prefix routes of its addresses have no gateway.
      out = hasGateway ? T::kernel : T::connected;
      break;
    case k::proto::staticRoute:
    case k::proto::zstatic:
      out = T::staticConfig;
      break;
    case k::proto::dhcp:
      out = T::dhcp;
      break;
    case k::proto::bgp:
      // The kernel keeps no peer type; see docs/live.md.
      if constexpr (v4) {
        out = T::eBgp;
      } else {
        out = T::bgp;
      }
      break;
    case k::proto::ospf:
      if constexpr (v4) {
        out = T::ospfIntraArea;
      } else {
        out = T::ospf3;
      }
      break;
    case k::proto::isis:
      out = T::isisLevel2;
      break;
    case k::proto::rip:
    case k::proto::ripng:
      out = T::rip;
      break;
    default:
      // boot (ip route add), redirects, router advertisements and daemons without a type of
      // their own: routes in the kernel that no routing protocol of ours installed.
      out = T::kernel;
      break;
  }
  return true;
}

// The protocols' usual administrative distances, as a snapshot defaults them: the kernel
// keeps none.
template <class Fam>
std::uint8_t usualDistance(typename Fam::RouteType t) {
  using T = typename Fam::RouteType;
  if (t == T::staticConfig || t == T::dropRoute || t == T::dhcp) return 1;
  if (t == T::rip) return 120;
  if (t == T::isisLevel2) return 115;
  if constexpr (std::is_same_v<Fam, V4>) {
    if (t == T::ospfIntraArea) return 110;
    if (t == T::eBgp) return 200;
  } else {
    if (t == T::ospf3) return 110;
    if (t == T::bgp) return 200;
  }
  return 0;
}

// The distance a route shows with: a route of the kernel's static protocol carries its
// preference in its metric (rova-agent programs a configured static route so, and a floating
// static then loses to the better one in the kernel as on a router); any other route has its
// protocol's usual distance.
template <class Fam>
std::uint8_t distanceOf(const k::Route& r, typename Fam::RouteType t) {
  if (r.protocol == k::proto::staticRoute && r.metric >= 1 && r.metric <= 255)
    return static_cast<std::uint8_t>(r.metric);
  return usualDistance<Fam>(t);
}

bool isForwarding(std::uint8_t kernelType) {
  return kernelType == k::rtn::unicast;
}

}  // namespace Snapshot::live
