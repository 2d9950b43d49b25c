#pragma once
// The two address families as traits, so that code written once for both (the snapshot
// loader, the route sorters and the route printer) names each family's types in one place:
//
//   template <class Fam>
//   bool isHostRoute(const typename Fam::Route& r) { return r.prefix.len() == Fam::kHostLen; }
//   isHostRoute<Routing::V4>(route);   // a /32
//   isHostRoute<Routing::V6>(route6);  // a /128
//
// An IPv4 route may still forward over IPv6 next hops; the family is the route's, not its vias'.

#include <cstdint>
#include <string_view>

#include "platform/brine/Fib.h"
#include "platform/brine/RouteType.h"

#include "platform/plexa/IpAddr.h"
#include "platform/plexa/Prefix.h"
#include "platform/state/Ip.h"
#include "platform/state/RoutingHardware.h"

namespace Routing {

struct V4 {
  using Addr = Plexa::IpAddr;
  using AddrWithMask = Plexa::IpAddrWithMask;
  using Prefix = Plexa::Prefix;
  using RouteType = Routing::Fib::RouteType;
  using Route = Brine::Fib::Route;
  using Fec = Brine::Fib::Fec;
  using Via = Brine::Fib::Via;
  using RouteStatus = Brine::Fib::RouteStatus;
  using ForwardingStatus = Brine::Fib::ForwardingStatus;
  using IpStatus = Ip::Status;
  using HardwareStatus = Routing::Hardware::Status;
  static constexpr const char* kName = "IPv4";
  static constexpr int kHostLen = 32;
  static constexpr bool kIsV6 = false;

  static bool ofFamily(const Plexa::IpGenAddr& a) { return a.isV4(); }
  static Addr addrOf(const Plexa::IpGenAddr& a) { return a.v4Addr(); }
  static std::string_view typeName(RouteType t) { return Routing::Fib::routeTypeName(t); }
  // The protocol's usual administrative distance: what a route of this type has when nothing
  // says otherwise (a hand-written snapshot, or the kernel, which keeps none).
  static std::uint8_t defaultPreference(RouteType t);
};

struct V6 {
  using Addr = Plexa::Ip6Addr;
  using AddrWithMask = Plexa::Ip6AddrWithMask;
  using Prefix = Plexa::Ip6Prefix;
  using RouteType = Routing6::Fib::RouteType;
  using Route = Brine::Fib6::Route;
  using Fec = Brine::Fib6::Fec;
  using Via = Brine::Fib6::Via;
  using RouteStatus = Brine::Fib6::RouteStatus;
  using ForwardingStatus = Brine::Fib6::ForwardingStatus;
  using IpStatus = Ip6::Status;
  using HardwareStatus = Routing6::Hardware::Status;
  static constexpr const char* kName = "IPv6";
  static constexpr int kHostLen = 128;
  static constexpr bool kIsV6 = true;

  static bool ofFamily(const Plexa::IpGenAddr& a) { return a.isV6(); }
  static Addr addrOf(const Plexa::IpGenAddr& a) { return a.v6Addr(); }
  static std::string_view typeName(RouteType t) { return Routing6::Fib::routeTypeName(t); }
  static std::uint8_t defaultPreference(RouteType t);
};

}  // namespace Routing
