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
//
// The records and the index are the process's own vectors, unless sharedStorageIs() moved
// them into a store shared between processes (SharedTable.h): then every write goes to the
// store, and a table attached read-only reads the records another process writes, copying
// each under its sequence counter. Reads of a shared table stay bounded whatever the writer
// does meanwhile: a probe visits each slot at most once, a walk ends where the records ended
// when it began or where they end now, whichever is first, and no offset is followed outside
// the mapping. A shared table's records never move: a delete leaves a hole that a later insert
// fills, so a walk sees every record that stays in the table throughout it exactly once.

#include <algorithm>
#include <atomic>
#include <bit>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/brine/SharedTable.h"
#include "platform/mox/Exception.h"
#include "platform/mox/HugePages.h"
#include "platform/mox/Prefetch.h"
#include "platform/mox/Ptr.h"
#include "platform/mox/RadixSort.h"

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

// Every table, whatever its records: how a store moves a table into shared memory or attaches
// one published there, without knowing its record type.
class SharedStorable {
 public:
  // With a writable arena: moves the table's records into the store, the table's header at
  // `headerAt` (SharedTableHeader bytes the caller allocated), and writes go there from now
  // on. With a read-only one: the table reads the table published at `headerAt`; every write
  // raises Mox::RangeException. Raises Mox::RangeException when the header was written for
  // records of another size.
  virtual void sharedStorageIs(std::shared_ptr<TableArena> arena, std::uint64_t headerAt) = 0;
  bool shared() const { return arena_ != nullptr; }
  std::uint64_t sharedHeaderAt() const { return headerAt_; }
  // Writer only. Makes the listing order of a table whose keys have an order (prefixes) again,
  // unless it is current; returns whether it made it. Other tables keep none.
  virtual bool sharedOrderRefresh() { return false; }
  // Whether the order is behind the table's writes (false for a table that keeps none).
  virtual bool sharedOrderStale() const { return false; }

 protected:
  ~SharedStorable() = default;
  std::shared_ptr<TableArena> arena_;
  const SharedTableHeader* header_ = nullptr;
  std::uint64_t headerAt_ = 0;
};

template <class K, class V, class Hash = std::hash<K>>
class Table : public Mox::Entity, public CorruptionReporter, public SharedStorable {
  static_assert(std::is_trivially_copyable_v<V>, "table records must be trivially copyable");

 public:
  using Key = K;
  using Record = V;
  static constexpr bool kKeysHaveLength = requires(const K& k) {
    { k.len() } -> std::convertible_to<int>;
  };

  // A table of the store that goes away leaves its header empty, so that a reader still
  // holding it sees no records rather than regions that are given back.
  ~Table() override {
    if (!arena_ || !arena_->writableBase()) return;
    sharedBeginWrite();
    w_.h->size.store(0, std::memory_order_release);
    w_.h->used.store(0, std::memory_order_release);
    sharedPublish([](SharedTableHeader& h) {
      h.capacity.store(0, std::memory_order_relaxed);
      h.slotCount.store(0, std::memory_order_relaxed);
    });
    sharedEndWrite();
    // The order goes too, under its counter: a reader reading it in pieces reads no further
    // from a region given back.
    if (w_.order.count) sharedOrderPublish(0, 0, 0);
    if (w_.capacity) arena_->retire(w_.recordsAt, w_.capacity * sizeof(Stored));
    if (w_.slotCount) arena_->retire(w_.slotsAt, w_.slotCount * 4);
    if (w_.order.count) arena_->retire(w_.order.at, w_.order.count * 8);
  }

  // ---- reading ----

  V lookup(const K& k) const {
    if (arena_) [[unlikely]]
      return sharedLookup(k);
    const std::uint32_t i = find(k);
    if (i == kNone) return V{};
    checkCorruption(k);
    return records_[i];
  }
  bool contains(const K& k) const {
    if (arena_) [[unlikely]] {
      return sharedFind(k, nullptr);
    }
    return find(k) != kNone;
  }
  // Whether the table may hold a key of length `len` (for keys that have one: prefixes). A
  // shared table answers from the lengths its writer marked, so that a longest-match lookup
  // does not probe (and touch the pages of) lengths no key has; any other table says true.
  bool mayHoldKeyLength(int len) const {
    if constexpr (kKeysHaveLength) {
      if (arena_) [[unlikely]] {
        const std::uint64_t low = header_->keyLengths[0].load(std::memory_order_acquire);
        const std::uint64_t mid = header_->keyLengths[1].load(std::memory_order_acquire);
        const std::uint32_t high = header_->keyLengthsHigh.load(std::memory_order_acquire);
        if ((low | mid | high) == 0 || len < 0 || len >= 160) return true;
        if (len >= 128) return (high >> (len - 128)) & 1;
        return ((len < 64 ? low : mid) >> (len % 64)) & 1;
      }
    }
    (void)len;
    return true;
  }
  std::size_t size() const {
    if (arena_) [[unlikely]]
      return header_->size.load(std::memory_order_acquire);
    return records_.size();
  }
  bool empty() const { return size() == 0; }
  // Counts the writes to the table: a reader that saw generation g and sees it again knows
  // that every record it copied is still what the table holds.
  std::uint64_t generation() const {
    if (arena_) [[unlikely]]
      return header_->generation.load(std::memory_order_acquire);
    return generation_;
  }

