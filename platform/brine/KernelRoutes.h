#pragma once
// The prefixes the kernel failed to program.

#include <cstdint>
#include <functional>

#include "platform/brine/Table.h"
#include "platform/plexa/Prefix.h"

namespace Brine::KernelUnprogrammedRoute {

// A prefix that the kernel failed to program.
struct Entry {
  Plexa::IpGenPrefix prefix;
  const Plexa::IpGenPrefix& key() const { return prefix; }
};

class UnprogrammedRoute : public Table<Plexa::IpGenPrefix, Entry> {
  MOX_ENTITY("Brine::KernelUnprogrammedRoute::UnprogrammedRoute")
};

}  // namespace Brine::KernelUnprogrammedRoute
