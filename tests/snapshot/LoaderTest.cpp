// The example device, loaded: each kind of state is where StatePaths.h says, with what the
// document says.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/brine/Fib.h"
#include "platform/brine/FlexCounters.h"
#include "platform/brine/KernelRoutes.h"
#include "platform/brine/Neighbor.h"
#include "platform/brine/NexthopGroupTables.h"
#include "platform/brine/SrTePolicy.h"
#include "platform/brine/Tunnel.h"
#include "platform/mox/Dir.h"
#include "platform/state/Interface.h"
#include "platform/state/Ip.h"
#include "platform/state/NexthopGroupConfig.h"
#include "platform/state/RoutingConfig.h"
#include "platform/state/RoutingHardware.h"
#include "snapshot/DeviceInfo.h"
#include "snapshot/Refs.h"
#include "snapshot/Snapshot.h"
#include "snapshot/StatePaths.h"

namespace {

namespace p = Snapshot::paths;
using Brine::Fib::AdjType;
using Brine::Fib::FecId;
using Plexa::IntfId;

class Leaf1 : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { em_ = Snapshot::load(Snapshot::embeddedExample()).detach(); }
  static void TearDownTestSuite() { Mox::Ptr<Statum::EntityManager>(em_, false); }

  template <class T>
  static Mox::Ptr<T const> at(const std::string& path) {
    return em_->mount<T>(path);
  }
  template <class T>
  static Mox::Ptr<T const> vrf(const std::string& name, const char* leaf) {
    return em_->mount<T>(p::vrfPath(name, leaf));
  }
  static Brine::Fib::Route route4(const char* vrfName, const char* prefix) {
    return vrf<Brine::Fib::RouteStatus>(vrfName, p::kFibRoute)
        ->lookup(Plexa::Prefix::fromString(prefix));
  }
  static Brine::Fib::Fec fec4(const char* vrfName, const char* id) {
    FecId fecId;
    EXPECT_EQ(Snapshot::parseFecRef(id, fecId), nullptr);
    return vrf<Brine::Fib::ForwardingStatus>(vrfName, p::kFibFec)->lookup(fecId);
  }

  static Statum::EntityManager* em_;
};
Statum::EntityManager* Leaf1::em_ = nullptr;

TEST_F(Leaf1, EveryPathIsMountedWithItsType) {
  at<Snapshot::DeviceInfo>(p::kDevice);
  at<Interface::AllIntfConfigDir>(p::kIntfConfig);
  at<Interface::AllIntfStatusDir>(p::kIntfStatus);
  at<Ip::Config>(p::kIpConfig);
  at<Ip::Status>(p::kIpStatus);
  at<Ip6::Config>(p::kIp6Config);
  at<Ip6::Status>(p::kIp6Status);
  at<Arp::Table::Status>(p::kArpStatus);
  at<Vrf::VrfIdMap::Status>(p::kVrfIdMap);
  at<Tunnel::TunnelFib::MplsTunnelFib>(p::kTunnelFib);
  at<Mox::Dir>(p::kTunnelTables);
  at<Tunnel::TunnelTable::EvpnVxlanTunnelTable>(p::kEvpnVxlan);
  at<SrTePolicy::PolicyStatus>(p::kSrTePolicy);
  at<Routing::NexthopGroup::Config>(p::kNhgConfig);
  at<NexthopGroup::EntryStatus>(p::kNhgEntryStatus);
  at<Routing::Hardware::NexthopGroupStatus>(p::kNhgHwStatus);
  at<Routing::Hardware::Status>(p::kRoutingHw);
  at<Routing6::Hardware::Status>(p::kRouting6Hw);
  at<Mox::Dir>(p::kRdInputDir);
  at<Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable>(p::kCounterKeyTable);
  at<FlexCounters::CounterTable>(p::kCounterTable);
  at<FlexCounters::CounterTable>(p::kSnapshotCounterTable);
  // blue has no IPv6 at all, yet readers find its IPv6 tables (empty).
  for (const char* name : {"default", "red", "blue"}) {
    SCOPED_TRACE(name);
    vrf<Routing::ConfigGen>(name, p::kRoutingConfig);
    vrf<Routing::ConfigGen>(name, p::kRouting6Config);
    vrf<Brine::Fib::RouteStatus>(name, p::kFibRoute);
    vrf<Brine::Fib::ForwardingStatus>(name, p::kFibFec);
    vrf<Brine::Fib6::RouteStatus>(name, p::kFib6Route);
    vrf<Brine::Fib6::ForwardingStatus>(name, p::kFib6Fec);
    vrf<Routing::Hardware::VrfStatus>(name, p::kHwVrfStatus);
    vrf<Brine::KernelUnprogrammedRoute::UnprogrammedRoute>(name, p::kKernelUnprogrammed);
    vrf<Brine::KernelUnprogrammedRoute::UnprogrammedRoute>(name, p::kKernelUnprogrammed6);
  }
  EXPECT_TRUE(vrf<Brine::Fib6::RouteStatus>("blue", p::kFib6Route)->empty());
  EXPECT_FALSE(vrf<Routing::ConfigGen>("blue", p::kRouting6Config)->routingEnabled());
  EXPECT_TRUE(vrf<Routing::ConfigGen>("blue", p::kRoutingConfig)->routingEnabled());
  EXPECT_EQ(at<Snapshot::DeviceInfo>(p::kDevice)->hostname(), "leaf1");
}

