// The nexthop-group listing: a group's header and entries with their counters since the last
// clear, columns as wide as the group's values, one group or all, an unknown name refused, and
// clearing the counters of the listed groups only.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "lib/nexthop_group/NexthopGroupHelper.h"
#include "platform/mox/Exception.h"
#include "platform/rendr/Printer.h"
#include "tests/lib/nexthop_group/NexthopGroupFixture.h"

namespace {

using nhgtest::NhgState;
using T = Routing::NexthopGroup::NexthopGroupType;

struct Listing : testing::Test {
  Listing() {
    auto& a = s.group("A", 1, T::mpls, 4, 3, {"default"});
    auto e = a.entry(2);
    e.mplsLabelsIs(Plexa::MplsLabelOperation::fromString("push 30013 30113"));
    a.entryIs(2, e);
    a.sourceIs(Plexa::IpGenAddr::fromString("10.0.0.11"));
    s.group("B", 2, T::gre, 0, 1, {});
    s.counterKey(1, 0, 100);
    s.counterKey(1, 1, 101);
    NhgState::row(*s.current, 100, 1000, 128000);
    NhgState::row(*s.snapshot, 100, 400, 51200);
    NhgState::row(*s.current, 101, 7, 896);
    s.counterKey(2, 0, 200);
    NhgState::row(*s.current, 200, 5, 500);
    counters->mountCounterBrines(*s.entityManager());
    counters->counterEnabledIs(true);
  }
  Mox::Ptr<Rova::NexthopGroupHelper> listing(const char* name = "") {
    return Rova::nexthopGroupHelperFactory(s.config, s.ids, s.hw, s.limits, counters, name);
  }
  static std::string rendered(Rova::NexthopGroupHelper& h, unsigned fmt) {
    return nhgtest::renderedBy([&](std::uint32_t fd) { h.render(fd, fmt); });
  }

  NhgState s;
  Mox::Ptr<Rova::NexthopGroupCounterHelper> counters = Rova::nexthopGroupCounterHelperFactory();
};

TEST_F(Listing, OneGroupWithItsEntriesAndCounters) {
  auto h = listing("A");
  EXPECT_EQ(rendered(*h, rendr::kFormatText),
            "Nexthop group A\n"
            "  Id 1, type MPLS, size 4, TTL 64, source 10.0.0.11\n"
            "  Programmed in hardware of VRF default: yes\n"
            "  Entry  Destination  Labels            Packets  Bytes\n"
            "  -----  -----------  ----------------  -------  -----\n"
            "      0  10.0.1.1     -                     600  76800\n"
            "      1  10.0.1.2     -                       7    896\n"
            "      2  10.0.1.3     push 30013 30113        -      -\n");
}

TEST_F(Listing, AllGroupsInJsonWithTheSameValues) {
  auto h = listing();
  h->vrfNameIs(L3::VrfName("red"));
  const auto json = nlohmann::json::parse(rendered(*h, rendr::kFormatJson));
  const auto& a = json.at("nexthopGroups").at("A");
  EXPECT_EQ(a.at("nexthopGroupId"), 1);
  EXPECT_EQ(a.at("type"), "mpls");
  EXPECT_EQ(a.at("source"), "10.0.0.11");
  EXPECT_EQ(a.at("programmed"), false);  // not in red's hardware
  ASSERT_EQ(a.at("entries").size(), 3u);
  EXPECT_EQ(a.at("entries")[0], nlohmann::json::parse(R"({"entryIndex": 0,
      "destination": "10.0.1.1", "mplsLabels": "", "counterAllocated": true,
      "packets": 600, "bytes": 76800})"));
  EXPECT_EQ(a.at("entries")[2].at("mplsLabels"), "push 30013 30113");
  EXPECT_EQ(a.at("entries")[2].at("counterAllocated"), false);
  EXPECT_FALSE(a.at("entries")[2].contains("packets"));
  const auto& b = json.at("nexthopGroups").at("B");
  EXPECT_EQ(b.at("size"), 1);  // sized for its one entry
  EXPECT_EQ(b.at("source"), "");
  EXPECT_EQ(b.at("entries")[0].at("packets"), 5);
}

TEST_F(Listing, WithCountersOffTheCountColumnsAreLeftOut) {
  counters->counterEnabledIs(false);
  auto h = listing("B");
  EXPECT_EQ(rendered(*h, rendr::kFormatText),
            "Nexthop group B\n"
            "  Id 2, type GRE, size 1, TTL 64, source none\n"
            "  Programmed in hardware of VRF default: no\n"
            "  Entry  Destination  Labels\n"
            "  -----  -----------  ------\n"
            "      0  10.0.2.1     -\n");
}

TEST_F(Listing, AnUnknownGroupIsRefusedBeforeAnyOutput) {
  auto h = listing("Z");
  try {
    h->processNexthopVias();
    FAIL();
  } catch (const Mox::RangeException& e) {
    EXPECT_STREQ(e.what(), "Nexthop group 'Z' does not exist");
  }
  EXPECT_THROW(h->clearCounters(), Mox::RangeException);
}

TEST_F(Listing, ClearingOneGroupLeavesTheOthersCounting) {
  auto h = listing("A");
  EXPECT_EQ(h->clearCounters(), 2u);
  EXPECT_EQ(counters->getCounters(1, 0), Rova::CounterEntry(0, 0));
  EXPECT_EQ(counters->getCounters(1, 1), Rova::CounterEntry(0, 0));
  EXPECT_EQ(counters->getCounters(2, 0), Rova::CounterEntry(5, 500));
  EXPECT_EQ(listing()->clearCounters(), 3u);
  EXPECT_EQ(counters->getCounters(2, 0), Rova::CounterEntry(0, 0));
}

}  // namespace
