#include "platform/plexa/RouteDistinguisher.h"

#include <charconv>

#include "platform/mox/Exception.h"
#include "platform/plexa/IpAddr.h"

namespace Plexa {

namespace {
bool number(std::string_view s, std::uint64_t limit, std::uint64_t& out) {
  if (s.empty() || (s.size() > 1 && s[0] == '0')) return false;
  auto r = std::from_chars(s.data(), s.data() + s.size(), out);
  return r.ec == std::errc() && r.ptr == s.data() + s.size() && out <= limit;
}
}  // namespace

bool RouteDistinguisher::parse(std::string_view text, RouteDistinguisher& out) {
  const auto colon = text.rfind(':');
  if (colon == std::string_view::npos) return false;
  const std::string_view admin = text.substr(0, colon), assigned = text.substr(colon + 1);
  std::uint64_t n;
  IpAddr ip;
  if (IpAddr::parse(admin, ip)) {
    if (!number(assigned, 0xffff, n)) return false;
    out = RouteDistinguisher(std::uint64_t(1) << 48 | std::uint64_t(ip.value()) << 16 | n);
    return true;
  }
  std::uint64_t asn;
  if (!number(admin, 0xffffffff, asn)) return false;
  if (asn <= 0xffff) {
    if (!number(assigned, 0xffffffff, n)) return false;
    out = RouteDistinguisher(asn << 32 | n);
  } else {
    if (!number(assigned, 0xffff, n)) return false;
    out = RouteDistinguisher(std::uint64_t(2) << 48 | asn << 16 | n);
  }
  return true;
}

RouteDistinguisher RouteDistinguisher::fromString(std::string_view text) {
  RouteDistinguisher rd;
  if (!parse(text, rd)) {
    throw Mox::RangeException("invalid route distinguisher " + Mox::shownWord(text));
  }
  return rd;
}

std::string RouteDistinguisher::stringValue() const {
  switch (type()) {
    case 1:
      return IpAddr(std::uint32_t(value_ >> 16)).stringValue() + ":" +
             std::to_string(value_ & 0xffff);
    case 2:
      return std::to_string((value_ >> 16) & 0xffffffff) + ":" + std::to_string(value_ & 0xffff);
    default:
      return std::to_string((value_ >> 32) & 0xffff) + ":" + std::to_string(value_ & 0xffffffff);
  }
}

}  // namespace Plexa
