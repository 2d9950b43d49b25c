#pragma once
// What a table needs to keep its records and index in memory shared between processes: one
// writer process and many readers, each with its own mapping of the same store, so everything
// in the store is an offset from the mapping's base, never a pointer.
//
// Readers copy a record under its sequence counter (a seqlock): even while the record is
// whole, odd while the writer rewrites it. A copy whose counter changed is taken again; one
// that keeps changing is reported as corrupt and read as the empty record. When a table's
// records or index outgrow their region, the writer fills a new region and publishes its
// offset under the table's layout counter; the old region stays readable for a grace period
// (see TableArena::retire), and a reader that copied from a region no longer current sees the
// layout counter changed and copies again from the new one.

#include <atomic>
#include <cstdint>
#include <memory>

namespace Brine {

// The memory a shared table lives in. Readers hold a read-only one (writableBase() is null).
class TableArena {
 public:
  virtual ~TableArena() = default;
  const char* base() const { return base_; }
  char* writableBase() const { return writable_ ? base_ : nullptr; }
  std::uint64_t mapSize() const { return size_; }

  // Writer only. A fresh region of `bytes`, zero-filled and aligned to 64 bytes; throws
  // std::bad_alloc when the store is full.
  virtual std::uint64_t allocate(std::uint64_t bytes) = 0;
  // Writer only. The region is no longer published; readers may still be copying from it, so
  // it is given back only after a grace period. Its pages then read as zeros.
  virtual void retire(std::uint64_t offset, std::uint64_t bytes) = 0;
  // Writer only: a table changed (the store's generation follows).
  virtual void tableChanged() {}
  // A hint that the region is about to be read whole: a reader maps its pages in one go
  // rather than one fault at a time. Changes nothing, raises nothing.
  virtual void willRead(std::uint64_t /*offset*/, std::uint64_t /*bytes*/) const {}

 protected:
  TableArena(char* base, std::uint64_t size, bool writable)
      : base_(base), size_(size), writable_(writable) {}

 private:
  char* base_;
  std::uint64_t size_;
  bool writable_;
};

// A region of a store, with the arena that keeps it mapped (see PagesAhead.h); no arena for
// a table that is not in a store.
struct SharedRegion {
  std::shared_ptr<const TableArena> arena;
  std::uint64_t at = 0;
  std::uint64_t bytes = 0;
};

// A table's header in the store. The writer changes the region fields only inside an odd
// layoutSeq; it keeps writeSeq odd while it moves entries of the index (an insert or delete),
// so that a lookup that found nothing can tell a missing key from a key it walked past.
struct alignas(64) SharedTableHeader {
  std::atomic<std::uint64_t> layoutSeq;
  std::atomic<std::uint64_t> recordsAt;  // region of `capacity` SharedRecord<V>
  std::atomic<std::uint64_t> capacity;
  std::atomic<std::uint64_t> slotsAt;  // region of `slotCount` 32-bit slots: record index + 1
  std::atomic<std::uint64_t> slotCount;
  std::atomic<std::uint64_t> size;
  std::atomic<std::uint64_t> generation;
  std::atomic<std::uint64_t> writeSeq;
  // Records [0, used) are whole records or holes a delete left: a walk goes up to here.
  std::atomic<std::uint64_t> used;
  std::uint32_t recordSize;  // sizeof(SharedRecord<V>): a reader of another build refuses
  // Keys with a length (prefixes): bit n set once a key of length n went in, lengths 0-127
  // in keyLengths, 128-159 in keyLengthsHigh. Never cleared, so a superset of the lengths the
  // table holds: a longest-match lookup probes only those. All zero: not known (a table that
  // keeps none), every length may be there.
  std::atomic<std::uint32_t> keyLengthsHigh;
  // The listing order the writer keeps for its readers (Table::sharedOrderRefresh): a region
  // of orderCount words, each a record's order key above its place (kOrderPlaceBits), sorted;
  // valid while the table's generation is orderGeneration. The writer changes the three
  // inside an odd orderSeq.
  std::atomic<std::uint64_t> orderSeq;
  std::atomic<std::uint64_t> orderAt;
  std::atomic<std::uint64_t> orderCount;
  std::atomic<std::uint64_t> orderGeneration;
  std::atomic<std::uint64_t> keyLengths[2];
};
static_assert(sizeof(SharedTableHeader) == 128, "table headers are packed many to a page");

// The bits of an order word that hold the record's place; the order key is above them.
inline constexpr unsigned kOrderPlaceBits = 24;

// A record, or a hole (present == 0) that a delete left in its place and an insert fills
// again: records never move, so a walk sees each record that stays in the table once.
template <class V>
struct SharedRecord {
  std::atomic<std::uint32_t> seq;
  std::atomic<std::uint32_t> present;  // written under seq, with value
  V value;
};

}  // namespace Brine
