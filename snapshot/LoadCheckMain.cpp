// rova-load-check FILE: loads a state snapshot and prints, per VRF, how many routes and FECs
// it holds. It exists to measure the loader alone (time, peak memory) and to check a file.

#include <simdjson.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>

#include "platform/brine/Fib.h"
#include "platform/brine/Neighbor.h"
#include "snapshot/JsonLibrary.h"
#include "snapshot/Snapshot.h"
#include "snapshot/StateLayout.h"

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
  namespace layout = Snapshot::layout;
  auto vrfs = layout::mount(*em, layout::vrfIdMap);
  for (const auto& entry : *vrfs) {
    const std::string name = entry.vrfName().stringValue();
    std::printf("vrf %s: %zu IPv4 routes, %zu IPv4 FECs, %zu IPv6 routes, %zu IPv6 FECs\n",
                name.c_str(), layout::mount(*em, layout::fibRoute, name)->size(),
                layout::mount(*em, layout::fibFec, name)->size(),
                layout::mount(*em, layout::fib6Route, name)->size(),
                layout::mount(*em, layout::fib6Fec, name)->size());
  }
  // The kernel a document of this size is indexed with.
  std::error_code ec;
  const Snapshot::JsonKernelFor kernel(std::filesystem::file_size(argv[1], ec));
  std::printf("loaded in %.3f s (parser kernel: %s, %s)\n", took.count(),
              simdjson::get_active_implementation()->name().c_str(),
              simdjson::get_active_implementation()->description().c_str());
  return 0;
}
