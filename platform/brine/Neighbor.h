#pragma once
// Resolved neighbours (ARP and IPv6 neighbour entries, one table) and the VRF id map.

#include <cstdint>
#include <functional>

#include "platform/brine/PodArray.h"
#include "platform/brine/Table.h"
#include "platform/plexa/EthAddr.h"
#include "platform/plexa/IntfId.h"
#include "platform/plexa/IpAddr.h"
#include "platform/plexa/VrfName.h"

namespace Arp::Table {

struct ArpKey {
  std::uint32_t vrfId = 0;
  Plexa::IpGenAddr addr;
  Plexa::IntfId intfId;
  friend bool operator==(const ArpKey&, const ArpKey&) = default;
};

struct ArpEntry {
  ArpKey arpKey;
  Plexa::EthAddr ethAddr;
  const ArpKey& key() const { return arpKey; }
};

struct ArpKeyHash {
  std::size_t operator()(const ArpKey& k) const noexcept {
    return std::hash<Plexa::IpGenAddr>()(k.addr) ^ std::hash<Plexa::IntfId>()(k.intfId) * 31 ^
           k.vrfId;
  }
};

class Status : public Brine::Table<ArpKey, ArpEntry, ArpKeyHash> {
  MOX_ENTITY("Arp::Table::Status")
};

}  // namespace Arp::Table

namespace Vrf::VrfIdMap {

using VrfNameIndex = std::uint8_t;
constexpr std::uint32_t kDefaultVrfId = 0;

struct Entry {
  std::uint32_t vrfId = 0;
  Pelo::PodArray<unsigned char, VrfNameIndex, 101> vrfNameBytes;

  std::uint32_t key() const { return vrfId; }
  L3::VrfName vrfName() const { return L3::VrfName(vrfNameBytes.view()); }
  void vrfNameIs(const L3::VrfName& n) { vrfNameBytes.setText(n.stringValue()); }
};

class Status : public Brine::Table<std::uint32_t, Entry> {
  MOX_ENTITY("Vrf::VrfIdMap::Status")

 public:
  // The name of a VRF id; the unset name when the id is not in the map.
  L3::VrfName vrfName(std::uint32_t vrfId) const { return lookup(vrfId).vrfName(); }
};

}  // namespace Vrf::VrfIdMap
