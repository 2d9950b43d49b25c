#include "platform/plexa/IntfId.h"

#include <mutex>
#include <stdexcept>
#include <string>
#include <unordered_map>

namespace Plexa {

namespace {

// Layout of a known name: kind in the top 6 bits, then three numbers of 26, 24 and 8 bits,
// each stored plus one so that an absent number (0) sorts before any present one.
constexpr unsigned kKindShift = 58;
constexpr unsigned kAShift = 32, kABits = 26;
constexpr unsigned kBShift = 8, kBBits = 24;
constexpr unsigned kCBits = 8;

struct Kind {
  const char* prefix;
  char separator;  // between the numbers
  int maxNumbers;  // how many numbers the name may have (at least one unless zero)
};

// In alphabetical order of their prefixes, so that the kind code orders as the name does.
// Code 0 is the empty id and code 63 marks an interned name.
constexpr Kind kKinds[] = {
    {"", 0, 0},           {"Cpu", 0, 0},          {"DynamicTunnel", '.', 2},
    {"Ethernet", '/', 3}, {"Loopback", 0, 1},     {"Management", '/', 2},
    {"Null", 0, 1},       {"Port-Channel", 0, 1}, {"Tunnel", 0, 1},
    {"Vlan", 0, 1},       {"Vxlan", 0, 1},
};
constexpr std::uint64_t kDynamicTunnelKind = 2;
constexpr std::uint64_t kManagementKind = 5;
constexpr std::uint64_t kInternedKind = 63;
constexpr int kKindCount = sizeof kKinds / sizeof kKinds[0];

// Interned names. Never freed: interface names are few and live as long as the process.
// A name's value is a hash of its text, not its place in the table, so that every process
// gives a name the same value: records that hold interface ids are shared between processes
// (a state agent's tables in shared memory), and a reader that knows the names reads them.
struct Interned {
  std::mutex mutex;
  std::unordered_map<std::uint64_t, std::string> names;
};

Interned& interned() {
  static Interned* t = new Interned;
  return *t;
}

constexpr std::uint64_t kPayloadMask = (std::uint64_t(1) << kKindShift) - 1;

std::uint64_t intern(std::string_view name) {
  // FNV-1a, then a final mix so that names differing in their last bytes spread over the
  // high bits too.
  std::uint64_t h = 0xcbf29ce484222325ull;
  for (unsigned char c : name) {
    h ^= c;
    h *= 0x100000001b3ull;
  }
  h ^= h >> 29;
  h *= 0xbf58476d1ce4e5b9ull;
  h ^= h >> 32;
  std::uint64_t payload = h & kPayloadMask;
  // All ones is the invalid id.
  if (payload == kPayloadMask) payload = kPayloadMask - 1;
  const std::uint64_t v = kInternedKind << kKindShift | payload;
  auto& t = interned();
  std::lock_guard<std::mutex> g(t.mutex);
  auto [it, added] = t.names.try_emplace(v, name);
  if (!added && it->second != name)
    throw std::length_error("interface names '" + it->second + "' and '" + std::string(name) +
                            "' cannot both be held");
  return v;
}

const std::string& internedName(std::uint64_t v) {
  static const std::string unknown = "<unknown>";
  auto& t = interned();
  std::lock_guard<std::mutex> g(t.mutex);
  auto it = t.names.find(v);
  return it == t.names.end() ? unknown : it->second;
}

// Parses a decimal number without leading zeros; false when absent or too large.
bool parseNumber(std::string_view& s, std::uint64_t limit, std::uint64_t& out) {
  std::size_t i = 0;
  out = 0;
  while (i < s.size() && s[i] >= '0' && s[i] <= '9') {
    out = out * 10 + std::uint64_t(s[i] - '0');
    if (out > limit) return false;
    ++i;
  }
  if (i == 0 || (i > 1 && s[0] == '0')) return false;
  s.remove_prefix(i);
  return true;
}

// Encodes a known name, or returns 0 when the name is of no known form.
std::uint64_t encode(std::string_view name) {
  for (int k = 1; k < kKindCount; ++k) {
    const Kind& kind = kKinds[k];
    const std::string_view prefix = kind.prefix;
    if (name.substr(0, prefix.size()) != prefix) continue;
    std::string_view rest = name.substr(prefix.size());
    if (kind.maxNumbers == 0) return rest.empty() ? std::uint64_t(k) << kKindShift : 0;
    const unsigned bits[3] = {kABits, kBBits, kCBits};
    const unsigned shifts[3] = {kAShift, kBShift, 0};
    std::uint64_t v = std::uint64_t(k) << kKindShift;
    for (int n = 0; n < kind.maxNumbers; ++n) {
      std::uint64_t num;
      if (!parseNumber(rest, (std::uint64_t(1) << bits[n]) - 2, num)) return 0;
      v |= (num + 1) << shifts[n];
      if (rest.empty()) return v;
      if (rest[0] != kind.separator || n + 1 == kind.maxNumbers) return 0;
      rest.remove_prefix(1);
    }
    return 0;
  }
  return 0;
}

}  // namespace

IntfId::IntfId(std::string_view name) {
  if (name.empty()) return;
  value_ = encode(name);
  if (value_ == 0) value_ = intern(name);
}

std::vector<std::string> IntfId::internedNames() {
  auto& t = interned();
  std::lock_guard<std::mutex> g(t.mutex);
  std::vector<std::string> names;
  names.reserve(t.names.size());
  for (const auto& [v, name] : t.names)
    names.push_back(name);
  return names;
}

bool IntfId::validName(std::string_view name) {
  if (name.empty() || name.size() > kMaxNameBytes) return false;
  for (char c : name) {
    if (c <= ' ' || c >= 127) return false;
  }
  return true;
}

bool IntfId::isManagement() const {
  return value_ >> kKindShift == kManagementKind && isValid();
}

void IntfId::appendTo(std::string& out) const {
  if (isEmpty()) return;
  if (isInvalid()) {
    out += "<invalid>";
    return;
  }
  const std::uint64_t kind = value_ >> kKindShift;
  if (kind == kInternedKind) {
    out += internedName(value_);
    return;
  }
  out += kKinds[kind].prefix;
  const std::uint64_t nums[3] = {value_ >> kAShift & ((std::uint64_t(1) << kABits) - 1),
                                 value_ >> kBShift & ((std::uint64_t(1) << kBBits) - 1),
                                 value_ & ((std::uint64_t(1) << kCBits) - 1)};
  for (int n = 0; n < 3 && nums[n]; ++n) {
    if (n) out += kKinds[kind].separator;
    out += std::to_string(nums[n] - 1);
  }
}

std::string IntfId::stringValue() const {
  std::string s;
  appendTo(s);
  return s;
}

std::strong_ordering operator<=>(IntfId a, IntfId b) {
  if (a.value_ == b.value_) return std::strong_ordering::equal;
  const bool ai = a.value_ >> kKindShift == kInternedKind && !a.isInvalid();
  const bool bi = b.value_ >> kKindShift == kInternedKind && !b.isInvalid();
  if (!ai && !bi) return a.value_ <=> b.value_;
  // An interned name orders by its text among all others.
  if (a.isInvalid()) return std::strong_ordering::greater;
  if (b.isInvalid()) return std::strong_ordering::less;
  const int c = naturalCompare(a.stringValue(), b.stringValue());
  if (c != 0) return c <=> 0;
  return a.value_ <=> b.value_;
}

int naturalCompare(std::string_view a, std::string_view b) {
  std::size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    const bool da = a[i] >= '0' && a[i] <= '9';
    const bool db = b[j] >= '0' && b[j] <= '9';
    if (da && db) {
      std::size_t ie = i, je = j;
      while (ie < a.size() && a[ie] == '0')
        ++ie;
      while (je < b.size() && b[je] == '0')
        ++je;
      std::size_t ia = ie, jb = je;
      while (ia < a.size() && a[ia] >= '0' && a[ia] <= '9')
        ++ia;
      while (jb < b.size() && b[jb] >= '0' && b[jb] <= '9')
        ++jb;
      // More significant digits means a larger number; equal length compares digit by digit.
      if (ia - ie != jb - je) return ia - ie < jb - je ? -1 : 1;
      if (int c = a.substr(ie, ia - ie).compare(b.substr(je, jb - je)); c != 0)
        return c < 0 ? -1 : 1;
      i = ia;
      j = jb;
      continue;
    }
    if (a[i] != b[j])
      return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[j]) ? -1 : 1;
    ++i;
    ++j;
  }
  if (i < a.size()) return 1;
  if (j < b.size()) return -1;
  return 0;
}

bool DynamicTunnelIntfId::isDynamicTunnelIntfId(IntfId id) {
  return id.value_ >> kKindShift == kDynamicTunnelKind && !id.isInvalid() &&
         (id.value_ >> kBShift & ((std::uint64_t(1) << kBBits) - 1)) != 0;
}

std::uint64_t DynamicTunnelIntfId::tunnelId(IntfId id) {
  if (!isDynamicTunnelIntfId(id)) return 0;
  const std::uint64_t type = (id.value_ >> kAShift & ((std::uint64_t(1) << kABits) - 1)) - 1;
  const std::uint64_t index = (id.value_ >> kBShift & ((std::uint64_t(1) << kBBits) - 1)) - 1;
  return type << kIndexBits | index;
}

IntfId DynamicTunnelIntfId::intfId(std::uint64_t tunnelId) {
  return IntfId("DynamicTunnel" + std::to_string(tunnelId >> kIndexBits) + "." +
                std::to_string(tunnelId & kIndexMask));
}

}  // namespace Plexa
