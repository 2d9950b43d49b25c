#pragma once
// Tunnel state: the MPLS tunnel FIB (the next hops and label stacks of each tunnel, by tunnel
// id), the tunnel tables of the protocols that build tunnels (segment routing, static, LDP,
// BGP labelled unicast), and the EVPN VXLAN tunnel table.

#include <cstdint>

#include "platform/brine/PodArray.h"
#include "platform/brine/Table.h"
#include "platform/brine/TunnelId.h"
#include "platform/plexa/EthAddr.h"
#include "platform/plexa/IntfId.h"
#include "platform/plexa/Mpls.h"
#include "platform/plexa/Prefix.h"
#include "platform/plexa/Vni.h"

namespace Tunnel::TunnelTable {

// One next hop of a tunnel: where the packet goes and what happens to its label stack. The
// interface may itself be a dynamic tunnel interface when the tunnel rides on another tunnel.
struct MplsVia {
  Plexa::IpGenAddr nexthop;
  Plexa::IntfId intfId;
  Plexa::MplsLabelOperation labelOp;
  friend bool operator==(const MplsVia&, const MplsVia&) = default;
};

constexpr std::size_t kMaxTunnelVias = 64;
using TunnelViaArray = Pelo::PodArray<MplsVia, std::uint8_t, kMaxTunnelVias>;

// The tunnel types a tunnel id carries (its bits from 23 up).
enum class TunnelType : std::uint64_t {
  none = 0,
  staticTunnel = 1,
  ldpTunnel = 2,
  srTunnel = 3,
  bgpLuTunnel = 4,
  srTePolicyTunnel = 5,
};

// An entry of a protocol's tunnel table: the tunnel to an end point and its next hops.
struct TunnelTableEntry {
  TunnelId tunnelId;
  Plexa::IpGenPrefix endpoint;
  TunnelViaArray via;
  TunnelId key() const { return tunnelId; }
};

class SrTunnelTable : public Brine::Table<TunnelId, TunnelTableEntry> {
  MOX_ENTITY("Tunnel::TunnelTable::SrTunnelTable")
};
class StaticTunnelTable : public Brine::Table<TunnelId, TunnelTableEntry> {
  MOX_ENTITY("Tunnel::TunnelTable::StaticTunnelTable")
};
class LdpTunnelTable : public Brine::Table<TunnelId, TunnelTableEntry> {
  MOX_ENTITY("Tunnel::TunnelTable::LdpTunnelTable")
};
class BgpLuTunnelTable : public Brine::Table<TunnelId, TunnelTableEntry> {
  MOX_ENTITY("Tunnel::TunnelTable::BgpLuTunnelTable")
};

struct EvpnVxlanTunnelEntry {
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::EvpnVxlanTunnelEntry";
  Plexa::IntfId intfId;
  Plexa::IpGenAddr vtepAddr;
  Vxlan::VniOrNone vni;
  Plexa::EthAddr routerMac;
  const Plexa::IntfId& key() const { return intfId; }
  friend bool operator==(const EvpnVxlanTunnelEntry&, const EvpnVxlanTunnelEntry&) = default;
};

// EVPN VXLAN tunnels by the interface that stands for them in a via.
class EvpnVxlanTunnelTable : public Brine::Table<Plexa::IntfId, EvpnVxlanTunnelEntry> {
  MOX_ENTITY("Tunnel::TunnelTable::EvpnVxlanTunnelTable")

 public:
  bool isValidEvpnIntf(Plexa::IntfId id) const { return id.isValid() && contains(id); }
  EvpnVxlanTunnelEntry entry(Plexa::IntfId id) const { return lookup(id); }
};

}  // namespace Tunnel::TunnelTable

namespace Tunnel::TunnelFib {

struct MplsTunnelFibEntry {
  TunnelTable::TunnelId tunnelId;
  TunnelTable::TunnelViaArray tunnelVia;
  TunnelTable::TunnelId key() const { return tunnelId; }
  friend bool operator==(const MplsTunnelFibEntry&, const MplsTunnelFibEntry&) = default;
};

class MplsTunnelFib : public Brine::Table<TunnelTable::TunnelId, MplsTunnelFibEntry> {
  MOX_ENTITY("Tunnel::TunnelFib::MplsTunnelFib")
};

}  // namespace Tunnel::TunnelFib
