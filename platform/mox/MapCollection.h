#pragma once
// The tree and hash collections with the framework's operation family (see Collection.h): the
// operations every collection shares, written once over the storage, and the map and set kinds.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

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

}  // namespace Mox
