#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/mox/Exception.h"
#include "platform/plexa/EthAddr.h"
#include "platform/plexa/IntfId.h"
#include "platform/plexa/Mpls.h"
#include "platform/plexa/RouteDistinguisher.h"
#include "platform/plexa/Vni.h"
#include "platform/plexa/VrfName.h"

namespace {

using namespace Plexa;

std::string rangeMessage(auto&& f) {
  try {
    f();
  } catch (const Mox::RangeException& e) {
    return e.what();
  }
  return "no exception";
}

TEST(IntfId, NamesRoundTripAndOrderNaturally) {
  std::vector<std::string> names = {
      "Vxlan1",      "Ethernet10",    "Ethernet2", "Ethernet2/1",      "Ethernet2/10",
      "Ethernet2/2", "Port-Channel5", "Loopback0", "Management1",      "Vlan100",
      "Vlan20",      "eth0",          "Fabric3",   "DynamicTunnel1.5", "Cpu",
      "Null0",       "Ethernet1/1/4"};
  std::vector<IntfId> ids;
  for (auto& n : names) {
    IntfId id(n);
    EXPECT_EQ(id.stringValue(), n);
    ids.push_back(id);
  }
  std::sort(ids.begin(), ids.end());
  std::vector<std::string> sorted;
  for (auto id : ids)
    sorted.push_back(id.stringValue());
  EXPECT_EQ(sorted,
            (std::vector<std::string>{"Cpu", "DynamicTunnel1.5", "Ethernet1/1/4", "Ethernet2",
                                      "Ethernet2/1", "Ethernet2/2", "Ethernet2/10", "Ethernet10",
                                      "Fabric3", "Loopback0", "Management1", "Null0",
                                      "Port-Channel5", "Vlan20", "Vlan100", "Vxlan1", "eth0"}));
}

TEST(IntfId, EmptyInvalidAndManagement) {
  IntfId empty;
  EXPECT_TRUE(empty.isEmpty());
  EXPECT_EQ(IntfId(""), empty);
  EXPECT_EQ(empty.stringValue(), "");
  EXPECT_FALSE(empty.isValid());
  EXPECT_TRUE(IntfId::invalid().isInvalid());
  EXPECT_FALSE(IntfId::invalid().isValid());
  EXPECT_NE(IntfId::invalid(), empty);
  EXPECT_TRUE(IntfId("Management1").isManagement());
  EXPECT_TRUE(IntfId("Management1/1").isManagement());
  EXPECT_FALSE(IntfId("Ethernet1").isManagement());
  // Odd forms still work, as interned names.
  EXPECT_EQ(IntfId("Ethernet01").stringValue(), "Ethernet01");
  EXPECT_EQ(IntfId("Ethernet1/1.100").stringValue(), "Ethernet1/1.100");
}

TEST(IntfId, DynamicTunnelsEncodeTheirTunnelId) {
  const std::uint64_t tunnelId = (std::uint64_t(3) << 23) | 17;
  const IntfId id = DynamicTunnelIntfId::intfId(tunnelId);
  EXPECT_EQ(id.stringValue(), "DynamicTunnel3.17");
  EXPECT_TRUE(DynamicTunnelIntfId::isDynamicTunnelIntfId(id));
  EXPECT_EQ(DynamicTunnelIntfId::tunnelId(id), tunnelId);
  EXPECT_EQ(DynamicTunnelIntfId::tunnelId(IntfId("Ethernet1")), 0u);
  EXPECT_FALSE(DynamicTunnelIntfId::isDynamicTunnelIntfId(IntfId("Tunnel5")));
  // The widest tunnel id keeps its bits.
  const std::uint64_t widest = (std::uint64_t(0xffff) << 32) | 0xffffffffu;
  EXPECT_EQ(DynamicTunnelIntfId::tunnelId(DynamicTunnelIntfId::intfId(widest)), widest);
}

TEST(MplsLabel, BoundsAndTheNoLabelValue) {
  EXPECT_TRUE(MplsLabel().isNoLabel());
  EXPECT_EQ(MplsLabel().value(), 1048576u);
  EXPECT_TRUE(MplsLabel(1048575).isValidLabel());
  EXPECT_FALSE(MplsLabel(1048576).isValidLabel());
  EXPECT_EQ(MplsLabel(8388608).value(), 8388608u);
  EXPECT_EQ(rangeMessage([] { MplsLabel(8388609); }),
            "MplsLabel::value < MplsLabel::min or > MplsLabel::luWithdraw not allowed");
  EXPECT_EQ(rangeMessage([] { MplsLabel::fromString("9000000"); }),
            "MplsLabel::value < MplsLabel::min or > MplsLabel::luWithdraw not allowed");
  EXPECT_EQ(MplsLabel::fromString("100").value(), 100u);
  EXPECT_THROW(MplsLabel::fromString("x1"), Mox::RangeException);
}

TEST(MplsLabelOperation, TextRoundTrips) {
  for (const char* t : {"", "push 100 200", "swap 16", "pop", "push 3"}) {
    EXPECT_EQ(MplsLabelOperation::fromString(t).stringValue(), t);
  }
  const auto op = MplsLabelOperation::fromString("push 100 200");
  EXPECT_EQ(op.size(), 2u);
  EXPECT_EQ(op.label(1).value(), 200u);
  EXPECT_EQ(op.labelsText(), "100 200");
  EXPECT_EQ(op, MplsLabelOperation(MplsLabelOperation::Action::push, {100, 200}));
  EXPECT_THROW(MplsLabelOperation::fromString("jump 1"), Mox::RangeException);
  EXPECT_THROW(MplsLabelOperation::fromString("pop 1"), Mox::RangeException);
  // Labels one blank apart: a doubled blank names the operation, not an empty label.
  for (const char* t : {"push  3", "push 3 ", "swap 1  2"}) {
    try {
      MplsLabelOperation::fromString(t);
      ADD_FAILURE() << t;
    } catch (const Mox::RangeException& e) {
      EXPECT_EQ(std::string(e.what()), std::string("invalid label operation '") + t + "'") << t;
    }
  }
  MplsLabelOperation full;
  for (int i = 0; i < 12; ++i)
    full.labelPush(MplsLabel(i));
  EXPECT_THROW(full.labelPush(MplsLabel(1)), Mox::RangeException);
}

TEST(EthAddr, AcceptsTheCommonFormsAndWritesColons) {
  const EthAddr e = EthAddr::fromString("00:11:22:aa:BB:cc");
  EXPECT_EQ(e.stringValue(), "00:11:22:aa:bb:cc");
  EXPECT_EQ(EthAddr::fromString("0011.22aa.bbcc"), e);
  EXPECT_EQ(EthAddr::fromString("00-11-22-aa-bb-cc"), e);
  for (const char* bad : {"00:11:22:33:44", "00:11:22:33:44:5g", "00:11-22:33:44:55", ""}) {
    EthAddr x;
    EXPECT_FALSE(EthAddr::parse(bad, x)) << bad;
  }
}

TEST(RouteDistinguisher, AllThreeForms) {
  for (const char* t : {"100:1", "65535:4294967295", "1.2.3.4:7", "4200000000:5", "0:0"}) {
    EXPECT_EQ(RouteDistinguisher::fromString(t).stringValue(), t);
  }
  EXPECT_EQ(RouteDistinguisher::fromString("1.2.3.4:7").type(), 1u);
  EXPECT_EQ(RouteDistinguisher::fromString("4200000000:5").type(), 2u);
  EXPECT_NE(RouteDistinguisher::fromString("100:1"), RouteDistinguisher::fromString("100:2"));
  for (const char* bad : {"100", "100:", ":1", "4200000000:70000", "1.2.3.4:65536", "a:1"}) {
    RouteDistinguisher rd;
    EXPECT_FALSE(RouteDistinguisher::parse(bad, rd)) << bad;
  }
}

TEST(VrfName, HundredBytesAtMost) {
  EXPECT_EQ(L3::VrfName(std::string(100, 'v')).stringValue().size(), 100u);
  EXPECT_EQ(rangeMessage([] { L3::VrfName(std::string(101, 'v')); }),
            "VrfName::bytes > 100 not allowed");
  EXPECT_NE(L3::VrfName(), L3::VrfName::defaultVrf());
  EXPECT_TRUE(L3::VrfName("default").isDefault());
}

TEST(VniOrNone, NumberOrNone) {
  EXPECT_TRUE(Vxlan::VniOrNone().isNone());
  EXPECT_EQ(Vxlan::VniOrNone().stringValue(), "none");
  EXPECT_EQ(Vxlan::VniOrNone::fromString("10").value(), 10u);
  EXPECT_EQ(Vxlan::VniOrNone::fromString("none"), Vxlan::VniOrNone());
  EXPECT_THROW(Vxlan::VniOrNone(16777216), Mox::RangeException);
}

}  // namespace
