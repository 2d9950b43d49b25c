#include "snapshot/Generator.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/brine/FecId.h"
#include "platform/plexa/Prefix.h"
#include "platform/rendr/JsonText.h"
#include "snapshot/Refs.h"

namespace Snapshot {

namespace {

// splitmix64: small, fast, and the same sequence everywhere (the standard distributions are
// not, so a seed would not give the same state on another library).
class Rng {
 public:
  explicit Rng(std::uint64_t seed) : s_(seed) {}
  std::uint64_t next() {
    std::uint64_t z = (s_ += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
  }
  // Uniform in [0, n).
  std::uint64_t below(std::uint64_t n) {
    return static_cast<std::uint64_t>((static_cast<unsigned __int128>(next()) * n) >> 64);
  }
  // True with probability num / den.
  bool chance(std::uint64_t num, std::uint64_t den) { return below(den) < num; }

 private:
  std::uint64_t s_;
};

// A set of 64-bit keys (never 0) by open addressing: a full table's prefixes without a node
// per entry.
class KeySet {
 public:
  explicit KeySet(std::size_t expected) : slots_(std::bit_ceil(expected * 2 + 16), 0) {}
  bool insert(std::uint64_t k) {
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t i = (k * 0x9e3779b97f4a7c15ull) >> 20 & mask;; i = (i + 1) & mask) {
      if (slots_[i] == k) return false;
      if (slots_[i] == 0) {
        slots_[i] = k;
        return true;
      }
    }
  }

 private:
  std::vector<std::uint64_t> slots_;
};

// JSON text written straight into one growing buffer.
class Out {
 public:
  explicit Out(std::size_t reserve) { s_.reserve(reserve); }
  Out& raw(std::string_view t) {
    s_.append(t);
    return *this;
  }
  Out& num(std::uint64_t n) {
    char buf[24];
    s_.append(buf, std::to_chars(buf, buf + sizeof buf, n).ptr);
    return *this;
  }
  Out& str(std::string_view t) {
    rendr::detail::appendJsonString(s_, t);
    return *this;
  }
  // Any value with write(char*): addresses and prefixes, quoted.
  template <class V>
  Out& val(const V& v) {
    char buf[64];
    s_ += '"';
    s_.append(buf, v.write(buf));
    s_ += '"';
    return *this;
  }
  Out& fec(Brine::Fib::FecId id) {
    char buf[32];
    s_ += '"';
    s_.append(buf, writeFecRef(id, buf));
    s_ += '"';
    return *this;
  }
  // Drops the comma after the last element of a list.
  void endList(std::string_view close) {
    if (s_.size() >= 2 && s_[s_.size() - 2] == ',') s_.erase(s_.size() - 2, 1);
    s_.append(close);
  }
  std::string take() { return std::move(s_); }

 private:
  std::string s_;
};

using Brine::Fib::AdjType;
using Brine::Fib::FecId;
using Plexa::IpAddr;

constexpr int kUplinks = 16;
constexpr int kLdpTunnels = 32;
constexpr int kGroups = 4;
// The entries of each group of a generated nexthop-group table (--nexthop-groups).
constexpr std::uint64_t kBigGroupEntries = 128;

IpAddr uplinkAddr(int i, bool peer) {
  return IpAddr(10, 0, std::uint8_t(i), peer ? 1 : 0);
}
// 2001:db8:0:<i>::/127; the device has ::0, the peer ::1.
Plexa::Ip6Addr uplinkAddr6(int i, bool peer) {
  Plexa::Ip6Addr::Bytes b{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, std::uint8_t(i)};
  b[15] = peer ? 1 : 0;
  return Plexa::Ip6Addr(b);
}
std::string uplinkName(int i) {
  return "Ethernet" + std::to_string(i + 1);
}

// The FEC ids the generated device uses.
constexpr std::uint64_t kReceiveFec = 1;
constexpr std::uint64_t kFirstConnectedFec = 2;  // one per uplink, then management
constexpr std::uint64_t kFirstEcmpFec = 100;

struct Plan {
  std::uint64_t ecmpFecs;
  std::uint64_t ecmp6Fecs;
};

class Generator {
 public:
  explicit Generator(const GeneratorOptions& o)
      : o_(o),
        rng_(o.seed),
        out_(o.ipv4Routes * 64 + o.ipv6Routes * 80 + o.nexthopGroups * kBigGroupEntries * 160 +
             (1 << 20)) {
    plan_.ecmpFecs = std::clamp<std::uint64_t>(o.ipv4Routes / 500, 50, 2000);
    plan_.ecmp6Fecs = std::clamp<std::uint64_t>(o.ipv6Routes / 500, 20, 1000);
  }

