#pragma once
// An ordered map kept as one sorted array, filled in bulk and read in order.

#include <algorithm>
#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/mox/MapCollection.h"
#include "platform/mox/RadixSort.h"

namespace Mox {

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

}  // namespace Mox
