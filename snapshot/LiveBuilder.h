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
#include <functional>
#include <memory>
#include <span>
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
  // Routes in the order the kernel gave them: as route() for each, with each table's index
  // slots fetched some routes ahead, so that a large table's waits on memory overlap.
  void routes(std::span<const kernel::Route> routes);
  void neighbor(const kernel::Neighbor& neighbor);

  // A hint that the kernel holds about `routes` routes of the family in all its tables: the
  // default VRF's table makes room for them at once rather than growing as they come.
  void routesExpected(Plexa::AddressFamily family, std::size_t routes);

  // The kernel tables whose routes are read: the default VRF's local, main and default
  // tables, then each VRF's own. Valid once every link has been given.
  std::vector<std::uint32_t> routeTables();

  Mox::Ptr<Statum::EntityManager> finish();

  // ---- following the kernel ----
  //
  // After finish(), a follower makes `em` hold the records finish() handed out (in tables of
  // its own, such as a store's) and hands it here: the builder's route, FEC and ARP tables
  // become em's, the builder's own copies go, and each change below writes em's records in
  // place. What the builder knows of links, VRFs and nexthop objects stays as it was read; a
  // change to those is a new read. FECs no route uses any more leave their table.
  void followIs(Statum::EntityManager& em);
  // Whether a route change can be applied alone: false when something said it is offloaded
  // (whether the hardware holds the other routes then depends on every route).
  bool followable() const;
  // The routes of one prefix changed in kernel table `table`: the prefix's record is made
  // again in every VRF that reads the table, from the routes `routesOf(t, add)` hands to
  // `add` for each kernel table t of the VRF, and written only when it differs.
  using RouteSink = std::function<void(const kernel::Route&)>;
  using RoutesOf = std::function<void(std::uint32_t table, const RouteSink& add)>;
  void prefixChanged(const Plexa::IpGenAddr& destination, std::uint8_t prefixLen,
                     std::uint32_t table, const RoutesOf& routesOf);
  // A neighbour changed or went.
  void neighborChanged(const kernel::Neighbor& neighbor, bool removed);
  // The end of a batch of changes: FECs made for routes that lost to others go.
  void changesDone();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace Snapshot
