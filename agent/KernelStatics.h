#pragma once
// The static routes of a live agent: configured in the agent's state (the routing
// configuration of each VRF, as configuration mode writes it), kept in a file of the agent's
// own, and programmed into the kernel of the agent's network namespace as routes of the
// kernel's `static` protocol.
//
// What the kernel holds of a configured route (docs/static-routes.md, "On a live router"):
// - the VRF: the default VRF's routes go to the main table, another VRF's to the table of the
//   VRF device of that name;
// - the preference: the route's metric (priority), so that of two preferences of one prefix
//   the kernel forwards by the lower, as a router does;
// - vias: a gateway (RTA_GATEWAY, or RTA_VIA across families), an interface (RTA_OIF; an
//   interface alone is a route through the link), a label (an MPLS encapsulation); several
//   vias are one multipath route;
// - Null0: a blackhole route; `Nexthop-Group nhidN`: the kernel's nexthop object N (a live
//   state names each object so); any other group, and a VXLAN via, cannot be held.
//
// Only routes this object put in the kernel are ever removed, and only as it put them (their
// protocol static, their exact next hops): a route of another protocol for the same prefix
// stays. A route the kernel refuses stays configured and is tried again when links or
// addresses change (retry()).
//
// Not thread-safe: the agent's one thread edits, programs and follows.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "platform/mox/Ptr.h"
#include "platform/plexa/IpAddr.h"
#include "platform/state/RoutingConfig.h"
#include "platform/statum/EntityManager.h"

namespace Agent {

// A kernel route as this object programs it: everything the kernel tells it apart by and
// everything it forwards by.
struct KernelRoute {
  struct Hop {
    Plexa::IpGenAddr gateway;  // zero: none
    std::uint32_t ifindex = 0;
    std::int64_t label = -1;  // an MPLS label to push; -1: none
    bool operator==(const Hop&) const = default;
  };
  std::uint8_t family = 0;  // AF_INET, AF_INET6
  std::uint32_t table = 0;
  Plexa::IpGenAddr destination;
  std::uint8_t prefixLen = 0;
  std::uint32_t metric = 0;
  std::uint8_t type = 0;  // RTN_UNICAST, RTN_BLACKHOLE
  std::uint32_t nhid = 0;
  std::vector<Hop> hops;
  bool operator==(const KernelRoute&) const = default;
};

class KernelStatics {
 public:
  using Log = std::function<void(const std::string&)>;

  // `file`: where the static configuration is kept (configuration lines, as `show
  // running-config static-routes` prints them). Throws std::runtime_error when no netlink
  // socket can be opened.
  explicit KernelStatics(std::string file, Log log = {});
  ~KernelStatics();
  KernelStatics(const KernelStatics&) = delete;
  KernelStatics& operator=(const KernelStatics&) = delete;

  const std::string& file() const { return file_; }

  // Makes the routing configuration of every VRF of `em` the static configuration this object
  // keeps: a follower that replaced a configuration entity whole (after a whole read of the
  // kernel) gets the configured routes back in the new one. Call after every applied batch,
  // before publishing.
  void keepIn(Statum::EntityManager& em);

  // Makes the kernel hold what the configuration says: routes added, changed or gone since
  // the last call are added, programmed again or removed. Returns one message per route the
  // kernel refused or cannot hold in this call ("% ..."), empty when all went in.
  std::vector<std::string> program();
  // After links or addresses changed: the routes the kernel does not hold (refused, or taken
  // away with their link) are tried again. Returns the messages of those still refused.
  std::vector<std::string> retry();

  // The configured routes the kernel holds, and those it does not, with why.
  const std::map<std::string, KernelRoute>& programmed() const { return programmed_; }
  const std::map<std::string, std::string>& notProgrammed() const { return notProgrammed_; }

  // The routing configurations that hold the static routes, by VRF and family ("red 6"): the
  // state's entities, and those of VRFs the state no longer has, kept until they come back.
  const std::map<std::string, Mox::Ptr<Routing::ConfigGen>>& configs() const { return config_; }

  // Configuration lines kept in the file that the state could not take (a VRF with no
  // device): written back with the rest, so that they are not lost.
  std::vector<std::string>& heldLines() { return held_; }

  // Writes `text` to the file atomically (a new file renamed over the old one); throws
  // std::runtime_error naming the file and the reason.
  void save(const std::string& text) const;
  // The file's text; empty when there is no file. Throws std::runtime_error when it cannot
  // be read.
  std::string load() const;

 private:
  struct Netlink;
  std::string file_;
  Log log_;
  std::unique_ptr<Netlink> nl_;
  // The routing configuration entities of the state, by VRF and family ("red 6"): the ones
  // configuration lines write.
  std::map<std::string, Mox::Ptr<Routing::ConfigGen>> config_;
  std::map<std::string, KernelRoute> programmed_;
  std::map<std::string, std::string> notProgrammed_;
  // What was last tried of a route the kernel does not hold: tried again only when it changes
  // or on retry().
  std::map<std::string, std::variant<KernelRoute, std::string>> tried_;
  std::vector<std::string> held_;

  // What `route` of `vrf` is in the kernel, or why the kernel cannot hold it.
  std::variant<KernelRoute, std::string> kernelRouteOf(const std::string& vrf,
                                                       const Routing::Route& route);
  std::vector<std::string> apply(bool retrying);
  void dropMissing();
};

}  // namespace Agent
