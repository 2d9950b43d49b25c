#pragma once
// One tunnel (LSP) behind a via, as tunnel via resolution describes it for printing.

#include <cstdint>

#include "platform/mox/Attribute.h"
#include "platform/mox/String8.h"
#include "platform/plexa/Mpls.h"

namespace Rova {

using EntryTextMap = Mox::DenseMap<std::uint16_t, Mox::String8>;
using EntryLabelStackMap = Mox::DenseMap<std::uint16_t, Plexa::MplsLabelOperation>;

#define ROVA_CACHED_LSP_VIA_ATTRS(F, C)                                               \
  F(tunnelEndPoint, TunnelEndPoint, Mox::String8, Mox::AttrKind::value, {})           \
  F(tunnelType, TunnelType, Mox::String8, Mox::AttrKind::value, {})                   \
  F(tunnelAddressFamily, TunnelAddressFamily, Mox::String8, Mox::AttrKind::value, {}) \
  F(tunnelIndex, TunnelIndex, std::uint32_t, Mox::AttrKind::value, {})                \
  C(nexthopAddr, NexthopAddr, EntryTextMap)                                           \
  C(interface, Interface, EntryTextMap)                                               \
  C(interfaceDescription, InterfaceDescription, EntryTextMap)                         \
  C(viaLabelStack, ViaLabelStack, EntryLabelStackMap)                                 \
  F(numEntries, NumEntries, std::uint32_t, Mox::AttrKind::value, {})

class CachedLspVia {
  MOX_VALUE_TYPE(CachedLspVia, "Rova::CachedLspVia", ROVA_CACHED_LSP_VIA_ATTRS)
};

}  // namespace Rova