TEST_F(Leaf1, VrfIdsMapToNames) {
  auto ids = at<Vrf::VrfIdMap::Status>(p::kVrfIdMap);
  EXPECT_EQ(ids->size(), 3u);
  EXPECT_EQ(ids->vrfName(0).stringValue(), "default");
  EXPECT_EQ(ids->vrfName(1).stringValue(), "red");
  EXPECT_EQ(ids->vrfName(2).stringValue(), "blue");
}

TEST_F(Leaf1, RoutesCarryTheirTypeFecAndProtocolPreference) {
  const auto r = route4("default", "10.5.0.0/24");
  EXPECT_EQ(r.routeType, Routing::Fib::RouteType::ospfIntraArea);
  EXPECT_EQ(r.fecId, FecId(106));
  EXPECT_EQ(r.metric, 20u);
  EXPECT_EQ(r.preference, 110);  // OSPF's, as the document leaves it out
  EXPECT_TRUE(r.hardwareProgrammed);
  EXPECT_EQ(route4("default", "0.0.0.0/0").preference, 200);
  EXPECT_EQ(route4("default", "10.2.3.0/24").preference, 0);

  // Each FEC reference form lands as its adjacency type.
  EXPECT_TRUE(Brine::Fib::isNexthopGroupFec(route4("default", "10.70.0.0/24").fecId));
  EXPECT_EQ(Brine::Fib::nexthopGroupIdFromFec(route4("default", "10.70.0.0/24").fecId), 1u);
  EXPECT_TRUE(Brine::Fib::isSrTePolicyFec(route4("default", "10.60.0.0/16").fecId));
  // An IPv4 route over IPv6 next hops: its FEC is in the IPv6 table of the same VRF.
  const FecId v6 = route4("default", "10.100.0.0/16").fecId;
  EXPECT_TRUE(Brine::Fib::isV6FecId(v6));
  const auto fec6 = vrf<Brine::Fib6::ForwardingStatus>("default", p::kFib6Fec)->lookup(v6);
  ASSERT_EQ(fec6.via.size(), 2u);
  EXPECT_TRUE(fec6.via[0].hop.isLinkLocal());
  // A route may name a FEC that is not there.
  const auto missing = route4("default", "10.200.0.0/16").fecId;
  EXPECT_EQ(missing, FecId(999));
  EXPECT_FALSE(vrf<Brine::Fib::ForwardingStatus>("default", p::kFibFec)->contains(missing));

  const auto policy = at<SrTePolicy::PolicyStatus>(p::kSrTePolicy)
                          ->fecIdToPolicyKey(route4("default", "10.60.0.0/16").fecId);
  EXPECT_EQ(policy.endpoint.stringValue(), "10.0.0.13");
  EXPECT_EQ(policy.color, 100u);
}

TEST_F(Leaf1, FecsKeepViasInOrderWithWeightsLabelsAndBackups) {
  const auto weighted = fec4("default", "101");
  ASSERT_EQ(weighted.via.size(), 2u);
  EXPECT_EQ(weighted.via[0].weight, 1);
  EXPECT_EQ(weighted.via[1].weight, 3);
  EXPECT_EQ(weighted.via[1].hop.stringValue(), "10.1.2.1");
  EXPECT_EQ(weighted.via[1].intfId, IntfId("Ethernet2"));
  EXPECT_TRUE(weighted.via[0].mplsLabel().isNoLabel());

  const auto backup = fec4("default", "106");
  EXPECT_EQ(backup.backupViaIndex().value(), 1);
  EXPECT_EQ(backup.via.size(), 2u);
  EXPECT_EQ(fec4("default", "100").backupViaIndexValue, 0);

  EXPECT_EQ(fec4("default", "121").via[0].mplsLabel().value(), 3000u);
  // FEC ids are per VRF: "14" is Vlan100 in default and Ethernet4 in red.
  EXPECT_EQ(fec4("default", "14").via[0].intfId, IntfId("Vlan100"));
  EXPECT_EQ(fec4("red", "14").via[0].intfId, IntfId("Ethernet4"));
}