  class const_iterator {
   public:
    const_iterator(const Table* t, std::size_t i, std::size_t limit = kNoLimit)
        : t_(t), i_(i), limit_(limit) {}
    // A copy of the record; raises CorruptionDetectedException for an injected key.
    V operator*() const {
      if (t_->arena_) [[unlikely]] {
        // A record deleted since the comparison that let the walk here is passed over for the
        // next one; the empty record only when none is left.
        V r{};
        while (i_ < bound() && !t_->sharedAt(i_, r))
          ++i_;
        t_->checkCorruption(r.key());
        return r;
      }
      const V& r = t_->records_[i_];
      t_->checkCorruption(r.key());
      return r;
    }
    const_iterator& operator++() {
      ++i_;
      return *this;
    }
    // The record's place in the table, for at(): read after the record (a shared walk passes
    // over holes as it reads).
    std::size_t position() const { return i_; }
    bool operator==(const const_iterator& o) const {
      if (limit_ == kNoLimit && o.limit_ == kNoLimit) return i_ == o.i_;
      // A walk of a shared table: the end is wherever the table ends now, and never beyond
      // the size the walk began with, so that a writer that keeps adding cannot keep it going.
      return atEnd() && o.atEnd();
    }

   private:
    static constexpr std::size_t kNoLimit = ~std::size_t(0);
    std::size_t bound() const { return std::min<std::size_t>(limit_, t_->sharedUsed()); }
    // A shared walk passes over the holes deletes left, so that it ends without handing out
    // an empty record when only holes are left.
    bool atEnd() const {
      if (limit_ == kNoLimit) return false;
      const std::size_t b = bound();
      // A table without holes (its size is its reach) needs no look at the records.
      if (i_ < b && t_->size() != b) {
        while (i_ < b && t_->sharedHole(i_))
          ++i_;
      }
      return i_ >= b;
    }
    const Table* t_;
    mutable std::size_t i_;
    std::size_t limit_;
  };
  const_iterator begin() const {
    if (arena_) [[unlikely]]
      return const_iterator(this, 0, sharedUsed());
    return const_iterator(this, 0);
  }
  const_iterator end() const {
    if (arena_) [[unlikely]]
      return const_iterator(this, sharedUsed(), 0);
    return const_iterator(this, records_.size());
  }

  // The record at position i of the table's order (a copy), or the empty record past the
  // end. A reader that noted where a record was reads it there again; it checks the key, since
  // a delete since may have moved another record into that place.
  V at(std::size_t i) const {
    if (arena_) [[unlikely]] {
      V r{};
      // A hole (a record deleted since) reads as the empty record.
      if (i >= sharedUsed() || !sharedAt(i, r)) return V{};
      checkCorruption(r.key());
      return r;
    }
    if (i >= records_.size()) return V{};
    checkCorruption(records_[i].key());
    return records_[i];
  }
  // One past the last place a record can have: the size, or in a store the records and the
  // holes deletes left among them.
  std::size_t reach() const {
    if (arena_) [[unlikely]]
      return sharedUsed();
    return records_.size();
  }
  // A hint that the whole table is read soon, in no particular order: a table in a store has
  // its records' pages mapped in one go. Changes nothing, raises nothing.
  void willReadAll() const {
    if (!arena_) return;
    Layout l;
    if (!sharedLayout(l)) return;
    const std::uint64_t n = std::min<std::uint64_t>(sharedUsed(), l.capacity);
    arena_->willRead(
        static_cast<std::uint64_t>(reinterpret_cast<const char*>(l.records) - arena_->base()),
        n * sizeof(Stored));
  }
  // Where the records are in the store now, for a reader to touch ahead of a walk
  // (PagesAhead); empty for a table that is not in a store or whose regions lie outside it.
  // Reports nothing: the records are read, and checked, as before.
  SharedRegion sharedRecordsRegion() const {
    if (!arena_) return {};
    const std::uint64_t recordsAt = header_->recordsAt.load(std::memory_order_acquire);
    const std::uint64_t capacity = header_->capacity.load(std::memory_order_relaxed);
    const std::uint64_t n = std::min<std::uint64_t>(sharedUsed(), capacity);
    const std::uint64_t mapSize = arena_->mapSize();
    if (recordsAt > mapSize || n > (mapSize - recordsAt) / sizeof(Stored)) return {};
    return {arena_, recordsAt, n * sizeof(Stored)};
  }
  // A hint that at(i) comes soon: changes nothing, raises nothing.
  void prefetchAt(std::size_t i) const {
    if (arena_) [[unlikely]] {
      const std::uint64_t recordsAt = header_->recordsAt.load(std::memory_order_relaxed);
      const std::uint64_t capacity = header_->capacity.load(std::memory_order_relaxed);
      if (i < capacity && recordsAt <= arena_->mapSize() &&
          (i + 1) * sizeof(Stored) <= arena_->mapSize() - recordsAt)
        Mox::prefetch(arena_->base() + recordsAt + i * sizeof(Stored));
      return;
    }
    if (i < records_.size()) Mox::prefetch(&records_[i]);
  }

  // The table's listing order as its writer keeps it in the store, copied into `words`: each
  // word a record's order key above its place (kOrderPlaceBits), in key order. False, and
  // `words` left empty, when the table keeps none, or none for its current writes (a reader
  // then sorts for itself). A word is a hint like a place noted from a walk: the record there
  // is read and its key checked. A whole-table reader reads it in pieces instead (OrderReader).
  bool orderNow(std::vector<std::uint64_t>& words) const {
    words.clear();
    OrderReader order(*this);
    if (!order.open()) return false;
    words.resize(order.count());
    std::size_t n = 0;
    for (;;) {
      if (n == words.size()) words.resize(n + std::max<std::size_t>(1024, n / 8));
      const std::size_t got =
          order.read(n ? &words[n - 1] : nullptr, std::span<std::uint64_t>(words).subspan(n));
      if (got == 0) break;
      n += got;
    }
    words.resize(n);
    return true;
  }

