// The host listing model: the page's facts, and how each host route is shown.

#include "lib/route_listing/internal/HostListing.h"

#include "lib/common/RouteTypes.h"
#include "lib/route_listing/internal/ListingParts.h"

namespace Rova {

using namespace listing;

template <class Sorter>
bool HostListing<Sorter>::hardwareBanner() const {
  return unprogrammedInHardware(s_) != 0;
}

template <class Sorter>
bool HostListing<Sorter>::routingDisabled() const {
  return !s_.routingConfig() || !s_.routingConfig()->routingEnabled();
}

template <class Sorter>
void HostListing<Sorter>::fill(const typename Family::Prefix& prefix,
                               const typename Family::Route& route, Row& row) const {
  row.prefix = std::string_view(
      row.prefixText, static_cast<std::size_t>(prefix.write(row.prefixText) - row.prefixText));
  row.type = route.routeType;
  row.hardwareProgrammed = route.hardwareProgrammed;
  row.neighbourIntf = Plexa::IntfId();
  row.vias.clear();

  const Mox::Ptr<CachedFec>* fec = s_.fec().find(route.fecId);
  if (isHostToCpu(route.routeType)) {
    row.form = HostRowForm::toCpu;
    return;
  }
  if (!fec || (*fec)->vias() == 0) {
    row.form = HostRowForm::noVias;
    return;
  }
  const CachedVia& first = *(*fec)->via().begin();
  if ((*fec)->vias() == 1 && !first.hop().isZero() &&
      first.hop() == Plexa::IpGenAddr(prefix.address()) && first.intfId().isValid()) {
    // A resolved neighbour: the route is the neighbour itself.
    row.form = HostRowForm::neighbour;
    row.neighbourIntf = first.intfId();
    return;
  }
  row.form = HostRowForm::vias;
  std::uint16_t i = 0;
  for (const auto& via : (*fec)->via()) {
    row.vias.push_back(HostVia{via.hop(), (*fec)->hostToCpu(i), via.intfId()});
    ++i;
  }
}

template class HostListing<RouteSorter>;
template class HostListing<Route6Sorter>;

}  // namespace Rova
