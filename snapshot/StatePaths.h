#pragma once
// Where each piece of device state lives in the entity manager. The snapshot loader writes
// these paths and the front end mounts them; nothing else knows the layout.

#include <string>
#include <string_view>

namespace Snapshot::paths {

// Device-wide state.
inline constexpr const char* kIntfConfig = "interface/config";   // Interface::AllIntfConfigDir
inline constexpr const char* kIntfStatus = "interface/status";   // Interface::AllIntfStatusDir
inline constexpr const char* kIpConfig = "ip/config";            // Ip::Config
inline constexpr const char* kIpStatus = "ip/status";            // Ip::Status
inline constexpr const char* kIp6Config = "ip6/config";          // Ip6::Config
inline constexpr const char* kIp6Status = "ip6/status";          // Ip6::Status
inline constexpr const char* kArpStatus = "arp/status";          // Arp::Table::Status
inline constexpr const char* kVrfIdMap = "vrf/idMap";            // Vrf::VrfIdMap::Status
inline constexpr const char* kTunnelFib = "tunnel/fib";          // Tunnel::TunnelFib::MplsTunnelFib
inline constexpr const char* kTunnelTables = "tunnel/tables";    // Mox::Dir: sr, static, ldp, bgpLu
inline constexpr const char* kEvpnVxlan = "tunnel/evpnVxlan";    // ...::EvpnVxlanTunnelTable
inline constexpr const char* kSrTePolicy = "srTePolicy/status";  // SrTePolicy::PolicyStatus
inline constexpr const char* kNhgConfig = "nexthopGroup/config";  // Routing::NexthopGroup::Config
inline constexpr const char* kNhgEntryStatus =
    "nexthopGroup/entryStatus";  // NexthopGroup::EntryStatus
inline constexpr const char* kNhgHwStatus =
    "hardware/nexthopGroup";  // Routing::Hardware::NexthopGroupStatus
inline constexpr const char* kRoutingHw = "hardware/routing";    // Routing::Hardware::Status
inline constexpr const char* kRouting6Hw = "hardware/routing6";  // Routing6::Hardware::Status
inline constexpr const char* kStaticRouteDefaults =
    "routing/staticRouteDefaults";  // Routing::StaticRouteDefaults
inline constexpr const char* kRdInputDir =
    "ip/routeDistinguisherInput";                     // Mox::Dir of Ip::RouteDistinguisherInput
inline constexpr const char* kDevice = "sys/device";  // Snapshot::DeviceInfo
// The counter tables, at the paths the nexthop-group counters mount.
inline constexpr const char* kCounterKeyTable = "tunnel/nexthop/counterkeyinfo";
inline constexpr const char* kCounterTable = "flexCounter/counterTable/16/4294967295";
inline constexpr const char* kSnapshotCounterTable =
    "flexCounter/snapshotCounterTable/16/4294967295";

// Per-VRF state: "vrf/<name>/<leaf>".
inline constexpr const char* kRoutingConfig = "routing/config";    // Routing::ConfigGen (IPv4)
inline constexpr const char* kRouting6Config = "routing6/config";  // Routing::ConfigGen (IPv6)
inline constexpr const char* kFibRoute = "fib/route";              // Brine::Fib::RouteStatus
inline constexpr const char* kFibFec = "fib/fec";                  // Brine::Fib::ForwardingStatus
inline constexpr const char* kFib6Route = "fib6/route";            // Brine::Fib6::RouteStatus
inline constexpr const char* kFib6Fec = "fib6/fec";                // Brine::Fib6::ForwardingStatus
inline constexpr const char* kHwVrfStatus = "hardware/status";     // Routing::Hardware::VrfStatus
inline constexpr const char* kKernelUnprogrammed = "kernel/unprogrammedRoute";    // IPv4
inline constexpr const char* kKernelUnprogrammed6 = "kernel/unprogrammedRoute6";  // IPv6

inline std::string vrfPath(std::string_view vrf, std::string_view leaf) {
  std::string p = "vrf/";
  p.append(vrf).append("/").append(leaf);
  return p;
}

}  // namespace Snapshot::paths
