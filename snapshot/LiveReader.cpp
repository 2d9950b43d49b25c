// The live reader: the kernel's dumps through the netlink layer (Netlink.h), each message
// decoded into a kernel record for LiveBuilder. The layer does the socket, the sequence and
// port checks, the walk over a buffer of messages and the attribute walk; what each attribute
// means is decided here.

#include "snapshot/Live.h"
#include "snapshot/LiveFollower.h"

#if defined(__linux__)

#include <arpa/inet.h>
#include <linux/if_link.h>
#include <linux/lwtunnel.h>
#include <linux/mpls.h>
#include <linux/mpls_iptunnel.h>
#include <linux/neighbour.h>
#include <linux/netconf.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <unistd.h>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <exception>
#include <future>
#include <map>
#include <memory>
#include <span>
#include <vector>

#include "platform/plexa/Prefix.h"
#include "snapshot/KernelRecords.h"
#include "snapshot/LiveRouteMirror.h"
#include "snapshot/Netlink.h"
#include "snapshot/StateLayout.h"

namespace Snapshot {

namespace {

namespace k = kernel;
namespace nl = netlink;

static_assert(k::rtn::local == RTN_LOCAL && k::rtn::broadcast == RTN_BROADCAST &&
              k::rtn::anycast == RTN_ANYCAST && k::rtn::multicast == RTN_MULTICAST &&
              k::rtn::blackhole == RTN_BLACKHOLE && k::rtn::unreachable == RTN_UNREACHABLE &&
              k::rtn::prohibit == RTN_PROHIBIT && k::rtn::throwRoute == RTN_THROW &&
              k::rtn::unicast == RTN_UNICAST);
static_assert(k::proto::kernel == RTPROT_KERNEL && k::proto::boot == RTPROT_BOOT &&
              k::proto::staticRoute == RTPROT_STATIC && k::proto::ra == RTPROT_RA &&
              k::proto::dhcp == RTPROT_DHCP && k::proto::bgp == RTPROT_BGP &&
              k::proto::isis == RTPROT_ISIS && k::proto::ospf == RTPROT_OSPF &&
              k::proto::rip == RTPROT_RIP && k::proto::redirect == RTPROT_REDIRECT);
static_assert(k::nud::reachable == NUD_REACHABLE && k::nud::stale == NUD_STALE &&
              k::nud::delay == NUD_DELAY && k::nud::probe == NUD_PROBE &&
              k::nud::permanent == NUD_PERMANENT && k::nud::noarp == NUD_NOARP &&
              k::nud::incomplete == NUD_INCOMPLETE && k::nud::failed == NUD_FAILED);
static_assert(k::kTableMain == RT_TABLE_MAIN && k::kTableLocal == RT_TABLE_LOCAL &&
              k::kTableDefault == RT_TABLE_DEFAULT);

[[noreturn]] void fail(const std::string& what) {
  throw LiveError(what + ": " + std::strerror(errno));
}

// ---- attributes ----

// The attributes of one level by type; types this program does not know are skipped. A
// malformed attribute ends its level: those before it are kept.
template <int Max>
using Attrs = nl::Attributes<Max>;

Plexa::IpGenAddr addressOf(const void* p, std::size_t len) {
  if (len == 4) {
    std::uint32_t v;
    std::memcpy(&v, p, 4);
    return Plexa::IpAddr(ntohl(v));
  }
  if (len == 16) {
    Plexa::Ip6Addr::Bytes b;
    std::memcpy(b.data(), p, 16);
    return Plexa::Ip6Addr(b);
  }
  return {};
}

Plexa::IpGenAddr getAddress(const nlattr* a) {
  return a ? addressOf(nl::payloadOf(a), nl::payloadLength(a)) : Plexa::IpGenAddr();
}

// RTA_VIA: a gateway of either family, as an IPv4 route over an IPv6 next hop has.
Plexa::IpGenAddr getVia(const nlattr* a) {
  if (!a || nl::payloadLength(a) < sizeof(rtvia)) return {};
  const auto* via = static_cast<const rtvia*>(nl::payloadOf(a));
  return addressOf(via->rtvia_addr, nl::payloadLength(a) - sizeof(rtvia));
}

Plexa::IpGenAddr zeroOf(std::uint8_t family) {
  return family == AF_INET6 ? Plexa::IpGenAddr(Plexa::Ip6Addr())
                            : Plexa::IpGenAddr(Plexa::IpAddr());
}

// An MPLS encapsulation's label stack, outermost first. The table's label operation holds 12
// labels; the kernel allows more, and the rest are left out (docs/live.md).
Plexa::MplsLabelOperation getMplsEncap(const nlattr* type, const nlattr* encap) {
  Plexa::MplsLabelOperation op;
  std::uint16_t t = 0;
  if (!nl::readU16(type, t) || t != LWTUNNEL_ENCAP_MPLS) return op;
  Attrs<MPLS_IPTUNNEL_MAX> e;
  e.parseNested(encap);
  const nlattr* dst = e[MPLS_IPTUNNEL_DST];
  if (!dst) return op;
  const auto* entries = static_cast<const std::uint32_t*>(nl::payloadOf(dst));
  const std::size_t n = nl::payloadLength(dst) / sizeof(std::uint32_t);
  op.actionIs(Plexa::MplsLabelOperation::Action::push);
  for (std::size_t i = 0; i < n && i < Plexa::MplsLabelOperation::kMaxLabels; ++i) {
    std::uint32_t entry;
    std::memcpy(&entry, entries + i, sizeof entry);
    op.labelPush(Plexa::MplsLabel((ntohl(entry) & MPLS_LS_LABEL_MASK) >> MPLS_LS_LABEL_SHIFT));
  }
  return op;
}

// The longest prefix of a family's addresses; no kernel sends a longer one.
int maxLenOf(bool v4) {
  return v4 ? Plexa::Prefix::kMaxLen : Plexa::Ip6Prefix::kMaxLen;
}

k::Offload nexthopOffload(unsigned flags) {
  return (flags & (RTNH_F_OFFLOAD | RTNH_F_TRAP)) ? k::Offload::held : k::Offload::none;
}

// ---- the messages ----

void decodeLink(const nlmsghdr* nlh, auto& b) {
  const auto* ifi = nl::familyHeaderOf<ifinfomsg>(nlh);
  if (!ifi) return;
  Attrs<IFLA_MAX> a;
  a.parse(nlh, sizeof *ifi);
  k::Link l;
  l.index = static_cast<std::uint32_t>(ifi->ifi_index);
  l.name = nl::stringOf(a[IFLA_IFNAME]);
  l.adminUp = ifi->ifi_flags & IFF_UP;
  l.operUp = ifi->ifi_flags & IFF_RUNNING;
  l.alias = nl::stringOf(a[IFLA_IFALIAS]);
  nl::readU32(a[IFLA_MASTER], l.master);
  Attrs<IFLA_INFO_MAX> info;
  info.parseNested(a[IFLA_LINKINFO]);
  if (nl::stringOf(info[IFLA_INFO_KIND]) == "vrf") {
    Attrs<IFLA_VRF_MAX> vrf;
    vrf.parseNested(info[IFLA_INFO_DATA]);
    l.isVrf = nl::readU32(vrf[IFLA_VRF_TABLE], l.vrfTable);
  }
  if (!l.name.empty()) b.link(l);
}

void decodeAddress(const nlmsghdr* nlh, auto& b) {
  const auto* ifa = nl::familyHeaderOf<ifaddrmsg>(nlh);
  if (!ifa) return;
  Attrs<IFA_MAX> a;
  a.parse(nlh, sizeof *ifa);
  std::uint32_t flags = ifa->ifa_flags;
  nl::readU32(a[IFA_FLAGS], flags);
  // An address that failed duplicate detection is not the interface's to use.
  if (flags & IFA_F_DADFAILED) return;
  k::Address addr;
  addr.ifindex = ifa->ifa_index;
  addr.prefixLen = ifa->ifa_prefixlen;
  // On a point-to-point link IFA_ADDRESS is the peer's; IFA_LOCAL is always our own.
  addr.address = ifa->ifa_family == AF_INET && a[IFA_LOCAL] ? getAddress(a[IFA_LOCAL])
                                                            : getAddress(a[IFA_ADDRESS]);
  // An address with a mask longer than its family's addresses is none the kernel would send.
  if (addr.prefixLen > maxLenOf(addr.address.isV4())) return;
  if (addr.address.isV4() || addr.address.isV6()) b.address(addr);
}

void decodeNexthopObject(const nlmsghdr* nlh, auto& b) {
  const auto* nhm = nl::familyHeaderOf<nhmsg>(nlh);
  if (!nhm) return;
  Attrs<NHA_MAX> a;
  a.parse(nlh, sizeof *nhm);
  k::NexthopObject o;
  // Bridge FDB next hops serve no route.
  if (!nl::readU32(a[NHA_ID], o.id) || a[NHA_FDB]) return;
  o.offload = nexthopOffload(nhm->nh_flags);
  o.blackhole = a[NHA_BLACKHOLE] != nullptr;
  nl::readU32(a[NHA_OIF], o.hop.ifindex);
  o.hop.gateway = getAddress(a[NHA_GATEWAY]);
  o.hop.labels = getMplsEncap(a[NHA_ENCAP_TYPE], a[NHA_ENCAP]);
  o.hop.offload = o.offload;
  if (const nlattr* g = a[NHA_GROUP]) {
    const auto* members = static_cast<const nexthop_grp*>(nl::payloadOf(g));
    const std::size_t n = nl::payloadLength(g) / sizeof(nexthop_grp);
    for (std::size_t i = 0; i < n; ++i) {
      nexthop_grp m;
      std::memcpy(&m, members + i, sizeof m);
      // The kernel sends weight - 1; newer kernels put a high byte where resvd1 was.
      const unsigned weight = ((unsigned(m.resvd1) << 8) | m.weight) + 1;
      o.group.push_back({m.id, static_cast<std::uint16_t>(weight > 65535 ? 65535 : weight)});
    }
  }
  b.nexthopObject(o);
}

// Decodes one next hop's attributes (the route's own, or one of RTA_MULTIPATH).
template <class A>
void decodeHop(const A& a, k::Nexthop& hop) {
  hop.gateway = a[RTA_GATEWAY] ? getAddress(a[RTA_GATEWAY]) : getVia(a[RTA_VIA]);
  hop.labels = getMplsEncap(a[RTA_ENCAP_TYPE], a[RTA_ENCAP]);
}

class RouteDecoder {
 public:
  static constexpr std::uint32_t kAnyTable = 0;
  explicit RouteDecoder(std::uint32_t table) : table_(table) {}

