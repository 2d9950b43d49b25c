#pragma once
// The kernel's routes as the follower keeps them between notifications: only what it needs to
// work out a prefix's record again when one route of the prefix changes (the others of its
// kernel tables, their metrics, types and next hops), in as little memory as it can. Used by
// the follower in LiveReader.cpp alone.
//
// A route is 24 bytes (IPv4) or 36 (IPv6) in a dense array, found through an index of 32-bit
// slots; its next hops are a set shared by every route with the same ones (a table of a
// million routes has a few hundred sets). A prefix's first route of a table is in the array;
// more routes of the prefix in that table (other metrics) wait in a side map, which a router's
// table rarely needs.

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "snapshot/KernelRecords.h"

namespace Snapshot::live {

namespace k = kernel;

// The next-hop lists routes use, each kept once and counted.
class HopSets {
 public:
  // The set's number; 0 for no next hop.
  std::uint32_t intern(const std::vector<k::Nexthop>& hops) {
    if (hops.empty()) return 0;
    key_.clear();
    for (const k::Nexthop& h : hops) {
      append(h.gateway.af());
      key_.append(reinterpret_cast<const char*>(h.gateway.bytes().data()), 16);
      append(h.ifindex);
      append(h.weight);
      append(h.offload);
      append(static_cast<std::uint32_t>(h.labels.action()));
      append(static_cast<std::uint32_t>(h.labels.size()));
      for (std::size_t i = 0; i < h.labels.size(); ++i)
        append(h.labels.label(i).value());
    }
    auto [it, added] = byKey_.try_emplace(key_, 0);
    if (added) {
      // Number 0 is "no next hop": sets_ begins with it, and it is never handed out.
      std::uint32_t id;
      if (!free_.empty()) {
        id = free_.back();
        free_.pop_back();
      } else {
        id = static_cast<std::uint32_t>(sets_.size());
        sets_.emplace_back();
      }
      sets_[id].hops = hops;
      sets_[id].key = &it->first;
      it->second = id;
    }
    ++sets_[it->second].refs;
    return it->second;
  }
  void release(std::uint32_t id) {
    if (id == 0 || id >= sets_.size() || sets_[id].refs == 0) return;
    if (--sets_[id].refs > 0) return;
    byKey_.erase(*sets_[id].key);
    sets_[id] = Set{};
    free_.push_back(id);
  }
  const std::vector<k::Nexthop>& hops(std::uint32_t id) const {
    static const std::vector<k::Nexthop> none;
    return id == 0 || id >= sets_.size() ? none : sets_[id].hops;
  }
  std::size_t size() const { return byKey_.size(); }

 private:
  template <class T>
  void append(T v) {
    key_.append(reinterpret_cast<const char*>(&v), sizeof v);
  }
  struct Set {
    std::vector<k::Nexthop> hops;
    const std::string* key = nullptr;
    std::uint32_t refs = 0;
  };
  std::vector<Set> sets_{1};
  std::vector<std::uint32_t> free_;
  std::unordered_map<std::string, std::uint32_t> byKey_;
  std::string key_;
};

// The routes of one family. Addr: std::uint32_t (IPv4, host order) or the 16 bytes of IPv6.
template <class Addr>
class RouteMirror {
 public:
  static constexpr bool kV4 = sizeof(Addr) == 4;

  // A prefix of one kernel table.
  struct Key {
    std::uint32_t table = 0;
    Addr dst{};
    std::uint8_t len = 0;
    bool operator==(const Key& o) const {
      return table == o.table && len == o.len && std::memcmp(&dst, &o.dst, sizeof dst) == 0;
    }
    bool operator<(const Key& o) const {
      if (table != o.table) return table < o.table;
      if (len != o.len) return len < o.len;
      return std::memcmp(&dst, &o.dst, sizeof dst) < 0;
    }
  };
  struct KeyHash {
    std::size_t operator()(const Key& k) const {
      std::uint64_t h = k.table * 0x9e3779b97f4a7c15ull ^ k.len;
      if constexpr (kV4) {
        h ^= std::uint64_t(k.dst) << 8;
      } else {
        std::uint64_t a, b;
        std::memcpy(&a, k.dst.data(), 8);
        std::memcpy(&b, k.dst.data() + 8, 8);
        h ^= a * 0xff51afd7ed558ccdull ^ b;
      }
      h *= 0xc4ceb9fe1a85ec53ull;
      return static_cast<std::size_t>(h ^ (h >> 29));
    }
  };
  struct Entry {
    std::uint32_t table = 0;
    Addr dst{};
    std::uint32_t metric = 0;
    std::uint32_t nhid = 0;
    std::uint32_t hops = 0;  // HopSets number
    std::uint8_t len = 0;
    std::uint8_t type = 0;
    std::uint8_t protocol = 0;
    k::Offload offload = k::Offload::none;
    Key key() const { return Key{table, dst, len}; }
  };

