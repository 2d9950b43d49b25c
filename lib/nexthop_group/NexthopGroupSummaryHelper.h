#pragma once
// The nexthop-group summary: how many groups are configured, how many of them the VRF's
// hardware does not hold, and how they divide by type and by size. It counts once, then prints
// through the printer, text and JSON from the same calls.
//
//   auto summary = Mox::makePtr<Rova::NexthopGroupSummaryHelper>(
//       Rova::NexthopGroupSummaryHelper::Inputs{.nhgConfig = config, .nhgEntryStatus = ids,
//                                               .nhgHwStatus = hw, .routingHwStatus = limits});
//   summary->vrfNameIs(L3::VrfName("red"));  // the default VRF otherwise
//   summary->render(1, rendr::kFormatText);

#include <cstdint>

#include "platform/brine/NexthopGroupTables.h"
#include "platform/mox/Attribute.h"
#include "platform/mox/Ptr.h"
#include "platform/plexa/VrfName.h"
#include "platform/state/NexthopGroupConfig.h"
#include "platform/state/RoutingHardware.h"

namespace Rova {

// Group type to the number of configured groups of that type, ascending by type code.
using NhgPerTypeMap = Mox::OrderedMap<Routing::NexthopGroup::NexthopGroupType, std::uint32_t>;
// Group size to the number of configured groups of that size, ascending by size.
using NhgPerSizeMap = Mox::OrderedMap<std::uint32_t, std::uint32_t>;

#define ROVA_NHG_SUMMARY_INPUTS(F)                                                                 \
  F(nhgConfig, NhgConfig, Mox::Ptr<Routing::NexthopGroup::Config const>, Mox::AttrKind::input, {}) \
  F(nhgEntryStatus, NhgEntryStatus, Mox::Ptr<NexthopGroup::EntryStatus const>,                     \
    Mox::AttrKind::input, {})                                                                      \
  F(nhgHwStatus, NhgHwStatus, Mox::Ptr<Routing::Hardware::NexthopGroupStatus const>,               \
    Mox::AttrKind::input, {})                                                                      \
  F(routingHwStatus, RoutingHwStatus, Mox::Ptr<Routing::Hardware::Status const>,                   \
    Mox::AttrKind::input, {})

#define ROVA_NHG_SUMMARY_ATTRS(F, C)                                                     \
  ROVA_NHG_SUMMARY_INPUTS(F)                                                             \
  F(vrfName, VrfName, L3::VrfName, Mox::AttrKind::input, {L3::VrfName::defaultVrf()})    \
  F(nhgCount, NhgCount, std::uint32_t, Mox::AttrKind::state, {})                         \
  F(nhgUnprogrammedCount, NhgUnprogrammedCount, std::uint32_t, Mox::AttrKind::state, {}) \
  C(nhgPerType, NhgPerType, NhgPerTypeMap)                                               \
  C(nhgPerSize, NhgPerSize, NhgPerSizeMap)

class NexthopGroupSummaryHelper : public Mox::Entity {
  MOX_ENTITY_TYPE(NexthopGroupSummaryHelper, "Rova::NexthopGroupSummaryHelper",
                  ROVA_NHG_SUMMARY_ATTRS)
  MOX_INPUTS(ROVA_NHG_SUMMARY_INPUTS)

 public:
  explicit NexthopGroupSummaryHelper(Inputs in) { takeInputs(std::move(in)); }

  // Counts the configured groups into the four results. It adds to what is there (the maps are
  // not cleared), so one object counts once.
  void processNexthopGroups();
  // Counts, then prints the summary on `fd` in format `fmt` (rendr::kFormatText or
  // kFormatJson). A stop of the output (an interrupt, a reader gone) is reported and passed on.
  void render(std::uint32_t fd, std::uint32_t fmt);
};

// The name a group type shows under in the summary's text table.
const char* nhgTypeText(Routing::NexthopGroup::NexthopGroupType type);

// Whether a VRF's hardware collection (null: the VRF has none) holds the group named `name`.
// A group without an entry-status record has no id, and so nothing programmed; one whose id
// is 0 is looked up like any other. The summary and the listing both ask it.
bool nhgProgrammed(const NexthopGroup::EntryStatus* ids,
                   const Routing::Hardware::VrfNexthopGroupStatus* vrf, const Mox::String8& name);

}  // namespace Rova
