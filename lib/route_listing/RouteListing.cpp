// The listing model: the page's facts finished from the selection, and each route's row.

#include "lib/route_listing/internal/RouteListing.h"

#include "lib/common/RouteTypes.h"
#include "lib/route_listing/internal/ListingParts.h"

namespace Rova {

using namespace listing;

const char* defaultRouteStateName(DefaultRouteState state) {
  switch (state) {
    case DefaultRouteState::notSet:
      return "notSet";
    case DefaultRouteState::reachable:
      return "reachable";
    case DefaultRouteState::notReachable:
      return "notReachable";
  }
  return "notSet";
}

namespace {

// The IPv6 page opens with how many of the table's routes it displays: those selected, less
// those the interface and protocol filters hide. The sorter keeps the result as its count.
std::uint32_t countDisplayed(RouteSorter& s) {
  return s.printCount();
}
std::uint32_t countDisplayed(Route6Sorter& s) {
  if (s.prefix().isNullPrefix()) s.printCountIs(s.printCount() - getFilteredRoutesCount(s));
  return s.printCount();
}

}  // namespace

template <class Sorter>
RouteListing<Sorter>::KernelMarks::KernelMarks(const Sorter& s) : s_(s) {
  const auto& table = s.kernelUnprogrammedRoute();
  if (!table || table->empty()) return;
  table_ = table.get();
  generation_ = table->generation();
  // Some 64 bits per prefix keeps the bitmap's false positives near 1%.
  std::size_t bits = 4096;
  while (bits < 64 * table->size() && bits < (std::size_t(1) << 23))
    bits *= 2;
  bits_.assign(bits / 64, 0);
  for (auto it = table->begin(); it != table->end(); ++it) {
    const Plexa::IpGenPrefix entry = sorter::readRecord(*table, it).prefix;
    // Only a prefix of this family can be a route's; a null one is asked of the table.
    if (entry.isNullPrefix() || !Family::ofFamily(entry.address()) ||
        entry.len() > Family::Prefix::kMaxLen)
      continue;
    const std::size_t bit =
        bitOf(typename Family::Prefix(Family::addrOf(entry.address()), entry.len()), bits);
    bits_[bit / 64] |= std::uint64_t(1) << (bit % 64);
  }
}

template <class Sorter>
std::size_t RouteListing<Sorter>::KernelMarks::bitOf(const typename Family::Prefix& prefix,
                                                     std::size_t bits) {
  std::uint64_t k;
  if constexpr (std::is_same_v<decltype(orderKey(prefix)), std::uint64_t>) {
    k = orderKey(prefix);
  } else {
    const auto words = orderKey(prefix);
    k = words[0] * 0x9e3779b97f4a7c15ull ^ words[1] ^ words[2] << 56;
  }
  k *= 0xbf58476d1ce4e5b9ull;
  return static_cast<std::size_t>(k >> 32) & (bits - 1);
}

template <class Sorter>
bool RouteListing<Sorter>::KernelMarks::programmed(const typename Family::Prefix& prefix) const {
  const auto& table = s_.kernelUnprogrammedRoute();
  if (!table || table->empty()) return true;
  const bool current =
      !bits_.empty() && table.get() == table_ && table->generation() == generation_;
  if (current && !prefix.isNullPrefix()) {
    const std::size_t bit = bitOf(prefix, bits_.size() * 64);
    if (!(bits_[bit / 64] >> (bit % 64) & 1)) return true;
  }
  return !table->contains(Plexa::IpGenPrefix(prefix));
}

template <class Sorter>
RouteListing<Sorter>::RouteListing(Sorter& s) : s_(s), kernelMarks_(s) {
  displayed_ = countDisplayed(s);
  hardwareBanner_ = unprogrammedInHardware(s) != 0;
  kernelBanner_ = kernelUnprogrammedRoutes(s);

  // The default route has a place of its own on the page (the gateway of last resort), so it
  // leaves the sorted routes; the model keeps it for the page to show where it belongs.
  const typename Family::Prefix defaultPrefix(typename Family::Addr(), 0);
  if (const Route* route = s.sortedRoute().find(defaultPrefix)) {
    defaultState_ = sorter::isPrintable(s, *route) ? DefaultRouteState::reachable
                                                   : DefaultRouteState::notReachable;
    defaultRoute_ = *route;
    s.sortedRouteDel(defaultPrefix);
  }
}

template <class Sorter>
std::uint32_t RouteListing<Sorter>::tableSize() const {
  return s_.routingStatus() ? static_cast<std::uint32_t>(s_.routingStatus()->size()) : 0u;
}

template <class Sorter>
bool RouteListing<Sorter>::routingDisabled() const {
  return !s_.routingConfig() || !s_.routingConfig()->routingEnabled();
}

template <class Sorter>
const Mox::String8& RouteListing<Sorter>::groupName(std::uint64_t id) const {
  if (!s_.stats().groupNamesBuilt) {
    s_.buildNexthopGroupIdToName();
    s_.stats().groupNamesBuilt = true;
  }
  static const Mox::String8 kUnknown("NexthopGroupUnknown");
  const Mox::String8* name = s_.cachedNexthopGroupIdToName().find(id);
  return name && !name->empty() ? *name : kUnknown;
}

template <class Sorter>
typename RouteListing<Sorter>::FecRow& RouteListing<Sorter>::fecRow(Brine::Fib::FecId fecId) const {
  if (FecRow* known = fecRows_.findMutable(fecId)) return *known;
  FecRow facts;
  const Mox::Ptr<CachedFec>* cached = s_.fec().find(fecId);
  facts.fec = cached ? cached->get() : nullptr;
  facts.printable = sorter::fecPrintable(s_, cached);
  fecRows_.set(fecId, facts);
  return *fecRows_.findMutable(fecId);
}

template <class Sorter>
bool RouteListing<Sorter>::rowOf(const Route& route, Row& row) const {
  return rowOf(route, row, fecRow(route.fecId));
}

template <class Sorter>
bool RouteListing<Sorter>::rowOf(const Route& route, Row& row, FecRow& facts) const {
  if (!sorter::isPrintable(route, facts.printable) || !protocolMatch(route, s_.protocol()))
    return false;
  // The IPv6 interface filter narrows the page's count line, not the rows: every selected
  // route that prints without it prints with it.
  row.type = route.routeType;
  row.fecId = route.fecId;
  row.fec = facts.fec;
  if (!facts.fec) return true;

  // The columns are filled the first time a row needs them (a listing cut short prepares only
  // what it showed), and the facts the rows read of them with them.
  if (!facts.prepared) {
    const Mox::Ptr<CachedFec> fec(facts.fec);
    prepareFec(s_, fec);
    facts.prepared = true;
    facts.evpn = fec->viaEvpnEntrys() != 0;
    facts.entries = fec->numEntries();
    if (fec->numEntries() > 0 && fec->lspVias() == 0 && !fec->nexthopAddr().contains(0))
      facts.hoplessIntf = fec->interface().find(0);
  }

  RouteLine& line = row.line;
  line = RouteLine{};
  line.prefix = std::string_view(
      row.prefixText,
      static_cast<std::size_t>(route.prefix.write(row.prefixText) - row.prefixText));
  line.hardwareProgrammed = route.hardwareProgrammed;
  line.kernelProgrammed = kernelMarks_.programmed(route.prefix);
  line.preference = route.preference;
  line.metric = route.metric;
  line.drop = route.routeType == Family::RouteType::dropRoute;
  line.entries = facts.entries;
  line.viaBlock = &facts.viaBlock;

  if (Brine::Fib::isNexthopGroupFec(route.fecId)) {
    const std::uint64_t id = Brine::Fib::nexthopGroupIdFromFec(route.fecId);
    row.groupName = groupName(id);
    line.groupName = row.groupName.charPtr();
    line.groupId = id;
  } else if (Brine::Fib::isSrTePolicyFec(route.fecId)) {
    row.policy = s_.srTePolicyStatus() ? s_.srTePolicyStatus()->fecIdToPolicyKey(route.fecId)
                                       : SrTePolicy::PolicyKey();
    line.policy = &row.policy;
  }

  // A route is connected on an interface that holds its prefix. A receive route is the
  // router's own address, so the interface that holds the address is its interface whatever
  // its FEC points at (the CPU, or a next hop); any other route is connected only through a
  // first via without a next hop.
  row.connectedIntf = Mox::String8();
  if (!line.drop && !facts.evpn) {
    const typename Family::AddrWithMask own(route.prefix.address(), route.prefix.len());
    const Plexa::IntfId* holder =
        isReceive(route.routeType) ? s_.addrToIntfId().find(own) : nullptr;
    if (holder) {
      row.connectedIntf = holder->stringValue();
    } else if (facts.hoplessIntf) {
      row.connectedIntf = *facts.hoplessIntf;
    }
    line.connected = isDirectlyConnected(s_, route.prefix, row.connectedIntf);
    line.connectedIntf = row.connectedIntf.charPtr();
  }
  // An IPv4 route whose vias are IPv6 next hops takes the IPv6 via layout.
  row.v6Vias = std::is_same_v<Sorter, Route6Sorter> || Brine::Fib::isV6FecId(route.fecId);
  return true;
}

template class RouteListing<RouteSorter>;
template class RouteListing<Route6Sorter>;

}  // namespace Rova