  static Key keyOf(const k::Route& r) {
    Key key;
    key.table = r.table;
    key.len = r.prefixLen;
    key.dst = addrOf(r.destination);
    return key;
  }
  static Addr addrOf(const Plexa::IpGenAddr& a) {
    if constexpr (kV4) {
      return a.v4Addr().value();
    } else {
      return a.v6Addr().bytes();
    }
  }

  // A route added, or replacing the one of its table, prefix and metric. IPv6 keeps each next
  // hop of a multipath route as a route of its own: an added one joins the others, unless it
  // replaces them all.
  void routeNew(const k::Route& r, bool replace, HopSets& sets) {
    Entry* e = find(keyOf(r), r.metric);
    if (!e) {
      Entry fresh = entryOf(r);
      fresh.hops = sets.intern(r.nexthops);
      insert(fresh);
      return;
    }
    std::vector<k::Nexthop> hops;
    if (!kV4 && !replace && !r.nexthops.empty()) {
      hops = sets.hops(e->hops);
      for (const k::Nexthop& h : r.nexthops)
        putHop(hops, h);
    } else {
      hops = r.nexthops;
    }
    const std::uint32_t old = e->hops;
    const std::uint32_t next = sets.intern(hops);
    *e = entryOf(r);
    e->hops = next;
    sets.release(old);
  }
  // A route removed: an IPv6 route's next hops leave the others of the route.
  void routeDel(const k::Route& r, HopSets& sets) {
    const Key key = keyOf(r);
    Entry* e = find(key, r.metric);
    if (!e) return;
    if (!kV4 && !r.nexthops.empty()) {
      std::vector<k::Nexthop> hops = sets.hops(e->hops);
      for (const k::Nexthop& h : r.nexthops)
        std::erase_if(hops, [&](const k::Nexthop& have) { return sameHop(have, h); });
      if (!hops.empty()) {
        const std::uint32_t old = e->hops;
        e->hops = sets.intern(hops);
        sets.release(old);
        return;
      }
    }
    sets.release(e->hops);
    erase(key, r.metric);
  }

  // Calls f(route) for every route of the prefix in the table.
  template <class F>
  void forEach(const Key& key, const HopSets& sets, F&& f) const {
    const std::uint32_t i = slotValue(key);
    if (i == 0) return;
    k::Route r;
    routeOf(records_[i - 1], sets, r);
    f(r);
    if (more_.empty()) return;
    auto it = more_.find(key);
    if (it == more_.end()) return;
    for (const Entry& e : it->second) {
      routeOf(e, sets, r);
      f(r);
    }
  }

  std::size_t size() const { return records_.size() + moreCount_; }
  // Bytes held: the records, the index and the side map's entries.
  std::size_t bytes() const {
    return records_.capacity() * sizeof(Entry) + slots_.capacity() * 4 +
           moreCount_ * (sizeof(Entry) + 64);
  }

 private:
  static bool sameHop(const k::Nexthop& a, const k::Nexthop& b) {
    return a.ifindex == b.ifindex && a.gateway == b.gateway;
  }
  static void putHop(std::vector<k::Nexthop>& hops, const k::Nexthop& h) {
    for (k::Nexthop& have : hops) {
      if (sameHop(have, h)) {
        have = h;
        return;
      }
    }
    hops.push_back(h);
  }
  static Entry entryOf(const k::Route& r) {
    Entry e;
    e.table = r.table;
    e.dst = addrOf(r.destination);
    e.len = r.prefixLen;
    e.metric = r.metric;
    e.nhid = r.nhid;
    e.type = r.type;
    e.protocol = r.protocol;
    e.offload = r.offload;
    return e;
  }
  static void routeOf(const Entry& e, const HopSets& sets, k::Route& r) {
    r.family = kV4 ? Plexa::AddressFamily::ipv4 : Plexa::AddressFamily::ipv6;
    r.table = e.table;
    r.type = e.type;
    r.protocol = e.protocol;
    r.tos = 0;
    if constexpr (kV4) {
      r.destination = Plexa::IpAddr(e.dst);
    } else {
      r.destination = Plexa::Ip6Addr(e.dst);
    }
    r.prefixLen = e.len;
    r.metric = e.metric;
    r.nhid = e.nhid;
    r.offload = e.offload;
    r.nexthops = sets.hops(e.hops);
  }

