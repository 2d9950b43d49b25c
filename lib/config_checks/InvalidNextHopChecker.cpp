#include "lib/config_checks/InvalidNextHopChecker.h"

namespace Rova {

bool InvalidNextHopChecker::check(Mox::Ptr<Ip::Config const> ipConfig, Plexa::IpAddr nexthop,
                                  L3::VrfName vrfName) const {
  if (!ipConfig) return false;
  for (const auto& [id, intf] : ipConfig->intfConfig()) {
    if (!intf || intf->vrf() != vrfName) continue;
    if (intf->addrWithMask().address() == nexthop) return true;
    for (const auto& s : intf->secondaryWithMask()) {
      if (s.address() == nexthop) return true;
    }
  }
  return false;
}

}  // namespace Rova
