#include "lib/config_checks/IntfAddressEditor.h"

#include <string>
#include <string_view>
#include <utility>

#include "lib/config_checks/Address6AssignmentChecker.h"
#include "lib/config_checks/AddressAssignmentChecker.h"
#include "lib/config_checks/IntfVrf.h"
#include "platform/mox/Trace.h"

namespace Rova {

namespace {

Mox::TraceHandle editorTrace("CliSupport");

Mox::String8 notAssigned(const Mox::String8& text, const Plexa::IntfId& intf) {
  return Mox::String8("Address " + std::string(text.view()) + " is not assigned to interface " +
                      intf.stringValue());
}

}  // namespace

// What differs between the families: where their records are, how an address is judged, and
// what the status holds. Everything else is written once, in the templates below.
struct IntfAddressEditor::V4 {
  using Addr = Plexa::IpAddrWithMask;
  using IntfConfig = Ip::IpIntfConfig;
  static constexpr const char* kNoConfig = "The state has no IP configuration";

  static Mox::Ptr<Ip::Config>& config(IntfAddressEditor& e) { return e.ipConfig_; }
  static Mox::Ptr<IntfConfig> find(const Ip::Config& c, const Plexa::IntfId& id) {
    return c.intfConfig(id);
  }
  static void insert(Ip::Config& c, const Plexa::IntfId& id, Mox::Ptr<IntfConfig> r) {
    c.intfConfigIs(id, std::move(r));
  }
  static void erase(Ip::Config& c, const Plexa::IntfId& id) { c.intfConfigDel(id); }

  // A new primary may change the mask of the one it replaces; a secondary may be entered
  // again, but not with another mask, and never equal to the primary.
  static AddressQueryResult check(const IntfAddressEditor& e, const Plexa::IntfId& intf,
                                  const Addr& addr, bool secondary) {
    const AddressQueryParams params(
        e.ipConfig_, Mox::String8(intf.stringValue()), e.mgmtPrefix_,
        secondary ? AddrMatchType::allowNoMatch : AddrMatchType::allowAddressMatch,
        secondary ? AddrMatchType::allowExactMatch : AddrMatchType::allowNoMatch, addr);
    return AddressAssignmentChecker().check(params);
  }
  static void assign(IntfConfig& r, const Addr& addr, bool secondary) {
    if (secondary) {
      r.secondaryWithMaskIs(addr, true);
    } else {
      r.addrWithMaskIs(addr);
    }
  }
  static bool unassign(IntfConfig& r, const Addr& addr, bool secondary) {
    if (secondary) return r.secondaryWithMaskDel(addr);
    if (!(r.addrWithMask() == addr)) return false;
    r.addrWithMaskIs({});
    return true;
  }
  static void clear(IntfConfig& r) {
    r.addrWithMaskIs({});
    r.secondaryWithMaskDelAll();
  }
  static void sync(IntfAddressEditor& e, const IntfConfig& r) {
    if (!e.ipStatus_) return;
    auto st = Mox::makePtr<Ip::IpIntfStatus>(r.intfId());
    st->activeAddrWithMaskIs(r.addrWithMask());
    if (!r.virtualAddrWithMask().address().isZero())
      st->activeSecondaryWithMaskIs(r.virtualAddrWithMask(), true);
    for (const auto& a : r.secondaryWithMask())
      st->activeSecondaryWithMaskIs(a, true);
    for (const auto& a : r.virtualSecondaryWithMask())
      st->activeSecondaryWithMaskIs(a, true);
    e.ipStatus_->ipIntfStatusIs(r.intfId(), st);
  }
};

struct IntfAddressEditor::V6 {
  using Addr = Plexa::Ip6AddrWithMask;
  using IntfConfig = Ip6::IntfConfig;
  static constexpr const char* kNoConfig = "The state has no IPv6 configuration";

