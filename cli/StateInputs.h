#pragma once
// Which constructor inputs of the library types the device state holds, and where: the one
// table the route commands and the Python module both fill inputs from, so that a scripted
// front end builds an object from the same state entities the CLI does.

#include <string_view>
#include <vector>

#include "cli/DeviceState.h"
#include "lib/registry/TypeRegistry.h"

namespace cli {

// The inputs of `type` that the state holds, by input name, each the entity the state keeps
// for it: per-VRF ones from `vrf`, the IPv6 ones for a type that reads the IPv6 route table
// (Rova::Route6Sorter). An entity the state lacks is None.
std::vector<Rova::NamedValue> stateInputs(const DeviceState& state, const Rova::TypeEntry& type,
                                          std::string_view vrf);

}  // namespace cli
