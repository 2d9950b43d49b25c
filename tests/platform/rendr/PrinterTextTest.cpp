// Text output: the template interpreter must print exactly what the C library's printf
// prints, over printf arguments (addFrills, addArgs) and over attributes (addAttributes).

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <string>

#include "platform/mox/Exception.h"
#include "platform/mox/String8.h"
#include "platform/rendr/Printer.h"
#include "tests/support/Capture.h"

namespace {

using rendr::kFormatText;

std::string cFormat(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
std::string cFormat(const char* fmt, ...) {
  va_list ap, again;
  va_start(ap, fmt);
  va_copy(again, ap);
  int n = std::vsnprintf(nullptr, 0, fmt, ap);
  std::string s(static_cast<std::size_t>(n) + 1, '\0');
  std::vsnprintf(s.data(), s.size(), fmt, again);
  s.resize(static_cast<std::size_t>(n));
  va_end(again);
  va_end(ap);
  return s;
}

template <class... Args>
std::string viaPrinter(const char* fmt, Args... args) {
  rovatest::MemoryFile cap;
  {
    rendr::Printer p(cap.fd(), kFormatText, true, false, true, 0);
    p.addArgs(fmt, args...);
  }
  return cap.contents();
}

// Compares the printer with snprintf for one template and its arguments.
#define EXPECT_LIKE_PRINTF(fmt, ...) \
  EXPECT_EQ(viaPrinter(fmt, __VA_ARGS__), cFormat(fmt, __VA_ARGS__)) << "template " << fmt

TEST(PrinterText, IntegersMatchPrintf) {
  for (int v : {0, 1, -1, 42, -42, 123456, INT_MAX, INT_MIN}) {
    for (const char* fmt :
         {"%d",   "%i",    "%5d",     "%-5d|",  "%05d", "%+d",   "% d", "%12d", "%-12d|",
          "%.3d", "%8.3d", "%-8.3d|", "%08.3d", "%.0d", "%+05d", "%u",  "%x",   "%X",
          "%08x", "%-6x|", "%3u",     "%hhd",   "%hd",  "%hu",   "%hhx"}) {
      EXPECT_LIKE_PRINTF(fmt, v);
    }
  }
  for (long long v : {0LL, -1LL, LLONG_MIN, LLONG_MAX, 1LL << 40}) {
    EXPECT_LIKE_PRINTF("%lld|%20lld|%-20lld|%020lld|%llx", v, v, v, v, v);
    EXPECT_LIKE_PRINTF("%ld %lu %lx", static_cast<long>(v), static_cast<unsigned long>(v),
                       static_cast<unsigned long>(v));
    EXPECT_LIKE_PRINTF("%llu", static_cast<unsigned long long>(v));
  }
  EXPECT_LIKE_PRINTF("%zu %zd %jd %td", SIZE_MAX, static_cast<ssize_t>(-5), INTMAX_MIN,
                     static_cast<ptrdiff_t>(-9));
}

TEST(PrinterText, StringsAndCharactersMatchPrintf) {
  for (const char* s : {"", "a", "Ethernet1", "10.0.0.0/8"}) {
    for (const char* fmt : {"%s", "[%5s]", "[%-5s]", "[%20s]", "[%-20s]", "[%.3s]", "[%8.2s]",
                            "[%-8.2s]", "[%05s]", "[%.0s]"}) {
      EXPECT_LIKE_PRINTF(fmt, s);
    }
    EXPECT_LIKE_PRINTF("[%*s]", 7, s);
    EXPECT_LIKE_PRINTF("[%*s]", -7, s);  // a negative '*' width left-justifies
    EXPECT_LIKE_PRINTF("[%-*s]", 7, s);
    EXPECT_LIKE_PRINTF("[%.*s]", 2, s);
    EXPECT_LIKE_PRINTF("[%.*s]", -2, s);  // a negative precision is none
    EXPECT_LIKE_PRINTF("[%*.*s]", 6, 1, s);
  }
  // Hidden from the compiler, which rightly warns about a null "%s" argument.
  const char* volatile hidden = nullptr;
  const char* null = hidden;
  EXPECT_LIKE_PRINTF("[%s][%8s][%.3s]", null, null, null);
  const char* zeroFlag = "[%03c]";  // not a literal: the compiler would refuse the flag
  for (int c : {'a', '*', ' ', 'Z'}) {
    EXPECT_LIKE_PRINTF("[%c][%3c][%-3c]", c, c, c);
    EXPECT_LIKE_PRINTF(zeroFlag, c);
  }
  // A precision reads no further than it says, so the text need not be terminated (the
  // sanitizer build catches a read past the array).
  const char unterminated[3] = {'1', '0', '.'};
  EXPECT_EQ(viaPrinter("[%.*s]", 3, unterminated), "[10.]");
  EXPECT_EQ(viaPrinter("[%.2s]", unterminated), "[10]");
  EXPECT_EQ(viaPrinter("100%% %s %%", "done"), "100% done %");
  EXPECT_EQ(viaPrinter("no conversions at all", 0), "no conversions at all");
}

TEST(PrinterText, FixedPointMatchesPrintf) {
  for (double v : {0.0, -0.0, 0.5, 1.5, 2.5, -3.25, 0.1, 1.0 / 3, 1e20, -1e-7, 123456.789, DBL_MAX,
                   DBL_MIN, HUGE_VAL, -HUGE_VAL, std::nan("")}) {
    for (const char* fmt : {"%f", "%.0f", "%.1f", "%.2f", "%.10f", "%12.3f", "%-12.3f|", "%012.3f",
                            "%+f", "% .2f", "%lf", "%10f"}) {
      EXPECT_LIKE_PRINTF(fmt, v);
    }
  }
  EXPECT_LIKE_PRINTF("%.*f|%*.*f", 3, 2.0 / 3, 9, 1, -0.05);
}

TEST(PrinterText, UnhandledConversionsFallBackToTheCLibrary) {
  EXPECT_LIKE_PRINTF("%d %e %s", 7, 1234.5, "x");
  EXPECT_LIKE_PRINTF("%g|%10.3G|%#x|%o|%a", 0.0001, 12345.678, 255u, 8u, 1.0);
  EXPECT_LIKE_PRINTF("%2$s %1$s", "world", "hello");
  EXPECT_LIKE_PRINTF("%Lf %p", 1.5L, static_cast<void*>(nullptr));
  EXPECT_LIKE_PRINTF("%lc", static_cast<wint_t>('w'));
  // Longer than the whole buffer, in either path.
  EXPECT_LIKE_PRINTF("%100000e|", 1.0);
  EXPECT_LIKE_PRINTF("%-200000s|", "wide");
  EXPECT_LIKE_PRINTF("%150000d|", -1);
}

TEST(PrinterText, LiteralTextLongerThanTheBufferArrivesWhole) {
  std::string big(3 * rendr::Printer::kBufferSize + 17, 'x');
  for (std::size_t i = 0; i < big.size(); i += 97)
    big[i] = '\n';
  EXPECT_LIKE_PRINTF("%s", big.c_str());
  EXPECT_EQ(viaPrinter(big.c_str(), 0), big);
}

// ---- attribute templates ----

// The text of one addAttributes call over the given attributes.
template <class... A>
std::string attrText(const char* fmt, const A&... attrs) {
  const auto print = [&](const auto& text) {
    rovatest::MemoryFile cap;
    {
      rendr::Printer p(cap.fd(), kFormatText, true, false, true, 0);
      p.addAttributes(text, sizeof...(attrs), attrs.getArg()...);
    }
    return cap.contents();
  };
  // The same text read once into a Template prints the same.
  std::string printed = print(fmt);
  EXPECT_EQ(print(rendr::Template(fmt)), printed) << "template " << fmt;
  return printed;
}

TEST(PrinterText, AttributeConversionsMatchPrintfOfTheirValues) {
  rendr::IntAttrInfo i("i", kFormatText);
  rendr::UintAttrInfo u("u", kFormatText);
  rendr::Uint64AttrInfo u64("u64", kFormatText);
  rendr::DoubleAttrInfo d("d", kFormatText);
  for (int v : {0, 7, -7, INT_MIN, INT_MAX}) {
    i.setValue(v);
    u.setValue(static_cast<unsigned>(v));
    u64.setValue(static_cast<std::uint64_t>(v) * 3);
    d.setValue(v / 8.0);
    for (const char* fmt : {"[%d]", "[%5d]", "[%-5d]", "[%05d]", "[%x]", "[%u]", "[%.3d]"}) {
      EXPECT_EQ(attrText(fmt, i), cFormat(fmt, v)) << fmt;
      // An unsigned attribute prints its value under %d too, never a negative number.
      std::string wide(fmt);
      wide.insert(wide.size() - 2, "ll");
      EXPECT_EQ(attrText(fmt, u), cFormat(wide.c_str(), static_cast<long long>(u.uint32Value())))
          << fmt;
    }
    unsigned long long v3 = u64.uint64Value();
    EXPECT_EQ(attrText("%d", u64), std::to_string(v3));
    EXPECT_EQ(attrText("%llu %20lu", u64, u64), cFormat("%llu %20llu", v3, v3));
    EXPECT_EQ(attrText("%f|%8.2f|%e", d, d, d), cFormat("%f|%8.2f|%e", v / 8.0, v / 8.0, v / 8.0));
  }
}

TEST(PrinterText, StringConversionsOfAttributes) {
  rendr::StringAttrInfo s("s", kFormatText), unset("unset", kFormatText);
  rendr::BoolAttrInfo b("b", kFormatText);
  rendr::IntAttrInfo n("n", kFormatText), width("width", kFormatText);
  rendr::DoubleAttrInfo d("d", kFormatText);
  s.setValue("Ethernet1");
  b.setValue(false);
  n.setValue(-12);
  width.setValue(-11);
  d.setValue(0.1);
  EXPECT_EQ(attrText("[%-12s][%12s][%.3s]", s, s, s), "[Ethernet1   ][   Ethernet1][Eth]");
  EXPECT_EQ(attrText("%s %s %s %d", b, n, d, b), "False -12 0.1 0");
  EXPECT_EQ(attrText("%d%% %5%|%s", n, s), "-12% %|Ethernet1");
  EXPECT_EQ(attrText("[%*s]", width, s), "[Ethernet1  ]");  // '*' reads an attribute too
  // Never set: nothing but the padding, whatever the conversion.
  EXPECT_EQ(attrText("[%s][%4s][%-3d][%c]", unset, unset, unset, unset), "[][    ][   ][]");
  // More attributes than conversions: the rest are for JSON only.
  EXPECT_EQ(attrText("%s!", s, n, b), "Ethernet1!");
  EXPECT_EQ(attrText("%%%s%%%%", s), "%Ethernet1%%");
  EXPECT_EQ(attrText("", s), "");
}

TEST(PrinterText, AttributeTemplateMisuseIsAnAssertion) {
  rendr::StringAttrInfo s("s", kFormatText);
  s.setValue("x");
  rovatest::MemoryFile cap;
  rendr::Printer p(cap.fd(), kFormatText, true, false, true, 0);
  EXPECT_THROW(p.addAttributes("%s %s", 1, s.getArg()), Mox::InternalException);
  EXPECT_THROW(p.addAttributes("%d", 1, s.getArg()), Mox::InternalException);
  EXPECT_THROW(p.addAttributes("%f", 1, s.getArg()), Mox::InternalException);
  EXPECT_THROW(p.addAttributes("%p", 1, s.getArg()), Mox::InternalException);
  EXPECT_THROW(p.addAttributes(rendr::Template("%s %s"), 1, s.getArg()), Mox::InternalException);
  EXPECT_THROW(p.addAttributes(rendr::Template("%5d"), 1, s.getArg()), Mox::InternalException);
}

TEST(PrinterText, StringAttributesCopyTheirText) {
  rendr::StringAttrInfo s("s", kFormatText);
  std::string longText(1000, 'L');
  char buf[] = "volatile";
  s.setValue(buf);
  buf[0] = 'X';
  EXPECT_EQ(s.text(), "volatile");
  s.setValue(longText);
  EXPECT_EQ(s.text(), longText);
  s.setValue(std::string(s.text().substr(0, 700)));  // long to long
  EXPECT_EQ(s.text(), longText.substr(0, 700));
  s.setValue(s.text().data() + 690, 10);  // from its own heap copy, back to the buffer
  EXPECT_EQ(s.text(), "LLLLLLLLLL");
  s.setValue(Mox::String8("from String8"));
  EXPECT_EQ(s.stringValue(), "from String8");
  s.setValue(s.text().data() + 5, 7);  // overlapping, inside the buffer
  EXPECT_EQ(s.text(), "String8");
  s.setValue(static_cast<const char*>(nullptr));
  EXPECT_TRUE(s.isSet());
  EXPECT_EQ(s.text(), "");
  s.setValue("with\0nul", 8);
  EXPECT_EQ(attrText("[%s]", s), std::string("[with\0nul]", 10));
}

}  // namespace
