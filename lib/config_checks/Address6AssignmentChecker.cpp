#include "lib/config_checks/Address6AssignmentChecker.h"

#include <algorithm>
#include <sstream>
#include <string>
#include <utility>

#include "lib/config_checks/IntfVrf.h"
#include "platform/mox/Trace.h"

namespace Rova {

namespace {

Mox::TraceHandle address6Trace("CliSupport");

// One of the two subnets contains the other.
bool overlaps(const Plexa::Ip6AddrWithMask& a, const Plexa::Ip6AddrWithMask& b) {
  const int len = std::min(a.len(), b.len());
  return a.address().masked(len) == b.address().masked(len);
}

}  // namespace

AddressQueryResult Address6AssignmentChecker::check(const Address6QueryParams& params) const {
  AddressQueryResult result;
  std::string msg = refusal(params);
  if (msg.empty()) {
    result.acceptableIs(true);
  } else {
    MOX_TRACE(address6Trace, 5, msg);
    result.msgIs(std::move(msg));
  }
  return result;
}

// The message that refuses the address, or an empty text when it may be assigned.
std::string Address6AssignmentChecker::refusal(const Address6QueryParams& params) {
  const Plexa::Ip6AddrWithMask& wanted = params.addrWithMask();
  if (wanted.address().isLinkLocal()) {
    return "'link-local' keyword must be used to configure a link local address.";
  }
  // No configuration means no interface to clash with.
  const auto& config = params.ip6Config();
  if (!config) return {};

  const auto& intfs = config->intf();
  const L3::VrfName vrf = intfVrf(intfs, params.intfName());
  const bool queryIsMgmt = isManagementIntf(params.intfName().view(), params.mgmtPrefix());

  for (const auto& [id, intf] : intfs) {
    if (!intf || intf->vrf() != vrf) continue;
    const std::string name = intf->intfId().stringValue();

    if (name == params.intfName().view()) {
      // Re-entering the same line (same address, same length) is fine; changing only the
      // length of an address the interface holds is not.
      for (const auto& [a, info] : intf->addr()) {
        if (a.address() == wanted.address() && a.len() != wanted.len()) {
          std::ostringstream os;
          os << "Address " << a.stringValue() << " is already assigned to this interface";
          return os.str();
        }
      }
      continue;
    }

    // Every interface has its own link-local addresses; they never clash across interfaces.
    const bool skipOverlap = queryIsMgmt && isManagementIntf(name, params.mgmtPrefix());
    for (const auto& [a, info] : intf->addr()) {
      if (a.address().isLinkLocal()) continue;
      if (a.address() == wanted.address()) {
        std::ostringstream os;
        os << "Address " << a.address().stringValue() << " is already assigned to interface "
           << name;
        return os.str();
      }
      if (!skipOverlap && overlaps(wanted, a)) {
        std::ostringstream os;
        os << "Subnet " << wanted.subnet().stringValue() << " overlaps with existing subnet "
           << a.subnet().stringValue() << " of interface " << name;
        return os.str();
      }
    }
  }
  return {};
}

}  // namespace Rova
