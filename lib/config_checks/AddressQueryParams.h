#pragma once
// What the CLI asks before it assigns an IPv4 or IPv6 interface address: the interface, the
// new address, how management interfaces are recognised and, for IPv4, how an equal address
// already on that interface is judged. Built by the front end through the factories below.

#include "lib/config_checks/AddressQueryResult.h"
#include "platform/mox/Attribute.h"
#include "platform/mox/Ptr.h"
#include "platform/mox/String8.h"
#include "platform/plexa/Prefix.h"
#include "platform/state/Ip.h"

namespace Rova {

#define ROVA_ADDRESS_QUERY_PARAMS_ATTRS(F, C)                                 \
  F(ipConfig, IpConfig, Mox::Ptr<Ip::Config const>, Mox::AttrKind::input, {}) \
  F(intfName, IntfName, Mox::String8, Mox::AttrKind::input, {})               \
  F(mgmtPrefix, MgmtPrefix, Mox::String8, Mox::AttrKind::input, {})           \
  F(primaryMatch, PrimaryMatch, AddrMatchType, Mox::AttrKind::input,          \
    {AddrMatchType::allowNoMatch})                                            \
  F(secondaryMatch, SecondaryMatch, AddrMatchType, Mox::AttrKind::input,      \
    {AddrMatchType::allowNoMatch})                                            \
  F(addrWithMask, AddrWithMask, Plexa::IpAddrWithMask, Mox::AttrKind::input, {})

class AddressQueryParams : public Mox::Entity {
  MOX_ENTITY_TYPE(AddressQueryParams, "Rova::AddressQueryParams", ROVA_ADDRESS_QUERY_PARAMS_ATTRS)

 public:
  AddressQueryParams() = default;
  AddressQueryParams(Mox::Ptr<Ip::Config const> ipConfig, Mox::String8 intfName,
                     Mox::String8 mgmtPrefix, AddrMatchType primaryMatch,
                     AddrMatchType secondaryMatch, Plexa::IpAddrWithMask addrWithMask);
};

// Raises Mox::RangeException("null ValidPtr") when no object could be made.
Mox::Ptr<AddressQueryParams> addressQueryParamsFactory(
    Mox::Ptr<Ip::Config const> ipConfig, Mox::String8 intfName, Mox::String8 mgmtPrefix,
    AddrMatchType primaryMatch, AddrMatchType secondaryMatch, Plexa::IpAddrWithMask addrWithMask);

}  // namespace Rova
