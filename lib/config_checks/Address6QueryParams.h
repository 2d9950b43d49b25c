#pragma once
// The IPv6 twin of AddressQueryParams. It has no match rules: the IPv6 rules for an equal
// address on the same interface are fixed.

#include "platform/mox/Attribute.h"
#include "platform/mox/Ptr.h"
#include "platform/mox/String8.h"
#include "platform/plexa/Prefix.h"
#include "platform/state/Ip.h"

namespace Rova {

#define ROVA_ADDRESS6_QUERY_PARAMS_ATTRS(F, C)                                   \
  F(ip6Config, Ip6Config, Mox::Ptr<Ip6::Config const>, Mox::AttrKind::input, {}) \
  F(intfName, IntfName, Mox::String8, Mox::AttrKind::input, {})                  \
  F(mgmtPrefix, MgmtPrefix, Mox::String8, Mox::AttrKind::input, {})              \
  F(addrWithMask, AddrWithMask, Plexa::Ip6AddrWithMask, Mox::AttrKind::input, {})

class Address6QueryParams : public Mox::Entity {
  MOX_ENTITY_TYPE(Address6QueryParams, "Rova::Address6QueryParams",
                  ROVA_ADDRESS6_QUERY_PARAMS_ATTRS)

 public:
  Address6QueryParams() = default;
  Address6QueryParams(Mox::Ptr<Ip6::Config const> ip6Config, Mox::String8 intfName,
                      Mox::String8 mgmtPrefix, Plexa::Ip6AddrWithMask addrWithMask);
};

// Raises Mox::RangeException("null ValidPtr") when no object could be made.
Mox::Ptr<Address6QueryParams> address6QueryParamsFactory(Mox::Ptr<Ip6::Config const> ip6Config,
                                                         Mox::String8 intfName,
                                                         Mox::String8 mgmtPrefix,
                                                         Plexa::Ip6AddrWithMask addrWithMask);

}  // namespace Rova
