#pragma once
// Synthetic device states of any size, for benchmarks and stress tests: a spine-facing router
// with sixteen routed uplinks carrying an Internet-sized table in the default VRF.
//
// What a state holds, for N IPv4 and M IPv6 routes:
// - exactly N IPv4 and M IPv6 routes in the default VRF, prefixes unique, with an
//   Internet-like length mix (IPv4: about 60% /24, most others /16 to /23, a few shorter;
//   IPv6: mostly /48, some /32 to /44 and /56 to /64);
// - first the device's own routes: a connected and a receive route per uplink and for the
//   management port, the loopback, and a default route; then BGP and OSPF routes;
// - shared FECs (about seventy for small tables, a few thousand for full ones): ECMP sets
//   over the uplinks, some weighted, some with backup vias, some through LDP tunnels, which
//   have tunnel FIB entries;
// - a handful of nexthop-group routes over four configured groups (or over the first four of
//   a large nexthop-group table, with entry counters: --nexthop-groups);
// - about one route in a thousand not programmed in hardware, one in ten thousand not in the
//   kernel;
// - optionally small extra VRFs ("vrf1"...), each with an interface and a few dozen routes.
//
// The internet profile is shaped like a border router's full Internet table instead: four
// routed interfaces (Ethernet1-4, one eBGP peer on each) and the loopback; IPv4 routes with
// the public table's length mix (about 60% /24, then /22, /23, /21, /20, /19, /18, /16, /17 and
// very few shorter); 90% of the routes over one peer (the peers carry unequal shares), 10% ECMP
// over 2 to 4 of them (2 most often), about 1.14 vias per route; IPv6 routes with /48 the largest
// share (about half), then /32, /44, /40, /36, /29; no tunnels or nexthop groups.
//
// The same options give the same text, byte for byte.

#include <cstdint>
#include <string>

namespace Snapshot {

enum class GeneratorProfile {
  spine,     // the sixteen-uplink spine-facing router (the default)
  internet,  // a border router's full Internet table over four peers
};

struct GeneratorOptions {
  GeneratorProfile profile = GeneratorProfile::spine;
  std::uint64_t ipv4Routes = 1000;
  std::uint64_t ipv6Routes = 100;
  std::uint64_t seed = 1;
  unsigned extraVrfs = 0;
  // 0: four small groups for the nexthop-group routes. N: N groups (at least four) of 128
  // entries each, of every type, one in ten not programmed, with a counter on every entry but
  // one in sixteen and a snapshot for about a quarter of the counters.
  std::uint64_t nexthopGroups = 0;
};

std::string generate(const GeneratorOptions& options);

}  // namespace Snapshot