TEST_F(Leaf1, TunnelViasLeaveThroughTheTunnelsInterface) {
  using Tunnel::TunnelTable::TunnelId;
  const TunnelId ldp1(std::uint64_t(Tunnel::TunnelTable::TunnelType::ldpTunnel), 1);
  const auto via = fec4("default", "103").via[0];
  EXPECT_EQ(via.tunnelId(), ldp1);
  EXPECT_EQ(Plexa::DynamicTunnelIntfId::tunnelId(via.intfId), ldp1.value());
  EXPECT_TRUE(fec4("default", "104").via[0].mplsLabel().value() == 100052u);

  auto fib = at<Tunnel::TunnelFib::MplsTunnelFib>(p::kTunnelFib);
  const auto ldp = fib->lookup(ldp1);
  ASSERT_EQ(ldp.tunnelVia.size(), 2u);
  EXPECT_EQ(ldp.tunnelVia[1].intfId, IntfId("Ethernet2"));
  EXPECT_EQ(ldp.tunnelVia[1].labelOp.stringValue(), "push 16012");
  // bgpLu:1 rides on ldp:1.
  const auto lu =
      fib->lookup(TunnelId(std::uint64_t(Tunnel::TunnelTable::TunnelType::bgpLuTunnel), 1));
  ASSERT_EQ(lu.tunnelVia.size(), 1u);
  EXPECT_EQ(Plexa::DynamicTunnelIntfId::tunnelId(lu.tunnelVia[0].intfId), ldp1.value());
  EXPECT_EQ(fib->lookup(TunnelId(std::uint64_t(Tunnel::TunnelTable::TunnelType::srTunnel), 1))
                .tunnelVia[0]
                .labelOp.size(),
            2u);

  auto dir = at<Mox::Dir>(p::kTunnelTables);
  auto ldpTable = dir->entity<Tunnel::TunnelTable::LdpTunnelTable>("ldp");
  ASSERT_NE(ldpTable, nullptr);
  EXPECT_EQ(ldpTable->lookup(ldp1).endpoint.stringValue(), "10.0.0.12/32");
  EXPECT_NE(dir->entity<Tunnel::TunnelTable::StaticTunnelTable>("static"), nullptr);
  EXPECT_EQ(at<Tunnel::TunnelTable::EvpnVxlanTunnelTable>(p::kEvpnVxlan)
                ->entry(IntfId("Vxlan1"))
                .vni.value(),
            50001u);
}

TEST_F(Leaf1, ProgrammingStateIsCountedPerVrfAndFamily) {
  auto hw = vrf<Routing::Hardware::VrfStatus>("default", p::kHwVrfStatus);
  EXPECT_EQ(hw->vrfName().stringValue(), "default");
  EXPECT_EQ(hw->unprogrammedRouteCount(), 2u);
  EXPECT_EQ(hw->unprogrammedRoute6Count(), 1u);
  EXPECT_FALSE(route4("default", "10.4.0.0/16").hardwareProgrammed);
  EXPECT_EQ(vrf<Routing::Hardware::VrfStatus>("red", p::kHwVrfStatus)->unprogrammedRouteCount(),
            1u);
  EXPECT_EQ(vrf<Routing::Hardware::VrfStatus>("blue", p::kHwVrfStatus)->unprogrammedRouteCount(),
            0u);

  auto kernel =
      vrf<Brine::KernelUnprogrammedRoute::UnprogrammedRoute>("default", p::kKernelUnprogrammed);
  EXPECT_EQ(kernel->size(), 1u);
  EXPECT_TRUE(kernel->contains(Plexa::IpGenPrefix::fromString("10.6.8.0/22")));
  EXPECT_TRUE(
      vrf<Brine::KernelUnprogrammedRoute::UnprogrammedRoute>("default", p::kKernelUnprogrammed6)
          ->empty());
}

