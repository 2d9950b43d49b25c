#pragma once
// SR-TE policies by the FEC that forwards through each.

#include <cstdint>
#include <functional>

#include "platform/brine/FecId.h"
#include "platform/brine/Table.h"
#include "platform/plexa/IpAddr.h"

namespace SrTePolicy {

using Color = std::uint32_t;

struct PolicyKey {
  Plexa::IpGenAddr endpoint;
  Color color = 0;
  friend bool operator==(const PolicyKey&, const PolicyKey&) = default;
};

struct PolicyEntry {
  Brine::Fib::FecId fecId;
  PolicyKey policyKey;
  Brine::Fib::FecId key() const { return fecId; }
};

class PolicyStatus : public Brine::Table<Brine::Fib::FecId, PolicyEntry> {
  MOX_ENTITY("SrTePolicy::PolicyStatus")

 public:
  // The policy a SR-TE FEC forwards into; the empty key when there is none.
  PolicyKey fecIdToPolicyKey(Brine::Fib::FecId fecId) const { return lookup(fecId).policyKey; }
};

}  // namespace SrTePolicy
