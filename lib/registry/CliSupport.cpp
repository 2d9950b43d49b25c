// Registration of every library type, in registration order. Each entry comes from the class's
// own attribute list; the lines here add what a list cannot say: how the type is constructed
// and which operations the front end may call.

#include "lib/config_checks/AddressQueryResult.h"
#include "lib/nexthop_group/CounterEntry.h"
#include "lib/registry/TypeRegistry.h"
#include "lib/static_routes/NexthopInfo.h"
#include "lib/static_routes/RouteSortKey.h"
#include "lib/static_routes/RovaConsts.h"
#include "lib/static_routes/StaticRoutesCliSaver.h"

namespace Rova {

void registerTypes(TypeRegistry& r) {
  r.add(TypeBuilder<CounterIndex>("Rova::CounterIndex")
            .constructor<std::uint32_t, std::uint32_t>({"counterIndex", "chipMask"})
            .build());
  r.add(TypeBuilder<AddressQueryResult>("Rova::AddressQueryResult").constructor<>().build());
  r.add(TypeBuilder<CounterEntry>("Rova::CounterEntry")
            .constructor<std::uint64_t, std::uint64_t>({"packets", "bytes"})
            .build());
  r.add(TypeBuilder<RouteSortKey>("Rova::RouteSortKey")
            .constructor<Plexa::IpGenPrefix, Routing::RoutePreference>({"prefix", "preference"})
            .build());
  r.add(TypeBuilder<RovaConsts>("Rova::RovaConsts").constructor<>().build());
  r.add(TypeBuilder<NexthopInfo>("Rova::NexthopInfo").constructor<>().build());
  r.add(
      TypeBuilder<StaticRoutesCliSaver>("Rova::StaticRoutesCliSaver")
          .constructor<>()
          .textConstructor()
          .op("save", &StaticRoutesCliSaver::save, {"config", "saveAll", "routeCmd", "rovaConsts"})
          .build());
  r.add(TypeBuilder<AddrMatchType>("Rova::AddrMatchType")
            .constructor<AddrMatchType>({"value"})
            .enumNames({"allowNoMatch", "allowExactMatch", "allowAddressMatch"})
            .build());
}

}  // namespace Rova
