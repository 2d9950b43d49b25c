#pragma once
// Asking the kernel for huge pages under a large buffer about to be filled: one page fault per
// 2 MiB instead of one per 4 KiB, and on a virtual machine the faults are most of what filling
// fresh memory costs. A hint only: where the kernel has no huge page to give, nothing changes.

#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Mox {

inline void adviseHugePages(void* p, std::size_t bytes) {
  constexpr std::uintptr_t kPage = 4096;
  if (bytes < (std::size_t(2) << 20)) return;  // less than one huge page: no gain
  const std::uintptr_t begin = reinterpret_cast<std::uintptr_t>(p);
  // Whole pages around the buffer: the advice changes no byte, so the page that holds the
  // allocator's header may share it, and without that page the first 2 MiB block would not
  // lie wholly inside the advised range.
  const std::uintptr_t from = begin & ~(kPage - 1);
  const std::uintptr_t to = (begin + bytes + kPage - 1) & ~(kPage - 1);
  if (to > from) ::madvise(reinterpret_cast<void*>(from), to - from, MADV_HUGEPAGE);
}

// How many entries of `size` bytes to ask for so that a buffer of at least `n` entries fills
// whole huge pages. Only the 2 MiB blocks that lie wholly inside a mapping can be huge pages,
// and the kernel starts an anonymous mapping on a 2 MiB boundary only when its length is a
// multiple of 2 MiB: malloc maps a large block with a 16-byte header and rounds up to a page,
// so a block 32 bytes short of whole huge pages gets a mapping of exactly that many. Any other
// length leaves up to 2 MiB at the start in 4 KiB pages, each a fault and, on a virtual
// machine with shadow page tables, a costlier exit to the host when first touched.
inline std::size_t hugePageEntries(std::size_t n, std::size_t size) {
  constexpr std::size_t kHuge = std::size_t(2) << 20;
  constexpr std::size_t kMallocOverhead = 32;
  if (size == 0 || n > (~std::size_t(0) - 2 * kHuge) / size) return n;
  const std::size_t bytes = n * size;
  if (bytes < kHuge) return n;
  const std::size_t whole = (bytes + kMallocOverhead + kHuge - 1) / kHuge * kHuge;
  return std::max(n, (whole - kMallocOverhead) / size);
}

// Room for `n` entries in `v`, with huge pages under it when that is large, rounded up to
// whole huge pages (hugePageEntries): no 4 KiB page at its start, at the price of up to 2 MiB
// more resident.
template <class T>
void reserveHuge(std::vector<T>& v, std::size_t n) {
  if (n > v.capacity()) v.reserve(hugePageEntries(n, sizeof(T)));
  adviseHugePages(v.data(), v.capacity() * sizeof(T));
}

// The same without the rounding: for the copies a sort makes of a selection, which are most of
// a reader's memory already (an attached IPv6 listing's copies would pass 30 MB rounded).
template <class T>
void reserveHugeExact(std::vector<T>& v, std::size_t n) {
  if (n > v.capacity()) v.reserve(n);
  adviseHugePages(v.data(), v.capacity() * sizeof(T));
}

// Puts the next `bytes` of malloc's heap on huge pages, once per process: for a program that
// is about to make many small allocations (a listing's caches of a few thousand FECs, a few
// MB) and was not started with `GLIBC_TUNABLES=glibc.malloc.hugetlb=1`. The heap is made to
// grow by `bytes` now (and to keep that much when it shrinks), and the new part is advised.
// A hint only: a heap that cannot grow in place, or a kernel without huge pages to give,
// changes nothing.
inline void heapOnHugePages(std::size_t bytes) {
#if defined(__GLIBC__) && defined(M_TOP_PAD)
  // Once per process, whichever thread asks first.
  static std::atomic<bool> done{false};
  if (bytes > std::size_t(1) << 30 || done.exchange(true)) return;
  constexpr std::uintptr_t kHuge = std::uintptr_t(2) << 20;
  ::mallopt(M_TOP_PAD, static_cast<int>(bytes));
  const auto before = reinterpret_cast<std::uintptr_t>(::sbrk(0));
  // Blocks under the mapping threshold come from the heap: the first that does not fit in
  // what is left at its top grows it by `bytes` more. Freed, they go back to the top.
  void* blocks[16];
  int n = 0;
  while (n < 16 && reinterpret_cast<std::uintptr_t>(::sbrk(0)) == before)
    blocks[n++] = ::malloc(std::size_t(64) << 10);
  const auto end = reinterpret_cast<std::uintptr_t>(::sbrk(0));
  for (int i = 0; i < n; ++i)
    ::free(blocks[i]);
  const std::uintptr_t from = (before + kHuge - 1) & ~(kHuge - 1);
  const std::uintptr_t to = end & ~(kHuge - 1);
  if (end > before && to > from) ::madvise(reinterpret_cast<void*>(from), to - from, MADV_HUGEPAGE);
#else
  (void)bytes;
#endif
}

}  // namespace Mox