  // Decodes a route message and hands the route of the table asked for to `sink`.
  template <class Sink>
  void operator()(const nlmsghdr* nlh, Sink&& sink) {
    if (decode(nlh, route_)) sink(route_);
  }

  // Decodes a route message into `r` (whose vector of next hops keeps its room); false when
  // it is no route of the table asked for.
  bool decode(const nlmsghdr* nlh, k::Route& r) const {
    const auto* rtm = nl::familyHeaderOf<rtmsg>(nlh);
    if (!rtm) return false;
    if (rtm->rtm_family != AF_INET && rtm->rtm_family != AF_INET6) return false;
    // A cached route (an IPv6 exception, as a path MTU makes) is no route of a table: a dump
    // leaves them out, and a notification of one is passed over alike.
    if (rtm->rtm_flags & RTM_F_CLONED) return false;
    Attrs<RTA_MAX> a;
    a.parse(nlh, sizeof *rtm);
    r.table = rtm->rtm_table;
    nl::readU32(a[RTA_TABLE], r.table);
    // A kernel without strict checking dumps every table, whatever the request asked.
    if (table_ != kAnyTable && r.table != table_) return false;
    r.family = rtm->rtm_family == AF_INET ? Plexa::AddressFamily::ipv4 : Plexa::AddressFamily::ipv6;
    r.type = rtm->rtm_type;
    r.protocol = rtm->rtm_protocol;
    r.tos = rtm->rtm_tos;
    r.prefixLen = rtm->rtm_dst_len;
    // No kernel sends a prefix longer than its family's addresses: such a message is no route.
    if (r.prefixLen > maxLenOf(r.family == Plexa::AddressFamily::ipv4)) return false;
    r.destination = a[RTA_DST] ? getAddress(a[RTA_DST]) : zeroOf(rtm->rtm_family);
    if (r.destination.af() != r.family) return false;
    r.metric = 0;
    nl::readU32(a[RTA_PRIORITY], r.metric);
    r.nhid = 0;
    nl::readU32(a[RTA_NH_ID], r.nhid);
    r.offload = (rtm->rtm_flags & RTM_F_OFFLOAD_FAILED) ? k::Offload::failed
                : (rtm->rtm_flags & (RTM_F_OFFLOAD | RTM_F_TRAP | RTNH_F_OFFLOAD | RTNH_F_TRAP))
                    ? k::Offload::held
                    : k::Offload::none;
    r.nexthops.clear();
    if (const nlattr* mp = a[RTA_MULTIPATH]) {
      multipath(mp, r);
    } else if (a[RTA_OIF] || a[RTA_GATEWAY] || a[RTA_VIA]) {
      k::Nexthop& hop = r.nexthops.emplace_back();
      nl::readU32(a[RTA_OIF], hop.ifindex);
      decodeHop(a, hop);
    }
    return true;
  }

