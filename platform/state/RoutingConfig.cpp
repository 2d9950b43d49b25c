#include "platform/state/RoutingConfig.h"

namespace Routing {

void dropZeroAddresses(Via& via) {
  if (via.hop().isZero()) via.hopIs(Plexa::IpGenAddr());
  if (via.vtepAddr().isZero()) via.vtepAddrIs(Plexa::IpGenAddr());
}

const char* staticViaProblem(const ViaParts& p) {
  if (p.hop && p.vtep) return "a via has a nexthop or a vtep, not both";
  if (!p.hop && !p.vtep && !p.interface) return "a via needs a nexthop, an interface or a vtep";
  if (p.label && !p.hop) return "a label goes with a nexthop";
  if (p.vtep && !p.vni) return "a vtep via needs a vni";
  if (!p.vtep && (p.vni || p.routerMac)) return "vni and routerMac go with a vtep";
  return nullptr;
}

}  // namespace Routing
