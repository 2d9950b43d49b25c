// Nexthop groups, their entries and hardware status, and the flex counters behind them.

#include "snapshot/loader/Loader.h"

namespace Snapshot::loader {

void Loader::nexthopGroups(od::value& v) {
  r_.elements(r_.array(v), [&](std::size_t, od::value& e) { nexthopGroup(e); });
}

enum NhgKey { kNgName, kNgId, kNgType, kNgSize, kNgTtl, kNgSource, kNgEntries, kNgProgrammed };
constexpr Keys<8> kNhgKeys = {"name", "id",     "type",    "size",
                              "ttl",  "source", "entries", "programmedInVrfs"};

void Loader::nexthopGroup(od::value& v) {
  using namespace Routing::NexthopGroup;
  auto group = makePtr<NexthopGroupConfigEntry>();
  NexthopGroup::EntryStatusRecord status;
  std::vector<L3::VrfName> programmed;
  r_.fields(r_.object(v), kNhgKeys, bit(kNgName) | bit(kNgId) | bit(kNgType),
            [&](unsigned k, od::value& f) {
              switch (k) {
                case kNgName: {
                  const std::string_view name = r_.string(f);
                  if (name.empty()) r_.fail("a nexthop group name is not empty");
                  if (name.size() > status.entryKey.name.capacity()) {
                    r_.fail(std::string(Pelo::kPodArraySizeMessage) + " 128: a nexthop group " +
                            "name has at most 128 bytes");
                  }
                  status.entryKey.name.setText(name);
                  group->nameIs(std::string(name));
                  if (tables_.nhgConfig->nexthopGroup().contains(group->name()))
                    r_.fail("duplicate nexthop group " + quote(name));
                  break;
                }
                case kNgId:
                  status.nhgId = r_.number(f, Brine::Fib::adjIndexMask());
                  if (auto it = nhgIds_.find(status.nhgId); it != nhgIds_.end())
                    r_.fail("nexthop group id " + std::to_string(status.nhgId) +
                            " is already the id of " + quote(it->second));
                  break;
                case kNgType: {
                  const std::string_view word = r_.string(f);
                  NexthopGroupType t;
                  // "invalid" is a real state: a group whose type the agent has not set yet.
                  if (!moxEnumFromName(word, t))
                    r_.fail("unknown nexthop group type " + quote(word) +
                            " (expected invalid, ipInIp, gre, mpls, ip or mplsOverGre)");
                  group->typeIs(t);
                  break;
                }
                case kNgSize:
                  group->sizeIs(std::uint32_t(r_.number(f, 65536)));
                  break;
                case kNgTtl:
                  group->ttlIs(std::uint8_t(r_.number(f, 255)));
                  break;
                case kNgSource:
                  group->sourceIs(genAddress(f));
                  break;
                case kNgEntries: {
                  static constexpr Keys<2> keys = {"destination", "labels"};
                  r_.elements(r_.array(f), [&](std::size_t i, od::value& en) {
                    if (i > 65535) r_.fail("a nexthop group has at most 65536 entries");
                    NexthopGroupEntry entry;
                    r_.fields(r_.object(en), keys, bit(0), [&](unsigned a, od::value& g) {
                      if (a == 0) {
                        entry.destinationIs(genAddress(g));
                      } else {
                        entry.mplsLabelsIs(labelOp(g));
                      }
                    });
                    group->entryIs(std::uint16_t(i), entry);
                  });
                  break;
                }
                case kNgProgrammed:
                  r_.elements(r_.array(f), [&](std::size_t, od::value& n) {
                    const L3::VrfName vrf = vrfName(r_.string(n));
                    for (const auto& p : programmed) {
                      if (p == vrf) r_.fail("duplicate VRF " + quote(vrf.stringValue()));
                    }
                    vrfRef(vrf);
                    programmed.push_back(vrf);
                  });
                  break;
              }
            });
  if (group->size() != 0 && group->entrys() > group->size())
    r_.fail("the group has " + std::to_string(group->entrys()) + " entries but size " +
            std::to_string(group->size()));
  nhgIds_.emplace(status.nhgId, group->name().stringValue());
  tables_.nhgConfig->nexthopGroupIs(group->name(), group);
  tables_.nhgEntryStatus->recordIs(status);
  for (const auto& vrf : programmed) {
    auto hw = tables_.nhgHwStatus->vrf(vrf);
    if (!hw) {
      hw = makePtr<Routing::Hardware::VrfNexthopGroupStatus>();
      hw->vrfNameIs(vrf);
      tables_.nhgHwStatus->vrfIs(vrf, hw);
    }
    hw->nexthopGroupIs(status.nhgId, true);
  }
}

void Loader::flexCounters(od::value& v) {
  static constexpr Keys<3> keys = {"counters", "snapshot", "entryKeys"};
  r_.fields(r_.object(v), keys, 0, [&](unsigned k, od::value& f) {
    if (k == 0) {
      counterRows(f, *tables_.counterTable);
    } else if (k == 1) {
      counterRows(f, *tables_.snapshotCounterTable);
    } else {
      counterKeys(f);
    }
  });
}

// A counter exists on chip 0 unless the document says otherwise.
constexpr std::uint32_t kDefaultChipMask = 1;

void Loader::counterRows(od::value& v, FlexCounters::CounterTable& table) {
  static constexpr Keys<4> keys = {"index", "chipMask", "packets", "bytes"};
  r_.elements(r_.array(v), [&](std::size_t, od::value& e) {
    FlexCounters::CounterRow row;
    row.counterKey.chipMask = kDefaultChipMask;
    r_.fields(r_.object(e), keys, bit(0), [&](unsigned k, od::value& f) {
      switch (k) {
        case 0:
          // 4294967295 is "no counter", which no key can name: a row there is refused too.
          row.counterKey.counterIndex = std::uint32_t(r_.number(f, kU32Max - 1));
          break;
        case 1:
          row.counterKey.chipMask = std::uint32_t(r_.number(f, kU32Max));
          break;
        case 2:
          row.packets = r_.number(f, ~std::uint64_t(0));
          break;
        case 3:
          row.bytes = r_.number(f, ~std::uint64_t(0));
          break;
      }
    });
    if (table.contains(row.counterKey))
      r_.fail("duplicate counter " + std::to_string(row.counterKey.counterIndex) + " on chips " +
              std::to_string(row.counterKey.chipMask));
    table.recordIs(row);
  });
}

void Loader::counterKeys(od::value& v) {
  static constexpr Keys<4> keys = {"nexthopGroupId", "entry", "counterIndex", "chipMask"};
  r_.elements(r_.array(v), [&](std::size_t, od::value& e) {
    Routing::NexthopGroup::CounterKeyRecord rec;
    rec.info.chipMask = kDefaultChipMask;
    r_.fields(r_.object(e), keys, bit(0) | bit(1) | bit(2), [&](unsigned k, od::value& f) {
      switch (k) {
        case 0:
          rec.entry.nhgId = r_.number(f, Brine::Fib::adjIndexMask());
          break;
        case 1:
          rec.entry.entryIndex = std::uint16_t(r_.number(f, 65535));
          break;
        case 2:
          // All ones is how the table says "no counter": such an entry is left out instead.
          rec.info.counterIndex = std::uint32_t(r_.number(f, kU32Max - 1));
          break;
        case 3:
          rec.info.chipMask = std::uint32_t(r_.number(f, kU32Max));
          break;
      }
    });
    if (tables_.counterKeyTable->contains(rec.entry))
      r_.fail("duplicate counter key for nexthop group " + std::to_string(rec.entry.nhgId) +
              " entry " + std::to_string(rec.entry.entryIndex));
    tables_.counterKeyTable->recordIs(rec);
  });
}

}  // namespace Snapshot::loader
