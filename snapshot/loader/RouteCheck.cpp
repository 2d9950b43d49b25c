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

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <new>
#include <vector>

#include "snapshot/loader/Loader.h"

namespace Snapshot::loader {

namespace {

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
  static constexpr std::size_t kAhead = 1 << 20;
  static constexpr std::size_t kPad = 64;

  Window(int fd, std::vector<char>& doc) : fd_(fd), doc_(doc), buf_(2 * kAhead + kPad) {
    p = copyFrom_ = end_ = buf_.data();
    fill();
  }

  char* p;

  // Keeps at least kAhead bytes in view from `p`, or what is left of the file.
  void ensure() {
    if (eof_ || static_cast<std::size_t>(end_ - p) >= kAhead) return;
    if (copying_) copyTo(p);
    const std::size_t left = static_cast<std::size_t>(end_ - p);
    std::memmove(buf_.data(), p, left);
    p = copyFrom_ = buf_.data();
    end_ = p + left;
    fill();
  }
  bool atEnd() const { return eof_ && p == end_; }
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
  std::size_t docSize() const { return doc_.size(); }
  bool failed() const { return failed_; }

 private:
  void copyTo(char* at) {
    if (at > copyFrom_) doc_.insert(doc_.end(), copyFrom_, at);
    copyFrom_ = at;
  }
  void fill() {
    char* const limit = buf_.data() + buf_.size() - kPad;
    while (end_ < limit) {
      const ssize_t n = ::read(fd_, end_, static_cast<std::size_t>(limit - end_));
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) failed_ = true;
      if (n <= 0) {
        eof_ = true;
        break;
      }
      end_ += n;
    }
    std::memset(end_, 0, kPad);
  }

  int fd_;
  std::vector<char>& doc_;
  std::vector<char> buf_;
  char* copyFrom_;
  char* end_;
  bool eof_ = false;
  bool copying_ = true;
  bool failed_ = false;
};

template <class Fam>
class RouteScan {
 public:
  using Table = std::remove_reference_t<decltype(std::declval<VrfState&>().routes<Fam>())>;
  // Without a table the scan checks for prefixes given twice itself; with one it appends each
  // route to it, which indexAppended() then checks.
  explicit RouteScan(const char* at, Table* table = nullptr) : p_(at), table_(table) {}
  // Reads from the window, from its place.
  explicit RouteScan(Window& w) : p_(w.p), table_(nullptr), window_(&w) {}
  // Room for the prefixes of an array of up to `bytes` of text, in the address space only: the
  // pages are taken as they are written, and the vector never moves.
  void expect(std::size_t bytes) {
    if (!table_) keys_ = HugeArray<Key>(bytes / kShortestRoute + 1);
  }

