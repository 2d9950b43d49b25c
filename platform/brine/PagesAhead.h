#pragma once
// Brine::PagesAhead: a thread that maps and touches the pages of regions of a store, front to
// back, while the reader's own thread walks them. Each page a process touches first costs it
// a fault, and on a virtual machine with shadow page tables an exit to the host as well (a few
// microseconds per 4 KiB page: 30-40 ms for the records of a million routes), even after the
// kernel mapped the page (TableArena::willRead). Touched here, that cost is paid beside the
// walk instead of in it; the walk reads the same bytes as before, and nothing is written.
//
//   Brine::PagesAhead ahead({table.sharedRecordsRegion()});   // starts touching
//   ... walk the table ...                                      // ~PagesAhead stops and joins
//
// A hint only: without a thread to run it on, or for a region that is not in a store, nothing
// happens. The regions' arenas stay mapped while the thread holds them.

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "platform/brine/SharedTable.h"

namespace Brine {

class PagesAhead {
 public:
  explicit PagesAhead(std::vector<SharedRegion> regions) : regions_(std::move(regions)) {
    try {
      thread_ = std::thread([this] { run(); });
    } catch (const std::system_error&) {
      // No thread to spare: the walk touches its pages itself, as it would without this.
    }
  }
  ~PagesAhead() {
    stop_.store(true, std::memory_order_relaxed);
    if (thread_.joinable()) thread_.join();
  }
  PagesAhead(const PagesAhead&) = delete;
  PagesAhead& operator=(const PagesAhead&) = delete;

 private:
  static constexpr std::uint64_t kPage = 4096;
  // Mapped and touched a chunk at a time, so that the first chunks are ready early and a stop
  // is seen soon.
  static constexpr std::uint64_t kChunk = std::uint64_t(1) << 20;

  void run() {
    for (const SharedRegion& r : regions_) {
      if (!r.arena) continue;
      const char* const base = r.arena->base();
      for (std::uint64_t off = 0; off < r.bytes; off += kChunk) {
        if (stop_.load(std::memory_order_relaxed)) return;
        const std::uint64_t n = std::min(kChunk, r.bytes - off);
        r.arena->willRead(r.at + off, n);
        const std::uint64_t first = (r.at + off) & ~(kPage - 1);
        for (std::uint64_t at = first; at < r.at + off + n; at += kPage)
          (void)__atomic_load_n(base + at, __ATOMIC_RELAXED);
      }
    }
  }

  std::vector<SharedRegion> regions_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace Brine
