// Writing and loading a full-size state: 1,000,000 IPv4 and 200,000 IPv6 routes in the
// default VRF, the size a router with a full Internet table carries. The text is generated
// once and shared by the loading benchmarks.
#include <benchmark/benchmark.h>

#include <simdjson.h>

#include <string>
#include <vector>

#include "platform/brine/Fib.h"
#include "platform/state/Family.h"
#include "snapshot/Generator.h"
#include "snapshot/Refs.h"
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

// The peers' table: a border router's Internet table (1,000,000 IPv4 routes at about 1.14
// vias, 200,000 IPv6), as `rova-gen --profile internet --seed 1` writes it.
const std::string& internetText() {
  static const std::string text = [] {
    Snapshot::GeneratorOptions o;
    o.profile = Snapshot::GeneratorProfile::internet;
    o.ipv4Routes = 1000000;
    o.ipv6Routes = 200000;
    o.seed = 1;
    return Snapshot::generate(o);
  }();
  return text;
}

void BM_LoadInternet(benchmark::State& state) {
  const std::string& text = internetText();
  for (auto _ : state) {
    auto em = Snapshot::load(text);
    benchmark::DoNotOptimize(em.get());
  }
  state.SetItemsProcessed(state.iterations() * 1200000);
}
BENCHMARK(BM_LoadInternet)->Unit(benchmark::kMillisecond)->Iterations(3);

// What the load is measured against: the least a strict loader must do, an on-demand parse of
// the same text that reads each route's prefix, type and FEC into a flat array per family
// (no checks beyond the values' own parsers, no indexes, the other sections skipped).
template <class Fam>
struct FlatRoute {
  typename Fam::Prefix prefix;
  typename Fam::RouteType type{};
  Brine::Fib::FecId fec;
};

template <class Fam>
void bareRoutes(simdjson::ondemand::array routes, std::vector<FlatRoute<Fam>>& out) {
  for (auto element : routes) {
    FlatRoute<Fam> r;
    for (auto field : element.get_object()) {
      const std::string_view key = field.unescaped_key();
      if (key != "prefix" && key != "type" && key != "fec") continue;
      const std::string_view text = field.value().get_string();
      if (key == "prefix") {
        typename Fam::AddrWithMask a;
        if (Fam::AddrWithMask::parse(text, a)) r.prefix = a.subnet();
      } else if (key == "type") {
        for (std::uint32_t t = 0; t < 64; ++t) {
          if (Fam::typeName(static_cast<typename Fam::RouteType>(t)) == text) {
            r.type = static_cast<typename Fam::RouteType>(t);
            break;
          }
        }
      } else if (key == "fec") {
        (void)Snapshot::parseFecRef(text, r.fec);
      }
    }
    out.push_back(r);
  }
}

void BM_BareParseInternet(benchmark::State& state) {
  const simdjson::padded_string text(internetText());
  std::size_t routes = 0;
  for (auto _ : state) {
    simdjson::ondemand::parser parser;
    std::vector<FlatRoute<Routing::V4>> v4;
    std::vector<FlatRoute<Routing::V6>> v6;
    auto doc = parser.iterate(text);
    for (auto top : doc.get_object()) {
      if (top.unescaped_key().value() != "vrfs") continue;
      for (auto vrf : top.value().get_object()) {
        for (auto family : vrf.value().get_object()) {
          const std::string_view f = family.unescaped_key();
          if (f != "ipv4" && f != "ipv6") continue;
          for (auto table : family.value().get_object()) {
            if (table.unescaped_key().value() != "routes") continue;
            if (f == "ipv4") {
              bareRoutes<Routing::V4>(table.value().get_array(), v4);
            } else {
              bareRoutes<Routing::V6>(table.value().get_array(), v6);
            }
          }
        }
      }
    }
    routes = v4.size() + v6.size();
    benchmark::DoNotOptimize(v4.data());
    benchmark::DoNotOptimize(v6.data());
  }
  if (routes != 1200000) state.SkipWithError("not the whole table");
  state.SetItemsProcessed(state.iterations() * 1200000);
}
BENCHMARK(BM_BareParseInternet)->Unit(benchmark::kMillisecond)->Iterations(3);

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
