#pragma once
// The route summary: how many routes one VRF holds, by protocol and by prefix length.
// RouteSummary counts IPv4 and Route6Summary IPv6; the counting is written once, as templates
// over the family (RouteSummary.cpp), and the two differ only in the tables they read. They
// print nothing: the front end reads the three results and renders them.
//
//   auto summary = Mox::makePtr<Rova::RouteSummary>(Rova::RouteSummary::Inputs{
//       .routingConfig = config, .routingStatus = routes, .arpBrine = neighbours,
//       .vrfIdMap = vrfIds, .vrfName = L3::VrfName("red")});
//   summary->loadInternalStructures();  // the forwarding routes
//   summary->loadAttachedRoutes();      // resolved neighbours, as attached host routes
//   summary->routeCountByType("bgpTotal"), summary->routeCountByMask(24),
//   summary->totalNumRoutes()

#include <cstdint>

#include "platform/brine/Fib.h"
#include "platform/brine/Neighbor.h"
#include "platform/mox/Attribute.h"
#include "platform/mox/Ptr.h"
#include "platform/mox/String8.h"
#include "platform/plexa/VrfName.h"
#include "platform/state/Family.h"
#include "platform/state/RoutingConfig.h"

namespace Rova {

// Count key (a route type's summary key, or one of the fixed keys) to count.
using RouteCountByTypeMap = Mox::HashMap<Mox::String8, std::uint32_t>;
// Prefix length to count, in ascending length.
using RouteCountByMaskMap = Mox::OrderedMap<std::uint32_t, std::uint32_t>;

// One attribute list for both summaries, parameterised by family (V4 or V6). The route table is
// the family's; without the routing configuration static routes are not counted at all.
#define ROVA_SUMMARY_INPUTS(F, FAM)                                                             \
  F(routingConfig, RoutingConfig, Mox::Ptr<Routing::ConfigGen const>, Mox::AttrKind::input, {}) \
  F(routingStatus, RoutingStatus, Mox::Ptr<Routing::FAM::RouteStatus const>,                    \
    Mox::AttrKind::required, {})                                                                \
  F(arpBrine, ArpBrine, Mox::Ptr<Arp::Table::Status const>, Mox::AttrKind::input, {})           \
  F(vrfIdMap, VrfIdMap, Mox::Ptr<Vrf::VrfIdMap::Status const>, Mox::AttrKind::input, {})        \
  F(vrfName, VrfName, L3::VrfName, Mox::AttrKind::required, {})

#define ROVA_SUMMARY_STATE(F, C)                             \
  C(routeCountByType, RouteCountByType, RouteCountByTypeMap) \
  C(routeCountByMask, RouteCountByMask, RouteCountByMaskMap) \
  F(totalNumRoutes, TotalNumRoutes, std::uint32_t, Mox::AttrKind::state, {})

#define ROVA_ROUTE_SUMMARY_INPUTS(F) ROVA_SUMMARY_INPUTS(F, V4)
#define ROVA_ROUTE_SUMMARY_ATTRS(F, C) ROVA_SUMMARY_INPUTS(F, V4) ROVA_SUMMARY_STATE(F, C)
#define ROVA_ROUTE6_SUMMARY_INPUTS(F) ROVA_SUMMARY_INPUTS(F, V6)
#define ROVA_ROUTE6_SUMMARY_ATTRS(F, C) ROVA_SUMMARY_INPUTS(F, V6) ROVA_SUMMARY_STATE(F, C)

// The two loading operations, written once for the family. Each adds to the counts; calling
// one twice counts twice.
template <class Self, class Fam>
class SummaryOperations {
 public:
  using Family = Fam;

  // Counts the forwarding routes of the VRF by their type's summary key (and the protocol
  // totals, and static routes by persistence), by prefix length, and in all.
  void loadInternalStructures();
  // Counts each resolved neighbour of the family in the VRF, off management interfaces, as one
  // attached host route.
  void loadAttachedRoutes();

 private:
  Self& self() { return static_cast<Self&>(*this); }
};

class RouteSummary : public Mox::Entity, public SummaryOperations<RouteSummary, Routing::V4> {
  MOX_ENTITY_TYPE(RouteSummary, "Rova::RouteSummary", ROVA_ROUTE_SUMMARY_ATTRS)
  MOX_INPUTS(ROVA_ROUTE_SUMMARY_INPUTS)

 public:
  explicit RouteSummary(Inputs in) { takeInputs(std::move(in)); }
};

class Route6Summary : public Mox::Entity, public SummaryOperations<Route6Summary, Routing::V6> {
  MOX_ENTITY_TYPE(Route6Summary, "Rova::Route6Summary", ROVA_ROUTE6_SUMMARY_ATTRS)
  MOX_INPUTS(ROVA_ROUTE6_SUMMARY_INPUTS)

 public:
  explicit Route6Summary(Inputs in) { takeInputs(std::move(in)); }
};

}  // namespace Rova
