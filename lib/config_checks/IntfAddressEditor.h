#pragma once
// Assigning and removing interface addresses, IPv4 and IPv6 alike: the address is checked as
// the assignment checkers judge it, written to the interface's IP configuration, and the
// interface's IP status is written to match it, as a loaded state's status matches its
// configuration. Configuration mode, the Python module and a state agent make address edits
// through this one class, so they cannot drift apart.
//
//   Rova::IntfAddressEditor editor(ip, ipStatus, ip6, ip6Status, allIntfConfig, "Management");
//   editor.addAddress(Plexa::IntfId("Ethernet1"), "10.0.0.1/24", false);  // "" or why not
//   editor.removeAddress(Plexa::IntfId("Ethernet1"), "2001:db8::1/64", false);

#include "platform/mox/Attribute.h"
#include "platform/mox/Ptr.h"
#include "platform/mox/String8.h"
#include "platform/plexa/IntfId.h"
#include "platform/state/Interface.h"
#include "platform/state/Ip.h"

namespace Rova {

#define ROVA_INTF_ADDRESS_EDITOR_ATTRS(F, C)

class IntfAddressEditor : public Mox::Entity {
  MOX_ENTITY_TYPE(IntfAddressEditor, "Rova::IntfAddressEditor", ROVA_INTF_ADDRESS_EDITOR_ATTRS)

 public:
  // A status that is null is not kept; an interface new to the IP configuration takes its VRF
  // from `allIntfConfig` (the default VRF when it is not there). Interfaces whose names start
  // with `mgmtPrefix` are management interfaces to the checks.
  IntfAddressEditor(Mox::Ptr<Ip::Config> ipConfig, Mox::Ptr<Ip::Status> ipStatus,
                    Mox::Ptr<Ip6::Config> ip6Config, Mox::Ptr<Ip6::Status> ip6Status,
                    Mox::Ptr<Interface::AllIntfConfigDir const> allIntfConfig,
                    Mox::String8 mgmtPrefix);

  // `addrWithMask` is an IPv4 or an IPv6 address with its mask length, which says the family.
  // An IPv4 primary replaces the primary (its mask may change); a secondary is added to the
  // secondaries, and may be given again but not with another mask. IPv6 addresses have no
  // primary: each is one more, and `secondary` says it is link-local (the `link-local`
  // keyword), which only a link-local address may be and which only such an address needs.
  // Returns the refusal, empty when the address is assigned.
  Mox::String8 addAddress(Plexa::IntfId intf, Mox::String8 addrWithMask, bool secondary);
  // Removes one address, which must be assigned as named (IPv4: as primary or as secondary).
  // Returns the refusal, empty when it went.
  Mox::String8 removeAddress(Plexa::IntfId intf, Mox::String8 addrWithMask, bool secondary);
  // Removes every address of one family from the interface (IPv4: the primary and the
  // secondaries); returns false when the interface has no configuration of that family.
  bool removeAddresses(Plexa::IntfId intf, bool ipv6);

 private:
  template <class Family>
  Mox::String8 add(const Plexa::IntfId& intf, const Mox::String8& text, bool secondary);
  template <class Family>
  Mox::String8 remove(const Plexa::IntfId& intf, const Mox::String8& text, bool secondary);
  template <class Family>
  bool removeAll(const Plexa::IntfId& intf);

  Mox::Ptr<Ip::Config> ipConfig_;
  Mox::Ptr<Ip::Status> ipStatus_;
  Mox::Ptr<Ip6::Config> ip6Config_;
  Mox::Ptr<Ip6::Status> ip6Status_;
  Mox::Ptr<Interface::AllIntfConfigDir const> allIntfConfig_;
  Mox::String8 mgmtPrefix_;

  struct V4;
  struct V6;
};

}  // namespace Rova
