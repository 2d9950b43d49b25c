#pragma once
// Nexthop groups as configured: type, size and entries.

#include <cstdint>

#include "platform/brine/RouteType.h"
#include "platform/mox/Attribute.h"
#include "platform/mox/Ptr.h"
#include "platform/mox/String8.h"
#include "platform/plexa/EthAddr.h"
#include "platform/plexa/IntfId.h"
#include "platform/plexa/Mpls.h"
#include "platform/plexa/Prefix.h"
#include "platform/plexa/Vni.h"
#include "platform/plexa/VrfName.h"

namespace Routing::NexthopGroup {

enum class NexthopGroupType : std::uint8_t {
  invalid = 0,
  ipInIp = 1,
  gre = 2,
  mpls = 3,
  ip = 4,
  mplsOverGre = 5,
};
constexpr const char* moxEnumTypeName(NexthopGroupType) {
  return "Routing::NexthopGroup::NexthopGroupType";
}
const char* moxEnumName(NexthopGroupType t);
bool moxEnumFromName(std::string_view name, NexthopGroupType& out);

// One entry (destination) of a nexthop group.
#define ROUTING_NHG_ENTRY_ATTRS(F, C)                                     \
  F(destination, Destination, Plexa::IpGenAddr, Mox::AttrKind::value, {}) \
  F(mplsLabels, MplsLabels, Plexa::MplsLabelOperation, Mox::AttrKind::value, {})

class NexthopGroupEntry {
  MOX_VALUE_TYPE(NexthopGroupEntry, "Routing::NexthopGroup::NexthopGroupEntry",
                 ROUTING_NHG_ENTRY_ATTRS)
};

// A sorted array rather than a tree: groups are filled once, in index order, and then read
// whole, entry after entry; a large device holds a million entries, and walking them as tree
// nodes scattered over the heap costs a listing a cache miss per entry.
using EntryMap = Mox::VectorMap<std::uint16_t, NexthopGroupEntry>;
#define ROUTING_NHG_CONFIG_ENTRY_ATTRS(F, C)                                       \
  F(name, Name, Mox::String8, Mox::AttrKind::input, {})                            \
  F(type, Type, Routing::NexthopGroup::NexthopGroupType, Mox::AttrKind::value, {}) \
  /* The number of entries the group is sized for; 0 means as many as it holds. */ \
  F(size, Size, std::uint32_t, Mox::AttrKind::value, {})                           \
  F(ttl, Ttl, std::uint8_t, Mox::AttrKind::value, {64})                            \
  F(source, Source, Plexa::IpGenAddr, Mox::AttrKind::value, {})                    \
  C(entry, Entry, EntryMap)

class NexthopGroupConfigEntry : public Mox::Entity {
  MOX_ENTITY_TYPE(NexthopGroupConfigEntry, "Routing::NexthopGroup::NexthopGroupConfigEntry",
                  ROUTING_NHG_CONFIG_ENTRY_ATTRS)
};

using ConfigEntryMap = Mox::OrderedMap<Mox::String8, Mox::Ptr<NexthopGroupConfigEntry>>;
#define ROUTING_NHG_CONFIG_ATTRS(F, C) C(nexthopGroup, NexthopGroup, ConfigEntryMap)

class Config : public Mox::Entity {
  MOX_ENTITY_TYPE(Config, "Routing::NexthopGroup::Config", ROUTING_NHG_CONFIG_ATTRS)
};

}  // namespace Routing::NexthopGroup