  std::size_t home(const Key& key) const { return KeyHash()(key) & (slots_.size() - 1); }
  // The record number + 1 of the key's first route; 0 when it has none.
  std::uint32_t slotValue(const Key& key) const {
    if (slots_.empty()) return 0;
    for (std::size_t s = home(key);; s = (s + 1) & (slots_.size() - 1)) {
      const std::uint32_t v = slots_[s];
      if (v == 0 || records_[v - 1].key() == key) return v;
    }
  }
  std::size_t slotOf(const Key& key) const {
    for (std::size_t s = home(key);; s = (s + 1) & (slots_.size() - 1)) {
      if (records_[slots_[s] - 1].key() == key) return s;
    }
  }
  Entry* find(const Key& key, std::uint32_t metric) {
    const std::uint32_t i = slotValue(key);
    if (i == 0) return nullptr;
    if (records_[i - 1].metric == metric) return &records_[i - 1];
    if (more_.empty()) return nullptr;
    auto it = more_.find(key);
    if (it == more_.end()) return nullptr;
    for (Entry& e : it->second)
      if (e.metric == metric) return &e;
    return nullptr;
  }
  void insert(const Entry& e) {
    const Key key = e.key();
    if (slotValue(key) != 0) {
      more_[key].push_back(e);
      ++moreCount_;
      return;
    }
    if (records_.size() == records_.capacity())
      records_.reserve(std::max<std::size_t>(64, records_.size() + records_.size() / 4));
    records_.push_back(e);
    if (records_.size() * 4 > slots_.size() * 3)
      rehash(std::max<std::size_t>(64, slots_.size() * 2));
    else
      place(key, static_cast<std::uint32_t>(records_.size()));
  }
  void erase(const Key& key, std::uint32_t metric) {
    const std::size_t s = slotOf(key);
    const std::uint32_t i = slots_[s] - 1;
    if (records_[i].metric != metric) {
      auto it = more_.find(key);
      std::erase_if(it->second, [&](const Entry& e) { return e.metric == metric; });
      --moreCount_;
      if (it->second.empty()) more_.erase(it);
      return;
    }
    if (auto it = more_.find(key); it != more_.end()) {
      // Another metric of the prefix takes the first one's place.
      records_[i] = it->second.back();
      it->second.pop_back();
      --moreCount_;
      if (it->second.empty()) more_.erase(it);
      return;
    }
    eraseSlot(s);
    const std::uint32_t last = static_cast<std::uint32_t>(records_.size() - 1);
    if (i != last) {
      records_[i] = records_[last];
      slots_[slotOf(records_[i].key())] = i + 1;
    }
    records_.pop_back();
  }
  void place(const Key& key, std::uint32_t value) {
    std::size_t s = home(key);
    while (slots_[s] != 0)
      s = (s + 1) & (slots_.size() - 1);
    slots_[s] = value;
  }
  void eraseSlot(std::size_t s) {
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t next = (s + 1) & mask; slots_[next] != 0; next = (next + 1) & mask) {
      const std::size_t h = home(records_[slots_[next] - 1].key());
      if (((next - h) & mask) >= ((next - s) & mask)) {
        slots_[s] = slots_[next];
        s = next;
      }
    }
    slots_[s] = 0;
  }
  void rehash(std::size_t n) {
    slots_.assign(n, 0);
    slots_.shrink_to_fit();
    for (std::uint32_t i = 0; i < records_.size(); ++i)
      place(records_[i].key(), i + 1);
  }

  std::vector<Entry> records_;
  std::vector<std::uint32_t> slots_;
  std::map<Key, std::vector<Entry>> more_;
  std::size_t moreCount_ = 0;
};

}  // namespace Snapshot::live
