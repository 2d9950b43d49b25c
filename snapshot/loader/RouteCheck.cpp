// Route tables a reader does not need: read and checked, not built.
//
// A route array is checked by a scan of its text that accepts only what it can prove the
// whole reading (Routes.cpp) accepts: the JSON grammar of an array of objects, the route keys
// written without escapes, each once, `prefix` and `type` present; strings of printable ASCII
// without escapes; numbers as plain digits within their range; `true` and `false`. Each
// value goes through the same parser as in the whole reading (prefix, host bits, type word,
// FEC reference), and no prefix may come twice. Whatever the scan cannot prove (an escape, a
// non-ASCII string, a number with a fraction, an unknown key, anything wrong) sends the
// array to the whole reading, which refuses it with its own message, or accepts it; the table
// it built is then dropped. So a document is refused with a table left out exactly when it is
// refused with it, and with the same message.
//
// What the routes say beyond the table is kept as the whole reading keeps it: the count of
// routes not programmed in hardware and the prefixes not programmed in the kernel.

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "platform/mox/RadixSort.h"
#include "snapshot/loader/Loader.h"

namespace Snapshot::loader {

namespace {

template <class Fam>
class RouteScan {
 public:
  explicit RouteScan(const char* at) : p_(at) {}

  // Reads the array at the start; false when something is not proven valid. On success,
  // end() is just past the closing bracket.
  bool run() {
    if (*p_ != '[') return false;
    ++p_;
    space();
    if (*p_ == ']') return finishArray();
    for (;;) {
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
  std::uint32_t unprogrammed() const { return unprogrammed_; }
  const std::vector<typename Fam::Prefix>& kernelUnprogrammed() const { return kernel_; }

 private:
  enum Field { kPrefix, kType, kFec, kPreference, kMetric, kHw, kKernel, kNone };

  void space() {
    while (*p_ == ' ' || *p_ == '\n' || *p_ == '\r' || *p_ == '\t')
      ++p_;
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
    for (unsigned i = 0; i < kNone; ++i) {
      if (k == kNames[i]) return static_cast<Field>(i);
    }
    return kNone;
  }

  bool routeType(std::string_view word) {
    for (const std::string_view& w : recentTypes_) {
      if (w == word && !word.empty()) return true;
    }
    typename Fam::RouteType type;
    if (!routeTypeWords<Fam>().find(word, type)) return false;
    recentTypes_[nextRecentType_++ % recentTypes_.size()] = word;
    return true;
  }

  bool route() {
    if (*p_ != '{') return false;
    ++p_;
    space();
    unsigned seen = 0;
    typename Fam::Prefix prefix;
    bool hardwareProgrammed = true, kernelProgrammed = true;
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
          typename Fam::AddrWithMask a;
          if (!string(text) || !Fam::AddrWithMask::parse(text, a)) return false;
          prefix = a.subnet();
          if (!(prefix.address() == a.address())) return false;
          break;
        }
        case kType:
          if (!string(text) || !routeType(text)) return false;
          break;
        case kFec: {
          Brine::Fib::FecId id;
          if (!string(text) || parseFecRef(text, id) != nullptr) return false;
          break;
        }
        case kPreference:
          if (!number(255, n)) return false;
          break;
        case kMetric:
          if (!number(kU32Max, n)) return false;
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
    keys_.push_back(orderKey(prefix));
    if (!hardwareProgrammed) ++unprogrammed_;
    if (!kernelProgrammed) kernel_.push_back(prefix);
    return true;
  }

  // No prefix twice: the order keys (which tell prefixes apart) sorted by radix.
  bool finishArray() {
    ++p_;
    if constexpr (std::is_same_v<Key, std::uint64_t>) {
      std::uint64_t varies = 0;
      for (const std::uint64_t k : keys_)
        varies |= k ^ keys_.front();
      std::vector<unsigned> passes;
      for (unsigned shift = 0; shift < 64; shift += 8) {
        if ((varies >> shift) & 255) passes.push_back(shift);
      }
      Mox::detail::radixPasses(keys_, passes,
                               [](std::uint64_t k, unsigned shift) { return (k >> shift) & 255; });
    } else if (!Mox::detail::radixSortWide(keys_, [](const Key& k) { return k; })) {
      std::sort(keys_.begin(), keys_.end());
    }
    return std::adjacent_find(keys_.begin(), keys_.end()) == keys_.end();
  }

  using Key = decltype(orderKey(std::declval<typename Fam::Prefix>()));
  const char* p_;
  std::vector<Key> keys_;
  std::uint32_t unprogrammed_ = 0;
  std::vector<typename Fam::Prefix> kernel_;
  std::array<std::string_view, 4> recentTypes_{};
  unsigned nextRecentType_ = 0;
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
  using Table = std::remove_reference_t<decltype(vrf.routes<Fam>())>;
  if constexpr (std::is_same_v<Fam, V4>) {
    vrf.fibRoute = makePtr<Table>();
  } else {
    vrf.fib6Route = makePtr<Table>();
  }
}

template void Loader::checkRoutes<V4>(od::value&, VrfState&);
template void Loader::checkRoutes<V6>(od::value&, VrfState&);

}  // namespace Snapshot::loader
