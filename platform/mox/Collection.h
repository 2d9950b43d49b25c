#pragma once
// Collections with the framework's operation family. A class exposes a collection attribute
// `x` through MOX_COLLECTION in its attribute list, which generates newX, xIs, xDel (by key
// and by iterator), xDelAll, x(key), xs() (the count), xIterator() and xNotifyIs; a map of
// counts also gets xInc(key, n).
//
// Iteration may delete the current entry: Iterator::deleteCurrent() removes it and the next
// ++ is then a no-op, so a loop of the form
//     for (auto it = c.iterator(); it; ++it) if (...) it.deleteCurrent();
// visits every entry once.
//
// Any other change while an iterator is out (an entry added or removed, the collection cleared
// or assigned) may leave that iterator pointing at freed memory. A collection counts such
// changes in changes(); a walker that must survive code it does not control (a script's
// iterator) notes the count and stops when it moves under it.
//
// For a class whose attribute list (see Attribute.h) holds a map of counts by prefix length,
//     C(routeCountByMask, RouteCountByMask, RouteCountByMaskMap)
// its users write
//     summary.routeCountByMaskIs(24, 10);       // set
//     summary.routeCountByMaskInc(24, 1);       // 11; an absent key starts at 0
//     summary.routeCountByMask(24);             // 11
//     summary.routeCountByMasks();              // 1 entry
//     for (auto it = summary.routeCountByMaskIterator(); it; ++it) use(it.key(), it.value());
//     summary.routeCountByMaskDel(24);          // or routeCountByMaskDelAll()

#include <algorithm>
#include <array>
#include <concepts>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/mox/Prefetch.h"

namespace Mox {

// Runs after an entry was added, replaced or removed; receives its key.
template <class K>
using ChangeHook = std::function<void(const K&)>;

// A collection's hook, held by pointer: hooks are rare, and a collection is often one of many
// in an object that is read on a hot path, where every byte of it costs cache.
template <class K>
class HookSlot {
 public:
  explicit operator bool() const { return bool(hook_); }
  void operator()(const K& k) const { (*hook_)(k); }
  HookSlot& operator=(ChangeHook<K> h) {
    hook_ = h ? std::make_shared<const ChangeHook<K>>(std::move(h)) : nullptr;
    return *this;
  }

 private:
  std::shared_ptr<const ChangeHook<K>> hook_;
};

// How many times a collection changed in a way that can move or free its entries. A copy is a
// new collection and starts from zero; assigning to a collection replaces all its entries, so
// its own count moves on instead of taking the other's (which could happen to equal what a
// walker noted). Four bytes: a walker compares for equality, so wrapping is harmless.
class ChangeCount {
 public:
  ChangeCount() = default;
  ChangeCount(const ChangeCount&) {}
  ChangeCount& operator=(const ChangeCount&) {
    ++n_;
    return *this;
  }
  void bump() { ++n_; }
  std::uint32_t value() const { return n_; }

 private:
  std::uint32_t n_ = 0;
};

// The common part of a collection over a standard associative container (map-like or
// set-like). Derived templates add the value-specific operations.
template <class Storage, class Derived>
class CollectionBase {
 public:
  using Key = typename Storage::key_type;
  using StorageIterator = typename Storage::iterator;
  using const_iterator = typename Storage::const_iterator;

  class Iterator {
   public:
    Iterator(Derived* owner, StorageIterator it) : owner_(owner), it_(it) {}
    explicit operator bool() const { return it_ != owner_->storage_.end(); }
    Iterator& operator++() {
      if (advanced_) {
        advanced_ = false;
      } else {
        ++it_;
      }
      return *this;
    }
    const Key& key() const { return Derived::keyOf(*it_); }
    decltype(auto) value() const { return Derived::valueOf(*it_); }
    // Removes the current entry; the iterator then stands on the next one, and the next ++
    // does not move it again.
    void deleteCurrent() {
      Key k = key();
      it_ = owner_->storage_.erase(it_);
      owner_->changes_.bump();
      advanced_ = true;
      owner_->notify(k);
    }

