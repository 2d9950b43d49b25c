#pragma once
// Tunnel via resolution, at print time and only for printed routes: a cached FEC whose vias
// lead into MPLS tunnels gets, as its printed entries, the next hops that really carry the
// traffic, with their interfaces, label stacks and shares of the via's weight.

#include <cstdlib>
#include <optional>
#include <vector>

#include <cstdio>

#include "lib/route_listing/RouteSorter.h"
#include "lib/route_listing/internal/SorterAlgorithms.h"

namespace Rova {

namespace tunnel {

using Tunnel::TunnelTable::MplsVia;
using Tunnel::TunnelTable::TunnelId;
using Tunnel::TunnelTable::TunnelType;

inline const char* typeName(TunnelType t) {
  switch (t) {
    case TunnelType::staticTunnel:
      return "static";
    case TunnelType::ldpTunnel:
      return "LDP";
    case TunnelType::srTunnel:
      return "SR";
    case TunnelType::bgpLuTunnel:
      return "BGP LU";
    case TunnelType::srTePolicyTunnel:
      return "SR-TE";
    default:
      return "MPLS";
  }
}

// A tunnel as resolution sees it: where it ends (when a protocol table knows) and its vias.
struct TunnelView {
  Plexa::IpGenPrefix endpoint;
  Tunnel::TunnelTable::TunnelViaArray via;
};

template <class Table>
std::optional<TunnelView> fromTable(const Table* table, TunnelId id) {
  if (!table || !table->contains(id)) return std::nullopt;
  const auto e = sorter::readRecord(*table, id);
  return TunnelView{e.endpoint, e.via};
}

// The protocol table of the tunnel's type knows where the tunnel ends; its vias come from
// that table when it lists them, else from what the tunnel FIB programmed for the tunnel.
template <class Sorter>
std::optional<TunnelView> lookupTunnel(const Sorter& s, TunnelId id) {
  std::optional<TunnelView> v;
  switch (TunnelType(id.tunnelType())) {
    case TunnelType::staticTunnel:
      v = fromTable(s.staticTunnelTable().get(), id);
      break;
    case TunnelType::ldpTunnel:
      v = fromTable(s.ldpTunnelTable().get(), id);
      break;
    case TunnelType::srTunnel:
      v = fromTable(s.srTunnelTable().get(), id);
      break;
    case TunnelType::bgpLuTunnel:
      v = fromTable(s.bgpLuTunnelTable().get(), id);
      break;
    default:
      break;
  }
  if (v && !v->via.empty()) return v;
  if (!s.tunnelFib() || !s.tunnelFib()->contains(id)) return v;
  if (!v) v = TunnelView{};
  v->via = sorter::readRecord(*s.tunnelFib(), id).tunnelVia;
  return v;
}

inline bool ridesTunnel(const MplsVia& v) {
  return Plexa::DynamicTunnelIntfId::isDynamicTunnelIntfId(v.intfId);
}

template <class Sorter>
Mox::String8 description(const Sorter& s, Plexa::IntfId intf) {
  if (!s.allIntfConfig()) return {};
  auto config = s.allIntfConfig()->intfConfig(intf);
  return config ? config->description() : Mox::String8();
}

// A via of the FEC rides a tunnel that the tunnel FIB does not resolve to plain next hops by
// itself: the tunnel is missing from the FIB or one of its vias rides another tunnel.
template <class Sorter>
bool isHierarchical(const Sorter& s, const CachedFec& fec) {
  for (const auto& via : fec.via()) {
    const TunnelId id = via.tunnelId();
    if (id.isZero()) continue;
    if (!s.tunnelFib() || !s.tunnelFib()->contains(id)) return true;
    const auto entry = sorter::readRecord(*s.tunnelFib(), id);
    for (const auto& v : entry.tunnelVia) {
      if (ridesTunnel(v)) return true;
    }
  }
  return false;
}

inline bool hasTunnelVia(const CachedFec& fec) {
  for (const auto& via : fec.via()) {
    if (!via.tunnelId().isZero()) return true;
  }
  return false;
}

}  // namespace tunnel

// One level: each tunnel via of the FEC becomes the tunnel's own next hops, sharing out the
// via's weight when the FEC is unequal-cost, up to the hardware's weight limit.
template <class Sorter>
void updateTunSortedVia(const Mox::Ptr<CachedFec>& fec, const Sorter& s) {
  const std::uint32_t limit = s.fecWeightLimit();
  const bool unequalCost = fec->unequalCost();
  std::uint16_t entry = 0;
  std::uint16_t total = 0;
  bool stopped = false;
  for (const auto& via : fec->via()) {
    if (stopped) break;
    const auto tunnelId = via.tunnelId();
    if (tunnelId.isZero() || !s.tunnelFib()) continue;
    const auto tunnel = sorter::readRecord(*s.tunnelFib(), tunnelId);
    if (tunnel == Tunnel::TunnelFib::MplsTunnelFibEntry()) continue;
    auto w = static_cast<std::uint16_t>(std::strtol(via.viaWeight().charPtr(), nullptr, 10));
    auto k = static_cast<std::uint16_t>(tunnel.tunnelVia.size());
    for (const auto& tv : tunnel.tunnelVia) {
      if (unequalCost) {
        std::uint16_t share = k ? static_cast<std::uint16_t>(w / k) : 0;
        if (share < 1) share = 1;
        total = static_cast<std::uint16_t>(total + share);
        if (limit < total) {
          fec->weightIs(total - share);
          stopped = true;
          break;
        }
        if (w > share) w = static_cast<std::uint16_t>(w - share);
        --k;
        char text[16];
        std::snprintf(text, sizeof text, "%d", int(share));
        fec->viaWeightIs(entry, text);
      }
      fec->viaTypeStringIs(entry, "active");
      fec->nexthopAddrIs(entry, tv.nexthop.stringValue());
      fec->interfaceIs(entry, tv.intfId.stringValue());
      fec->labelIs(entry, via.viaLabel());
      fec->viaLabelStackIs(entry, tv.labelOp);
      if (s.detail()) fec->interfaceDescriptionIs(entry, tunnel::description(s, tv.intfId));
      ++entry;
    }
  }
  // Entries written before the limit stopped the walk are still printed.
  fec->connectedIs(false);
  fec->numEntriesIs(entry);
}

// Tunnels on tunnels. Each tunnel via of the FEC is one printed entry that names its tunnel
// (end point, type, family, index) and carries, as its LSP via, the next hops that finally
// carry the traffic. A tunnel is looked up in the protocol table of its type ("static",
// "ldp", "sr", "bgpLu"), else in the tunnel FIB. A tunnel via that rides another tunnel is
// followed into it, the inner tunnel's labels going on top of the outer ones, so each final
// next hop shows the whole stack as it leaves the box, top label first. Eight levels at most:
// a loop in the tables ends there instead of hanging the listing.
//
// The walk is bounded in width too. A tunnel has up to 64 vias, so a tree of tunnels (or a
// loop, which multiplies its vias at every level) can name more next hops than fit in the
// biggest FEC, up to 64^8; the walk keeps at most that FEC's 512 per tunnel via and takes at
// most 4,096 steps, however many of them lead nowhere, so that one entry cannot hold up the
// listing.
template <class Sorter>
void updateTunSortedViaHierarchy(const Mox::Ptr<CachedFec>& fec, const Sorter& s) {
  constexpr int kMaxDepth = 8;
  constexpr std::size_t kMaxLeaves = Brine::Fib::Fec::kMaxVias;
  constexpr std::size_t kMaxSteps = kMaxDepth * kMaxLeaves;
  struct Leaf {
    tunnel::MplsVia via;
    Plexa::MplsLabelOperation stack;
  };
  std::vector<Leaf> leaves;
  std::size_t steps = 0;
  auto resolve = [&](auto& self, tunnel::TunnelId id, const Plexa::MplsLabelOperation& below,
                     int depth) -> void {
    const auto view = tunnel::lookupTunnel(s, id);
    if (!view) return;
    for (const auto& v : view->via) {
      if (leaves.size() == kMaxLeaves || ++steps > kMaxSteps) return;
      // Each level's stack holds at most 12 labels, but the levels together may name more; the
      // top 12, those the packet leaves with, are shown rather than failing the listing.
      Plexa::MplsLabelOperation stack(v.labelOp.empty() ? below.action() : v.labelOp.action(), {});
      for (std::size_t i = 0; i < v.labelOp.size(); ++i)
        stack.labelPush(v.labelOp.label(i));
      for (std::size_t i = 0; i < below.size() && stack.size() < stack.kMaxLabels; ++i)
        stack.labelPush(below.label(i));
      if (tunnel::ridesTunnel(v) && depth < kMaxDepth) {
        self(self, tunnel::TunnelId(Plexa::DynamicTunnelIntfId::tunnelId(v.intfId)), stack,
             depth + 1);
      } else {
        leaves.push_back({v, stack});
      }
    }
  };

  std::uint16_t entry = 0;
  for (const auto& via : fec->via()) {
    const auto id = via.tunnelId();
    if (id.isZero()) continue;
    const auto view = tunnel::lookupTunnel(s, id);
    if (!view) continue;
    leaves.clear();
    steps = 0;
    resolve(resolve, id, Plexa::MplsLabelOperation(), 0);

    CachedLspVia lsp;
    lsp.tunnelEndPointIs(view->endpoint.stringValue());
    lsp.tunnelTypeIs(tunnel::typeName(tunnel::TunnelType(id.tunnelType())));
    lsp.tunnelAddressFamilyIs(view->endpoint.address().isV6() ? "IPv6" : "IPv4");
    lsp.tunnelIndexIs(static_cast<std::uint32_t>(id.tunnelIndex()));
    for (std::uint16_t i = 0; i < leaves.size(); ++i) {
      lsp.nexthopAddrIs(i, leaves[i].via.nexthop.stringValue());
      lsp.interfaceIs(i, leaves[i].via.intfId.stringValue());
      if (s.detail()) lsp.interfaceDescriptionIs(i, tunnel::description(s, leaves[i].via.intfId));
      lsp.viaLabelStackIs(i, leaves[i].stack);
    }
    lsp.numEntriesIs(static_cast<std::uint32_t>(leaves.size()));

    fec->viaTypeStringIs(entry, via.isBackup() ? "backup" : "active");
    fec->labelIs(entry, via.viaLabel());
    if (!via.viaWeight().empty()) fec->viaWeightIs(entry, via.viaWeight());
    fec->lspViaIs(entry, lsp);
    ++entry;
  }
  fec->hierarchicalViaIs(entry > 0);
  fec->connectedIs(false);
  fec->numEntriesIs(entry);
}

}  // namespace Rova
