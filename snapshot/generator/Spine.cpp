// The spine profile: a spine-facing router with sixteen routed uplinks.

#include "snapshot/generator/Generator.h"

namespace Snapshot::generator {

std::string Generator::runSpine() {
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

void Generator::interfaces() {
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

void Generator::neighbors() {
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

void Generator::defaultVrf() {
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

void Generator::staticRoutes() {
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

std::uint64_t Generator::ownRoutes4(std::uint64_t budget) {
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
  add(Plexa::Prefix(IpAddr(192, 168, 0, 0), 24), "connected", FecId(kFirstConnectedFec + kUplinks));
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

int Generator::length4() {
  const auto r = rng_.below(1000);
  if (r < 600) return 24;
  if (r < 700) return 23;
  if (r < 780) return 22;
  if (r < 830) return 21;
  if (r < 890) return 20;
  if (r < 970) return 16 + int(rng_.below(4));
  return 8 + int(rng_.below(8));
}

void Generator::routes4() {
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

void Generator::fecs4() {
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

void Generator::ecmpFec(std::uint64_t f) {
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

int Generator::length6() {
  const auto r = rng_.below(100);
  if (r < 70) return 48;
  if (r < 85) return 32 + 4 * int(rng_.below(4));
  return 56 + 4 * int(rng_.below(3));
}

Plexa::Ip6Prefix Generator::randomPrefix6() {
  const std::uint64_t hi = (rng_.next() & ~(std::uint64_t(7) << 61)) | std::uint64_t(1) << 61;
  Plexa::Ip6Addr::Bytes b{};
  for (int i = 0; i < 8; ++i)
    b[i] = std::uint8_t(hi >> (56 - 8 * i));
  return Plexa::Ip6Prefix(Plexa::Ip6Addr(b), length6());
}

void Generator::routes6() {
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

void Generator::fecs6() {
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

void Generator::tunnels() {
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

}  // namespace Snapshot::generator
