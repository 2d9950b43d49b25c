// Route tables a reader does not need: read and checked, not built.
//
// A route array is checked by a scan of its text that accepts only what it can prove the
// whole reading (Routes.cpp) accepts: the JSON grammar of an array of objects, the route keys
// written without escapes, each once, `prefix` and `type` present; strings of printable ASCII
// without escapes; numbers as plain digits within their range; `true` and `false`. Each
// value goes through the same parser as in the whole reading (prefix, host bits, type word,
// FEC reference), and no prefix may come twice (anyTwice below). Whatever the scan cannot prove (an
// escape, a non-ASCII string, a number with a fraction, an unknown key, anything wrong) sends the
// array to the whole reading, which refuses it with its own message, or accepts it; the table
// it built is then dropped. So a document is refused with a table left out exactly when it is
// refused with it, and with the same message.
//
// What the routes say beyond the table is kept as the whole reading keeps it: the count of
// routes not programmed in hardware and the prefixes not programmed in the kernel.

#include <sched.h>
#include <sys/mman.h>
#include <unistd.h>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/mox/Prefetch.h"
#include "snapshot/loader/Loader.h"

namespace Snapshot::loader {

namespace {

// The first byte at or after `p` that is not a blank, found sixteen bytes at a time (SSE2,
// which every x86-64 has). The text is followed by at least sixteen zero bytes, which end any
// run, so a load never leaves the padding.
inline const char* pastBlanks(const char* p) {
#if defined(__SSE2__)
  for (;;) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i blank = _mm_or_si128(
        _mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8(' ')), _mm_cmpeq_epi8(v, _mm_set1_epi8('\n'))),
        _mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8('\r')),
                     _mm_cmpeq_epi8(v, _mm_set1_epi8('\t'))));
    const unsigned other = ~unsigned(_mm_movemask_epi8(blank)) & 0xffffu;
    if (other != 0) return p + std::countr_zero(other);
    p += 16;
  }
#else
  while (*p == ' ' || *p == '\n' || *p == '\r' || *p == '\t')
    ++p;
  return p;
#endif
}

// The first quote, backslash or zero byte at or after `p`, the same way.
inline const char* quoteOrEscape(const char* p) {
#if defined(__SSE2__)
  for (;;) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i hit = _mm_or_si128(
        _mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8('"')), _mm_cmpeq_epi8(v, _mm_set1_epi8('\\'))),
        _mm_cmpeq_epi8(v, _mm_setzero_si128()));
    if (const unsigned m = unsigned(_mm_movemask_epi8(hit))) return p + std::countr_zero(m);
    p += 16;
  }
#else
  while (*p != '"' && *p != '\\' && *p != 0)
    ++p;
  return p;
#endif
}

// Items in memory taken from the address space and in huge pages where the kernel has them: a
// million keys written into fresh small pages cost a fault every 512 of them, and faults are
// dear on a virtual machine. Sized from the start to what the text can hold, it does not
// move; a guess too small grows it.
template <class T>
class HugeArray {
 public:
  HugeArray() = default;
  explicit HugeArray(std::size_t capacity) { grow(std::max<std::size_t>(capacity, 1)); }
  HugeArray(HugeArray&& o) noexcept { *this = std::move(o); }
  HugeArray& operator=(HugeArray&& o) noexcept {
    std::swap(data_, o.data_);
    std::swap(size_, o.size_);
    std::swap(capacity_, o.capacity_);
    return *this;
  }
  ~HugeArray() {
    if (data_) ::munmap(data_, capacity_ * sizeof(T));
  }

  void push(const T& item) {
    if (size_ == capacity_) grow(std::max<std::size_t>(2 * capacity_, 4096));
    data_[size_++] = item;
  }
  T* data() { return data_; }
  std::size_t size() const { return size_; }