 private:
  static void multipath(const nlattr* mp, k::Route& r) {
    const auto* p = static_cast<const char*>(nl::payloadOf(mp));
    std::size_t left = nl::payloadLength(mp);
    while (left >= sizeof(rtnexthop)) {
      rtnexthop nh;
      std::memcpy(&nh, p, sizeof nh);
      if (nh.rtnh_len < sizeof nh || nh.rtnh_len > left) break;
      k::Nexthop& hop = r.nexthops.emplace_back();
      hop.ifindex = static_cast<std::uint32_t>(nh.rtnh_ifindex);
      hop.weight = static_cast<std::uint16_t>(nh.rtnh_hops + 1);
      hop.offload = nexthopOffload(nh.rtnh_flags);
      Attrs<RTA_MAX> a;
      a.parsePayload(p + RTNH_LENGTH(0), nh.rtnh_len - RTNH_LENGTH(0));
      decodeHop(a, hop);
      const std::size_t step = RTNH_ALIGN(nh.rtnh_len);
      if (step >= left) break;
      p += step;
      left -= step;
    }
  }

  std::uint32_t table_;
  // One record for every route: its vector of next hops keeps its room.
  k::Route route_;
};

void decodeNeighbor(const nlmsghdr* nlh, auto& b) {
  const auto* ndm = nl::familyHeaderOf<ndmsg>(nlh);
  if (!ndm) return;
  if (ndm->ndm_family != AF_INET && ndm->ndm_family != AF_INET6) return;
  Attrs<NDA_MAX> a;
  a.parse(nlh, sizeof *ndm);
  k::Neighbor n;
  n.ifindex = static_cast<std::uint32_t>(ndm->ndm_ifindex);
  n.state = ndm->ndm_state;
  n.address = getAddress(a[NDA_DST]);
  if (const nlattr* ll = a[NDA_LLADDR]; ll && nl::payloadLength(ll) == n.mac.size()) {
    std::memcpy(n.mac.data(), nl::payloadOf(ll), n.mac.size());
    n.hasMac = true;
  }
  b.neighbor(n);
}

void decodeNetconf(const nlmsghdr* nlh, auto& b) {
  const auto* ncm = nl::familyHeaderOf<netconfmsg>(nlh);
  if (!ncm) return;
  Attrs<NETCONFA_MAX> a;
  a.parse(nlh, sizeof *ncm);
  std::uint32_t ifindex = 0, forwarding = 0;
  if (!nl::readU32(a[NETCONFA_IFINDEX], ifindex) ||
      !nl::readU32(a[NETCONFA_FORWARDING], forwarding))
    return;
  if (static_cast<std::int32_t>(ifindex) != NETCONFA_IFINDEX_ALL) return;
  b.forwardingIs(
      ncm->ncm_family == AF_INET6 ? Plexa::AddressFamily::ipv6 : Plexa::AddressFamily::ipv4,
      forwarding != 0);
}

// ---- the socket ----

class Session {
 public:
  enum class End { whole, interrupted, absent };

