// Route selection over a full table: constructing a Rova::RouteSorter with no prefix selects
// every route, caches the FECs and sorts the result. Reports the time and the memory the
// selection takes beyond the loaded state, and compares the ordered collections a sorter could
// keep its routes in (the table arrives in hash order, so inserts come in random order).
//
//   build/bench/route_sorter_bench [--benchmark_filter=...]

#include <absl/container/btree_map.h>
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <map>
#include <random>
#include <vector>

#include "bench/FullTable.h"
#include "lib/route_listing/RouteSorter.h"
#include "platform/mox/Collection.h"
#include "snapshot/StateLayout.h"
#include "tests/support/StateSorters.h"

namespace {

using rovabench::at;
using rovabench::fullTable;
using rovabench::kRoutes;

Mox::Ptr<Rova::RouteSorter> selectAll() {
  return Mox::makePtr<Rova::RouteSorter>(
      rovatest::stateInputs<Rova::RouteSorter>(*fullTable(), "default"));
}

std::size_t heapInUse() {
  const struct mallinfo2 m = mallinfo2();
  return m.uordblks + m.hblkhd;
}

// Selection as the listing sees it: construction, then the first ordered read (which sorts).
void BM_SelectFullTable(benchmark::State& state) {
  fullTable();
  std::size_t bytesPerRoute = 0;
  for (auto _ : state) {
    const std::size_t before = heapInUse();
    auto sorter = selectAll();
    benchmark::DoNotOptimize(sorter->sortedRoutes());
    bytesPerRoute = (heapInUse() - before) / sorter->sortedRoutes();
  }
  state.SetItemsProcessed(state.iterations() * kRoutes);
  state.counters["bytes_per_route"] = double(bytesPerRoute);
}
BENCHMARK(BM_SelectFullTable)->Unit(benchmark::kMillisecond)->Iterations(5);

// The candidates for `sortedRoute`: a million routes inserted in table (random) order, then
// read in order.
std::vector<Brine::Fib::Route> tableOrderRoutes() {
  std::vector<Brine::Fib::Route> routes;
  auto table = at(Snapshot::layout::fibRoute, "default");
  for (auto r : *table)
    routes.push_back(r);
  return routes;
}

template <class Map>
void insertAndWalk(benchmark::State& state) {
  const auto routes = tableOrderRoutes();
  for (auto _ : state) {
    Map m;
    for (const auto& r : routes)
      m[r.prefix] = r;
    std::uint64_t sum = 0;
    for (const auto& [p, r] : m)
      sum += r.fecId.value();
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * routes.size());
}

void BM_Collection_StdMap(benchmark::State& s) {
  insertAndWalk<std::map<Plexa::Prefix, Brine::Fib::Route>>(s);
}
void BM_Collection_AbslBtreeMap(benchmark::State& s) {
  insertAndWalk<absl::btree_map<Plexa::Prefix, Brine::Fib::Route>>(s);
}
void BM_Collection_SortedVector(benchmark::State& state) {
  const auto routes = tableOrderRoutes();
  for (auto _ : state) {
    Mox::VectorMap<Plexa::Prefix, Brine::Fib::Route> m;
    m.reserve(routes.size());
    for (const auto& r : routes)
      m.set(r.prefix, r);
    std::uint64_t sum = 0;
    for (const auto& [p, r] : m)
      sum += r.fecId.value();
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * routes.size());
}
BENCHMARK(BM_Collection_StdMap)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Collection_AbslBtreeMap)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Collection_SortedVector)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
