// The entry of the IPv6 route listing's sorter, the largest of the library's types.

#include "lib/registry/CliSupportTypes.h"
#include "lib/route_listing/RouteSorter.h"

namespace Rova::cliSupport {

TypeEntry route6SorterType() {
  return sorterType<Route6Sorter>("Rova::Route6Sorter");
}

}  // namespace Rova::cliSupport