  Session() : buffer_(kBufferSize) {
    if (!socket_.open(NETLINK_ROUTE, SOCK_CLOEXEC)) fail("cannot open a netlink socket");
    // Strict checking lets the kernel dump one routing table instead of all of them; a kernel
    // without it answers as before, and the decoder filters.
    socket_.setOption(NETLINK_GET_STRICT_CHK, 1);
    if (!socket_.bind()) fail("cannot bind a netlink socket");
  }

  // A request for a dump of `type`, with room for its family header of `headerLen` bytes.
  nl::Message request(std::uint16_t type, std::size_t headerLen, void** header) {
    nl::Message req(request_, type, NLM_F_REQUEST | NLM_F_DUMP, ++seq_);
    *header = req.reserve(headerLen);
    return req;
  }

  // Sends the request and hands every message of the answer to `decode`. A dump the kernel
  // does not have (a table never made, a kernel without nexthop objects) is absent when
  // `mayBeAbsent`.
  template <class Decode>
  End dump(const nl::Message& req, const std::string& what, bool mayBeAbsent, Decode&& decode) {
    return dump(req, what, mayBeAbsent, decode, [] {});
  }
  // The same, calling `decoded` after each buffer of messages the kernel sent is decoded.
  template <class Decode, class Decoded>
  End dump(const nl::Message& req, const std::string& what, bool mayBeAbsent, Decode&& decode,
           Decoded&& decoded) {
    if (nl::send(socket_, req) < 0) fail("cannot ask the kernel for " + what);
    for (;;) {
      const ssize_t n = socket_.receive(buffer_.data(), buffer_.size());
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) fail("cannot read " + what + " from the kernel");
      if (n == 0) throw LiveError("the kernel's answer with " + what + " ended early");
      const nl::Status status = nl::run(buffer_.data(), static_cast<std::size_t>(n),
                                        req.header()->nlmsg_seq, socket_.portid(), decode);
      if (status != nl::Status::failed) decoded();
      if (status == nl::Status::done) return End::whole;
      if (status == nl::Status::failed) {
        // EINTR: a message marked NLM_F_DUMP_INTR, the dump having changed while it was made.
        if (errno == EINTR) return End::interrupted;
        if (mayBeAbsent && (errno == ENOENT || errno == EOPNOTSUPP)) return End::absent;
        fail("the kernel did not list " + what);
      }
    }
  }

 private:
  // Enough for the largest answer the kernel sends to one read (32 KiB).
  static constexpr std::size_t kBufferSize = 64 * 1024;

  nl::Socket socket_;
  unsigned seq_ = 0;
  std::vector<char> buffer_;
  alignas(nlmsghdr) char request_[256];
};

std::string hostname() {
  char name[HOST_NAME_MAX + 1] = {};
  if (gethostname(name, sizeof name - 1) != 0) return {};
  return name;
}

// The routes decoded from one buffer of the kernel's answer. Its records are used again for
// the next buffer, so that their vectors of next hops keep their room.
class RouteBatch {
 public:
  k::Route& next() {
    if (size_ == routes_.size()) routes_.emplace_back();
    return routes_[size_];
  }
  void keep() { ++size_; }
  std::span<const k::Route> routes() const { return {routes_.data(), size_}; }
  void clear() { size_ = 0; }

