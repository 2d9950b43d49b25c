#pragma once
// Following the kernel: the live source kept current. A follower subscribes to the kernel's
// notifications of links, addresses, IPv4 and IPv6 routes, nexthop objects, neighbours and
// forwarding settings, reads the kernel once, and from then on applies every notification to
// the state tables of an entity manager, found through Snapshot::layout, with the tables' own
// writing methods (a Brine table's recordIs and recordDel; other entities are written whole
// with entityIs). After any sequence of changes the tables list what a fresh live read
// (readLive) lists: both go through the same mapping (LiveBuilder).
//
// The follower knows nothing of who owns the entity manager: an owner that keeps the tables
// elsewhere (shared memory) hands over an entity manager whose tables write there, and
// drives the follower from its own loop:
//
//   Snapshot::LiveFollower follower(em, [&](const Snapshot::LiveFollower::Batch& b) {
//     publish(b);                        // after each applied batch, tables consistent
//   });
//   pollfd p{follower.fd(), POLLIN, 0};
//   for (;;) {
//     poll(&p, 1, -1);
//     follower.process();                // applies everything pending, never blocks
//   }
//
// How a change is applied:
// - A route changes the follower's compact copy of the kernel's routes (LiveRouteMirror.h:
//   24 bytes an IPv4 route, next-hop lists shared), and the prefix's record is made again
//   from the routes the prefix has now in the tables of its VRF, and written in place in
//   em's table only when it differs: a route replaced is one recordIs, a route removed one
//   recordDel, and a FEC no route names any more leaves its table. Nothing else is rebuilt.
//   A neighbour is one recordIs or recordDel of the ARP table.
// - A route that says the hardware holds it (offload, trap, a failed offload), or pushes a
//   stack of labels (a tunnel), is read again whole, as below: the programmed state of the
//   other routes depends on it.
// - A link, an address, a nexthop object or a forwarding setting that changes re-reads the
//   kernel: the kernel removes the IPv4 routes of a link that goes down, or of an address
//   removed, without a notification, and a nexthop object's removal takes its routes along.
// - A lost notification (the socket's buffer overrun, ENOBUFS) is never passed over: the
//   kernel is read again whole, the tables replaced by what it holds, the loss counted in
//   Batch::rereads and logged.
// A whole read builds the tables afresh, writes em's records that differ, and from then on
// the builder writes em's tables (Batch::reread says a batch was one: entities other than the
// route, FEC and ARP tables may have been replaced whole, which an owner publishes again).
//
// Not thread-safe: one thread calls process() and reads the tables between batches.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/statum/EntityManager.h"
#include "snapshot/Live.h"

namespace Snapshot {

class LiveFollower {
 public:
  // What the follower has done, as of the end of a batch.
  struct Batch {
    std::size_t notifications = 0;  // applied in this batch
    std::uint64_t generation = 0;   // batches applied so far, the first read included
    std::uint64_t totalNotifications = 0;
    std::uint64_t rereads = 0;  // whole reads after lost notifications (overruns)
    std::uint64_t resyncs = 0;  // whole reads after a link, address or nexthop change
    bool reread = false;        // this batch read the kernel whole
    // The follower's own copy of the kernel's routes: how many, and the bytes they take.
    std::size_t keptRoutes = 0;
    std::size_t keptBytes = 0;
  };
  using BatchDone = std::function<void(const Batch&)>;
  using Log = std::function<void(const std::string&)>;

  struct Options {
    // The notification socket's receive buffer in bytes; 0 keeps the system's default. A
    // privileged process gets what it asks beyond the system's limit.
    int receiveBuffer = 8 << 20;
    // Where the follower says what it did that a user should know (a re-read after a loss);
    // standard error when empty.
    Log log;
  };

  // Subscribes, reads the kernel and writes what it holds into `em` (the tables a live read
  // fills, replacing what was there); `onBatch` is called after that read and after each
  // applied batch. Throws LiveError when the kernel cannot be read.
  LiveFollower(Statum::EntityManager& em, BatchDone onBatch, Options options);
  LiveFollower(Statum::EntityManager& em, BatchDone onBatch = {});
  ~LiveFollower();
  LiveFollower(const LiveFollower&) = delete;
  LiveFollower& operator=(const LiveFollower&) = delete;

  // Readable when notifications are pending.
  int fd() const;
  // Applies every notification pending now and returns how many; 0 when none were. Never
  // blocks. Throws LiveError when the kernel cannot be read again.
  std::size_t process();
  const Batch& last() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace Snapshot
