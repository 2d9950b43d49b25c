// The live source's mapping, on hand-made kernel records: what each kind of kernel object
// becomes in the snapshot's tables, including the cases a test machine's kernel may not be
// able to make (VRF devices, MPLS encapsulation, offloading hardware). What a namespace of
// the live tests holds (multipath weights, IPv6 next hops of IPv4 routes, metrics) is pinned
// by the live golden files.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/brine/Fib.h"
#include "platform/brine/Neighbor.h"
#include "platform/brine/NexthopGroupTables.h"
#include "platform/brine/Tunnel.h"
#include "platform/state/Interface.h"
#include "platform/state/Ip.h"
#include "platform/state/NexthopGroupConfig.h"
#include "platform/state/RoutingConfig.h"
#include "platform/state/RoutingHardware.h"
#include "snapshot/Live.h"
#include "snapshot/LiveBuilder.h"
#include "snapshot/Snapshot.h"
#include "snapshot/StateLayout.h"

namespace {

namespace k = Snapshot::kernel;
namespace layout = Snapshot::layout;
using T4 = Routing::Fib::RouteType;
using T6 = Routing6::Fib::RouteType;

// ---- kernel records ----

k::Link link(std::uint32_t index, const char* name, std::uint32_t master = 0) {
  k::Link l;
  l.index = index;
  l.name = name;
  l.adminUp = l.operUp = true;
  l.master = master;
  return l;
}

k::Link vrfLink(std::uint32_t index, const char* name, std::uint32_t table) {
  k::Link l = link(index, name);
  l.isVrf = true;
  l.vrfTable = table;
  return l;
}

k::Nexthop hop(const char* gateway, std::uint32_t ifindex, std::uint16_t weight = 1) {
  k::Nexthop h;
  if (*gateway) h.gateway = Plexa::IpGenAddr::fromString(gateway);
  h.ifindex = ifindex;
  h.weight = weight;
  return h;
}

k::Route route(const char* prefix, std::uint8_t protocol, std::vector<k::Nexthop> hops = {},
               std::uint32_t table = k::kTableMain, std::uint8_t type = k::rtn::unicast) {
  k::Route r;
  const std::string text = prefix;
  const auto slash = text.find('/');
  r.destination = Plexa::IpGenAddr::fromString(text.substr(0, slash));
  r.family = r.destination.af();
  r.prefixLen = static_cast<std::uint8_t>(std::stoi(text.substr(slash + 1)));
  r.protocol = protocol;
  r.nexthops = std::move(hops);
  r.table = table;
  r.type = type;
  return r;
}

k::Address address(std::uint32_t ifindex, const char* withMask) {
  const std::string text = withMask;
  const auto slash = text.find('/');
  k::Address a;
  a.ifindex = ifindex;
  a.address = Plexa::IpGenAddr::fromString(text.substr(0, slash));
  a.prefixLen = static_cast<std::uint8_t>(std::stoi(text.substr(slash + 1)));
  return a;
}

// The interfaces most tests use: lo, two uplinks, a VRF "red" on table 10 with eth3 in it,
// and a bridge with a port.
constexpr std::uint32_t kLo = 1, kEth1 = 2, kEth2 = 3, kRed = 4, kEth3 = 5, kBr0 = 6, kEth4 = 7;

void addLinks(Snapshot::LiveBuilder& b) {
  b.link(link(kLo, "lo"));
  k::Link eth1 = link(kEth1, "eth1");
  eth1.alias = "to spine 1";
  b.link(eth1);
  k::Link eth2 = link(kEth2, "eth2");
  eth2.operUp = false;
  b.link(eth2);
  b.link(vrfLink(kRed, "red", 10));
  b.link(link(kEth3, "eth3", kRed));
  b.link(link(kBr0, "br0"));
  b.link(link(kEth4, "eth4", kBr0));
}

class LiveBuilder : public ::testing::Test {
 protected:
  void SetUp() override { addLinks(b); }

  void finish() { em = b.finish(); }

  template <class E>
  auto at(const E& entity) const {
    return layout::mount(*em, entity);
  }
  template <class E>
  auto at(const E& entity, std::string_view vrf) const {
    return layout::mount(*em, entity, vrf);
  }
  Brine::Fib::Route r4(const char* prefix, const char* vrf = "default") const {
    return at(layout::fibRoute, vrf)->lookup(Plexa::Prefix::fromString(prefix));
  }
  Brine::Fib6::Route r6(const char* prefix, const char* vrf = "default") const {
    return at(layout::fib6Route, vrf)->lookup(Plexa::Ip6Prefix::fromString(prefix));
  }
  bool has4(const char* prefix, const char* vrf = "default") const {
    return at(layout::fibRoute, vrf)->contains(Plexa::Prefix::fromString(prefix));
  }
  // A FEC's vias as "gateway interface weight label tunnel", from the table its id names.
  std::vector<std::string> vias(Brine::Fib::FecId id, const char* vrf = "default") const {
    std::vector<std::string> out;
    const auto add = [&](const auto& fec) {
      for (const auto& v : fec.via) {
        std::string s = v.hop.isZero() ? "-" : v.hop.stringValue();
        s += " " + v.intfId.stringValue() + " " + std::to_string(v.weight);
        if (v.labelValue != Plexa::MplsLabel::kNoLabel)
          s += " label " + std::to_string(v.labelValue);
        if (v.tunnelIdValue != 0) s += " tunnel " + std::to_string(v.tunnelIdValue);
        out.push_back(s);
      }
    };
    if (Brine::Fib::isV6FecId(id)) {
      add(at(layout::fib6Fec, vrf)->lookup(id));
    } else {
      add(at(layout::fibFec, vrf)->lookup(id));
    }
    return out;
  }
  Mox::Ptr<Interface::IntfConfig const> intf(const char* name) const {
    return at(layout::intfConfig)->intfConfig(Plexa::IntfId(name));
  }

