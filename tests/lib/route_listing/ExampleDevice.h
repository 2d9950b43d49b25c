#pragma once
// Sorters over the example device, and their printed output, for printing tests.

#include <unistd.h>
#include <cstdio>
#include <string>

#include "lib/route_listing/RouteSorter.h"
#include "snapshot/Snapshot.h"
#include "snapshot/StatePaths.h"

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

  Mox::Ptr<RouteSorter> sorter4(const ListOptions& o) const {
    namespace p = Snapshot::paths;
    return Mox::makePtr<RouteSorter>(
        at<Routing::ConfigGen>(vrf(o, p::kRoutingConfig)),
        at<Brine::Fib::RouteStatus>(vrf(o, p::kFibRoute)),
        at<Brine::Fib::ForwardingStatus>(vrf(o, p::kFibFec)),
        at<Brine::Fib6::ForwardingStatus>(vrf(o, p::kFib6Fec)),
        at<Tunnel::TunnelFib::MplsTunnelFib>(p::kTunnelFib), at<Arp::Table::Status>(p::kArpStatus),
        at<Vrf::VrfIdMap::Status>(p::kVrfIdMap), at<Interface::AllIntfConfigDir>(p::kIntfConfig),
        at<Ip::Status>(p::kIpStatus), at<Routing::Hardware::VrfStatus>(vrf(o, p::kHwVrfStatus)),
        at<Routing::Hardware::Status>(p::kRoutingHw),
        at<NexthopGroup::EntryStatus>(p::kNhgEntryStatus),
        at<Brine::KernelUnprogrammedRoute::UnprogrammedRoute>(vrf(o, p::kKernelUnprogrammed)),
        at<Tunnel::TunnelTable::EvpnVxlanTunnelTable>(p::kEvpnVxlan),
        at<Mox::Dir>(p::kTunnelTables), Plexa::Prefix::fromString(o.prefix), nullptr, o.protocol,
        o.detail, o.longerPrefixes, L3::VrfName(o.vrf), o.host, 1, 0.0, o.originalMask,
        at<SrTePolicy::PolicyStatus>(p::kSrTePolicy));
  }

  Mox::Ptr<Route6Sorter> sorter6(const ListOptions& o) const {
    namespace p = Snapshot::paths;
    Mox::Ptr<Interface::IntfStatus const> intfStatus;
    if (*o.intf) {
      if (auto all = at<Interface::AllIntfStatusDir>(p::kIntfStatus)) {
        intfStatus = all->intfStatus(Plexa::IntfId(o.intf));
      }
    }
    return Mox::makePtr<Route6Sorter>(
        at<Routing::ConfigGen>(vrf(o, p::kRouting6Config)),
        at<Brine::Fib6::RouteStatus>(vrf(o, p::kFib6Route)),
        at<Brine::Fib6::ForwardingStatus>(vrf(o, p::kFib6Fec)),
        at<Tunnel::TunnelFib::MplsTunnelFib>(p::kTunnelFib), at<Arp::Table::Status>(p::kArpStatus),
        at<Vrf::VrfIdMap::Status>(p::kVrfIdMap), at<Interface::AllIntfConfigDir>(p::kIntfConfig),
        at<Ip6::Status>(p::kIp6Status), at<Routing::Hardware::VrfStatus>(vrf(o, p::kHwVrfStatus)),
        at<Routing6::Hardware::Status>(p::kRouting6Hw),
        at<NexthopGroup::EntryStatus>(p::kNhgEntryStatus),
        at<Brine::KernelUnprogrammedRoute::UnprogrammedRoute>(vrf(o, p::kKernelUnprogrammed6)),
        at<Tunnel::TunnelTable::EvpnVxlanTunnelTable>(p::kEvpnVxlan),
        at<Mox::Dir>(p::kTunnelTables), Plexa::Ip6Prefix::fromString(o.prefix), intfStatus,
        o.protocol, o.detail, o.longerPrefixes, L3::VrfName(o.vrf), o.host, 1, 0.0, o.originalMask,
        *o.intf != '\0', at<SrTePolicy::PolicyStatus>(p::kSrTePolicy));
  }

 private:
  Mox::Ptr<Statum::EntityManager> em_;
};

// What printRoutes writes, read back from a temporary file.
template <class Sorter>
std::string printed(Sorter& s, unsigned format) {
  std::FILE* f = std::tmpfile();
  s.printRoutes(static_cast<std::uint32_t>(fileno(f)), format);
  std::string out;
  std::rewind(f);
  char buf[4096];
  for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;)
    out.append(buf, n);
  std::fclose(f);
  return out;
}

}  // namespace Rova::test
