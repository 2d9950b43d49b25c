#pragma once
// Brine::Table<K, V>: the in-memory backend of the platform's state tables.
//
// Readers get copies: lookup(key) returns the record, or the empty record V{} when the key is
// missing; iteration walks the table's own order (the order records were written in) and
// hands out copies too. A read may raise Velt::CorruptionDetectedException; the reader then
// reports the message through corruptionDetected() and carries on as its owner decides. Tests
// make a chosen key's read fail with corruptionInjectedIs().
//
// Records are fixed-size and trivially copyable and name their own key (V::key()). Lookup is
// an open-addressing hash index over a dense record array: 4 bytes of index per slot.

#include <algorithm>
#include <bit>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/mox/Exception.h"
#include "platform/mox/Prefetch.h"
#include "platform/mox/Ptr.h"

namespace Brine {

// What a table does with a reported corruption. The default keeps count and the last
// message; the front end may install a hook to tell the user.
class CorruptionReporter {
 public:
  void corruptionDetected(const std::string& message) const;
  std::size_t corruptionReports() const { return reports_; }
  const std::string& lastCorruption() const { return last_; }
  static void globalHookIs(std::function<void(const std::string& table, const std::string& msg)> h);

 protected:
  virtual const char* tableName() const = 0;
  ~CorruptionReporter() = default;

 private:
  mutable std::size_t reports_ = 0;
  mutable std::string last_;
};

template <class K, class V, class Hash = std::hash<K>>
class Table : public Mox::Entity, public CorruptionReporter {
  static_assert(std::is_trivially_copyable_v<V>, "table records must be trivially copyable");

 public:
  using Key = K;
  using Record = V;

  // ---- reading ----

  V lookup(const K& k) const {
    const std::uint32_t i = find(k);
    if (i == kNone) return V{};
    checkCorruption(k);
    return records_[i];
  }
  bool contains(const K& k) const { return find(k) != kNone; }
  std::size_t size() const { return records_.size(); }
  bool empty() const { return records_.empty(); }
  // Counts the writes to the table: a reader that saw generation g and sees it again knows
  // that every record it copied is still what the table holds.
  std::uint64_t generation() const { return generation_; }

  class const_iterator {
   public:
    const_iterator(const Table* t, std::size_t i) : t_(t), i_(i) {}
    // A copy of the record; raises CorruptionDetectedException for an injected key.
    V operator*() const {
      const V& r = t_->records_[i_];
      t_->checkCorruption(r.key());
      return r;
    }
    const_iterator& operator++() {
      ++i_;
      return *this;
    }
    bool operator==(const const_iterator& o) const { return i_ == o.i_; }

   private:
    const Table* t_;
    std::size_t i_;
  };
  const_iterator begin() const { return const_iterator(this, 0); }
  const_iterator end() const { return const_iterator(this, records_.size()); }

  // ---- reading many keys ----
  //
  // In a table much larger than the cache a lookup waits on two misses in turn: the key's
  // slot in the index, then its record. A reader with a batch of keys overlaps those waits:
  // prefetchSlot() for every key, then prefetchRecord() for every key, then lookup() as
  // usual. Both are hints: they change nothing, raise nothing, and a key that is missing or
  // lives past its home slot is merely not prefetched.

  void prefetchSlot(const K& k) const {
    if (!slots_.empty()) Mox::prefetch(&slots_[home(k)]);
  }
  void prefetchRecord(const K& k) const {
    if (slots_.empty()) return;
    const std::uint32_t v = slots_[home(k)];
    if (v != 0) Mox::prefetch(&records_[v - 1]);
  }

  // ---- writing (loaders and tests) ----

  void recordIs(const V& v) {
    ++generation_;
    const K k = v.key();
    std::uint32_t i = find(k);
    if (i != kNone) {
      records_[i] = v;
      return;
    }
    if ((records_.size() + 1) * 2 > slots_.size())
      rehash(std::max<std::size_t>(16, slots_.size() * 2));
    records_.push_back(v);
    ++indexed_;
    insertSlot(k, static_cast<std::uint32_t>(records_.size() - 1));
  }
  bool recordDel(const K& k) {
    std::size_t s = slotOf(k);
    if (s == kNoSlot) return false;
    ++generation_;
    const std::uint32_t i = slots_[s] - 1;
    eraseSlot(s);
    // Keep the records dense: move the last one into the hole.
    const std::uint32_t last = static_cast<std::uint32_t>(records_.size() - 1);
    if (i != last) {
      records_[i] = records_[last];
      slots_[slotOf(records_[i].key())] = i + 1;
    }
    records_.pop_back();
    --indexed_;
    return true;
  }
  void recordDelAll() {
    ++generation_;
    records_.clear();
    indexed_ = 0;
    std::fill(slots_.begin(), slots_.end(), 0);
  }
  void reserve(std::size_t n) {
    records_.reserve(n);
    if (n * 2 > slots_.size()) rehash(std::bit_ceil(n * 2));
  }