  // The table's listing order read where the writer keeps it, a piece at a time into the
  // reader's buffer: a listing of a million routes holds a few thousand words rather than a
  // fresh 8 MB copy. Each piece is copied under the order's sequence counter and handed out
  // only when the counter did not move meanwhile, so every word comes from an order that was
  // whole when it was copied. When the writer replaced the order between two pieces, the
  // reading goes on in the new one after the key of the last word handed out (a binary search
  // of its keys): the words stay in key order with no key twice, and every record present
  // from the opening to the end is met, since any order published after the opening holds it.
  // When no piece can be copied whole (the writer kept the counter odd, as one that died
  // while it published would), the reader walks the records and sorts their words as a reader
  // without an order does, and hands out the rest from those.
  class OrderReader {
   public:
    explicit OrderReader(const Table& table) : t_(&table) {}
    // Takes the order as it is now: false when the table keeps none, or none for its current
    // writes (as orderNow).
    bool open() {
      if (!t_->arena_) return false;
      for (int tries = 0; tries < kSharedTries; ++tries) {
        Region r;
        switch (region(r)) {
          case Found::busy:
            pause();
            continue;
          case Found::outside:
            return false;
          case Found::whole:
            break;
        }
        if (r.count == 0 || r.generation != t_->generation()) return false;
        r_ = r;
        opened_ = r.count;
        pos_ = 0;
        handed_ = false;
        t_->arena_->willRead(r.at, r.count * 8);
        return true;
      }
      return false;
    }
    // How many words the order had when it was opened.
    std::uint64_t count() const { return opened_; }
    // Copies into `out` the next words of the order: those whose keys follow the key of the
    // word `after`, or from the first one when `after` is null; at most out.size() of them,
    // in key order. Returns how many, 0 at the end. Reading on after the last word handed out
    // continues where it stopped; any other `after` is looked up by its key.
    std::size_t read(const std::uint64_t* after, std::span<std::uint64_t> out) {
      if (out.empty() || opened_ == 0) return 0;
      // `after` may point into `out`.
      const bool from = after != nullptr;
      const std::uint64_t afterWord = from ? *after : 0;
      if (walked_) return readRest(from, afterWord, out);
      bool place = !from || !handed_ || afterWord != last_;
      bool newRegion = false;
      const SharedTableHeader& h = *t_->header_;
      for (int tries = 0; tries < kSharedTries; ++tries) {
        if (newRegion) {
          Region r;
          const Found found = region(r);
          if (found == Found::busy) {
            pause();
            continue;
          }
          if (found == Found::outside) break;
          r_ = r;
          newRegion = false;
          place = true;
        }
        const auto* words = reinterpret_cast<const std::uint64_t*>(t_->arena_->base() + r_.at);
        std::uint64_t pos = pos_;
        if (place) pos = from ? upperBound(words, afterWord >> kOrderPlaceBits) : 0;
        const std::uint64_t n = std::min<std::uint64_t>(out.size(), r_.count - pos);
        if (n) std::memcpy(out.data(), words + pos, n * 8);
        std::atomic_thread_fence(std::memory_order_acquire);
        // Replaced or left since it was opened: the region may have been given back, so
        // neither the place found nor the words copied count.
        if (h.orderSeq.load(std::memory_order_relaxed) != r_.seq) {
          newRegion = true;
          continue;
        }
        pos_ = pos + n;
        if (n) {
          handed_ = true;
          last_ = out[n - 1];
        }
        return static_cast<std::size_t>(n);
      }
      walk();
      return readRest(from, afterWord, out);
    }

   private:
    struct Region {
      std::uint64_t seq = 0, at = 0, count = 0, generation = 0;
    };
    enum class Found { whole, busy, outside };
    // The order's region as published now.
    Found region(Region& r) const {
      const SharedTableHeader& h = *t_->header_;
      r.seq = h.orderSeq.load(std::memory_order_acquire);
      if (r.seq & 1) return Found::busy;
      r.at = h.orderAt.load(std::memory_order_relaxed);
      r.count = h.orderCount.load(std::memory_order_relaxed);
      r.generation = h.orderGeneration.load(std::memory_order_relaxed);
      std::atomic_thread_fence(std::memory_order_acquire);
      if (h.orderSeq.load(std::memory_order_relaxed) != r.seq) return Found::busy;
      const std::uint64_t mapSize = t_->arena_->mapSize();
      if (r.at % alignof(std::uint64_t) != 0 || r.at > mapSize || r.count > (mapSize - r.at) / 8) {
        t_->corruptionDetected("the table's order lies outside the store");
        return Found::outside;
      }
      return Found::whole;
    }
    // The first place of the region whose key follows `key`; read in place, so it counts only
    // once the counter is checked after it.
    std::uint64_t upperBound(const std::uint64_t* words, std::uint64_t key) const {
      std::uint64_t lo = 0, hi = r_.count;
      while (lo < hi) {
        const std::uint64_t mid = lo + (hi - lo) / 2;
        if (words[mid] >> kOrderPlaceBits <= key) {
          lo = mid + 1;
        } else {
          hi = mid;
        }
      }
      return lo;
    }
    // The words of the records as they are now, in key order (the later place of a key met
    // twice, as a walk meeting a record a delete moved would).
    void walk() {
      if constexpr (Mox::HasOrderKey<K>) {
        const std::uint64_t reach =
            std::min<std::uint64_t>(t_->sharedUsed(), std::uint64_t(1) << kOrderPlaceBits);
        std::vector<std::uint64_t> words;
        for (std::uint64_t i = 0; i < reach; ++i) {
          V r{};
          if (t_->sharedAt(i, r)) words.push_back(orderKey(r.key()) << kOrderPlaceBits | i);
        }
        Mox::detail::radixSortWords(words, kOrderPlaceBits);
        std::size_t out = 0;
        for (std::size_t i = 0; i < words.size(); ++i) {
          if (i + 1 < words.size() &&
              words[i] >> kOrderPlaceBits == words[i + 1] >> kOrderPlaceBits)
            continue;
          words[out++] = words[i];
        }
        words.resize(out);
        rest_ = std::move(words);
      }
      walked_ = true;
      handed_ = false;
    }
    std::size_t readRest(bool from, std::uint64_t afterWord, std::span<std::uint64_t> out) {
      std::size_t pos = 0;
      if (from && handed_ && afterWord == last_) {
        pos = static_cast<std::size_t>(pos_);
      } else if (from) {
        pos = static_cast<std::size_t>(
            std::upper_bound(
                rest_.begin(), rest_.end(), afterWord >> kOrderPlaceBits,
                [](std::uint64_t key, std::uint64_t w) { return key < (w >> kOrderPlaceBits); }) -
            rest_.begin());
      }
      const std::size_t n = std::min(out.size(), rest_.size() - pos);
      std::copy_n(rest_.begin() + static_cast<std::ptrdiff_t>(pos), n, out.begin());
      pos_ = pos + n;
      if (n) {
        handed_ = true;
        last_ = out[n - 1];
      }
      return n;
    }