TEST_F(Leaf1, InterfacesHaveTheirAddressesVrfLinksAndStatus) {
  auto ip = at<Ip::Config>(p::kIpConfig);
  auto e3 = ip->intfConfig(IntfId("Ethernet3"));
  ASSERT_NE(e3, nullptr);
  EXPECT_EQ(e3->addrWithMask().stringValue(), "10.2.3.1/24");
  EXPECT_TRUE(e3->secondaryWithMask().contains(Plexa::IpAddrWithMask::fromString("10.2.4.1/24")));
  EXPECT_TRUE(
      e3->virtualSecondaryWithMask().contains(Plexa::IpAddrWithMask::fromString("10.2.5.1/24")));
  EXPECT_EQ(e3->vrf().stringValue(), "default");
  // The interface answers on its virtual secondary too: the status lists it as active.
  auto e3Status = at<Ip::Status>(p::kIpStatus)->ipIntfStatus(IntfId("Ethernet3"));
  EXPECT_EQ(e3Status->activeAddrWithMask(), e3->addrWithMask());
  EXPECT_EQ(e3Status->activeSecondaryWithMasks(), 2u);
  EXPECT_TRUE(e3Status->activeSecondaryWithMask().contains(
      Plexa::IpAddrWithMask::fromString("10.2.5.1/24")));

  EXPECT_EQ(ip->intfConfig(IntfId("Ethernet4"))->vrf().stringValue(), "red");
  // vrf null: no VRF link at all, which is not the default VRF.
  EXPECT_TRUE(ip->intfConfig(IntfId("Ethernet10"))->vrf().empty());
  EXPECT_TRUE(at<Interface::AllIntfConfigDir>(p::kIntfConfig)
                  ->intfConfig(IntfId("Ethernet10"))
                  ->vrf()
                  .empty());
  EXPECT_EQ(ip->intfConfig(IntfId("Vlan100"))->virtualAddrWithMask().stringValue(),
            "192.168.100.1/24");
  // An interface without "ipv4" has no IP record, only its interface records.
  EXPECT_EQ(ip->intfConfig(IntfId("Vxlan1")), nullptr);
  EXPECT_NE(at<Interface::AllIntfConfigDir>(p::kIntfConfig)->intfConfig(IntfId("Vxlan1")), nullptr);

  auto vlan6 = at<Ip6::Config>(p::kIp6Config)->intf(IntfId("Vlan100"));
  ASSERT_NE(vlan6, nullptr);
  EXPECT_EQ(vlan6->addrs(), 2u);
  EXPECT_TRUE(
      vlan6->addr().contains(Plexa::Ip6AddrWithMask::fromString("fe80::21c:73ff:fe00:100/64")));
  EXPECT_EQ(at<Ip6::Status>(p::kIp6Status)->intf(IntfId("Vlan100"))->addrs(), 2u);

  auto m2 = at<Interface::AllIntfConfigDir>(p::kIntfConfig)->intfConfig(IntfId("Management2"));
  EXPECT_FALSE(m2->enabled());
  EXPECT_EQ(m2->description(), "oob secondary");
  EXPECT_FALSE(
      at<Interface::AllIntfStatusDir>(p::kIntfStatus)->intfStatus(IntfId("Management2"))->operUp());
}

TEST_F(Leaf1, NeighboursCarryTheirVrfsId) {
  auto arp = at<Arp::Table::Status>(p::kArpStatus);
  Arp::Table::ArpKey key{1, Plexa::IpGenAddr::fromString("10.20.4.254"), IntfId("Ethernet4")};
  EXPECT_EQ(arp->lookup(key).ethAddr.stringValue(), "00:50:56:14:00:fe");
  key.vrfId = 0;
  EXPECT_FALSE(arp->contains(key));
  std::size_t inDefault = 0, inBlue = 0;
  for (const auto& e : *arp) {
    inDefault += e.arpKey.vrfId == 0;
    inBlue += e.arpKey.vrfId == 2;
  }
  EXPECT_EQ(inDefault, 8u);
  EXPECT_EQ(inBlue, 1u);
}

