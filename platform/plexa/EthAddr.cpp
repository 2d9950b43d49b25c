#include "platform/plexa/EthAddr.h"

#include "platform/mox/Exception.h"

namespace Plexa {

namespace {
int hex(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}
}  // namespace

bool EthAddr::parse(std::string_view s, EthAddr& out) {
  Bytes b{};
  if (s.size() == 17 && (s[2] == ':' || s[2] == '-')) {
    const char sep = s[2];
    for (int i = 0; i < 6; ++i) {
      const int hi = hex(s[i * 3]), lo = hex(s[i * 3 + 1]);
      if (hi < 0 || lo < 0 || (i < 5 && s[i * 3 + 2] != sep)) return false;
      b[i] = std::uint8_t(hi << 4 | lo);
    }
  } else if (s.size() == 14 && s[4] == '.' && s[9] == '.') {
    int n = 0;
    for (std::size_t i = 0; i < s.size(); ++i) {
      if (i == 4 || i == 9) continue;
      const int h = hex(s[i]);
      if (h < 0) return false;
      b[n / 2] = std::uint8_t(b[n / 2] << 4 | h);
      ++n;
    }
  } else {
    return false;
  }
  out = EthAddr(b);
  return true;
}

EthAddr EthAddr::fromString(std::string_view text) {
  EthAddr e;
  if (!parse(text, e)) throw Mox::RangeException("invalid MAC address " + Mox::shownWord(text));
  return e;
}

std::string EthAddr::stringValue() const {
  static const char kHex[] = "0123456789abcdef";
  std::string s(17, ':');
  for (int i = 0; i < 6; ++i) {
    s[i * 3] = kHex[bytes_[i] >> 4];
    s[i * 3 + 1] = kHex[bytes_[i] & 15];
  }
  return s;
}

}  // namespace Plexa
