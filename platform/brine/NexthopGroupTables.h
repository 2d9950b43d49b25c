#pragma once
// The nexthop groups' entry status, and where each entry's counter lives.

#include <cstdint>
#include <functional>

#include "platform/brine/PodArray.h"
#include "platform/brine/Table.h"
#include "platform/plexa/IpAddr.h"
#include "platform/plexa/Prefix.h"

namespace NexthopGroup {

using NameIndex = std::uint8_t;
using NexthopGroupId = std::uint64_t;

// Nexthop groups are keyed by name; a name has at most 128 bytes.
struct NexthopGroupEntryKey {
  Pelo::PodArray<unsigned char, NameIndex, 128> name;
  NexthopGroupEntryKey() = default;
  explicit NexthopGroupEntryKey(std::string_view n) { name.setText(n); }
  friend bool operator==(const NexthopGroupEntryKey&, const NexthopGroupEntryKey&) = default;
};

struct NexthopGroupEntryKeyHash {
  std::size_t operator()(const NexthopGroupEntryKey& k) const noexcept {
    return std::hash<std::string_view>()(k.name.view());
  }
};

struct EntryStatusRecord {
  NexthopGroupEntryKey entryKey;
  NexthopGroupId nhgId = 0;
  const NexthopGroupEntryKey& key() const { return entryKey; }
};

class EntryStatus
    : public Brine::Table<NexthopGroupEntryKey, EntryStatusRecord, NexthopGroupEntryKeyHash> {
  MOX_ENTITY("NexthopGroup::EntryStatus")
};

}  // namespace NexthopGroup

namespace Routing::NexthopGroup {

// One entry of one nexthop group.
struct NexthopGroupEntryIndex {
  std::uint64_t nhgId = 0;
  std::uint16_t entryIndex = 0;
  friend bool operator==(const NexthopGroupEntryIndex&, const NexthopGroupEntryIndex&) = default;
};

struct NexthopGroupEntryIndexHash {
  std::size_t operator()(const NexthopGroupEntryIndex& k) const noexcept {
    return std::hash<std::uint64_t>()(k.nhgId * 65537 + k.entryIndex);
  }
};

// Where an entry's counter lives. The empty value (no counter allocated) has all ones in its
// first word and zero in the rest.
struct NexthopGroupEntryCounterKeyInfo {
  std::uint32_t counterIndex = 0xffffffffu;
  std::uint32_t chipMask = 0;
  friend bool operator==(const NexthopGroupEntryCounterKeyInfo&,
                         const NexthopGroupEntryCounterKeyInfo&) = default;
};

struct CounterKeyRecord {
  NexthopGroupEntryIndex entry;
  NexthopGroupEntryCounterKeyInfo info;
  const NexthopGroupEntryIndex& key() const { return entry; }
};

class NexthopGroupEntryToCounterKeyTable
    : public Brine::Table<NexthopGroupEntryIndex, CounterKeyRecord, NexthopGroupEntryIndexHash> {
  MOX_ENTITY("Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable")
};

}  // namespace Routing::NexthopGroup
