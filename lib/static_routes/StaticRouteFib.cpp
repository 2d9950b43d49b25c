#include "lib/static_routes/StaticRouteFib.h"

#include <algorithm>
#include <optional>
#include <set>
#include <vector>

#include "platform/mox/Trace.h"

namespace Rova {

namespace {

Mox::TraceHandle fibTrace("CliSupport");

// The route types a static route takes in the forwarding table: whatever holds one of these
// came from static configuration, and is this class's to replace.
template <class Fam>
bool isStaticType(typename Fam::RouteType t) {
  using T = typename Fam::RouteType;
  return t == T::staticConfig || t == T::dropRoute || t == T::nexthopGroupStaticRoute;
}

// A next hop resolves only through a route that forwards somewhere: not through one of the
// router's own addresses, a drop route, a martian, or a nexthop group.
template <class Fam>
bool forwardsThrough(typename Fam::RouteType t) {
  using T = typename Fam::RouteType;
  if (t == T::invalid || t == T::dropRoute || t == T::martian || t == T::nexthopGroupStaticRoute ||
      t == T::receive || t == T::receiveLoopback)
    return false;
  if constexpr (!Fam::kIsV6) {
    if (t == T::broadcast || t == T::directedBcast) return false;
  }
  return true;
}

template <class Route>
bool sameRoute(const Route& a, const Route& b) {
  return a.prefix == b.prefix && a.routeType == b.routeType && a.fecId == b.fecId &&
         a.metric == b.metric && a.preference == b.preference &&
         a.hardwareProgrammed == b.hardwareProgrammed;
}

template <class Via>
bool sameVias(const std::vector<Via>& want, const Via* begin, const Via* end) {
  if (std::size_t(end - begin) != want.size()) return false;
  return std::all_of(want.begin(), want.end(),
                     [&](const Via& v) { return std::find(begin, end, v) != end; });
}

}  // namespace

template <class Fam>
struct StaticRouteFib::Side {
  using Prefix = typename Fam::Prefix;
  Mox::Ptr<typename Fam::RouteStatus> routes;
  Mox::Ptr<typename Fam::ForwardingStatus> fecs;
  Mox::Ptr<Routing::ConfigGen const> config;
  // The route of another protocol that a static displaced, by prefix: it comes back when the
  // static goes.
  std::map<Prefix, typename Fam::Route> displaced;
  // The prefixes whose forwarding entry is a static this object wrote, and the FECs it made.
  std::set<Prefix> installed;
  std::map<Prefix, Brine::Fib::FecId> ownFec;
  std::uint64_t nextFecIndex = 0;

  static constexpr Brine::Fib::AdjType kAdj =
      Fam::kIsV6 ? Brine::Fib::AdjType::ip6Adj : Brine::Fib::AdjType::ipAdj;

  bool holdsFec(Brine::Fib::FecId id) const { return id.value() != 0 && id.adjType() == kAdj; }

  Brine::Fib::FecId newFecId() {
    if (nextFecIndex == 0) {
      nextFecIndex = 1;
      for (const auto& fec : *fecs) {
        if (fec.fecId.adjType() == kAdj)
          nextFecIndex = std::max<std::uint64_t>(nextFecIndex, fec.fecId.index() + 1);
      }
    }
    while (fecs->contains(Brine::Fib::FecId(kAdj, nextFecIndex)))
      ++nextFecIndex;
    return Brine::Fib::FecId(kAdj, nextFecIndex++);
  }

  // A static the tables held when this object was made, for a prefix the configuration had
  // then: written by an earlier process from the same configuration, so it is this object's
  // to replace or remove. Its FEC becomes this object's too, but only when no other route
  // uses it (a state written by hand may share one); that is counted once, when first needed.
  void adopt() {
    for (const auto& [key, route] : config->route()) {
      if (!route || !ofFamily(key.prefix())) continue;
      const Prefix p = prefixOf(key.prefix());
      if (!routes->contains(p)) continue;
      const auto cur = routes->lookup(p);
      if (!isStaticType<Fam>(cur.routeType)) continue;
      installed.insert(p);
      if (holdsFec(cur.fecId)) adoptedFec[p] = cur.fecId;
    }
  }

