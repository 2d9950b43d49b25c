#pragma once
// Sorters over the example device, and their printed output, for printing tests.

#include <unistd.h>
#include <cstdio>
#include <string>

#include "lib/route_listing/RouteSorter.h"
#include "snapshot/Snapshot.h"
#include "snapshot/StatePaths.h"
#include "tests/support/Capture.h"
#include "tests/support/StateSorters.h"

namespace Rova::test {

struct ListOptions {
  const char* vrf = "default";
  const char* prefix = "";
  bool originalMask = true;
  bool longerPrefixes = false;
  const char* protocol = "";
  bool detail = false;
  bool host = false;
  const char* intf = "";
};

class ExampleDevice {
 public:
  ExampleDevice() : em_(Snapshot::load(Snapshot::embeddedExample())) {}
  explicit ExampleDevice(Mox::Ptr<Statum::EntityManager> em) : em_(std::move(em)) {}

  template <class T>
  Mox::Ptr<T const> at(const std::string& path) const {
    return em_->find<T>(path);
  }
  std::string vrf(const ListOptions& o, const char* leaf) const {
    return Snapshot::paths::vrfPath(o.vrf, leaf);
  }

  template <class Inputs>
  static Inputs withOptions(Inputs in, const ListOptions& o) {
    in.prefix = decltype(in.prefix)::fromString(o.prefix);
    in.protocol = o.protocol;
    in.detail = o.detail;
    in.longerPrefixes = o.longerPrefixes;
    in.host = o.host;
    in.originalMask = o.originalMask;
    return in;
  }

  Mox::Ptr<RouteSorter> sorter4(const ListOptions& o) const {
    return Mox::makePtr<RouteSorter>(
        withOptions(rovatest::stateInputs<RouteSorter>(*em_, o.vrf), o));
  }

  Mox::Ptr<Route6Sorter> sorter6(const ListOptions& o) const {
    auto in = withOptions(rovatest::stateInputs<Route6Sorter>(*em_, o.vrf), o);
    if (*o.intf) {
      if (auto all = at<Interface::AllIntfStatusDir>(Snapshot::paths::kIntfStatus))
        in.intfStatus = all->intfStatus(Plexa::IntfId(o.intf));
      in.intf = true;
    }
    return Mox::makePtr<Route6Sorter>(std::move(in));
  }

 private:
  Mox::Ptr<Statum::EntityManager> em_;
};

// What printRoutes writes.
template <class Sorter>
std::string printed(Sorter& s, unsigned format) {
  return rovatest::writtenBy(
      [&](int fd) { s.printRoutes(static_cast<std::uint32_t>(fd), format); });
}

}  // namespace Rova::test
