#pragma once
// The smaller state tables: kernel-unprogrammed routes, nexthop-group entry status, SR-TE
// policies, and the counter tables.

#include <cstdint>
#include <functional>

#include "platform/brine/FecId.h"
#include "platform/brine/PodArray.h"
#include "platform/brine/Table.h"
#include "platform/plexa/IpAddr.h"
#include "platform/plexa/Prefix.h"

namespace Brine::KernelUnprogrammedRoute {

// A prefix that the kernel failed to program.
struct Entry {
  Plexa::IpGenPrefix prefix;
  const Plexa::IpGenPrefix& key() const { return prefix; }
};

class UnprogrammedRoute : public Table<Plexa::IpGenPrefix, Entry> {
  MOX_ENTITY("Brine::KernelUnprogrammedRoute::UnprogrammedRoute")
};

}  // namespace Brine::KernelUnprogrammedRoute

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

namespace SrTePolicy {

using Color = std::uint32_t;

struct PolicyKey {
  Plexa::IpGenAddr endpoint;
  Color color = 0;
  friend bool operator==(const PolicyKey&, const PolicyKey&) = default;
};

struct PolicyEntry {
  Brine::Fib::FecId fecId;
  PolicyKey policyKey;
  Brine::Fib::FecId key() const { return fecId; }
};

class PolicyStatus : public Brine::Table<Brine::Fib::FecId, PolicyEntry> {
  MOX_ENTITY("SrTePolicy::PolicyStatus")

 public:
  // The policy a SR-TE FEC forwards into; the empty key when there is none.
  PolicyKey fecIdToPolicyKey(Brine::Fib::FecId fecId) const { return lookup(fecId).policyKey; }
};

}  // namespace SrTePolicy

namespace FlexCounters {

struct CounterKey {
  std::uint32_t counterIndex = 0;
  std::uint32_t chipMask = 0;
  friend bool operator==(const CounterKey&, const CounterKey&) = default;
};

struct CounterKeyHash {
  std::size_t operator()(const CounterKey& k) const noexcept {
    return std::hash<std::uint64_t>()(std::uint64_t(k.counterIndex) << 32 | k.chipMask);
  }
};

struct CounterRow {
  CounterKey counterKey;
  std::uint64_t packets = 0;
  std::uint64_t bytes = 0;
  const CounterKey& key() const { return counterKey; }
};

class CounterTable : public Brine::Table<CounterKey, CounterRow, CounterKeyHash> {
  MOX_ENTITY("FlexCounters::CounterTable")
};

}  // namespace FlexCounters

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
