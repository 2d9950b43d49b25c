#include "platform/plexa/Prefix.h"

#include "platform/mox/Exception.h"

namespace Plexa {

namespace {

// Splits "addr/len"; the length must be decimal without sign and at most `maxLen`.
bool splitMask(std::string_view text, int maxLen, std::string_view& addr, int& len) {
  const auto slash = text.find('/');
  if (slash == std::string_view::npos || slash + 1 >= text.size()) return false;
  addr = text.substr(0, slash);
  std::string_view l = text.substr(slash + 1);
  if (l.size() > 3 || (l.size() > 1 && l[0] == '0')) return false;
  len = 0;
  for (char c : l) {
    if (c < '0' || c > '9') return false;
    len = len * 10 + (c - '0');
  }
  return len <= maxLen;
}

char* writeLen(char* out, int len) {
  *out++ = '/';
  if (len >= 100) *out++ = char('0' + len / 100);
  if (len >= 10) *out++ = char('0' + len / 10 % 10);
  *out++ = char('0' + len % 10);
  return out;
}

[[noreturn]] void badText(const char* what, std::string_view text) {
  throw Mox::RangeException(std::string("invalid ") + what + " '" + std::string(text) + "'");
}

void checkLen(int len, int maxLen) {
  if (len < 0 || len > maxLen) {
    throw Mox::RangeException("mask length " + std::to_string(len) + " out of range");
  }
}

}  // namespace

template <class Addr>
BasicPrefix<Addr>::BasicPrefix(const Addr& addr, int len)
    : addr_(addr.masked(len)), len_(std::int16_t(len)) {
  checkLen(len, kMaxLen);
}

template <class Addr>
bool BasicPrefix<Addr>::parse(std::string_view text, BasicPrefix& out) {
  if (text.empty()) {
    out = BasicPrefix();
    return true;
  }
  std::string_view a;
  int len;
  Addr addr;
  if (!splitMask(text, kMaxLen, a, len) || !Addr::parse(a, addr)) return false;
  out = BasicPrefix(addr, len);
  return true;
}

template <class Addr>
BasicPrefix<Addr> BasicPrefix<Addr>::fromString(std::string_view text) {
  BasicPrefix p;
  if (!parse(text, p)) badText(AddrTraits<Addr>::kPrefixWord, text);
  return p;
}

template <class Addr>
char* BasicPrefix<Addr>::write(char* out) const {
  if (isNullPrefix()) return out;
  return writeLen(addr_.write(out), len_);
}

template <class Addr>
std::string BasicPrefix<Addr>::stringValue() const {
  char buf[kMaxTextLen + 1];
  return std::string(buf, write(buf));
}

template class BasicPrefix<IpAddr>;
template class BasicPrefix<Ip6Addr>;

IpGenPrefix::IpGenPrefix(const Prefix& p) {
  if (p.isNullPrefix()) return;
  addr_ = IpGenAddr(p.address());
  len_ = std::int16_t(p.len());
}

IpGenPrefix::IpGenPrefix(const Ip6Prefix& p) {
  if (p.isNullPrefix()) return;
  addr_ = IpGenAddr(p.address());
  len_ = std::int16_t(p.len());
}

bool IpGenPrefix::parse(std::string_view text, IpGenPrefix& out) {
  if (text.find(':') != std::string_view::npos) {
    Ip6Prefix p;
    if (!Ip6Prefix::parse(text, p)) return false;
    out = IpGenPrefix(p);
    return true;
  }
  Prefix p;
  if (!Prefix::parse(text, p)) return false;
  out = IpGenPrefix(p);
  return true;
}

IpGenPrefix IpGenPrefix::fromString(std::string_view text) {
  IpGenPrefix p;
  if (!parse(text, p)) badText("prefix", text);
  return p;
}

Prefix IpGenPrefix::v4Prefix() const {
  return addr_.isV4() ? Prefix(addr_.v4Addr(), len_) : Prefix();
}

Ip6Prefix IpGenPrefix::v6Prefix() const {
  return addr_.isV6() ? Ip6Prefix(addr_.v6Addr(), len_) : Ip6Prefix();
}

char* IpGenPrefix::write(char* out) const {
  if (isNullPrefix()) return out;
  return writeLen(addr_.write(out), len_);
}

std::string IpGenPrefix::stringValue() const {
  char buf[Ip6Prefix::kMaxTextLen + 1];
  return std::string(buf, write(buf));
}

template <class Addr>
BasicAddrWithMask<Addr>::BasicAddrWithMask(const Addr& addr, int len)
    : addr_(addr), len_(std::uint8_t(len)) {
  checkLen(len, kMaxLen);
}

template <class Addr>
bool BasicAddrWithMask<Addr>::parse(std::string_view text, BasicAddrWithMask& out) {
  std::string_view a;
  int len;
  Addr addr;
  if (!splitMask(text, kMaxLen, a, len) || !Addr::parse(a, addr)) return false;
  out = BasicAddrWithMask(addr, len);
  return true;
}

template <class Addr>
BasicAddrWithMask<Addr> BasicAddrWithMask<Addr>::fromString(std::string_view text) {
  BasicAddrWithMask p;
  if (!parse(text, p)) badText(AddrTraits<Addr>::kWithMaskWord, text);
  return p;
}

template <class Addr>
char* BasicAddrWithMask<Addr>::write(char* out) const {
  return writeLen(addr_.write(out), len_);
}

template <class Addr>
std::string BasicAddrWithMask<Addr>::stringValue() const {
  char buf[BasicPrefix<Addr>::kMaxTextLen + 1];
  return std::string(buf, write(buf));
}

template class BasicAddrWithMask<IpAddr>;
template class BasicAddrWithMask<Ip6Addr>;

}  // namespace Plexa