 private:
  std::vector<k::Route> routes_;
  std::size_t size_ = 0;
};

// One table's routes of one family, into `take` a buffer's worth at a time, in the kernel's
// order: the builder fetches the table slots of the routes ahead of the one it writes.
template <class Take>
Session::End dumpRoutes(Session& s, std::uint32_t table, std::uint8_t family, Take&& take) {
  void* header;
  nl::Message req = s.request(RTM_GETROUTE, sizeof(rtmsg), &header);
  static_cast<rtmsg*>(header)->rtm_family = family;
  req.putU32(RTA_TABLE, table);
  RouteDecoder decode(table);
  RouteBatch batch;
  return s.dump(
      req, "the routes of table " + std::to_string(table), true,
      [&](const nlmsghdr* m) {
        if (decode.decode(m, batch.next())) batch.keep();
      },
      [&] {
        take(batch.routes());
        batch.clear();
      });
}

// The IPv4 local table's routes, read on a socket of their own.
struct LocalRoutes {
  std::vector<k::Route> routes;
  Session::End end = Session::End::whole;
};

LocalRoutes readLocal4() {
  LocalRoutes local;
  Session s;
  local.end = dumpRoutes(s, k::kTableLocal, AF_INET, [&](std::span<const k::Route> routes) {
    local.routes.insert(local.routes.end(), routes.begin(), routes.end());
  });
  return local;
}

// How many IPv6 routes the kernel holds in all its tables, as it counts them for
// /proc/net/rt6_stats (without a walk of its tree); 0 when it does not say.
std::size_t ipv6RouteCount() {
  std::FILE* f = std::fopen("/proc/net/rt6_stats", "re");
  if (!f) return 0;
  unsigned nodes = 0, routeNodes = 0, allocated = 0, entries = 0;
  const int got = std::fscanf(f, "%x %x %x %x", &nodes, &routeNodes, &allocated, &entries);
  std::fclose(f);
  // A hint only: a count beyond any table this program reads is not taken.
  return got == 4 && entries <= (1u << 24) ? entries : 0;
}

// One read of every dump the scope needs, in the order the builder takes them.
std::string readOnce(LiveBuilder& b, const LiveScope& scope) {
  using End = Session::End;
  // Until a policy rule is added, the kernel keeps the IPv4 local table in the main table's
  // trie, and dumping it walks every route of main for the few of its own (0.3 s of kernel
  // time for a million routes). That walk runs on a second socket while this one reads the
  // rest; its few routes join the builder at the end.
  std::future<LocalRoutes> local;
  if (scope.ipv4Routes) local = std::async(std::launch::async, readLocal4);

  Session s;
  b.hostnameIs(hostname());
  void* header;

  for (std::uint8_t family : {AF_INET, AF_INET6}) {
    nl::Message req = s.request(RTM_GETNETCONF, sizeof(netconfmsg), &header);
    static_cast<netconfmsg*>(header)->ncm_family = family;
    if (s.dump(req, "the forwarding settings", true,
               [&](const nlmsghdr* m) { decodeNetconf(m, b); }) == End::interrupted)
      return "the forwarding settings";
  }
  {
    nl::Message req = s.request(RTM_GETLINK, sizeof(ifinfomsg), &header);
    static_cast<ifinfomsg*>(header)->ifi_family = AF_UNSPEC;
    if (s.dump(req, "the links", false, [&](const nlmsghdr* m) { decodeLink(m, b); }) ==
        End::interrupted)
      return "the links";
  }
  for (std::uint8_t family : {AF_INET, AF_INET6}) {
    nl::Message req = s.request(RTM_GETADDR, sizeof(ifaddrmsg), &header);
    static_cast<ifaddrmsg*>(header)->ifa_family = family;
    if (s.dump(req, "the addresses", false, [&](const nlmsghdr* m) { decodeAddress(m, b); }) ==
        End::interrupted)
      return "the addresses";
  }
  {
    nl::Message req = s.request(RTM_GETNEXTHOP, sizeof(nhmsg), &header);
    static_cast<nhmsg*>(header)->nh_family = AF_UNSPEC;
    if (s.dump(req, "the nexthop objects", true,
               [&](const nlmsghdr* m) { decodeNexthopObject(m, b); }) == End::interrupted)
      return "the nexthop objects";
  }
  // The IPv6 table is made as large as the kernel's count at once (an IPv4 count would cost
  // a walk of the trie).
  if (scope.ipv6Routes) b.routesExpected(Plexa::AddressFamily::ipv6, ipv6RouteCount());
  const auto toBuilder = [&](std::span<const k::Route> routes) { b.routes(routes); };
  for (std::uint32_t table : b.routeTables()) {
    for (std::uint8_t family : {AF_INET, AF_INET6}) {
      if (!scope.routesOf(family == AF_INET ? Plexa::AddressFamily::ipv4
                                            : Plexa::AddressFamily::ipv6))
        continue;
      if (table == k::kTableLocal && family == AF_INET) continue;
      if (dumpRoutes(s, table, family, toBuilder) == End::interrupted)
        return "the routes of table " + std::to_string(table);
    }
  }
  for (std::uint8_t family : {AF_INET, AF_INET6}) {
    nl::Message req = s.request(RTM_GETNEIGH, sizeof(ndmsg), &header);
    static_cast<ndmsg*>(header)->ndm_family = family;
    if (s.dump(req, "the neighbours", false, [&](const nlmsghdr* m) { decodeNeighbor(m, b); }) ==
        End::interrupted)
      return "the neighbours";
  }
  if (local.valid()) {
    const LocalRoutes routes = local.get();
    if (routes.end == End::interrupted)
      return "the routes of table " + std::to_string(k::kTableLocal);
    b.routes(routes.routes);
  }
  return {};
}

}  // namespace

Mox::Ptr<Statum::EntityManager> readLive(const LiveScope& scope) {
  return readConsistently([&](LiveBuilder& b) { return readOnce(b, scope); }, kLiveReadAttempts);
}

Mox::Ptr<Statum::EntityManager> detail::stateOfMessages(std::string_view messages) {
  // A buffer of the messages' own size, aligned as a receive's: a read past them is seen.
  const std::unique_ptr<char[]> bytes(new char[messages.size()]);
  if (!messages.empty()) std::memcpy(bytes.get(), messages.data(), messages.size());
  const auto each = [&](std::uint16_t type, auto&& decode) {
    nl::run(bytes.get(), messages.size(), 0, 0, [&](const nlmsghdr* m) {
      if (m->nlmsg_type == type) decode(m);
    });
  };
  LiveBuilder b;
  b.hostnameIs("kernel");
  each(RTM_NEWNETCONF, [&](const nlmsghdr* m) { decodeNetconf(m, b); });
  each(RTM_NEWLINK, [&](const nlmsghdr* m) { decodeLink(m, b); });
  each(RTM_NEWADDR, [&](const nlmsghdr* m) { decodeAddress(m, b); });
  each(RTM_NEWNEXTHOP, [&](const nlmsghdr* m) { decodeNexthopObject(m, b); });
  // A route dump answers with routes of the family asked for; the IPv4 local table comes last.
  const auto routesOf = [&](std::uint32_t table, std::uint8_t family) {
    RouteDecoder decode(table);
    RouteBatch batch;
    each(RTM_NEWROUTE, [&](const nlmsghdr* m) {
      const auto* rtm = nl::familyHeaderOf<rtmsg>(m);
      if (rtm && rtm->rtm_family == family && decode.decode(m, batch.next())) batch.keep();
    });
    b.routes(batch.routes());
  };
  for (std::uint32_t table : b.routeTables()) {
    for (std::uint8_t family : {AF_INET, AF_INET6}) {
      if (table != k::kTableLocal || family != AF_INET) routesOf(table, family);
    }
  }
  each(RTM_NEWNEIGH, [&](const nlmsghdr* m) { decodeNeighbor(m, b); });
  routesOf(k::kTableLocal, AF_INET);
  return b.finish();
}