    const Table* t_;
    Region r_;
    std::uint64_t opened_ = 0;  // the words of the order when it was opened
    std::uint64_t pos_ = 0;     // where the next read goes on, after the word last_
    std::uint64_t last_ = 0;
    bool handed_ = false;  // last_ was handed out
    bool walked_ = false;  // the order could not be read: the words are the walk's, in rest_
    std::vector<std::uint64_t> rest_;
  };

  // ---- reading many keys ----
  //
  // In a table much larger than the cache a lookup waits on two misses in turn: the key's
  // slot in the index, then its record. A reader with a batch of keys overlaps those waits:
  // prefetchSlot() for every key, then prefetchRecord() for every key, then lookup() as
  // usual. Both are hints: they change nothing, raise nothing, and a key that is missing or
  // lives past its home slot is merely not prefetched.

  void prefetchSlot(const K& k) const {
    if (arena_) [[unlikely]]
      return;
    if (!slots_.empty()) Mox::prefetch(&slots_[home(k)]);
  }
  void prefetchRecord(const K& k) const {
    if (arena_ || slots_.empty()) return;
    const std::uint32_t v = slots_[home(k)];
    if (v != 0) Mox::prefetch(&records_[v - 1]);
  }

  // ---- writing (loaders and tests) ----

  void recordIs(const V& v) {
    if (arena_) [[unlikely]]
      return sharedRecordIs(v);
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
    if (arena_) [[unlikely]]
      return sharedRecordDel(k);
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
    if (arena_) [[unlikely]]
      return sharedRecordDelAll();
    ++generation_;
    records_.clear();
    indexed_ = 0;
    std::fill(slots_.begin(), slots_.end(), 0);
  }
  void reserve(std::size_t n) {
    if (arena_) [[unlikely]]
      return sharedReserve(n);
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
  void recordAppend(const V& v) {
    writable();
    records_.push_back(v);
  }

  struct Duplicate {
    std::size_t position;  // where the record was in the table's order
    K key;
  };
  // Indexes the records appended since the last call, in order. The first one whose key an
  // earlier record already has is not taken: it and every record appended after it are
  // dropped, and it is returned. Without such a record, every appended record is indexed.
  std::optional<Duplicate> indexAppended() {
    if (arena_) [[unlikely]]
      return sharedIndexAppended();
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

  // ---- the records and index in a shared store ----

 public:
  void sharedStorageIs(std::shared_ptr<TableArena> arena, std::uint64_t headerAt) override {
    if (headerAt % alignof(SharedTableHeader) != 0 ||
        headerAt + sizeof(SharedTableHeader) > arena->mapSize())
      throw Mox::RangeException(std::string(typeName()) + ": table header outside the store");
    auto* h = reinterpret_cast<SharedTableHeader*>(const_cast<char*>(arena->base()) + headerAt);
    if (!arena->writableBase()) {
      if (h->recordSize != sizeof(Stored))
        throw Mox::RangeException(std::string(typeName()) + ": records of " +
                                  std::to_string(h->recordSize) + " bytes in the store, " +
                                  std::to_string(sizeof(Stored)) + " expected");
      arena_ = std::move(arena);
      header_ = h;
      headerAt_ = headerAt;
      records_ = {};
      slots_ = {};
      return;
    }
    // Moved whole: the records appended and not yet indexed stay pending, as they were.
    std::vector<V> pending(records_.begin() + static_cast<std::ptrdiff_t>(indexed_),
                           records_.end());
    records_.resize(indexed_);
    // Keys with an order (prefixes) go into the store in that order, so that a walk in the
    // table's own order reads them as a listing prints them: one pass over the records, not a
    // cache miss per record.
    if constexpr (Mox::HasOrderKey<K>)
      Mox::detail::radixSort(records_, [](const V& v) { return orderKey(v.key()); });
    h->recordSize = sizeof(Stored);
    arena_ = std::move(arena);
    header_ = h;
    headerAt_ = headerAt;
    w_ = Writer{};
    w_.h = h;
    sharedGrowRecords(std::max<std::size_t>(16, records_.size()));
    sharedRehash(std::bit_ceil(std::max<std::size_t>(16, records_.size() * 2)));
    for (const V& v : records_) {
      sharedWrite(w_.size, v);
      sharedInsertSlot(v.key(), static_cast<std::uint32_t>(w_.size));
      ++w_.size;
    }
    w_.used = w_.size;
    h->used.store(w_.used, std::memory_order_release);
    h->size.store(w_.size, std::memory_order_release);
    h->generation.store(generation_ + 1, std::memory_order_release);
    records_ = std::move(pending);
    slots_ = {};
    indexed_ = 0;
  }

 private:
  using Stored = SharedRecord<V>;
  // How often a reader takes a copy again before it calls the record corrupt.
  static constexpr int kSharedTries = 64;

  // The regions of a table, as one reader saw them under one layoutSeq.
  struct Layout {
    const Stored* records = nullptr;
    std::uint64_t capacity = 0;
    const std::atomic<std::uint32_t>* slots = nullptr;
    std::uint64_t slotCount = 0;
    std::uint64_t seq = 0;
  };
  // The writer's own view: the only writer needs no counters to read what it wrote.
  struct Writer {
    SharedTableHeader* h = nullptr;
    Stored* records = nullptr;
    std::uint64_t recordsAt = 0, capacity = 0;
    std::atomic<std::uint32_t>* slots = nullptr;
    std::uint64_t slotsAt = 0, slotCount = 0;
    std::uint64_t size = 0;            // records in the table
    std::uint64_t used = 0;            // records and holes: where a walk ends
    std::vector<std::uint32_t> holes;  // the holes below `used`, filled before `used` grows
    struct {
      std::uint64_t at = 0, count = 0, generation = 0;
    } order;  // the listing order published last
  };

  static void pause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
  }

  // False when the writer kept moving the regions or published ones outside the mapping.
  bool sharedLayout(Layout& l) const {
    const SharedTableHeader& h = *header_;
    const std::uint64_t mapSize = arena_->mapSize();
    for (int tries = 0; tries < kSharedTries; ++tries) {
      const std::uint64_t seq = h.layoutSeq.load(std::memory_order_acquire);
      if (seq & 1) {
        pause();
        continue;
      }
      const std::uint64_t recordsAt = h.recordsAt.load(std::memory_order_relaxed);
      const std::uint64_t capacity = h.capacity.load(std::memory_order_relaxed);
      const std::uint64_t slotsAt = h.slotsAt.load(std::memory_order_relaxed);
      const std::uint64_t slotCount = h.slotCount.load(std::memory_order_relaxed);
      std::atomic_thread_fence(std::memory_order_acquire);
      if (h.layoutSeq.load(std::memory_order_relaxed) != seq) continue;
      const bool inside =
          recordsAt % alignof(Stored) == 0 && slotsAt % 4 == 0 && recordsAt <= mapSize &&
          capacity <= (mapSize - recordsAt) / sizeof(Stored) && slotsAt <= mapSize &&
          slotCount <= (mapSize - slotsAt) / 4 && (slotCount & (slotCount - 1)) == 0;
      if (!inside) break;
      l.records = reinterpret_cast<const Stored*>(arena_->base() + recordsAt);
      l.capacity = capacity;
      l.slots = reinterpret_cast<const std::atomic<std::uint32_t>*>(arena_->base() + slotsAt);
      l.slotCount = slotCount;
      l.seq = seq;
      return true;
    }
    corruptionDetected("the table's regions kept moving or lie outside the store");
    return false;
  }

  enum class Copy { whole, hole, moved, torn };
  // Copies record i of the layout; `hole` when a delete left none there, `moved` when the
  // layout is no longer current (the copy may come from a region given back), `torn` when
  // the record kept changing.
  Copy sharedCopy(const Layout& l, std::uint64_t i, V& out) const {
    const auto present = readUnderSeq(l.records[i], [&](const V& value) {
      std::memcpy(static_cast<void*>(&out), static_cast<const void*>(&value), sizeof(V));
    });
    if (!present) return Copy::torn;
    if (header_->layoutSeq.load(std::memory_order_acquire) != l.seq) return Copy::moved;
    return *present ? Copy::whole : Copy::hole;
  }

  // Runs read(record's value) between two reads of the record's sequence counter, again until
  // the counter was even and the same at both: whether the record was present then, or none
  // when it kept changing. What read saw counts only when this returns a value.
  template <class Read>
  std::optional<bool> readUnderSeq(const Stored& r, Read&& read) const {
    for (int tries = 0; tries < kSharedTries; ++tries) {
      const std::uint32_t s1 = r.seq.load(std::memory_order_acquire);
      if (s1 & 1) {
        pause();
        continue;
      }
      const std::uint32_t present = r.present.load(std::memory_order_relaxed);
      read(r.value);
      std::atomic_thread_fence(std::memory_order_acquire);
      if (r.seq.load(std::memory_order_relaxed) != s1) continue;
      return present != 0;
    }
    return std::nullopt;
  }

  std::uint64_t sharedUsed() const {
    return header_->used.load(std::memory_order_acquire);
  }

  // Record i into `out`; false for a hole. A record that cannot be read whole is reported
  // and read as the empty record.
  bool sharedAt(std::uint64_t i, V& out) const {
    for (int tries = 0; tries < kSharedTries; ++tries) {
      Layout l;
      if (!sharedLayout(l)) return false;
      // Shrunk since the walk looked at its size: the walk ends at the next comparison.
      if (i >= l.capacity) return false;
      switch (sharedCopy(l, i, out)) {
        case Copy::whole:
          return true;
        case Copy::hole:
          return false;
        case Copy::moved:
          continue;
        case Copy::torn:
          corruptionDetected("record changed while it was read");
          out = V{};
          return true;
      }
    }
    corruptionDetected("the table's regions kept moving");
    out = V{};
    return true;
  }
  // Whether record i is a hole now, without copying it: a record being written is not.
  bool sharedHole(std::uint64_t i) const {
    Layout l;
    if (!sharedLayout(l) || i >= l.capacity) return false;
    const Stored& r = l.records[i];
    const std::uint32_t s1 = r.seq.load(std::memory_order_acquire);
    if (s1 & 1) return false;
    const std::uint32_t present = r.present.load(std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_acquire);
    return present == 0 && r.seq.load(std::memory_order_relaxed) == s1 &&
           header_->layoutSeq.load(std::memory_order_acquire) == l.seq;
  }

  // One record object from the find to the caller's: a FEC record is 12 KB, and each copy of
  // it on the stack touches pages of its own.
  V sharedLookup(const K& k) const {
    V v{};
    if (sharedFind(k, &v)) checkCorruption(k);
    return v;
  }

  enum class Probe { match, other, hole, moved, torn };
  // Whether record i of the layout holds key k, read in place under the record's sequence
  // counter: a record is copied only once its key matched, so a lookup that probes past other
  // keys (FEC records are kilobytes) copies none of them.
  Probe sharedKeyAt(const Layout& l, std::uint64_t i, const K& k) const {
    bool same = false;
    const auto present =
        readUnderSeq(l.records[i], [&](const V& value) { same = value.key() == k; });
    if (!present) return Probe::torn;
    if (header_->layoutSeq.load(std::memory_order_acquire) != l.seq) return Probe::moved;
    if (!*present) return Probe::hole;
    return same ? Probe::match : Probe::other;
  }

  // Finds k, probing each slot at most once, and copies its record into `*out` (unless `out` is
  // null: whether the key is there); false, with `*out` the empty record, when there is none. A
  // miss seen while the writer moved entries of the index is looked up again, and so is a record
  // that changed to another key between its probe and its copy.
  bool sharedFind(const K& k, V* out) const {
    bool written = false;  // `out` holds a copy that did not end as a match
    const auto miss = [&] {
      if (written) *out = V{};
      return false;
    };
    for (int tries = 0; tries < kSharedTries; ++tries) {
      const std::uint64_t w1 = header_->writeSeq.load(std::memory_order_acquire);
      Layout l;
      if (!sharedLayout(l) || l.slotCount == 0) return miss();
      const std::uint64_t mask = l.slotCount - 1;
      bool retry = false;
      std::uint64_t s = homeIn(k, mask);
      for (std::uint64_t step = 0; step < l.slotCount && !retry; ++step, s = (s + 1) & mask) {
        const std::uint32_t v = l.slots[s].load(std::memory_order_acquire);
        if (v == 0) break;
        if (v - 1 >= l.capacity) {
          retry = true;
          break;
        }
        Probe probe = sharedKeyAt(l, v - 1, k);
        if (probe == Probe::match) {
          if (!out) return true;
          written = true;
          switch (sharedCopy(l, v - 1, *out)) {
            case Copy::whole:
              if (out->key() == k) return true;
              retry = true;  // rewritten with another key since the probe: look again
              break;
            case Copy::hole:
              probe = Probe::hole;
              break;
            case Copy::moved:
              retry = true;
              break;
            case Copy::torn:
              probe = Probe::torn;
              break;
          }
          if (retry) break;
        }
        switch (probe) {
          case Probe::match:
          case Probe::other:
            break;
          case Probe::hole:
            // Deleted since its slot was read: the write counter sends the lookup round again.
            break;
          case Probe::moved:
            retry = true;
            break;
          case Probe::torn:
            corruptionDetected("record changed while it was read");
            return miss();
        }
      }
      if (!retry && !(w1 & 1) && header_->writeSeq.load(std::memory_order_acquire) == w1)
        return miss();
      pause();
    }
    return miss();
  }

  std::size_t homeIn(const K& k, std::uint64_t mask) const {
    std::uint64_t h = static_cast<std::uint64_t>(Hash()(k)) * 0x9e3779b97f4a7c15ull;
    return static_cast<std::size_t>((h >> 32) & mask);
  }

  // ---- the writer's side ----

  void writable() const {
    if (arena_ && !arena_->writableBase())
      throw Mox::RangeException(std::string(typeName()) +
                                ": the table is attached read-only; its agent changes it");
  }
  void sharedWrite(std::uint64_t i, const V& v) {
    Stored& r = w_.records[i];
    const std::uint32_t s = r.seq.load(std::memory_order_relaxed);
    r.seq.store(s + 1, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
    r.present.store(1, std::memory_order_relaxed);
    std::memcpy(static_cast<void*>(&r.value), static_cast<const void*>(&v), sizeof(V));
    r.seq.store(s + 2, std::memory_order_release);
  }
  // Leaves a hole at i: the record reads as absent until an insert fills it again.
  void sharedClear(std::uint64_t i) {
    Stored& r = w_.records[i];
    const std::uint32_t s = r.seq.load(std::memory_order_relaxed);
    r.seq.store(s + 1, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
    r.present.store(0, std::memory_order_relaxed);
    std::memset(static_cast<void*>(&r.value), 0, sizeof(V));
    r.seq.store(s + 2, std::memory_order_release);
  }
  template <class F>
  void sharedPublish(F&& change) {
    SharedTableHeader& h = *w_.h;
    const std::uint64_t seq = h.layoutSeq.load(std::memory_order_relaxed);
    h.layoutSeq.store(seq + 1, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
    change(h);
    h.layoutSeq.store(seq + 2, std::memory_order_release);
  }
  void sharedGrowRecords(std::uint64_t capacity) {
    const std::uint64_t at = arena_->allocate(capacity * sizeof(Stored));
    auto* records = reinterpret_cast<Stored*>(arena_->writableBase() + at);
    if (w_.used)
      std::memcpy(static_cast<void*>(records), static_cast<const void*>(w_.records),
                  w_.used * sizeof(Stored));
    const std::uint64_t oldAt = w_.recordsAt, oldCapacity = w_.capacity;
    sharedPublish([&](SharedTableHeader& h) {
      h.recordsAt.store(at, std::memory_order_relaxed);
      h.capacity.store(capacity, std::memory_order_relaxed);
    });
    w_.records = records;
    w_.recordsAt = at;
    w_.capacity = capacity;
    if (oldCapacity) arena_->retire(oldAt, oldCapacity * sizeof(Stored));
  }
  // A new index of n slots over the records, published whole.
  void sharedRehash(std::uint64_t n) {
    const std::uint64_t at = arena_->allocate(n * 4);
    auto* slots = reinterpret_cast<std::atomic<std::uint32_t>*>(arena_->writableBase() + at);
    const std::uint64_t mask = n - 1;
    for (std::uint64_t i = 0; i < w_.used; ++i) {
      if (!w_.records[i].present.load(std::memory_order_relaxed)) continue;
      std::uint64_t s = homeIn(w_.records[i].value.key(), mask);
      while (slots[s].load(std::memory_order_relaxed) != 0)
        s = (s + 1) & mask;
      slots[s].store(static_cast<std::uint32_t>(i + 1), std::memory_order_relaxed);
    }
    const std::uint64_t oldAt = w_.slotsAt, oldCount = w_.slotCount;
    sharedPublish([&](SharedTableHeader& h) {
      h.slotsAt.store(at, std::memory_order_relaxed);
      h.slotCount.store(n, std::memory_order_relaxed);
    });
    w_.slots = slots;
    w_.slotsAt = at;
    w_.slotCount = n;
    if (oldCount) arena_->retire(oldAt, oldCount * 4);
  }
  std::uint64_t sharedSlotOf(const K& k) const {
    if (w_.slotCount == 0) return kNoSlot;
    const std::uint64_t mask = w_.slotCount - 1;
    for (std::uint64_t s = homeIn(k, mask);; s = (s + 1) & mask) {
      const std::uint32_t v = w_.slots[s].load(std::memory_order_relaxed);
      if (v == 0) return kNoSlot;
      if (w_.records[v - 1].value.key() == k) return s;
    }
  }
  void sharedInsertSlot(const K& k, std::uint32_t i) {
    // The length is marked before a reader can reach the key.
    if constexpr (kKeysHaveLength) sharedMarkLength(k.len());
    const std::uint64_t mask = w_.slotCount - 1;
    std::uint64_t s = homeIn(k, mask);
    while (w_.slots[s].load(std::memory_order_relaxed) != 0)
      s = (s + 1) & mask;
    w_.slots[s].store(i + 1, std::memory_order_release);
  }
  void sharedMarkLength(int len) {
    if (len < 0 || len >= 160) return;
    if (len >= 128) {
      w_.h->keyLengthsHigh.fetch_or(std::uint32_t(1) << (len - 128), std::memory_order_release);
    } else {
      w_.h->keyLengths[len / 64].fetch_or(std::uint64_t(1) << (len % 64),
                                          std::memory_order_release);
    }
  }
  // Odd while entries of the index move, so that a reader's miss meanwhile is looked up again.
  void sharedBeginWrite() {
    w_.h->writeSeq.fetch_add(1, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
  }
  void sharedEndWrite() {
    w_.h->generation.fetch_add(1, std::memory_order_release);
    w_.h->writeSeq.fetch_add(1, std::memory_order_release);
    arena_->tableChanged();
  }
  void sharedRecordIs(const V& v) {
    writable();
    const K k = v.key();
    const std::uint64_t s = sharedSlotOf(k);
    if (s != kNoSlot) {
      sharedWrite(w_.slots[s].load(std::memory_order_relaxed) - 1, v);
      w_.h->generation.fetch_add(1, std::memory_order_release);
      arena_->tableChanged();
      return;
    }
    if (w_.size + 1 > kMaxShared)
      throw Mox::RangeException(std::string(typeName()) + ": table full");
    // A hole first: the records region grows only when there is none.
    if (w_.holes.empty() && w_.used == w_.capacity)
      sharedGrowRecords(std::max<std::uint64_t>(16, w_.capacity * 2));
    if ((w_.size + 1) * 2 > w_.slotCount)
      sharedRehash(std::max<std::uint64_t>(16, w_.slotCount * 2));
    std::uint64_t i = w_.used;
    if (!w_.holes.empty()) {
      i = w_.holes.back();
      w_.holes.pop_back();
    }
    // The record is whole before `used` or a slot lets a reader reach it.
    sharedWrite(i, v);
    sharedBeginWrite();
    ++w_.size;
    w_.h->size.store(w_.size, std::memory_order_release);
    if (i == w_.used) w_.h->used.store(++w_.used, std::memory_order_release);
    sharedInsertSlot(k, static_cast<std::uint32_t>(i));
    sharedEndWrite();
  }
  bool sharedRecordDel(const K& k) {
    writable();
    std::uint64_t s = sharedSlotOf(k);
    if (s == kNoSlot) return false;
    sharedBeginWrite();
    const std::uint64_t i = w_.slots[s].load(std::memory_order_relaxed) - 1;
    const std::uint64_t mask = w_.slotCount - 1;
    // Backward-shift deletion, as in the process's own index.
    std::uint64_t next = (s + 1) & mask;
    for (std::uint32_t v; (v = w_.slots[next].load(std::memory_order_relaxed)) != 0;
         next = (next + 1) & mask) {
      const std::uint64_t h = homeIn(w_.records[v - 1].value.key(), mask);
      if (((next - h) & mask) >= ((next - s) & mask)) {
        w_.slots[s].store(v, std::memory_order_release);
        s = next;
      }
    }
    w_.slots[s].store(0, std::memory_order_release);
    // The record leaves a hole where it was; no other record moves, so a walk going on
    // neither misses one nor sees one twice.
    sharedClear(i);
    if (i + 1 == w_.used) {
      w_.h->used.store(--w_.used, std::memory_order_release);
    } else {
      w_.holes.push_back(static_cast<std::uint32_t>(i));
    }
    --w_.size;
    w_.h->size.store(w_.size, std::memory_order_release);
    sharedEndWrite();
    return true;
  }
  void sharedRecordDelAll() {
    writable();
    sharedBeginWrite();
    w_.size = 0;
    w_.used = 0;
    w_.holes.clear();
    w_.h->size.store(0, std::memory_order_release);
    w_.h->used.store(0, std::memory_order_release);
    for (std::uint64_t s = 0; s < w_.slotCount; ++s)
      w_.slots[s].store(0, std::memory_order_relaxed);
    sharedEndWrite();
  }
  void sharedReserve(std::size_t n) {
    writable();
    if (n > kMaxShared) throw Mox::RangeException(std::string(typeName()) + ": table full");
    if (n > w_.capacity) sharedGrowRecords(n);
    if (n * 2 > w_.slotCount) sharedRehash(std::bit_ceil(n * 2));
  }

 public:
  // The order of the records, made from the records the writer holds and published under
  // orderSeq; the region it replaces is given back after the grace period, as any region.
  bool sharedOrderRefresh() override {
    if constexpr (!Mox::HasOrderKey<K>) {
      return false;
    } else {
      if (!sharedOrderStale()) return false;
      // Past the places an order word holds, readers sort for themselves.
      if (w_.used >= (std::uint64_t(1) << kOrderPlaceBits)) return false;
      const std::uint64_t generation = w_.h->generation.load(std::memory_order_relaxed);
      std::vector<std::uint64_t> words;
      words.reserve(w_.size);
      for (std::uint64_t i = 0; i < w_.used; ++i) {
        if (w_.records[i].present.load(std::memory_order_relaxed))
          words.push_back(orderKey(w_.records[i].value.key()) << kOrderPlaceBits | i);
      }
      // Records go into the store in order, and inserts mostly fill holes: often sorted now.
      if (!std::is_sorted(words.begin(), words.end()))
        Mox::detail::radixSortWords(words, kOrderPlaceBits);
      const std::uint64_t at = words.empty() ? 0 : arena_->allocate(words.size() * 8);
      if (!words.empty()) std::memcpy(arena_->writableBase() + at, words.data(), words.size() * 8);
      sharedOrderPublish(at, words.size(), generation);
      if (w_.order.count) arena_->retire(w_.order.at, w_.order.count * 8);
      w_.order = {at, words.size(), generation};
      return true;
    }
  }
  bool sharedOrderStale() const override {
    if constexpr (!Mox::HasOrderKey<K>) {
      return false;
    } else {
      return arena_ && arena_->writableBase() && w_.h && w_.size != 0 &&
             (w_.order.count == 0 ||
              w_.order.generation != w_.h->generation.load(std::memory_order_relaxed));
    }
  }

 private:
  std::optional<Duplicate> sharedIndexAppended() {
    writable();
    std::vector<V> pending = std::move(records_);
    records_ = {};
    sharedReserve(w_.size + pending.size());
    for (std::size_t i = 0; i < pending.size(); ++i) {
      const K k = pending[i].key();
      if (sharedSlotOf(k) != kNoSlot) return Duplicate{w_.size, k};
      sharedRecordIs(pending[i]);
    }
    return std::nullopt;
  }

  void sharedOrderPublish(std::uint64_t at, std::uint64_t count, std::uint64_t generation) {
    SharedTableHeader& h = *w_.h;
    const std::uint64_t seq = h.orderSeq.load(std::memory_order_relaxed);
    h.orderSeq.store(seq + 1, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
    h.orderAt.store(at, std::memory_order_relaxed);
    h.orderCount.store(count, std::memory_order_relaxed);
    h.orderGeneration.store(generation, std::memory_order_relaxed);
    h.orderSeq.store(seq + 2, std::memory_order_release);
  }

  // Slots hold a record's index + 1 in 32 bits and the index has twice as many slots.
  static constexpr std::uint64_t kMaxShared = std::uint64_t(1) << 30;
  Writer w_;

  std::vector<V> records_;
  // The records before this position are in the index; those after it were appended and wait
  // for indexAppended().
  std::size_t indexed_ = 0;
  std::vector<std::uint32_t> slots_;
  std::vector<K> corrupt_;
  std::uint64_t generation_ = 0;
};

}  // namespace Brine
