#pragma once
// The synthetic state generator's own header: the class whose profiles are defined a file each
// (Spine.cpp, Internet.cpp; what both write, Device.cpp), and the pieces they share. Users
// generate through snapshot/Generator.h.

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/brine/FecId.h"
#include "platform/plexa/Prefix.h"
#include "platform/rendr/JsonText.h"
#include "snapshot/Generator.h"
#include "snapshot/Refs.h"

namespace Snapshot::generator {

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

inline IpAddr uplinkAddr(int i, bool peer) {
  return IpAddr(10, 0, std::uint8_t(i), peer ? 1 : 0);
}
// 2001:db8:0:<i>::/127; the device has ::0, the peer ::1.
inline Plexa::Ip6Addr uplinkAddr6(int i, bool peer) {
  Plexa::Ip6Addr::Bytes b{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, std::uint8_t(i)};
  b[15] = peer ? 1 : 0;
  return Plexa::Ip6Addr(b);
}
inline std::string uplinkName(int i) {
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
    return o_.profile == GeneratorProfile::internet ? runInternet() : runSpine();
  }

 private:
  // ---- shared by the profiles ----

  // One point-to-point link: the i-th uplink's name, a description naming what is at the other
  // end ("spine3", "peer2"), its /31 and its /127.
  void linkInterface(int i, const char* far);

  // ---- the spine profile ----

  std::string runSpine();
  void interfaces();
  void neighbors();

  // ---- the default VRF ----

  void defaultVrf();
  void staticRoutes();

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
  std::uint64_t ownRoutes4(std::uint64_t budget);

  static std::uint64_t key4(const Plexa::Prefix& p) {
    return std::uint64_t(p.address().value()) << 8 | std::uint64_t(p.len()) | 1ull << 40;
  }

  int length4();

  // Public unicast space, away from the device's own 10/8 and 192.168/16.
  IpAddr address4();
  void routes4();
  void fecs4();

  // An ECMP set over distinct uplinks; some weighted, some with a backup, some riding LDP.
  void ecmpFec(std::uint64_t f);

  static std::uint64_t key6(const Plexa::Ip6Prefix& p) {
    std::uint64_t hi = 0;
    for (int i = 0; i < 8; ++i)
      hi = hi << 8 | p.address().bytes()[i];
    // Lengths up to 64 only: the high half and the length say it all.
    return (hi ^ (std::uint64_t(p.len()) * 0x9e3779b97f4a7c15ull)) | 1;
  }

  int length6();
  Plexa::Ip6Prefix randomPrefix6();
  void routes6();
  void fecs6();
  void extraVrf(unsigned k);

  // ---- device-wide ----

  void tunnels();

  // The four small groups the nexthop-group routes use; with --nexthop-groups N, N groups
  // (at least those four) of kBigGroupEntries entries each, with their counters.
  void nexthopGroups();

  // Group g: every type in turn, sized for 128 or left to size itself, one in ten not
  // programmed; its entries are tunnel end points in 10.128.0.0/9, MPLS groups with labels.
  void bigGroup(std::uint64_t g);

  // A counter for every entry but one in sixteen; a quarter of them cleared once already.
  void flexCounters(std::uint64_t groups);

  // ---- the internet profile ----

  static constexpr int kPeers = 4;
  // The FEC of each set of peers: bit i of the set is peer i. Sets of one peer come first.
  static constexpr std::uint64_t kFirstPeerFec = 100;
  static std::uint64_t peerSetFec(unsigned set) { return kFirstPeerFec + set; }

  std::string runInternet();

  // The peers a route goes through: one in ten routes ECMP over 2 (70%), 3 (20%) or 4 peers;
  // the others over one peer, the first peer carrying the most and the last the least.
  unsigned peerSet();

  // The public table's IPv4 length mix: how many prefixes of each length it holds, in round
  // numbers (about a million in all, three in five /24s; very few shorter than /16).
  int internetLength4();

  // The public table's IPv6 length mix, per thousand.
  int internetLength6();
  void internetOwnRoutes(std::uint64_t& n, std::uint64_t budget);
  void internetRoutes4();
  void internetRoutes6();

  // The receive and connected FECs, then one FEC per set of peers, its vias in peer order.
  void internetFecs(bool v6);
  const GeneratorOptions& o_;
  Rng rng_;
  Out out_;
  Plan plan_;
  KeySet keys_{0};
};

}  // namespace Snapshot::generator