   private:
    Derived* owner_;
    StorageIterator it_;
    bool advanced_ = false;
  };

  std::size_t size() const { return storage_.size(); }
  bool empty() const { return storage_.empty(); }
  bool contains(const Key& k) const { return storage_.find(k) != storage_.end(); }
  const_iterator begin() const { return storage_.begin(); }
  const_iterator end() const { return storage_.end(); }
  const Storage& storage() const { return storage_; }
  Iterator iterator() { return Iterator(static_cast<Derived*>(this), storage_.begin()); }
  std::uint32_t changes() const { return changes_.value(); }

  bool del(const Key& k) {
    if (storage_.erase(k) == 0) return false;
    changes_.bump();
    notify(k);
    return true;
  }
  void del(Iterator& it) { it.deleteCurrent(); }
  void delAll() {
    changes_.bump();
    if (!hook_) {
      storage_.clear();
      return;
    }
    std::vector<Key> keys;
    keys.reserve(storage_.size());
    for (const auto& e : storage_)
      keys.push_back(Derived::keyOf(e));
    storage_.clear();
    for (const auto& k : keys)
      hook_(k);
  }
  void notifyIs(ChangeHook<Key> hook) { hook_ = std::move(hook); }

  friend bool operator==(const CollectionBase& a, const CollectionBase& b) {
    return a.storage_ == b.storage_;
  }

 protected:
  void notify(const Key& k) {
    if (hook_) hook_(k);
  }
  // Entries usually arrive in key order (tables walked in order, sorted sources); appending
  // at the end with a hint then costs O(1) instead of a tree descent.
  template <class... Args>
  std::pair<StorageIterator, bool> emplaceKey(const Key& k, Args&&... args) {
    if constexpr (requires { typename Storage::key_compare; }) {
      if (storage_.empty() || storage_.key_comp()(Derived::keyOf(*storage_.rbegin()), k)) {
        changes_.bump();
        return {storage_.emplace_hint(storage_.end(), k, std::forward<Args>(args)...), true};
      }
    }
    auto placed = storage_.try_emplace(k, std::forward<Args>(args)...);
    if (placed.second) changes_.bump();  // a hashed map may have rehashed
    return placed;
  }

  Storage storage_;
  HookSlot<Key> hook_;
  ChangeCount changes_;
};

// A map from key to value: ordered (std::map) or hashed (std::unordered_map).
template <class Storage>
class MapCollection : public CollectionBase<Storage, MapCollection<Storage>> {
  using Base = CollectionBase<Storage, MapCollection<Storage>>;
  friend Base;

 public:
  using Key = typename Storage::key_type;
  using Value = typename Storage::mapped_type;

  static const Key& keyOf(const typename Storage::value_type& e) { return e.first; }
  static Value& valueOf(typename Storage::value_type& e) { return e.second; }