  static Mox::Ptr<Ip6::Config>& config(IntfAddressEditor& e) { return e.ip6Config_; }
  static Mox::Ptr<IntfConfig> find(const Ip6::Config& c, const Plexa::IntfId& id) {
    return c.intf(id);
  }
  static void insert(Ip6::Config& c, const Plexa::IntfId& id, Mox::Ptr<IntfConfig> r) {
    c.intfIs(id, std::move(r));
  }
  static void erase(Ip6::Config& c, const Plexa::IntfId& id) { c.intfDel(id); }
  // `linkLocal` is the keyword that names a link-local address: one that belongs to its link
  // alone, so it overlaps nothing, and that the check takes only with the keyword.
  static AddressQueryResult check(const IntfAddressEditor& e, const Plexa::IntfId& intf,
                                  const Addr& addr, bool linkLocal) {
    if (linkLocal) {
      AddressQueryResult r;
      r.acceptableIs(addr.address().isLinkLocal());
      if (!r.acceptable())
        r.msgIs(Mox::String8("Address " + addr.stringValue() + " is not a link-local address"));
      return r;
    }
    const Address6QueryParams params(e.ip6Config_, Mox::String8(intf.stringValue()), e.mgmtPrefix_,
                                     addr);
    return Address6AssignmentChecker().check(params);
  }
  static void assign(IntfConfig& r, const Addr& addr, bool) {
    Ip6::AddressInfo info;
    info.addrIs(addr);
    r.addrIs(info.addr(), info);
  }
  static bool unassign(IntfConfig& r, const Addr& addr, bool) { return r.addrDel(addr); }
  static void clear(IntfConfig& r) { r.addrDelAll(); }
  static void sync(IntfAddressEditor& e, const IntfConfig& r) {
    if (!e.ip6Status_) return;
    auto st = Mox::makePtr<Ip6::IntfStatus>(r.intfId());
    for (const auto& entry : r.addr())
      st->addrIs(entry.first, true);
    e.ip6Status_->intfIs(r.intfId(), st);
  }
};

namespace {

bool isIpv6(const Mox::String8& text) {
  return text.view().find(':') != std::string_view::npos;
}

}  // namespace

IntfAddressEditor::IntfAddressEditor(Mox::Ptr<Ip::Config> ipConfig, Mox::Ptr<Ip::Status> ipStatus,
                                     Mox::Ptr<Ip6::Config> ip6Config,
                                     Mox::Ptr<Ip6::Status> ip6Status,
                                     Mox::Ptr<Interface::AllIntfConfigDir const> allIntfConfig,
                                     Mox::String8 mgmtPrefix)
    : ipConfig_(std::move(ipConfig)),
      ipStatus_(std::move(ipStatus)),
      ip6Config_(std::move(ip6Config)),
      ip6Status_(std::move(ip6Status)),
      allIntfConfig_(std::move(allIntfConfig)),
      mgmtPrefix_(std::move(mgmtPrefix)) {}

Mox::String8 IntfAddressEditor::addAddress(Plexa::IntfId intf, Mox::String8 addrWithMask,
                                           bool secondary) {
  MOX_TRACE(editorTrace, 5, "Assigning ", addrWithMask.view(), " to ", intf.stringValue());
  return isIpv6(addrWithMask) ? add<V6>(intf, addrWithMask, secondary)
                              : add<V4>(intf, addrWithMask, secondary);
}

Mox::String8 IntfAddressEditor::removeAddress(Plexa::IntfId intf, Mox::String8 addrWithMask,
                                              bool secondary) {
  MOX_TRACE(editorTrace, 5, "Removing ", addrWithMask.view(), " from ", intf.stringValue());
  return isIpv6(addrWithMask) ? remove<V6>(intf, addrWithMask, secondary)
                              : remove<V4>(intf, addrWithMask, secondary);
}

bool IntfAddressEditor::removeAddresses(Plexa::IntfId intf, bool ipv6) {
  return ipv6 ? removeAll<V6>(intf) : removeAll<V4>(intf);
}

template <class Family>
Mox::String8 IntfAddressEditor::add(const Plexa::IntfId& intf, const Mox::String8& text,
                                    bool secondary) {
  const auto addr = Family::Addr::fromString(std::string(text.view()));
  auto& config = Family::config(*this);
  if (!config) {
    const AddressQueryResult verdict = Family::check(*this, intf, addr, secondary);
    return verdict.acceptable() ? Mox::String8(Family::kNoConfig) : verdict.msg();
  }
  // The checks take an interface without an IP record for one of the default VRF; one that is
  // already in another VRF gets its record first, so that its address is judged there.
  auto record = Family::find(*config, intf);
  const bool fresh = !record;
  if (fresh) {
    record = Mox::makePtr<typename Family::IntfConfig>(intf);
    const auto* known = allIntfConfig_ ? &allIntfConfig_->intfConfig() : nullptr;
    record->vrfIs(known ? intfVrf(*known, Mox::String8(intf.stringValue()))
                        : L3::VrfName::defaultVrf());
    Family::insert(*config, intf, record);
  }
  const AddressQueryResult verdict = Family::check(*this, intf, addr, secondary);
  if (!verdict.acceptable()) {
    if (fresh) Family::erase(*config, intf);
    return verdict.msg();
  }
  Family::assign(*record, addr, secondary);
  Family::sync(*this, *record);
  return Mox::String8();
}

template <class Family>
Mox::String8 IntfAddressEditor::remove(const Plexa::IntfId& intf, const Mox::String8& text,
                                       bool secondary) {
  const auto addr = Family::Addr::fromString(std::string(text.view()));
  auto& config = Family::config(*this);
  auto record = config ? Family::find(*config, intf) : nullptr;
  if (!record || !Family::unassign(*record, addr, secondary)) return notAssigned(text, intf);
  Family::sync(*this, *record);
  return Mox::String8();
}

template <class Family>
bool IntfAddressEditor::removeAll(const Plexa::IntfId& intf) {
  auto& config = Family::config(*this);
  auto record = config ? Family::find(*config, intf) : nullptr;
  if (!record) return false;
  Family::clear(*record);
  Family::sync(*this, *record);
  return true;
}

}  // namespace Rova
