#pragma once
// The route listing's own copy of one FEC: its vias in printing order, its backup and weight
// facts, and the per-entry columns that printing fills in (next hop, interface, labels, ...),
// one entry per printed via or tunnel via.

#include <cstdint>

#include "lib/route_listing/CachedLspVia.h"
#include "lib/route_listing/CachedVia.h"
#include "platform/brine/Fib.h"
#include "platform/brine/Tunnel.h"
#include "platform/mox/Attribute.h"
#include "platform/mox/Ptr.h"

namespace Rova {

using CachedViaSet = Mox::OrderedSet<CachedVia>;
using EntryMplsLabelMap = Mox::DenseMap<std::uint16_t, Plexa::MplsLabel>;
using EntryWeightMap = Mox::DenseMap<std::uint32_t, Mox::String8>;
using EntryEvpnMap = Mox::DenseMap<std::uint16_t, Tunnel::TunnelTable::EvpnVxlanTunnelEntry>;
using EntryFlagMap = Mox::DenseMap<std::uint16_t, bool>;
using EntryLspViaMap = Mox::DenseMap<std::uint16_t, CachedLspVia>;

#define ROVA_CACHED_FEC_ATTRS(F, C)                                            \
  F(fecId, FecId, Brine::Fib::FecId, Mox::AttrKind::input, {})                 \
  C(via, Via, CachedViaSet)                                                    \
  C(viaTypeString, ViaTypeString, EntryTextMap)                                \
  C(nexthopAddr, NexthopAddr, EntryTextMap)                                    \
  C(interface, Interface, EntryTextMap)                                        \
  C(interfaceDescription, InterfaceDescription, EntryTextMap)                  \
  C(label, Label, EntryMplsLabelMap)                                           \
  C(viaWeight, ViaWeight, EntryWeightMap)                                      \
  C(viaEvpnEntry, ViaEvpnEntry, EntryEvpnMap)                                  \
  C(viaLabelStack, ViaLabelStack, EntryLabelStackMap)                          \
  C(hostToCpu, HostToCpu, EntryFlagMap)                                        \
  C(lspVia, LspVia, EntryLspViaMap)                                            \
  F(connected, Connected, bool, Mox::AttrKind::state, {})                      \
  F(backupViaIndex, BackupViaIndex, Brine::ViaIndex, Mox::AttrKind::state, {}) \
  F(numEntries, NumEntries, std::int32_t, Mox::AttrKind::state, {})            \
  F(hasBackup, HasBackup, bool, Mox::AttrKind::state, {})                      \
  F(weight, Weight, std::uint32_t, Mox::AttrKind::state, {})                   \
  F(hierarchicalVia, HierarchicalVia, bool, Mox::AttrKind::state, {})

class CachedFec : public Mox::Entity {
  MOX_ENTITY_TYPE(CachedFec, "Rova::CachedFec", ROVA_CACHED_FEC_ATTRS)

 public:
  explicit CachedFec(Brine::Fib::FecId id = {}) : fecId_(id) {}

  // Whether printing has already filled the per-entry columns. They depend on the FEC alone,
  // so the routes that share a FEC share the work.
  bool prepared() const { return prepared_; }
  void preparedIs(bool p) { prepared_ = p; }
  // The count of vias whose weight is above 1 makes a FEC unequal-cost.
  bool unequalCost() const { return vias() < weight_; }

 private:
  bool prepared_ = false;
};

// A new, empty cached FEC.
Mox::Ptr<CachedFec> cachedFecFactory(Brine::Fib::FecId fecId);

}  // namespace Rova