  Snapshot::LiveBuilder b;
  Mox::Ptr<Statum::EntityManager> em;
};

using Vias = std::vector<std::string>;

// ---- links, VRFs, addresses ----

TEST_F(LiveBuilder, LinksAreInterfacesAndVrfDevicesAreVrfsWithTheirMembers) {
  EXPECT_EQ(b.routeTables(), (std::vector<std::uint32_t>{255, 254, 253, 10}));
  finish();
  const auto ids = at(layout::vrfIdMap);
  EXPECT_EQ(ids->vrfName(0).stringValue(), "default");
  EXPECT_EQ(ids->vrfName(10).stringValue(), "red");
  EXPECT_EQ(ids->size(), 2u);
  EXPECT_EQ(intf("eth1")->description().stringValue(), "to spine 1");
  EXPECT_EQ(intf("eth1")->vrf().stringValue(), "default");
  EXPECT_EQ(intf("eth3")->vrf().stringValue(), "red");
  // The VRF device is in its own VRF; a bridge port is in the bridge's (default) VRF.
  EXPECT_EQ(intf("red")->vrf().stringValue(), "red");
  EXPECT_EQ(intf("eth4")->vrf().stringValue(), "default");
  const auto status = at(layout::intfStatus);
  EXPECT_TRUE(status->intfStatus(Plexa::IntfId("eth1"))->operUp());
  EXPECT_FALSE(status->intfStatus(Plexa::IntfId("eth2"))->operUp());
  EXPECT_TRUE(intf("eth2")->enabled());
  layout::forEachEntity([&](const layout::EntityInfo& e) {
    if (e.scope == layout::Scope::vrf) {
      EXPECT_TRUE(em->entities().count(layout::pathOf(e, "red"))) << e.name;
    }
  });
}

TEST_F(LiveBuilder, VrfsSharingATableBothListItAndADeviceNamedDefaultIsNoVrf) {
  b.link(vrfLink(20, "blue", 30));
  b.link(vrfLink(21, "green", 30));
  b.link(vrfLink(22, "default", 40));
  b.link(link(23, "eth9", 22));
  EXPECT_EQ(b.routeTables(), (std::vector<std::uint32_t>{255, 254, 253, 30, 10}));
  b.route(route("10.30.0.0/16", k::proto::bgp, {hop("", 23)}, 30));
  b.route(route("10.40.0.0/16", k::proto::bgp, {hop("", 23)}, 40));
  finish();
  EXPECT_TRUE(has4("10.30.0.0/16", "blue"));
  EXPECT_TRUE(has4("10.30.0.0/16", "green"));
  EXPECT_FALSE(has4("10.40.0.0/16"));
  // One id, one name: the first VRF of the table.
  EXPECT_EQ(at(layout::vrfIdMap)->vrfName(30).stringValue(), "blue");
  EXPECT_EQ(intf("eth9")->vrf().stringValue(), "default");
}

TEST_F(LiveBuilder, TheFirstIpv4AddressIsPrimaryAndIpv6KeepsLinkLocal) {
  b.address(address(kEth1, "10.0.1.1/24"));
  b.address(address(kEth1, "10.0.9.1/24"));
  b.address(address(kEth1, "10.0.1.7/24"));
  b.address(address(kEth3, "10.10.1.1/24"));
  b.address(address(kEth1, "2001:db8:1::1/64"));
  b.address(address(kEth1, "fe80::1/64"));
  finish();
  const auto ip = at(layout::ipConfig);
  const auto eth1 = ip->intfConfig(Plexa::IntfId("eth1"));
  EXPECT_EQ(eth1->addrWithMask().stringValue(), "10.0.1.1/24");
  EXPECT_EQ(eth1->secondaryWithMask().size(), 2u);
  EXPECT_TRUE(eth1->secondaryWithMask().contains(Plexa::IpAddrWithMask::fromString("10.0.9.1/24")));
  EXPECT_TRUE(eth1->secondaryWithMask().contains(Plexa::IpAddrWithMask::fromString("10.0.1.7/24")));
  EXPECT_EQ(ip->intfConfig(Plexa::IntfId("eth3"))->vrf().stringValue(), "red");
  EXPECT_EQ(ip->intfConfig(Plexa::IntfId("eth2")), nullptr);
  const auto active = at(layout::ipStatus)->ipIntfStatus(Plexa::IntfId("eth1"));
  EXPECT_EQ(active->activeAddrWithMask().stringValue(), "10.0.1.1/24");
  EXPECT_EQ(active->activeSecondaryWithMask().size(), 2u);
  const auto ip6 = at(layout::ip6Status)->intf(Plexa::IntfId("eth1"));
  EXPECT_TRUE(ip6->addr().contains(Plexa::Ip6AddrWithMask::fromString("2001:db8:1::1/64")));
  EXPECT_TRUE(ip6->addr().contains(Plexa::Ip6AddrWithMask::fromString("fe80::1/64")));
}

// ---- routes ----

TEST_F(LiveBuilder, TheProtocolGivesTheRouteTypeAndItsUsualDistance) {
  struct Case {
    std::uint8_t protocol;
    const char* gateway;
    T4 type4;
    T6 type6;
    int preference;
  };
  const Case cases[] = {
      {k::proto::kernel, "", T4::connected, T6::connected, 0},
      {k::proto::kernel, "gw", T4::kernel, T6::kernel, 0},
      {42 /* babel */, "gw", T4::kernel, T6::kernel, 0},
      {k::proto::staticRoute, "gw", T4::staticConfig, T6::staticConfig, 1},
      {k::proto::zstatic, "gw", T4::staticConfig, T6::staticConfig, 1},
      {k::proto::dhcp, "gw", T4::dhcp, T6::dhcp, 1},
      {k::proto::bgp, "gw", T4::eBgp, T6::bgp, 200},
      {k::proto::ospf, "gw", T4::ospfIntraArea, T6::ospf3, 110},
      {k::proto::isis, "gw", T4::isisLevel2, T6::isisLevel2, 115},
      {k::proto::rip, "gw", T4::rip, T6::rip, 120},
  };
  int i = 0;
  for (const Case& c : cases) {
    const std::string p4 = "10." + std::to_string(++i) + ".0.0/16";
    const std::string p6 = "2001:db8:" + std::to_string(i) + "::/48";
    k::Route v4 = route(p4.c_str(), c.protocol, {hop(*c.gateway ? "10.0.1.2" : "", kEth1)});
    v4.metric = 7;
    b.route(v4);
    b.route(route(p6.c_str(), c.protocol, {hop(*c.gateway ? "fe80::2" : "", kEth1)}));
  }
  finish();
  i = 0;
  for (const Case& c : cases) {
    const std::string p4 = "10." + std::to_string(++i) + ".0.0/16";
    const std::string p6 = "2001:db8:" + std::to_string(i) + "::/48";
    const auto v4 = r4(p4.c_str());
    const auto v6 = r6(p6.c_str());
    EXPECT_EQ(v4.routeType, c.type4) << int(c.protocol);
    EXPECT_EQ(v6.routeType, c.type6) << int(c.protocol);
    // A static route's metric is its preference (the IPv4 routes have metric 7).
    EXPECT_EQ(v4.preference, c.protocol == k::proto::staticRoute ? 7 : c.preference)
        << int(c.protocol);
    EXPECT_EQ(v6.preference, c.preference) << int(c.protocol);
    EXPECT_EQ(v4.metric, 7u);
    EXPECT_TRUE(v4.hardwareProgrammed);  // without offload flags the kernel is the hardware
  }
  EXPECT_EQ(at(layout::hwVrfStatus, "default")->unprogrammedRouteCount(), 0u);
}

// rova-agent programs a configured static route with its preference as the metric: the
// floating one loses in the kernel and in the listing, and each shows its own preference.
TEST_F(LiveBuilder, AStaticRoutesMetricIsItsPreference) {
  const auto withMetric = [](k::Route r, std::uint32_t metric) {
    r.metric = metric;
    return r;
  };
  b.route(withMetric(route("10.70.0.0/16", k::proto::staticRoute, {hop("10.0.1.3", kEth1)}), 200));
  b.route(withMetric(route("10.70.0.0/16", k::proto::staticRoute, {hop("10.0.1.2", kEth1)}), 1));
  b.route(withMetric(route("10.71.0.0/16", k::proto::staticRoute, {hop("10.0.1.3", kEth1)}), 200));
  b.route(withMetric(
      route("10.72.0.0/16", k::proto::staticRoute, {}, k::kTableMain, k::rtn::blackhole), 250));
  // Beyond a preference (IPv6's default metric): the usual distance.
  b.route(withMetric(route("10.73.0.0/16", k::proto::staticRoute, {hop("10.0.1.3", kEth1)}), 1024));
  b.route(withMetric(route("10.74.0.0/16", k::proto::boot, {hop("10.0.1.3", kEth1)}), 200));
  b.route(withMetric(route("2001:db8:70::/48", k::proto::staticRoute, {hop("fe80::2", kEth1)}), 5));
  finish();
  EXPECT_EQ(r4("10.70.0.0/16").preference, 1);
  EXPECT_EQ(vias(r4("10.70.0.0/16").fecId), Vias{"10.0.1.2 eth1 1"});
  EXPECT_EQ(r4("10.71.0.0/16").preference, 200);
  EXPECT_EQ(r4("10.71.0.0/16").routeType, T4::staticConfig);
  EXPECT_EQ(r4("10.72.0.0/16").preference, 250);
  EXPECT_EQ(r4("10.72.0.0/16").routeType, T4::dropRoute);
  EXPECT_EQ(r4("10.73.0.0/16").preference, 1);
  EXPECT_EQ(r4("10.74.0.0/16").preference, 0);
  EXPECT_EQ(r6("2001:db8:70::/48").preference, 5);
}

TEST_F(LiveBuilder, LocalRoutesAreReceiveDropRoutesGoToNull0AndTheRestIsLeftOut) {
  b.route(route("10.0.1.1/32", k::proto::kernel, {hop("", kEth1)}, k::kTableLocal, k::rtn::local));
  b.route(route("10.0.1.255/32", k::proto::kernel, {hop("", kEth1)}, k::kTableLocal,
                k::rtn::broadcast));
  b.route(route("2001:db8:1::/128", k::proto::kernel, {hop("", kEth1)}, k::kTableLocal,
                k::rtn::anycast));
  for (std::uint8_t kind : {k::rtn::blackhole, k::rtn::unreachable, k::rtn::prohibit}) {
    const std::string prefix = "10.6" + std::to_string(kind) + ".0.0/16";
    b.route(route(prefix.c_str(), k::proto::boot, {}, k::kTableMain, kind));
  }
  b.route(route("ff00::/8", k::proto::kernel, {hop("", kEth1)}, k::kTableLocal, k::rtn::multicast));
  b.route(route("10.9.0.0/16", k::proto::boot, {}, k::kTableMain, k::rtn::throwRoute));
  k::Route tos = route("10.8.0.0/16", k::proto::boot, {hop("10.0.1.2", kEth1)});
  tos.tos = 0x10;
  b.route(tos);
  b.route(route("10.7.0.0/16", k::proto::boot, {hop("10.0.1.2", kEth1)}, 100));
  b.route(route("10.10.0.0/16", k::proto::bgp, {hop("10.10.1.2", kEth3)}, 10));
  finish();
  EXPECT_EQ(r4("10.0.1.1/32").routeType, T4::receive);
  EXPECT_EQ(vias(r4("10.0.1.1/32").fecId), Vias{"- Cpu 1"});
  EXPECT_EQ(r4("10.0.1.255/32").routeType, T4::broadcast);
  EXPECT_EQ(r6("2001:db8:1::/128").routeType, T6::receive);
  for (const char* prefix : {"10.66.0.0/16", "10.67.0.0/16", "10.68.0.0/16"}) {
    EXPECT_EQ(r4(prefix).routeType, T4::dropRoute) << prefix;
    EXPECT_EQ(r4(prefix).preference, 1);
    EXPECT_EQ(vias(r4(prefix).fecId), Vias{"- Null0 1"});
  }
  EXPECT_EQ(at(layout::fib6Route, "default")->size(), 1u);
  EXPECT_FALSE(has4("10.9.0.0/16"));
  EXPECT_FALSE(has4("10.8.0.0/16"));
  EXPECT_FALSE(has4("10.7.0.0/16"));
  EXPECT_FALSE(has4("10.10.0.0/16"));
  EXPECT_TRUE(has4("10.10.0.0/16", "red"));
}

TEST_F(LiveBuilder, NexthopObjectsGiveFecsAndAreListedAsNexthopGroups) {
  k::NexthopObject one, two, group, hole;
  one.id = 1;
  one.hop = hop("10.0.1.2", kEth1);
  two.id = 2;
  two.hop = hop("10.0.2.2", kEth2);
  group.id = 10;
  group.group = {{1, 3}, {2, 1}};
  hole.id = 12;
  hole.blackhole = true;
  // A group may be listed before its members.
  for (const auto& o : {group, one, two, hole})
    b.nexthopObject(o);
  k::Route viaGroup = route("10.20.0.0/16", k::proto::bgp);
  viaGroup.nhid = 10;
  b.route(viaGroup);
  viaGroup.destination = Plexa::IpGenAddr::fromString("10.21.0.0");
  b.route(viaGroup);
  k::Route viaHole = route("10.22.0.0/16", k::proto::bgp);
  viaHole.nhid = 12;
  b.route(viaHole);
  // An object the read missed: the route's own next hops stand in.
  k::Route unknown = route("10.23.0.0/16", k::proto::bgp, {hop("10.0.2.2", kEth2)});
  unknown.nhid = 99;
  b.route(unknown);
  finish();
  EXPECT_EQ(r4("10.20.0.0/16").fecId, r4("10.21.0.0/16").fecId);
  EXPECT_EQ(vias(r4("10.20.0.0/16").fecId), (Vias{"10.0.1.2 eth1 3", "10.0.2.2 eth2 1"}));
  EXPECT_EQ(r4("10.22.0.0/16").routeType, T4::dropRoute);
  EXPECT_EQ(vias(r4("10.22.0.0/16").fecId), Vias{"- Null0 1"});
  EXPECT_EQ(vias(r4("10.23.0.0/16").fecId), Vias{"10.0.2.2 eth2 1"});

  const auto groups = at(layout::nhgConfig);
  EXPECT_EQ(groups->nexthopGroups(), 4u);
  const auto nhid10 = groups->nexthopGroup(Mox::String8("nhid10"));
  ASSERT_NE(nhid10, nullptr);
  EXPECT_EQ(nhid10->type(), Routing::NexthopGroup::NexthopGroupType::ip);
  EXPECT_EQ(nhid10->size(), 2u);
  EXPECT_EQ(nhid10->entry(0).destination().stringValue(), "10.0.1.2");
  EXPECT_EQ(nhid10->entry(1).destination().stringValue(), "10.0.2.2");
  EXPECT_EQ(groups->nexthopGroup(Mox::String8("nhid12"))->entrys(), 0u);
  const auto ids = at(layout::nhgEntryStatus);
  EXPECT_EQ(ids->lookup(NexthopGroup::NexthopGroupEntryKey("nhid10")).nhgId, 10u);
  // No offloading hardware: the kernel holds every group, for every VRF.
  const auto hw = at(layout::nhgHwStatus);
  EXPECT_TRUE(hw->vrf(L3::VrfName("default"))->nexthopGroup().contains(10));
  EXPECT_TRUE(hw->vrf(L3::VrfName("red"))->nexthopGroup().contains(10));
}

// What the kernel may answer but a state cannot hold: a hop out of a link the read did not see
// (gone between the dumps) without a gateway (or with an all-zero one), and a nexthop object out of
// a device alone. Each is left out, and the state still saves as a document that loads.
TEST_F(LiveBuilder, HopsThatNameNoAddressOrKnownLinkAreLeftOutAndTheStateSaves) {
  constexpr std::uint32_t kGone = 99;
  k::NexthopObject one, deviceOnly, group;
  one.id = 1;
  one.hop = hop("10.0.1.2", kEth1);
  deviceOnly.id = 3;
  deviceOnly.hop = hop("", kEth2);
  group.id = 10;
  group.group = {{1, 1}, {3, 1}};
  for (const auto& o : {one, deviceOnly, group})
    b.nexthopObject(o);
  b.route(route("10.30.0.0/16", k::proto::bgp, {hop("", kGone), hop("10.0.1.2", kEth1)}));
  b.route(route("10.31.0.0/16", k::proto::kernel, {hop("", kGone)}));
  b.route(route("10.32.0.0/16", k::proto::bgp, {hop("0.0.0.0", kGone), hop("10.0.1.2", kEth1)}));
  finish();
  EXPECT_EQ(vias(r4("10.30.0.0/16").fecId), Vias{"10.0.1.2 eth1 1"});
  EXPECT_EQ(vias(r4("10.31.0.0/16").fecId), Vias{});
  EXPECT_EQ(vias(r4("10.32.0.0/16").fecId), Vias{"10.0.1.2 eth1 1"});
  const auto groups = at(layout::nhgConfig);
  EXPECT_EQ(groups->nexthopGroup(Mox::String8("nhid3"))->entrys(), 0u);
  const auto nhid10 = groups->nexthopGroup(Mox::String8("nhid10"));
  ASSERT_EQ(nhid10->entrys(), 1u);
  EXPECT_EQ(nhid10->size(), 1u);
  EXPECT_EQ(nhid10->entry(0).destination().stringValue(), "10.0.1.2");
  const std::string saved = Snapshot::write(*em);
  EXPECT_NO_THROW(Snapshot::load(saved)) << saved;
}

// The kernel takes nearly any bytes in a link's name and alias. A name no interface may have
// leaves the link out; an alias that is not text a state holds is no description.
TEST_F(LiveBuilder, LinksNamedAsNoInterfaceAreLeftOutAndBadAliasesAreNoDescription) {
  constexpr std::uint32_t kOdd = 20, kNoted = 21, kUtf8 = 22;
  b.link(link(kOdd, "odd\x01"));
  b.link(link(kOdd + 10, "caf\xc3\xa9"));
  k::Link noted = link(kNoted, "eth9");
  noted.alias = "to \x1b[2Jspine";
  b.link(noted);
  k::Link utf8 = link(kUtf8, "eth8");
  utf8.alias = "to spine \xe2\x86\x92 1";
  b.link(utf8);
  b.address(address(kOdd, "10.40.0.1/24"));
  b.route(route("10.41.0.0/16", k::proto::kernel, {hop("", kOdd)}));
  finish();
  EXPECT_EQ(at(layout::intfConfig)->intfConfig().size(), 9u);  // every test's seven, eth8, eth9
  EXPECT_EQ(intf("eth9")->description().stringValue(), "");
  EXPECT_EQ(intf("eth8")->description().stringValue(), "to spine \xe2\x86\x92 1");
  EXPECT_EQ(vias(r4("10.41.0.0/16").fecId), Vias{});
  EXPECT_FALSE(has4("10.40.0.0/24"));
  const std::string saved = Snapshot::write(*em);
  EXPECT_NO_THROW(Snapshot::load(saved)) << saved;
}

TEST_F(LiveBuilder, OneMplsLabelIsTheViasAndAStackRidesATunnel) {
  k::Nexthop single = hop("10.0.1.2", kEth1);
  single.labels = Plexa::MplsLabelOperation::fromString("push 100");
  k::Nexthop stack = hop("10.0.1.2", kEth1);
  stack.labels = Plexa::MplsLabelOperation::fromString("push 100 200");
  b.route(route("10.1.0.0/16", k::proto::bgp, {single}));
  b.route(route("10.2.0.0/16", k::proto::bgp, {stack}));
  b.route(route("10.3.0.0/16", k::proto::ospf, {stack}));
  finish();
  EXPECT_EQ(vias(r4("10.1.0.0/16").fecId), Vias{"10.0.1.2 eth1 1 label 100"});
  const Tunnel::TunnelTable::TunnelId tunnel(1, 1);  // static:1
  EXPECT_EQ(vias(r4("10.2.0.0/16").fecId),
            Vias{"- DynamicTunnel1.1 1 tunnel " + std::to_string(tunnel.value())});
  const auto fib = at(layout::tunnelFib);
  ASSERT_EQ(fib->size(), 1u);
  const auto entry = fib->lookup(tunnel);
  ASSERT_EQ(entry.tunnelVia.size(), 1u);
  EXPECT_EQ(entry.tunnelVia[0].nexthop.stringValue(), "10.0.1.2");
  EXPECT_EQ(entry.tunnelVia[0].intfId.stringValue(), "eth1");
  EXPECT_EQ(entry.tunnelVia[0].labelOp.stringValue(), "push 100 200");
}

TEST_F(LiveBuilder, LocalBeatsMainBeatsDefaultWhateverTheOrderTheyCome) {
  b.route(route("10.0.1.1/32", k::proto::boot, {hop("10.0.2.2", kEth2)}));
  b.route(route("10.0.1.1/32", k::proto::kernel, {hop("", kEth1)}, k::kTableLocal, k::rtn::local));
  b.route(route("10.50.0.0/16", k::proto::boot, {hop("10.0.2.2", kEth2)}, k::kTableDefault));
  b.route(route("10.50.0.0/16", k::proto::bgp, {hop("10.0.1.2", kEth1)}));
  b.route(route("10.51.0.0/16", k::proto::boot, {hop("10.0.2.2", kEth2)}, k::kTableDefault));
  finish();
  EXPECT_EQ(r4("10.0.1.1/32").routeType, T4::receive);
  EXPECT_EQ(r4("10.50.0.0/16").routeType, T4::eBgp);
  EXPECT_EQ(r4("10.51.0.0/16").routeType, T4::kernel);
}

// In one table the lowest metric wins, as the live golden files show; equal metrics forward
// together, whichever comes first.
TEST_F(LiveBuilder, EqualMetricsInOneTableForwardTogether) {
  b.route(route("fe80::/64", k::proto::kernel, {hop("", kEth1)}));
  b.route(route("fe80::/64", k::proto::kernel, {hop("", kEth2)}));
  finish();
  EXPECT_EQ(vias(r6("fe80::/64").fecId), (Vias{"- eth1 1", "- eth2 1"}));
}

// Every route and FEC of a VRF's tables, in the tables' order, as text.
std::vector<std::string> tablesOf(const Statum::EntityManager& em, const char* vrf) {
  std::vector<std::string> out;
  const auto routes = [&](const auto& table) {
    for (const auto& r : *table)
      out.push_back(r.prefix.stringValue() + " type " + std::to_string(int(r.routeType)) + " fec " +
                    std::to_string(r.fecId.value()) + " metric " + std::to_string(r.metric) +
                    " pref " + std::to_string(r.preference) +
                    (r.hardwareProgrammed ? " hw" : " not-hw"));
  };
  const auto fecs = [&](const auto& table) {
    for (const auto& f : *table) {
      std::string line = "fec " + std::to_string(f.fecId.value());
      for (const auto& v : f.via)
        line += " | " + v.hop.stringValue() + " " + v.intfId.stringValue() + " " +
                std::to_string(v.weight);
      out.push_back(line);
    }
  };
  routes(layout::mount(em, layout::fibRoute, vrf));
  routes(layout::mount(em, layout::fib6Route, vrf));
  fecs(layout::mount(em, layout::fibFec, vrf));
  fecs(layout::mount(em, layout::fib6Fec, vrf));
  const auto hw = layout::mount(em, layout::hwVrfStatus, vrf);
  out.push_back("unprogrammed " + std::to_string(hw->unprogrammedRouteCount()) + " " +
                std::to_string(hw->unprogrammedRoute6Count()));
  return out;
}

// The reader hands over a buffer of the kernel's answer at a time, and the builder fetches the
// table slots of the routes ahead of the one it writes: that changes when memory is waited
// for, never what is written. Same prefixes again (a lower metric, an equal one that forwards
// together, a losing one), other tables of the VRF, another VRF, both families, and the
// first offload flag half-way through give the same tables, in the same order and with the
// same FEC ids, as the routes one by one.
TEST_F(LiveBuilder, ABatchOfRoutesBuildsWhatTheSameRoutesOneByOneBuild) {
  std::vector<k::Route> batch;
  for (int i = 0; i < 60; ++i) {
    const bool v6 = i % 5 == 4;
    const std::string prefix =
        v6 ? "2001:db8:" + std::to_string(i) + "::/48" : "10." + std::to_string(i) + ".0.0/16";
    const char* gateway = v6 ? (i % 2 ? "fe80::1" : "fe80::2") : (i % 2 ? "10.0.1.2" : "10.0.2.2");
    const std::uint32_t table = i % 11 == 3 ? k::kTableDefault : i % 13 == 5 ? 10u : k::kTableMain;
    k::Route r = route(prefix.c_str(), i % 3 ? k::proto::bgp : k::proto::staticRoute,
                       {hop(gateway, i % 2 ? kEth1 : kEth2)}, table);
    r.metric = 20;
    batch.push_back(r);
    if (i % 6 == 0) {
      k::Route same = r;
      same.nexthops = {hop(v6 ? "fe80::3" : "10.0.1.3", kEth1)};
      batch.push_back(same);  // forwards together with r
      same.metric = 30;
      batch.push_back(same);  // loses to r
      same.metric = 10;
      if (i % 12 == 0) batch.push_back(same);  // wins
    }
    if (i % 9 == 1) {
      k::Route local =
          route(prefix.c_str(), k::proto::kernel, {hop("", kLo)}, k::kTableLocal, k::rtn::local);
      batch.push_back(local);  // hides r
    }
    if (i == 30) {
      k::Route flagged = route("10.200.0.0/16", k::proto::bgp, {hop("10.0.1.2", kEth1)});
      flagged.offload = k::Offload::held;
      batch.push_back(flagged);
    }
  }
  // The kernel's count of IPv6 routes makes room in the table, and changes nothing else.
  b.routesExpected(Plexa::AddressFamily::ipv6, 1000);
  b.routes(batch);
  finish();
  Snapshot::LiveBuilder oneByOne;
  addLinks(oneByOne);
  for (const k::Route& r : batch)
    oneByOne.route(r);
  const auto expected = oneByOne.finish();
  for (const char* vrf : {"default", "red"})
    EXPECT_EQ(tablesOf(*em, vrf), tablesOf(*expected, vrf)) << vrf;
  // What the batch held, to show the comparison is not of two empty tables.
  EXPECT_EQ(r4("10.0.0.0/16").metric, 10u);
  EXPECT_EQ(vias(r4("10.6.0.0/16").fecId), (Vias{"10.0.2.2 eth2 1", "10.0.1.3 eth1 1"}));
  EXPECT_EQ(r4("10.1.0.0/16").routeType, T4::receive);
  EXPECT_FALSE(r4("10.2.0.0/16").hardwareProgrammed);
  EXPECT_TRUE(r4("10.200.0.0/16").hardwareProgrammed);
  EXPECT_TRUE(has4("10.5.0.0/16", "red"));
}

TEST_F(LiveBuilder, WithOffloadingHardwareARouteWithoutTheFlagIsNotProgrammed) {
  k::Route held = route("10.1.0.0/16", k::proto::bgp, {hop("10.0.1.2", kEth1)});
  held.offload = k::Offload::held;
  k::Route none = route("10.2.0.0/16", k::proto::bgp, {hop("10.0.1.2", kEth1)});
  k::Route failed = route("10.3.0.0/16", k::proto::bgp, {hop("10.0.1.2", kEth1)});
  failed.offload = k::Offload::failed;
  k::Route hopHeld = route("10.4.0.0/16", k::proto::bgp, {hop("10.0.1.2", kEth1)});
  hopHeld.nexthops[0].offload = k::Offload::held;
  // The unflagged route is read before anything says there is offloading hardware.
  for (const auto& r : {none, held, failed, hopHeld})
    b.route(r);
  k::NexthopObject object;
  object.id = 5;
  object.hop = hop("10.0.1.2", kEth1);
  b.nexthopObject(object);
  finish();
  EXPECT_TRUE(r4("10.1.0.0/16").hardwareProgrammed);
  EXPECT_FALSE(r4("10.2.0.0/16").hardwareProgrammed);
  EXPECT_FALSE(r4("10.3.0.0/16").hardwareProgrammed);
  EXPECT_TRUE(r4("10.4.0.0/16").hardwareProgrammed);
  EXPECT_EQ(at(layout::hwVrfStatus, "default")->unprogrammedRouteCount(), 2u);
  EXPECT_EQ(at(layout::nhgHwStatus)->vrfs(), 0u);
}

// ---- neighbours and the rest ----

TEST_F(LiveBuilder, ResolvedNeighboursFillTheArpTableOfTheirInterfacesVrf) {
  struct Case {
    std::uint32_t ifindex;
    const char* address;
    std::uint16_t state;
    bool hasMac;
    bool kept;
  };
  const Case cases[] = {
      {kEth1, "10.0.1.2", k::nud::reachable, true, true},
      {kEth1, "10.0.1.5", k::nud::delay, true, true},
      {kEth1, "fe80::2", k::nud::stale, true, true},
      {kEth3, "10.10.1.2", k::nud::reachable, true, true},
      {kEth1, "10.0.1.6", k::nud::incomplete, false, false},
      {kEth1, "10.0.1.7", k::nud::failed, true, false},
      {kEth1, "224.0.0.1", k::nud::noarp, true, false},
      {kEth1, "10.0.1.8", k::nud::reachable, false, false},
      {99, "10.0.1.9", k::nud::reachable, true, false},
  };
  for (const Case& c : cases) {
    k::Neighbor n;
    n.ifindex = c.ifindex;
    n.address = Plexa::IpGenAddr::fromString(c.address);
    n.state = c.state;
    n.hasMac = c.hasMac;
    n.mac = {0x02, 0, 0, 0, 0, 0x42};
    b.neighbor(n);
  }
  finish();
  const auto arp = at(layout::arpStatus);
  for (const Case& c : cases) {
    Arp::Table::ArpKey key;
    key.vrfId = c.ifindex == kEth3 ? 10 : 0;
    key.addr = Plexa::IpGenAddr::fromString(c.address);
    key.intfId = Plexa::IntfId(c.ifindex == kEth3 ? "eth3" : "eth1");
    EXPECT_EQ(arp->contains(key), c.kept) << c.address;
    if (c.kept) {
      EXPECT_EQ(arp->lookup(key).ethAddr.stringValue(), "02:00:00:00:00:42");
    }
  }
}

TEST_F(LiveBuilder, TheForwardingSwitchesAreEveryVrfsRoutingSwitches) {
  b.forwardingIs(Plexa::AddressFamily::ipv4, true);
  b.forwardingIs(Plexa::AddressFamily::ipv6, false);
  finish();
  for (const char* vrf : {"default", "red"}) {
    EXPECT_TRUE(at(layout::routingConfig, vrf)->routingEnabled());
    EXPECT_FALSE(at(layout::routing6Config, vrf)->routingEnabled());
  }
}

TEST_F(LiveBuilder, FillsEveryEntityASnapshotHas) {
  finish();
  const auto snapshot =
      Snapshot::load(R"({"version": 1, "vrfs": {"default": {}, "red": {"id": 10}}})");
  std::vector<std::pair<std::string, std::string>> want, got;
  for (const auto& [path, e] : snapshot->entities())
    want.emplace_back(path, e->typeName());
  for (const auto& [path, e] : em->entities())
    got.emplace_back(path, e->typeName());
  EXPECT_EQ(got, want);
}

// ---- consistent reads ----

TEST(LiveRead, AnInterruptedReadIsDoneAgainFromScratch) {
  int reads = 0;
  const auto em = Snapshot::readConsistently(
      [&](Snapshot::LiveBuilder& b) -> std::string {
        b.link(link(kEth1, "eth1"));
        if (++reads < 3) {
          b.route(route("10.99.0.0/16", k::proto::bgp, {hop("10.0.1.2", kEth1)}));
          return "the routes of table 254";
        }
        return "";
      },
      Snapshot::kLiveReadAttempts);
  EXPECT_EQ(reads, 3);
  EXPECT_EQ(layout::mount(*em, layout::fibRoute, "default")->size(), 0u);
}

TEST(LiveRead, AReadThatIsAlwaysInterruptedIsReportedAfterTheLastAttempt) {
  int reads = 0;
  try {
    Snapshot::readConsistently(
        [&](Snapshot::LiveBuilder&) {
          ++reads;
          return std::string("the links");
        },
        Snapshot::kLiveReadAttempts);
    FAIL() << "no error";
  } catch (const Snapshot::LiveError& e) {
    EXPECT_STREQ(e.what(), "the links kept changing while they were read (5 attempts); try again");
  }
  EXPECT_EQ(reads, 5);
}

}  // namespace
