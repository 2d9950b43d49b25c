// What both profiles write: links, extra VRFs, nexthop groups and their counters.

#include "snapshot/generator/Generator.h"

namespace Snapshot::generator {

void Generator::linkInterface(int i, const char* far) {
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

void Generator::extraVrf(unsigned k) {
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

void Generator::nexthopGroups() {
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

void Generator::bigGroup(std::uint64_t g) {
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

void Generator::flexCounters(std::uint64_t groups) {
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

IpAddr Generator::address4() {
  for (;;) {
    const auto a = std::uint32_t(rng_.next());
    const unsigned first = a >> 24;
    if (first == 0 || first == 10 || first == 127 || first >= 224) continue;
    if ((a >> 16) == 0xc0a8) continue;
    return IpAddr(a);
  }
}

}  // namespace Snapshot::generator

namespace Snapshot {

std::string generate(const GeneratorOptions& options) {
  return generator::Generator(options).run();
}

}  // namespace Snapshot