  std::string run() {
    if (o_.profile == GeneratorProfile::internet) return runInternet();
    out_.raw("{\n  \"version\": 1,\n  \"hostname\": \"gen-").num(o_.seed).raw("\",\n");
    out_.raw("  \"hardware\": {\"fecWeightLimit\": 512, \"maxEcmp\": 128, ")
        .raw("\"nexthopGroupMaxSize\": 128},\n");
    interfaces();
    neighbors();
    out_.raw("  \"vrfs\": {\n");
    defaultVrf();
    for (unsigned k = 1; k <= o_.extraVrfs; ++k)
      extraVrf(k);
    out_.endList("\n  },\n");
    tunnels();
    nexthopGroups();
    out_.raw("  \"routeDistinguisherInputs\": {}\n}\n");
    return out_.take();
  }

 private:
  // One point-to-point link: the i-th uplink's name, a description naming what is at the other
  // end ("spine3", "peer2"), its /31 and its /127.
  void linkInterface(int i, const char* far) {
    char a4[24], a6[64];
    *uplinkAddr(i, false).write(a4) = 0;
    *uplinkAddr6(i, false).write(a6) = 0;
    out_.raw("    {\"name\": \"")
        .raw(uplinkName(i))
        .raw("\", \"description\": \"")
        .raw(far)
        .num(i + 1)
        .raw("\", \"ipv4\": {\"primary\": \"")
        .raw(a4)
        .raw("/31\"}, \"ipv6\": [\"")
        .raw(a6)
        .raw("/127\"]},\n");
  }

  void interfaces() {
    out_.raw("  \"interfaces\": [\n");
    out_.raw("    {\"name\": \"Loopback0\", \"ipv4\": {\"primary\": \"10.255.0.1/32\"}, ")
        .raw("\"ipv6\": [\"2001:db8:ffff::1/128\"]},\n");
    out_.raw("    {\"name\": \"Management1\", \"ipv4\": {\"primary\": \"192.168.0.10/24\"}},\n");
    for (int i = 0; i < kUplinks; ++i) {
      linkInterface(i, "spine");
    }
    for (unsigned k = 1; k <= o_.extraVrfs; ++k) {
      out_.raw("    {\"name\": \"Vlan")
          .num(100 + k)
          .raw("\", \"vrf\": \"vrf")
          .num(k)
          .raw("\", \"ipv4\": {\"primary\": \"172.16.")
          .num(k % 256)
          .raw(".1/24\"}},\n");
    }
    out_.endList("  ],\n");
  }

  void neighbors() {
    out_.raw("  \"neighbors\": [\n");
    for (int i = 0; i < kUplinks; ++i) {
      char mac[24];
      std::snprintf(mac, sizeof mac, "02:00:00:00:%02x:01", i + 1);
      out_.raw("    {\"address\": ")
          .val(uplinkAddr(i, true))
          .raw(", \"interface\": \"")
          .raw(uplinkName(i))
          .raw("\", \"mac\": \"")
          .raw(mac)
          .raw("\"},\n");
      out_.raw("    {\"address\": ")
          .val(uplinkAddr6(i, true))
          .raw(", \"interface\": \"")
          .raw(uplinkName(i))
          .raw("\", \"mac\": \"")
          .raw(mac)
          .raw("\"},\n");
    }
    out_.endList("  ],\n");
  }

  // ---- the default VRF ----

  void defaultVrf() {
    out_.raw("    \"default\": {\n      \"id\": 0,\n");
    staticRoutes();
    out_.raw("      \"ipv4\": {\n        \"routes\": [\n");
    routes4();
    out_.endList("        ],\n        \"fecs\": [\n");
    fecs4();
    out_.endList("        ]\n      },\n");
    out_.raw("      \"ipv6\": {\n        \"routes\": [\n");
    routes6();
    out_.endList("        ],\n        \"fecs\": [\n");
    fecs6();
    out_.endList("        ]\n      }\n    },\n");
  }

