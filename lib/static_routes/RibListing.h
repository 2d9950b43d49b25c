#pragma once
// The static RIB dump's model: what the dump shows, finished from the routes the dump
// collected. As in the route listing, collecting is the query, this model decides what each
// route shows (its nexthop group, its drop target and whether its name shows, or its vias
// with the label, description and name each shows), and the renderer
// (StaticRoutesRibCommon::print) only reads it.
//
//   const RibListing model(rib, rovaConsts);
//   model.forEachRow([&](const RibRow& row) { ... row.form, row.vias ... });

#include <cstdint>
#include <string>
#include <vector>

#include "lib/static_routes/RovaConsts.h"
#include "lib/static_routes/StaticRoutesRibCommon.h"
#include "platform/mox/String8.h"
#include "platform/plexa/IntfId.h"
#include "platform/plexa/IpAddr.h"
#include "platform/state/RoutingConfig.h"

namespace Rova {

// What a static route forwards to.
enum class RibRowForm { nexthopGroup, drop, vias };

// One via as the dump shows it.
struct RibVia {
  Plexa::IpGenAddr hop;      // zero: no next hop
  bool showLabel = false;    // a next hop's label, when it has one
  std::uint32_t label = 0;   // ... its value
  Plexa::IntfId intf;        // not a real interface: none shown
  Mox::String8 description;  // the interface's configured description; empty: none shown
  Mox::String8 name;         // the via's name; empty: none shown (unnamed, or the default)
};

// One route as the dump shows it. A row is filled in place for each route in turn, so its via
// list keeps its storage from one route to the next.
struct RibRow {
  RibRow() = default;
  RibRow(const RibRow&) = delete;
  RibRow& operator=(const RibRow&) = delete;

  std::string prefix;
  Routing::RoutePreference preference = 0;
  Routing::RouteType type{};
  std::uint32_t tag = 0;
  RibRowForm form = RibRowForm::vias;
  Mox::String8 groupName;     // form nexthopGroup
  bool showDropName = false;  // form drop: the name shows unless it is the default one
  Mox::String8 dropName;      // ... even when empty
  std::vector<RibVia> vias;   // form vias, in the route's order
};

class RibListing {
 public:
  RibListing(const StaticRoutesRibCommon& rib, const RovaConsts& rovaConsts)
      : rib_(rib), defaultName_(rovaConsts.defaultStaticRouteName()) {}
  RibListing(const RibListing&) = delete;
  RibListing& operator=(const RibListing&) = delete;

  // Calls fn(row) for every collected route, in key order.
  template <class Fn>
  void forEachRow(Fn&& fn) const {
    RibRow row;
    for (const auto& [key, route] : rib_.sortedRoute()) {
      fill(*route, row);
      fn(static_cast<const RibRow&>(row));
    }
  }

 private:
  void fill(const Routing::Route& route, RibRow& row) const;

  const StaticRoutesRibCommon& rib_;
  Mox::String8 defaultName_;
};

}  // namespace Rova
