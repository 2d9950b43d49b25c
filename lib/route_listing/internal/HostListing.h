#pragma once
// The host listing model: what the host page shows, finished from a sorter's host selection.
// As on the route page (RouteListing.h), the sorter's selection is the query, this model
// decides how each host route is shown (to the CPU, without vias, as a resolved neighbour, or
// through its vias), and the renderer (HostPage.cpp) only reads it.
//
//   const HostListing<RouteSorter> model(sorter);
//   if (model.hardwareBanner()) ...
//   model.forEachRow([&](const auto& row) { ... row.form, row.vias ... });

#include <cstdint>
#include <string_view>
#include <vector>

#include "lib/route_listing/RouteSorter.h"

namespace Rova {

// How a host route is shown.
enum class HostRowForm {
  toCpu,      // the router's own address (or a broadcast): one via, to the CPU
  noVias,     // its FEC has no vias, or is not in the cache
  neighbour,  // a resolved neighbour: one via to the route's own address on a real interface
  vias,       // every via of its FEC
};

// One via of a host route shown through its vias.
struct HostVia {
  Plexa::IpGenAddr hop;  // zero: the via has no next hop
  bool toCpu = false;
  Plexa::IntfId intf;  // empty: the via has no interface
};

// One host route as the page shows it. A row is filled in place for each route in turn, so its
// via list keeps its storage from one route to the next.
template <class Family>
struct HostRow {
  HostRow() = default;
  HostRow(const HostRow&) = delete;
  HostRow& operator=(const HostRow&) = delete;

  std::string_view prefix;  // the prefix text, in prefixText
  typename Family::RouteType type{};
  bool hardwareProgrammed = true;
  HostRowForm form = HostRowForm::noVias;
  Plexa::IntfId neighbourIntf;  // form neighbour: where the neighbour is
  std::vector<HostVia> vias;    // form vias: the FEC's vias, in its order

  char prefixText[Family::Prefix::kMaxTextLen + 1];
};

template <class Sorter>
class HostListing {
 public:
  using Family = typename Sorter::Family;
  using Row = HostRow<Family>;

  explicit HostListing(const Sorter& s) : s_(s) {}
  HostListing(const HostListing&) = delete;
  HostListing& operator=(const HostListing&) = delete;

  // The sorter's inputs (the timing lines read them).
  const Sorter& sorter() const { return s_; }

  bool hardwareBanner() const;
  bool routingDisabled() const;

  // Calls fn(row) for every host route the sorter selected, in its order.
  template <class Fn>
  void forEachRow(Fn&& fn) const {
    Row row;
    for (const auto& [prefix, route] : s_.sortedRoute()) {
      fill(prefix, route, row);
      fn(static_cast<const Row&>(row));
    }
  }

 private:
  void fill(const typename Family::Prefix& prefix, const typename Family::Route& route,
            Row& row) const;

  const Sorter& s_;
};

}  // namespace Rova
