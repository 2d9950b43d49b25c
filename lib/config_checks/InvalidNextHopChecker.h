#pragma once
// Is this static route gateway one of the router's own IPv4 addresses in the route's VRF? Such
// a next hop is invalid. Only configured primary and secondary addresses count: virtual
// addresses are left out on purpose, unlike in the address assignment check, so a gateway equal
// to one is accepted.

#include "platform/mox/Attribute.h"
#include "platform/mox/Ptr.h"
#include "platform/plexa/IpAddr.h"
#include "platform/plexa/VrfName.h"
#include "platform/state/Ip.h"

namespace Rova {

#define ROVA_INVALID_NEXT_HOP_CHECKER_ATTRS(F, C)

class InvalidNextHopChecker {
  MOX_VALUE_TYPE(InvalidNextHopChecker, "Rova::InvalidNextHopChecker",
                 ROVA_INVALID_NEXT_HOP_CHECKER_ATTRS)

 public:
  // True when the next hop is invalid. A null configuration has no addresses: false.
  bool check(Mox::Ptr<Ip::Config const> ipConfig, Plexa::IpAddr nexthop, L3::VrfName vrfName) const;
};

}  // namespace Rova
