// Tunnel tables, the tunnel FIB, EVPN VXLAN tunnels and SR-TE policies.

#include "snapshot/loader/Loader.h"

namespace Snapshot::loader {

enum TunnelsKey { kTnFib, kTnSr, kTnStatic, kTnLdp, kTnBgpLu, kTnEvpn };
constexpr Keys<6> kTunnelsKeys = {"fib", "sr", "static", "ldp", "bgpLu", "evpnVxlan"};

void Loader::tunnels(od::value& v) {
  using namespace Tunnel::TunnelTable;
  r_.fields(r_.object(v), kTunnelsKeys, 0, [&](unsigned k, od::value& f) {
    // A protocol's table exists when the document names it, even empty: a device may run a
    // protocol that has built no tunnel yet.
    switch (k) {
      case kTnFib:
        tunnelFib(f);
        break;
      case kTnSr: {
        auto t = makePtr<SrTunnelTable>();
        tunnelTable(f, *t, TunnelType::srTunnel, "sr");
        tables_.tunnelTables->entityIs("sr", t);
        break;
      }
      case kTnStatic: {
        auto t = makePtr<StaticTunnelTable>();
        tunnelTable(f, *t, TunnelType::staticTunnel, "static");
        tables_.tunnelTables->entityIs("static", t);
        break;
      }
      case kTnLdp: {
        auto t = makePtr<LdpTunnelTable>();
        tunnelTable(f, *t, TunnelType::ldpTunnel, "ldp");
        tables_.tunnelTables->entityIs("ldp", t);
        break;
      }
      case kTnBgpLu: {
        auto t = makePtr<BgpLuTunnelTable>();
        tunnelTable(f, *t, TunnelType::bgpLuTunnel, "bgpLu");
        tables_.tunnelTables->entityIs("bgpLu", t);
        break;
      }
      case kTnEvpn:
        evpnVxlan(f);
        break;
    }
  });
}

void Loader::tunnelFib(od::value& v) {
  static constexpr Keys<2> keys = {"tunnel", "vias"};
  r_.elements(r_.array(v), [&](std::size_t, od::value& e) {
    Tunnel::TunnelFib::MplsTunnelFibEntry entry;
    r_.fields(r_.object(e), keys, bit(0), [&](unsigned k, od::value& f) {
      if (k == 0) {
        entry.tunnelId = tunnelRef(f);
      } else {
        entry.tunnelVia = tunnelVias(f);
      }
    });
    if (tables_.tunnelFib->contains(entry.tunnelId))
      r_.fail("duplicate tunnel " + tunnelRefText(entry.tunnelId));
    tables_.tunnelFib->recordIs(entry);
  });
}

void Loader::tunnelTable(
    od::value& v,
    Brine::Table<Tunnel::TunnelTable::TunnelId, Tunnel::TunnelTable::TunnelTableEntry>& table,
    Tunnel::TunnelTable::TunnelType type, const char* word) {
  static constexpr Keys<3> keys = {"tunnel", "endpoint", "vias"};
  r_.elements(r_.array(v), [&](std::size_t, od::value& e) {
    Tunnel::TunnelTable::TunnelTableEntry entry;
    r_.fields(r_.object(e), keys, bit(0) | bit(1), [&](unsigned k, od::value& f) {
      if (k == 0) {
        entry.tunnelId = tunnelRef(f);
        if (entry.tunnelId.tunnelType() != static_cast<std::uint64_t>(type))
          r_.fail(std::string("the tunnels of this table are written \"") + word + ":<index>\"");
      } else if (k == 1) {
        entry.endpoint = genPrefix(f);
      } else {
        entry.via = tunnelVias(f);
      }
    });
    if (table.contains(entry.tunnelId))
      r_.fail("duplicate tunnel " + tunnelRefText(entry.tunnelId));
    table.recordIs(entry);
  });
}

Tunnel::TunnelTable::TunnelViaArray Loader::tunnelVias(od::value& v) {
  static constexpr Keys<4> keys = {"nexthop", "interface", "tunnel", "labels"};
  Tunnel::TunnelTable::TunnelViaArray vias;
  r_.elements(r_.array(v), [&](std::size_t, od::value& e) {
    if (vias.size() >= vias.capacity()) {
      r_.fail(std::string(Pelo::kPodArraySizeMessage) + " " + std::to_string(vias.capacity()) +
              ": a tunnel has at most " + std::to_string(vias.capacity()) + " vias");
    }
    Tunnel::TunnelTable::MplsVia via;
    const std::uint64_t seen = r_.fields(r_.object(e), keys, 0, [&](unsigned k, od::value& f) {
      switch (k) {
        case 0:
          via.nexthop = genAddress(f);
          break;
        case 1:
          via.intfId = intf(f);
          break;
        case 2:
          // A tunnel that rides on another tunnel leaves through that tunnel's interface.
          via.intfId = Plexa::DynamicTunnelIntfId::intfId(tunnelRef(f).value());
          break;
        case 3:
          via.labelOp = labelOp(f);
          break;
      }
    });
    if ((seen & bit(1)) && (seen & bit(2)))
      r_.fail("a tunnel via names an interface or a tunnel, not both");
    // A zero next hop is no next hop (see staticVia).
    if (via.nexthop.isZero()) via.nexthop = Plexa::IpGenAddr();
    if (!via.nexthop && !(seen & (bit(1) | bit(2))))
      r_.fail("a tunnel via needs a nexthop, an interface or a tunnel");
    vias.push(via);
  });
  return vias;
}

void Loader::evpnVxlan(od::value& v) {
  static constexpr Keys<4> keys = {"interface", "vtep", "vni", "routerMac"};
  r_.elements(r_.array(v), [&](std::size_t, od::value& e) {
    Tunnel::TunnelTable::EvpnVxlanTunnelEntry entry;
    r_.fields(r_.object(e), keys, bit(0) | bit(1) | bit(2), [&](unsigned k, od::value& f) {
      switch (k) {
        case 0:
          entry.intfId = intf(f);
          break;
        case 1:
          entry.vtepAddr = genAddress(f);
          break;
        case 2:
          entry.vni = vni(f);
          break;
        case 3:
          entry.routerMac = mac(f);
          break;
      }
    });
    if (tables_.evpnVxlan->contains(entry.intfId))
      r_.fail("duplicate EVPN VXLAN tunnel on " + entry.intfId.stringValue());
    tables_.evpnVxlan->recordIs(entry);
  });
}

void Loader::srTePolicies(od::value& v) {
  static constexpr Keys<3> keys = {"fec", "endpoint", "color"};
  r_.elements(r_.array(v), [&](std::size_t, od::value& e) {
    SrTePolicy::PolicyEntry entry;
    r_.fields(r_.object(e), keys, bit(0) | bit(1) | bit(2), [&](unsigned k, od::value& f) {
      switch (k) {
        case 0:
          entry.fecId = fecRef(f);
          if (!Brine::Fib::isSrTePolicyFec(entry.fecId))
            r_.fail("an SR-TE policy's FEC is written \"srte:<n>\"");
          break;
        case 1:
          entry.policyKey.endpoint = genAddress(f);
          break;
        case 2:
          entry.policyKey.color = SrTePolicy::Color(r_.number(f, kU32Max));
          break;
      }
    });
    if (tables_.srTePolicy->contains(entry.fecId))
      r_.fail("duplicate policy FEC " + fecRefText(entry.fecId));
    tables_.srTePolicy->recordIs(entry);
  });
}

}  // namespace Snapshot::loader
