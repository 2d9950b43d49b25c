// The order of saved lines and the equality of saved route texts.
#include "lib/static_routes/RouteSortKey.h"

#include <gtest/gtest.h>

#include "lib/static_routes/NexthopInfo.h"

namespace {

using Rova::RouteSortKey;

RouteSortKey key(const char* prefix, Routing::RoutePreference pref = 1) {
  return RouteSortKey(Plexa::IpGenPrefix::fromString(prefix), pref);
}

TEST(RouteSortKey, AddressThenMaskLengthThenPreference) {
  EXPECT_LT(key("9.255.255.0/24"), key("10.0.0.0/8"));
  EXPECT_LT(key("10.0.0.0/8"), key("10.0.0.0/16"));
  EXPECT_LT(key("10.0.0.0/16", 200), key("10.0.0.1/32", 1));  // the address decides first
  EXPECT_LT(key("10.0.0.0/8", 2), key("10.0.0.0/8", 3));
  EXPECT_LT(key("10.0.0.0/8", 255), key("10.0.0.0/9", 0));  // the mask decides before
  EXPECT_FALSE(key("10.0.0.0/8", 3) < key("10.0.0.0/8", 3));
}

TEST(RouteSortKey, FamilyTakesNoPartInTheOrder) {
  // As IPv6 bytes, ::1 comes before the bytes of 1.0.0.0, although IPv4 addresses order before
  // IPv6 ones everywhere else.
  EXPECT_LT(key("::1/128"), key("1.0.0.0/8"));
  EXPECT_LT(key("2001:db8::/32"), key("2002::/16"));
  // 10.0.0.0/8 and a00::/8 have the same address bytes: neither orders first, yet they are
  // different keys.
  const RouteSortKey v4 = key("10.0.0.0/8"), v6 = key("a00::/8");
  EXPECT_FALSE(v4 < v6);
  EXPECT_FALSE(v6 < v4);
  EXPECT_NE(v4, v6);
}

TEST(NexthopInfo, EqualOnlyWhenTextAndEveryViaAgree) {
  Routing::Via v1, v2;
  v1.hopIs(Plexa::IpGenAddr::fromString("10.0.0.1"));
  v2.hopIs(Plexa::IpGenAddr::fromString("10.0.0.2"));
  Rova::NexthopInfo a, b;
  a.sortedViaIs(v1, " 10.0.0.1");
  b.sortedViaIs(v1, " 10.0.0.1");
  EXPECT_EQ(a, b);
  b.sortedViaIs(v1, " 10.0.0.1 5");
  EXPECT_NE(a, b);
  b.sortedViaIs(v1, " 10.0.0.1");
  b.newSortedVia(v2, " 10.0.0.2");
  EXPECT_NE(a, b);
  b.sortedViaDel(v2);
  EXPECT_EQ(a, b);
  b.nexthopCmdIs(" Null0");
  EXPECT_NE(a, b);
}

}  // namespace