  // The FEC this object may rewrite or remove for `p`, if any.
  const Brine::Fib::FecId* fecOwned(const Prefix& p) {
    if (auto it = ownFec.find(p); it != ownFec.end()) return &it->second;
    auto adopted = adoptedFec.find(p);
    if (adopted == adoptedFec.end()) return nullptr;
    if (!adoptedCounted) {
      std::map<Brine::Fib::FecId, std::uint32_t> users;
      for (const auto& [q, id] : adoptedFec)
        users[id] = 0;
      for (const auto& route : *routes) {
        if (auto u = users.find(route.fecId); u != users.end()) ++u->second;
      }
      for (auto it = adoptedFec.begin(); it != adoptedFec.end();)
        it = users[it->second] == 1 ? std::next(it) : adoptedFec.erase(it);
      adoptedCounted = true;
      adopted = adoptedFec.find(p);
      if (adopted == adoptedFec.end()) return nullptr;
    }
    const Brine::Fib::FecId id = adopted->second;
    adoptedFec.erase(adopted);
    return &(ownFec[p] = id);
  }

  void releaseFec(const Prefix& p) {
    if (!fecOwned(p)) return;
    auto it = ownFec.find(p);
    fecs->recordDel(it->second);
    ownFec.erase(it);
  }

  static bool ofFamily(const Plexa::IpGenPrefix& p) {
    return p.af() == (Fam::kIsV6 ? Plexa::AddressFamily::ipv6 : Plexa::AddressFamily::ipv4);
  }
  static Prefix prefixOf(const Plexa::IpGenPrefix& p) {
    if constexpr (Fam::kIsV6) {
      return p.v6Prefix();
    } else {
      return p.v4Prefix();
    }
  }

  // The FECs of adopted statics, until they are known to be theirs alone.
  std::map<Prefix, Brine::Fib::FecId> adoptedFec;
  bool adoptedCounted = false;
};

// One update of one family: every prefix that has configured routes, or had a static this
// object wrote, is settled once, a prefix that a next hop resolves through before the route
// that needs it.
template <class Fam>
class StaticRouteFib::Resolver {
 public:
  using Prefix = typename Fam::Prefix;
  using Route = typename Fam::Route;
  using Via = typename Fam::Via;
  using RouteType = typename Fam::RouteType;

  Resolver(const StaticRouteFib& owner, Side<Fam>& side) : owner_(owner), side_(side) {
    for (const auto& [key, route] : side.config->route()) {
      if (!route || !Side<Fam>::ofFamily(key.prefix())) continue;
      const Prefix p = Side<Fam>::prefixOf(key.prefix());
      candidates_[p].push_back(route.get());
    }
    for (auto& [p, routes] : candidates_) {
      std::sort(routes.begin(), routes.end(), [](const Routing::Route* a, const Routing::Route* b) {
        return a->preference() < b->preference();
      });
    }
  }

  std::uint32_t run() {
    std::vector<Prefix> managed;
    for (const auto& [p, routes] : candidates_)
      managed.push_back(p);
    for (const Prefix& p : side_.installed) {
      if (!candidates_.count(p)) managed.push_back(p);
    }
    for (const Prefix& p : managed)
      settle(p);
    return changed_;
  }

 private:
  enum class State { pending, inProgress, done };
  struct Outcome {
    State state = State::pending;
    bool ours = false;  // the forwarding entry is the static's
    int depth = 0;      // how many statics its next hops resolve through, one after another
  };
  // The static route that wins a prefix, resolved.
  struct Winner {
    RouteType type{};
    Routing::RoutePreference preference = 0;
    std::vector<Via> vias;
    Brine::Fib::FecId fecId;  // a group route's group
    int depth = 0;
    bool keep = false;  // leave the forwarding entry the state has
  };

  bool managed(const Prefix& p) const { return candidates_.count(p) || side_.installed.count(p); }

  // Settles the forwarding entry of `p`; false when `p` is being settled already (a next hop
  // that resolves back through its own route).
  bool settle(const Prefix& p) {
    Outcome& o = outcome_[p];
    if (o.state == State::done) return true;
    if (o.state == State::inProgress) return false;
    o.state = State::inProgress;

    // What another protocol has at this prefix: the table's entry when it is not a static's,
    // else the one a static displaced earlier (gone if the prefix has nothing now).
    if (side_.routes->contains(p)) {
      const Route cur = side_.routes->lookup(p);
      if (!isStaticType<Fam>(cur.routeType)) {
        side_.displaced[p] = cur;
        side_.installed.erase(p);
      }
    } else {
      side_.displaced.erase(p);
    }
    const auto other = side_.displaced.find(p);

    std::optional<Winner> best;
    if (auto it = candidates_.find(p); it != candidates_.end()) {
      for (const Routing::Route* r : it->second) {
        if ((best = resolve(p, *r))) break;
      }
    }
    // The lower preference wins; on a tie the other protocol's route keeps the prefix.
    Outcome& done = outcome_[p];
    if (best && (other == side_.displaced.end() || best->preference < other->second.preference)) {
      install(p, *best);
      done.ours = true;
      done.depth = best->depth;
    } else if (other != side_.displaced.end()) {
      restore(p, other->second);
    } else {
      remove(p);
    }
    done.state = State::done;
    return true;
  }

