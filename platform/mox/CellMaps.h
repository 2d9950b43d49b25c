#pragma once
// Maps kept in one array of cells, some of them empty: by dense index (DenseMap) and by hash
// with open addressing (FlatHashMap), with the iteration they share.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/mox/MapCollection.h"
#include "platform/mox/Prefetch.h"

namespace Mox {

namespace detail {

// Iteration over a map kept in an array of cells, some of them empty: the array-backed maps
// below give their cells' count, which are in use, each cell's key and value, and removal of
// one cell (which leaves it empty and moves nothing), through `CellAccess<Map>`.
template <class Map>
struct CellAccess;

// Visits the cells in use in array order; deleteCurrent() empties the current cell, the
// iterator then stands on the next one, and the next ++ does not move it again.
template <class Map>
class CellIterator {
  using Access = CellAccess<Map>;

 public:
  CellIterator(Map* owner, std::size_t i) : owner_(owner), i_(i) { skip(); }
  explicit operator bool() const { return i_ < Access::count(*owner_); }
  CellIterator& operator++() {
    if (advanced_) {
      advanced_ = false;
    } else {
      ++i_;
      skip();
    }
    return *this;
  }
  decltype(auto) key() const { return Access::key(*owner_, i_); }
  auto& value() const { return Access::value(*owner_, i_); }
  void deleteCurrent() {
    Access::erase(*owner_, i_);
    ++i_;
    skip();
    advanced_ = true;
  }

 private:
  void skip() {
    while (i_ < Access::count(*owner_) && !Access::used(*owner_, i_))
      ++i_;
  }
  Map* owner_;
  std::size_t i_;
  bool advanced_ = false;
};

// The same for reading: *it is the pair (key, value).
template <class Map>
class ConstCellIterator {
  using Access = CellAccess<Map>;

 public:
  ConstCellIterator(const Map* owner, std::size_t i) : owner_(owner), i_(i) { skip(); }
  auto operator*() const {
    using KeyRef = decltype(Access::key(*owner_, i_));
    using ValueRef = decltype(Access::value(*owner_, i_));
    return std::pair<KeyRef, ValueRef>(Access::key(*owner_, i_), Access::value(*owner_, i_));
  }
  ConstCellIterator& operator++() {
    ++i_;
    skip();
    return *this;
  }
  bool operator==(const ConstCellIterator& o) const { return i_ == o.i_; }

 private:
  void skip() {
    while (i_ < Access::count(*owner_) && !Access::used(*owner_, i_))
      ++i_;
  }
  const Map* owner_;
  std::size_t i_;
};

}  // namespace detail

// An ordered map from small unsigned indices (0, 1, 2, ...) to values, kept as an array: for
// per-entry columns numbered densely from 0, where a lookup is an array access instead of a
// tree descent. The same operations as OrderedMap; iteration in ascending key order.
template <class K, class V>
class DenseMap {
  static_assert(std::is_unsigned_v<K>);

 public:
  using Key = K;
  using Value = V;

  using Iterator = detail::CellIterator<DenseMap>;
  using const_iterator = detail::ConstCellIterator<DenseMap>;

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  bool contains(const K& k) const { return k < cells_.size() && cells_[k].present; }
  const_iterator begin() const { return const_iterator(this, 0); }
  const_iterator end() const { return const_iterator(this, cells_.size()); }
  Iterator iterator() { return Iterator(this, 0); }
  std::uint32_t changes() const { return changes_.value(); }

  bool newEntry(const K& k, const V& v) {
    if (contains(k)) return false;
    slot(k) = v;
    notify(k);
    return true;
  }
  void set(const K& k, const V& v) {
    slot(k) = v;
    notify(k);
  }
  V get(const K& k) const { return contains(k) ? cells_[k].value : V{}; }
  const V* find(const K& k) const { return contains(k) ? &cells_[k].value : nullptr; }
  V* findMutable(const K& k) { return contains(k) ? &cells_[k].value : nullptr; }
  bool del(const K& k) {
    if (!contains(k)) return false;
    cells_[k].present = false;
    cells_[k].value = V{};
    --size_;
    changes_.bump();
    notify(k);
    return true;
  }
  void del(Iterator& it) { it.deleteCurrent(); }
  void delAll() {
    std::vector<K> keys;
    if (hook_) {
      for (std::size_t i = 0; i < cells_.size(); ++i) {
        if (cells_[i].present) keys.push_back(static_cast<K>(i));
      }
    }
    cells_.clear();
    size_ = 0;
    changes_.bump();
    for (const K& k : keys)
      hook_(k);
  }
  void notifyIs(ChangeHook<K> hook) { hook_ = std::move(hook); }

