#pragma once
// Maps the kernel's routing state onto the tables a state snapshot fills, record by record:
// links become interfaces and VRFs, addresses the IP configuration, routes the VRFs' route and
// FEC tables, nexthop objects nexthop groups, neighbours the ARP table. docs/live.md gives the
// whole mapping and what the kernel cannot say.
//
// The reader feeds it in this order: links, then everything else; routes may come table by
// table in any order (the precedence of the default VRF's tables does not depend on it).
// finish() hands out an entity manager with the same entities a loaded snapshot has.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/mox/Ptr.h"
#include "platform/statum/EntityManager.h"
#include "snapshot/KernelRecords.h"

namespace Snapshot {

class LiveBuilder {
 public:
  LiveBuilder();
  ~LiveBuilder();
  LiveBuilder(const LiveBuilder&) = delete;
  LiveBuilder& operator=(const LiveBuilder&) = delete;

  void hostnameIs(const std::string& name);
  // Whether the kernel forwards packets of the family (its "all" forwarding setting).
  void forwardingIs(Plexa::AddressFamily family, bool on);

  void link(const kernel::Link& link);
  // Addresses of an interface, IPv4 ones in the kernel's order: its first is the primary.
  void address(const kernel::Address& address);
  void nexthopObject(const kernel::NexthopObject& object);
  void route(const kernel::Route& route);
  void neighbor(const kernel::Neighbor& neighbor);

  // The kernel tables whose routes are read: the default VRF's local, main and default
  // tables, then each VRF's own. Valid once every link has been given.
  std::vector<std::uint32_t> routeTables();

  Mox::Ptr<Statum::EntityManager> finish();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace Snapshot
