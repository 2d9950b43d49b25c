// The entry of the IPv4 route listing's sorter, the largest of the library's types.

#include "lib/registry/CliSupportTypes.h"
#include "lib/route_listing/RouteSorter.h"

namespace Rova::cliSupport {

TypeEntry routeSorterType() {
  return sorterType<RouteSorter>("Rova::RouteSorter");
}

}  // namespace Rova::cliSupport