  // ---- bulk loading ----
  //
  // A loader writing a whole table appends the records first and indexes them in one pass.
  // On a table of a million records nearly all of a write is the wait for its index slot and
  // the record it probes to come from memory; one pass over many records fetches them ahead
  // of use, where recordIs() waits for each in turn.
  //
  //   table.reserve(n);
  //   for (...) table.recordAppend(record);   // not yet found by lookup()
  //   if (auto dup = table.indexAppended()) refuse(dup->position, dup->key);
  //
  // Until indexAppended(), the appended records are neither found nor replaced: write nothing
  // else to the table in between.
  void recordAppend(const V& v) { records_.push_back(v); }

  struct Duplicate {
    std::size_t position;  // where the record was in the table's order
    K key;
  };
  // Indexes the records appended since the last call, in order. The first one whose key an
  // earlier record already has is not taken: it and every record appended after it are
  // dropped, and it is returned. Without such a record, every appended record is indexed.
  std::optional<Duplicate> indexAppended() {
    const std::size_t n = records_.size();
    if (indexed_ == n) return std::nullopt;
    ++generation_;
    if (n * 2 > slots_.size()) rehash(std::bit_ceil(n * 2));
    const std::size_t mask = slots_.size() - 1;
    // Two stages ahead: the slot of the record kAhead on, then the record that slot holds,
    // so that both are in cache when their turn comes.
    constexpr std::size_t kAhead = 16;
    for (std::size_t i = indexed_; i < n; ++i) {
      if (i + kAhead < n) Mox::prefetch(&slots_[home(records_[i + kAhead].key())]);
      if (i + kAhead / 2 < n) {
        const std::uint32_t v = slots_[home(records_[i + kAhead / 2].key())];
        if (v != 0) Mox::prefetch(&records_[v - 1]);
      }
      const K k = records_[i].key();
      std::size_t s = home(k);
      for (; slots_[s] != 0; s = (s + 1) & mask) {
        if (records_[slots_[s] - 1].key() == k) {
          records_.resize(i);
          indexed_ = i;
          return Duplicate{i, k};
        }
      }
      slots_[s] = static_cast<std::uint32_t>(i + 1);
    }
    indexed_ = n;
    return std::nullopt;
  }

  // ---- fault injection ----

  void corruptionInjectedIs(const K& k, bool on) {
    ++generation_;  // a reader must look again
    std::erase(corrupt_, k);
    if (on) corrupt_.push_back(k);
  }

 protected:
  const char* tableName() const override { return typeName(); }

 private:
  static constexpr std::uint32_t kNone = ~std::uint32_t(0);
  static constexpr std::size_t kNoSlot = ~std::size_t(0);

  void checkCorruption(const K& k) const {
    if (!corrupt_.empty()) [[unlikely]] {
      for (const K& c : corrupt_) {
        if (c == k)
          throw Velt::CorruptionDetectedException(std::string(typeName()) +
                                                  ": record changed while it was read");
      }
    }
  }
  std::size_t home(const K& k) const {
    std::uint64_t h = static_cast<std::uint64_t>(Hash()(k)) * 0x9e3779b97f4a7c15ull;
    return static_cast<std::size_t>(h >> 32) & (slots_.size() - 1);
  }
  std::size_t slotOf(const K& k) const {
    if (slots_.empty()) return kNoSlot;
    for (std::size_t s = home(k);; s = (s + 1) & (slots_.size() - 1)) {
      const std::uint32_t v = slots_[s];
      if (v == 0) return kNoSlot;
      if (records_[v - 1].key() == k) return s;
    }
  }
  std::uint32_t find(const K& k) const {
    const std::size_t s = slotOf(k);
    return s == kNoSlot ? kNone : slots_[s] - 1;
  }
  void insertSlot(const K& k, std::uint32_t i) {
    std::size_t s = home(k);
    while (slots_[s] != 0)
      s = (s + 1) & (slots_.size() - 1);
    slots_[s] = i + 1;
  }
  // Backward-shift deletion keeps probe chains unbroken without tombstones.
  void eraseSlot(std::size_t s) {
    const std::size_t mask = slots_.size() - 1;
    std::size_t next = (s + 1) & mask;
    while (slots_[next] != 0) {
      const std::size_t h = home(records_[slots_[next] - 1].key());
      // Move the entry back when its home is not within (s, next].
      if (((next - h) & mask) >= ((next - s) & mask)) {
        slots_[s] = slots_[next];
        s = next;
      }
      next = (next + 1) & mask;
    }
    slots_[s] = 0;
  }
  // Indexes the records already indexed in `n` slots; appended ones wait for indexAppended().
  void rehash(std::size_t n) {
    slots_.assign(n, 0);
    for (std::uint32_t i = 0; i < indexed_; ++i)
      insertSlot(records_[i].key(), i);
  }

  std::vector<V> records_;
  // The records before this position are in the index; those after it were appended and wait
  // for indexAppended().
  std::size_t indexed_ = 0;
  std::vector<std::uint32_t> slots_;
  std::vector<K> corrupt_;
  std::uint64_t generation_ = 0;
};

}  // namespace Brine
