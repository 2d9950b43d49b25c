// Address edits of both families: what the configuration holds after each, that the status
// always says the same, and that a refused edit changes neither.
#include "lib/config_checks/IntfAddressEditor.h"

#include <gtest/gtest.h>

#include <string>

#include "lib/registry/TypeRegistry.h"
#include "tests/lib/config_checks/IpConfigBuilder.h"

namespace {

using Plexa::IntfId;

class IntfAddressEditing : public testing::Test {
 protected:
  IntfAddressEditing() {
    // Ethernet5 is an interface of VRF red that has no IP configuration yet.
    auto e5 = Mox::makePtr<Interface::IntfConfig>(IntfId("Ethernet5"));
    e5->vrfIs(L3::VrfName("red"));
    intfs->intfConfigIs(e5->intfId(), e5);
    ip4.intf("Ethernet1", "10.1.1.1/24");
    ConfigChecksTest::Ip4::virtualSecondary(ip4.intf("Ethernet2", "10.2.2.1/24"), "10.2.3.1/24");
    ip6.intf("Ethernet1");
  }

  Rova::IntfAddressEditor editor() {
    return Rova::IntfAddressEditor(ip4.config, ipStatus, ip6.config, ip6Status, intfs,
                                   Mox::String8("Management"));
  }
  std::string add(const char* intf, const char* addr, bool secondary = false) {
    return editor().addAddress(IntfId(intf), addr, secondary).stringValue();
  }
  std::string remove(const char* intf, const char* addr, bool secondary = false) {
    return editor().removeAddress(IntfId(intf), addr, secondary).stringValue();
  }

  // "primary [secondaries...]" of the IPv4 configuration and of the status, which must agree.
  std::string config4(const char* intf) const {
    auto r = ip4.config->intfConfig(IntfId(intf));
    if (!r) return "none";
    std::string text = r->addrWithMask().stringValue();
    for (const auto& a : r->secondaryWithMask())
      text += " " + a.stringValue();
    return text;
  }
  std::string status4(const char* intf) const {
    auto s = ipStatus->ipIntfStatus(IntfId(intf));
    if (!s) return "none";
    std::string text = s->activeAddrWithMask().stringValue();
    for (const auto& a : s->activeSecondaryWithMask())
      text += " " + a.stringValue();
    return text;
  }
  std::string config6(const char* intf) const {
    auto r = ip6.config->intf(IntfId(intf));
    if (!r) return "none";
    std::string text;
    for (const auto& [a, info] : r->addr())
      text += (text.empty() ? "" : " ") + a.stringValue();
    return text;
  }
  std::string status6(const char* intf) const {
    auto s = ip6Status->intf(IntfId(intf));
    if (!s) return "none";
    std::string text;
    for (const auto& a : s->addr())
      text += (text.empty() ? "" : " ") + a.stringValue();
    return text;
  }