  void staticRoutes() {
    out_.raw("      \"staticRoutes\": [\n");
    out_.raw(
        "        {\"prefix\": \"192.0.2.0/24\", \"type\": \"drop\", \"name\": \"blackhole\"},\n");
    out_.raw("        {\"prefix\": \"198.51.100.0/24\", \"vias\": [{\"nexthop\": \"10.0.0.1\", ")
        .raw("\"interface\": \"Ethernet1\"}]},\n");
    for (int g = 0; g < kGroups; ++g) {
      out_.raw("        {\"prefix\": \"203.0.113.")
          .num(g * 16)
          .raw("/28\", ")
          .raw("\"type\": \"nexthopGroup\", \"nexthopGroup\": \"NHG-")
          .num(g + 1)
          .raw("\"},\n");
    }
    out_.endList("      ],\n");
  }

  // One route line. The writer keeps to the loader's defaults: no preference (the protocol's
  // own), no metric when 0, programmed flags only when false.
  template <class Prefix>
  void route(const Prefix& p, const char* type, FecId fec, std::uint32_t metric = 0) {
    out_.raw("          {\"prefix\": ").val(p).raw(", \"type\": \"").raw(type).raw("\"");
    if (fec.value()) out_.raw(", \"fec\": ").fec(fec);
    if (metric) out_.raw(", \"metric\": ").num(metric);
    if (rng_.chance(1, 1000)) out_.raw(", \"hardwareProgrammed\": false");
    if (rng_.chance(1, 10000)) out_.raw(", \"kernelProgrammed\": false");
    out_.raw("},\n");
  }

  // The device's own routes, cut short when the table is smaller than they are.
  std::uint64_t ownRoutes4(std::uint64_t budget) {
    std::uint64_t n = 0;
    auto add = [&](const Plexa::Prefix& p, const char* type, FecId fec) {
      if (n < budget && keys_.insert(key4(p))) {
        out_.raw("          {\"prefix\": ")
            .val(p)
            .raw(", \"type\": \"")
            .raw(type)
            .raw("\", \"fec\": ")
            .fec(fec)
            .raw("},\n");
        ++n;
      }
    };
    add(Plexa::Prefix(IpAddr(0), 0), "eBgp", FecId(AdjType::ipAdj, kFirstEcmpFec));
    add(Plexa::Prefix(IpAddr(10, 255, 0, 1), 32), "receiveLoopback", FecId(kReceiveFec));
    add(Plexa::Prefix(IpAddr(192, 168, 0, 0), 24), "connected",
        FecId(kFirstConnectedFec + kUplinks));
    add(Plexa::Prefix(IpAddr(192, 168, 0, 10), 32), "receive", FecId(kReceiveFec));
    for (int i = 0; i < kUplinks; ++i) {
      add(Plexa::Prefix(uplinkAddr(i, false), 31), "connected", FecId(kFirstConnectedFec + i));
      add(Plexa::Prefix(uplinkAddr(i, false), 32), "receive", FecId(kReceiveFec));
    }
    for (int g = 0; g < kGroups && n + 1 < budget; ++g) {
      add(Plexa::Prefix(IpAddr(203, 0, 113, std::uint8_t(g * 16)), 28), "nexthopGroupStaticRoute",
          FecId(AdjType::nexthopGroupAdj, std::uint64_t(g + 1)));
    }
    return n;
  }

  static std::uint64_t key4(const Plexa::Prefix& p) {
    return std::uint64_t(p.address().value()) << 8 | std::uint64_t(p.len()) | 1ull << 40;
  }

  int length4() {
    const auto r = rng_.below(1000);
    if (r < 600) return 24;
    if (r < 700) return 23;
    if (r < 780) return 22;
    if (r < 830) return 21;
    if (r < 890) return 20;
    if (r < 970) return 16 + int(rng_.below(4));
    return 8 + int(rng_.below(8));
  }

  // Public unicast space, away from the device's own 10/8 and 192.168/16.
  IpAddr address4() {
    for (;;) {
      const auto a = std::uint32_t(rng_.next());
      const unsigned first = a >> 24;
      if (first == 0 || first == 10 || first == 127 || first >= 224) continue;
      if ((a >> 16) == 0xc0a8) continue;
      return IpAddr(a);
    }
  }

  void routes4() {
    keys_ = KeySet(o_.ipv4Routes);
    std::uint64_t n = ownRoutes4(o_.ipv4Routes);
    while (n < o_.ipv4Routes) {
      const Plexa::Prefix p(address4(), length4());
      if (!keys_.insert(key4(p))) continue;
      const auto r = rng_.below(100);
      const FecId fec(AdjType::ipAdj, kFirstEcmpFec + rng_.below(plan_.ecmpFecs));
      if (r < 85) {
        route(p, "eBgp", fec);
      } else if (r < 95) {
        route(p, "iBgp", fec);
      } else if (r < 98) {
        route(p, "ospfExternalType2", fec, 20);
      } else {
        route(p, "ospfInterArea", fec, std::uint32_t(10 + rng_.below(100)));
      }
      ++n;
    }
  }

