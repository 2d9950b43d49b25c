#pragma once
// Where a nexthop-group entry's counter lives, and what it counted.

#include <cstdint>

#include "platform/mox/Attribute.h"

namespace Rova {

#define ROVA_COUNTER_INDEX_ATTRS(F, C)                                   \
  F(counterIndex, CounterIndex, std::uint32_t, Mox::AttrKind::value, {}) \
  F(chipMask, ChipMask, std::uint32_t, Mox::AttrKind::value, {})

class CounterIndex {
  MOX_VALUE_TYPE(CounterIndex, "Rova::CounterIndex", ROVA_COUNTER_INDEX_ATTRS)

 public:
  CounterIndex() = default;
  CounterIndex(std::uint32_t index, std::uint32_t chipMask)
      : counterIndex_(index), chipMask_(chipMask) {}
};

#define ROVA_COUNTER_ENTRY_ATTRS(F, C)                         \
  F(packets, Packets, std::uint64_t, Mox::AttrKind::value, {}) \
  F(bytes, Bytes, std::uint64_t, Mox::AttrKind::value, {})

class CounterEntry {
  MOX_VALUE_TYPE(CounterEntry, "Rova::CounterEntry", ROVA_COUNTER_ENTRY_ATTRS)

 public:
  CounterEntry() = default;
  CounterEntry(std::uint64_t packets, std::uint64_t bytes) : packets_(packets), bytes_(bytes) {}
};

}  // namespace Rova