  // Reads the array at the start; false when something is not proven valid. On success,
  // end() is just past the closing bracket.
  bool run() {
    if (*p_ != '[') return false;
    ++p_;
    space();
    if (*p_ == ']') return finishArray();
    for (;;) {
      if (window_) ahead();
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
  std::uint32_t unprogrammed() const { return unprogrammed_; }
  const std::vector<typename Fam::Prefix>& kernelUnprogrammed() const { return kernel_; }

 private:
  enum Field { kPrefix, kType, kFec, kPreference, kMetric, kHw, kKernel, kNone };
  static constexpr std::size_t kShortestRoute = sizeof(R"({"prefix":"0.0.0.0/0","type":"bgp"})");

  void space() {
    while (*p_ == ' ' || *p_ == '\n' || *p_ == '\r' || *p_ == '\t')
      ++p_;
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

  static Field fieldOf(std::string_view k) {
    static constexpr std::string_view kNames[] = {
        "prefix", "type", "fec", "preference", "metric", "hardwareProgrammed", "kernelProgrammed"};
    // Told apart by length (and "prefix" from "metric" by its first letter), then compared.
    Field f;
    switch (k.size()) {
      case 6:
        f = k[0] == 'p' ? kPrefix : kMetric;
        break;
      case 4:
        f = kType;
        break;
      case 3:
        f = kFec;
        break;
      case 10:
        f = kPreference;
        break;
      case 18:
        f = kHw;
        break;
      case 16:
        f = kKernel;
        break;
      default:
        return kNone;
    }
    return sameWord(k, kNames[f]) ? f : kNone;
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

  // An IPv4 prefix string as nearly every table writes it ("10.1.0.0/16": four octets, a
  // length, each in decimal without a leading zero), read in place; false, with nothing
  // consumed, for any other text, which then goes to the parser every reading uses. What this
  // takes, that parser takes as the same prefix.
  bool plainV4Prefix(typename Fam::Prefix& prefix, bool& hostBits) {
    const char* q = p_ + 1;
    std::uint32_t v = 0;
    for (int part = 0; part < 5; ++part) {
      const char* s = q;
      unsigned n = 0;
      while (*q >= '0' && *q <= '9' && q - s < 3)
        n = n * 10 + unsigned(*q++ - '0');
      if (q == s || (*s == '0' && q - s > 1)) return false;
      const char end = part < 3 ? '.' : part == 3 ? '/' : '"';
      if (*q != end) return false;
      ++q;
      if (part < 4) {
        if (n > 255) return false;
        v = v << 8 | n;
      } else {
        if (n > 32) return false;
        const std::uint32_t mask = n ? ~std::uint32_t(0) << (32 - n) : 0;
        hostBits = (v & ~mask) != 0;
        prefix = typename Fam::Prefix(Plexa::IpAddr(v), int(n));
      }
    }
    p_ = q;
    return true;
  }

  bool routeType(std::string_view word, typename Fam::RouteType& type) {
    for (const auto& [w, t] : recentTypes_) {
      if (!word.empty() && sameWord(word, w)) {
        type = t;
        return true;
      }
    }
    if (!routeTypeWords<Fam>().find(word, type)) return false;
    recentTypes_[nextRecentType_++ % recentTypes_.size()] = {std::string(word), type};
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
      std::string_view keyText;
      if (!string(keyText)) return false;
      const Field key = fieldOf(keyText);
      if (key == kNone || (seen & (1u << key))) return false;
      seen |= 1u << key;
      space();
      if (*p_ != ':') return false;
      ++p_;
      space();
      std::string_view text;
      std::uint64_t n;
      switch (key) {
        case kPrefix: {
          if constexpr (std::is_same_v<Fam, V4>) {
            bool hostBits = false;
            if (plainV4Prefix(prefix, hostBits)) {
              if (hostBits) return false;
              break;
            }
          }
          typename Fam::AddrWithMask a;
          if (!string(text) || !Fam::AddrWithMask::parse(text, a)) return false;
          prefix = a.subnet();
          if (!(prefix.address() == a.address())) return false;
          break;
        }
        case kType:
          if (!string(text) || !routeType(text, route.routeType)) return false;
          break;
        case kFec: {
          Brine::Fib::FecId id;
          if (!string(text) || parseFecRef(text, id) != nullptr) return false;
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
    } else {
      keys_.push(orderKey(prefix));
    }
    if (!hardwareProgrammed) ++unprogrammed_;
    if (!kernelProgrammed) kernel_.push_back(prefix);
    return true;
  }

  // No prefix twice.
  bool finishArray() {
    ++p_;
    if (table_) return !table_->indexAppended();
    return !anyTwice(keys_.data(), keys_.size());
  }

  using Key = decltype(orderKey(std::declval<typename Fam::Prefix>()));
  const char* p_;
  Table* table_;
  Window* window_ = nullptr;
  std::size_t count_ = 0;
  HugeArray<Key> keys_;
  std::uint32_t unprogrammed_ = 0;
  std::vector<typename Fam::Prefix> kernel_;
  // Copies: the text in a window moves.
  std::array<std::pair<std::string, typename Fam::RouteType>, 4> recentTypes_{};
  unsigned nextRecentType_ = 0;
};

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
    while (*p_ == ' ' || *p_ == '\n' || *p_ == '\r' || *p_ == '\t')
      ++p_;
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
    for (++p_;; ++p_) {
      if (*p_ == '"') break;
      if (*p_ == '\\') ++p_;
      if (*p_ == 0) return false;  // the padding: a string left open
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
      RouteScan<Fam> check(at);
      check.expect(static_cast<std::size_t>(text + size - at));
      const bool build = std::is_same_v<Fam, V4> ? sections_.ipv4Routes : sections_.ipv6Routes;
      if (!check.run()) return nullptr;
      if (build) {
        auto table = makePtr<typename RouteScan<Fam>::Table>();
        table->reserve(check.count());
        RouteScan<Fam> again(at, table.get());
        if (!again.run()) return nullptr;
        result.table<Fam>() = table;
      }
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

bool Loader::stripRoutes(int fd, std::size_t fileSize, std::vector<char>& doc) {
  Window window(fd, doc);
  auto found = [&](bool v6, char* at) -> char* {
    if (v6 ? sections_.ipv6Routes : sections_.ipv4Routes) return nullptr;  // for scanRoutes
    const auto strip = [&]<class Fam>(Fam) -> char* {
      window.pause(at + 1);  // the opening bracket stays
      const std::size_t docAt = window.docSize() - 1;
      RouteScan<Fam> check(window);
      check.expect(fileSize);
      if (!check.run()) throw NotProven();
      char* end = check.endInWindow();
      window.resume(end - 1);  // and so does the closing one
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