  friend bool operator==(const DenseMap& a, const DenseMap& b) {
    if (a.size_ != b.size_) return false;
    const std::size_t n = std::max(a.cells_.size(), b.cells_.size());
    for (std::size_t i = 0; i < n; ++i) {
      const bool pa = a.contains(static_cast<K>(i));
      const bool pb = b.contains(static_cast<K>(i));
      if (pa != pb || (pa && !(a.cells_[i].value == b.cells_[i].value))) return false;
    }
    return true;
  }

 private:
  V& slot(const K& k) {
    if (k >= cells_.size()) cells_.resize(std::size_t(k) + 1);
    if (!cells_[k].present) {
      cells_[k].present = true;
      ++size_;
      changes_.bump();
    }
    return cells_[k].value;
  }
  void notify(const K& k) {
    if (hook_) hook_(k);
  }

  struct Cell {
    V value{};
    bool present = false;
  };
  std::vector<Cell> cells_;
  std::uint32_t size_ = 0;
  ChangeCount changes_;  // beside size_, in what was padding
  HookSlot<K> hook_;
  friend struct detail::CellAccess<DenseMap>;
};

template <class K, class V>
struct detail::CellAccess<DenseMap<K, V>> {
  using Map = DenseMap<K, V>;
  static std::size_t count(const Map& m) { return m.cells_.size(); }
  static bool used(const Map& m, std::size_t i) { return m.cells_[i].present; }
  static K key(const Map&, std::size_t i) { return static_cast<K>(i); }
  static V& value(Map& m, std::size_t i) { return m.cells_[i].value; }
  static const V& value(const Map& m, std::size_t i) { return m.cells_[i].value; }
  static void erase(Map& m, std::size_t i) { m.del(static_cast<K>(i)); }
};

// An unordered map kept in one array with open addressing: for maps read once or more per
// route of a million-route listing, where a lookup in the node-based hash map costs a chain of
// cache misses (bucket, node, value). A slot holds the key and the value side by side, so a
// lookup touches one cache line in the common case. Removed entries leave a marker until the next
// growth, so that iteration may delete the current entry and still visit every other entry once.
// Iteration order is the slots' order, not the keys'. The same operations as HashMap.
template <class K, class V, class Hash = std::hash<K>>
class FlatHashMap {
 public:
  using Key = K;
  using Value = V;

  using Iterator = detail::CellIterator<FlatHashMap>;
  using const_iterator = detail::ConstCellIterator<FlatHashMap>;

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  bool contains(const K& k) const { return find(k) != nullptr; }
  const_iterator begin() const { return const_iterator(this, 0); }
  const_iterator end() const { return const_iterator(this, slots_.size()); }
  Iterator iterator() { return Iterator(this, 0); }
  std::uint32_t changes() const { return changes_.value(); }

  const V* find(const K& k) const {
    if (slots_.empty()) return nullptr;
    for (std::size_t i = home(k);; i = (i + 1) & mask()) {
      const Slot& s = slots_[i];
      if (s.state == State::empty) return nullptr;
      if (s.state == State::used && s.key == k) return &s.value;
    }
  }
  V* findMutable(const K& k) { return const_cast<V*>(std::as_const(*this).find(k)); }
  V get(const K& k) const {
    const V* v = find(k);
    return v ? *v : V{};
  }

