#pragma once
// May this IPv6 address be assigned to this interface? The IPv6 rules are fixed: a link-local
// address needs the CLI's own keyword, link-local addresses of other interfaces never clash, and
// on the interface being configured only the same address with another mask length is refused.

#include <string>

#include "lib/config_checks/Address6QueryParams.h"
#include "lib/config_checks/AddressQueryResult.h"
#include "platform/mox/Attribute.h"

namespace Rova {

#define ROVA_ADDRESS6_ASSIGNMENT_CHECKER_ATTRS(F, C)

class Address6AssignmentChecker {
  MOX_VALUE_TYPE(Address6AssignmentChecker, "Rova::Address6AssignmentChecker",
                 ROVA_ADDRESS6_ASSIGNMENT_CHECKER_ATTRS)

 public:
  // Never throws on bad data: a refusal is a result with a message.
  AddressQueryResult check(const Address6QueryParams& params) const;

 private:
  static std::string refusal(const Address6QueryParams& params);
};

}  // namespace Rova