  // newX: adds an entry; an existing key keeps its value. Returns whether it was added.
  bool newEntry(const Key& k, const Value& v) {
    const bool added = this->emplaceKey(k, v).second;
    if (added) this->notify(k);
    return added;
  }
  // xIs: adds or replaces.
  void set(const Key& k, const Value& v) {
    auto [it, added] = this->emplaceKey(k, v);
    if (!added) it->second = v;
    this->notify(k);
  }
  // The same for a value built only to be stored (a value with collections of its own would
  // otherwise be copied node by node).
  void set(const Key& k, Value&& v) {
    // try_emplace leaves `v` alone when the key is present, so it can still be moved after.
    auto [it, added] = this->emplaceKey(k, std::move(v));
    if (!added) it->second = std::move(v);
    this->notify(k);
  }
  // x(key): the value, or a default value when the key is absent.
  Value get(const Key& k) const {
    auto it = this->storage_.find(k);
    return it == this->storage_.end() ? Value{} : it->second;
  }
  const Value* find(const Key& k) const {
    auto it = this->storage_.find(k);
    return it == this->storage_.end() ? nullptr : &it->second;
  }
  Value* findMutable(const Key& k) {
    auto it = this->storage_.find(k);
    return it == this->storage_.end() ? nullptr : &it->second;
  }
  // The counting maps' increment: an absent key starts from zero.
  void inc(const Key& k, Value n = 1) {
    this->emplaceKey(k, Value{}).first->second += n;
    this->notify(k);
  }
  void reserve(std::size_t n) {
    if constexpr (requires { this->storage_.reserve(n); }) {
      this->storage_.reserve(n);
      this->changes_.bump();
    }
  }
};

// A set of keys. The generated operations take a flag, as the framework's sets do:
// newX(key, true) adds, xIs(key, false) removes.
template <class Storage>
class SetCollection : public CollectionBase<Storage, SetCollection<Storage>> {
  using Base = CollectionBase<Storage, SetCollection<Storage>>;
  friend Base;

 public:
  using Key = typename Storage::key_type;
  using Value = bool;

  static const Key& keyOf(const Key& e) { return e; }
  static bool valueOf(const Key&) { return true; }

