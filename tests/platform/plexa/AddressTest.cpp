#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "platform/mox/Exception.h"
#include "platform/mox/TextForm.h"
#include "platform/plexa/IpAddr.h"
#include "platform/plexa/Prefix.h"

namespace {

using namespace Plexa;

TEST(IpAddr, ParsesOnlyPlainDottedQuads) {
  EXPECT_EQ(IpAddr::fromString("10.1.2.3"), IpAddr(10, 1, 2, 3));
  EXPECT_EQ(IpAddr::fromString("255.255.255.255").value(), 0xffffffffu);
  EXPECT_EQ(IpAddr::fromString("0.0.0.0").stringValue(), "0.0.0.0");
  for (const char* bad : {"", "1.2.3", "1.2.3.4.5", "256.1.1.1", "1.2.3.4 ", "01.2.3.4", "1..2.3",
                          "a.b.c.d", "1.2.3.-4", "1.2.3.4/24"}) {
    IpAddr a;
    EXPECT_FALSE(IpAddr::parse(bad, a)) << bad;
  }
  EXPECT_THROW(IpAddr::fromString("300.1.1.1"), Mox::RangeException);
}

// The text is the C library's: every pattern of zero groups, with the IPv4-mapped and
// IPv4-compatible forms and groups of every width, written as inet_ntop writes it.
TEST(Ip6Addr, WritesWhatInetNtopWrites) {
  std::uint32_t x = 7;
  const auto rnd = [&] { return x = x * 1103515245 + 12345, x >> 8; };
  const std::uint16_t widths[] = {0x1, 0xf, 0xab, 0xfff, 0xffff};
  for (unsigned zeros = 0; zeros < 256; ++zeros) {
    for (int round = 0; round < 12; ++round) {
      Ip6Addr::Bytes b{};
      for (int g = 0; g < 8; ++g) {
        std::uint16_t w = 0;
        if (!(zeros & (1u << g))) w = static_cast<std::uint16_t>(rnd() & widths[rnd() % 5]);
        if (g == 5 && round % 4 == 0) w = 0xffff;
        b[2 * g] = static_cast<std::uint8_t>(w >> 8);
        b[2 * g + 1] = static_cast<std::uint8_t>(w);
      }
      char expected[INET6_ADDRSTRLEN];
      ASSERT_NE(inet_ntop(AF_INET6, b.data(), expected, sizeof expected), nullptr);
      EXPECT_EQ(Ip6Addr(b).stringValue(), expected);
    }
  }
}

TEST(Ip6Addr, ParsesLongFormsAndOrdersByBytes) {
  EXPECT_EQ(Ip6Addr::fromString("2001:0DB8:0:0:0:0:0:1").stringValue(), "2001:db8::1");
  EXPECT_TRUE(Ip6Addr::fromString("fe80::1").isLinkLocal());
  EXPECT_TRUE(Ip6Addr::fromString("febf::1").isLinkLocal());
  EXPECT_FALSE(Ip6Addr::fromString("fec0::1").isLinkLocal());
  EXPECT_LT(Ip6Addr::fromString("2001:db8::2"), Ip6Addr::fromString("2001:db8::10"));
  // Bytes compare unsigned, and the first eight bytes outweigh the last eight.
  EXPECT_LT(Ip6Addr::fromString("7fff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"),
            Ip6Addr::fromString("8000::"));
  EXPECT_LT(Ip6Addr::fromString("::ffff:ffff:ffff:ffff"), Ip6Addr::fromString("0:0:0:1::"));
  EXPECT_LT(Ip6Addr::fromString("::7fff:0:0:0"), Ip6Addr::fromString("::8000:0:0:0"));
  EXPECT_EQ(Ip6Addr::fromString("2001:db8::1") <=> Ip6Addr::fromString("2001:db8::1"),
            std::strong_ordering::equal);
  for (const char* bad : {"", "2001:db8::1::2", "12345::", "1.2.3.4", "2001:db8::g"}) {
    Ip6Addr a;
    EXPECT_FALSE(Ip6Addr::parse(bad, a)) << bad;
  }
}

// The parser reads the usual forms itself and leaves the rest to inet_pton: on texts built
// from the characters an address is made of (runs of colons, groups of every width, dots,
// blanks), it takes exactly what inet_pton takes, as the same address, and masks as the
// byte-wise rule does.
TEST(Ip6Addr, TakesWhatInetPtonTakes) {
  std::uint32_t x = 11;
  const auto rnd = [&] { return x = x * 1103515245 + 12345, x >> 8; };
  const char* pieces[] = {":",         "::",       ":::",   "0",    "1", "ab",
                          "fFf",       "0db8",     "12345", "ffff", ".", "1.2.3.4",
                          "255.0.0.1", "01.2.3.4", "g",     " ",    "/"};
  // Or groups of one to five hex digits, up to nine of them, with or without a "::" among
  // them, a dotted tail, a colon before or after.
  const auto groups = [&] {
    std::string text;
    const unsigned n = rnd() % 10, gap = rnd() % 12;
    for (unsigned g = 0; g < n; ++g) {
      if (g == gap) text += ":";
      if (g) text += ":";
      for (unsigned d = 1 + rnd() % 5; d > 0; --d)
        text += "0123456789abcdefABCDEF"[rnd() % 22];
    }
    if (gap >= n && gap < 11) text += "::";
    if (rnd() % 8 == 0) text += ":1.2.3.4";
    if (rnd() % 16 == 0) text = ":" + text;
    if (rnd() % 16 == 0) text += ":";
    return text;
  };
  int taken = 0;
  for (int round = 0; round < 200000; ++round) {
    std::string text;
    if (round % 2) {
      text = groups();
    } else {
      for (unsigned n = 1 + rnd() % 12; n > 0; --n)
        text += pieces[rnd() % std::size(pieces)];
    }
    char c[64] = {};
    Ip6Addr::Bytes expected{};
    const bool ok = text.size() < sizeof c &&
                    (text.copy(c, text.size()), inet_pton(AF_INET6, c, expected.data()) == 1);
    Ip6Addr a;
    ASSERT_EQ(Ip6Addr::parse(text, a), ok) << text;
    if (!ok) continue;
    ++taken;
    EXPECT_EQ(a.bytes(), expected) << text;
    for (int len : {0, 1, 7, 8, 9, 63, 64, 65, 120, 127, 128}) {
      Ip6Addr::Bytes m = expected;
      for (int i = 0; i < 16; ++i)
        m[i] &= len >= 8 * (i + 1) ? 0xff : len <= 8 * i ? 0 : 0xff << (8 - (len - 8 * i)) & 0xff;
      EXPECT_EQ(a.masked(len).bytes(), m) << text << "/" << len;
    }
  }
  EXPECT_GT(taken, 10000);  // the texts reach the forms that parse, not only the refusals
}

TEST(Prefix, ClearsHostBitsAndOrdersByAddressThenLength) {
  EXPECT_EQ(Prefix::fromString("10.1.2.3/16").stringValue(), "10.1.0.0/16");
  EXPECT_EQ(Prefix::fromString("0.0.0.0/0").len(), 0);
  std::vector<Prefix> v = {Prefix::fromString("10.0.0.0/16"), Prefix::fromString("10.1.0.0/16"),
                           Prefix::fromString("10.0.0.0/8"), Prefix::fromString("9.0.0.0/8")};
  std::sort(v.begin(), v.end());
  std::vector<std::string> text;
  for (auto& p : v)
    text.push_back(p.stringValue());
  EXPECT_EQ(text,
            (std::vector<std::string>{"9.0.0.0/8", "10.0.0.0/8", "10.0.0.0/16", "10.1.0.0/16"}));
  for (const char* bad :
       {"10.0.0.0", "10.0.0.0/33", "10.0.0.0/", "10.0.0.0/-1", "10.0.0.0/08", "::/0"}) {
    Prefix p;
    EXPECT_FALSE(Prefix::parse(bad, p)) << bad;
  }
  EXPECT_THROW(Prefix(IpAddr(), 33), Mox::RangeException);
}

TEST(Prefix, NullPrefixStandsForNoPrefix) {
  Prefix null;
  EXPECT_TRUE(null.isNullPrefix());
  EXPECT_EQ(null.len(), -1);
  EXPECT_EQ(null.address(), IpAddr());
  EXPECT_EQ(null.stringValue(), "");
  EXPECT_EQ(Prefix::fromString(""), null);
  EXPECT_LT(null, Prefix::fromString("0.0.0.0/0"));
  EXPECT_FALSE(null.contains(IpAddr(1, 2, 3, 4)));
}

TEST(Prefix, Containment) {
  const Prefix p = Prefix::fromString("10.1.0.0/16");
  EXPECT_TRUE(p.contains(IpAddr(10, 1, 255, 1)));
  EXPECT_FALSE(p.contains(IpAddr(10, 2, 0, 1)));
  EXPECT_TRUE(p.contains(Prefix::fromString("10.1.4.0/24")));
  EXPECT_TRUE(p.contains(p));
  EXPECT_FALSE(p.contains(Prefix::fromString("10.0.0.0/8")));
  EXPECT_TRUE(Prefix::fromString("0.0.0.0/0").contains(p));
}

TEST(Ip6Prefix, ParsesMasksAndOrders) {
  EXPECT_EQ(Ip6Prefix::fromString("2001:db8:1:2::1/48").stringValue(), "2001:db8:1::/48");
  EXPECT_EQ(Ip6Prefix::fromString("fe80::/10").stringValue(), "fe80::/10");
  EXPECT_EQ(Ip6Prefix::fromString("2001:db8::/127").len(), 127);
  EXPECT_LT(Ip6Prefix::fromString("2001:db8::/32"), Ip6Prefix::fromString("2001:db8::/48"));
  EXPECT_TRUE(
      Ip6Prefix::fromString("2001:db8::/32").contains(Ip6Prefix::fromString("2001:db8:5::/48")));
  Ip6Prefix p;
  EXPECT_FALSE(Ip6Prefix::parse("2001:db8::/129", p));
}

// Sorting by radix relies on the order key ordering prefixes exactly as their comparison does:
// the address first (IPv6 across both of its words), then the length, the null prefix first.
TEST(Prefix, OrderKeyOrdersAsTheComparisonDoes) {
  const auto check = [](const auto& prefixes) {
    for (const auto& a : prefixes) {
      for (const auto& b : prefixes)
        EXPECT_EQ(orderKey(a) <=> orderKey(b), a <=> b)
            << a.stringValue() << " " << b.stringValue();
    }
  };
  check(std::vector<Prefix>{Prefix(), Prefix::fromString("0.0.0.0/0"),
                            Prefix::fromString("10.0.0.0/8"), Prefix::fromString("10.0.0.0/24"),
                            Prefix::fromString("9.255.255.255/32"),
                            Prefix::fromString("255.255.255.255/32")});
  check(std::vector<Ip6Prefix>{
      Ip6Prefix(), Ip6Prefix::fromString("::/0"), Ip6Prefix::fromString("2001:db8::/32"),
      Ip6Prefix::fromString("2001:db8::/64"), Ip6Prefix::fromString("2001:db8::1:0:0:0/80"),
      Ip6Prefix::fromString("2001:db8::ffff/128"), Ip6Prefix::fromString("2001:db9::/32"),
      Ip6Prefix::fromString("ffff::/16")});
}

TEST(IpGenAddr, CarriesEitherFamily) {
  IpGenAddr empty;
  EXPECT_TRUE(empty.isZero());
  EXPECT_EQ(empty.stringValue(), "");
  EXPECT_EQ(IpGenAddr::fromString(""), empty);
  const IpGenAddr v4 = IpGenAddr::fromString("10.1.1.1");
  const IpGenAddr v6 = IpGenAddr::fromString("2001:db8::1");
  EXPECT_TRUE(v4.isV4());
  EXPECT_EQ(v4.v4Addr(), IpAddr(10, 1, 1, 1));
  EXPECT_EQ(v6.stringValue(), "2001:db8::1");
  EXPECT_TRUE(IpGenAddr(IpAddr()).isZero());
  // Truth is "not zero", in both families; the empty address is false too.
  EXPECT_FALSE(empty);
  EXPECT_FALSE(IpGenAddr(IpAddr()));
  EXPECT_FALSE(IpGenAddr(Ip6Addr()));
  EXPECT_TRUE(!IpGenAddr::fromString("::"));
  EXPECT_TRUE(v4);
  EXPECT_TRUE(v6);
  EXPECT_TRUE(IpGenAddr::fromString("0.0.0.1"));
  // Families never compare equal, and IPv4 orders before IPv6.
  EXPECT_NE(IpGenAddr(IpAddr()), IpGenAddr(Ip6Addr()));
  EXPECT_LT(v4, v6);
  EXPECT_LT(IpGenAddr::fromString("10.0.0.9"), IpGenAddr::fromString("10.0.0.10"));
}

TEST(AddrWithMask, KeepsHostBits) {
  const IpAddrWithMask a = IpAddrWithMask::fromString("10.1.1.5/16");
  EXPECT_EQ(a.stringValue(), "10.1.1.5/16");
  EXPECT_EQ(a.subnet().stringValue(), "10.1.0.0/16");
  EXPECT_LT(IpAddrWithMask::fromString("10.1.1.5/16"), IpAddrWithMask::fromString("10.1.1.5/24"));
  EXPECT_LT(IpAddrWithMask::fromString("10.1.1.5/24"), IpAddrWithMask::fromString("10.1.1.6/8"));
  const Ip6AddrWithMask b = Ip6AddrWithMask::fromString("2001:db8::1/64");
  EXPECT_EQ(b.stringValue(), "2001:db8::1/64");
  EXPECT_EQ(b.subnet().stringValue(), "2001:db8::/64");
  IpAddrWithMask bad;
  EXPECT_FALSE(IpAddrWithMask::parse("10.1.1.1", bad));
}

TEST(AddressTextForm, NetworkValuesAreQuotedInValueText) {
  EXPECT_EQ(Mox::textOf(Prefix::fromString("10.1.0.0/16")), "'10.1.0.0/16'");
  EXPECT_EQ(Mox::valueFromText<Ip6Prefix>("'2001:db8::/32'"),
            Ip6Prefix::fromString("2001:db8::/32"));
  EXPECT_THROW(Mox::valueFromText<IpAddr>("'10.1.1'"), Mox::RangeException);
}

}  // namespace
