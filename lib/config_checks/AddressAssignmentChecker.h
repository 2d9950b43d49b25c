#pragma once
// May this IPv4 address be assigned to this interface? Refused when another interface of the
// same VRF already holds the address, or holds a subnet that contains or is contained in the new
// one; the interface being configured is judged by the query's match rules.

#include "lib/config_checks/AddressQueryParams.h"
#include "lib/config_checks/AddressQueryResult.h"
#include "platform/mox/Attribute.h"

namespace Rova {

#define ROVA_ADDRESS_ASSIGNMENT_CHECKER_ATTRS(F, C)

class AddressAssignmentChecker {
  MOX_VALUE_TYPE(AddressAssignmentChecker, "Rova::AddressAssignmentChecker",
                 ROVA_ADDRESS_ASSIGNMENT_CHECKER_ATTRS)

 public:
  // Never throws on bad data: a refusal is a result with a message.
  AddressQueryResult check(const AddressQueryParams& params) const;
};

}  // namespace Rova
