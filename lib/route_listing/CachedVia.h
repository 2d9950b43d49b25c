#pragma once
// A via as the route listing keeps it: copied once out of the FEC table, ordered for printing.

#include <string>

#include "platform/brine/TunnelId.h"
#include "platform/mox/Attribute.h"
#include "platform/mox/String8.h"
#include "platform/plexa/IntfId.h"
#include "platform/plexa/IpAddr.h"
#include "platform/plexa/Mpls.h"

namespace Rova {

#define ROVA_CACHED_VIA_ATTRS(F, C)                                 \
  F(hop, Hop, Plexa::IpGenAddr, Mox::AttrKind::value, {})           \
  F(intfId, IntfId, Plexa::IntfId, Mox::AttrKind::value, {})        \
  F(isBackup, IsBackup, bool, Mox::AttrKind::value, {false})        \
  F(viaLabel, ViaLabel, Plexa::MplsLabel, Mox::AttrKind::value, {}) \
  F(viaWeight, ViaWeight, Mox::String8, Mox::AttrKind::value, {})

class CachedVia {
  MOX_VALUE_TYPE(CachedVia, "Rova::CachedVia", ROVA_CACHED_VIA_ATTRS)

 public:
  CachedVia() = default;
  CachedVia(const Plexa::IpGenAddr& hop, Plexa::IntfId intf, bool isBackup = false)
      : hop_(hop), intfId_(intf), isBackup_(isBackup) {}

  // The tunnel a dynamic tunnel interface stands for; 0 for any other interface.
  Tunnel::TunnelTable::TunnelId tunnelId() const;
  // A tunnel via is told from an ordinary one by its interface alone: a non-zero tunnel id
  // becomes the interface "DynamicTunnel<type>.<index>".
  void tunnelIdIs(Tunnel::TunnelTable::TunnelId tunnelId);

  // Primary vias first, then by interface, then by next hop. Label and weight take no part, so
  // two vias alike in those three are one entry.
  friend bool operator<(const CachedVia& a, const CachedVia& b);
};

}  // namespace Rova
