// The nexthop-group summary beyond its golden files: no groups, unprogrammed groups in VRFs
// without hardware state, every type code, sizes against the hardware's limit.

#include <gtest/gtest.h>

#include "lib/nexthop_group/NexthopGroupSummaryHelper.h"
#include "platform/rendr/Printer.h"
#include "platform/state/NexthopGroupSize.h"
#include "tests/lib/nexthop_group/NexthopGroupFixture.h"
#include "tests/support/Capture.h"

namespace {

using nhgtest::NhgState;
using T = Routing::NexthopGroup::NexthopGroupType;
using Rova::NexthopGroupSummaryHelper;

Mox::Ptr<NexthopGroupSummaryHelper> summaryOf(const NhgState& s, const char* vrf = "default") {
  auto h = Mox::makePtr<NexthopGroupSummaryHelper>(
      NexthopGroupSummaryHelper::Inputs{.nhgConfig = s.config,
                                        .nhgEntryStatus = s.ids,
                                        .nhgHwStatus = s.hw,
                                        .routingHwStatus = s.limits});
  h->vrfNameIs(L3::VrfName(vrf));
  return h;
}

std::string rendered(NexthopGroupSummaryHelper& h, unsigned fmt) {
  return rovatest::writtenBy([&](int fd) { h.render(static_cast<std::uint32_t>(fd), fmt); });
}

TEST(NexthopGroupSummary, NoGroupsPrintsBothHeadersWithoutRows) {
  NhgState s;
  auto h = summaryOf(s);
  EXPECT_EQ(rendered(*h, rendr::kFormatText),
            "Number of Nexthop Groups configured: 0\n"
            "Number of unprogrammed Nexthop Groups: 0\n"
            "\n"
            "  Nexthop Group Type   Configured\n"
            "-------------------- ------------\n"
            "\n"
            "  Nexthop Group Size   Configured\n"
            "-------------------- ------------\n");
}

TEST(NexthopGroupSummary, UnprogrammedIsPerVrfAndAGroupWithoutIdIsUnprogrammed) {
  NhgState s;
  s.group("A", 1, T::gre, 2, 2, {"default", "red"});
  s.group("B", 2, T::gre, 2, 2, {"default"});
  // No entry-status record: the empty record's id 0 must not match anything programmed.
  s.group("C", 0, T::gre, 2, 2, {});
  s.hw->vrf(L3::VrfName("default"))->nexthopGroupIs(0, true);

  auto def = summaryOf(s);
  def->processNexthopGroups();
  EXPECT_EQ(def->nhgCount(), 3u);
  EXPECT_EQ(def->nhgUnprogrammedCount(), 1u);

  auto red = summaryOf(s, "red");
  red->processNexthopGroups();
  EXPECT_EQ(red->nhgUnprogrammedCount(), 2u);

  // A VRF with no hardware collection at all: every group is unprogrammed.
  auto blue = summaryOf(s, "blue");
  blue->processNexthopGroups();
  EXPECT_EQ(blue->nhgUnprogrammedCount(), 3u);

  // A group whose id is 0 has a record, and the hardware's 0 is its own.
  s.group("Z", 0, T::gre, 2, 2, {});
  NexthopGroup::EntryStatusRecord zero;
  zero.entryKey = NexthopGroup::NexthopGroupEntryKey("Z");
  s.ids->recordIs(zero);
  auto withZero = summaryOf(s);
  withZero->processNexthopGroups();
  EXPECT_EQ(withZero->nhgCount(), 4u);
  EXPECT_EQ(withZero->nhgUnprogrammedCount(), 1u);  // C alone
}

// Types are listed by code (the golden files show every known one); a code the table does not
// know is listed as Invalid after the known ones.
TEST(NexthopGroupSummary, UnknownTypeCodesAreListedAsInvalidAfterTheKnownOnes) {
  NhgState s;
  s.group("a", 1, T::mplsOverGre, 1, 1, {});
  s.group("b", 2, T::ip, 1, 1, {});
  s.group("f", 6, T::invalid, 1, 1, {});
  s.group("g", 7, static_cast<T>(9), 1, 1, {});
  auto h = summaryOf(s);
  const std::string text = rendered(*h, rendr::kFormatText);
  const auto rows = text.substr(text.find("------------\n") + 13);
  EXPECT_EQ(rows.substr(0, rows.find("\n\n") + 1),
            "             Invalid            1\n"
            "                  IP            1\n"
            "       MPLS over GRE            1\n"
            "             Invalid            1\n");
}

TEST(NexthopGroupSummary, SizesAscendAndEqualSizesShareARow) {
  NhgState s;
  s.limits->nexthopGroupMaxSizeIs(64);
  s.group("a", 1, T::ip, 16, 2, {});
  s.group("b", 2, T::ip, 0, 3, {});  // sized for its entries: 3
  s.group("c", 3, T::ip, 16, 1, {});
  s.group("d", 4, T::ip, 1000, 1, {});  // beyond the hardware's limit: 64
  s.group("e", 5, T::ip, 0, 0, {});     // nothing to size for
  auto h = summaryOf(s);
  h->processNexthopGroups();
  std::vector<std::pair<std::uint32_t, std::uint32_t>> sizes(h->nhgPerSize().begin(),
                                                             h->nhgPerSize().end());
  EXPECT_EQ(sizes, (std::vector<std::pair<std::uint32_t, std::uint32_t>>{
                       {0, 1}, {3, 1}, {16, 2}, {64, 1}}));
}

TEST(NexthopGroupSize, AGapInTheEntriesStillTakesItsSlot) {
  Routing::NexthopGroup::NexthopGroupConfigEntry g;
  g.entryIs(0, {});
  g.entryIs(9, {});
  EXPECT_EQ(Routing::NexthopGroup::getNhgSize(g, 128), 10u);
  EXPECT_EQ(Routing::NexthopGroup::getNhgSize(g, 4), 4u);
  EXPECT_EQ(Routing::NexthopGroup::getNhgSize(g, 0), 10u);  // no limit
  g.sizeIs(2);  // a configured size wins over what the group holds
  EXPECT_EQ(Routing::NexthopGroup::getNhgSize(g, 128), 2u);
}

}  // namespace