  void fecs4() {
    out_.raw("          {\"id\": ")
        .fec(FecId(kReceiveFec))
        .raw(", \"vias\": [{\"interface\": \"Cpu\"}]},\n");
    for (int i = 0; i < kUplinks; ++i) {
      out_.raw("          {\"id\": ")
          .fec(FecId(kFirstConnectedFec + i))
          .raw(", \"vias\": [{\"interface\": \"")
          .raw(uplinkName(i))
          .raw("\"}]},\n");
    }
    out_.raw("          {\"id\": ")
        .fec(FecId(kFirstConnectedFec + kUplinks))
        .raw(", \"vias\": [{\"interface\": \"Management1\"}]},\n");
    for (std::uint64_t f = 0; f < plan_.ecmpFecs; ++f)
      ecmpFec(f);
  }

  // An ECMP set over distinct uplinks; some weighted, some with a backup, some riding LDP.
  void ecmpFec(std::uint64_t f) {
    const FecId id(AdjType::ipAdj, kFirstEcmpFec + f);
    const auto kind = rng_.below(100);
    int order[kUplinks];
    for (int i = 0; i < kUplinks; ++i)
      order[i] = i;
    const int n = 1 + int(rng_.below(8));
    for (int i = 0; i < n; ++i)
      std::swap(order[i], order[i + int(rng_.below(std::uint64_t(kUplinks - i)))]);
    std::sort(order, order + n);
    out_.raw("          {\"id\": ").fec(id);
    if (kind < 10 && n > 1) {
      // The last uplink of the set is kept for when the others fail.
      out_.raw(", \"backupIndex\": ").num(std::uint64_t(n - 1));
    }
    out_.raw(", \"vias\": [");
    for (int i = 0; i < n; ++i) {
      out_.raw(i ? ", " : "");
      if (kind >= 10 && kind < 15) {
        const auto t = rng_.below(kLdpTunnels);
        out_.raw("{\"nexthop\": \"10.255.")
            .num(1 + t)
            .raw(".1\", \"tunnel\": \"ldp:")
            .num(t + 1)
            .raw("\", \"label\": ")
            .num(100000 + t)
            .raw("}");
        continue;
      }
      out_.raw("{\"nexthop\": ")
          .val(uplinkAddr(order[i], true))
          .raw(", \"interface\": \"")
          .raw(uplinkName(order[i]))
          .raw("\"");
      if (kind >= 15 && kind < 25) out_.raw(", \"weight\": ").num(1 + rng_.below(4));
      out_.raw("}");
    }
    out_.raw("]},\n");
  }

  static std::uint64_t key6(const Plexa::Ip6Prefix& p) {
    std::uint64_t hi = 0;
    for (int i = 0; i < 8; ++i)
      hi = hi << 8 | p.address().bytes()[i];
    // Lengths up to 64 only: the high half and the length say it all.
    return (hi ^ (std::uint64_t(p.len()) * 0x9e3779b97f4a7c15ull)) | 1;
  }

  int length6() {
    const auto r = rng_.below(100);
    if (r < 70) return 48;
    if (r < 85) return 32 + 4 * int(rng_.below(4));
    return 56 + 4 * int(rng_.below(3));
  }

  Plexa::Ip6Prefix randomPrefix6() {
    const std::uint64_t hi = (rng_.next() & ~(std::uint64_t(7) << 61)) | std::uint64_t(1) << 61;
    Plexa::Ip6Addr::Bytes b{};
    for (int i = 0; i < 8; ++i)
      b[i] = std::uint8_t(hi >> (56 - 8 * i));
    return Plexa::Ip6Prefix(Plexa::Ip6Addr(b), length6());
  }

