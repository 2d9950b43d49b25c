#pragma once
// The benchmarks' full table: a generated state of one million IPv4 routes (and a handful of
// IPv6 ones), built once per benchmark program and shared by its benchmarks.

#include <cstdint>
#include <string>

#include "platform/mox/Ptr.h"
#include "snapshot/Generator.h"
#include "snapshot/Snapshot.h"

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

// The entity at `path` of the full table.
template <class T>
Mox::Ptr<T const> at(const std::string& path) {
  return fullTable()->find<T>(path);
}

}  // namespace rovabench
