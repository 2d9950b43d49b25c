#include "lib/common/RouteTypes.h"

#include <gtest/gtest.h>

namespace {

using namespace Rova;
using RT4 = Routing::Fib::RouteType;
using RT6 = Routing6::Fib::RouteType;

TEST(RouteTypeTables, EmptyRowsAreLegalAndGiveEmptyTexts) {
  for (int t : {0, 12, 31}) {
    const auto& s = routeTypeStringsLookup(RT4(t));
    EXPECT_STREQ(s.code, "");
    EXPECT_STREQ(s.word, "");
    EXPECT_STREQ(s.protocol, "");
    EXPECT_STREQ(s.summaryKey, "");
  }
  for (int t : {0, 8, 20})
    EXPECT_STREQ(routeTypeStringsLookup(RT6(t)).word, "");
  // Attached: nothing to show, but counted.
  EXPECT_STREQ(pcode(RT4::attached), "");
  EXPECT_STREQ(routeTypeStringsLookup(RT4::attached).summaryKey, "attached");
  EXPECT_STREQ(routeTypeStringsLookup(RT6::attached).summaryKey, "attached");
}

TEST(RouteTypeTables, FamiliesKeepTheirOwnWords) {
  EXPECT_STREQ(pcode(RT4::ospfInterArea), "O IA");
  EXPECT_STREQ(pcodeAsWord(RT4::ospfIntraArea), "OSPF");
  EXPECT_STREQ(pcodeAsWord(RT4::isisLevel1), "ISISLevel1");
  EXPECT_STREQ(pcodeAsWord(RT6::isisLevel1), "isisL1");
  EXPECT_STREQ(routeTypeStringsLookup(RT6::rip).summaryKey, "");
  EXPECT_STREQ(routeTypeStringsLookup(RT6::dhcp).summaryKey, "dhcp");
  EXPECT_STREQ(routeTypeStringsLookup(RT4::dhcp).summaryKey, "DhcpDefaultRoute");
  EXPECT_STREQ(pcode(RT4::nexthopGroupStaticRoute), "NG");
}

TEST(RouteTypeTables, TypesWithoutARowAreBrokenInvariants) {
  for (int t : {6, 30, 32}) {
    EXPECT_THROW(routeTypeStringsLookup(RT4(t)), Mox::InternalException);
  }
  EXPECT_THROW(pcode(RT6(19)), Mox::InternalException);
}

TEST(ProtocolMatch, EmptyFilterTakesAllAndCodesSelectTheirRows) {
  auto matches = [](int type, const char* filter) {
    Brine::Fib::Route r;
    r.routeType = RT4(type);
    return protocolMatch(r, filter);
  };
  for (int t : {0, 5, 12, 16, 29})
    EXPECT_TRUE(matches(t, "")) << t;
  int ospf = 0;
  for (const auto& [type, s] : routeTypeStrings4())
    ospf += matches(int(type), "O");
  EXPECT_EQ(ospf, 6);
  EXPECT_FALSE(matches(27, "O"));
  EXPECT_TRUE(matches(27, "O3"));
  for (int t : {7, 25, 26})
    EXPECT_TRUE(matches(t, "S")) << t;
  Brine::Fib6::Route r6;
  r6.routeType = RT6::bgp;
  EXPECT_TRUE(protocolMatch(r6, "B"));
  EXPECT_FALSE(protocolMatch(r6, "O3"));
}

TEST(WordToCode, FirstWordInTypeOrderThatBeginsTheArgumentWins) {
  EXPECT_STREQ(Rova_protocolCodeWordToCode("ospfExternalType2"), "O E2");
  EXPECT_STREQ(Rova_protocolCodeWordToCode("OSPFv3"), "O");  // the "OSPF" row comes first
  EXPECT_STREQ(Rova_protocolCodeWordToCode("connectedAnything"), "C");
  EXPECT_STREQ(Rova_protocolCodeWordToCode("eBGP"), "B E");
  EXPECT_THROW(Rova_protocolCodeWordToCode("nothing"), Mox::InternalException);
  EXPECT_THROW(Rova_protocolCodeWordToCode(""), Mox::InternalException);
}

TEST(RibTypes, AnUnknownValueIsABrokenInvariant) {
  EXPECT_THROW(ribRouteType(Routing::RouteType(3)), Mox::InternalException);
}

}  // namespace
