#pragma once
// The benchmarks' full table: a generated state of one million IPv4 routes (and a handful of
// IPv6 ones), built once per benchmark program and shared by its benchmarks.

#include <cstdint>
#include <string>

#include "platform/mox/Ptr.h"
#include "snapshot/Generator.h"
#include "snapshot/Snapshot.h"
#include "snapshot/StateLayout.h"

namespace rovabench {

inline constexpr std::uint64_t kRoutes = 1000000;

inline Mox::Ptr<Statum::EntityManager> fullTable() {
  static auto em = [] {
    Snapshot::GeneratorOptions o;
    o.ipv4Routes = kRoutes;
    o.ipv6Routes = 10;
    return Snapshot::load(Snapshot::generate(o));
  }();
  return em;
}

// An entity of the full table; a per-VRF one is the default VRF's.
template <class E>
auto at(const E& entity) {
  return Snapshot::layout::find(*fullTable(), entity);
}
template <class E>
auto at(const E& entity, std::string_view vrf) {
  return Snapshot::layout::find(*fullTable(), entity, vrf);
}

}  // namespace rovabench
