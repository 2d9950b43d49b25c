#include "platform/plexa/IpAddr.h"

#include <arpa/inet.h>

#include "platform/mox/Exception.h"

namespace Plexa {

std::size_t hashBytes(const void* data, std::size_t n) {
  if (n == 16) {
    // An IPv6 address: two words, mixed.
    std::uint64_t a, b;
    std::memcpy(&a, data, 8);
    std::memcpy(&b, static_cast<const char*>(data) + 8, 8);
    std::uint64_t h =
        (a * 0x9e3779b97f4a7c15ull) ^ (b + 0x632be59bd9b4e019ull + (a << 6) + (a >> 2));
    h *= 0xff51afd7ed558ccdull;
    return static_cast<std::size_t>(h ^ (h >> 33));
  }
  // FNV-1a: short keys, no need for more.
  auto p = static_cast<const unsigned char*>(data);
  std::uint64_t h = 1469598103934665603ull;
  for (std::size_t i = 0; i < n; ++i) {
    h ^= p[i];
    h *= 1099511628211ull;
  }
  return static_cast<std::size_t>(h ^ (h >> 29));
}

bool IpAddr::parse(std::string_view s, IpAddr& out) {
  std::uint32_t v = 0;
  int parts = 0;
  std::size_t i = 0;
  while (parts < 4) {
    if (i >= s.size() || s[i] < '0' || s[i] > '9') return false;
    const std::size_t start = i;
    unsigned octet = 0;
    while (i < s.size() && s[i] >= '0' && s[i] <= '9' && i - start < 3) {
      octet = octet * 10 + unsigned(s[i] - '0');
      ++i;
    }
    // No leading zeros: 010 would be octal to inet_aton and decimal to a reader.
    if (octet > 255 || (s[start] == '0' && i - start > 1)) return false;
    v = v << 8 | octet;
    ++parts;
    if (parts < 4) {
      if (i >= s.size() || s[i] != '.') return false;
      ++i;
    }
  }
  if (i != s.size()) return false;
  out = IpAddr(v);
  return true;
}

IpAddr IpAddr::fromString(std::string_view text) {
  IpAddr a;
  if (!parse(text, a)) throw Mox::RangeException("invalid IPv4 address " + Mox::shownWord(text));
  return a;
}

char* IpAddr::write(char* out) const {
  for (int shift = 24; shift >= 0; shift -= 8) {
    unsigned o = (value_ >> shift) & 0xff;
    if (o >= 100) {
      *out++ = char('0' + o / 100);
      *out++ = char('0' + o / 10 % 10);
    } else if (o >= 10) {
      *out++ = char('0' + o / 10);
    }
    *out++ = char('0' + o % 10);
    if (shift) *out++ = '.';
  }
  return out;
}

std::string IpAddr::stringValue() const {
  char buf[kMaxTextLen + 1];
  return std::string(buf, write(buf));
}

namespace {

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The form nearly every address is written in, read without the C library: groups of one to
// four hex digits, eight of them or fewer around one "::". True with the address in `out`;
// false for any other text (an IPv4 tail, a malformed one), whose answer is inet_pton's. A
// table's 200,000 prefixes spent more in inet_pton, and in copying each to a C string for it,
// than in the rest of their reading; what this takes, inet_pton takes as the same address.
bool parsePlain6(std::string_view s, Ip6Addr::Bytes& out) {
  std::uint16_t groups[8];
  int count = 0;
  int gapAt = -1;  // how many groups come before the "::"
  std::size_t i = 0;
  const std::size_t n = s.size();
  if (n >= 2 && s[0] == ':' && s[1] == ':') {
    gapAt = 0;
    i = 2;
  }
  while (i < n) {
    unsigned v = 0;
    const std::size_t start = i;
    for (int d; i < n && i - start < 4 && (d = hexDigit(s[i])) >= 0; ++i)
      v = v << 4 | unsigned(d);
    if (i == start || count == 8) return false;
    groups[count++] = static_cast<std::uint16_t>(v);
    if (i == n) break;
    if (s[i] != ':' || ++i == n) return false;  // a fifth digit, a dot, a colon at the end
    if (s[i] == ':') {
      if (gapAt >= 0) return false;
      gapAt = count;
      ++i;
    }
  }
  if (gapAt < 0 ? count != 8 : count > 7) return false;
  const int zeros = 8 - count;
  for (int g = 0, k = 0; g < 8; ++g) {
    const std::uint16_t v = gapAt >= 0 && g >= gapAt && g < gapAt + zeros ? 0 : groups[k++];
    out[2 * g] = static_cast<std::uint8_t>(v >> 8);
    out[2 * g + 1] = static_cast<std::uint8_t>(v);
  }
  return true;
}

}  // namespace

bool Ip6Addr::parse(std::string_view s, Ip6Addr& out) {
  if (s.empty() || s.size() > kMaxTextLen || s.find(':') == std::string_view::npos) return false;
  if (parsePlain6(s, out.bytes_)) return true;
  char buf[kMaxTextLen + 1];
  std::memcpy(buf, s.data(), s.size());
  buf[s.size()] = '\0';
  return inet_pton(AF_INET6, buf, out.bytes_.data()) == 1;
}

Ip6Addr Ip6Addr::fromString(std::string_view text) {
  Ip6Addr a;
  if (!parse(text, a)) throw Mox::RangeException("invalid IPv6 address " + Mox::shownWord(text));
  return a;
}

bool Ip6Addr::isZero() const {
  for (auto b : bytes_) {
    if (b) return false;
  }
  return true;
}

Ip6Addr Ip6Addr::masked(int len) const {
  if (len >= 128) return *this;
  if (len < 0) len = 0;
  // Two big-endian words, each kept to its share of the length.
  const auto keep = [](int bits) {
    return bits >= 64 ? ~std::uint64_t(0) : bits <= 0 ? 0 : ~std::uint64_t(0) << (64 - bits);
  };
  Ip6Addr r;
  for (int i = 0; i < 2; ++i) {
    std::uint64_t w = word(i) & keep(len - 64 * i);
    if constexpr (std::endian::native == std::endian::little) w = __builtin_bswap64(w);
    std::memcpy(r.bytes_.data() + 8 * i, &w, 8);
  }
  return r;
}

// The RFC 5952 form, as the C library's inet_ntop writes it (a listing writes one per route,
// and inet_ntop goes through sprintf): lower-case groups without leading zeros, the first of
// the longest runs of two or more zero groups as "::", and an IPv4 address in the last two
// groups written dotted when all before it are zero (::a.b.c.d) or are zero then ffff
// (::ffff:a.b.c.d).
char* Ip6Addr::write(char* out) const {
  std::uint16_t words[8];
  for (int i = 0; i < 8; ++i)
    words[i] = static_cast<std::uint16_t>(bytes_[2 * i] << 8 | bytes_[2 * i + 1]);
  int bestBase = -1, bestLen = 0, curBase = -1, curLen = 0;
  for (int i = 0; i < 8; ++i) {
    if (words[i] == 0) {
      if (curBase < 0) curBase = i, curLen = 0;
      ++curLen;
      if (curLen > bestLen) bestBase = curBase, bestLen = curLen;
    } else {
      curBase = -1;
    }
  }
  if (bestLen < 2) bestBase = -1;
  static constexpr char kHex[] = "0123456789abcdef";
  for (int i = 0; i < 8; ++i) {
    if (bestBase >= 0 && i >= bestBase && i < bestBase + bestLen) {
      if (i == bestBase) *out++ = ':';
      continue;
    }
    if (i != 0) *out++ = ':';
    if (i == 6 && bestBase == 0 && (bestLen == 6 || (bestLen == 5 && words[5] == 0xffff))) {
      IpAddr v4(bytes_[12], bytes_[13], bytes_[14], bytes_[15]);
      return v4.write(out);
    }
    const unsigned w = words[i];
    bool started = false;
    for (int shift = 12; shift >= 0; shift -= 4) {
      const unsigned nibble = (w >> shift) & 0xf;
      if (nibble || started || shift == 0) {
        *out++ = kHex[nibble];
        started = true;
      }
    }
  }
  if (bestBase >= 0 && bestBase + bestLen == 8) *out++ = ':';
  return out;
}

std::string Ip6Addr::stringValue() const {
  char buf[kMaxTextLen + 1];
  return std::string(buf, write(buf));
}

IpGenAddr::IpGenAddr(IpAddr a) : af_(AddressFamily::ipv4) {
  const std::uint32_t v = a.value();
  auto& b = addr_.bytes();
  b[0] = std::uint8_t(v >> 24);
  b[1] = std::uint8_t(v >> 16);
  b[2] = std::uint8_t(v >> 8);
  b[3] = std::uint8_t(v);
}

IpAddr IpGenAddr::v4Addr() const {
  if (af_ != AddressFamily::ipv4) return IpAddr();
  const auto& b = addr_.bytes();
  return IpAddr(b[0], b[1], b[2], b[3]);
}

bool IpGenAddr::parse(std::string_view text, IpGenAddr& out) {
  if (text.empty()) {
    out = IpGenAddr();
    return true;
  }
  if (text.find(':') != std::string_view::npos) {
    Ip6Addr a;
    if (!Ip6Addr::parse(text, a)) return false;
    out = IpGenAddr(a);
    return true;
  }
  IpAddr a;
  if (!IpAddr::parse(text, a)) return false;
  out = IpGenAddr(a);
  return true;
}

IpGenAddr IpGenAddr::fromString(std::string_view text) {
  IpGenAddr a;
  if (!parse(text, a)) throw Mox::RangeException("invalid IP address " + Mox::shownWord(text));
  return a;
}

char* IpGenAddr::write(char* out) const {
  switch (af_) {
    case AddressFamily::ipv4:
      return v4Addr().write(out);
    case AddressFamily::ipv6:
      return addr_.write(out);
    default:
      return out;
  }
}

std::string IpGenAddr::stringValue() const {
  char buf[kMaxTextLen + 1];
  return std::string(buf, write(buf));
}

}  // namespace Plexa
