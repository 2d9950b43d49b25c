#pragma once
// The hardware counters: packets and bytes by counter key.

#include <cstdint>
#include <functional>

#include "platform/brine/Table.h"

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