// ---- following ----

namespace follow {

// The kernel's routes as the follower keeps them (LiveRouteMirror.h): those of the kernel
// tables the builder reads, without a TOS (which a router's listing has none of).
struct Routes {
  live::HopSets hops;
  live::RouteMirror<std::uint32_t> v4;
  live::RouteMirror<Plexa::Ip6Addr::Bytes> v6;

  void routeNew(const k::Route& r, bool replace) {
    if (r.family == Plexa::AddressFamily::ipv4) {
      v4.routeNew(r, replace, hops);
    } else {
      v6.routeNew(r, replace, hops);
    }
  }
  void routeDel(const k::Route& r) {
    if (r.family == Plexa::AddressFamily::ipv4) {
      v4.routeDel(r, hops);
    } else {
      v6.routeDel(r, hops);
    }
  }
  // The routes of the prefix in kernel table `table`, to `add`.
  void forEach(const Plexa::IpGenAddr& dst, std::uint8_t len, std::uint32_t table,
               const LiveBuilder::RouteSink& add) const {
    if (dst.isV4()) {
      v4.forEach({table, v4.addrOf(dst), len}, hops, add);
    } else {
      v6.forEach({table, v6.addrOf(dst), len}, hops, add);
    }
  }
  std::size_t size() const { return v4.size() + v6.size(); }
  // The routes and their next-hop lists (each list's vector and its key, roughly).
  std::size_t bytes() const {
    return v4.bytes() + v6.bytes() + hops.size() * (sizeof(k::Nexthop) + 160);
  }
};

// A whole read: every dump straight into a builder, and the routes of the tables the builder
// reads kept for the changes that follow.
struct WholeRead {
  LiveBuilder& b;
  Routes& routes;
  std::vector<std::uint32_t> tables;  // sorted, once the links are read

  void hostnameIs(const std::string& name) { b.hostnameIs(name); }
  void forwardingIs(Plexa::AddressFamily family, bool on) { b.forwardingIs(family, on); }
  void link(const k::Link& l) { b.link(l); }
  void address(const k::Address& a) { b.address(a); }
  void nexthopObject(const k::NexthopObject& o) { b.nexthopObject(o); }
  void route(const k::Route& r) {
    if (tables.empty()) {
      tables = b.routeTables();
      std::sort(tables.begin(), tables.end());
    }
    if (r.tos != 0 || !std::binary_search(tables.begin(), tables.end(), r.table)) return;
    routes.routeNew(r, false);
    b.route(r);
  }
  void neighbor(const k::Neighbor& n) { b.neighbor(n); }
};

// Reads every dump into `w`: every table's routes, in the order the builder takes them.
std::string readAll(WholeRead& w) {
  Session s;
  w.hostnameIs(hostname());
  using End = Session::End;
  void* header;
  for (std::uint8_t family : {AF_INET, AF_INET6}) {
    nl::Message req = s.request(RTM_GETNETCONF, sizeof(netconfmsg), &header);
    static_cast<netconfmsg*>(header)->ncm_family = family;
    if (s.dump(req, "the forwarding settings", true,
               [&](const nlmsghdr* n) { decodeNetconf(n, w); }) == End::interrupted)
      return "the forwarding settings";
  }
  {
    nl::Message req = s.request(RTM_GETLINK, sizeof(ifinfomsg), &header);
    static_cast<ifinfomsg*>(header)->ifi_family = AF_UNSPEC;
    if (s.dump(req, "the links", false, [&](const nlmsghdr* n) { decodeLink(n, w); }) ==
        End::interrupted)
      return "the links";
  }
  for (std::uint8_t family : {AF_INET, AF_INET6}) {
    nl::Message req = s.request(RTM_GETADDR, sizeof(ifaddrmsg), &header);
    static_cast<ifaddrmsg*>(header)->ifa_family = family;
    if (s.dump(req, "the addresses", false, [&](const nlmsghdr* n) { decodeAddress(n, w); }) ==
        End::interrupted)
      return "the addresses";
  }
  {
    nl::Message req = s.request(RTM_GETNEXTHOP, sizeof(nhmsg), &header);
    static_cast<nhmsg*>(header)->nh_family = AF_UNSPEC;
    if (s.dump(req, "the nexthop objects", true,
               [&](const nlmsghdr* n) { decodeNexthopObject(n, w); }) == End::interrupted)
      return "the nexthop objects";
  }
  RouteDecoder decode(RouteDecoder::kAnyTable);
  for (std::uint8_t family : {AF_INET, AF_INET6}) {
    nl::Message req = s.request(RTM_GETROUTE, sizeof(rtmsg), &header);
    static_cast<rtmsg*>(header)->rtm_family = family;
    if (s.dump(req, "the routes", true, [&](const nlmsghdr* n) {
          decode(n, [&](const k::Route& r) { w.route(r); });
        }) == End::interrupted)
      return "the routes";
  }
  for (std::uint8_t family : {AF_INET, AF_INET6}) {
    nl::Message req = s.request(RTM_GETNEIGH, sizeof(ndmsg), &header);
    static_cast<ndmsg*>(header)->ndm_family = family;
    if (s.dump(req, "the neighbours", false, [&](const nlmsghdr* n) { decodeNeighbor(n, w); }) ==
        End::interrupted)
      return "the neighbours";
  }
  return {};
}

// A Brine table: written record by record.
template <class R>
concept RecordTable = requires(R& t, const typename R::Record& v) {
  t.recordIs(v);
  t.recordDel(v.key());
  t.lookup(v.key());
};

// Makes `target`'s entity at `path` what `fresh` is: a table by writing the records that
// differ and removing those `fresh` has not; any other entity whole.
template <class R>
void syncEntity(Statum::EntityManager& target, const Statum::EntityManager& fresh,
                const std::string& path) {
  const auto f = fresh.entities().find(path);
  const auto t = target.entities().find(path);
  R* current = t == target.entities().end() ? nullptr : dynamic_cast<R*>(t->second.get());
  const R* next = f == fresh.entities().end() ? nullptr : dynamic_cast<const R*>(f->second.get());
  if constexpr (RecordTable<R>) {
    if (current) {
      using V = typename R::Record;
      if (next) {
        for (const V& v : *next) {
          const V old = current->lookup(v.key());
          if (std::memcmp(&old, &v, sizeof v) != 0) current->recordIs(v);
        }
      }
      std::vector<typename R::Key> gone;
      for (const V& v : *current) {
        if (!next || !next->contains(v.key())) gone.push_back(v.key());
      }
      for (const auto& key : gone)
        current->recordDel(key);
      return;
    }
  }
  if (next) target.entityIs(path, f->second);
}

void syncAll(Statum::EntityManager& target, const Statum::EntityManager& fresh) {
  std::vector<std::string> vrfs = layout::vrfNames(fresh);
  for (const std::string& v : layout::vrfNames(target)) {
    if (std::find(vrfs.begin(), vrfs.end(), v) == vrfs.end()) vrfs.push_back(v);
  }
  layout::forEachEntity([&](const auto& entity) {
    using R = typename std::decay_t<decltype(entity)>::Record;
    if (entity.scope == layout::Scope::device) {
      syncEntity<R>(target, fresh, std::string(entity.path));
    } else {
      for (const std::string& v : vrfs)
        syncEntity<R>(target, fresh, layout::pathOf(entity, v));
    }
  });
}

}  // namespace follow