  void routes6() {
    KeySet keys(o_.ipv6Routes);
    std::uint64_t n = 0;
    auto own = [&](const Plexa::Ip6Prefix& p, const char* type, FecId fec) {
      if (n < o_.ipv6Routes && keys.insert(key6(p))) {
        route(p, type, fec);
        ++n;
      }
    };
    own(Plexa::Ip6Prefix(Plexa::Ip6Addr(), 0), "bgp", FecId(AdjType::ip6Adj, kFirstEcmpFec));
    for (int i = 0; i < kUplinks; ++i) {
      own(Plexa::Ip6Prefix(uplinkAddr6(i, false), 127), "connected",
          FecId(AdjType::ip6Adj, kFirstConnectedFec + i));
    }
    while (n < o_.ipv6Routes) {
      const Plexa::Ip6Prefix p = randomPrefix6();
      if (!keys.insert(key6(p))) continue;
      const FecId fec(AdjType::ip6Adj, kFirstEcmpFec + rng_.below(plan_.ecmp6Fecs));
      route(p, rng_.chance(9, 10) ? "bgp" : "ospf3", fec);
      ++n;
    }
  }

  void fecs6() {
    for (int i = 0; i < kUplinks; ++i) {
      out_.raw("          {\"id\": ")
          .fec(FecId(AdjType::ip6Adj, kFirstConnectedFec + i))
          .raw(", \"vias\": [{\"interface\": \"")
          .raw(uplinkName(i))
          .raw("\"}]},\n");
    }
    for (std::uint64_t f = 0; f < plan_.ecmp6Fecs; ++f) {
      out_.raw("          {\"id\": ")
          .fec(FecId(AdjType::ip6Adj, kFirstEcmpFec + f))
          .raw(", \"vias\": [");
      const int n = 1 + int(rng_.below(4));
      const int first = int(rng_.below(kUplinks));
      for (int i = 0; i < n; ++i) {
        const int u = (first + i) % kUplinks;
        out_.raw(i ? ", " : "")
            .raw("{\"nexthop\": ")
            .val(uplinkAddr6(u, true))
            .raw(", \"interface\": \"")
            .raw(uplinkName(u))
            .raw("\"}");
      }
      out_.raw("]},\n");
    }
  }

  void extraVrf(unsigned k) {
    const auto sub = std::uint8_t(k % 256);
    out_.raw("    \"vrf").num(k).raw("\": {\n      \"id\": ").num(k).raw(",\n");
    out_.raw("      \"ipv4\": {\n        \"routes\": [\n");
    route(Plexa::Prefix(IpAddr(172, 16, sub, 0), 24), "connected", FecId(2));
    route(Plexa::Prefix(IpAddr(172, 16, sub, 1), 32), "receive", FecId(1));
    for (int i = 0; i < 40; ++i) {
      route(Plexa::Prefix(IpAddr(172, std::uint8_t(17 + i / 16), std::uint8_t(i % 16 * 16), 0), 24),
            "ospfIntraArea", FecId(3), 10);
    }
    out_.endList("        ],\n        \"fecs\": [\n");
    out_.raw("          {\"id\": \"1\", \"vias\": [{\"interface\": \"Cpu\"}]},\n");
    out_.raw("          {\"id\": \"2\", \"vias\": [{\"interface\": \"Vlan")
        .num(100 + k)
        .raw("\"}]},\n");
    out_.raw("          {\"id\": \"3\", \"vias\": [{\"nexthop\": \"172.16.")
        .num(sub)
        .raw(".2\", \"interface\": \"Vlan")
        .num(100 + k)
        .raw("\"}]}\n");
    out_.raw("        ]\n      }\n    },\n");
  }

  // ---- device-wide ----

  void tunnels() {
    out_.raw("  \"tunnels\": {\n    \"fib\": [\n");
    for (int t = 0; t < kLdpTunnels; ++t) {
      const int a = t % kUplinks, b = (t + 1) % kUplinks;
      out_.raw("      {\"tunnel\": \"ldp:").num(t + 1).raw("\", \"vias\": [");
      out_.raw("{\"nexthop\": ")
          .val(uplinkAddr(a, true))
          .raw(", \"interface\": \"")
          .raw(uplinkName(a))
          .raw("\", \"labels\": \"push ")
          .num(16000 + t)
          .raw("\"}, ");
      out_.raw("{\"nexthop\": ")
          .val(uplinkAddr(b, true))
          .raw(", \"interface\": \"")
          .raw(uplinkName(b))
          .raw("\", \"labels\": \"push ")
          .num(16000 + t)
          .raw("\"}]},\n");
    }
    out_.endList("    ],\n    \"ldp\": [\n");
    for (int t = 0; t < kLdpTunnels; ++t) {
      out_.raw("      {\"tunnel\": \"ldp:")
          .num(t + 1)
          .raw("\", \"endpoint\": \"10.255.")
          .num(t + 1)
          .raw(".1/32\"},\n");
    }
    out_.endList("    ]\n  },\n");
  }

