#include "lib/config_checks/InvalidNextHop6Checker.h"

namespace Rova {

bool InvalidNextHop6Checker::check(Mox::Ptr<Ip6::Config const> ip6Config,
                                   const Plexa::Ip6Addr& nexthop, L3::VrfName vrfName) const {
  if (!ip6Config) return false;
  for (const auto& [id, intf] : ip6Config->intf()) {
    if (!intf || intf->vrf() != vrfName) continue;
    for (const auto& [a, info] : intf->addr()) {
      if (a.address() == nexthop) return true;
    }
  }
  return false;
}

}  // namespace Rova