  bool newEntry(const Key& k, bool flag = true) {
    if (!flag) return false;
    bool added;
    if (this->storage_.empty() || this->storage_.key_comp()(*this->storage_.rbegin(), k)) {
      this->storage_.emplace_hint(this->storage_.end(), k);
      added = true;
    } else {
      added = this->storage_.insert(k).second;
    }
    if (added) {
      this->changes_.bump();
      this->notify(k);
    }
    return added;
  }
  void set(const Key& k, bool flag = true) {
    if (flag) {
      if (!newEntry(k)) this->notify(k);
    } else {
      this->del(k);
    }
  }
  bool get(const Key& k) const { return this->contains(k); }
};

// A key type may offer an order key: `orderKey(k)`, found by argument-dependent lookup, an
// unsigned number below 2^40 that orders keys as operator< does and tells them apart. A
// VectorMap of such keys under std::less sorts by radix instead of by comparison: a million
// IPv4 prefixes appended in a hash table's order are put in order in a few sequential passes
// over 8-byte keys, and each entry is moved once.
template <class K>
concept HasOrderKey = requires(const K& k) {
  { orderKey(k) } -> std::same_as<std::uint64_t>;
};
// The same for keys wider than a word (an IPv6 prefix): three words, the most significant
// first.
using WideOrderKey = std::array<std::uint64_t, 3>;
template <class K>
concept HasWideOrderKey = requires(const K& k) {
  { orderKey(k) } -> std::same_as<WideOrderKey>;
};

namespace detail {

// Sorts `items` stably, least significant digit first: one pass for each entry of `passes`,
// which digitOf(item, pass) turns into the item's byte for that pass. The counts of every pass
// are taken in one read of the items before the first.
template <class Item, class DigitOf>
void radixPasses(std::vector<Item>& items, const std::vector<unsigned>& passes, DigitOf digitOf) {
  if (passes.empty()) return;
  std::vector<std::array<std::size_t, 256>> start(passes.size());
  for (const Item& item : items) {
    for (std::size_t p = 0; p < passes.size(); ++p)
      ++start[p][digitOf(item, passes[p])];
  }
  std::vector<Item> spare(items.size());
  for (std::size_t p = 0; p < passes.size(); ++p) {
    std::size_t at = 0;
    for (std::size_t& s : start[p]) {
      const std::size_t count = s;
      s = at;
      at += count;
    }
    for (const Item& item : items)
      spare[start[p][digitOf(item, passes[p])]++] = item;
    items.swap(spare);
  }
}

// Moves the entries of `data` into the order `indexOf` gives for each of `order`.
template <class Entry, class Order, class IndexOf>
void gather(std::vector<Entry>& data, const std::vector<Order>& order, IndexOf indexOf) {
  const std::size_t n = order.size();
  std::vector<Entry> sorted;
  sorted.reserve(n);
  for (std::size_t j = 0; j < n; ++j) {
    // The reads are scattered: ask for the ones a little ahead while this one is moved.
    if (j + 8 < n) Mox::prefetch(&data[indexOf(order[j + 8])]);
    sorted.push_back(std::move(data[indexOf(order[j])]));
  }
  data.swap(sorted);
}

// Sorts `data` by `keyOf`, stably, when every key is below 2^40 and there are fewer than 2^24
// entries; returns false (and leaves `data` alone) otherwise. Each key is packed with its
// entry's index, the packed words sorted a byte of key at a time (least significant first,
// which keeps equal keys in index order; a byte that no key changes needs no pass), and the
// entries gathered in that order.
template <class Entry, class KeyOf>
bool radixSort(std::vector<Entry>& data, KeyOf keyOf) {
  constexpr unsigned kIndexBits = 24;
  const std::size_t n = data.size();
  if (n == 0 || n >= (std::size_t(1) << kIndexBits)) return n == 0;
  std::vector<std::uint64_t> words(n);
  const std::uint64_t first = keyOf(data[0]);
  std::uint64_t varies = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const std::uint64_t key = keyOf(data[i]);
    if (key >> (64 - kIndexBits)) return false;
    words[i] = key << kIndexBits | i;
    varies |= key ^ first;
  }
  std::vector<unsigned> passes;
  for (unsigned shift = 0; shift < 64 - kIndexBits; shift += 8) {
    if ((varies >> shift) & 255) passes.push_back(kIndexBits + shift);
  }
  radixPasses(words, passes, [](std::uint64_t w, unsigned shift) { return (w >> shift) & 255; });
  constexpr std::uint64_t kIndexMask = (std::uint64_t(1) << kIndexBits) - 1;
  gather(data, words, [](std::uint64_t w) { return w & kIndexMask; });
  return true;
}

// Sorts `data` by `keyOf`'s wide keys, stably (fewer than 2^32 entries; returns false
// otherwise). The keys are copied beside their entries' indices and sorted a byte at a time,
// least significant first, skipping the bytes every key shares: a table's prefixes differ in a
// few of their sixteen address bytes, so a few passes do. Then the entries are gathered. When
// only one of the first two words varies and the last is a byte (an IPv6 table whose prefixes
// differ in their first half), an item is that word and the byte beside the index: half the
// bytes to move on every pass.
template <class Entry, class KeyOf>
bool radixSortWide(std::vector<Entry>& data, KeyOf keyOf) {
  const std::size_t n = data.size();
  if (n == 0 || n >= (std::size_t(1) << 32)) return n == 0;
  const WideOrderKey first = keyOf(data[0]);
  WideOrderKey varies{};
  std::uint64_t last = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const WideOrderKey key = keyOf(data[i]);
    for (std::size_t w = 0; w < varies.size(); ++w)
      varies[w] |= key[w] ^ first[w];
    last |= key[2];
  }
  if ((varies[0] == 0 || varies[1] == 0) && last < 256 && n < (std::size_t(1) << 24)) {
    struct Item {
      std::uint64_t word;
      std::uint32_t lastAndIndex;  // the last word above the index's 24 bits
    };
    const std::size_t w = varies[0] ? 0 : 1;
    std::vector<Item> items(n);
    for (std::size_t i = 0; i < n; ++i) {
      const WideOrderKey key = keyOf(data[i]);
      items[i] = {key[w], static_cast<std::uint32_t>(key[2] << 24 | i)};
    }
    constexpr unsigned kLast = 64;  // the pass over the last word
    std::vector<unsigned> passes;
    if (varies[2]) passes.push_back(kLast);
    for (unsigned shift = 0; shift < 64; shift += 8) {
      if ((varies[w] >> shift) & 255) passes.push_back(shift);
    }
    radixPasses(items, passes, [](const Item& item, unsigned pass) {
      return pass == kLast ? item.lastAndIndex >> 24 : (item.word >> pass) & 255;
    });
    gather(data, items, [](const Item& item) { return item.lastAndIndex & 0xffffff; });
    return true;
  }
  struct Item {
    WideOrderKey key;
    std::uint32_t index;
  };
  std::vector<Item> items(n);
  for (std::size_t i = 0; i < n; ++i)
    items[i] = {keyOf(data[i]), static_cast<std::uint32_t>(i)};
  std::vector<unsigned> passes;  // the word times 64 plus the shift
  for (std::size_t w = varies.size(); w-- > 0;) {
    for (unsigned shift = 0; shift < 64; shift += 8) {
      if ((varies[w] >> shift) & 255) passes.push_back(static_cast<unsigned>(w) * 64 + shift);
    }
  }
  radixPasses(items, passes, [](const Item& item, unsigned pass) {
    return (item.key[pass / 64] >> (pass % 64)) & 255;
  });
  gather(data, items, [](const Item& item) { return item.index; });
  return true;
}

}  // namespace detail