  // The four small groups the nexthop-group routes use; with --nexthop-groups N, N groups
  // (at least those four) of kBigGroupEntries entries each, with their counters.
  void nexthopGroups() {
    const std::uint64_t groups = std::max<std::uint64_t>(kGroups, o_.nexthopGroups);
    const bool big = o_.nexthopGroups > 0;
    out_.raw("  \"nexthopGroups\": [\n");
    for (std::uint64_t g = 0; g < groups; ++g) {
      if (big) {
        bigGroup(g);
        continue;
      }
      out_.raw("    {\"name\": \"NHG-")
          .num(g + 1)
          .raw("\", \"id\": ")
          .num(g + 1)
          .raw(", \"type\": \"ipInIp\", \"size\": 4, \"entries\": [");
      for (int e = 0; e < 4; ++e) {
        out_.raw(e ? ", " : "")
            .raw("{\"destination\": \"10.254.")
            .num(g)
            .raw(".")
            .num(e + 1)
            .raw("\"}");
      }
      out_.raw("], \"programmedInVrfs\": [\"default\"]},\n");
    }
    out_.endList("  ],\n");
    if (big) flexCounters(groups);
  }

  // Group g: every type in turn, sized for 128 or left to size itself, one in ten not
  // programmed; its entries are tunnel end points in 10.128.0.0/9, MPLS groups with labels.
  void bigGroup(std::uint64_t g) {
    static const char* const kTypes[] = {"ipInIp", "gre", "mpls", "ip", "mplsOverGre"};
    const char* type = kTypes[g % 5];
    const bool labelled = g % 5 == 2 || g % 5 == 4;
    out_.raw("    {\"name\": \"NHG-")
        .num(g + 1)
        .raw("\", \"id\": ")
        .num(g + 1)
        .raw(", \"type\": \"")
        .raw(type)
        .raw("\", \"size\": ")
        .num(g % 3 == 0 ? 0 : kBigGroupEntries)
        .raw(", \"source\": \"10.0.0.1\", \"entries\": [");
    for (std::uint64_t e = 0; e < kBigGroupEntries; ++e) {
      const std::uint64_t host = (g * kBigGroupEntries + e) % (1u << 23);
      out_.raw(e ? ", " : "")
          .raw("{\"destination\": \"10.")
          .num(128 + (host >> 16))
          .raw(".")
          .num((host >> 8) & 255)
          .raw(".")
          .num(host & 255)
          .raw("\"");
      if (labelled) out_.raw(", \"labels\": \"push ").num(16 + host % 1000000).raw("\"");
      out_.raw("}");
    }
    out_.raw("], \"programmedInVrfs\": [");
    out_.raw(g % 10 == 9 ? "" : "\"default\"");
    out_.raw("]},\n");
  }

  // A counter for every entry but one in sixteen; a quarter of them cleared once already.
  void flexCounters(std::uint64_t groups) {
    const auto counted = [](std::uint64_t e) { return e % 16 != 15; };
    const auto index = [](std::uint64_t g, std::uint64_t e) { return g * kBigGroupEntries + e; };
    out_.raw("  \"flexCounters\": {\n    \"entryKeys\": [\n");
    for (std::uint64_t g = 0; g < groups; ++g) {
      for (std::uint64_t e = 0; e < kBigGroupEntries; ++e) {
        if (!counted(e)) continue;
        out_.raw("      {\"nexthopGroupId\": ")
            .num(g + 1)
            .raw(", \"entry\": ")
            .num(e)
            .raw(", \"counterIndex\": ")
            .num(index(g, e))
            .raw("},\n");
      }
    }
    out_.endList("    ],\n    \"counters\": [\n");
    std::vector<std::uint64_t> cleared;
    for (std::uint64_t g = 0; g < groups; ++g) {
      for (std::uint64_t e = 0; e < kBigGroupEntries; ++e) {
        if (!counted(e)) continue;
        const std::uint64_t packets = rng_.below(1u << 30);
        out_.raw("      {\"index\": ")
            .num(index(g, e))
            .raw(", \"packets\": ")
            .num(packets)
            .raw(", \"bytes\": ")
            .num(packets * (64 + rng_.below(1400)))
            .raw("},\n");
        if (rng_.chance(1, 4)) cleared.push_back(index(g, e) << 32 | (packets / 2));
      }
    }
    out_.endList("    ],\n    \"snapshot\": [\n");
    for (std::uint64_t c : cleared) {
      out_.raw("      {\"index\": ")
          .num(c >> 32)
          .raw(", \"packets\": ")
          .num(c & 0xffffffffu)
          .raw(", \"bytes\": ")
          .num((c & 0xffffffffu) * 64)
          .raw("},\n");
    }
    out_.endList("    ]\n  },\n");
  }

