#include "cli/StateInputs.h"

#include "snapshot/StateLayout.h"

namespace cli {

namespace {

namespace layout = Snapshot::layout;

enum class Family { any, v4, v6 };

// An input name and an entity the state keeps for it. An input takes the entity of its name
// whose record type is the input's type; where both families keep one of that type (the
// routing configuration, the kernel-unprogrammed routes), the type's family picks.
struct StateInput {
  const char* input;
  const layout::EntityInfo& entity;
  Family family = Family::any;
};
const StateInput kStateInputs[] = {
    {"routingConfig", layout::routingConfig, Family::v4},
    {"routingConfig", layout::routing6Config, Family::v6},
    {"routingStatus", layout::fibRoute},
    {"routingStatus", layout::fib6Route},
    {"forwardingStatus", layout::fibFec},
    {"forwardingStatus", layout::fib6Fec},
    // An IPv4 route may be forwarded by an IPv6 FEC.
    {"forwarding6Status", layout::fib6Fec, Family::v4},
    {"tunnelFib", layout::tunnelFib},
    {"arpBrine", layout::arpStatus},
    {"vrfIdMap", layout::vrfIdMap},
    {"allIntfConfig", layout::intfConfig},
    {"ipStatus", layout::ipStatus},
    {"ipStatus", layout::ip6Status},
    // The sorters' is a VRF's hardware status, the nexthop-group objects' the device's.
    {"routingHwStatus", layout::hwVrfStatus},
    {"routingHwStatus", layout::routingHw},
    {"routingHardwareStatus", layout::routingHw},
    {"routingHardwareStatus", layout::routing6Hw},
    {"nhEntryStatus", layout::nhgEntryStatus},
    {"kernelUnprogrammedRoute", layout::kernelUnprogrammed, Family::v4},
    {"kernelUnprogrammedRoute", layout::kernelUnprogrammed6, Family::v6},
    {"evpnVxlanTunnelTable", layout::evpnVxlan},
    {"tunnelTableDir", layout::tunnelTables},
    {"srTePolicyStatus", layout::srTePolicy},
    {"ipConfig", layout::ipConfig},
    {"ip6Config", layout::ip6Config},
    {"routeDistinguisherInputDir", layout::rdInputDir},
    {"nhgConfig", layout::nhgConfig},
    {"nhgEntryStatus", layout::nhgEntryStatus},
    {"nhgHwStatus", layout::nhgHwStatus},
};

// A type lists one family's routes: the IPv6 ones read the IPv6 route table.
Family familyOf(const Rova::TypeEntry& type) {
  for (const Rova::Param& p : type.constructorInputs) {
    if (p.typeName == layout::fib6Route.typeName) return Family::v6;
  }
  return Family::v4;
}

}  // namespace

std::vector<Rova::NamedValue> stateInputs(const DeviceState& state, const Rova::TypeEntry& type,
                                          std::string_view vrf) {
  const Family family = familyOf(type);
  std::vector<Rova::NamedValue> args;
  for (const Rova::Param& p : type.constructorInputs) {
    for (const StateInput& in : kStateInputs) {
      if (p.name != in.input || p.typeName != in.entity.typeName) continue;
      if (in.family != Family::any && in.family != family) continue;
      args.push_back({in.input, state.entityAt(in.entity, vrf)});
    }
  }
  return args;
}

}  // namespace cli
