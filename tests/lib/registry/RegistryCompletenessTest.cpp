// The registry against the list the front end is written to: every type in its place, with
// the attributes, kinds, constructor inputs and operations scripts and commands rely on. A
// type missing, moved, or an attribute renamed or reordered breaks the value text form and
// every script that builds the type by name.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "lib/registry/TypeRegistry.h"

namespace {

using Rova::TypeRegistry;

const TypeRegistry& reg() {
  return TypeRegistry::instance();
}

using Names = std::vector<std::string>;

const Names kRegistrationOrder = {
    "Rova::CounterIndex",
    "Rova::CachedVia",
    "Rova::AddressQueryResult",
    "Rova::Address6QueryParams",
    "Rova::Route6Sorter",
    "Rova::StaticRoutesRibCommon",
    "Rova::CounterEntry",
    "Rova::AddressAssignmentChecker",
    "Rova::NexthopGroupHelper",
    "Rova::RouteSortKey",
    "Rova::RovaConsts",
    "Rova::NexthopInfo",
    "Rova::NexthopGroupSummaryHelper",
    "Rova::AddressQueryParams",
    "Rova::NexthopGroupCliCounterInterface",
    "Rova::InvalidNextHop6Checker",
    "Rova::Address6AssignmentChecker",
    "Rova::StaticRoutesCliSaver",
    "Rova::RouteSummary",
    "Rova::InvalidNextHopChecker",
    "Rova::AddrMatchType",
    "Rova::RouteSorter",
    "Rova::CachedLspVia",
    "Rova::RdAssignmentChecker",
    "Rova::NexthopGroupCounterHelper",
    "Rova::Route6Summary",
    "Rova::CachedFec",
    "Rova::ClearIntfRoutesAndViasHelper",
};

Names registeredNames() {
  Names names;
  for (const auto& t : reg().types())
    names.push_back(t->name);
  return names;
}

Names attrNames(const std::string& type) {
  Names names;
  for (const auto& a : reg().type(type).attrs)
    names.push_back(a.name);
  return names;
}

Names inputNames(const std::string& type) {
  Names names;
  for (const auto& p : reg().type(type).constructorInputs)
    names.push_back(p.name);
  return names;
}

// "name(Type, Type) -> Result" for each operation, in registration order.
Names signatures(const std::string& type) {
  Names out;
  for (const auto& o : reg().type(type).ops) {
    std::string s = o.name + "(";
    for (std::size_t i = 0; i < o.params.size(); ++i)
      s += (i ? ", " : "") + o.params[i].typeName;
    out.push_back(s + ") -> " + o.resultType);
  }
  return out;
}

const Names kSorterAttrs = {"routingConfig",
                            "routingStatus",
                            "forwardingStatus",
                            "forwarding6Status",
                            "tunnelFib",
                            "arpBrine",
                            "vrfIdMap",
                            "allIntfConfig",
                            "ipStatus",
                            "routingHwStatus",
                            "routingHardwareStatus",
                            "nhEntryStatus",
                            "kernelUnprogrammedRoute",
                            "evpnVxlanTunnelTable",
                            "tunnelTableDir",
                            "prefix",
                            "intfStatus",
                            "protocol",
                            "detail",
                            "longerPrefixes",
                            "vrfName",
                            "host",
                            "fd",
                            "quantify",
                            "originalMask",
                            "srTePolicyStatus",
                            "printCount",
                            "addrToIntfId",
                            "sortedRoute",
                            "fec",
                            "hasV6Nexthop",
                            "cachedNexthopGroupIdToName",
                            "initialized",
                            "srTunnelTable",
                            "staticTunnelTable",
                            "ldpTunnelTable",
                            "bgpLuTunnelTable"};

// The IPv6 sorter: no forwarding6Status or hasV6Nexthop, and intf after originalMask.
Names sorter6Attrs() {
  Names out;
  for (const std::string& a : kSorterAttrs) {
    if (a == "forwarding6Status" || a == "hasV6Nexthop") continue;
    out.push_back(a);
    if (a == "originalMask") out.push_back("intf");
  }
  return out;
}

TEST(RegistryCompleteness, EveryTypeInRegistrationOrder) {
  EXPECT_EQ(registeredNames(), Names(kRegistrationOrder.begin(), kRegistrationOrder.end()));
  EXPECT_EQ(registeredNames().size(), 28u);
}

TEST(RegistryCompleteness, AttributesInTextFormOrder) {
  const std::map<std::string, Names> expected = {
      {"Rova::AddressQueryResult", {"acceptable", "msg"}},
      {"Rova::RdAssignmentChecker",
       {"routeDistinguisherInputDir", "vrfName", "routeDistinguisher", "acceptable",
        "errorMessage"}},
      {"Rova::RovaConsts",
       {"defaultStaticRoutePreference", "defaultStaticRouteTag", "defaultStaticRouteName"}},
      {"Rova::RouteSortKey", {"prefix", "preference"}},
      {"Rova::NexthopInfo", {"nexthopCmd", "sortedVia"}},
      {"Rova::CounterIndex", {"counterIndex", "chipMask"}},
      {"Rova::CounterEntry", {"packets", "bytes"}},
      {"Rova::CachedVia", {"hop", "intfId", "isBackup", "viaLabel", "viaWeight"}},
      {"Rova::CachedLspVia",
       {"tunnelEndPoint", "tunnelType", "tunnelAddressFamily", "tunnelIndex", "nexthopAddr",
        "interface", "interfaceDescription", "viaLabelStack", "numEntries"}},
      {"Rova::StaticRoutesRibCommon",
       {"sortedRoute", "allIntfConfig", "dynamic", "fd", "fmt", "routeInputConf"}},
      {"Rova::RouteSummary",
       {"routingConfig", "routingStatus", "arpBrine", "vrfIdMap", "vrfName", "routeCountByType",
        "routeCountByMask", "totalNumRoutes"}},
      {"Rova::NexthopGroupSummaryHelper",
       {"nhgConfig", "nhgEntryStatus", "nhgHwStatus", "routingHwStatus", "vrfName", "nhgCount",
        "nhgUnprogrammedCount", "nhgPerType", "nhgPerSize"}},
      {"Rova::RouteSorter", kSorterAttrs},
      {"Rova::Route6Sorter", sorter6Attrs()},
      {"Rova::AddressQueryParams",
       {"ipConfig", "intfName", "mgmtPrefix", "primaryMatch", "secondaryMatch", "addrWithMask"}},
      {"Rova::Address6QueryParams", {"ip6Config", "intfName", "mgmtPrefix", "addrWithMask"}},
      {"Rova::AddressAssignmentChecker", {}},
      {"Rova::Address6AssignmentChecker", {}},
      {"Rova::InvalidNextHopChecker", {}},
      {"Rova::InvalidNextHop6Checker", {}},
  };
  for (const auto& [type, attrs] : expected) {
    EXPECT_EQ(attrNames(type), attrs) << type;
  }
  EXPECT_EQ(attrNames("Rova::Route6Summary"), attrNames("Rova::RouteSummary"));
}

TEST(RegistryCompleteness, KindsAndWritability) {
  using Mox::AttrKind;
  const auto kindOf = [](const std::string& type, const std::string& attr) {
    return reg().type(type).attr(attr)->kind;
  };
  // The checker's result is state: the front end reads it and cannot forge it.
  for (const char* a : {"routeDistinguisherInputDir", "vrfName", "routeDistinguisher"})
    EXPECT_TRUE(Mox::isInput(kindOf("Rova::RdAssignmentChecker", a))) << a;
  for (const char* a : {"acceptable", "errorMessage"}) {
    EXPECT_EQ(kindOf("Rova::RdAssignmentChecker", a), AttrKind::state) << a;
    EXPECT_FALSE(reg().type("Rova::RdAssignmentChecker").attr(a)->writable) << a;
  }
  for (const char* type : {"Rova::AddressQueryParams", "Rova::Address6QueryParams"}) {
    for (const auto& a : reg().type(type).attrs) {
      EXPECT_TRUE(Mox::isInput(a.kind) && a.writable) << type << "::" << a.name;
    }
  }
  for (const auto& a : reg().type("Rova::AddressQueryResult").attrs)
    EXPECT_EQ(a.kind, AttrKind::value) << a.name;
  // Constructor inputs lead, in the order of the constructor's arguments; collections follow.
  for (const char* type : {"Rova::RouteSorter", "Rova::Route6Sorter", "Rova::RouteSummary",
                           "Rova::Route6Summary", "Rova::RdAssignmentChecker"}) {
    const Names inputs = inputNames(type);
    const Names attrs = attrNames(type);
    ASSERT_LE(inputs.size(), attrs.size()) << type;
    EXPECT_EQ(inputs, Names(attrs.begin(), attrs.begin() + long(inputs.size()))) << type;
    bool seenCollection = false;
    for (const auto& a : reg().type(type).attrs) {
      if (a.kind == AttrKind::collection) seenCollection = true;
      EXPECT_FALSE(seenCollection && Mox::isInput(a.kind)) << type << "::" << a.name;
    }
  }
  EXPECT_EQ(inputNames("Rova::RouteSorter").size(), 26u);
  EXPECT_EQ(inputNames("Rova::Route6Sorter").size(), 26u);
  for (const char* c : {"sortedRoute", "fec", "addrToIntfId", "cachedNexthopGroupIdToName"}) {
    const auto* a = reg().type("Rova::RouteSorter").attr(c);
    EXPECT_EQ(a->kind, AttrKind::collection) << c;
    EXPECT_FALSE(a->keyType.empty() || a->valueType.empty()) << c;
  }
  EXPECT_EQ(reg().type("Rova::RouteSorter").attr("sortedRoute")->keyType, "Plexa::Prefix");
  EXPECT_EQ(reg().type("Rova::Route6Sorter").attr("sortedRoute")->keyType, "Plexa::Ip6Prefix");
  EXPECT_EQ(reg().type("Rova::RouteSummary").attr("routeCountByType")->keyType, "Mox::String8");

  const std::map<std::string, Rova::TypeKind> kinds = {
      {"Rova::AddrMatchType", Rova::TypeKind::enumeration},
      {"Rova::CounterEntry", Rova::TypeKind::value},
      {"Rova::AddressQueryResult", Rova::TypeKind::value},
      {"Rova::RouteSorter", Rova::TypeKind::entity},
      {"Rova::RdAssignmentChecker", Rova::TypeKind::entity},
      {"Rova::CachedFec", Rova::TypeKind::entity},
  };
  for (const auto& [type, kind] : kinds)
    EXPECT_EQ(reg().type(type).kind, kind) << type;
}

TEST(RegistryCompleteness, ConstructionAndFactories) {
  // Scripts build these through their factories, by these names.
  EXPECT_EQ(reg().type("Rova::AddressQueryParams").factory, "addressQueryParamsFactory");
  EXPECT_EQ(reg().type("Rova::Address6QueryParams").factory, "address6QueryParamsFactory");
  EXPECT_EQ(reg().type("Rova::CachedFec").factory, "cachedFecFactory");
  // Every listed type can be built, through its factory where it names one.
  for (const std::string& n : kRegistrationOrder) {
    if (n == "Rova::NexthopGroupCliCounterInterface" || !reg().find(n)) continue;
    EXPECT_TRUE(bool(reg().type(n).construct)) << n;
    EXPECT_TRUE(bool(reg().type(n).constructNamed)) << n;
  }
}

TEST(RegistryCompleteness, OperationSignatures) {
  const Names sorter = {"legend() -> Mox::String8",
                        "hostLegend() -> Mox::String8",
                        "buildNexthopGroupIdToName() -> void",
                        "createAttachedRoute(Plexa::IpGenAddr, Plexa::IntfId) -> Brine::Fib::Route",
                        "handleInitialized() -> void",
                        "printRoutes(U32, U32) -> void",
                        "longestPrefixMatch() -> Plexa::Prefix",
                        "protocolString(Plexa::Prefix) -> Mox::String8",
                        "viasForPrefix(Plexa::Prefix) -> Rova::CachedFec"};
  EXPECT_EQ(signatures("Rova::RouteSorter"), sorter);
  const Names sorter6 = signatures("Rova::Route6Sorter");
  ASSERT_EQ(sorter6.size(), sorter.size());
  EXPECT_EQ(sorter6[7], "protocolString(Plexa::Ip6Prefix) -> Mox::String8");
  EXPECT_EQ(signatures("Rova::AddressAssignmentChecker"),
            Names{"check(Rova::AddressQueryParams) -> Rova::AddressQueryResult"});
  EXPECT_EQ(signatures("Rova::Address6AssignmentChecker"),
            Names{"check(Rova::Address6QueryParams) -> Rova::AddressQueryResult"});
  EXPECT_EQ(signatures("Rova::InvalidNextHopChecker"),
            Names{"check(Ip::Config, Plexa::IpAddr, L3::VrfName) -> bool"});
  EXPECT_EQ(signatures("Rova::InvalidNextHop6Checker"),
            Names{"check(Ip6::Config, Plexa::Ip6Addr, L3::VrfName) -> bool"});
  EXPECT_EQ(signatures("Rova::RdAssignmentChecker"), Names{"handleInitialized() -> void"});
  EXPECT_EQ(signatures("Rova::RouteSummary"),
            (Names{"loadInternalStructures() -> void", "loadAttachedRoutes() -> void"}));
  EXPECT_EQ(signatures("Rova::StaticRoutesCliSaver"),
            Names{"save(Routing::ConfigGen, bool, Mox::String8, Rova::RovaConsts) -> "
                  "Mox::String8"});
  EXPECT_EQ(signatures("Rova::ClearIntfRoutesAndViasHelper"),
            Names{"clearIntfRoutesAndViasHelper(Routing::ConfigGen, Mox::String8) -> void"});
  const Names rib = signatures("Rova::StaticRoutesRibCommon");
  EXPECT_NE(std::find(rib.begin(), rib.end(), "dump(Rova::RovaConsts) -> void"), rib.end());
  EXPECT_NE(std::find(rib.begin(), rib.end(), "legend() -> Mox::String8"), rib.end());
  // Every writable attribute of the query parameters has its setter operation.
  for (const char* type : {"Rova::AddressQueryParams", "Rova::Address6QueryParams"}) {
    for (const auto& a : reg().type(type).attrs)
      EXPECT_NE(reg().type(type).op(a.name + "Is"), nullptr) << type << "::" << a.name;
  }
}

}  // namespace
