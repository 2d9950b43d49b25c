#pragma once
// Interface identifiers. An IntfId is one 64-bit word, so it costs nothing to copy or compare
// and fits in table records. The usual names (Ethernet3/1, Port-Channel10, Vlan100,
// Loopback0, Management1, DynamicTunnel1.5, ...) are encoded as a kind and up to three
// numbers laid out so that comparing the words orders names naturally (Ethernet2 before
// Ethernet10). Any other name (eth0, a Linux bridge) is interned in a process-wide table and
// compared by name. The empty name is the empty id (0); all ones is the invalid id.

#include <compare>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Plexa {

class IntfId {
 public:
  static constexpr std::uint64_t kInvalidValue = ~std::uint64_t(0);

  constexpr IntfId() = default;
  // Never fails: a name of no known form is interned as it is.
  explicit IntfId(std::string_view name);

  static IntfId fromString(std::string_view name) { return IntfId(name); }
  static constexpr IntfId fromValue(std::uint64_t v) {
    IntfId i;
    i.value_ = v;
    return i;
  }
  static constexpr IntfId invalid() { return fromValue(kInvalidValue); }

  constexpr std::uint64_t value() const { return value_; }
  constexpr bool isEmpty() const { return value_ == 0; }
  constexpr bool isInvalid() const { return value_ == kInvalidValue; }
  // A real interface: neither empty nor invalid.
  constexpr bool isValid() const { return !isEmpty() && !isInvalid(); }
  bool isManagement() const;

  // The names a state may hold, whoever gives them (a snapshot, a configuration line): 1 to 64
  // printable ASCII characters without blanks. kNameRule says so in a message.
  static constexpr std::size_t kMaxNameBytes = 64;
  static constexpr const char* kNameRule = "1 to 64 printable characters without blanks";
  static bool validName(std::string_view name);
  // The names of no known form this process has seen. Their ids are the same in every
  // process, so a process that reads another's records learns the names from this list.
  static std::vector<std::string> internedNames();

  std::string stringValue() const;
  void appendTo(std::string& out) const;

  friend constexpr bool operator==(IntfId a, IntfId b) { return a.value_ == b.value_; }
  friend std::strong_ordering operator<=>(IntfId a, IntfId b);

 private:
  friend class DynamicTunnelIntfId;
  std::uint64_t value_ = 0;
};

// Interfaces that stand for a tunnel: "DynamicTunnel<type>.<index>", where the tunnel id is
// (type << 23) | index.
class DynamicTunnelIntfId {
 public:
  static constexpr unsigned kIndexBits = 23;
  static constexpr std::uint64_t kIndexMask = (std::uint64_t(1) << kIndexBits) - 1;

  static bool isDynamicTunnelIntfId(IntfId id);
  // The tunnel id the interface encodes; 0 for any other interface.
  static std::uint64_t tunnelId(IntfId id);
  static IntfId intfId(std::uint64_t tunnelId);
};

// Orders names as a person reads them: runs of digits compare as numbers.
int naturalCompare(std::string_view a, std::string_view b);

}  // namespace Plexa

template <>
struct std::hash<Plexa::IntfId> {
  std::size_t operator()(Plexa::IntfId i) const noexcept {
    std::uint64_t k = i.value() * 0x9e3779b97f4a7c15ull;
    return static_cast<std::size_t>(k ^ (k >> 31));
  }
};