  std::optional<Winner> resolve(const Prefix& p, const Routing::Route& r) {
    Winner w;
    w.preference = r.preference();
    switch (r.routeType()) {
      case Routing::RouteType::drop:
        w.type = RouteType::dropRoute;
        return w;
      case Routing::RouteType::nexthopGroup: {
        const auto* ids = owner_.nhgEntryStatus_.get();
        const NexthopGroup::NexthopGroupEntryKey key(r.nexthopGroupName().view());
        if (!ids || !ids->contains(key)) return std::nullopt;
        w.type = RouteType::nexthopGroupStaticRoute;
        w.fecId = Brine::Fib::FecId(Brine::Fib::AdjType::nexthopGroupAdj, ids->lookup(key).nhgId);
        return w;
      }
      case Routing::RouteType::forward:
        break;
    }
    w.type = RouteType::staticConfig;
    for (const Routing::Via& cv : r.via()) {
      // A VXLAN via is not resolved here: the entry the state has for it stays.
      if (cv.vtepAddr()) {
        if (!side_.routes->contains(p) || !isStaticType<Fam>(side_.routes->lookup(p).routeType))
          return std::nullopt;
        w.keep = true;
        return w;
      }
      resolveVia(p, cv, w);
    }
    if (w.vias.empty()) return std::nullopt;
    return w;
  }

  void addVia(Winner& w, const Via& v) {
    if (w.vias.size() < Brine::BasicFec<Via>::kMaxVias &&
        std::find(w.vias.begin(), w.vias.end(), v) == w.vias.end())
      w.vias.push_back(v);
  }

  void resolveVia(const Prefix& p, const Routing::Via& cv, Winner& w) {
    if (cv.hop() && !Fam::ofFamily(cv.hop())) return;
    const std::uint32_t label = cv.mplsLabel().value();
    // Through a named interface: it must be up; the gateway, if any, is taken as reached.
    if (cv.intfId().isValid()) {
      if (!owner_.intfUsable(cv.intfId(), true)) return;
      Via v{};
      if (cv.hop()) v.hop = Fam::addrOf(cv.hop());
      v.intfId = cv.intfId();
      v.labelValue = label;
      addVia(w, v);
      return;
    }
    // A gateway alone: the longest match for it, not the route itself nor the default route.
    const typename Fam::Addr hop = Fam::addrOf(cv.hop());
    for (int len = Fam::kHostLen; len >= 1; --len) {
      const Prefix q(hop, len);
      if (q == p) continue;
      // A route that is itself being settled (a loop) does not carry the next hop.
      if (managed(q) && !settle(q)) continue;
      if (!side_.routes->contains(q)) continue;
      const Route r = side_.routes->lookup(q);
      if (!forwardsThrough<Fam>(r.routeType) || !side_.holdsFec(r.fecId)) return;
      const Outcome& through = outcome_[q];
      const int depth = managed(q) && through.ours ? through.depth + 1 : 0;
      if (depth > kMaxResolveDepth) return;
      const auto fec = side_.fecs->lookup(r.fecId);
      const std::size_t end =
          fec.backupViaIndexValue != 0 ? fec.backupViaIndexValue : fec.via.size();
      bool any = false;
      for (std::size_t i = 0; i < end && i < fec.via.size(); ++i) {
        Via v = fec.via[i];
        if (!owner_.intfUsable(v.intfId, false)) continue;
        if (v.hop.isZero()) v.hop = hop;
        if (v.labelValue == Plexa::MplsLabel::kNoLabel) v.labelValue = label;
        addVia(w, v);
        any = true;
      }
      if (any) w.depth = std::max(w.depth, depth);
      return;
    }
  }

  bool holds(const Prefix& p, const Winner& w) const {
    if (!side_.routes->contains(p)) return false;
    const Route cur = side_.routes->lookup(p);
    if (cur.routeType != w.type || cur.preference != w.preference) return false;
    if (w.type == RouteType::dropRoute) return true;
    if (w.type == RouteType::nexthopGroupStaticRoute) return cur.fecId == w.fecId;
    if (!side_.holdsFec(cur.fecId) || !side_.fecs->contains(cur.fecId)) return false;
    const auto fec = side_.fecs->lookup(cur.fecId);
    return fec.backupViaIndexValue == 0 && sameVias(w.vias, fec.via.begin(), fec.via.end());
  }

