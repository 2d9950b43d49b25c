#include "lib/config_checks/AddressAssignmentChecker.h"

#include <cstdint>
#include <sstream>
#include <string>

#include "lib/config_checks/IntfVrf.h"
#include "platform/mox/Trace.h"

namespace Rova {

namespace {

Mox::TraceHandle addressTrace("CliSupport");

// The host bits are cleared by a shift right and back left with the count taken modulo 32, as
// a 32-bit shift on the hardware does. A length of 0 therefore leaves the address as it was,
// and the messages users know print it that way; the explicit modulo keeps that without the
// undefined 32-bit shift.
std::uint32_t hostBitsCleared(Plexa::IpAddr addr, int len) {
  const unsigned shift = static_cast<unsigned>(32 - len) % 32u;
  return (addr.value() >> shift) << shift;
}

// One of the two subnets contains the other. A /0 on either side contains everything.
bool overlaps(const Plexa::IpAddrWithMask& existing, const Plexa::IpAddrWithMask& wanted) {
  const std::uint32_t diff = existing.address().value() ^ wanted.address().value();
  return existing.len() == 0 || (diff & Plexa::IpAddr::maskOf(existing.len())) == 0 ||
         wanted.len() == 0 || (diff & Plexa::IpAddr::maskOf(wanted.len())) == 0;
}

bool isUnset(const Plexa::IpAddrWithMask& a) {
  return a.address().isZero() && a.len() == 0;
}

// What one interface's addresses say about the wanted address.
struct Finding {
  bool conflict = false;
  bool overlap = false;
  Plexa::IpAddrWithMask existing;  // the entry that overlaps
};

class IntfJudge {
 public:
  IntfJudge(const AddressQueryParams& params, bool sameIntf, bool skipOverlap)
      : params_(params), sameIntf_(sameIntf), skipOverlap_(skipOverlap) {}

  Finding judge(const Ip::IpIntfConfig& intf) {
    Plexa::IpAddrWithMask primary = intf.addrWithMask();
    if (isUnset(primary)) primary = intf.virtualAddrWithMask();
    if (primary.address() == wanted()) f_.conflict = primaryConflicts(primary);
    if (!skipOverlap_ && !isUnset(primary)) testOverlap(primary);

    if (done()) return f_;
    for (const auto& s : intf.secondaryWithMask()) {
      if (consider(s)) return f_;
    }
    for (const auto& s : intf.virtualSecondaryWithMask()) {
      if (consider(s)) return f_;
    }
    return f_;
  }

 private:
  Plexa::IpAddr wanted() const { return params_.addrWithMask().address(); }
  bool done() const { return f_.conflict || f_.overlap; }

  // On another interface an equal address always conflicts; on this one the primary rule says.
  bool primaryConflicts(const Plexa::IpAddrWithMask& p) const {
    if (!sameIntf_) return true;
    switch (params_.primaryMatch()) {
      case AddrMatchType::allowExactMatch:
        return p.len() != params_.addrWithMask().len();
      case AddrMatchType::allowAddressMatch:
        return false;
      default:
        return true;
    }
  }

  bool secondaryConflicts(const Plexa::IpAddrWithMask& s) const {
    const AddrMatchType match = params_.secondaryMatch();
    return !sameIntf_ || match == AddrMatchType::allowNoMatch ||
           (match == AddrMatchType::allowExactMatch && s.len() != params_.addrWithMask().len());
  }

  void testOverlap(const Plexa::IpAddrWithMask& x) {
    if (overlaps(x, params_.addrWithMask())) {
      f_.overlap = true;
      f_.existing = x;
    }
  }

  // Returns true once the entry has decided.
  bool consider(const Plexa::IpAddrWithMask& s) {
    if (s.address() == wanted() && secondaryConflicts(s)) f_.conflict = true;
    if (!skipOverlap_) testOverlap(s);
    return done();
  }

  const AddressQueryParams& params_;
  const bool sameIntf_;
  const bool skipOverlap_;
  Finding f_;
};

}  // namespace

AddressQueryResult AddressAssignmentChecker::check(const AddressQueryParams& params) const {
  AddressQueryResult result;
  const auto& config = params.ipConfig();
  if (!config) {
    result.msgIs("No interfaces");
    return result;
  }
  const Plexa::IpAddrWithMask& wanted = params.addrWithMask();
  // Removing an address is written as assigning 0.0.0.0: nothing to clash with.
  if (wanted.address().isZero()) {
    result.acceptableIs(true);
    return result;
  }

  const auto& intfs = config->intfConfig();
  const L3::VrfName vrf = intfVrf(intfs, params.intfName());
  const bool queryIsMgmt = isManagementIntf(params.intfName().view(), params.mgmtPrefix());

  for (const auto& [id, intf] : intfs) {
    if (!intf || intf->vrf() != vrf) continue;
    const std::string name = intf->intfId().stringValue();
    const bool sameIntf = name == params.intfName().view();
    // Management interfaces sit on one out-of-band network each, so their subnets may
    // overlap; an equal address is still refused.
    const bool skipOverlap =
        sameIntf || (queryIsMgmt && isManagementIntf(name, params.mgmtPrefix()));

    const Finding f = IntfJudge(params, sameIntf, skipOverlap).judge(*intf);
    if (f.conflict) {
      std::ostringstream os;
      os << "Address " << wanted.address().stringValue() << " is already assigned to interface "
         << name;
      result.msgIs(os.str());
      MOX_TRACE(addressTrace, 5, result.msg());
      return result;
    }
    if (f.overlap) {
      // Both addresses are printed bare, without their mask lengths, as users have always
      // seen them.
      std::ostringstream os;
      os << (wanted.len() == 32 ? "Address " : "Subnet ")
         << Plexa::IpAddr(hostBitsCleared(wanted.address(), wanted.len())).stringValue()
         << " overlaps with existing subnet "
         << Plexa::IpAddr(hostBitsCleared(f.existing.address(), f.existing.len())).stringValue()
         << " of interface " << name;
      result.msgIs(os.str());
      MOX_TRACE(addressTrace, 5, result.msg());
      return result;
    }
  }
  result.acceptableIs(true);
  return result;
}

}  // namespace Rova