TEST_F(Leaf1, StaticRoutesSplitByFamilyWithTheirViasAndNames) {
  auto config = vrf<Routing::ConfigGen>("default", p::kRoutingConfig);
  auto key = [](const char* prefix, int pref) {
    return Routing::RouteKey(Plexa::IpGenPrefix::fromString(prefix), std::uint8_t(pref));
  };
  auto bfd = config->route(key("10.10.0.0/16", 1));
  ASSERT_NE(bfd, nullptr);
  ASSERT_EQ(bfd->vias(), 1u);
  const Routing::Via via = *bfd->via().begin();
  EXPECT_EQ(via.hop().stringValue(), "192.168.100.20");
  EXPECT_EQ(via.intfId(), IntfId("Vlan100"));
  EXPECT_TRUE(bfd->viaTrackBfd(via));
  EXPECT_EQ(bfd->viaNextHopName(via), "fw-primary");

  auto drop = config->route(key("192.0.2.0/24", 1));
  EXPECT_EQ(drop->routeType(), Routing::RouteType::drop);
  EXPECT_EQ(drop->dropNextHopName(), "blackhole");
  EXPECT_EQ(config->route(key("10.70.0.0/24", 1))->nexthopGroupName(), "NHG-A");
  EXPECT_TRUE(config->route(key("10.12.0.0/16", 1))->dynamic());
  EXPECT_FALSE(config->route(key("10.9.0.0/16", 1))->persistent());
  EXPECT_EQ(config->route(key("10.9.0.0/16", 1))->via().begin()->mplsLabel().value(), 3000u);
  // The floating default route is its own route beside any other preference.
  auto floating = config->route(key("0.0.0.0/0", 200));
  ASSERT_NE(floating, nullptr);
  EXPECT_EQ(floating->tag(), 500u);
  EXPECT_EQ(config->route(key("0.0.0.0/0", 1)), nullptr);

  EXPECT_EQ(config->route(key("2001:db8:8::/48", 1)), nullptr);
  EXPECT_NE(
      vrf<Routing::ConfigGen>("default", p::kRouting6Config)->route(key("2001:db8:8::/48", 1)),
      nullptr);

  auto vxlan = vrf<Routing::ConfigGen>("red", p::kRoutingConfig)->route(key("10.21.0.0/16", 1));
  ASSERT_NE(vxlan, nullptr);
  const Routing::Via v = *vxlan->via().begin();
  EXPECT_TRUE(v.hop().isZero());
  EXPECT_EQ(v.vtepAddr().stringValue(), "10.0.0.21");
  EXPECT_EQ(v.vni().value(), 50001u);
  EXPECT_EQ(v.routerMac().stringValue(), "00:1c:73:00:00:21");
}

TEST_F(Leaf1, NexthopGroupsHaveConfigIdsHardwareStateAndCounters) {
  auto config = at<Routing::NexthopGroup::Config>(p::kNhgConfig);
  EXPECT_EQ(config->nexthopGroups(), 7u);
  auto mpls = config->nexthopGroup("NHG-MPLS");
  ASSERT_NE(mpls, nullptr);
  EXPECT_EQ(mpls->type(), Routing::NexthopGroup::NexthopGroupType::mpls);
  EXPECT_EQ(mpls->size(), 8u);
  EXPECT_EQ(mpls->entry(2).mplsLabels().stringValue(), "push 30013 30113");
  EXPECT_EQ(config->nexthopGroup("NHG-A")->source().stringValue(), "10.0.0.11");

  auto ids = at<NexthopGroup::EntryStatus>(p::kNhgEntryStatus);
  EXPECT_EQ(ids->lookup(NexthopGroup::NexthopGroupEntryKey("NHG-B")).nhgId, 2u);
  auto hw =
      at<Routing::Hardware::NexthopGroupStatus>(p::kNhgHwStatus)->vrf(L3::VrfName::defaultVrf());
  ASSERT_NE(hw, nullptr);
  EXPECT_TRUE(hw->nexthopGroup().contains(1));
  EXPECT_FALSE(hw->nexthopGroup().contains(2));
  EXPECT_TRUE(hw->nexthopGroup().contains(3));

  auto keys = at<Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable>(p::kCounterKeyTable);
  const auto info = keys->lookup({1, 0}).info;
  EXPECT_EQ(info.counterIndex, 100u);
  EXPECT_EQ(info.chipMask, 1u);  // the default chip mask
  EXPECT_FALSE(keys->contains({1, 3}));
  const auto row = at<FlexCounters::CounterTable>(p::kCounterTable)->lookup({100, 1});
  EXPECT_EQ(row.packets, 1000u);
  EXPECT_EQ(at<FlexCounters::CounterTable>(p::kSnapshotCounterTable)->lookup({100, 1}).bytes,
            51200u);
}

