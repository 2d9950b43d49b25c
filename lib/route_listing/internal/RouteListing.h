#pragma once
// The listing model: what the route page shows, finished from a sorter's selection. The page
// is query, then model, then render: the sorter selects, this model completes what the page
// needs (the count it displays, the default route and its state, the banners' facts, which
// routes print and how), and the renderer (RoutePage.cpp) only reads it.
//
//   RouteListing<RouteSorter> model(sorter);   // takes the default route out of sortedRoute
//   if (model.hardwareBanner()) ...
//   model.forEachRow(true, [&](const auto& row) { ... row.line, *row.fec ... });
//
// Building the model is where the listing's own effects on the sorter happen, in the order the
// page has always had them: the IPv6 page stores the count it displays back into printCount,
// and the default route leaves sortedRoute (it has a place of its own on the page). A row's
// FEC columns (next hops, interfaces, labels, resolved tunnels) and the nexthop-group names are
// prepared the first time a row needs them, once per FEC and once per listing: a million routes
// share a few thousand FECs, and a listing cut short prepares only what it showed.

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "lib/route_listing/RouteSorter.h"
#include "lib/route_listing/internal/RoutePrinter.h"
#include "lib/route_listing/internal/SorterAlgorithms.h"

namespace Rova {

enum class DefaultRouteState { notSet, reachable, notReachable };
// "notSet", "reachable", "notReachable".
const char* defaultRouteStateName(DefaultRouteState state);

// One route as the page lists it. A row refers to storage of its own (group name, policy,
// interface), so it is filled in place and not copied.
template <class Family>
struct ListingRow {
  ListingRow() = default;
  ListingRow(const ListingRow&) = delete;
  ListingRow& operator=(const ListingRow&) = delete;

  typename Family::RouteType type{};
  Brine::Fib::FecId fecId;
  const CachedFec* fec = nullptr;  // null: the FEC is not in the cache, and the page says so
  bool v6Vias = false;             // the vias are IPv6 next hops (an IPv4 route may have them)
  RouteLine line;

  char prefixText[Plexa::Ip6Prefix::kMaxTextLen + 1];
  Mox::String8 groupName;
  Mox::String8 connectedIntf;
  SrTePolicy::PolicyKey policy;
};

template <class Sorter>
class RouteListing {
 public:
  using Family = typename Sorter::Family;
  using Route = typename Family::Route;
  using Row = ListingRow<Family>;

  explicit RouteListing(Sorter& s);
  RouteListing(const RouteListing&) = delete;
  RouteListing& operator=(const RouteListing&) = delete;

  // The sorter's inputs and selection, to read.
  const Sorter& sorter() const { return s_; }

  // The heading: the IPv6 count line ("Displaying N of M"), the banners and the flags.
  std::uint32_t displayedCount() const { return displayed_; }
  std::uint32_t tableSize() const;
  bool hardwareBanner() const { return hardwareBanner_; }
  bool kernelBanner() const { return kernelBanner_; }
  bool routingDisabled() const;

  DefaultRouteState defaultRouteState() const { return defaultState_; }
  // The default route as selection took it (null when there is none); rowOf says whether the
  // page shows it.
  const Route* defaultRoute() const { return defaultRoute_ ? &*defaultRoute_ : nullptr; }

  // Fills `row` for `route`; false when the page leaves the route out (not printable, another
  // protocol, not through the asked interface).
  bool rowOf(const Route& route, Row& row) const;

  // Calls fn(row) for every route listed under "routes", in order, each as the route table
  // holds it now (a route gone since selection lists from an empty record). The default route
  // comes first when `withDefault` is set.
  template <class Fn>
  void forEachRow(bool withDefault, Fn&& fn) const;

 private:
  const Mox::String8& groupName(std::uint64_t id) const;

  // What every row asks of its FEC, kept by FEC id: the same few facts for a million routes
  // over a few thousand FECs, read from one small table rather than from FEC objects spread
  // over the heap (see sorter::PrintableFecs). The FEC cache does not change while a listing runs.
  struct FecRow {
    CachedFec* fec = nullptr;  // null: not in the cache
    bool printable = true;
    bool prepared = false;  // the columns are filled, and the facts below with them
    bool evpn = false;      // a via into an EVPN tunnel: the route is never connected
    std::int32_t entries = 0;
    const Mox::String8* hoplessIntf = nullptr;  // a first via's interface, with no next hop
    ViaBlockRef viaBlock;                       // where the page keeps its via block
  };
  FecRow& fecRow(Brine::Fib::FecId fecId) const;
  bool rowOf(const Route& route, Row& row, FecRow& facts) const;
  // forEachRow over a selection that is the writer's order (see there).
  template <class Row_, class Fn>
  void forEachInOrder(Row_& row, Fn& fn) const;