  // ---- the internet profile ----

  static constexpr int kPeers = 4;
  // The FEC of each set of peers: bit i of the set is peer i. Sets of one peer come first.
  static constexpr std::uint64_t kFirstPeerFec = 100;
  static std::uint64_t peerSetFec(unsigned set) { return kFirstPeerFec + set; }

  std::string runInternet() {
    out_.raw("{\n  \"version\": 1,\n  \"hostname\": \"border-").num(o_.seed).raw("\",\n");
    out_.raw("  \"hardware\": {\"fecWeightLimit\": 512, \"maxEcmp\": 128, ")
        .raw("\"nexthopGroupMaxSize\": 128},\n");
    out_.raw("  \"interfaces\": [\n");
    out_.raw("    {\"name\": \"Loopback0\", \"ipv4\": {\"primary\": \"10.255.0.1/32\"}, ")
        .raw("\"ipv6\": [\"2001:db8:ffff::1/128\"]},\n");
    for (int i = 0; i < kPeers; ++i) {
      linkInterface(i, "peer");
    }
    out_.endList("  ],\n");
    out_.raw("  \"neighbors\": [\n");
    for (int i = 0; i < kPeers; ++i) {
      char mac[24];
      std::snprintf(mac, sizeof mac, "02:00:00:00:%02x:01", i + 1);
      for (bool v6 : {false, true}) {
        out_.raw("    {\"address\": ");
        if (v6) {
          out_.val(uplinkAddr6(i, true));
        } else {
          out_.val(uplinkAddr(i, true));
        }
        out_.raw(", \"interface\": \"")
            .raw(uplinkName(i))
            .raw("\", \"mac\": \"")
            .raw(mac)
            .raw("\"},\n");
      }
    }
    out_.endList("  ],\n");
    out_.raw("  \"vrfs\": {\n");
    out_.raw("    \"default\": {\n      \"id\": 0,\n");
    out_.raw("      \"ipv4\": {\n        \"routes\": [\n");
    internetRoutes4();
    out_.endList("        ],\n        \"fecs\": [\n");
    internetFecs(false);
    out_.endList("        ]\n      },\n");
    out_.raw("      \"ipv6\": {\n        \"routes\": [\n");
    internetRoutes6();
    out_.endList("        ],\n        \"fecs\": [\n");
    internetFecs(true);
    out_.endList("        ]\n      }\n    },\n");
    for (unsigned k = 1; k <= o_.extraVrfs; ++k)
      extraVrf(k);
    out_.endList("\n  },\n");
    if (o_.nexthopGroups > 0) nexthopGroups();
    out_.raw("  \"routeDistinguisherInputs\": {}\n}\n");
    return out_.take();
  }

  // The peers a route goes through: one in ten routes ECMP over 2 (70%), 3 (20%) or 4 peers;
  // the others over one peer, the first peer carrying the most and the last the least.
  unsigned peerSet() {
    if (rng_.chance(9, 10)) {
      const auto r = rng_.below(100);
      return 1u << (r < 40 ? 0 : r < 70 ? 1 : r < 90 ? 2 : 3);
    }
    const auto r = rng_.below(10);
    const int size = r < 7 ? 2 : r < 9 ? 3 : 4;
    unsigned set = 0;
    while (std::popcount(set) < size)
      set |= 1u << rng_.below(kPeers);
    return set;
  }

  // The public table's IPv4 length mix: how many prefixes of each length it holds, in round
  // numbers (about a million in all, three in five /24s; very few shorter than /16).
  int internetLength4() {
    static constexpr std::pair<int, std::uint32_t> kMix[] = {
        {24, 590000}, {22, 120000}, {23, 100000}, {21, 52000}, {20, 45000}, {19, 26000},
        {18, 14000},  {16, 13500},  {17, 8300},   {15, 2000},  {14, 1100},  {13, 570},
        {12, 290},    {11, 100},    {10, 37},     {8, 15},     {9, 13}};
    static constexpr std::uint32_t kTotal = [] {
      std::uint32_t t = 0;
      for (const auto& [len, n] : kMix)
        t += n;
      return t;
    }();
    auto r = rng_.below(kTotal);
    for (const auto& [len, n] : kMix) {
      if (r < n) return len;
      r -= n;
    }
    return 24;
  }

