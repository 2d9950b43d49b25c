#pragma once
// An ordered map kept as one sorted array, filled in bulk and read in order.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/mox/MapCollection.h"
#include "platform/mox/RadixSort.h"

namespace Mox {

// How many words a map held by reference reads at a time when they are read in pieces (see
// VectorMap::References::readWords): a few thousand, so that the buffer stays small and the
// calls few. Tests make it small.
inline std::size_t referencePieceWords = 4096;

// An ordered map kept as one sorted array: the same operations as OrderedMap, for maps that are
// filled in bulk (a million routes) and then read in order. Entries added out of order are
// appended and sorted once, on the next read, so filling costs one sort instead of a tree
// descent and a node allocation per entry. An entry added again replaces the earlier one, as
// in the tree map. Removing an entry moves the ones after it.
//
// A map filled from a table it can read again may instead hold its entries by reference: one
// 64-bit word per entry, in key order, and a reader that turns a word back into its entry
// (referencesIs). A listing of a million routes then walks the table in place with forEach()
// and copies none of them; find() and del() search the words; every other operation makes the
// entries real first, so the map behaves the same to all its other users. The words themselves
// may stay where their writer keeps them and be read a piece at a time (References::readWords).
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

  // What a map held by reference is given: `words` in key order, `read` to turn a word into
  // its entry (false when the entry is gone since, or is not one the map holds), `prefetch`,
  // a hint that the word's entry is read soon, and optionally `keyOf`, the key a word stands
  // for without reading its entry, so that find() reads one entry rather than one per step.
  struct References {
    std::vector<std::uint64_t> words;
    // Or, instead of `words`, the words read a piece at a time where they are kept (a table's
    // order in a store): readWords(after, out) copies into `out` the words whose keys follow
    // that of the word `after` (from the first when `after` is null), at most out.size(), in
    // key order, and returns how many, 0 at the end; `count` is how many there are, for
    // size(). keyOf is then needed. A walk reads them in pieces of referencePieceWords; an
    // operation that needs them all (a find past the first piece, a delete other than of the
    // first entry) reads them into `words` first.
    std::function<std::size_t(const std::uint64_t* after, std::span<std::uint64_t> out)> readWords;
    std::size_t count = 0;
    std::function<bool(std::uint64_t word, Entry& out)> read;
    std::function<void(std::uint64_t word)> prefetch;
    std::function<K(std::uint64_t word)> keyOf;
  };

  // Replaces the entries with references to them.
  void referencesIs(References refs) {
    data_.clear();
    sorted_ = 0;
    skipped_ = 0;
    refs_ = std::make_shared<References>(std::move(refs));
    changes_.bump();
  }
  bool byReference() const { return refs_ != nullptr; }
  // Held by reference: calls fn(words) with the words of the entries, in key order, one piece
  // after another, for a reader that turns them into entries itself; a piece is valid during
  // its call. Nothing otherwise.
  template <class Fn>
  void forEachReferencePiece(Fn&& fn) const {
    if (!refs_) return;
    if (!refs_->readWords) {
      if (skipped_ < refs_->words.size())
        fn(std::span<const std::uint64_t>(refs_->words).subspan(skipped_));
      return;
    }
    const std::shared_ptr<References> refs = refs_;  // fn may make the entries real
    std::vector<std::uint64_t> piece(std::max<std::size_t>(1, referencePieceWords));
    std::uint64_t after = passed_;
    for (bool from = skipped_ != 0;; from = true) {
      const std::size_t n = refs->readWords(from ? &after : nullptr, piece);
      if (n == 0) return;
      after = piece[n - 1];
      fn(std::span<const std::uint64_t>(piece.data(), n));
    }
  }

  // Calls fn(entry) for each entry in key order; a map held by reference reads each entry as
  // it goes, and leaves out those that are gone.
  template <class Fn>
  void forEach(Fn&& fn) const {
    if (refs_) {
      const std::shared_ptr<References> refs = refs_;
      constexpr std::size_t kAhead = 8;
      Entry e;
      forEachReferencePiece([&](std::span<const std::uint64_t> words) {
        for (std::size_t j = 0; j < words.size(); ++j) {
          if (j + kAhead < words.size() && refs->prefetch) refs->prefetch(words[j + kAhead]);
          if (refs->read(words[j], e)) fn(static_cast<const Entry&>(e));
        }
      });
      return;
    }
    normalize();
    for (const Entry& e : data_)
      fn(e);
  }

