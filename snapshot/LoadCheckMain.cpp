// rova-load-check FILE: loads a state snapshot and prints, per VRF, how many routes and FECs
// it holds. It exists to measure the loader alone (time, peak memory) and to check a file.

#include <simdjson.h>

#include <chrono>
#include <cstdio>
#include <string>

#include "platform/brine/Fib.h"
#include "platform/brine/Neighbor.h"
#include "snapshot/Snapshot.h"
#include "snapshot/StatePaths.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: rova-load-check FILE\n", stderr);
    return 2;
  }
  const auto start = std::chrono::steady_clock::now();
  Mox::Ptr<Statum::EntityManager> em;
  try {
    em = Snapshot::loadFile(argv[1]);
  } catch (const Snapshot::LoadError& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 2;
  }
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  namespace p = Snapshot::paths;
  auto vrfs = em->mount<Vrf::VrfIdMap::Status>(p::kVrfIdMap);
  for (const auto& entry : *vrfs) {
    const std::string name = entry.vrfName().stringValue();
    std::printf("vrf %s: %zu IPv4 routes, %zu IPv4 FECs, %zu IPv6 routes, %zu IPv6 FECs\n",
                name.c_str(),
                em->mount<Brine::Fib::RouteStatus>(p::vrfPath(name, p::kFibRoute))->size(),
                em->mount<Brine::Fib::ForwardingStatus>(p::vrfPath(name, p::kFibFec))->size(),
                em->mount<Brine::Fib6::RouteStatus>(p::vrfPath(name, p::kFib6Route))->size(),
                em->mount<Brine::Fib6::ForwardingStatus>(p::vrfPath(name, p::kFib6Fec))->size());
  }
  std::printf("loaded in %.3f s (parser kernel: %s, %s)\n", took.count(),
              simdjson::get_active_implementation()->name().c_str(),
              simdjson::get_active_implementation()->description().c_str());
  return 0;
}