TEST_F(Leaf1, RouteDistinguisherInputsAreEntitiesByName) {
  auto dir = at<Mox::Dir>(p::kRdInputDir);
  EXPECT_EQ(dir->size(), 2u);
  auto bgp = dir->entity<Ip::RouteDistinguisherInput>("bgp");
  ASSERT_NE(bgp, nullptr);
  EXPECT_EQ(bgp->routeDistinguisher("blue").stringValue(), "100:2");
  EXPECT_EQ(dir->entity<Ip::RouteDistinguisherInput>("evpn")->routeDistinguisher("red"),
            bgp->routeDistinguisher("red"));
}

// Shapes a user writes by hand that have a meaning and must load as that meaning.
TEST(HandWritten, ShapesWithAMeaningLoad) {
  const auto em = Snapshot::load(R"({"version": 1, "vrfs": {"default": {
    "ipv4": {"routes": [{"prefix": "10.1.0.0/16", "type": "eBgp", "fec": "ip6:7"}],
             "fecs": [{"id": "5", "backupIndex": 2,
                       "vias": [{"interface": "Cpu"}, {"interface": "Null0"}]}]},
    "ipv6": {"routes": [{"prefix": "2001:db8::/32", "type": "bgp", "fec": "7"},
                        {"prefix": "2001:db9::/32", "type": "bgp", "fec": "ip6:7"}],
             "fecs": [{"id": "7", "vias": [{"interface": "Cpu"}]}]}}},
    "nexthopGroups": [{"name": "G0", "id": 1, "type": "invalid"}]})");
  // Backups from the index equal to the number of vias: the FEC has none.
  const auto fec = em->mount<Brine::Fib::ForwardingStatus>(p::vrfPath("default", p::kFibFec))
                       ->lookup(FecId(AdjType::ipAdj, 5));
  EXPECT_EQ(fec.via.size(), 2u);
  EXPECT_EQ(fec.backupViaIndex().value(), 2u);
  // In the IPv6 tables a bare FEC number and its ip6: spelling are one FEC, the one an IPv4
  // route over IPv6 next hops names.
  const FecId ip6Fec(AdjType::ip6Adj, 7);
  EXPECT_TRUE(em->mount<Brine::Fib6::ForwardingStatus>(p::vrfPath("default", p::kFib6Fec))
                  ->contains(ip6Fec));
  const auto routes6 = em->mount<Brine::Fib6::RouteStatus>(p::vrfPath("default", p::kFib6Route));
  EXPECT_EQ(routes6->lookup(Plexa::Ip6Prefix::fromString("2001:db8::/32")).fecId, ip6Fec);
  EXPECT_EQ(routes6->lookup(Plexa::Ip6Prefix::fromString("2001:db9::/32")).fecId, ip6Fec);
  EXPECT_EQ(em->mount<Brine::Fib::RouteStatus>(p::vrfPath("default", p::kFibRoute))
                ->lookup(Plexa::Prefix::fromString("10.1.0.0/16"))
                .fecId,
            ip6Fec);
  EXPECT_EQ(em->mount<Routing::NexthopGroup::Config>(p::kNhgConfig)->nexthopGroup("G0")->type(),
            Routing::NexthopGroup::NexthopGroupType::invalid);
}

// Strings are taken from the document as they stand when they can be, and unescaped when they
// must: either way they hold what the document says, however long, wherever the escape is.
TEST(HandWritten, StringsHoldTheirTextWithOrWithoutEscapes) {
  for (const auto& [written, text] : std::vector<std::pair<std::string, std::string>>{
           {"leaf1", "leaf1"},
           {"", ""},
           {"a long name \xc2\xa9 caf\xc3\xa9 and more",
            "a long name \xc2\xa9 caf\xc3\xa9 and more"},
           {R"(quote\" and backslash\\ and \u00e9)", "quote\" and backslash\\ and \xc3\xa9"},
           {R"(\u0041BCDEFGHIJ)", "ABCDEFGHIJ"},
           {R"(ABCDEFGHI\/)", "ABCDEFGHI/"}}) {
    SCOPED_TRACE(written);
    const auto em = Snapshot::load(R"({"version": 1, "hostname": ")" + written +
                                   R"(" , "vrfs": {"default": {}}})");
    EXPECT_EQ(em->find<Snapshot::DeviceInfo>(p::kDevice)->hostname().stringValue(), text);
  }
}

}  // namespace
