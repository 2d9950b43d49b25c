// The static RIB dump's model: what each collected route shows.

#include "lib/static_routes/RibListing.h"

namespace Rova {

void RibListing::fill(const Routing::Route& route, RibRow& row) const {
  row.prefix = route.prefix().stringValue();
  row.preference = route.preference();
  row.type = route.routeType();
  row.tag = route.tag();
  row.groupName = Mox::String8();
  row.showDropName = false;
  row.dropName = Mox::String8();
  row.vias.clear();

  switch (route.routeType()) {
    case Routing::RouteType::nexthopGroup:
      row.form = RibRowForm::nexthopGroup;
      row.groupName = route.nexthopGroupName();
      return;
    case Routing::RouteType::drop:
      row.form = RibRowForm::drop;
      // Unlike a via's name, an empty drop name is not tested for: with a non-empty default
      // it shows as ", name: " with nothing after it, as the saved line does.
      row.showDropName = route.dropNextHopName() != defaultName_;
      row.dropName = route.dropNextHopName();
      return;
    default:
      break;
  }
  row.form = RibRowForm::vias;
  for (const Routing::Via& via : route.via()) {
    RibVia& shown = row.vias.emplace_back();
    shown.hop = via.hop();
    shown.showLabel = via.hop() && !via.mplsLabel().isNoLabel();
    shown.label = via.mplsLabel().value();
    if (via.intfId().isValid()) {
      shown.intf = via.intfId();
      if (const auto& configs = rib_.allIntfConfig()) {
        const auto* config = configs->intfConfig().find(via.intfId());
        if (config && *config) shown.description = (*config)->description();
      }
    }
    const Mox::String8* name = route.viaNextHopName().find(via);
    if (name && *name != defaultName_) shown.name = *name;
  }
}

}  // namespace Rova
