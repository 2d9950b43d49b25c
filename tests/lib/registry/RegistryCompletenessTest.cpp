// The registry against what scripts and the value text form rely on. The order of the types and
// the full description of the types `show type` is run on are pinned by the golden files, and
// the operations scripts call are called positionally by the Python suite; here are the
// attribute orders of the other types (a reordered attribute breaks every text written
// before) and the construction rules.

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "lib/registry/TypeRegistry.h"

namespace {

using Rova::TypeRegistry;
using Names = std::vector<std::string>;

const TypeRegistry& reg() {
  return TypeRegistry::instance();
}

Names attrNames(const std::string& type) {
  Names names;
  for (const auto& a : reg().type(type).attrs)
    names.push_back(a.name);
  return names;
}

TEST(RegistryCompleteness, AttributesInTextFormOrder) {
  const std::map<std::string, Names> expected = {
      {"Rova::RouteSortKey", {"prefix", "preference"}},
      {"Rova::NexthopInfo", {"nexthopCmd", "sortedVia"}},
      {"Rova::CounterIndex", {"counterIndex", "chipMask"}},
      {"Rova::CachedVia", {"hop", "intfId", "isBackup", "viaLabel", "viaWeight"}},
      {"Rova::CachedLspVia",
       {"tunnelEndPoint", "tunnelType", "tunnelAddressFamily", "tunnelIndex", "nexthopAddr",
        "interface", "interfaceDescription", "viaLabelStack", "numEntries"}},
      {"Rova::NexthopGroupSummaryHelper",
       {"nhgConfig", "nhgEntryStatus", "nhgHwStatus", "routingHwStatus", "vrfName", "nhgCount",
        "nhgUnprogrammedCount", "nhgPerType", "nhgPerSize"}},
      {"Rova::Address6QueryParams", {"ip6Config", "intfName", "mgmtPrefix", "addrWithMask"}},
      {"Rova::StaticRoutesRibCommon",
       {"sortedRoute", "allIntfConfig", "dynamic", "fd", "fmt", "routeInputConf"}},
  };
  for (const auto& [type, attrs] : expected)
    EXPECT_EQ(attrNames(type), attrs) << type;
  EXPECT_EQ(attrNames("Rova::Route6Summary"), attrNames("Rova::RouteSummary"));
  // The IPv6 sorter is the IPv4 one without the IPv6 FEC table and its flag, with the
  // interface filter after originalMask.
  Names sorter6;
  for (const std::string& a : attrNames("Rova::RouteSorter")) {
    if (a == "forwarding6Status" || a == "hasV6Nexthop") continue;
    sorter6.push_back(a);
    if (a == "originalMask") sorter6.push_back("intf");
  }
  EXPECT_EQ(attrNames("Rova::Route6Sorter"), sorter6);
}

// Constructor inputs lead, in the order of the constructor's arguments, and no input comes
// after a collection; every type but the abstract counter interface can be built; the query
// parameters can be set attribute by attribute.
TEST(RegistryCompleteness, TheConstructionRules) {
  for (const char* type :
       {"Rova::RouteSorter", "Rova::Route6Sorter", "Rova::RouteSummary", "Rova::Route6Summary",
        "Rova::RdAssignmentChecker", "Rova::NexthopGroupSummaryHelper"}) {
    SCOPED_TRACE(type);
    const auto& t = reg().type(type);
    const Names attrs = attrNames(type);
    ASSERT_LE(t.constructorInputs.size(), attrs.size());
    for (std::size_t i = 0; i < t.constructorInputs.size(); ++i)
      EXPECT_EQ(t.constructorInputs[i].name, attrs[i]);
    bool seenCollection = false;
    for (const auto& a : t.attrs) {
      seenCollection = seenCollection || a.kind == Mox::AttrKind::collection;
      EXPECT_FALSE(seenCollection && Mox::isInput(a.kind)) << a.name;
    }
  }
  for (const auto& t : reg().types()) {
    if (t->name == "Rova::NexthopGroupCliCounterInterface") continue;
    EXPECT_TRUE(bool(t->construct)) << t->name;
    EXPECT_TRUE(bool(t->constructNamed)) << t->name;
  }
  for (const char* type : {"Rova::AddressQueryParams", "Rova::Address6QueryParams"}) {
    for (const auto& a : reg().type(type).attrs)
      EXPECT_NE(reg().type(type).op(a.name + "Is"), nullptr) << type << "::" << a.name;
  }
}

// `show type` and the conversion errors name every type an entry mentions; one without a name
// (an enumeration or record the registry was never told about) would read "unregistered".
TEST(RegistryCompleteness, EveryTypeAnEntryMentionsHasAName) {
  for (const auto& t : reg().types()) {
    std::vector<std::string> mentioned;
    for (const auto& in : t->constructorInputs)
      mentioned.push_back(in.typeName);
    for (const auto& a : t->attrs)
      mentioned.insert(mentioned.end(), {a.typeName, a.keyType, a.valueType});
    for (const auto& op : t->ops) {
      mentioned.push_back(op.resultType);
      for (const auto& p : op.params)
        mentioned.push_back(p.typeName);
    }
    for (const std::string& name : mentioned)
      EXPECT_NE(name, "unregistered") << t->name;
  }
}

}  // namespace
