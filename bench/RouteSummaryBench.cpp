// The route summary over a full table: what `show ip route summary` costs beyond loading the
// state. One pass counts the 1,000,000 IPv4 routes of a generated state (and its neighbours);
// the second does it the front end's way, by type name through the registry, reading the
// counts back attribute by attribute.
//
//   build/bench/route_summary_bench

#include <benchmark/benchmark.h>

#include "bench/FullTable.h"
#include "lib/registry/TypeRegistry.h"
#include "lib/route_summary/RouteSummary.h"
#include "snapshot/StateLayout.h"

namespace {

namespace layout = Snapshot::layout;

using rovabench::at;
using rovabench::fullTable;
using rovabench::kRoutes;

void BM_SummaryFullTable(benchmark::State& state) {
  const Rova::RouteSummary::Inputs in{.routingConfig = at(layout::routingConfig, "default"),
                                      .routingStatus = at(layout::fibRoute, "default"),
                                      .arpBrine = at(layout::arpStatus),
                                      .vrfIdMap = at(layout::vrfIdMap),
                                      .vrfName = L3::VrfName("default")};
  for (auto _ : state) {
    auto summary = Mox::makePtr<Rova::RouteSummary>(in);
    summary->loadInternalStructures();
    summary->loadAttachedRoutes();
    benchmark::DoNotOptimize(summary->totalNumRoutes());
  }
  state.SetItemsProcessed(state.iterations() * kRoutes);
}
BENCHMARK(BM_SummaryFullTable)->Unit(benchmark::kMillisecond)->Iterations(10);

// As the front end does it: construction by name, the two operations by name, the counts read
// through the registry's cursors.
void BM_SummaryThroughRegistry(benchmark::State& state) {
  const auto& reg = Rova::TypeRegistry::instance();
  // The state's entities as the front end hands them over: by path, as registry values.
  const auto entity = [](const layout::EntityInfo& e) {
    return Rova::Value(fullTable()->entities().at(layout::pathOf(e, "default")));
  };
  const std::vector<Rova::NamedValue> args = {{"routingConfig", entity(layout::routingConfig)},
                                              {"routingStatus", entity(layout::fibRoute)},
                                              {"arpBrine", entity(layout::arpStatus)},
                                              {"vrfIdMap", entity(layout::vrfIdMap)},
                                              {"vrfName", Rova::Value("default")}};
  for (auto _ : state) {
    Rova::Value summary = reg.constructNamed("Rova::RouteSummary", args);
    reg.call(summary, "loadInternalStructures", {});
    reg.call(summary, "loadAttachedRoutes", {});
    std::uint64_t sum = 0;
    for (const char* collection : {"routeCountByType", "routeCountByMask"}) {
      for (auto it = reg.iterate(summary, collection); it->valid(); it->next())
        sum += it->value().get<std::uint64_t>();
    }
    benchmark::DoNotOptimize(sum);
    benchmark::DoNotOptimize(reg.attribute(summary, "totalNumRoutes"));
  }
  state.SetItemsProcessed(state.iterations() * kRoutes);
}
BENCHMARK(BM_SummaryThroughRegistry)->Unit(benchmark::kMillisecond)->Iterations(10);

}  // namespace

BENCHMARK_MAIN();
