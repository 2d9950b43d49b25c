// Writing and loading a full-size state: 1,000,000 IPv4 and 200,000 IPv6 routes in the
// default VRF, the size a router with a full Internet table carries. The text is generated
// once and shared by the loading benchmarks.
#include <benchmark/benchmark.h>

#include <string>

#include "platform/brine/Fib.h"
#include "snapshot/Generator.h"
#include "snapshot/Snapshot.h"

namespace {

Snapshot::GeneratorOptions fullTable() {
  Snapshot::GeneratorOptions o;
  o.ipv4Routes = 1000000;
  o.ipv6Routes = 200000;
  o.seed = 1;
  return o;
}

const std::string& fullTableText() {
  static const std::string text = Snapshot::generate(fullTable());
  return text;
}

void BM_Generate(benchmark::State& state) {
  std::size_t bytes = 0;
  for (auto _ : state) {
    const std::string text = Snapshot::generate(fullTable());
    bytes = text.size();
    benchmark::DoNotOptimize(text.data());
  }
  state.SetItemsProcessed(state.iterations() * 1200000);
  state.SetBytesProcessed(state.iterations() * std::int64_t(bytes));
}
BENCHMARK(BM_Generate)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_Load(benchmark::State& state) {
  const std::string& text = fullTableText();
  for (auto _ : state) {
    auto em = Snapshot::load(text);
    benchmark::DoNotOptimize(em.get());
  }
  state.SetItemsProcessed(state.iterations() * 1200000);
  state.SetBytesProcessed(state.iterations() * std::int64_t(text.size()));
}
BENCHMARK(BM_Load)->Unit(benchmark::kMillisecond)->Iterations(3);

// The example device: what every start of the program without a state file pays.
void BM_LoadEmbeddedExample(benchmark::State& state) {
  for (auto _ : state) {
    auto em = Snapshot::load(Snapshot::embeddedExample());
    benchmark::DoNotOptimize(em.get());
  }
}
BENCHMARK(BM_LoadEmbeddedExample)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
