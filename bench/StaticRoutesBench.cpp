// Saving the running configuration of a large static route table: 100,000 routes, most of them
// forwarding through one or two vias, some drop and nexthop-group routes, some with names, tags
// and preferences. Run with the activity lock held, as the front end does, so the yields count.
#include <benchmark/benchmark.h>

#include <random>
#include <string>

#include "lib/static_routes/StaticRoutesCliSaver.h"
#include "platform/mox/ActivityLock.h"

namespace {

constexpr int kRoutes = 100000;

Routing::Via gateway(std::uint32_t addr, const char* intf) {
  Routing::Via v;
  v.hopIs(Plexa::IpAddr(addr));
  v.intfIdIs(Plexa::IntfId(intf));
  return v;
}

Mox::Ptr<Routing::ConfigGen> staticRoutes(int n) {
  std::mt19937 rng(7);
  auto config = Mox::makePtr<Routing::ConfigGen>();
  config->routeMutable().reserve(n);
  const char* const intfs[] = {"", "Ethernet1", "Ethernet2/1", "Vlan100", "Port-Channel5"};
  for (int i = 0; i < n; ++i) {
    const int len = 16 + int(rng() % 17);
    const Plexa::Prefix prefix(Plexa::IpAddr(std::uint32_t(rng())), len);
    const int kind = int(rng() % 100);
    const Routing::RoutePreference pref = kind % 10 == 0 ? 200 : 1;
    const Routing::RouteKey key(prefix, pref);
    auto r = Mox::makePtr<Routing::Route>(key);
    if (kind < 8) {
      r->routeTypeIs(Routing::RouteType::drop);
      if (kind < 2) r->dropNextHopNameIs("discard" + std::to_string(i));
    } else if (kind < 15) {
      r->routeTypeIs(Routing::RouteType::nexthopGroup);
      r->nexthopGroupNameIs("NHG" + std::to_string(i % 50));
    } else {
      const Routing::Via first = gateway(0x0a000000u + std::uint32_t(rng() % 65536), intfs[i % 5]);
      r->viaIs(first, true);
      if (kind < 45) r->viaIs(gateway(0x0b000000u + std::uint32_t(i), ""), true);
      if (kind % 7 == 0) r->viaNextHopNameIs(first, "peer" + std::to_string(i % 100));
      if (kind % 11 == 0) r->viaTrackBfdIs(first, true);
    }
    if (kind % 13 == 0) r->tagIs(std::uint32_t(i));
    config->routeIs(key, r);
  }
  return config;
}

void BM_SaveStaticRoutes(benchmark::State& state) {
  const Mox::Ptr<Routing::ConfigGen const> config = staticRoutes(kRoutes);
  Rova::RovaConsts defaults;
  Mox::ActivityLockGuard held;
  std::size_t bytes = 0;
  for (auto _ : state) {
    auto saver = Mox::makePtr<Rova::StaticRoutesCliSaver>();
    const Mox::String8 text = saver->save(config, state.range(0) != 0, "ip route ", defaults);
    bytes = text.size();
    benchmark::DoNotOptimize(text.charPtr());
  }
  state.SetItemsProcessed(state.iterations() * config->routes());
  state.counters["bytes"] = double(bytes);
}
BENCHMARK(BM_SaveStaticRoutes)->Arg(0)->Arg(1)->ArgName("saveAll")->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
