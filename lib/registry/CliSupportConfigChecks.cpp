// The entries of the configuration checks' types: the address, next-hop and route
// distinguisher checkers and their queries, and the interface address editor.

#include "lib/config_checks/Address6AssignmentChecker.h"
#include "lib/config_checks/Address6QueryParams.h"
#include "lib/config_checks/AddressAssignmentChecker.h"
#include "lib/config_checks/AddressQueryParams.h"
#include "lib/config_checks/AddressQueryResult.h"
#include "lib/config_checks/IntfAddressEditor.h"
#include "lib/config_checks/InvalidNextHop6Checker.h"
#include "lib/config_checks/InvalidNextHopChecker.h"
#include "lib/config_checks/RdAssignmentChecker.h"
#include "lib/registry/CliSupportTypes.h"

namespace Rova::cliSupport {

TypeEntry addressQueryResultType() {
  return TypeBuilder<AddressQueryResult>("Rova::AddressQueryResult").constructor<>().build();
}

TypeEntry address6QueryParamsType() {
  using P = Address6QueryParams;
  return TypeBuilder<P>("Rova::Address6QueryParams")
      .factory("address6QueryParamsFactory", &address6QueryParamsFactory,
               {"ip6Config", "intfName", "mgmtPrefix", "addrWithMask"})
      .op("ip6ConfigIs", &P::ip6ConfigIs, {"ip6Config"})
      .op("intfNameIs", &P::intfNameIs, {"intfName"})
      .op("mgmtPrefixIs", &P::mgmtPrefixIs, {"mgmtPrefix"})
      .op("addrWithMaskIs", &P::addrWithMaskIs, {"addrWithMask"})
      .build();
}

TypeEntry addressAssignmentCheckerType() {
  return TypeBuilder<AddressAssignmentChecker>("Rova::AddressAssignmentChecker")
      .constructor<>()
      .op("check", &AddressAssignmentChecker::check, {"params"})
      .build();
}

TypeEntry addressQueryParamsType() {
  using P = AddressQueryParams;
  return TypeBuilder<P>("Rova::AddressQueryParams")
      .factory(
          "addressQueryParamsFactory", &addressQueryParamsFactory,
          {"ipConfig", "intfName", "mgmtPrefix", "primaryMatch", "secondaryMatch", "addrWithMask"})
      .op("ipConfigIs", &P::ipConfigIs, {"ipConfig"})
      .op("intfNameIs", &P::intfNameIs, {"intfName"})
      .op("mgmtPrefixIs", &P::mgmtPrefixIs, {"mgmtPrefix"})
      .op("primaryMatchIs", &P::primaryMatchIs, {"primaryMatch"})
      .op("secondaryMatchIs", &P::secondaryMatchIs, {"secondaryMatch"})
      .op("addrWithMaskIs", &P::addrWithMaskIs, {"addrWithMask"})
      .build();
}

TypeEntry invalidNextHop6CheckerType() {
  return TypeBuilder<InvalidNextHop6Checker>("Rova::InvalidNextHop6Checker")
      .constructor<>()
      .op("check", &InvalidNextHop6Checker::check, {"ip6Config", "nexthop", "vrfName"})
      .build();
}

TypeEntry address6AssignmentCheckerType() {
  return TypeBuilder<Address6AssignmentChecker>("Rova::Address6AssignmentChecker")
      .constructor<>()
      .op("check", &Address6AssignmentChecker::check, {"params"})
      .build();
}

TypeEntry invalidNextHopCheckerType() {
  return TypeBuilder<InvalidNextHopChecker>("Rova::InvalidNextHopChecker")
      .constructor<>()
      .op("check", &InvalidNextHopChecker::check, {"ipConfig", "nexthop", "vrfName"})
      .build();
}

TypeEntry addrMatchTypeType() {
  return TypeBuilder<AddrMatchType>("Rova::AddrMatchType")
      .constructor<AddrMatchType>({"value"})
      .enumNames({"allowNoMatch", "allowExactMatch", "allowAddressMatch"})
      .build();
}

TypeEntry rdAssignmentCheckerType() {
  return TypeBuilder<RdAssignmentChecker>("Rova::RdAssignmentChecker")
      .constructor<Mox::Ptr<Mox::Dir const>, Mox::String8, Plexa::RouteDistinguisher>(
          {"routeDistinguisherInputDir", "vrfName", "routeDistinguisher"})
      .textConstructor()
      .op("handleInitialized", &RdAssignmentChecker::handleInitialized)
      .build();
}

TypeEntry intfAddressEditorType() {
  using E = IntfAddressEditor;
  return TypeBuilder<E>("Rova::IntfAddressEditor")
      .constructor<Mox::Ptr<Ip::Config>, Mox::Ptr<Ip::Status>, Mox::Ptr<Ip6::Config>,
                   Mox::Ptr<Ip6::Status>, Mox::Ptr<Interface::AllIntfConfigDir const>,
                   Mox::String8>(
          {"ipConfig", "ipStatus", "ip6Config", "ip6Status", "allIntfConfig", "mgmtPrefix"})
      .op("addAddress", &E::addAddress, {"intf", "addrWithMask", "secondary"})
      .op("removeAddress", &E::removeAddress, {"intf", "addrWithMask", "secondary"})
      .op("removeAddresses", &E::removeAddresses, {"intf", "ipv6"})
      .build();
}

}  // namespace Rova::cliSupport
