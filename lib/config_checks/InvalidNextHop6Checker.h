#pragma once
// The IPv6 twin of InvalidNextHopChecker. Link-local addresses get no special treatment: a
// gateway equal to one of the router's own link-local addresses is as invalid as any other.

#include "platform/mox/Attribute.h"
#include "platform/mox/Ptr.h"
#include "platform/plexa/IpAddr.h"
#include "platform/plexa/VrfName.h"
#include "platform/state/Ip.h"

namespace Rova {

#define ROVA_INVALID_NEXT_HOP6_CHECKER_ATTRS(F, C)

class InvalidNextHop6Checker {
  MOX_VALUE_TYPE(InvalidNextHop6Checker, "Rova::InvalidNextHop6Checker",
                 ROVA_INVALID_NEXT_HOP6_CHECKER_ATTRS)

 public:
  // True when the next hop is invalid. A null configuration has no addresses: false.
  bool check(Mox::Ptr<Ip6::Config const> ip6Config, const Plexa::Ip6Addr& nexthop,
             L3::VrfName vrfName) const;
};

}  // namespace Rova
