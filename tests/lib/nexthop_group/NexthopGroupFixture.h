#pragma once
// A device's nexthop-group state built in memory: configured groups, their ids, which VRFs'
// hardware holds them, and the counter tables at their state paths.

#include <initializer_list>
#include <string>

#include "platform/brine/FlexCounters.h"
#include "platform/brine/NexthopGroupTables.h"
#include "platform/state/NexthopGroupConfig.h"
#include "platform/state/RoutingHardware.h"
#include "platform/statum/EntityManager.h"

namespace nhgtest {

using Routing::NexthopGroup::NexthopGroupType;

struct NhgState {
  Mox::Ptr<Routing::NexthopGroup::Config> config = Mox::makePtr<Routing::NexthopGroup::Config>();
  Mox::Ptr<NexthopGroup::EntryStatus> ids = Mox::makePtr<NexthopGroup::EntryStatus>();
  Mox::Ptr<Routing::Hardware::NexthopGroupStatus> hw =
      Mox::makePtr<Routing::Hardware::NexthopGroupStatus>();
  Mox::Ptr<Routing::Hardware::Status> limits = Mox::makePtr<Routing::Hardware::Status>();
  Mox::Ptr<Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable> keys =
      Mox::makePtr<Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable>();
  Mox::Ptr<FlexCounters::CounterTable> current = Mox::makePtr<FlexCounters::CounterTable>();
  Mox::Ptr<FlexCounters::CounterTable> snapshot = Mox::makePtr<FlexCounters::CounterTable>();

  // A group with `entries` destinations 10.0.<id>.1, ...; id 0 leaves it without an
  // entry-status record; `vrfs` are the VRFs whose hardware holds it.
  Routing::NexthopGroup::NexthopGroupConfigEntry& group(const char* name, std::uint64_t id,
                                                        NexthopGroupType type, std::uint32_t size,
                                                        int entries,
                                                        std::initializer_list<const char*> vrfs) {
    auto g = Mox::makePtr<Routing::NexthopGroup::NexthopGroupConfigEntry>();
    g->nameIs(name);
    g->typeIs(type);
    g->sizeIs(size);
    for (int e = 0; e < entries; ++e) {
      Routing::NexthopGroup::NexthopGroupEntry entry;
      entry.destinationIs(
          Plexa::IpGenAddr::fromString("10.0." + std::to_string(id) + "." + std::to_string(e + 1)));
      g->entryIs(std::uint16_t(e), entry);
    }
    config->nexthopGroupIs(name, g);
    if (id != 0) {
      NexthopGroup::EntryStatusRecord r;
      r.entryKey = NexthopGroup::NexthopGroupEntryKey(name);
      r.nhgId = id;
      ids->recordIs(r);
    }
    for (const char* vrf : vrfs) {
      auto status = hw->vrf(L3::VrfName(vrf));
      if (!status) {
        status = Mox::makePtr<Routing::Hardware::VrfNexthopGroupStatus>();
        status->vrfNameIs(L3::VrfName(vrf));
        hw->vrfIs(L3::VrfName(vrf), status);
      }
      status->nexthopGroupIs(id, true);
    }
    return *g;
  }

  void counterKey(std::uint64_t nhgId, std::uint16_t entry, std::uint32_t index,
                  std::uint32_t chipMask = 1) {
    Routing::NexthopGroup::CounterKeyRecord r;
    r.entry = {nhgId, entry};
    r.info = {index, chipMask};
    keys->recordIs(r);
  }
  static void row(FlexCounters::CounterTable& t, std::uint32_t index, std::uint64_t packets,
                  std::uint64_t bytes, std::uint32_t chipMask = 1) {
    FlexCounters::CounterRow r;
    r.counterKey = {index, chipMask};
    r.packets = packets;
    r.bytes = bytes;
    t.recordIs(r);
  }

  // The state database with the counter tables at the paths the counter helper mounts.
  Mox::Ptr<Statum::EntityManager> entityManager() const {
    auto em = Mox::makePtr<Statum::EntityManager>();
    em->entityIs("tunnel/nexthop/counterkeyinfo", keys);
    em->entityIs("flexCounter/counterTable/16/4294967295", current);
    em->entityIs("flexCounter/snapshotCounterTable/16/4294967295", snapshot);
    return em;
  }
};

}  // namespace nhgtest