 private:
  void grow(std::size_t capacity) {
    void* p = data_ ? ::mremap(data_, capacity_ * sizeof(T), capacity * sizeof(T), MREMAP_MAYMOVE)
                    : ::mmap(nullptr, capacity * sizeof(T), PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (p == MAP_FAILED) throw std::bad_alloc();
    ::madvise(p, capacity * sizeof(T), MADV_HUGEPAGE);
    data_ = static_cast<T*>(p);
    capacity_ = capacity;
  }

  T* data_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

// A prefix's order key mixed into 64 bits whose every bit depends on every bit of the key. For
// an IPv4 key (one word) the mix is one-to-one, so two keys never share a hash.
inline std::uint64_t mixed(std::uint64_t k) {
  k ^= k >> 31;
  k *= 0x9e3779b97f4a7c15ull;
  return k ^ (k >> 29);
}
inline std::uint64_t hashOf(std::uint64_t k) {
  return mixed(k);
}
inline std::uint64_t hashOf(const std::array<std::uint64_t, 3>& k) {
  return mixed(k[0] ^ mixed(k[1] ^ mixed(k[2])));
}

// Whether a key comes twice among `n`. The keys are dealt by their hash into buckets of about
// two hundred (one pass to count, one to deal), and each bucket is checked in an open table
// small enough to stay in the processor's cache. Sorting a million keys by radix took five
// passes of scattered writes; this is two sequential passes and one short-range one, and the
// keys of a table are nearly always all different, so every bucket is checked whole.
template <class Key>
bool anyTwice(const Key* keys, std::size_t n) {
  if (n < 2) return false;
  const unsigned bucketBits = n > 256 ? unsigned(std::bit_width(n / 256)) : 0;
  const auto bucketOf = [bucketBits](std::uint64_t h) {
    return bucketBits ? static_cast<std::size_t>(h >> (64 - bucketBits)) : 0;
  };
  std::vector<std::uint32_t> start((std::size_t(1) << bucketBits) + 1);
  for (std::size_t i = 0; i < n; ++i)
    ++start[bucketOf(hashOf(keys[i])) + 1];
  std::size_t largest = 0;
  for (std::size_t b = 1; b < start.size(); ++b) {
    largest = std::max<std::size_t>(largest, start[b]);
    start[b] += start[b - 1];
  }
  HugeArray<Key> dealt(n);  // written in place below, not pushed
  Key* out = dealt.data();
  {
    std::vector<std::uint32_t> at(start.begin(), start.end() - 1);
    for (std::size_t i = 0; i < n; ++i)
      out[at[bucketOf(hashOf(keys[i]))]++] = keys[i];
  }
  // Slots hold a key's place in its bucket plus one; 0 is free. Twice the bucket's size, so
  // that a probe ends soon.
  std::vector<std::uint32_t> slots(std::bit_ceil(2 * largest));
  for (std::size_t b = 0; b + 1 < start.size(); ++b) {
    const Key* bucket = out + start[b];
    const std::size_t count = start[b + 1] - start[b];
    if (count < 2) continue;
    const std::size_t mask = std::bit_ceil(2 * count) - 1;
    std::fill_n(slots.begin(), mask + 1, 0u);
    for (std::size_t i = 0; i < count; ++i) {
      std::size_t s = static_cast<std::size_t>(hashOf(bucket[i]) >> 20) & mask;
      for (; slots[s] != 0; s = (s + 1) & mask) {
        if (bucket[slots[s] - 1] == bucket[i]) return true;
      }
      slots[s] = static_cast<std::uint32_t>(i + 1);
    }
  }
  return false;
}

// The prefixes of a table left out, to refuse one given twice. An IPv4 prefix of /24 or shorter
// is a bit of its own in a bitmap of 4 MiB (the /24s' half of it is what a full table
// touches), an IPv6 one of /63 or shorter a 64-bit word in an open table, the length marked by
// the lowest bit set; the longer ones, few in nearly every table, are kept and checked by
// anyTwice() at the end. Each place is fetched when its prefix is read and looked at kLag
// prefixes later, so that the fetches of a table's random places overlap the reading of the
// routes in between instead of each waiting for memory in turn: a million prefixes so cost a
// few milliseconds, where keeping their keys, dealing them into buckets and checking each
// bucket cost three passes and the pages of two copies. The places are looked at in the order
// the prefixes came, so a prefix given twice is found all the same, only a few routes on.
constexpr unsigned kLag = 16;

// Memory from the address space, in huge pages where the kernel has them: a table's bitmap or
// slots are read at random, and with small pages nearly every read would miss the processor's
// table of pages too.
template <class T>
T* hugeZeros(std::size_t count) {
  void* m = ::mmap(nullptr, count * sizeof(T), PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (m == MAP_FAILED) throw std::bad_alloc();
  ::madvise(m, count * sizeof(T), MADV_HUGEPAGE);
  return static_cast<T*>(m);
}

template <class Fam>
class SeenPrefixes;

template <>
class SeenPrefixes<V4> {
 public:
  SeenPrefixes() = default;
  SeenPrefixes(const SeenPrefixes&) = delete;
  SeenPrefixes& operator=(const SeenPrefixes&) = delete;
  ~SeenPrefixes() {
    if (bits_) ::munmap(bits_, kBitmapWords * 8);
  }

  // False when a prefix came twice among those added before, up to kLag of them late.
  bool add(const Plexa::Prefix& p) {
    const int len = p.len();
    if (len > kShortest) {
      longer_.push(orderKey(p));
      return true;
    }
    if (!bits_) bits_ = hugeZeros<std::uint64_t>(kBitmapWords);
    // Length len's prefixes are the bits [2^len, 2^(len+1)).
    const std::uint32_t i =
        (std::uint32_t(1) << len) | (len ? p.address().value() >> (32 - len) : 0);
    Mox::prefetch(&bits_[i >> 6]);
    const std::uint32_t due = pending_[added_ % kLag];
    pending_[added_++ % kLag] = i;
    return added_ <= kLag || set(due);
  }
  // Whether every prefix came once.
  bool finish() { return flush() && !anyTwice(longer_.data(), longer_.size()); }
  // Takes in another set's prefixes; false when one is in both (or came twice in either).
  bool absorb(SeenPrefixes& other) {
    if (!flush() || !other.flush()) return false;
    if (other.bits_ && !bits_) {
      std::swap(bits_, other.bits_);
    } else if (other.bits_) {
      for (std::size_t w = 0; w < kBitmapWords; ++w) {
        if (const std::uint64_t theirs = other.bits_[w]) {
          if (bits_[w] & theirs) return false;
          bits_[w] |= theirs;
        }
      }
    }
    for (std::size_t k = 0; k < other.longer_.size(); ++k)
      longer_.push(other.longer_.data()[k]);
    return true;
  }

 private:
  // Sets the places still waiting for their fetch.
  bool flush() {
    for (std::size_t k = added_ > kLag ? added_ - kLag : 0; k < added_; ++k) {
      if (!set(pending_[k % kLag])) return false;
    }
    added_ = 0;
    return true;
  }
  bool set(std::uint32_t i) {
    std::uint64_t& word = bits_[i >> 6];
    const std::uint64_t bit = std::uint64_t(1) << (i & 63);
    if (word & bit) return false;
    word |= bit;
    return true;
  }

  static constexpr int kShortest = 24;
  static constexpr std::size_t kBitmapWords = (std::size_t(2) << kShortest) / 64;
  std::uint64_t* bits_ = nullptr;
  std::array<std::uint32_t, kLag> pending_{};
  std::size_t added_ = 0;
  HugeArray<std::uint64_t> longer_;
};

template <>
class SeenPrefixes<V6> {
 public:
  SeenPrefixes() = default;
  SeenPrefixes(const SeenPrefixes&) = delete;
  SeenPrefixes& operator=(const SeenPrefixes&) = delete;
  ~SeenPrefixes() {
    if (slots_) ::munmap(slots_, (mask_ + 1) * 8);
  }

  bool add(const Plexa::Ip6Prefix& p) {
    const int len = p.len();
    if (len > 63) {
      longer_.push(orderKey(p));
      return true;
    }
    // Host bits are clear (the scan refused them), so the length's bit is free and the word
    // is never 0, which marks a free slot.
    const std::uint64_t key = p.address().word(0) | std::uint64_t(1) << (63 - len);
    if (2 * (count_ + kLag + 1) > mask_ + 1) grow();
    Mox::prefetch(&slots_[mixed(key) & mask_]);
    const std::uint64_t due = pending_[added_ % kLag];
    pending_[added_++ % kLag] = key;
    return added_ <= kLag || insert(due);
  }
  bool finish() { return flush() && !anyTwice(longer_.data(), longer_.size()); }
  bool absorb(SeenPrefixes& other) {
    if (!flush() || !other.flush()) return false;
    if (count_ == 0) {
      std::swap(slots_, other.slots_);
      std::swap(mask_, other.mask_);
      std::swap(count_, other.count_);
    } else {
      for (std::size_t s = 0; other.slots_ && s <= other.mask_; ++s) {
        if (!other.slots_[s]) continue;
        if (2 * (count_ + 1) > mask_ + 1) grow();
        if (!insert(other.slots_[s])) return false;
      }
    }
    for (std::size_t k = 0; k < other.longer_.size(); ++k)
      longer_.push(other.longer_.data()[k]);
    return true;
  }

 private:
  bool flush() {
    for (std::size_t k = added_ > kLag ? added_ - kLag : 0; k < added_; ++k) {
      if (!insert(pending_[k % kLag])) return false;
    }
    added_ = 0;
    return true;
  }
  bool insert(std::uint64_t key) {
    for (std::size_t s = mixed(key) & mask_;; s = (s + 1) & mask_) {
      if (slots_[s] == key) return false;
      if (slots_[s] == 0) {
        slots_[s] = key;
        ++count_;
        return true;
      }
    }
  }
  void grow() {
    std::uint64_t* old = slots_;
    const std::size_t oldCount = slots_ ? mask_ + 1 : 0;
    const std::size_t n = std::max<std::size_t>(2 * oldCount, std::size_t(1) << 14);
    slots_ = hugeZeros<std::uint64_t>(n);
    mask_ = n - 1;
    count_ = 0;
    for (std::size_t s = 0; s < oldCount; ++s) {
      if (old[s]) insert(old[s]);
    }
    if (old) ::munmap(old, oldCount * 8);
  }

  std::uint64_t* slots_ = nullptr;
  std::size_t mask_ = 0;
  std::size_t count_ = 0;
  std::array<std::uint64_t, kLag> pending_{};
  std::size_t added_ = 0;
  HugeArray<std::array<std::uint64_t, 3>> longer_;
};

// A regular file's text read a window at a time into memory that is used again and again,
// for a command that builds no table of some family: the route arrays of that family are
// checked from the window and left out, and the rest of the text (a small part of a large
// state) goes to `doc` for the parser. Reading a full table's 88 MB so costs no memory the
// process has not already touched; a fresh copy of it cost more than reading it. The window
// keeps kAhead bytes in view at each place the readers ask (each route, each value): a
// token longer than that meets the zero bytes after the text in view, which every reader
// refuses, and the load starts again the usual way.
class Window {
 public:
  static constexpr std::size_t kAhead = 64 << 10;
  static constexpr std::size_t kPad = 64;
  // One huge page, on its boundary: the kernel backs only whole aligned 2 MiB blocks with a huge
  // page, and the 270 small pages of a megabyte's window cost a fault each (a few
  // milliseconds on a virtual machine), where the huge page costs one.
  static constexpr std::size_t kSize = std::size_t(2) << 20;

  // Each fill moves what is left in view (less than kAhead) to the start and reads the room
  // after it (about 2 MiB): the text is moved once more in pieces of kAhead, not whole. The file
  // is read at offsets of the window's own (pread), from `from`; without `doc` nothing is kept
  // (the second thread's window, below). A file of `size` bytes that fits in less is given
  // room for itself and the padding, in small pages.
  Window(int fd, std::vector<char>* doc, std::size_t size, std::size_t from = 0)
      : fd_(fd), doc_(doc), readTo_(from) {
    const std::size_t left = size > from ? size - from : 0;
    const std::size_t page = 4096;
    if (left + kAhead + kPad < kSize) {
      size_ = (left + kAhead + kPad + page - 1) / page * page;
      void* m = ::mmap(nullptr, size_, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
      if (m == MAP_FAILED) throw std::bad_alloc();
      buf_ = static_cast<char*>(m);
    } else {
      buf_ = hugePage();
    }
    p = copyFrom_ = end_ = buf_;
    copying_ = doc_ != nullptr;
    fill();
  }
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;
  ~Window() { ::munmap(buf_, size_); }

  char* p;

  // Keeps at least kAhead bytes in view from `p`, or what is left of the file.
  void ensure() {
    if (eof_ || static_cast<std::size_t>(end_ - p) >= kAhead) return;
    if (copying_) copyTo(p);
    const std::size_t left = static_cast<std::size_t>(end_ - p);
    std::memmove(buf_, p, left);
    p = copyFrom_ = buf_;
    end_ = p + left;
    fill();
  }
  bool atEnd() const { return eof_ && p == end_; }
  // Where `at`, in view, is in the file.
  std::size_t offsetOf(const char* at) const {
    return readTo_ - static_cast<std::size_t>(end_ - at);
  }
  // The end of the text in view, which zero bytes follow.
  const char* viewEnd() const { return end_; }
  // Moves the view to `offset` of the file, past text another reader took; only while the
  // text is not being kept (between pause() and resume()).
  void seek(std::size_t offset) {
    p = copyFrom_ = end_ = buf_;
    readTo_ = offset;
    eof_ = false;
    fill();
  }
  // The text up to `at` goes to the document; the text after it, until resume(), does not.
  void pause(char* at) {
    copyTo(at);
    copying_ = false;
  }
  void resume(char* at) {
    copyFrom_ = at;
    copying_ = true;
  }
  void finish() { copyTo(p); }
  std::size_t docSize() const { return doc_->size(); }
  bool failed() const { return failed_; }

 private:
  void copyTo(char* at) {
    if (doc_ && at > copyFrom_) doc_->insert(doc_->end(), copyFrom_, at);
    copyFrom_ = at;
  }
  static char* hugePage() {
    void* m = ::mmap(nullptr, 2 * kSize, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (m == MAP_FAILED) throw std::bad_alloc();
    char* const at = static_cast<char*>(m);
    char* const aligned = reinterpret_cast<char*>(
        (reinterpret_cast<std::uintptr_t>(at) + kSize - 1) & ~std::uintptr_t(kSize - 1));
    if (aligned > at) ::munmap(at, static_cast<std::size_t>(aligned - at));
    ::munmap(aligned + kSize, static_cast<std::size_t>(at + 2 * kSize - aligned - kSize));
    ::madvise(aligned, kSize, MADV_HUGEPAGE);
    return aligned;
  }
  void fill() {
    char* const limit = buf_ + size_ - kPad;
    while (end_ < limit) {
      const ssize_t n =
          ::pread(fd_, end_, static_cast<std::size_t>(limit - end_), static_cast<off_t>(readTo_));
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) failed_ = true;
      if (n <= 0) {
        eof_ = true;
        break;
      }
      end_ += n;
      readTo_ += static_cast<std::size_t>(n);
    }
    std::memset(end_, 0, kPad);
  }

  int fd_;
  std::vector<char>* doc_;
  char* buf_;
  std::size_t size_ = kSize;
  std::size_t readTo_;  // the file's offset of end_
  char* copyFrom_;
  char* end_;
  bool eof_ = false;
  bool copying_ = true;
  bool failed_ = false;
};

class Ahead;

template <class Fam>
class RouteScan {
 public:
  using Table = std::remove_reference_t<decltype(std::declval<VrfState&>().routes<Fam>())>;
  // Without a table the scan checks for prefixes given twice itself; with one it appends each
  // route to it, which indexAppended() then checks.
  explicit RouteScan(const char* at, Table* table = nullptr) : p_(at), table_(table) {}
  // Reads from the window, from its place.
  // Reads from the window, from its place. With `ahead`, the second thread's reading of the
  // file's later part is taken where it starts (takeAhead()); with `stop`, the scan gives up
  // once that is set.
  RouteScan(Window& w, Ahead* ahead, const std::atomic<bool>* stop = nullptr)
      : p_(w.p), table_(nullptr), window_(&w), ahead_(ahead), stop_(stop) {}

  // Reads the array at the start; false when something is not proven valid. On success,
  // end() is just past the closing bracket.
  bool run() {
    if (*p_ != '[') return false;
    ++p_;
    space();
    if (*p_ == ']') return finishArray();
    return elements();
  }
  // Reads the array's elements from the route at the start up to its closing bracket.
  bool elements() {
    for (;;) {
      if (window_) {
        ahead();
        if (ahead_ && window_->offsetOf(p_) >= watch_) {
          if (const int took = takeAhead()) return took > 0 && finishArray();
        }
        if (stop_ && (count_ & 1023) == 0 && stop_->load(std::memory_order_relaxed)) return false;
      }
      if (!route()) return false;
      space();
      if (*p_ == ',') {
        ++p_;
        space();
        continue;
      }
      if (*p_ == ']') return finishArray();
      return false;
    }
  }

  const char* end() const { return p_; }
  // Hands the place back to the window.
  char* endInWindow() const { return window_->p = const_cast<char*>(p_); }
  std::size_t count() const { return count_; }
  // Whether the second thread read the array's end.
  bool tookAhead() const { return tookAhead_; }
  std::uint32_t unprogrammed() const { return unprogrammed_; }
  const std::vector<typename Fam::Prefix>& kernelUnprogrammed() const { return kernel_; }

  // Takes in what another scan read of the same array after this one's place: its routes,
  // what they mark, and its prefixes, none of which may be one of this scan's.
  bool absorb(RouteScan& other) {
    count_ += other.count_;
    unprogrammed_ += other.unprogrammed_;
    kernel_.insert(kernel_.end(), other.kernel_.begin(), other.kernel_.end());
    return seen_.absorb(other.seen_);
  }

 private:
  enum Field { kPrefix, kType, kFec, kPreference, kMetric, kHw, kKernel, kNone };

  // The first eight bytes at `q` as one number, the first byte lowest.
  static std::uint64_t eightBytes(const char* q) {
    std::uint64_t w;
    std::memcpy(&w, q, 8);
    if constexpr (std::endian::native == std::endian::big) w = __builtin_bswap64(w);
    return w;
  }

  // Blanks. Most places hold none or one; between routes a line break and its indentation.
  void space() {
    if (static_cast<unsigned char>(*p_) > ' ') return;
    p_ = pastBlanks(p_);
  }
  // The colon after a key, with the blanks around it; `": "`, as nearly every table writes
  // it, in one comparison.
  bool colon() {
    if (p_[0] == ':' && p_[1] == ' ' && static_cast<unsigned char>(p_[2]) > ' ') {
      p_ += 2;
      return true;
    }
    space();
    if (*p_ != ':') return false;
    ++p_;
    space();
    return true;
  }
  // Whether the text at p_ starts with `word` (a literal), compared as a few words at once.
  template <std::size_t N>
  bool at(const char (&word)[N]) const {
    return std::memcmp(p_, word, N - 1) == 0;
  }
  void ahead() {
    window_->p = const_cast<char*>(p_);
    window_->ensure();
    p_ = window_->p;
  }

  // A string of printable ASCII without escapes. The document is followed by the parser's
  // padding of zero bytes, so a string left open stops at a byte the loop refuses.
  bool string(std::string_view& out) {
    if (*p_ != '"') return false;
    const char* s = ++p_;
    for (;;) {
      const auto c = static_cast<unsigned char>(*p_);
      if (c == '"') break;
      if (c < 0x20 || c >= 0x7f || c == '\\') return false;
      ++p_;
    }
    out = std::string_view(s, static_cast<std::size_t>(p_ - s));
    ++p_;
    return true;
  }

  static bool delimiter(char c) {
    return c == ',' || c == '}' || c == ']' || c == ' ' || c == '\n' || c == '\r' || c == '\t';
  }

  // A whole number as JSON writes it (no sign, no leading zero, no fraction or exponent).
  bool number(std::uint64_t max, std::uint64_t& out) {
    const char* s = p_;
    if (*p_ == '0') {
      ++p_;
    } else {
      while (*p_ >= '0' && *p_ <= '9' && p_ - s < 19)
        ++p_;
    }
    if (p_ == s || !delimiter(*p_)) return false;
    std::uint64_t n = 0;
    for (const char* d = s; d < p_; ++d)
      n = n * 10 + std::uint64_t(*d - '0');
    out = n;
    return n <= max;
  }

  bool boolean(bool& out) {
    if (std::memcmp(p_, "true", 4) == 0 && delimiter(p_[4])) {
      out = true;
      p_ += 4;
      return true;
    }
    if (std::memcmp(p_, "false", 5) == 0 && delimiter(p_[5])) {
      out = false;
      p_ += 5;
      return true;
    }
    return false;
  }

  // A route's key, read as its quoted word: any other text, a known word escaped included, is
  // not one the scan takes.
  Field field() {
    const auto take = [&](std::size_t n, Field f) {
      p_ += n;
      return f;
    };
    switch (p_[1]) {
      case 'p':
        if (at(R"("prefix")")) return take(8, kPrefix);
        if (at(R"("preference")")) return take(12, kPreference);
        break;
      case 't':
        if (at(R"("type")")) return take(6, kType);
        break;
      case 'f':
        if (at(R"("fec")")) return take(5, kFec);
        break;
      case 'm':
        if (at(R"("metric")")) return take(8, kMetric);
        break;
      case 'h':
        if (at(R"("hardwareProgrammed")")) return take(20, kHw);
        break;
      case 'k':
        if (at(R"("kernelProgrammed")")) return take(18, kKernel);
        break;
    }
    return kNone;
  }

  // Whether `text` (in the document, which the parser's padding or the window's zero bytes
  // follow, so sixteen bytes can be read from it) is `word`: two loads and a mask where a
  // call to memcmp cost more than the comparison.
  static bool sameWord(std::string_view text, std::string_view word) {
    if (text.size() != word.size()) return false;
    if (text.size() > 16) return text == word;
    std::uint64_t a[2]{}, b[2]{};
    std::memcpy(a, text.data(), 16);
    std::memcpy(b, word.data(), word.size());
    const std::size_t n = text.size();
    const std::uint64_t m0 = n >= 8 ? ~0ull : (1ull << (8 * n)) - 1;
    const std::uint64_t m1 = n >= 16 ? ~0ull : n <= 8 ? 0 : (1ull << (8 * (n - 8))) - 1;
    return ((a[0] ^ b[0]) & m0) == 0 && ((a[1] ^ b[1]) & m1) == 0;
  }

  // One to three decimal digits at `q` without a leading zero, then `end`: their value, and
  // `q` moved past `end`; -1 for anything else. Read without a loop, so that the number of
  // digits, which changes from one octet to the next, costs no mispredicted branch. The text in
  // view is followed by zero bytes, so three bytes can always be read.
  // The bytes are read in one load and taken apart in registers: each number's place depends
  // on the one before, and a load per byte made that chain of waits the scan's longest.
  [[gnu::always_inline]] static int smallNumber(const char*& q, char end) {
    const std::uint64_t w = eightBytes(q);
    const unsigned d0 = unsigned(w & 0xff) - '0';
    const unsigned d1 = unsigned(w >> 8 & 0xff) - '0';
    const unsigned d2 = unsigned(w >> 16 & 0xff) - '0';
    const bool two = d0 < 10 && d1 < 10;
    const bool three = two && d2 < 10;
    const unsigned digits = (d0 < 10) + two + three;
    const unsigned value = three ? d0 * 100 + d1 * 10 + d2 : two ? d0 * 10 + d1 : d0;
    const char after = static_cast<char>(w >> (8 * digits));
    if (digits == 0 || (d0 == 0 && digits > 1) || after != end) return -1;
    q += digits + 1;
    return int(value);
  }

  // An IPv4 prefix string as nearly every table writes it ("10.1.0.0/16": four octets, a
  // length, each in decimal without a leading zero), read in place; false, with nothing
  // consumed, for any other text, which then goes to the parser every reading uses. What this
  // takes, that parser takes as the same prefix.
  bool plainV4Prefix(typename Fam::Prefix& prefix, bool& hostBits) {
    if (*p_ != '"') return false;
    const char* q = p_ + 1;
    const int a = smallNumber(q, '.');
    const int b = smallNumber(q, '.');
    const int c = smallNumber(q, '.');
    const int d = smallNumber(q, '/');
    const int len = smallNumber(q, '"');
    if ((a | b | c | d | len) < 0 || a > 255 || b > 255 || c > 255 || d > 255 || len > 32)
      return false;
    const std::uint32_t v =
        std::uint32_t(a) << 24 | std::uint32_t(b) << 16 | std::uint32_t(c) << 8 | std::uint32_t(d);
    const std::uint32_t mask = len ? ~std::uint32_t(0) << (32 - len) : 0;
    hostBits = (v & ~mask) != 0;
    prefix = typename Fam::Prefix(Plexa::IpAddr(v), len);
    p_ = q;
    return true;
  }

  // An IPv6 prefix string in the form nearly every table writes ("2001:db8::/32": groups of one
  // to four hex digits, eight or fewer around one "::", then a length in decimal without a
  // leading zero), read in place; false, with nothing consumed, for any other text, which then
  // goes to the parser every reading uses. What this takes, that parser takes as the same
  // prefix (Plexa's IPv6 parser reads the same form without the C library).
  bool plainV6Prefix(typename Fam::Prefix& prefix, bool& hostBits) {
    if (*p_ != '"') return false;
    const char* q = p_ + 1;
    std::uint16_t groups[8];
    int count = 0, gapAt = -1;
    if (q[0] == ':' && q[1] == ':') {
      gapAt = 0;
      q += 2;
    }
    if (*q != '/') {
      for (;;) {
        unsigned v = 0;
        const char* s = q;
        for (int d; q - s < 4 && (d = kHexValue[static_cast<unsigned char>(*q)]) >= 0; ++q)
          v = v << 4 | unsigned(d);
        if (q == s || count == 8) return false;
        groups[count++] = static_cast<std::uint16_t>(v);
        if (*q == '/') break;
        if (*q++ != ':') return false;
        if (*q == ':') {
          if (gapAt >= 0) return false;
          gapAt = count;
          if (*++q == '/') break;
        }
      }
    }
    if (gapAt < 0 ? count != 8 : count > 7) return false;
    ++q;  // the slash
    const int len = smallNumber(q, '"');
    if (len < 0 || len > 128) return false;
    std::uint64_t words[2] = {0, 0};
    const int zeros = 8 - count;
    for (int g = 0, k = 0; g < 8; ++g) {
      const std::uint64_t v = gapAt >= 0 && g >= gapAt && g < gapAt + zeros ? 0 : groups[k++];
      words[g / 4] |= v << (48 - 16 * (g % 4));
    }
    const auto keep = [](int bits) {
      return bits >= 64 ? ~std::uint64_t(0) : bits <= 0 ? 0 : ~std::uint64_t(0) << (64 - bits);
    };
    hostBits = (words[0] & ~keep(len)) != 0 || (words[1] & ~keep(len - 64)) != 0;
    Plexa::Ip6Addr::Bytes bytes;
    for (int i = 0; i < 2; ++i) {
      const std::uint64_t w = __builtin_bswap64(words[i]);
      std::memcpy(bytes.data() + 8 * i, &w, 8);
    }
    prefix = typename Fam::Prefix(Plexa::Ip6Addr(bytes), len);
    p_ = q;
    return true;
  }
  static constexpr std::array<signed char, 256> kHexValue = [] {
    std::array<signed char, 256> t{};
    for (int c = 0; c < 256; ++c) {
      t[c] = c >= '0' && c <= '9'   ? static_cast<signed char>(c - '0')
             : c >= 'a' && c <= 'f' ? static_cast<signed char>(c - 'a' + 10)
             : c >= 'A' && c <= 'F' ? static_cast<signed char>(c - 'A' + 10)
                                    : -1;
    }
    return t;
  }();

  // A route type word at p_, quoted. The few words a table repeats are compared with the text
  // as they are kept, closing quote and all, in two loads; another goes through string() and the
  // family's words.
  bool routeType(typename Fam::RouteType& type) {
    if (*p_ != '"') return false;
    std::uint64_t text[2];
    std::memcpy(text, p_ + 1, 16);
    for (const RecentType& r : recentTypes_) {
      if (r.size != 0 && ((text[0] ^ r.text[0]) & r.mask[0]) == 0 &&
          ((text[1] ^ r.text[1]) & r.mask[1]) == 0) {
        type = r.type;
        p_ += 1 + r.size;
        return true;
      }
    }
    std::string_view word;
    if (!string(word) || !routeTypeWords<Fam>().find(word, type)) return false;
    if (word.size() < 16) {
      RecentType& r = recentTypes_[nextRecentType_++ % recentTypes_.size()];
      char bytes[16] = {};
      std::memcpy(bytes, word.data(), word.size());
      bytes[word.size()] = '"';
      std::memcpy(r.text, bytes, 16);
      std::memset(bytes, 0, 16);
      std::memset(bytes, 0xff, word.size() + 1);
      std::memcpy(r.mask, bytes, 16);
      r.size = unsigned(word.size() + 1);
      r.type = type;
    }
    return true;
  }

  // A FEC reference as nearly every table writes it ("12", "ip6:12": a number from 1 up
  // without a leading zero, of up to 16 digits, so below 2^56), read in place; false, with
  // nothing consumed, for any other text, which then goes to parseFecRef().
  bool plainFecRef(Brine::Fib::FecId& id) {
    if (*p_ != '"') return false;
    const char* q = p_ + 1;
    Brine::Fib::AdjType kind = Brine::Fib::AdjType::ipAdj;
    if (std::memcmp(q, "ip6:", 4) == 0) {
      kind = Brine::Fib::AdjType::ip6Adj;
      q += 4;
    }
    if (*q < '1' || *q > '9') return false;
    const char* s = q;
    std::uint64_t n = 0;
    while (*q >= '0' && *q <= '9' && q - s < 16)
      n = n * 10 + std::uint64_t(*q++ - '0');
    if (*q != '"') return false;
    id = Brine::Fib::FecId(kind, n);
    p_ = q + 1;
    return true;
  }

  bool route() {
    if (*p_ != '{') return false;
    ++p_;
    space();
    unsigned seen = 0;
    typename Fam::Route route;
    typename Fam::Prefix& prefix = route.prefix;
    bool hardwareProgrammed = true, kernelProgrammed = true;
    int preference = -1;
    if (*p_ == '}') return false;  // no prefix
    for (;;) {
      const Field key = field();
      if (key == kNone || (seen & (1u << key))) return false;
      seen |= 1u << key;
      if (!colon()) return false;
      std::string_view text;
      std::uint64_t n;
      switch (key) {
        case kPrefix: {
          bool hostBits = false;
          bool plain;
          if constexpr (std::is_same_v<Fam, V4>) {
            plain = plainV4Prefix(prefix, hostBits);
          } else {
            plain = plainV6Prefix(prefix, hostBits);
          }
          if (plain) {
            if (hostBits) return false;
            break;
          }
          typename Fam::AddrWithMask a;
          if (!string(text) || !Fam::AddrWithMask::parse(text, a)) return false;
          prefix = a.subnet();
          if (!(prefix.address() == a.address())) return false;
          break;
        }
        case kType:
          if (!routeType(route.routeType)) return false;
          break;
        case kFec: {
          Brine::Fib::FecId id;
          if (!plainFecRef(id) && (!string(text) || parseFecRef(text, id) != nullptr)) return false;
          // As the whole reading names it (Loader::familyFecRef).
          if (std::is_same_v<Fam, V6> && id.adjType() == Brine::Fib::AdjType::ipAdj)
            id = Brine::Fib::FecId(Brine::Fib::AdjType::ip6Adj, id.index());
          route.fecId = id;
          break;
        }
        case kPreference:
          if (!number(255, n)) return false;
          preference = int(n);
          break;
        case kMetric:
          if (!number(kU32Max, n)) return false;
          route.metric = std::uint32_t(n);
          break;
        case kHw:
          if (!boolean(hardwareProgrammed)) return false;
          break;
        case kKernel:
          if (!boolean(kernelProgrammed)) return false;
          break;
        case kNone:
          return false;
      }
      if (p_[0] == ',' && p_[1] == ' ' && p_[2] == '"') {  // the next key, as usually written
        p_ += 2;
        continue;
      }
      space();
      if (*p_ == ',') {
        ++p_;
        space();
        continue;
      }
      if (*p_ != '}') return false;
      ++p_;
      break;
    }
    if ((seen & 3u) != 3u) return false;  // prefix and type are required
    ++count_;
    if (table_) {
      route.preference =
          preference >= 0 ? std::uint8_t(preference) : Fam::defaultPreference(route.routeType);
      route.hardwareProgrammed = hardwareProgrammed;
      table_->recordAppend(route);
    } else if (!seen_.add(prefix)) {
      return false;  // twice: the whole reading says where
    }
    if (!hardwareProgrammed) ++unprogrammed_;
    if (!kernelProgrammed) kernel_.push_back(prefix);
    return true;
  }

  // No prefix twice.
  bool finishArray() {
    ++p_;
    if (table_) return !table_->indexAppended();
    return seen_.finish();
  }

  // Whether the second thread read the rest of this array from here: then it is taken in
  // and the view moved to the closing bracket (1), or it holds a prefix this scan read
  // before (-1); 0 when there is nothing to take (defined below Ahead).
  int takeAhead();

  const char* p_;
  Table* table_;
  Window* window_ = nullptr;
  Ahead* ahead_ = nullptr;
  const std::atomic<bool>* stop_ = nullptr;
  std::size_t watch_ = 0;  // where to ask the second thread next
  bool tookAhead_ = false;
  std::size_t count_ = 0;
  SeenPrefixes<Fam> seen_;
  std::uint32_t unprogrammed_ = 0;
  std::vector<typename Fam::Prefix> kernel_;
  // Copies: the text in a window moves.
  struct RecentType {
    std::uint64_t text[2] = {};
    std::uint64_t mask[2] = {};
    unsigned size = 0;  // with the closing quote; 0 for a free entry
    typename Fam::RouteType type{};
  };
  std::array<RecentType, 4> recentTypes_{};
  unsigned nextRecentType_ = 0;
};

// A second thread for a large file read through the window: it reads the file's later part
// while the first reads the earlier, and the first takes what it read when it gets there.
//
// It starts at a place past the middle of the file, guesses where a route begins (an opening
// brace and `"prefix"` after a comma), and scans from there as the rest of a route array up
// to its closing bracket, then looks a little way on for the next route array (`"routes": [`)
// and scans that too. Nothing it finds is trusted: a guess may land in a string, in another
// array or section, or in a family the command builds. The first thread takes a part only
// when its own scan, walking the document's structure, arrives at a route of an array of the
// same family at exactly the offset where the part starts: from there both would read the
// same text by the same rules, so the part's routes, what they mark and its prefixes (none of
// which may be one of the array's earlier ones) are what the first thread would have read.
// Any other outcome (a part passed by, a part not proven, a guess of the wrong family) and the
// first thread reads on by itself; the second stops. Every refusal still comes from the
// whole reading, never from either scan.
class Ahead {
 public:
  // A file this large or larger is read on two threads (when the process may use two
  // processors): below it, starting a thread costs more than it saves.
  static constexpr std::size_t kFrom = std::size_t(8) << 20;
  // How far past a part's end the next array's start is looked for.
  static constexpr std::size_t kLookFor = std::size_t(1) << 20;

  struct Part {
    std::size_t start = 0;  // the file's offset of the route's opening brace it starts at
    bool v6 = false;
    bool done = false;
    bool ok = false;
    std::size_t end = 0;  // just past the array's closing bracket
    std::unique_ptr<RouteScan<V4>> scan4;
    std::unique_ptr<RouteScan<V6>> scan6;
  };

  Ahead(int fd, std::size_t size, std::size_t from, Sections sections)
      : fd_(fd), size_(size), from_(from), sections_(sections) {
    frontier_ = from;
    try {
      thread_ = std::thread([this] { run(); });
      watch_.store(from);
    } catch (const std::system_error&) {  // no thread to be had: the first reads alone
      searching_ = false;
    }
  }
  Ahead(const Ahead&) = delete;
  Ahead& operator=(const Ahead&) = delete;
  ~Ahead() {
    stop_.store(true);
    if (thread_.joinable()) thread_.join();
  }

  // The first offset where the first thread must ask take().
  std::size_t watch() const { return watch_.load(std::memory_order_acquire); }

  // At a route's opening brace at `offset`, in an array of the given family, at the array's
  // top level: the part that starts there, once read and proven, or null.
  Part* take(std::size_t offset, bool v6) {
    std::unique_lock lock(m_);
    cv_.wait(lock, [&] { return !searching_ || frontier_ > offset; });
    Part* taken = nullptr;
    if (next_ < parts_.size() && parts_[next_].start <= offset) {
      Part& part = parts_[next_++];
      if (part.start == offset && part.v6 == v6) {
        cv_.wait(lock, [&] { return part.done; });
        if (part.ok) taken = &part;
      }
      if (!taken) giveUp();  // passed by, or not proven: the first thread reads on alone
    }
    updateWatch();
    return taken;
  }

 private:
  void giveUp() {
    gaveUp_ = true;
    stop_.store(true);
  }
  // Under the lock.
  void updateWatch() {
    std::size_t w = SIZE_MAX;
    if (gaveUp_) {
    } else if (next_ < parts_.size()) {
      w = parts_[next_].start;
    } else if (searching_) {
      w = frontier_;
    }
    watch_.store(w, std::memory_order_release);
  }

  void run() {
    try {
      Window w(fd_, nullptr, size_, from_);
      bool first = true;
      while (!stop_.load()) {
        char* at = first ? find(w, R"({"prefix")", kLookFor, true)
                         : find(w, R"("routes")", kLookFor, false);
        first = false;
        if (!at) break;
        w.p = at;
        const bool v6 = looksV6(at);
        if (v6 ? sections_.ipv6Routes : sections_.ipv4Routes) break;  // a table the command builds
        Part* part;
        {
          std::lock_guard lock(m_);
          parts_.emplace_back();
          part = &parts_.back();
          part->start = w.offsetOf(at);
          part->v6 = v6;
          searching_ = false;
          updateWatch();
        }
        cv_.notify_all();
        const bool ok = v6 ? scan<V6>(w, *part) : scan<V4>(w, *part);
        {
          std::lock_guard lock(m_);
          part->done = true;
          part->ok = ok;
          if (ok) {
            searching_ = true;
            frontier_ = part->end;
          }
          updateWatch();
        }
        cv_.notify_all();
        if (!ok) break;
      }
    } catch (...) {  // memory: the first thread reads on alone
    }
    {
      std::lock_guard lock(m_);
      searching_ = false;
      for (Part& part : parts_)
        part.done = true;  // one left half read is not ok
      updateWatch();
    }
    cv_.notify_all();
  }

  template <class Fam>
  bool scan(Window& w, Part& part) {
    auto s = std::make_unique<RouteScan<Fam>>(w, nullptr, &stop_);
    const bool ok = s->elements();
    if (ok) {
      part.end = w.offsetOf(s->end());
      w.p = const_cast<char*>(s->end());
    }
    if constexpr (std::is_same_v<Fam, V4>) {
      part.scan4 = std::move(s);
    } else {
      part.scan6 = std::move(s);
    }
    return ok;
  }

  // Whether the prefix string after `{"prefix"` holds a colon: an IPv6 one.
  static bool looksV6(const char* at) {
    const char* q = at + 9;
    while (*q == ' ' || *q == ':')
      ++q;
    if (*q++ != '"') return false;
    for (int n = 0; n < 64 && *q != '"' && *q != 0; ++n, ++q) {
      if (*q == ':') return true;
    }
    return false;
  }

  // The next place within `limit` bytes of the window's place where `word` starts, as a route
  // would: for a route, after a comma and blanks; for an array, followed by a colon, an
  // opening bracket and an opening brace (the place returned), blanks between. Null when
  // there is none, or the search was stopped.
  static char* find(Window& w, std::string_view word, std::size_t limit, bool route) {
    std::size_t searched = 0;
    while (searched < limit) {
      w.ensure();
      char* from = w.p;
      const char* end = w.viewEnd();
      if (static_cast<std::size_t>(end - from) < word.size() + 8) return nullptr;
      const char* stop = end - 8;  // room for what follows the word
      const void* hit =
          ::memmem(from, static_cast<std::size_t>(stop - from), word.data(), word.size());
      if (!hit) {
        const auto moved = static_cast<std::size_t>(stop - from) - word.size() + 1;
        searched += moved;
        w.p = from + moved;
        continue;
      }
      char* h = static_cast<char*>(const_cast<void*>(hit));
      searched += static_cast<std::size_t>(h - from) + 1;
      w.p = h + 1;
      if (route) {
        const char* b = h;
        while (b > from && (b[-1] == ' ' || b[-1] == '\n' || b[-1] == '\r' || b[-1] == '\t'))
          --b;
        if (b > from && b[-1] == ',') return h;
        continue;
      }
      char* q = h + word.size();
      const auto blanks = [&] {
        while (q < end && (*q == ' ' || *q == '\n' || *q == '\r' || *q == '\t'))
          ++q;
      };
      blanks();
      if (q >= end || *q++ != ':') continue;
      blanks();
      if (q >= end || *q++ != '[') continue;
      blanks();
      if (q < end && *q == '{') return q;
    }
    return nullptr;
  }

  int fd_;
  std::size_t size_;
  std::size_t from_;
  Sections sections_;
  std::thread thread_;
  std::atomic<bool> stop_{false};
  std::atomic<std::size_t> watch_{SIZE_MAX};
  std::mutex m_;
  std::condition_variable cv_;
  std::deque<Part> parts_;
  std::size_t next_ = 0;   // the first part not yet taken or passed by
  bool searching_ = true;  // looking for a part's start, from frontier_ on
  std::size_t frontier_ = 0;
  bool gaveUp_ = false;
};

template <class Fam>
int RouteScan<Fam>::takeAhead() {
  const std::size_t at = window_->offsetOf(p_);
  Ahead::Part* part = ahead_->take(at, std::is_same_v<Fam, V6>);
  watch_ = ahead_->watch();
  if (!part) return 0;
  RouteScan& rest = [&]() -> RouteScan& {
    if constexpr (std::is_same_v<Fam, V4>) {
      return *part->scan4;
    } else {
      return *part->scan6;
    }
  }();
  // A prefix in both parts: the array is not proven, and the whole reading says where.
  if (!absorb(rest)) return -1;
  tookAhead_ = true;
  window_->seek(part->end - 1);
  p_ = window_->p;  // the closing bracket
  return 1;
}

// How many routes the array at `at` holds if the scan proves it: its objects' opening braces
// before the first closing bracket, which no route the scan takes holds. Counted ahead, so that
// the table is built in one pass into room of its size (a guess from the text's length would
// reserve twice the room, and a pass to prove the array first cost as much as the building).
std::size_t routesBefore(const char* at, const char* end) {
  const char* close = static_cast<const char*>(std::memchr(at, ']', end - at));
  if (!close) close = end;
  std::size_t n = 0;
  for (const char* p = at; (p = static_cast<const char*>(std::memchr(p, '{', close - p))); ++p)
    ++n;
  return n;
}

// Walks the document's JSON structure to find the route arrays ($.vrfs.<vrf>.ipv4.routes and
// ipv6.routes) and hands each to `found`, which returns where the array ends, or nullptr to
// have it walked like any other value. The walk is strict about structure (strings, brackets,
// commas, colons), so that an array it finds is the one any JSON parser finds there; it stops
// at the first thing it does not take (malformed text, an escaped key, nesting past 64), and
// leaves the rest to the parser. Scalars are taken as they come: their checks are the
// loader's.
template <class Found>
class RouteFinder {
 public:
  RouteFinder(char* text, Found found) : p_(text), found_(std::move(found)) {}
  // Walks the text of a window; `found` is given the window at the array's place.
  RouteFinder(Window& w, Found found) : p_(w.p), found_(std::move(found)), window_(&w) {}

  // Whether the walk took the whole top-level object. In a window, also whether nothing but
  // blanks follows it.
  bool run() {
    space();
    if (!object([&](std::string_view key) { return key == "vrfs" ? vrfs() : value(0); }))
      return false;
    if (!window_) return true;
    for (;;) {
      space();
      ahead();
      if (window_->atEnd()) return true;
      if (*p_ != ' ' && *p_ != '\n' && *p_ != '\r' && *p_ != '\t') return false;
    }
  }

 private:
  void ahead() {
    if (!window_) return;
    window_->p = p_;
    window_->ensure();
    p_ = window_->p;
  }

  void space() {
    if (static_cast<unsigned char>(*p_) > ' ') return;
    p_ = const_cast<char*>(pastBlanks(p_));
  }

  // An object whose values `member(key)` walks; a key with an escape is not compared.
  template <class Member>
  bool object(Member member) {
    if (*p_ != '{') return value(0);
    ++p_;
    space();
    if (*p_ == '}') return ++p_, true;
    for (;;) {
      ahead();
      const char* key = p_ + 1;
      if (!string()) return false;
      const std::string_view k(key, static_cast<std::size_t>(p_ - 1 - key));
      space();
      if (*p_ != ':') return false;
      ++p_;
      space();
      if (!member(k.find('\\') == std::string_view::npos ? k : std::string_view("\\")))
        return false;
      space();
      if (*p_ == ',') {
        ++p_;
        space();
        continue;
      }
      if (*p_ != '}') return false;
      ++p_;
      return true;
    }
  }

  bool vrfs() {
    return object([&](std::string_view) {
      return object([&](std::string_view key) {
        if (key != "ipv4" && key != "ipv6") return value(0);
        const bool v6 = key == "ipv6";
        return object([&](std::string_view table) {
          if (table != "routes" || *p_ != '[') return value(0);
          if (window_) window_->p = p_;
          if (char* end = found_(v6, p_)) {
            p_ = end;
            return true;
          }
          return value(0);
        });
      });
    });
  }

  bool string() {
    if (*p_ != '"') return false;
    for (++p_;;) {
      p_ = const_cast<char*>(quoteOrEscape(p_));
      if (*p_ == '"') break;
      if (*p_ == 0) return false;    // the padding: a string left open
      if (*++p_ == 0) return false;  // a backslash, and the byte it keeps
      ++p_;
    }
    ++p_;
    return true;
  }

  bool value(int depth) {
    if (depth > 64) return false;
    ahead();
    const char c = *p_;
    if (c == '"') return string();
    if (c == '{') return object([&](std::string_view) { return value(depth + 1); });
    if (c == '[') {
      ++p_;
      space();
      if (*p_ == ']') return ++p_, true;
      for (;;) {
        if (!value(depth + 1)) return false;
        space();
        if (*p_ == ',') {
          ++p_;
          space();
          continue;
        }
        if (*p_ != ']') return false;
        ++p_;
        return true;
      }
    }
    const char* s = p_;
    while ((*p_ >= '0' && *p_ <= '9') || (*p_ >= 'a' && *p_ <= 'z') || *p_ == '-' || *p_ == '+' ||
           *p_ == '.' || *p_ == 'E')
      ++p_;
    return p_ != s;
  }

  char* p_;
  Found found_;
  Window* window_ = nullptr;
};

}  // namespace

template <class Fam>
void Loader::checkRoutes(od::value& v, VrfState& vrf) {
  od::json_type t;
  r_.check(v.type().get(t));
  if (t == od::json_type::array) {
    RouteScan<Fam> scan(v.raw_json_token().data());
    if (scan.run()) {
      // The parser goes past the array; what comes after it (a stray bracket) is the
      // enclosing object's to refuse, as it would be after a table read whole.
      od::array arr;
      std::string_view text;
      const bool past = v.get_array().get(arr) == simdjson::SUCCESS &&
                        arr.raw_json().get(text) == simdjson::SUCCESS;
      (void)past;
      vrf.countUnprogrammed<Fam>(scan.unprogrammed());
      for (const auto& prefix : scan.kernelUnprogrammed())
        vrf.kernel<Fam>().recordIs({Plexa::IpGenPrefix(prefix)});
      return;
    }
  }
  // Not proven: the whole reading decides, and its table is let go.
  routes<Fam>(v, vrf);
  vrf.routeTable<Fam>() = makePtr<std::remove_reference_t<decltype(vrf.routes<Fam>())>>();
}

// A route array is read here, from the text, when it is what nearly every state holds: a
// large array in the form the scan proves. Read so, it is blanked (its brackets kept, the rest
// made spaces), so that the parser's index, four bytes for every token of the document, and
// its reading of each route are spent only on the rest of the document; the text keeps its
// length, so every offset a message gives is the same. A table to build is built by the
// scan, in a second pass once the first has proven the array and counted its routes; a table
// left out is only checked. An array the scan does not prove is left as it is for the
// loader to read.
void Loader::scanRoutes(char* text, std::size_t size) {
  // What stripRoutes() read, at the (empty) arrays it left in the text.
  for (auto& [at, result] : stripped_)
    scanned_.emplace(text + at, std::move(result));
  stripped_.clear();
  auto found = [&](bool v6, char* at) -> char* {
    ScannedRoutes result;
    const auto scan = [&]<class Fam>(Fam) -> const char* {
      const bool build = std::is_same_v<Fam, V4> ? sections_.ipv4Routes : sections_.ipv6Routes;
      Ptr<typename RouteScan<Fam>::Table> table;
      if (build) {
        table = makePtr<typename RouteScan<Fam>::Table>();
        table->reserve(routesBefore(at, text + size));
      }
      RouteScan<Fam> check(at, table.get());
      if (!check.run()) return nullptr;
      if (build) result.table<Fam>() = table;
      result.unprogrammed = check.unprogrammed();
      for (const auto& prefix : check.kernelUnprogrammed())
        result.kernel.emplace_back(prefix);
      return check.end();
    };
    const char* end = v6 ? scan(V6()) : scan(V4());
    if (!end) return nullptr;
    std::memset(at + 1, ' ', static_cast<std::size_t>(end - at - 2));
    scanned_.emplace(at, std::move(result));
    return const_cast<char*>(end);
  };
  RouteFinder<decltype(found)>(text, found).run();
}

namespace {
// A route array the window's scan does not prove: the load starts again the usual way.
struct NotProven {};
}  // namespace

bool Loader::stripRoutes(int fd, std::vector<char>& doc, std::size_t size, std::size_t splitAt) {
  Window window(fd, &doc, size);
  std::unique_ptr<Ahead> ahead;
  if (splitAt > 0) ahead = std::make_unique<Ahead>(fd, size, splitAt, sections_);
  auto found = [&](bool v6, char* at) -> char* {
    if (v6 ? sections_.ipv6Routes : sections_.ipv4Routes) return nullptr;  // for scanRoutes
    const auto strip = [&]<class Fam>(Fam) -> char* {
      window.pause(at + 1);  // the opening bracket stays
      const std::size_t docAt = window.docSize() - 1;
      RouteScan<Fam> check(window, ahead.get());
      if (!check.run()) throw NotProven();
      char* end = check.endInWindow();
      window.resume(end - 1);  // and so does the closing one
      takenAhead_ += check.tookAhead();
      ScannedRoutes result;
      result.unprogrammed = check.unprogrammed();
      for (const auto& prefix : check.kernelUnprogrammed())
        result.kernel.emplace_back(prefix);
      stripped_.emplace_back(docAt, std::move(result));
      return end;
    };
    return v6 ? strip(V6()) : strip(V4());
  };
  try {
    if (!RouteFinder<decltype(found)>(window, found).run()) return false;
  } catch (const NotProven&) {
    return false;
  }
  window.finish();
  return !window.failed();
}

template <class Fam>
bool Loader::takeScannedRoutes(od::value& v, VrfState& vrf) {
  const auto it = scanned_.find(v.raw_json_token().data());
  if (it == scanned_.end()) return false;
  ScannedRoutes& s = it->second;
  r_.elements(r_.array(v), [](std::size_t, od::value&) {});  // the blanks of an empty array
  if (auto& table = s.table<Fam>()) vrf.routeTable<Fam>() = std::move(table);
  vrf.countUnprogrammed<Fam>(s.unprogrammed);
  for (const Plexa::IpGenPrefix& prefix : s.kernel)
    vrf.kernel<Fam>().recordIs({prefix});
  scanned_.erase(it);
  return true;
}

template bool Loader::takeScannedRoutes<V4>(od::value&, VrfState&);
template bool Loader::takeScannedRoutes<V6>(od::value&, VrfState&);
template void Loader::checkRoutes<V4>(od::value&, VrfState&);
template void Loader::checkRoutes<V6>(od::value&, VrfState&);

}  // namespace Snapshot::loader

namespace Snapshot {
std::size_t detail::splitPlace(std::size_t size, Sections sections) {
  if (size < loader::Ahead::kFrom || sections.isAll()) return 0;
  cpu_set_t cpus;
  if (::sched_getaffinity(0, sizeof cpus, &cpus) != 0 || CPU_COUNT(&cpus) < 2) return 0;
  return sections.ipv4Routes || sections.ipv6Routes ? size / 5 * 2 : size / 2;
}
}  // namespace Snapshot
