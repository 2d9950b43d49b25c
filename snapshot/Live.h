#pragma once
// The live source: the routing state of the Linux kernel this process runs on (in its network
// namespace), read through netlink into the tables a state snapshot fills. docs/live.md
// describes the mapping.
//
// A read is all-or-nothing like a snapshot load: the kernel's answers are read whole or not
// at all, and a dump that a change interrupted is read again, a bounded number of times.

#include <functional>
#include <string>
#include <string_view>

#include "platform/mox/Exception.h"
#include "platform/mox/Ptr.h"
#include "platform/plexa/IpAddr.h"
#include "platform/statum/EntityManager.h"
#include "snapshot/LiveBuilder.h"

namespace Snapshot {

// The kernel could not be read: no netlink here (not Linux), no rights, or a state that kept
// changing. what() says which.
class LiveError : public Mox::Exception {
 public:
  using Mox::Exception::Exception;
};

// How many times a read is tried before a state that keeps changing is reported.
inline constexpr int kLiveReadAttempts = 5;

// What a read takes from the kernel. A command that lists the routes of one family needs
// neither the other family's routes nor the time the kernel takes to dump them (a full
// table's IPv6 routes are a third of its read): the front end narrows the read to what the
// command lists. Links, addresses, nexthop objects and neighbours are always read: they are
// small, and every listing names interfaces. A table left out is there, empty.
struct LiveScope {
  bool ipv4Routes = true;
  bool ipv6Routes = true;

  bool routesOf(Plexa::AddressFamily family) const {
    return family == Plexa::AddressFamily::ipv6 ? ipv6Routes : ipv4Routes;
  }
  friend bool operator==(const LiveScope&, const LiveScope&) = default;
};

// Reads the kernel's state, the tables `scope` names. Throws LiveError.
Mox::Ptr<Statum::EntityManager> readLive(const LiveScope& scope = {});

// One read of all the kernel's dumps into a builder. Returns the name of the dump a change
// interrupted ("the routes of table 254"), or "" when every dump was read whole.
using LiveRead = std::function<std::string(LiveBuilder&)>;

// Runs `read` with a fresh builder until one read is whole, at most `attempts` times, and
// returns what that read built; the last interruption is reported as a LiveError.
Mox::Ptr<Statum::EntityManager> readConsistently(const LiveRead& read, int attempts);

namespace detail {
// What a read builds when the kernel answers with `messages`: netlink data messages one after
// another, as a receive delivers them. Each dump takes the messages of its type (and a route
// dump those of its table and family), in the order a read takes the dumps. For the fuzz
// target, which has no kernel to ask; it decodes exactly as a read does.
Mox::Ptr<Statum::EntityManager> stateOfMessages(std::string_view messages);
}  // namespace detail

}  // namespace Snapshot
