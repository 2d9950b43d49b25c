// Interfaces with their addresses, and neighbours.

#include "snapshot/loader/Loader.h"

namespace Snapshot::loader {

void Loader::interfaces(od::value& v) {
  od::array arr = r_.array(v);
  r_.elements(arr, [&](std::size_t, od::value& e) { interface(e); });
}

enum IntfKey { kIfName, kIfVrf, kIfDescription, kIfOperUp, kIfEnabled, kIfIpv4, kIfIpv6 };
constexpr Keys<7> kIntfKeys = {"name", "vrf", "description", "operUp", "enabled", "ipv4", "ipv6"};
enum Ipv4Key { kPrimary, kSecondaries, kVirtualPrimary, kVirtualSecondaries };
constexpr Keys<4> kIpv4Keys = {"primary", "secondaries", "virtualPrimary", "virtualSecondaries"};

void Loader::interface(od::value& v) {
  Plexa::IntfId id;
  L3::VrfName vrf = L3::VrfName::defaultVrf();
  bool linked = true;
  std::string description;
  bool operUp = true, enabled = true;
  Ptr<Ip::IpIntfConfig> ip;
  Ptr<Ip6::IntfConfig> ip6;
  auto addSet = [&](od::value& f, Ip::AddrWithMaskSet& set) {
    r_.elements(r_.array(f), [&](std::size_t, od::value& a) {
      const auto am = addressWithMask<Plexa::IpAddrWithMask>(a, "IPv4");
      if (!set.newEntry(am)) r_.fail("duplicate address " + am.stringValue());
    });
  };
  r_.fields(r_.object(v), kIntfKeys, bit(kIfName), [&](unsigned k, od::value& f) {
    switch (k) {
      case kIfName:
        id = intf(f);
        if (tables_.intfConfig->intfConfig().contains(id))
          r_.fail("duplicate interface " + id.stringValue());
        break;
      case kIfVrf:
        if (r_.isNull(f)) {
          linked = false;
          vrf = L3::VrfName();
        } else if (!r_.isString(f)) {
          r_.fail("expected a VRF name or null");
        } else {
          vrf = vrfName(r_.string(f));
          vrfRef(vrf);
        }
        break;
      case kIfDescription:
        description = r_.string(f);
        break;
      case kIfOperUp:
        operUp = r_.boolean(f);
        break;
      case kIfEnabled:
        enabled = r_.boolean(f);
        break;
      case kIfIpv4:
        ip = makePtr<Ip::IpIntfConfig>();
        r_.fields(r_.object(f), kIpv4Keys, 0, [&](unsigned a, od::value& g) {
          switch (a) {
            case kPrimary:
              ip->addrWithMaskIs(addressWithMask<Plexa::IpAddrWithMask>(g, "IPv4"));
              break;
            case kSecondaries:
              addSet(g, ip->secondaryWithMaskMutable());
              break;
            case kVirtualPrimary:
              ip->virtualAddrWithMaskIs(addressWithMask<Plexa::IpAddrWithMask>(g, "IPv4"));
              break;
            case kVirtualSecondaries:
              addSet(g, ip->virtualSecondaryWithMaskMutable());
              break;
          }
        });
        break;
      case kIfIpv6:
        ip6 = makePtr<Ip6::IntfConfig>();
        r_.elements(r_.array(f), [&](std::size_t, od::value& a) {
          const auto am = addressWithMask<Plexa::Ip6AddrWithMask>(a, "IPv6");
          Ip6::AddressInfo info;
          info.addrIs(am);
          if (!ip6->newAddr(am, info)) r_.fail("duplicate address " + am.stringValue());
        });
        break;
    }
  });
  if (!linked) vrf = L3::VrfName();

  auto config = makePtr<Interface::IntfConfig>(id);
  config->descriptionIs(description);
  config->vrfIs(vrf);
  config->enabledIs(enabled);
  tables_.intfConfig->intfConfigIs(id, config);
  auto status = makePtr<Interface::IntfStatus>(id);
  status->operUpIs(operUp);
  tables_.intfStatus->intfStatusIs(id, status);

  // The status mirrors the configuration: a snapshot describes a settled device.
  if (ip) {
    ip->intfIdIs(id);
    ip->vrfIs(vrf);
    auto st = makePtr<Ip::IpIntfStatus>(id);
    // The interface answers on its virtual addresses too, so they are active like the others.
    st->activeAddrWithMaskIs(ip->addrWithMask());
    if (!ip->virtualAddrWithMask().address().isZero()) {
      st->activeSecondaryWithMaskIs(ip->virtualAddrWithMask(), true);
    }
    for (const auto& a : ip->secondaryWithMask())
      st->activeSecondaryWithMaskIs(a, true);
    for (const auto& a : ip->virtualSecondaryWithMask())
      st->activeSecondaryWithMaskIs(a, true);
    tables_.ipConfig->intfConfigIs(id, ip);
    tables_.ipStatus->ipIntfStatusIs(id, st);
  }
  if (ip6) {
    ip6->intfIdIs(id);
    ip6->vrfIs(vrf);
    auto st = makePtr<Ip6::IntfStatus>(id);
    for (const auto& entry : ip6->addr())
      st->addrIs(entry.first, true);
    tables_.ip6Config->intfIs(id, ip6);
    tables_.ip6Status->intfIs(id, st);
  }
}

enum NeighborKey { kNbVrf, kNbAddress, kNbInterface, kNbMac };
constexpr Keys<4> kNeighborKeys = {"vrf", "address", "interface", "mac"};

void Loader::neighbors(od::value& v) {
  od::array arr = r_.array(v);
  neighbors_.reserve(r_.count(arr));
  r_.elements(arr, [&](std::size_t i, od::value& e) {
    PendingNeighbor n{{}, std::size_t(-1), i};
    r_.fields(r_.object(e), kNeighborKeys, bit(kNbAddress) | bit(kNbInterface) | bit(kNbMac),
              [&](unsigned k, od::value& f) {
                switch (k) {
                  case kNbVrf:
                    n.vrfRef = vrfRef(vrfName(r_.string(f)));
                    break;
                  case kNbAddress:
                    n.entry.arpKey.addr = genAddress(f);
                    break;
                  case kNbInterface:
                    n.entry.arpKey.intfId = intf(f);
                    break;
                  case kNbMac:
                    n.entry.ethAddr = mac(f);
                    break;
                }
              });
    if (n.vrfRef == std::size_t(-1)) n.vrfRef = vrfRef(L3::VrfName::defaultVrf());
    neighbors_.push_back(n);
  });
}

}  // namespace Snapshot::loader