  bool newEntry(const K& k, const V& v) {
    if (contains(k)) return false;
    slotFor(k) = v;
    notify(k);
    return true;
  }
  void set(const K& k, const V& v) {
    slotFor(k) = v;
    notify(k);
  }
  void set(const K& k, V&& v) {
    slotFor(k) = std::move(v);
    notify(k);
  }
  bool del(const K& k) {
    if (slots_.empty()) return false;
    for (std::size_t i = home(k);; i = (i + 1) & mask()) {
      const Slot& s = slots_[i];
      if (s.state == State::empty) return false;
      if (s.state == State::used && s.key == k) {
        erase(i);
        return true;
      }
    }
  }
  void del(Iterator& it) { it.deleteCurrent(); }
  void delAll() {
    std::vector<K> keys;
    if (hook_) {
      for (const Slot& s : slots_) {
        if (s.state == State::used) keys.push_back(s.key);
      }
    }
    slots_.clear();
    size_ = removed_ = 0;
    changes_.bump();
    for (const K& k : keys)
      hook_(k);
  }
  void notifyIs(ChangeHook<K> hook) { hook_ = std::move(hook); }

  friend bool operator==(const FlatHashMap& a, const FlatHashMap& b) {
    if (a.size_ != b.size_) return false;
    for (const auto& [k, v] : a) {
      const V* other = b.find(k);
      if (!other || !(*other == v)) return false;
    }
    return true;
  }

 private:
  enum class State : std::uint8_t { empty, used, removed };
  struct Slot {
    K key{};
    V value{};
    State state = State::empty;
  };

  std::size_t mask() const { return slots_.size() - 1; }
  // The table's size is a power of two: the top bits of a multiplicative mix pick the slot,
  // so keys that differ only in their high bits still spread.
  std::size_t home(const K& k) const {
    const std::uint64_t h = static_cast<std::uint64_t>(Hash{}(k)) * 0x9e3779b97f4a7c15ull;
    return static_cast<std::size_t>(h >> 32) & mask();
  }
  void erase(std::size_t i) {
    Slot& s = slots_[i];
    const K k = s.key;
    s.state = State::removed;
    s.value = V{};
    --size_;
    ++removed_;
    changes_.bump();
    notify(k);
  }
  // The slot of k, made if it is absent; at most half the slots are in use or removed.
  V& slotFor(const K& k) {
    if (V* v = findMutable(k)) return *v;
    if (2 * (size_ + removed_ + 1) > slots_.size()) grow();
    std::size_t i = home(k);
    while (slots_[i].state == State::used)
      i = (i + 1) & mask();
    if (slots_[i].state == State::removed) --removed_;
    slots_[i].key = k;
    slots_[i].state = State::used;
    ++size_;
    changes_.bump();
    return slots_[i].value;
  }
  void grow() {
    // A power of two at least four times what is in use: half full at most after the next
    // as many insertions again.
    std::size_t n = 16;
    while (n < 4 * (size_ + 1))
      n *= 2;
    std::vector<Slot> old(n);
    old.swap(slots_);
    removed_ = 0;
    for (Slot& s : old) {
      if (s.state != State::used) continue;
      std::size_t i = home(s.key);
      while (slots_[i].state == State::used)
        i = (i + 1) & mask();
      slots_[i] = std::move(s);
    }
  }
  void notify(const K& k) {
    if (hook_) hook_(k);
  }

  std::vector<Slot> slots_;
  std::size_t size_ = 0;
  std::size_t removed_ = 0;
  HookSlot<K> hook_;
  ChangeCount changes_;
  friend struct detail::CellAccess<FlatHashMap>;
};

template <class K, class V, class H>
struct detail::CellAccess<FlatHashMap<K, V, H>> {
  using Map = FlatHashMap<K, V, H>;
  static std::size_t count(const Map& m) { return m.slots_.size(); }
  static bool used(const Map& m, std::size_t i) { return m.slots_[i].state == Map::State::used; }
  static const K& key(const Map& m, std::size_t i) { return m.slots_[i].key; }
  static V& value(Map& m, std::size_t i) { return m.slots_[i].value; }
  static const V& value(const Map& m, std::size_t i) { return m.slots_[i].value; }
  static void erase(Map& m, std::size_t i) { m.erase(i); }
};

}  // namespace Mox