  // The public table's IPv6 length mix, per thousand.
  int internetLength6() {
    const auto r = rng_.below(1000);
    if (r < 500) return 48;
    if (r < 630) return 32;
    if (r < 720) return 44;
    if (r < 800) return 40;
    if (r < 850) return 36;
    if (r < 890) return 29;
    if (r < 920) return 46;
    if (r < 950) return 47;
    return 33 + int(rng_.below(15));  // the other lengths from /33 to /47
  }

  void internetOwnRoutes(std::uint64_t& n, std::uint64_t budget) {
    auto add = [&](const Plexa::Prefix& p, const char* type, FecId fec) {
      if (n < budget && keys_.insert(key4(p))) {
        route(p, type, fec);
        ++n;
      }
    };
    add(Plexa::Prefix(IpAddr(10, 255, 0, 1), 32), "receiveLoopback", FecId(kReceiveFec));
    for (int i = 0; i < kPeers; ++i) {
      add(Plexa::Prefix(uplinkAddr(i, false), 31), "connected", FecId(kFirstConnectedFec + i));
      add(Plexa::Prefix(uplinkAddr(i, false), 32), "receive", FecId(kReceiveFec));
    }
  }

  void internetRoutes4() {
    keys_ = KeySet(o_.ipv4Routes);
    std::uint64_t n = 0;
    internetOwnRoutes(n, o_.ipv4Routes);
    while (n < o_.ipv4Routes) {
      const Plexa::Prefix p(address4(), internetLength4());
      if (!keys_.insert(key4(p))) continue;
      route(p, "eBgp", FecId(AdjType::ipAdj, peerSetFec(peerSet())));
      ++n;
    }
  }

  void internetRoutes6() {
    KeySet keys(o_.ipv6Routes);
    std::uint64_t n = 0;
    for (int i = 0; i < kPeers && n < o_.ipv6Routes; ++i) {
      const Plexa::Ip6Prefix p(uplinkAddr6(i, false), 127);
      keys.insert(key6(p));
      route(p, "connected", FecId(AdjType::ip6Adj, kFirstConnectedFec + i));
      ++n;
    }
    while (n < o_.ipv6Routes) {
      const std::uint64_t hi = (rng_.next() & ~(std::uint64_t(7) << 61)) | std::uint64_t(1)
                                                                               << 61;  // 2000::/3
      Plexa::Ip6Addr::Bytes b{};
      for (int i = 0; i < 8; ++i)
        b[i] = std::uint8_t(hi >> (56 - 8 * i));
      const Plexa::Ip6Prefix p(Plexa::Ip6Addr(b), internetLength6());
      if (!keys.insert(key6(p))) continue;
      route(p, "bgp", FecId(AdjType::ip6Adj, peerSetFec(peerSet())));
      ++n;
    }
  }

  // The receive and connected FECs, then one FEC per set of peers, its vias in peer order.
  void internetFecs(bool v6) {
    const AdjType adj = v6 ? AdjType::ip6Adj : AdjType::ipAdj;
    if (!v6) {
      out_.raw("          {\"id\": ")
          .fec(FecId(kReceiveFec))
          .raw(", \"vias\": [{\"interface\": \"Cpu\"}]},\n");
    }
    for (int i = 0; i < kPeers; ++i) {
      out_.raw("          {\"id\": ")
          .fec(FecId(adj, kFirstConnectedFec + i))
          .raw(", \"vias\": [{\"interface\": \"")
          .raw(uplinkName(i))
          .raw("\"}]},\n");
    }
    for (unsigned set = 1; set < (1u << kPeers); ++set) {
      out_.raw("          {\"id\": ").fec(FecId(adj, peerSetFec(set))).raw(", \"vias\": [");
      bool first = true;
      for (int i = 0; i < kPeers; ++i) {
        if (!(set & (1u << i))) continue;
        out_.raw(first ? "{\"nexthop\": " : ", {\"nexthop\": ");
        if (v6) {
          out_.val(uplinkAddr6(i, true));
        } else {
          out_.val(uplinkAddr(i, true));
        }
        out_.raw(", \"interface\": \"").raw(uplinkName(i)).raw("\"}");
        first = false;
      }
      out_.raw("]},\n");
    }
  }

  const GeneratorOptions& o_;
  Rng rng_;
  Out out_;
  Plan plan_;
  KeySet keys_{0};
};

}  // namespace

std::string generate(const GeneratorOptions& options) {
  return Generator(options).run();
}

}  // namespace Snapshot