// An ordered map kept as one sorted array: the same operations as OrderedMap, for maps that are
// filled in bulk (a million routes) and then read in order. Entries added out of order are
// appended and sorted once, on the next read, so filling costs one sort instead of a tree
// descent and a node allocation per entry. An entry added again replaces the earlier one, as
// in the tree map. Removing an entry moves the ones after it.
template <class K, class V, class Compare = std::less<K>>
class VectorMap {
 public:
  using Key = K;
  using Value = V;
  using Entry = std::pair<K, V>;
  using const_iterator = typename std::vector<Entry>::const_iterator;

  class Iterator {
   public:
    Iterator(VectorMap* owner, std::size_t i) : owner_(owner), i_(i) {}
    explicit operator bool() const { return i_ < owner_->data_.size(); }
    Iterator& operator++() {
      if (advanced_) {
        advanced_ = false;
      } else {
        ++i_;
      }
      return *this;
    }
    const K& key() const { return owner_->data_[i_].first; }
    V& value() const { return owner_->data_[i_].second; }
    void deleteCurrent() {
      K k = key();
      owner_->data_.erase(owner_->data_.begin() + std::ptrdiff_t(i_));
      --owner_->sorted_;
      owner_->changes_.bump();
      advanced_ = true;
      owner_->notify(k);
    }

   private:
    VectorMap* owner_;
    std::size_t i_;
    bool advanced_ = false;
  };

  std::size_t size() const {
    normalize();
    return data_.size();
  }
  bool empty() const { return data_.empty(); }
  bool contains(const K& k) const { return find(k) != nullptr; }
  const_iterator begin() const {
    normalize();
    return data_.begin();
  }
  const_iterator end() const {
    normalize();
    return data_.end();
  }
  Iterator iterator() {
    normalize();
    return Iterator(this, 0);
  }
  std::uint32_t changes() const { return changes_.value(); }
  void reserve(std::size_t n) { data_.reserve(n); }

  bool newEntry(const K& k, const V& v) {
    if (find(k)) return false;
    append(k, v);
    notify(k);
    return true;
  }
  void set(const K& k, const V& v) {
    append(k, v);
    notify(k);
  }
  V get(const K& k) const {
    const V* v = find(k);
    return v ? *v : V{};
  }
  const V* find(const K& k) const {
    normalize();
    auto it = lowerBound(k);
    return it != data_.end() && !cmp_(k, it->first) ? &it->second : nullptr;
  }
  bool del(const K& k) {
    normalize();
    auto it = lowerBound(k);
    if (it == data_.end() || cmp_(k, it->first)) return false;
    data_.erase(it);
    --sorted_;
    changes_.bump();
    notify(k);
    return true;
  }
  void del(Iterator& it) { it.deleteCurrent(); }
  void delAll() {
    normalize();
    changes_.bump();
    std::vector<Entry> old;
    old.swap(data_);
    sorted_ = 0;
    if (hook_) {
      for (const auto& e : old)
        hook_(e.first);
    }
  }
  void notifyIs(ChangeHook<K> hook) { hook_ = std::move(hook); }