struct LiveFollower::Impl {
  Statum::EntityManager& em;
  BatchDone onBatch;
  Options options;
  netlink::Socket socket;
  std::vector<char> buffer = std::vector<char>(256 * 1024);
  // What the last whole read built, writing em's tables since, and the routes it keeps.
  std::unique_ptr<LiveBuilder> builder;
  std::unique_ptr<follow::Routes> routes;
  std::vector<std::uint32_t> tables;  // the kernel tables the builder reads, sorted
  Batch batch;
  // What the messages of this batch asked for.
  bool resync = false;
  std::size_t pending = 0;

  Impl(Statum::EntityManager& e, BatchDone done, Options o)
      : em(e), onBatch(std::move(done)), options(std::move(o)) {}

  void log(const std::string& line) {
    if (options.log) {
      options.log(line);
    } else {
      std::fprintf(stderr, "%s\n", line.c_str());
    }
  }

  void subscribe() {
    if (!socket.open(NETLINK_ROUTE, SOCK_NONBLOCK | SOCK_CLOEXEC))
      fail("cannot open a netlink socket");
    if (options.receiveBuffer > 0) {
      const int size = options.receiveBuffer;
      // Beyond the system's limit when privileged; within it otherwise.
      if (setsockopt(socket.fd(), SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) != 0)
        setsockopt(socket.fd(), SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    }
    if (!socket.bind()) fail("cannot bind a netlink socket");
    for (unsigned group : {RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV6_IFADDR,
                           RTNLGRP_IPV4_ROUTE, RTNLGRP_IPV6_ROUTE, RTNLGRP_NEIGH,
                           RTNLGRP_IPV4_NETCONF, RTNLGRP_IPV6_NETCONF, RTNLGRP_NEXTHOP}) {
      // A kernel without nexthop objects has no such group; the rest are older than it.
      if (socket.setOption(NETLINK_ADD_MEMBERSHIP, static_cast<int>(group)) < 0 &&
          group != RTNLGRP_NEXTHOP)
        fail("cannot subscribe to the kernel's notifications");
    }
  }

  // Reads the kernel whole into a fresh builder, read again while a change interrupts it,
  // and makes em's tables what it built; the builder then writes them in place.
  void readWhole() {
    std::string interrupted;
    for (int attempt = 0; attempt < kLiveReadAttempts; ++attempt) {
      auto b = std::make_unique<LiveBuilder>();
      auto r = std::make_unique<follow::Routes>();
      follow::WholeRead read{*b, *r, {}};
      interrupted = follow::readAll(read);
      if (!interrupted.empty()) continue;
      // The old builder's tables are em's: it goes before the new one's copies are synced in,
      // so that the two never hold a whole table each at once beyond em's.
      builder.reset();
      routes.reset();
      {
        const auto fresh = b->finish();
        follow::syncAll(em, *fresh);
      }
      b->followIs(em);
      builder = std::move(b);
      routes = std::move(r);
      tables = read.tables.empty() ? builder->routeTables() : std::move(read.tables);
      std::sort(tables.begin(), tables.end());
#if defined(__GLIBC__)
      // The read's own tables and records are gone; the heap they took goes back to the
      // system rather than stay the follower's for good.
      ::malloc_trim(0);
#endif
      return;
    }
    throw LiveError(interrupted + " kept changing while they were read (" +
                    std::to_string(kLiveReadAttempts) + " attempts); try again");
  }

  void batchDone(bool whole) {
    batch.keptRoutes = routes->size();
    batch.keptBytes = routes->bytes();
    ++batch.generation;
    batch.reread = whole;
    batch.notifications = pending;
    batch.totalNotifications += pending;
    pending = 0;
    if (onBatch) onBatch(batch);
  }

  // A route the builder cannot apply alone: one that says what the hardware holds (the
  // other routes' programmed state then depends on it), or a label stack that rides a tunnel.
  static bool needsWholeRead(const k::Route& r) {
    if (r.offload != k::Offload::none) return true;
    for (const k::Nexthop& h : r.nexthops) {
      if (h.offload != k::Offload::none || h.labels.size() > 1) return true;
    }
    return false;
  }

  void routeChanged(const k::Route& r, bool add, bool replace) {
    if (r.tos != 0 || !std::binary_search(tables.begin(), tables.end(), r.table)) return;
    if (!builder->followable() || needsWholeRead(r)) {
      resync = true;
      return;
    }
    if (add) {
      routes->routeNew(r, replace);
    } else {
      routes->routeDel(r);
    }
    const follow::Routes& kept = *routes;
    const Plexa::IpGenAddr dst = r.destination;
    const std::uint8_t len = r.prefixLen;
    builder->prefixChanged(dst, len, r.table,
                           [&](std::uint32_t table, const LiveBuilder::RouteSink& sink) {
                             kept.forEach(dst, len, table, sink);
                           });
  }

  void onMessage(const nlmsghdr* nlh) {
    ++pending;
    if (resync) return;  // a whole read follows
    switch (nlh->nlmsg_type) {
      case RTM_NEWROUTE:
      case RTM_DELROUTE: {
        RouteDecoder decode(RouteDecoder::kAnyTable);
        const bool add = nlh->nlmsg_type == RTM_NEWROUTE;
        const bool replace = nlh->nlmsg_flags & NLM_F_REPLACE;
        decode(nlh, [&](const k::Route& r) { routeChanged(r, add, replace); });
        break;
      }
      case RTM_NEWNEIGH:
      case RTM_DELNEIGH: {
        struct Changed {
          LiveBuilder& b;
          bool removed;
          void neighbor(const k::Neighbor& n) { b.neighborChanged(n, removed); }
        } changed{*builder, nlh->nlmsg_type == RTM_DELNEIGH};
        decodeNeighbor(nlh, changed);
        break;
      }
      default:
        // Links, addresses, nexthop objects, forwarding settings: read again (see the header).
        resync = true;
        break;
    }
  }

  std::size_t process() {
    bool lost = false;
    for (;;) {
      const ssize_t n = recv(socket.fd(), buffer.data(), buffer.size(), MSG_DONTWAIT);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0 && errno == ENOBUFS) {
        // The kernel dropped notifications: what is still queued is newer, and read on.
        lost = true;
        continue;
      }
      if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
      if (n < 0) fail("cannot read the kernel's notifications");
      if (lost || resync) continue;  // a whole read follows; the rest need not be decoded
      // Notifications: no sequence or port to check.
      netlink::run(buffer.data(), static_cast<std::size_t>(n), 0, 0,
                   [this](const nlmsghdr* m) { onMessage(m); });
    }
    if (lost) {
      ++batch.rereads;
      log("rova: kernel notifications were lost (the socket's buffer overran); reading the "
          "kernel again (" +
          std::to_string(batch.rereads) + " so far)");
    } else if (resync) {
      ++batch.resyncs;
    }
    const std::size_t applied = pending + (lost ? 1 : 0);
    if (lost || resync) {
      resync = false;
      readWhole();
      batchDone(true);
    } else if (pending > 0) {
      builder->changesDone();
      batchDone(false);
    }
    return applied;
  }
};

