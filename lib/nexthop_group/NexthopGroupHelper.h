#pragma once
// The nexthop-group listing: every configured group (or one, by name) as a router shows it:
// its id, type, size, TTL and tunnel source, whether the VRF's hardware holds it, then its
// entries in index order with destination, labels and what each forwarded since the counters
// were last cleared. It also clears those counters.
//
// The listing streams: it walks the configuration and prints each group as it goes, holding
// one group's entries at a time, so a device with many groups costs no more memory than one
// with a few.
//
//   auto listing = Rova::nexthopGroupHelperFactory(config, ids, hw, limits, counters, "NHG-A");
//   listing->processNexthopVias();  // an unknown name raises Mox::RangeException
//   listing->render(1, rendr::kFormatText);

#include <cstdint>

#include "lib/nexthop_group/NexthopGroupCounterHelper.h"
#include "platform/brine/NexthopGroupTables.h"
#include "platform/mox/Attribute.h"
#include "platform/mox/Ptr.h"
#include "platform/mox/String8.h"
#include "platform/plexa/VrfName.h"
#include "platform/state/NexthopGroupConfig.h"
#include "platform/state/RoutingHardware.h"

namespace Rova {

#define ROVA_NHG_HELPER_ATTRS(F, C)                                                                \
  F(nhgConfig, NhgConfig, Mox::Ptr<Routing::NexthopGroup::Config const>, Mox::AttrKind::input, {}) \
  F(nhgEntryStatus, NhgEntryStatus, Mox::Ptr<NexthopGroup::EntryStatus const>,                     \
    Mox::AttrKind::input, {})                                                                      \
  F(nhgHwStatus, NhgHwStatus, Mox::Ptr<Routing::Hardware::NexthopGroupStatus const>,               \
    Mox::AttrKind::input, {})                                                                      \
  F(routingHwStatus, RoutingHwStatus, Mox::Ptr<Routing::Hardware::Status const>,                   \
    Mox::AttrKind::input, {})                                                                      \
  F(counterHelper, CounterHelper, Mox::Ptr<NexthopGroupCounterHelper>, Mox::AttrKind::input, {})   \
  /* The one group to list; empty lists them all. */                                               \
  F(nhgName, NhgName, Mox::String8, Mox::AttrKind::input, {})                                      \
  F(vrfName, VrfName, L3::VrfName, Mox::AttrKind::input, {L3::VrfName::defaultVrf()})              \
  /* How many groups the listing holds; set by processNexthopVias. */                              \
  F(nhgSelected, NhgSelected, std::uint32_t, Mox::AttrKind::state, {})                             \
  F(processed, Processed, bool, Mox::AttrKind::state, {false})

class NexthopGroupHelper : public Mox::Entity {
  MOX_ENTITY_TYPE(NexthopGroupHelper, "Rova::NexthopGroupHelper", ROVA_NHG_HELPER_ATTRS)

 public:
  NexthopGroupHelper() = default;

  // Selects the groups to list: all of them, or the one named, which must be configured
  // (Mox::RangeException "Nexthop group 'X' does not exist" otherwise). Runs once; later calls
  // do nothing.
  void processNexthopVias();
  // Selects (when not done yet), then prints the groups on `fd` in format `fmt`. A stop of the
  // output (an interrupt, a reader gone) is reported on the output and passed on.
  void render(std::uint32_t fd, std::uint32_t fmt);
  // Clears the entry counters of the selected groups: their current counts become the
  // snapshot. Returns how many entries had a counter to clear.
  std::uint32_t clearCounters();

  // The group's id from the entry-status table; 0 when it has no record (0 is also an id).
  std::uint64_t nexthopGroupId(const Mox::String8& name) const;
  // Whether the VRF's hardware holds the group. One without an entry-status record has no
  // id, and so nothing in hardware.
  bool programmed(const Mox::String8& name) const;
};

Mox::Ptr<NexthopGroupHelper> nexthopGroupHelperFactory(
    Mox::Ptr<Routing::NexthopGroup::Config const> nhgConfig,
    Mox::Ptr<NexthopGroup::EntryStatus const> nhgEntryStatus,
    Mox::Ptr<Routing::Hardware::NexthopGroupStatus const> nhgHwStatus,
    Mox::Ptr<Routing::Hardware::Status const> routingHwStatus,
    Mox::Ptr<NexthopGroupCounterHelper> counterHelper, Mox::String8 nhgName);

}  // namespace Rova
