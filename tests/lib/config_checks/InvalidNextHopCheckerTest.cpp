// A static route's gateway may not be one of the router's own addresses in the route's VRF.
// The golden files of `check ip nexthop` cover primary, secondary, virtual and link-local
// addresses on the example device; here are the VRF links it does not have.
#include <gtest/gtest.h>

#include "lib/config_checks/InvalidNextHop6Checker.h"
#include "lib/config_checks/InvalidNextHopChecker.h"
#include "tests/lib/config_checks/IpConfigBuilder.h"

namespace {

using ConfigChecksTest::Ip4;
using ConfigChecksTest::Ip6;

bool invalid(const Mox::Ptr<Ip::Config>& config, const char* nexthop, L3::VrfName vrf) {
  return Rova::InvalidNextHopChecker().check(config, Plexa::IpAddr::fromString(nexthop), vrf);
}

bool invalid6(const Mox::Ptr<::Ip6::Config>& config, const char* nexthop, L3::VrfName vrf) {
  return Rova::InvalidNextHop6Checker().check(config, Plexa::Ip6Addr::fromString(nexthop), vrf);
}

const L3::VrfName kDefault("default");
const L3::VrfName kRed("red");

TEST(InvalidNextHop, VrfNameMustMatchExactly) {
  Ip4 ip;
  ip.intf("Ethernet1", "10.1.1.1/24", "red");
  ip.intf("Ethernet2", "10.3.3.3/24", std::nullopt);
  EXPECT_TRUE(invalid(ip.config, "10.1.1.1", kRed));
  EXPECT_FALSE(invalid(ip.config, "10.1.1.1", kDefault));
  // A record without a VRF link matches the unset name only.
  EXPECT_TRUE(invalid(ip.config, "10.3.3.3", L3::VrfName()));
  EXPECT_FALSE(invalid(ip.config, "10.3.3.3", kDefault));
}

TEST(InvalidNextHop, NullConfigurationIsValid) {
  EXPECT_FALSE(invalid(nullptr, "10.1.1.1", kDefault));
  EXPECT_FALSE(invalid6(nullptr, "2001:db8::1", kDefault));
}

TEST(InvalidNextHop6, OnlyTheAddressesOfTheRoutesVrf) {
  Ip6 ip;
  Ip6::addr(ip.intf("Ethernet2", "red"), "2001:db8:2::1/64");
  EXPECT_FALSE(invalid6(ip.config, "2001:db8:2::1", kDefault));
  EXPECT_TRUE(invalid6(ip.config, "2001:db8:2::1", kRed));
}

}  // namespace