  // Held by reference, the entries gone since count until they are read.
  std::size_t size() const {
    if (refs_) return wordCount() - skipped_;
    normalize();
    return data_.size();
  }
  bool empty() const { return refs_ ? wordCount() == skipped_ : data_.empty(); }
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
  void reserve(std::size_t n) { reserveHugeExact(data_, n); }

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
    if (refs_) {
      const std::size_t at = referenceOf(k);
      if (at != kNoEntry) return &found_.second;
      if (refs_) return nullptr;  // the references are still whole: k is not there
    }
    normalize();
    auto it = lowerBound(k);
    return it != data_.end() && !cmp_(k, it->first) ? &it->second : nullptr;
  }
  bool del(const K& k) {
    if (refs_) {
      std::size_t at = referenceOf(k);
      if (at == skipped_) {
        // The first entry (a listing takes the default route out first): passed over rather
        // than moving every word after it.
        ++skipped_;
        passed_ = foundWord_;
        changes_.bump();
        notify(k);
        return true;
      }
      if (at != kNoEntry && refs_->readWords) {
        wordsHeld();
        at = referenceOf(k);
      }
      if (at != kNoEntry) {
        // Copies share their references until one of them changes.
        if (refs_.use_count() > 1) refs_ = std::make_shared<References>(*refs_);
        refs_->words.erase(refs_->words.begin() + std::ptrdiff_t(at));
        changes_.bump();
        notify(k);
        return true;
      }
      if (refs_) return false;
    }
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
    if (refs_) materialize();
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
  static constexpr std::size_t kNoEntry = ~std::size_t(0);

  std::size_t wordCount() const {
    return refs_->readWords ? std::max(refs_->count, skipped_) : refs_->words.size();
  }
  // Words read in pieces: read into `words`, all of them, for what needs them all.
  void wordsHeld() const {
    if (!refs_->readWords) return;
    std::vector<std::uint64_t> words;
    forEachReferencePiece([&](std::span<const std::uint64_t> piece) {
      words.insert(words.end(), piece.begin(), piece.end());
    });
    auto refs = std::make_shared<References>(*refs_);
    refs->readWords = nullptr;
    refs->count = 0;
    refs->words = std::move(words);
    refs_ = std::move(refs);
    skipped_ = 0;
  }
  // The position of k's word, its entry left in found_ and the word in foundWord_; kNoEntry
  // when k is not there. Without keyOf, an entry found gone on the way makes the entries real
  // (refs_ is then null).
  std::size_t referenceOf(const K& k) const {
    if (refs_->readWords) {
      // The first piece answers for the keys it reaches (the default route, taken out by a
      // listing, is the first); a key past it needs the words held.
      std::vector<std::uint64_t> piece(std::max<std::size_t>(1, referencePieceWords));
      const std::size_t n = refs_->readWords(skipped_ ? &passed_ : nullptr, piece);
      const auto end = piece.begin() + std::ptrdiff_t(n);
      const auto at = std::partition_point(
          piece.begin(), end, [&](std::uint64_t w) { return cmp_(refs_->keyOf(w), k); });
      if (at != end || n < piece.size()) {
        if (at == end || cmp_(k, refs_->keyOf(*at)) || !refs_->read(*at, found_)) return kNoEntry;
        foundWord_ = *at;
        return skipped_ + static_cast<std::size_t>(at - piece.begin());
      }
      wordsHeld();
    }
    const std::vector<std::uint64_t>& words = refs_->words;
    std::size_t lo = skipped_, hi = words.size();
    if (refs_->keyOf) {
      const auto at =
          std::partition_point(words.begin() + std::ptrdiff_t(skipped_), words.end(),
                               [&](std::uint64_t w) { return cmp_(refs_->keyOf(w), k); });
      if (at == words.end() || cmp_(k, refs_->keyOf(*at)) || !refs_->read(*at, found_))
        return kNoEntry;
      foundWord_ = *at;
      return static_cast<std::size_t>(at - words.begin());
    }
    while (lo < hi) {
      const std::size_t mid = lo + (hi - lo) / 2;
      if (!refs_->read(words[mid], found_)) {
        materialize();
        return kNoEntry;
      }
      if (cmp_(found_.first, k)) {
        lo = mid + 1;
      } else if (cmp_(k, found_.first)) {
        hi = mid;
      } else {
        foundWord_ = words[mid];
        return mid;
      }
    }
    return kNoEntry;
  }
  // Reads every entry held by reference into the map itself.
  void materialize() const {
    std::vector<Entry> entries;
    entries.reserve(size());
    forEachReferencePiece([&](std::span<const std::uint64_t> words) {
      for (const std::uint64_t w : words) {
        Entry e;
        if (refs_->read(w, e)) entries.push_back(std::move(e));
      }
    });
    refs_.reset();
    data_ = std::move(entries);
    skipped_ = 0;
    const bool inOrder =
        std::adjacent_find(data_.begin(), data_.end(), [this](const Entry& a, const Entry& b) {
          return !cmp_(a.first, b.first);
        }) == data_.end();
    sorted_ = inOrder ? data_.size() : 0;
    changes_.bump();
  }
  // Sorts what was appended out of order; among equal keys the last added wins.
  void normalize() const {
    if (refs_) [[unlikely]]
      materialize();
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
  mutable std::size_t sorted_ = 0;            // data_[0, sorted_) is sorted with unique keys
  mutable std::shared_ptr<References> refs_;  // set while the entries are held by reference
  mutable std::size_t skipped_ = 0;   // the words before it are deleted entries, passed over
  mutable std::uint64_t passed_ = 0;  // the last of those: words read in pieces follow it
  mutable Entry found_{};             // what find() last found by reference
  mutable std::uint64_t foundWord_ = 0;
  [[no_unique_address]] Compare cmp_;
  HookSlot<K> hook_;
  mutable ChangeCount changes_;
};

}  // namespace Mox
