#pragma once
// Small builders for the IP configuration records the checks read, so that each test states
// only the interfaces and addresses that matter to its rule.

#include <optional>
#include <ostream>
#include <string_view>

#include "lib/config_checks/AddressQueryResult.h"
#include "platform/mox/Ptr.h"
#include "platform/mox/TextForm.h"
#include "platform/state/Ip.h"

namespace Rova {
inline void PrintTo(const AddressQueryResult& r, std::ostream* os) {
  *os << Mox::textOf(r);
}
}  // namespace Rova

namespace ConfigChecksTest {

inline Rova::AddressQueryResult accepted() {
  Rova::AddressQueryResult r;
  r.acceptableIs(true);
  return r;
}

inline Rova::AddressQueryResult refused(std::string_view msg) {
  Rova::AddressQueryResult r;
  r.msgIs(msg);
  return r;
}

// No VRF given: the interface is in VRF "default". std::nullopt: the record has no VRF link.
inline constexpr std::optional<std::string_view> kDefaultVrf = "default";

class Ip4 {
 public:
  Mox::Ptr<Ip::Config> config = Mox::makePtr<Ip::Config>();

  // `primary` may be empty: no primary address.
  Ip::IpIntfConfig& intf(std::string_view name, std::string_view primary,
                         std::optional<std::string_view> vrf = kDefaultVrf) {
    auto e = Mox::makePtr<Ip::IpIntfConfig>(Plexa::IntfId(name));
    if (!primary.empty()) e->addrWithMaskIs(Plexa::IpAddrWithMask::fromString(primary));
    if (vrf) e->vrfIs(L3::VrfName(*vrf));
    config->intfConfigIs(e->intfId(), e);
    return *e;
  }
  static void secondary(Ip::IpIntfConfig& e, std::string_view a) {
    e.newSecondaryWithMask(Plexa::IpAddrWithMask::fromString(a), true);
  }
  static void virtualSecondary(Ip::IpIntfConfig& e, std::string_view a) {
    e.newVirtualSecondaryWithMask(Plexa::IpAddrWithMask::fromString(a), true);
  }
};

class Ip6 {
 public:
  Mox::Ptr<::Ip6::Config> config = Mox::makePtr<::Ip6::Config>();

  ::Ip6::IntfConfig& intf(std::string_view name,
                          std::optional<std::string_view> vrf = kDefaultVrf) {
    auto e = Mox::makePtr<::Ip6::IntfConfig>(Plexa::IntfId(name));
    if (vrf) e->vrfIs(L3::VrfName(*vrf));
    config->intfIs(e->intfId(), e);
    return *e;
  }
  static void addr(::Ip6::IntfConfig& e, std::string_view a) {
    const auto key = Plexa::Ip6AddrWithMask::fromString(a);
    ::Ip6::AddressInfo info;
    info.addrIs(key);
    e.newAddr(key, info);
  }
};

}  // namespace ConfigChecksTest
