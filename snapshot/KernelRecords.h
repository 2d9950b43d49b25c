#pragma once
// What the Linux kernel says about its routing state, one plain record per netlink object: the
// live reader fills these from its dumps and LiveBuilder maps them onto the snapshot's tables.
// Keeping the two apart lets the mapping be tested on hand-made records, without a kernel.
//
// The numbers of route types, protocols, neighbour states and flags are the kernel's own
// (linux/rtnetlink.h, linux/neighbour.h); they are part of its stable interface, and the
// reader checks at compile time that they match.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/plexa/IpAddr.h"
#include "platform/plexa/Mpls.h"

namespace Snapshot::kernel {

// Route types (rtm_type).
namespace rtn {
constexpr std::uint8_t unicast = 1;
constexpr std::uint8_t local = 2;
constexpr std::uint8_t broadcast = 3;
constexpr std::uint8_t anycast = 4;
constexpr std::uint8_t multicast = 5;
constexpr std::uint8_t blackhole = 6;
constexpr std::uint8_t unreachable = 7;
constexpr std::uint8_t prohibit = 8;
constexpr std::uint8_t throwRoute = 9;
}  // namespace rtn

// Route protocols (rtm_protocol): who installed the route.
namespace proto {
constexpr std::uint8_t unspec = 0;
constexpr std::uint8_t redirect = 1;
constexpr std::uint8_t kernel = 2;
constexpr std::uint8_t boot = 3;
constexpr std::uint8_t staticRoute = 4;
constexpr std::uint8_t ra = 9;
constexpr std::uint8_t dhcp = 16;
constexpr std::uint8_t bgp = 186;
constexpr std::uint8_t isis = 187;
constexpr std::uint8_t ospf = 188;
constexpr std::uint8_t rip = 189;
constexpr std::uint8_t ripng = 190;
// FRR's static routes.
constexpr std::uint8_t zstatic = 196;
}  // namespace proto

// Neighbour states (ndm_state).
namespace nud {
constexpr std::uint16_t incomplete = 0x01;
constexpr std::uint16_t reachable = 0x02;
constexpr std::uint16_t stale = 0x04;
constexpr std::uint16_t delay = 0x08;
constexpr std::uint16_t probe = 0x10;
constexpr std::uint16_t failed = 0x20;
constexpr std::uint16_t noarp = 0x40;
constexpr std::uint16_t permanent = 0x80;
}  // namespace nud

// The main, local and default tables, which together are the default VRF's.
constexpr std::uint32_t kTableDefault = 253;
constexpr std::uint32_t kTableMain = 254;
constexpr std::uint32_t kTableLocal = 255;

// What a route or nexthop says about the forwarding hardware.
enum class Offload : std::uint8_t {
  none,    // no flag: the hardware does not hold it, or there is no such hardware
  held,    // offload or trap: the hardware forwards it, or sends it to the CPU
  failed,  // the driver tried and failed
};

struct Link {
  std::uint32_t index = 0;
  std::string name;
  bool adminUp = false;  // IFF_UP
  bool operUp = false;   // IFF_RUNNING: operationally up (or unknown, as lo and dummy are)
  std::string alias;     // IFLA_IFALIAS
  std::uint32_t master = 0;
  bool isVrf = false;  // an l3mdev of kind "vrf"
  std::uint32_t vrfTable = 0;
};

struct Address {
  std::uint32_t ifindex = 0;
  Plexa::IpGenAddr address;  // the interface's own address (IFA_LOCAL for IPv4)
  std::uint8_t prefixLen = 0;
};

// One next hop of a route, or the one of a nexthop object.
struct Nexthop {
  Plexa::IpGenAddr gateway;  // none when zero
  std::uint32_t ifindex = 0;
  std::uint16_t weight = 1;
  Plexa::MplsLabelOperation labels;  // the MPLS encapsulation pushed, outermost first
  Offload offload = Offload::none;
};

struct NexthopObject {
  std::uint32_t id = 0;
  bool blackhole = false;
  Nexthop hop;  // a single next hop (no group)
  struct Member {
    std::uint32_t id;
    std::uint16_t weight;
  };
  std::vector<Member> group;  // a group: its members, in the kernel's order
  Offload offload = Offload::none;
};

struct Route {
  Plexa::AddressFamily family = Plexa::AddressFamily::ipv4;
  std::uint32_t table = kTableMain;
  std::uint8_t type = rtn::unicast;
  std::uint8_t protocol = proto::boot;
  std::uint8_t tos = 0;
  Plexa::IpGenAddr destination;  // zero for a default route
  std::uint8_t prefixLen = 0;
  std::uint32_t metric = 0;
  std::uint32_t nhid = 0;  // a nexthop object, when the route uses one
  Offload offload = Offload::none;
  std::vector<Nexthop> nexthops;  // the route's own next hops (with nhid, its expansion if any)
};

struct Neighbor {
  std::uint32_t ifindex = 0;
  Plexa::IpGenAddr address;
  std::uint16_t state = 0;
  bool hasMac = false;  // a six-byte link-layer address
  std::array<std::uint8_t, 6> mac{};
};

}  // namespace Snapshot::kernel