  ConfigChecksTest::Ip4 ip4;
  ConfigChecksTest::Ip6 ip6;
  Mox::Ptr<Ip::Status> ipStatus = Mox::makePtr<Ip::Status>();
  Mox::Ptr<Ip6::Status> ip6Status = Mox::makePtr<Ip6::Status>();
  Mox::Ptr<Interface::AllIntfConfigDir> intfs = Mox::makePtr<Interface::AllIntfConfigDir>();
};

TEST_F(IntfAddressEditing, Ipv4PrimaryAndSecondariesKeepTheStatusInStep) {
  EXPECT_EQ(add("Ethernet1", "10.1.1.1/25"), "");  // the primary again, another mask
  EXPECT_EQ(add("Ethernet1", "10.5.5.1/24", true), "");
  EXPECT_EQ(add("Ethernet1", "10.5.5.1/24", true), "");  // once more is no change
  EXPECT_EQ(config4("Ethernet1"), "10.1.1.1/25 10.5.5.1/24");
  EXPECT_EQ(status4("Ethernet1"), config4("Ethernet1"));

  EXPECT_EQ(remove("Ethernet1", "10.5.5.1/24", true), "");
  EXPECT_EQ(config4("Ethernet1"), "10.1.1.1/25");
  EXPECT_EQ(status4("Ethernet1"), "10.1.1.1/25");
  EXPECT_EQ(remove("Ethernet1", "10.1.1.1/25"), "");
  EXPECT_EQ(config4("Ethernet1"), "0.0.0.0/0");
  EXPECT_EQ(status4("Ethernet1"), "0.0.0.0/0");
}

TEST_F(IntfAddressEditing, Ipv4StatusCountsTheVirtualAddressesAsSecondaries) {
  EXPECT_EQ(add("Ethernet2", "10.2.4.1/24", true), "");
  EXPECT_EQ(status4("Ethernet2"), "10.2.2.1/24 10.2.3.1/24 10.2.4.1/24");
  EXPECT_TRUE(editor().removeAddresses(IntfId("Ethernet2"), false));
  EXPECT_EQ(config4("Ethernet2"), "0.0.0.0/0");
  // The virtual address is not the edit's to remove, so the status still has it.
  EXPECT_EQ(status4("Ethernet2"), "0.0.0.0/0 10.2.3.1/24");
}

TEST_F(IntfAddressEditing, Ipv6AddressesKeepTheStatusInStep) {
  EXPECT_EQ(add("Ethernet1", "2001:db8:1::1/64"), "");
  EXPECT_EQ(add("Ethernet1", "2001:db8:2::1/64"), "");
  EXPECT_EQ(config6("Ethernet1"), "2001:db8:1::1/64 2001:db8:2::1/64");
  EXPECT_EQ(status6("Ethernet1"), config6("Ethernet1"));
  EXPECT_EQ(status4("Ethernet1"), "none");  // the other family is not touched

  EXPECT_EQ(remove("Ethernet1", "2001:db8:1::1/64"), "");
  EXPECT_EQ(status6("Ethernet1"), "2001:db8:2::1/64");
  EXPECT_TRUE(editor().removeAddresses(IntfId("Ethernet1"), true));
  EXPECT_EQ(config6("Ethernet1"), "");
  EXPECT_EQ(status6("Ethernet1"), "");
  EXPECT_EQ(config4("Ethernet1"), "10.1.1.1/24");
}

// A link-local address is taken only with its keyword (the `secondary` flag of IPv6), and
// then on any number of interfaces: it belongs to its link.
TEST_F(IntfAddressEditing, ALinkLocalAddressNeedsItsKeyword) {
  EXPECT_EQ(add("Ethernet1", "fe80::1/64"),
            "'link-local' keyword must be used to configure a link local address.");
  EXPECT_EQ(add("Ethernet1", "fe80::1/64", true), "");
  EXPECT_EQ(add("Ethernet2", "fe80::1/64", true), "");
  EXPECT_EQ(config6("Ethernet2"), "fe80::1/64");
  EXPECT_EQ(status6("Ethernet2"), "fe80::1/64");
  EXPECT_EQ(add("Ethernet1", "2001:db8:9::1/64", true),
            "Address 2001:db8:9::1/64 is not a link-local address");
  EXPECT_EQ(config6("Ethernet1"), "fe80::1/64");
}

TEST_F(IntfAddressEditing, ANewInterfaceTakesItsVrfFromTheInterfaceConfiguration) {
  EXPECT_EQ(add("Ethernet5", "10.8.8.1/24"), "");
  EXPECT_EQ(add("Ethernet5", "2001:db8:8::1/64"), "");
  EXPECT_EQ(add("Ethernet6", "10.9.9.1/24"), "");  // unknown anywhere: the default VRF
  EXPECT_EQ(ip4.config->intfConfig(IntfId("Ethernet5"))->vrf(), L3::VrfName("red"));
  EXPECT_EQ(ip6.config->intf(IntfId("Ethernet5"))->vrf(), L3::VrfName("red"));
  EXPECT_EQ(ip4.config->intfConfig(IntfId("Ethernet6"))->vrf(), L3::VrfName::defaultVrf());
  EXPECT_EQ(status4("Ethernet5"), "10.8.8.1/24");
  EXPECT_EQ(status6("Ethernet5"), "2001:db8:8::1/64");
}

// Ethernet5 is in VRF red before it has an address: its first address is judged there, not
// against the default VRF's subnets; and a refused first address leaves no record behind.
TEST_F(IntfAddressEditing, AFirstAddressIsJudgedInTheInterfacesVrf) {
  EXPECT_EQ(add("Ethernet5", "10.1.1.1/24"), "");
  EXPECT_EQ(ip4.config->intfConfig(IntfId("Ethernet5"))->vrf(), L3::VrfName("red"));
  auto e7 = Mox::makePtr<Interface::IntfConfig>(IntfId("Ethernet7"));
  e7->vrfIs(L3::VrfName("red"));
  intfs->intfConfigIs(e7->intfId(), e7);
  EXPECT_EQ(add("Ethernet7", "10.1.1.1/24"),
            "Address 10.1.1.1 is already assigned to interface Ethernet5");
  EXPECT_EQ(config4("Ethernet7"), "none");
  EXPECT_EQ(status4("Ethernet7"), "none");
}

TEST_F(IntfAddressEditing, ARefusedEditChangesNothing) {
  // The checks' own verdicts: an overlap with another interface, a secondary equal to the
  // primary.
  EXPECT_EQ(add("Ethernet3", "10.1.1.9/24"),
            "Subnet 10.1.1.0 overlaps with existing subnet 10.1.1.0 of interface Ethernet1");
  EXPECT_FALSE(add("Ethernet1", "10.1.1.1/24", true).empty());
  EXPECT_EQ(add("Ethernet1", "fe80::1/64"),
            "'link-local' keyword must be used to configure a link local address.");
  EXPECT_EQ(config4("Ethernet3"), "none");
  EXPECT_EQ(config4("Ethernet1"), "10.1.1.1/24");
  EXPECT_EQ(config6("Ethernet1"), "");
  EXPECT_EQ(ipStatus->ipIntfStatuss(), 0u);
  EXPECT_EQ(ip6Status->intfs(), 0u);

  // Removal names what is assigned, as it is assigned.
  EXPECT_EQ(remove("Ethernet1", "10.1.1.1/24", true),
            "Address 10.1.1.1/24 is not assigned to interface Ethernet1");
  EXPECT_EQ(remove("Ethernet1", "10.1.1.1/25"),
            "Address 10.1.1.1/25 is not assigned to interface Ethernet1");
  EXPECT_EQ(remove("Ethernet9", "2001:db8::1/64"),
            "Address 2001:db8::1/64 is not assigned to interface Ethernet9");
  EXPECT_EQ(config4("Ethernet1"), "10.1.1.1/24");
  EXPECT_FALSE(editor().removeAddresses(IntfId("Ethernet9"), false));
  EXPECT_EQ(ipStatus->ipIntfStatuss(), 0u);
}

TEST_F(IntfAddressEditing, AStateWithoutStatusStillHasItsConfigurationEdited) {
  ipStatus = nullptr;
  ip6Status = nullptr;
  EXPECT_EQ(add("Ethernet1", "10.5.5.1/24", true), "");
  EXPECT_EQ(add("Ethernet1", "2001:db8:1::1/64"), "");
  EXPECT_EQ(config4("Ethernet1"), "10.1.1.1/24 10.5.5.1/24");
  EXPECT_EQ(config6("Ethernet1"), "2001:db8:1::1/64");
}

TEST_F(IntfAddressEditing, ThroughTheRegistry) {
  const auto& reg = Rova::TypeRegistry::instance();
  EXPECT_EQ(reg.find("Rova::IntfAddressEditor"), nullptr);
  Rova::Value e =
      reg.construct("Rova::IntfAddressEditor", {{"ipConfig", Rova::toValue(ip4.config)},
                                                {"ipStatus", Rova::toValue(ipStatus)},
                                                {"ip6Config", Rova::Value()},
                                                {"ip6Status", Rova::Value()},
                                                {"allIntfConfig", Rova::toValue(intfs)},
                                                {"mgmtPrefix", Rova::Value("Management")}});
  const Rova::Value args[] = {Rova::Value(IntfId("Ethernet1")), Rova::Value("10.7.7.1/24"),
                              Rova::Value(true)};
  EXPECT_EQ(reg.call(e, "addAddress", args), Rova::Value(""));
  EXPECT_EQ(status4("Ethernet1"), "10.1.1.1/24 10.7.7.1/24");
}

}  // namespace