LiveFollower::LiveFollower(Statum::EntityManager& em, BatchDone onBatch, Options options)
    : impl_(std::make_unique<Impl>(em, std::move(onBatch), std::move(options))) {
  // Subscribed before the read: a change made while it reads is queued, not missed.
  impl_->subscribe();
  impl_->readWhole();
  impl_->batchDone(true);
}

LiveFollower::LiveFollower(Statum::EntityManager& em, BatchDone onBatch)
    : LiveFollower(em, std::move(onBatch), Options()) {}

LiveFollower::~LiveFollower() = default;

int LiveFollower::fd() const {
  return impl_->socket.fd();
}

std::size_t LiveFollower::process() {
  return impl_->process();
}

const LiveFollower::Batch& LiveFollower::last() const {
  return impl_->batch;
}

}  // namespace Snapshot

#else

namespace Snapshot {

Mox::Ptr<Statum::EntityManager> readLive(const LiveScope&) {
  throw LiveError("the live state is read from the Linux kernel, and this system is not Linux");
}

Mox::Ptr<Statum::EntityManager> detail::stateOfMessages(std::string_view) {
  throw LiveError("the live state is read from the Linux kernel, and this system is not Linux");
}

struct LiveFollower::Impl {};

LiveFollower::LiveFollower(Statum::EntityManager&, BatchDone, Options) {
  throw LiveError("the live state is followed in the Linux kernel, and this system is not Linux");
}
LiveFollower::LiveFollower(Statum::EntityManager& em, BatchDone onBatch)
    : LiveFollower(em, std::move(onBatch), Options()) {}
LiveFollower::~LiveFollower() = default;
int LiveFollower::fd() const {
  return -1;
}
std::size_t LiveFollower::process() {
  return 0;
}
const LiveFollower::Batch& LiveFollower::last() const {
  static const Batch none;
  return none;
}

}  // namespace Snapshot

#endif
