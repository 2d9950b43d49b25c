// The IPv6 address assignment check, rule by rule, beyond the golden files of
// `check ipv6 address`.
#include "lib/config_checks/Address6AssignmentChecker.h"

#include <gtest/gtest.h>

#include "tests/lib/config_checks/IpConfigBuilder.h"

namespace {

using ConfigChecksTest::accepted;
using ConfigChecksTest::Ip6;
using ConfigChecksTest::refused;

Rova::AddressQueryResult check(const Mox::Ptr<::Ip6::Config>& config, const char* intf,
                               const char* addr) {
  auto params = Rova::address6QueryParamsFactory(config, intf, "Management",
                                                 Plexa::Ip6AddrWithMask::fromString(addr));
  return Rova::Address6AssignmentChecker().check(*params);
}

class Address6Assignment : public ::testing::Test {
 protected:
  Ip6 ip;
};

TEST_F(Address6Assignment, LinkLocalNeedsItsKeyword) {
  const auto msg = refused("'link-local' keyword must be used to configure a link local address.");
  EXPECT_EQ(check(ip.config, "Ethernet1", "fe80::1/64"), msg);
  EXPECT_EQ(check(ip.config, "Ethernet1", "febf:ffff::1/10"), msg);
  EXPECT_EQ(check(nullptr, "Ethernet1", "fe80::1/64"), msg);
  EXPECT_EQ(check(ip.config, "Ethernet1", "fec0::1/64"), accepted());
  // No configuration: nothing to clash with.
  EXPECT_EQ(check(nullptr, "Ethernet1", "2001:db8::1/64"), accepted());
}

TEST_F(Address6Assignment, SameInterfaceRefusesOnlyAnotherLength) {
  auto& e = ip.intf("Ethernet1");
  Ip6::addr(e, "2001:db8::1/64");
  EXPECT_EQ(check(ip.config, "Ethernet1", "2001:db8::1/64"), accepted());
  EXPECT_EQ(check(ip.config, "Ethernet1", "2001:db8::1/48"),
            refused("Address 2001:db8::1/64 is already assigned to this interface"));
  // An interface never overlaps itself.
  EXPECT_EQ(check(ip.config, "Ethernet1", "2001:db8::2/64"), accepted());
}

// Unlike IPv4's, the message says "Subnet" even of a single address.
TEST_F(Address6Assignment, AHostAddressOverlapIsWordedAsASubnet) {
  Ip6::addr(ip.intf("Ethernet2"), "2001:db8::1/48");
  EXPECT_EQ(check(ip.config, "Ethernet1", "2001:db8::5/128"),
            refused("Subnet 2001:db8::5/128 overlaps with existing subnet 2001:db8::/48 of "
                    "interface Ethernet2"));
}

TEST_F(Address6Assignment, LinkLocalOfAnotherInterfaceIsIgnored) {
  auto& e = ip.intf("Ethernet2");
  Ip6::addr(e, "fe80::1/64");
  // f000::/4 contains fe80::/10, yet another interface's link-local never clashes.
  EXPECT_EQ(check(ip.config, "Ethernet1", "f000::1/4"), accepted());
  Ip6::addr(e, "fe00::1/64");
  EXPECT_EQ(check(ip.config, "Ethernet1", "f000::1/4"),
            refused("Subnet f000::/4 overlaps with existing subnet fe00::/64 of interface "
                    "Ethernet2"));
}

TEST_F(Address6Assignment, VrfScoping) {
  Ip6::addr(ip.intf("Ethernet2", "red"), "2001:db8::1/64");
  Ip6::addr(ip.intf("Ethernet3", std::nullopt), "2001:db8:1::1/64");
  // Ethernet9 has no record: it counts as VRF "default".
  EXPECT_EQ(check(ip.config, "Ethernet9", "2001:db8::1/64"), accepted());
  EXPECT_EQ(check(ip.config, "Ethernet9", "2001:db8:1::1/64"), accepted());
  ip.intf("Ethernet4", "red");
  EXPECT_EQ(check(ip.config, "Ethernet4", "2001:db8::1/64"),
            refused("Address 2001:db8::1 is already assigned to interface Ethernet2"));
  ip.intf("Ethernet5", std::nullopt);
  EXPECT_EQ(check(ip.config, "Ethernet5", "2001:db8:1::1/64"),
            refused("Address 2001:db8:1::1 is already assigned to interface Ethernet3"));
}

TEST_F(Address6Assignment, ManagementInterfacesMayOverlapButNeverShareAnAddress) {
  Ip6::addr(ip.intf("Management1"), "2001:db8::1/64");
  EXPECT_EQ(check(ip.config, "Management2", "2001:db8::2/64"), accepted());
  EXPECT_EQ(check(ip.config, "Management2", "2001:db8::1/64"),
            refused("Address 2001:db8::1 is already assigned to interface Management1"));
  EXPECT_EQ(check(ip.config, "Ethernet1", "2001:db8::2/64"),
            refused("Subnet 2001:db8::/64 overlaps with existing subnet 2001:db8::/64 of "
                    "interface Management1"));
}

}  // namespace