  friend bool operator==(const VectorMap& a, const VectorMap& b) {
    a.normalize();
    b.normalize();
    return a.data_ == b.data_;
  }

 private:
  void append(const K& k, const V& v) {
    if (sorted_ == data_.size() && !data_.empty() && !cmp_(data_.back().first, k)) {
      if (!cmp_(k, data_.back().first)) {  // the same key as the last one: replace in place
        data_.back().second = v;
        return;
      }
    }
    // Appended, and sorted in among the others on the next read: entries move.
    changes_.bump();
    data_.emplace_back(k, v);
    if (sorted_ + 1 == data_.size() && (sorted_ == 0 || cmp_(data_[sorted_ - 1].first, k))) {
      ++sorted_;  // still in order
    }
  }
  // Sorts what was appended out of order; among equal keys the last added wins.
  void normalize() const {
    if (sorted_ == data_.size()) return;
    bool done = false;
    if constexpr (HasOrderKey<K> && std::is_same_v<Compare, std::less<K>>) {
      done = detail::radixSort(data_, [](const Entry& e) { return orderKey(e.first); });
    } else if constexpr (HasWideOrderKey<K> && std::is_same_v<Compare, std::less<K>>) {
      done = detail::radixSortWide(data_, [](const Entry& e) { return orderKey(e.first); });
    }
    if (!done) {
      std::stable_sort(data_.begin(), data_.end(),
                       [this](const Entry& a, const Entry& b) { return cmp_(a.first, b.first); });
    }
    // Keep the last of each run of equal keys.
    std::size_t out = 0;
    for (std::size_t i = 0; i < data_.size(); ++i) {
      if (i + 1 < data_.size() && !cmp_(data_[i].first, data_[i + 1].first)) continue;
      if (out != i) data_[out] = std::move(data_[i]);
      ++out;
    }
    data_.resize(out);
    sorted_ = data_.size();
  }
  auto lowerBound(const K& k) const {
    return std::lower_bound(data_.begin(), data_.end(), k,
                            [this](const Entry& e, const K& key) { return cmp_(e.first, key); });
  }
  void notify(const K& k) {
    if (hook_) hook_(k);
  }

  mutable std::vector<Entry> data_;
  mutable std::size_t sorted_ = 0;  // data_[0, sorted_) is sorted with unique keys
  [[no_unique_address]] Compare cmp_;
  HookSlot<K> hook_;
  ChangeCount changes_;
};

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

template <class K, class V, class Compare = std::less<K>>
using OrderedMap = MapCollection<std::map<K, V, Compare>>;

template <class K, class V, class Hash = std::hash<K>>
using HashMap = MapCollection<std::unordered_map<K, V, Hash>>;

template <class K, class Compare = std::less<K>>
using OrderedSet = SetCollection<std::set<K, Compare>>;

template <class T>
struct IsCollection : std::false_type {};
template <class S>
struct IsCollection<MapCollection<S>> : std::true_type {};
template <class S>
struct IsCollection<SetCollection<S>> : std::true_type {};
template <class K, class V, class C>
struct IsCollection<VectorMap<K, V, C>> : std::true_type {};
template <class K, class V>
struct IsCollection<DenseMap<K, V>> : std::true_type {};
template <class K, class V, class H>
struct IsCollection<FlatHashMap<K, V, H>> : std::true_type {};
template <class T>
concept Collection = IsCollection<T>::value;

}  // namespace Mox
