#include "cli/StateInputs.h"

#include "snapshot/StatePaths.h"

namespace cli {

namespace {

namespace paths = Snapshot::paths;

// An input name and where the state keeps it for each family (none: the family has no such
// input). Per-VRF ones live under vrf/<name>/. A name two types use for different entities
// (routingHwStatus: a VRF's hardware status for the sorters, the device's hardware for the
// nexthop-group objects) also names the entity's type; the others match any.
struct StateInput {
  const char* input;
  const char* path4;
  const char* path6;
  bool perVrf;
  const char* entityType = nullptr;
};
const StateInput kStateInputs[] = {
    {"routingConfig", paths::kRoutingConfig, paths::kRouting6Config, true},
    {"routingStatus", paths::kFibRoute, paths::kFib6Route, true},
    {"forwardingStatus", paths::kFibFec, paths::kFib6Fec, true},
    {"forwarding6Status", paths::kFib6Fec, nullptr, true},
    {"tunnelFib", paths::kTunnelFib, paths::kTunnelFib, false},
    {"arpBrine", paths::kArpStatus, paths::kArpStatus, false},
    {"vrfIdMap", paths::kVrfIdMap, paths::kVrfIdMap, false},
    {"allIntfConfig", paths::kIntfConfig, paths::kIntfConfig, false},
    {"ipStatus", paths::kIpStatus, paths::kIp6Status, false},
    {"routingHwStatus", paths::kHwVrfStatus, paths::kHwVrfStatus, true,
     "Routing::Hardware::VrfStatus"},
    {"routingHwStatus", paths::kRoutingHw, paths::kRoutingHw, false, "Routing::Hardware::Status"},
    {"routingHardwareStatus", paths::kRoutingHw, paths::kRouting6Hw, false},
    {"nhEntryStatus", paths::kNhgEntryStatus, paths::kNhgEntryStatus, false},
    {"kernelUnprogrammedRoute", paths::kKernelUnprogrammed, paths::kKernelUnprogrammed6, true},
    {"evpnVxlanTunnelTable", paths::kEvpnVxlan, paths::kEvpnVxlan, false},
    {"tunnelTableDir", paths::kTunnelTables, paths::kTunnelTables, false},
    {"srTePolicyStatus", paths::kSrTePolicy, paths::kSrTePolicy, false},
    {"ipConfig", paths::kIpConfig, nullptr, false},
    {"ip6Config", nullptr, paths::kIp6Config, false},
    {"routeDistinguisherInputDir", paths::kRdInputDir, paths::kRdInputDir, false},
    {"nhgConfig", paths::kNhgConfig, paths::kNhgConfig, false},
    {"nhgEntryStatus", paths::kNhgEntryStatus, paths::kNhgEntryStatus, false},
    {"nhgHwStatus", paths::kNhgHwStatus, paths::kNhgHwStatus, false},
};

}  // namespace

std::vector<Rova::NamedValue> stateInputs(const DeviceState& state, const Rova::TypeEntry& type,
                                          std::string_view vrf) {
  const bool v6 = type.name.find('6') != std::string::npos;
  std::vector<Rova::NamedValue> args;
  for (const Rova::Param& p : type.constructorInputs) {
    for (const StateInput& in : kStateInputs) {
      const char* path = v6 ? in.path6 : in.path4;
      if (p.name != in.input || !path) continue;
      if (in.entityType && p.typeName != in.entityType) continue;
      args.push_back({in.input, in.perVrf ? state.atVrf(vrf, path) : state.at(path)});
    }
  }
  return args;
}

}  // namespace cli
