// The IPv4 address assignment check, rule by rule, beyond the cases the golden files of
// `check ip address` run on the example device.
#include "lib/config_checks/AddressAssignmentChecker.h"

#include <gtest/gtest.h>

#include "tests/lib/config_checks/IpConfigBuilder.h"

namespace {

using ConfigChecksTest::accepted;
using ConfigChecksTest::Ip4;
using ConfigChecksTest::refused;
using Rova::AddrMatchType;

struct Query {
  const char* intf;
  const char* addr;
  AddrMatchType primaryMatch = AddrMatchType::allowNoMatch;
  AddrMatchType secondaryMatch = AddrMatchType::allowNoMatch;
};

Rova::AddressQueryResult check(const Mox::Ptr<Ip::Config>& config, const Query& q) {
  auto params =
      Rova::addressQueryParamsFactory(config, q.intf, "Management", q.primaryMatch,
                                      q.secondaryMatch, Plexa::IpAddrWithMask::fromString(q.addr));
  return Rova::AddressAssignmentChecker().check(*params);
}

class AddressAssignment : public ::testing::Test {
 protected:
  Ip4 ip;
};

TEST_F(AddressAssignment, NullConfigurationHasNoInterfaces) {
  EXPECT_EQ(check(nullptr, {"Ethernet1", "10.1.1.1/24"}), refused("No interfaces"));
  // The missing configuration is reported before the 0.0.0.0 shortcut, which accepts any
  // length.
  EXPECT_EQ(check(nullptr, {"Ethernet1", "0.0.0.0/0"}), refused("No interfaces"));
  ip.intf("Ethernet1", "10.0.0.1/8");
  EXPECT_EQ(check(ip.config, {"Ethernet2", "0.0.0.0/8"}), accepted());
}

TEST_F(AddressAssignment, HostAddressIsWordedAsAddress) {
  ip.intf("Ethernet1", "10.1.1.5/24");
  EXPECT_EQ(check(ip.config, {"Ethernet2", "10.1.1.1/32"}),
            refused("Address 10.1.1.1 overlaps with existing subnet 10.1.1.0 of interface "
                    "Ethernet1"));
  EXPECT_EQ(check(ip.config, {"Ethernet2", "10.1.1.1/31"}),
            refused("Subnet 10.1.1.0 overlaps with existing subnet 10.1.1.0 of interface "
                    "Ethernet1"));
}

TEST_F(AddressAssignment, ZeroLengthLeavesTheAddressUnchangedInTheMessage) {
  // An existing /0 contains everything and keeps its host bits in the message.
  ip.intf("Ethernet1", "192.0.2.1/0");
  EXPECT_EQ(check(ip.config, {"Ethernet2", "10.1.1.1/24"}),
            refused("Subnet 10.1.1.0 overlaps with existing subnet 192.0.2.1 of interface "
                    "Ethernet1"));

  Ip4 other;
  other.intf("Ethernet1", "172.16.5.5/30");
  EXPECT_EQ(check(other.config, {"Ethernet2", "10.1.1.1/0"}),
            refused("Subnet 10.1.1.1 overlaps with existing subnet 172.16.5.4 of interface "
                    "Ethernet1"));
}

TEST_F(AddressAssignment, EqualAddressIsAConflictBeforeAnOverlap) {
  ip.intf("Ethernet2", "10.1.1.1/24");
  EXPECT_EQ(check(ip.config, {"Ethernet3", "10.1.1.1/24"}),
            refused("Address 10.1.1.1 is already assigned to interface Ethernet2"));
  EXPECT_EQ(check(ip.config, {"Ethernet3", "10.1.1.1/16"}),
            refused("Address 10.1.1.1 is already assigned to interface Ethernet2"));
  // On another interface the match rules do not apply.
  EXPECT_EQ(check(ip.config, {"Ethernet3", "10.1.1.1/24", AddrMatchType::allowAddressMatch,
                              AddrMatchType::allowAddressMatch}),
            refused("Address 10.1.1.1 is already assigned to interface Ethernet2"));
}

TEST_F(AddressAssignment, InterfaceWithoutRecordCountsAsDefault) {
  ip.intf("Ethernet3", "10.1.1.1/24", "red");
  ip.intf("Ethernet4", "10.2.2.2/24", std::nullopt);
  EXPECT_EQ(check(ip.config, {"Ethernet9", "10.1.1.1/24"}), accepted());
  EXPECT_EQ(check(ip.config, {"Ethernet9", "10.2.2.2/24"}), accepted());
  ip.intf("Ethernet2", "10.1.1.7/24");
  EXPECT_EQ(check(ip.config, {"Ethernet9", "10.1.1.1/24"}),
            refused("Subnet 10.1.1.0 overlaps with existing subnet 10.1.1.0 of interface "
                    "Ethernet2"));
}

TEST_F(AddressAssignment, UnlinkedRecordsMeetOnlyUnlinkedOnes) {
  ip.intf("Ethernet1", "10.1.1.1/24");
  ip.intf("Ethernet4", "", std::nullopt);
  EXPECT_EQ(check(ip.config, {"Ethernet4", "10.1.1.1/24"}), accepted());
  ip.intf("Ethernet6", "10.1.1.1/24", std::nullopt);
  EXPECT_EQ(check(ip.config, {"Ethernet4", "10.1.1.1/24"}),
            refused("Address 10.1.1.1 is already assigned to interface Ethernet6"));
}

TEST_F(AddressAssignment, PrimaryMatchRulesOnTheSameInterface) {
  ip.intf("Ethernet1", "10.1.1.1/24");
  const char* conflict = "Address 10.1.1.1 is already assigned to interface Ethernet1";
  EXPECT_EQ(check(ip.config, {"Ethernet1", "10.1.1.1/24", AddrMatchType::allowNoMatch}),
            refused(conflict));
  EXPECT_EQ(check(ip.config, {"Ethernet1", "10.1.1.1/24", AddrMatchType::allowExactMatch}),
            accepted());
  EXPECT_EQ(check(ip.config, {"Ethernet1", "10.1.1.1/16", AddrMatchType::allowExactMatch}),
            refused(conflict));
  EXPECT_EQ(check(ip.config, {"Ethernet1", "10.1.1.1/16", AddrMatchType::allowAddressMatch}),
            accepted());
  // The secondary rule does not judge the primary.
  EXPECT_EQ(check(ip.config, {"Ethernet1", "10.1.1.1/24", AddrMatchType::allowNoMatch,
                              AddrMatchType::allowAddressMatch}),
            refused(conflict));
  // An interface never overlaps itself.
  EXPECT_EQ(check(ip.config, {"Ethernet1", "10.1.1.2/24"}), accepted());
}

TEST_F(AddressAssignment, SecondaryMatchRulesOnTheSameInterface) {
  for (const bool isVirtual : {false, true}) {
    SCOPED_TRACE(isVirtual ? "virtual secondary" : "secondary");
    Ip4 cfg;
    auto& e = cfg.intf("Ethernet1", "10.9.9.9/24");
    if (isVirtual) {
      Ip4::virtualSecondary(e, "10.2.2.2/24");
    } else {
      Ip4::secondary(e, "10.2.2.2/24");
    }
    const char* conflict = "Address 10.2.2.2 is already assigned to interface Ethernet1";
    auto query = [&](const char* addr, AddrMatchType secondary) {
      // The loosest primary rule, so that only the secondary rule can refuse.
      return check(cfg.config, {"Ethernet1", addr, AddrMatchType::allowAddressMatch, secondary});
    };
    EXPECT_EQ(query("10.2.2.2/24", AddrMatchType::allowNoMatch), refused(conflict));
    EXPECT_EQ(query("10.2.2.2/24", AddrMatchType::allowExactMatch), accepted());
    EXPECT_EQ(query("10.2.2.2/16", AddrMatchType::allowExactMatch), refused(conflict));
    EXPECT_EQ(query("10.2.2.2/16", AddrMatchType::allowAddressMatch), accepted());
    EXPECT_EQ(check(cfg.config, {"Ethernet2", "10.2.2.2/24", AddrMatchType::allowAddressMatch,
                                 AddrMatchType::allowAddressMatch}),
              refused(conflict));
    EXPECT_EQ(check(cfg.config, {"Ethernet2", "10.2.2.200/25"}),
              refused("Subnet 10.2.2.128 overlaps with existing subnet 10.2.2.0 of interface "
                      "Ethernet1"));
  }
}

TEST_F(AddressAssignment, VirtualPrimaryStandsInOnlyForAnUnsetPrimary) {
  auto& e = ip.intf("Ethernet1", "");
  // An interface without any address is not a /0 that contains everything.
  EXPECT_EQ(check(ip.config, {"Ethernet2", "10.1.1.1/24"}), accepted());
  e.virtualAddrWithMaskIs(Plexa::IpAddrWithMask::fromString("10.1.1.1/24"));
  EXPECT_EQ(check(ip.config, {"Ethernet2", "10.1.1.1/24"}),
            refused("Address 10.1.1.1 is already assigned to interface Ethernet1"));
  EXPECT_EQ(check(ip.config, {"Ethernet2", "10.1.1.9/28"}),
            refused("Subnet 10.1.1.0 overlaps with existing subnet 10.1.1.0 of interface "
                    "Ethernet1"));
  e.addrWithMaskIs(Plexa::IpAddrWithMask::fromString("10.5.5.5/24"));
  EXPECT_EQ(check(ip.config, {"Ethernet2", "10.1.1.1/24"}), accepted());
}

// Management interfaces may overlap each other (the golden files show it on the example
// device), but only a management query is let off, and only against other management
// interfaces.
TEST_F(AddressAssignment, OnlyManagementMayOverlapManagement) {
  ip.intf("Management1", "10.0.0.1/24");
  EXPECT_EQ(check(ip.config, {"Ethernet1", "10.0.0.2/24"}),
            refused("Subnet 10.0.0.0 overlaps with existing subnet 10.0.0.0 of interface "
                    "Management1"));
  ip.intf("Ethernet1", "10.5.0.1/16");
  EXPECT_EQ(check(ip.config, {"Management2", "10.5.1.1/24"}),
            refused("Subnet 10.5.1.0 overlaps with existing subnet 10.5.0.0 of interface "
                    "Ethernet1"));
}

}  // namespace
