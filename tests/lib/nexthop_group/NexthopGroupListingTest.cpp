// The nexthop-group listing beyond its golden files: the columns without counters, and
// clearing the counters of the listed groups only.

#include <gtest/gtest.h>

#include "lib/nexthop_group/NexthopGroupHelper.h"
#include "platform/rendr/Printer.h"
#include "tests/lib/nexthop_group/NexthopGroupFixture.h"
#include "tests/support/Capture.h"

namespace {

using nhgtest::NhgState;
using T = Routing::NexthopGroup::NexthopGroupType;

struct Listing : testing::Test {
  Listing() {
    s.group("A", 1, T::mpls, 4, 3, {"default"});  // entry 2 has no counter
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
    return rovatest::writtenBy([&](int fd) { h.render(static_cast<std::uint32_t>(fd), fmt); });
  }

  NhgState s;
  Mox::Ptr<Rova::NexthopGroupCounterHelper> counters = Rova::nexthopGroupCounterHelperFactory();
};

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

// A pop pushes nothing yet is an operation: its entry says "pop", where one with no operation
// says "-" (text) or "" (JSON).
TEST_F(Listing, APopEntryShowsItsOperationNotNone) {
  counters->counterEnabledIs(false);
  auto& b = s.group("C", 3, T::mpls, 0, 2, {});
  Routing::NexthopGroup::NexthopGroupEntry entry;
  entry.destinationIs(Plexa::IpGenAddr::fromString("10.0.3.1"));
  entry.mplsLabelsIs(Plexa::MplsLabelOperation::fromString("pop"));
  b.entryIs(0, entry);
  auto h = listing("C");
  EXPECT_EQ(rendered(*h, rendr::kFormatText),
            "Nexthop group C\n"
            "  Id 3, type MPLS, size 2, TTL 64, source none\n"
            "  Programmed in hardware of VRF default: no\n"
            "  Entry  Destination  Labels\n"
            "  -----  -----------  ------\n"
            "      0  10.0.3.1     pop\n"
            "      1  10.0.3.2     -\n");
  const std::string json = rendered(*listing("C"), rendr::kFormatJson);
  EXPECT_NE(json.find("\"mplsLabels\": \"pop\""), std::string::npos) << json;
  EXPECT_NE(json.find("\"mplsLabels\": \"\""), std::string::npos) << json;
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
