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

Prefix::Prefix(IpAddr addr, int len) : addr_(addr.masked(len)), len_(std::int16_t(len)) {
  checkLen(len, 32);
}

bool Prefix::parse(std::string_view text, Prefix& out) {
  if (text.empty()) {
    out = Prefix();
    return true;
  }
  std::string_view a;
  int len;
  IpAddr addr;
  if (!splitMask(text, 32, a, len) || !IpAddr::parse(a, addr)) return false;
  out = Prefix(addr, len);
  return true;
}

Prefix Prefix::fromString(std::string_view text) {
  Prefix p;
  if (!parse(text, p)) badText("IPv4 prefix", text);
  return p;
}

char* Prefix::write(char* out) const {
  if (isNullPrefix()) return out;
  return writeLen(addr_.write(out), len_);
}

std::string Prefix::stringValue() const {
  char buf[kMaxTextLen + 1];
  return std::string(buf, write(buf));
}

Ip6Prefix::Ip6Prefix(const Ip6Addr& addr, int len)
    : addr_(addr.masked(len)), len_(std::int16_t(len)) {
  checkLen(len, 128);
}

bool Ip6Prefix::parse(std::string_view text, Ip6Prefix& out) {
  if (text.empty()) {
    out = Ip6Prefix();
    return true;
  }
  std::string_view a;
  int len;
  Ip6Addr addr;
  if (!splitMask(text, 128, a, len) || !Ip6Addr::parse(a, addr)) return false;
  out = Ip6Prefix(addr, len);
  return true;
}

Ip6Prefix Ip6Prefix::fromString(std::string_view text) {
  Ip6Prefix p;
  if (!parse(text, p)) badText("IPv6 prefix", text);
  return p;
}

char* Ip6Prefix::write(char* out) const {
  if (isNullPrefix()) return out;
  return writeLen(addr_.write(out), len_);
}

std::string Ip6Prefix::stringValue() const {
  char buf[kMaxTextLen + 1];
  return std::string(buf, write(buf));
}

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

IpAddrWithMask::IpAddrWithMask(IpAddr addr, int len) : addr_(addr), len_(std::uint8_t(len)) {
  checkLen(len, 32);
}

bool IpAddrWithMask::parse(std::string_view text, IpAddrWithMask& out) {
  std::string_view a;
  int len;
  IpAddr addr;
  if (!splitMask(text, 32, a, len) || !IpAddr::parse(a, addr)) return false;
  out = IpAddrWithMask(addr, len);
  return true;
}

IpAddrWithMask IpAddrWithMask::fromString(std::string_view text) {
  IpAddrWithMask p;
  if (!parse(text, p)) badText("IPv4 address with mask", text);
  return p;
}

char* IpAddrWithMask::write(char* out) const {
  return writeLen(addr_.write(out), len_);
}

std::string IpAddrWithMask::stringValue() const {
  char buf[Prefix::kMaxTextLen + 1];
  return std::string(buf, write(buf));
}

Ip6AddrWithMask::Ip6AddrWithMask(const Ip6Addr& addr, int len)
    : addr_(addr), len_(std::uint8_t(len)) {
  checkLen(len, 128);
}

bool Ip6AddrWithMask::parse(std::string_view text, Ip6AddrWithMask& out) {
  std::string_view a;
  int len;
  Ip6Addr addr;
  if (!splitMask(text, 128, a, len) || !Ip6Addr::parse(a, addr)) return false;
  out = Ip6AddrWithMask(addr, len);
  return true;
}

Ip6AddrWithMask Ip6AddrWithMask::fromString(std::string_view text) {
  Ip6AddrWithMask p;
  if (!parse(text, p)) badText("IPv6 address with mask", text);
  return p;
}

char* Ip6AddrWithMask::write(char* out) const {
  return writeLen(addr_.write(out), len_);
}

std::string Ip6AddrWithMask::stringValue() const {
  char buf[Ip6Prefix::kMaxTextLen + 1];
  return std::string(buf, write(buf));
}

}  // namespace Plexa
