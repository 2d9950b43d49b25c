// What runs per route: parsing and writing prefixes and addresses, inserting a full table of
// prefixes into the ordered collection, and table lookup by key.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <vector>

#include "platform/brine/Fib.h"
#include "platform/mox/Collection.h"
#include "platform/plexa/Prefix.h"

namespace {

constexpr int kRoutes = 1000000;

std::vector<Plexa::Prefix> internetLikePrefixes(int n) {
  std::mt19937 rng(42);
  std::vector<Plexa::Prefix> v;
  v.reserve(n);
  for (int i = 0; i < n; ++i) {
    const int r = int(rng() % 100);
    const int len = r < 60 ? 24 : r < 75 ? 23 : r < 85 ? 22 : r < 92 ? 20 : 16 + int(rng() % 8);
    v.emplace_back(Plexa::IpAddr(std::uint32_t(rng())), len);
  }
  return v;
}

const std::vector<Plexa::Prefix>& prefixes() {
  static const auto v = internetLikePrefixes(kRoutes);
  return v;
}

std::vector<std::string> prefixTexts() {
  std::vector<std::string> t;
  for (const auto& p : prefixes())
    t.push_back(p.stringValue());
  return t;
}

void BM_ParsePrefix(benchmark::State& state) {
  const auto texts = prefixTexts();
  for (auto _ : state) {
    for (const auto& t : texts) {
      Plexa::Prefix p;
      benchmark::DoNotOptimize(Plexa::Prefix::parse(t, p));
    }
  }
  state.SetItemsProcessed(state.iterations() * texts.size());
}
BENCHMARK(BM_ParsePrefix)->Unit(benchmark::kMillisecond);

void BM_WritePrefix(benchmark::State& state) {
  char buf[32];
  for (auto _ : state) {
    for (const auto& p : prefixes())
      benchmark::DoNotOptimize(p.write(buf));
  }
  state.SetItemsProcessed(state.iterations() * prefixes().size());
}
BENCHMARK(BM_WritePrefix)->Unit(benchmark::kMillisecond);

void BM_ParseWriteIp6Addr(benchmark::State& state) {
  std::mt19937 rng(1);
  std::vector<std::string> texts;
  for (int i = 0; i < 100000; ++i) {
    Plexa::Ip6Addr::Bytes b{0x20, 0x01, 0x0d, 0xb8};
    for (int j = 4; j < 8; ++j)
      b[j] = std::uint8_t(rng());
    texts.push_back(Plexa::Ip6Addr(b).stringValue());
  }
  char buf[64];
  for (auto _ : state) {
    for (const auto& t : texts) {
      Plexa::Ip6Addr a;
      Plexa::Ip6Addr::parse(t, a);
      benchmark::DoNotOptimize(a.write(buf));
    }
  }
  state.SetItemsProcessed(state.iterations() * texts.size());
}
BENCHMARK(BM_ParseWriteIp6Addr)->Unit(benchmark::kMillisecond);

// A full table into the ordered collection, in table (random) order and in key order.
void BM_OrderedMapInsert(benchmark::State& state) {
  auto keys = prefixes();
  if (state.range(0)) std::sort(keys.begin(), keys.end());
  for (auto _ : state) {
    Mox::OrderedMap<Plexa::Prefix, Brine::Fib::Route> m;
    Brine::Fib::Route r;
    for (const auto& p : keys) {
      r.prefix = p;
      m.set(p, r);
    }
    benchmark::DoNotOptimize(m.size());
  }
  state.SetItemsProcessed(state.iterations() * keys.size());
  state.SetLabel(state.range(0) ? "sorted input" : "random input");
}
BENCHMARK(BM_OrderedMapInsert)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_TableLookup(benchmark::State& state) {
  Brine::Fib::RouteStatus table;
  table.reserve(prefixes().size());
  Brine::Fib::Route r;
  for (const auto& p : prefixes()) {
    r.prefix = p;
    table.recordIs(r);
  }
  std::vector<Plexa::Prefix> probes(prefixes().begin(), prefixes().begin() + 100000);
  std::shuffle(probes.begin(), probes.end(), std::mt19937(3));
  for (auto _ : state) {
    for (const auto& p : probes)
      benchmark::DoNotOptimize(table.lookup(p));
  }
  state.SetItemsProcessed(state.iterations() * probes.size());
}
BENCHMARK(BM_TableLookup)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
