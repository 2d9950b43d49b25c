// The internet profile: a border router's full Internet table over four peers.

#include "snapshot/generator/Generator.h"

namespace Snapshot::generator {

std::string Generator::runInternet() {
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

unsigned Generator::peerSet() {
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

int Generator::internetLength4() {
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

int Generator::internetLength6() {
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

void Generator::internetOwnRoutes(std::uint64_t& n, std::uint64_t budget) {
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

void Generator::internetRoutes4() {
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

void Generator::internetRoutes6() {
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

void Generator::internetFecs(bool v6) {
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

}  // namespace Snapshot::generator
