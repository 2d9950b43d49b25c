// Shapes a document may take that the example device does not use, loaded as what they mean.
// What the example device loads as is pinned by the golden listings of every command, and
// what no listing shows by the writer's round trip.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/brine/Fib.h"
#include "platform/state/NexthopGroupConfig.h"
#include "snapshot/DeviceInfo.h"
#include "snapshot/Snapshot.h"
#include "snapshot/StateLayout.h"

namespace {

namespace layout = Snapshot::layout;
using Brine::Fib::AdjType;
using Brine::Fib::FecId;

// Shapes a user writes by hand that have a meaning and must load as that meaning.
TEST(HandWritten, ShapesWithAMeaningLoad) {
  const auto em = Snapshot::load(R"({"version": 1, "vrfs": {"default": {
    "ipv4": {"routes": [{"prefix": "10.1.0.0/16", "type": "eBgp", "fec": "ip6:7"}],
             "fecs": [{"id": "5", "backupIndex": 2,
                       "vias": [{"interface": "Cpu"}, {"interface": "Null0"}]}]},
    "ipv6": {"routes": [{"prefix": "2001:db8::/32", "type": "bgp", "fec": "7"},
                        {"prefix": "2001:db9::/32", "type": "bgp", "fec": "ip6:7"}],
             "fecs": [{"id": "7", "vias": [{"interface": "Cpu"}]}]}}},
    "nexthopGroups": [{"name": "G0", "id": 1, "type": "invalid"}]})");
  // Backups from the index equal to the number of vias: the FEC has none.
  const auto fec = layout::mount(*em, layout::fibFec, "default")->lookup(FecId(AdjType::ipAdj, 5));
  EXPECT_EQ(fec.via.size(), 2u);
  EXPECT_EQ(fec.backupViaIndex().value(), 2u);
  // In the IPv6 tables a bare FEC number and its ip6: spelling are one FEC, the one an IPv4
  // route over IPv6 next hops names.
  const FecId ip6Fec(AdjType::ip6Adj, 7);
  EXPECT_TRUE(layout::mount(*em, layout::fib6Fec, "default")->contains(ip6Fec));
  const auto routes6 = layout::mount(*em, layout::fib6Route, "default");
  EXPECT_EQ(routes6->lookup(Plexa::Ip6Prefix::fromString("2001:db8::/32")).fecId, ip6Fec);
  EXPECT_EQ(routes6->lookup(Plexa::Ip6Prefix::fromString("2001:db9::/32")).fecId, ip6Fec);
  EXPECT_EQ(layout::mount(*em, layout::fibRoute, "default")
                ->lookup(Plexa::Prefix::fromString("10.1.0.0/16"))
                .fecId,
            ip6Fec);
  EXPECT_EQ(layout::mount(*em, layout::nhgConfig)->nexthopGroup("G0")->type(),
            Routing::NexthopGroup::NexthopGroupType::invalid);
}

// Strings are taken from the document as they stand when they can be, and unescaped when they
// must: either way they hold what the document says, however long, wherever the escape is.
TEST(HandWritten, StringsHoldTheirTextWithOrWithoutEscapes) {
  for (const auto& [written, text] : std::vector<std::pair<std::string, std::string>>{
           {"leaf1", "leaf1"},
           {"", ""},
           {"a long name \xc2\xa9 caf\xc3\xa9 and more",
            "a long name \xc2\xa9 caf\xc3\xa9 and more"},
           {R"(quote\" and backslash\\ and \u00e9)", "quote\" and backslash\\ and \xc3\xa9"},
           {R"(\u0041BCDEFGHIJ)", "ABCDEFGHIJ"},
           {R"(ABCDEFGHI\/)", "ABCDEFGHI/"}}) {
    SCOPED_TRACE(written);
    const auto em = Snapshot::load(R"({"version": 1, "hostname": ")" + written +
                                   R"(" , "vrfs": {"default": {}}})");
    EXPECT_EQ(layout::find(*em, layout::device)->hostname().stringValue(), text);
  }
}

}  // namespace