  mutable Mox::FlatHashMap<Brine::Fib::FecId, FecRow> fecRows_;

  // Whether the kernel programmed a route, asked of every row. The kernel's table of the
  // routes it refused is small, but finding a prefix in it hashes a generic prefix each time;
  // a bitmap of the table's prefixes of this family, made with the model, answers for nearly
  // every route, and only a route whose bit is set is looked up. A table written since is
  // asked directly.
  class KernelMarks {
   public:
    explicit KernelMarks(const Sorter& s);
    bool programmed(const typename Family::Prefix& prefix) const;

   private:
    static std::size_t bitOf(const typename Family::Prefix& prefix, std::size_t bits);

    const Sorter& s_;
    const void* table_ = nullptr;
    std::uint64_t generation_ = 0;
    std::vector<std::uint64_t> bits_;  // empty: every route is looked up
  };

  Sorter& s_;
  std::uint32_t displayed_ = 0;
  bool hardwareBanner_ = false;
  bool kernelBanner_ = false;
  DefaultRouteState defaultState_ = DefaultRouteState::notSet;
  std::optional<Route> defaultRoute_;
  KernelMarks kernelMarks_;
};

template <class Sorter>
template <class Fn>
void RouteListing<Sorter>::forEachRow(bool withDefault, Fn&& fn) const {
  // While nothing was written to the route table since selection, the copy selection took is
  // what the table holds, and reading it again would only cost a random access per route.
  const auto& table = s_.routingStatus();
  const bool unchanged = !table || table->generation() == s_.stats().routeTableGeneration;
  Row row;
  const auto list = [&](const Route& selected) {
    if (unchanged) {
      if (rowOf(selected, row)) fn(row);
    } else if (rowOf(sorter::readRecord(*table, selected.prefix), row)) {
      fn(row);
    }
  };
  if (withDefault && defaultRoute_) list(*defaultRoute_);
  if constexpr (Mox::HasOrderKey<typename Family::Prefix>) {
    if (s_.sortedRoute().byReference() && s_.stats().filteredAsRead && table) {
      forEachInOrder(row, fn);
      return;
    }
  }
  if (s_.sortedRoute().byReference()) {
    // Each route is read where it is, now: a long walk yields as selection's did.
    sorter::YieldCounter yield;
    s_.sortedRoute().forEach([&](const auto& entry) {
      if (rowOf(entry.second, row)) fn(row);
      yield.step();
    });
    return;
  }
  for (const auto& entry : s_.sortedRoute())
    list(entry.second);
}

template <class Sorter>
template <class Row_, class Fn>
void RouteListing<Sorter>::forEachInOrder(Row_& row, Fn& fn) const {
  const auto& table = s_.routingStatus();
  // The words are the writer's order, and a route is taken or left as it is read: read and
  // filtered here as the map's own reader would (sorter::keepInOrder), so that the filter
  // and the row ask one table for the FEC's facts, not one each. Each long run yields, the
  // routes printed and the routes left out alike.
  constexpr std::uint64_t kPlaceMask = (std::uint64_t(1) << sorter::kPlaceBits) - 1;
  sorter::YieldCounter printed, leftOut;
  std::pair<typename Family::Prefix, Route> entry;
  s_.sortedRoute().forEachReferencePiece([&](std::span<const std::uint64_t> words) {
    for (std::size_t j = 0; j < words.size(); ++j) {
      if (j + 8 < words.size()) table->prefetchAt(words[j + 8] & kPlaceMask);
      if (sorter::readReferenced(*table, words[j], entry)) {
        FecRow* facts = fecRows_.findMutable(entry.second.fecId);
        if (!facts) {
          // The filter caches the FEC the first time it meets it, as selection does.
          sorter::copyAdjacency(s_, entry.second.fecId);
          facts = &fecRow(entry.second.fecId);
        }
        if (sorter::passesFilter(s_, entry.second, facts->printable)) {
          if (rowOf(entry.second, row, *facts)) fn(row);
          printed.step();
          continue;
        }
      }
      leftOut.step();
    }
  });
}

}  // namespace Rova
