// The nexthop-group summary and listing over a generated state of 10,000 groups of 128 entries,
// nearly every entry with a counter: what `show nexthop-group summary` and `show nexthop-group`
// cost beyond loading the state. The listing writes to /dev/null, in text and in JSON; its
// memory is one group's rows, whatever the number of groups.
//
//   build/bench/nexthop_group_bench

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include "lib/nexthop_group/NexthopGroupHelper.h"
#include "lib/nexthop_group/NexthopGroupSummaryHelper.h"
#include "platform/rendr/Printer.h"
#include "snapshot/Generator.h"
#include "snapshot/Snapshot.h"
#include "snapshot/StateLayout.h"

namespace {

namespace layout = Snapshot::layout;

constexpr std::uint64_t kGroups = 10000;
constexpr std::uint64_t kEntries = kGroups * 128;

Mox::Ptr<Statum::EntityManager> groups() {
  static auto em = [] {
    Snapshot::GeneratorOptions o;
    o.ipv4Routes = 100;
    o.ipv6Routes = 10;
    o.nexthopGroups = kGroups;
    return Snapshot::load(Snapshot::generate(o));
  }();
  return em;
}

template <class E>
auto at(const E& entity) {
  return Snapshot::layout::find(*groups(), entity);
}

int devNull() {
  static const int fd = ::open("/dev/null", O_WRONLY);
  return fd;
}

void BM_Summary(benchmark::State& state) {
  const Rova::NexthopGroupSummaryHelper::Inputs in{.nhgConfig = at(layout::nhgConfig),
                                                   .nhgEntryStatus = at(layout::nhgEntryStatus),
                                                   .nhgHwStatus = at(layout::nhgHwStatus),
                                                   .routingHwStatus = at(layout::routingHw)};
  for (auto _ : state) {
    auto summary = Mox::makePtr<Rova::NexthopGroupSummaryHelper>(in);
    summary->render(std::uint32_t(devNull()), rendr::kFormatText);
    benchmark::DoNotOptimize(summary->nhgCount());
  }
  state.SetItemsProcessed(state.iterations() * kGroups);
}
BENCHMARK(BM_Summary)->Unit(benchmark::kMillisecond)->Iterations(10);

void BM_Listing(benchmark::State& state) {
  const unsigned format = unsigned(state.range(0));
  // Outside the timed loop: the first call generates and loads the state.
  const auto config = at(layout::nhgConfig);
  const auto entryStatus = at(layout::nhgEntryStatus);
  const auto hwStatus = at(layout::nhgHwStatus);
  const auto routingHw = at(layout::routingHw);
  for (auto _ : state) {
    auto counters = Rova::nexthopGroupCounterHelperFactory();
    counters->mountCounterBrines(*groups());
    counters->counterEnabledIs(true);
    auto listing =
        Rova::nexthopGroupHelperFactory(config, entryStatus, hwStatus, routingHw, counters, "");
    listing->render(std::uint32_t(devNull()), format);
  }
  state.SetItemsProcessed(state.iterations() * kEntries);
}
BENCHMARK(BM_Listing)
    ->Arg(rendr::kFormatText)
    ->Arg(rendr::kFormatJson)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

}  // namespace
BENCHMARK_MAIN();