  void install(const Prefix& p, const Winner& w) {
    if (w.keep || holds(p, w)) {
      side_.installed.insert(p);
      return;
    }
    MOX_TRACE(fibTrace, 5, "Installing static route ", p.stringValue());
    Route route{};
    route.prefix = p;
    route.routeType = w.type;
    route.preference = w.preference;
    route.hardwareProgrammed = true;
    if (w.type == RouteType::nexthopGroupStaticRoute) {
      side_.releaseFec(p);
      route.fecId = w.fecId;
    } else {
      const Brine::Fib::FecId* own = side_.fecOwned(p);
      const Brine::Fib::FecId id = own ? *own : side_.newFecId();
      typename Fam::Fec fec{};
      fec.fecId = id;
      if (w.type == RouteType::dropRoute) {
        Via drop{};
        drop.intfId = Plexa::IntfId("Null0");
        fec.via.push(drop);
      }
      for (const Via& v : w.vias)
        fec.via.push(v);
      side_.fecs->recordIs(fec);
      side_.ownFec[p] = id;
      route.fecId = id;
    }
    side_.routes->recordIs(route);
    side_.installed.insert(p);
    ++changed_;
  }

  void restore(const Prefix& p, const Route& other) {
    side_.releaseFec(p);
    side_.installed.erase(p);
    if (side_.routes->contains(p) && sameRoute(side_.routes->lookup(p), other)) return;
    MOX_TRACE(fibTrace, 5, "Restoring the route a static displaced at ", p.stringValue());
    side_.routes->recordIs(other);
    ++changed_;
  }

  void remove(const Prefix& p) {
    side_.releaseFec(p);
    side_.installed.erase(p);
    if (!side_.routes->contains(p) || !isStaticType<Fam>(side_.routes->lookup(p).routeType)) return;
    MOX_TRACE(fibTrace, 5, "Removing static route ", p.stringValue());
    side_.routes->recordDel(p);
    ++changed_;
  }

  const StaticRouteFib& owner_;
  Side<Fam>& side_;
  std::map<Prefix, std::vector<const Routing::Route*>> candidates_;
  std::map<Prefix, Outcome> outcome_;
  std::uint32_t changed_ = 0;
};

StaticRouteFib::StaticRouteFib(Mox::Ptr<Brine::Fib::RouteStatus> routes,
                               Mox::Ptr<Brine::Fib::ForwardingStatus> fecs,
                               Mox::Ptr<Brine::Fib6::RouteStatus> routes6,
                               Mox::Ptr<Brine::Fib6::ForwardingStatus> fecs6,
                               Mox::Ptr<Routing::ConfigGen const> config,
                               Mox::Ptr<Routing::ConfigGen const> config6,
                               Mox::Ptr<Interface::AllIntfStatusDir const> intfStatus,
                               Mox::Ptr<Interface::AllIntfConfigDir const> intfConfig,
                               Mox::Ptr<NexthopGroup::EntryStatus const> nhgEntryStatus)
    : intfStatus_(std::move(intfStatus)),
      intfConfig_(std::move(intfConfig)),
      nhgEntryStatus_(std::move(nhgEntryStatus)) {
  if (routes && fecs && config) {
    v4_ = std::make_unique<Side<Routing::V4>>();
    v4_->routes = std::move(routes);
    v4_->fecs = std::move(fecs);
    v4_->config = std::move(config);
    v4_->adopt();
  }
  if (routes6 && fecs6 && config6) {
    v6_ = std::make_unique<Side<Routing::V6>>();
    v6_->routes = std::move(routes6);
    v6_->fecs = std::move(fecs6);
    v6_->config = std::move(config6);
    v6_->adopt();
  }
}

StaticRouteFib::~StaticRouteFib() = default;

std::uint32_t StaticRouteFib::update() {
  std::uint32_t changed = 0;
  if (v4_) changed += Resolver<Routing::V4>(*this, *v4_).run();
  if (v6_) changed += Resolver<Routing::V6>(*this, *v6_).run();
  return changed;
}

// An interface carries traffic when it is up and not shut down. One the state does not know
// (the CPU, a tunnel) carries it for a via the table already holds, never for a configured one.
bool StaticRouteFib::intfUsable(const Plexa::IntfId& intf, bool mustBeKnown) const {
  if (!intf.isValid()) return !mustBeKnown;
  if (intfConfig_) {
    if (const auto* config = intfConfig_->intfConfig().find(intf); config && *config) {
      if (!(*config)->enabled()) return false;
    }
  }
  const auto* status = intfStatus_ ? intfStatus_->intfStatus().find(intf) : nullptr;
  if (!status || !*status) return !mustBeKnown;
  return (*status)->operUp();
}

}  // namespace Rova
