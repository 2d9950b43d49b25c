// JSON output: structure, layout, values and escaping. Every output is parsed back, and its
// layout compared with what a standard pretty printer makes of the same document.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "platform/rendr/Printer.h"
#include "tests/platform/rendr/Capture.h"

namespace {

using nlohmann::ordered_json;
using namespace std::string_literals;
using rendr::kFormatJson;
using rendr::kFormatText;

template <class F>
std::string render(unsigned format, F body) {
  rendr::test::Capture cap;
  {
    rendr::Printer p(cap.fd(), format, true, false, true, 0);
    body(p);
  }
  return cap.contents();
}

// Parses out, checks that it is laid out as a two-space pretty printer lays out the same
// document (keys in the order written), and returns it.
ordered_json parsePretty(const std::string& out) {
  ordered_json doc = ordered_json::parse(out);
  EXPECT_EQ(out, doc.dump(2) + "\n");
  return doc;
}

TEST(PrinterJson, RouteListingNestsDictEntriesListsAndSubmodels) {
  std::string out = render(kFormatJson, [](rendr::Printer& p) {
    rendr::StringAttrInfo prefix("prefix", kFormatJson), nexthop("nexthopAddr", kFormatJson),
        intf("interface", kFormatJson);
    rendr::IntAttrInfo pref("preference", kFormatJson);
    rendr::BoolAttrInfo hw("hardwareProgrammed", kFormatJson);
    rendr::StringAttrInfo vrf("vrf", kFormatJson);
    vrf.setValue("default");
    p.addAttributes("VRF: %s\n", 1, vrf.getArg());
    p.startDict("routes");
    for (const char* pfx : {"10.0.0.0/8", "192.168.1.0/24"}) {
      prefix.setValue(pfx);
      pref.setValue(1);
      hw.setValue(pfx[0] == '1' && pfx[1] == '0');
      p.startDictEntry(prefix);
      p.addAttributes(" S %s [%d]", 2, prefix.getArg(), pref.getArg());
      p.addAttributes("", 1, hw.getArg());
      p.startList("vias");
      for (const char* nh : {"10.1.1.1", "10.1.1.2"}) {
        nexthop.setValue(nh);
        intf.setValue("Ethernet1");
        p.startListEntry();
        p.addAttributes(" via %s, %s\n", 2, nexthop.getArg(), intf.getArg());
        p.endListEntry();
      }
      p.endList();
      p.startSubmodel("counters");
      p.startSubmodel("empty");
      p.endSubmodel();
      p.endSubmodel();
      p.endDictEntry();
    }
    p.endDict();
    p.addFrills("%d routes\n", 2);
  });
  ordered_json via1 = {{"nexthopAddr", "10.1.1.1"}, {"interface", "Ethernet1"}};
  ordered_json via2 = {{"nexthopAddr", "10.1.1.2"}, {"interface", "Ethernet1"}};
  auto entry = [&](const char* pfx, bool hw) {
    return ordered_json{{"prefix", pfx},
                        {"preference", 1},
                        {"hardwareProgrammed", hw},
                        {"vias", {via1, via2}},
                        {"counters", {{"empty", ordered_json::object()}}}};
  };
  ordered_json expected = {{"vrf", "default"},
                           {"routes",
                            {{"10.0.0.0/8", entry("10.0.0.0/8", true)},
                             {"192.168.1.0/24", entry("192.168.1.0/24", false)}}}};
  EXPECT_EQ(parsePretty(out), expected);
}

TEST(PrinterJson, TheSameCallsWriteTheTextTemplates) {
  std::string out = render(kFormatText, [](rendr::Printer& p) {
    rendr::StringAttrInfo prefix("prefix", kFormatText), nexthop("nexthopAddr", kFormatText);
    p.addFrills("Codes: %s\n\n", "S - static");
    p.startDict("routes");
    prefix.setValue("10.0.0.0/8");
    p.startDictEntry(prefix);
    p.addAttributes(" S      %s", 1, prefix.getArg());
    p.startList("vias");
    for (const char* nh : {"10.1.1.1", "10.1.1.2"}) {
      nexthop.setValue(nh);
      p.startListEntry();
      p.addAttributes(" via %s", 1, nexthop.getArg());
      p.addArgs(", weight %u", 5u);
      p.endListEntry();
    }
    p.endList();
    p.addFrills("\n");
    p.endDictEntry();
    p.endDict();
  });
  EXPECT_EQ(out,
            "Codes: S - static\n\n"
            " S      10.0.0.0/8 via 10.1.1.1, weight 5 via 10.1.1.2, weight 5\n");
}

TEST(PrinterJson, SimpleDictEntriesTakeOneValue) {
  std::string out = render(kFormatJson, [](rendr::Printer& p) {
    rendr::StringAttrInfo type("type", kFormatJson);
    rendr::UintAttrInfo count("count", kFormatJson);
    p.startDict("tunnelCounts");
    type.setValue("ipInIp");
    count.setValue(2);
    p.startSimpleDictEntry(type);
    p.addAttributes("%-8s %u\n", 1, count.getArg());
    p.endSimpleDictEntry();
    type.setValue("gre");
    p.startSimpleDictEntry(type);
    p.addAttributesJson(1, type.getArg());
    p.endSimpleDictEntry();
    type.setValue("mpls");
    p.startSimpleDictEntry(type);  // no value: written as null
    p.endSimpleDictEntry();
    p.endDict();
  });
  EXPECT_EQ(parsePretty(out),
            ordered_json::parse(R"({"tunnelCounts": {"ipInIp": 2, "gre": "gre", "mpls": null}})"));
}

TEST(PrinterJson, DictEntryKeysAreTextWhateverTheKeyKind) {
  std::string out = render(kFormatJson, [](rendr::Printer& p) {
    rendr::IntAttrInfo i("id", kFormatJson);
    rendr::Uint64AttrInfo u("id", kFormatJson);
    rendr::BoolAttrInfo b("flag", kFormatJson);
    rendr::DoubleAttrInfo d("ratio", kFormatJson);
    i.setValue(-7);
    u.setValue(std::numeric_limits<std::uint64_t>::max());
    b.setValue(false);
    d.setValue(0.5);
    p.startDict("byKey");
    for (const rendr::AttrInfo* key : {i.getArg(), u.getArg(), b.getArg(), d.getArg()}) {
      p.startDictEntry(*key);
      p.endDictEntry();
    }
    p.endDict();
  });
  EXPECT_EQ(parsePretty(out),
            ordered_json::parse(R"({"byKey": {"-7": {}, "18446744073709551615": {},
                                              "false": {}, "0.5": {}}})"));
}

TEST(PrinterJson, ValuesKeepTheirKinds) {
  std::string out = render(kFormatJson, [](rendr::Printer& p) {
    rendr::IntAttrInfo imin("intMin", kFormatJson);
    rendr::UintAttrInfo umax("uintMax", kFormatJson);
    rendr::Uint64AttrInfo u64("bytes", kFormatJson);
    rendr::DoubleAttrInfo half("half", kFormatJson), big("big", kFormatJson),
        whole("whole", kFormatJson), nan("nan", kFormatJson), inf("inf", kFormatJson),
        single("single", kFormatJson);
    rendr::BoolAttrInfo yes("yes", kFormatJson);
    rendr::StringAttrInfo unset("neverSet", kFormatJson);
    imin.setValue(std::numeric_limits<std::int32_t>::min());
    umax.setValue(std::numeric_limits<std::uint32_t>::max());
    u64.setValue(1ull << 63);
    half.setValue(-3.25);
    big.setValue(1e20);
    whole.setValue(100.0);
    nan.setValue(std::nan(""));
    inf.setValue(-HUGE_VAL);
    single.setValue(0.1f);
    yes.setValue(true);
    p.addAttributes("%d %u", 10, imin.getArg(), umax.getArg(), u64.getArg(), half.getArg(),
                    big.getArg(), whole.getArg(), nan.getArg(), inf.getArg(), single.getArg(),
                    yes.getArg());
    p.addAttributesJson(1, unset.getArg());
  });
  ordered_json doc = parsePretty(out);
  EXPECT_EQ(doc["intMin"], std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(doc["uintMax"], std::numeric_limits<std::uint32_t>::max());
  EXPECT_EQ(doc["bytes"], 1ull << 63);
  EXPECT_EQ(doc["half"], -3.25);
  EXPECT_EQ(doc["big"], 1e20);
  EXPECT_TRUE(doc["whole"].is_number_float());
  EXPECT_TRUE(doc["nan"].is_null());
  EXPECT_TRUE(doc["inf"].is_null());
  EXPECT_EQ(doc["single"], static_cast<double>(0.1f));  // widened, not rounded to 0.1
  EXPECT_EQ(doc["yes"], true);
  EXPECT_TRUE(doc["neverSet"].is_null());
}

// Numbers are written as Python's json module writes them, so the output is the same from
// run to run and from this printer to a script's.
TEST(PrinterJson, DoublesUseTheShortestExactForm) {
  const std::pair<double, const char*> cases[] = {
      {100.0, "100.0"},   {-0.0, "-0.0"},
      {0.1, "0.1"},       {1e15, "1000000000000000.0"},
      {1e16, "1e+16"},    {12345678901234567.0, "1.2345678901234568e+16"},
      {1e-4, "0.0001"},   {1.5e-5, "1.5e-05"},
      {5e-324, "5e-324"}, {static_cast<double>(0.1f), "0.10000000149011612"},
  };
  for (auto [value, text] : cases) {
    std::string out = render(kFormatJson, [&](rendr::Printer& p) {
      rendr::DoubleAttrInfo d("d", kFormatJson);
      d.setValue(value);
      p.addAttributes("", 1, d.getArg());
    });
    EXPECT_EQ(out, std::string("{\n  \"d\": ") + text + "\n}\n");
    EXPECT_EQ(ordered_json::parse(out)["d"], value) << text;
  }
}

TEST(PrinterJson, EmptyTemplatesAndJsonOnlyAttributesAddKeysButNoText) {
  auto body = [](unsigned format) {
    return [format](rendr::Printer& p) {
      rendr::IntAttrInfo label("label", format), depth("depth", format);
      label.setValue(16);
      depth.setValue(1);
      p.addAttributes("", 1, label.getArg());
      p.addAttributesJson(1, depth.getArg());
      p.addFrills("frill %d\n", 1);
    };
  };
  EXPECT_EQ(render(kFormatText, body(kFormatText)), "frill 1\n");
  EXPECT_EQ(parsePretty(render(kFormatJson, body(kFormatJson))),
            ordered_json::parse(R"({"label": 16, "depth": 1})"));
}

TEST(PrinterJson, RootObjectIsOpenedOnDemandAndClosedOnce) {
  EXPECT_EQ(render(kFormatJson, [](rendr::Printer&) {}), "{}\n");
  EXPECT_EQ(render(kFormatJson, [](rendr::Printer& p) { p.addFrills("only text\n"); }), "{}\n");
  EXPECT_EQ(render(kFormatJson,
                   [](rendr::Printer& p) {
                     p.start();
                     p.end();
                   }),
            "{}\n");
  EXPECT_EQ(render(kFormatJson,
                   [](rendr::Printer& p) {
                     p.startList("empty");
                     p.endList();
                     p.end();
                   }),
            "{\n  \"empty\": []\n}\n");
}

TEST(PrinterJson, DestructorClosesWhatIsStillOpen) {
  std::string out = render(kFormatJson, [](rendr::Printer& p) {
    rendr::StringAttrInfo key("k", kFormatJson);
    key.setValue("x");
    p.startDict("d");
    p.startDictEntry(key);
    p.startList("l");
    p.startListEntry();
    p.startSubmodel("s");
    p.startDict("inner");
    p.startSimpleDictEntry(key);
  });
  EXPECT_EQ(parsePretty(out),
            ordered_json::parse(R"({"d": {"x": {"l": [{"s": {"inner": {"x": null}}}]}}})"));
}

// Strings and keys come from device state (interface descriptions, VRF names): any bytes.
TEST(PrinterJson, StringsAreEscapedAndMadeValidUtf8) {
  struct Case {
    std::string in;
    std::string expected;  // the decoded JSON string
  };
  const Case cases[] = {
      {"say \"hi\" \\ bye", "say \"hi\" \\ bye"},
      {"nul\0tab\tnl\nbell\x07\x1f\x7f"s, "nul\0tab\tnl\nbell\x07\x1f\x7f"s},
      {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80", "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80"},
      {"bad\xff!", "bad\xef\xbf\xbd!"},
      {"\xc0\xaf", "\xef\xbf\xbd\xef\xbf\xbd"},                                  // overlong '/'
      {"\xed\xa0\x80", "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd"},                  // a surrogate
      {"\xf4\x90\x80\x80", "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd"},  // > U+10FFFF
      {"cut\xe2\x82", "cut\xef\xbf\xbd"},  // one maximal subpart
      {"\xf0\x9f\x98x", "\xef\xbf\xbdx"},
      {"\x80\x80", "\xef\xbf\xbd\xef\xbf\xbd"},
  };
  for (const Case& c : cases) {
    std::string out = render(kFormatJson, [&](rendr::Printer& p) {
      rendr::StringAttrInfo s("s", kFormatJson);
      s.setValue(c.in.data(), c.in.size());
      p.addAttributes("", 1, s.getArg());
      p.startDict("d");
      p.startDictEntry(s);
      p.endDictEntry();
      p.endDict();
    });
    ordered_json doc = parsePretty(out);
    EXPECT_EQ(doc["s"], c.expected) << out;
    EXPECT_TRUE(doc["d"].contains(c.expected)) << out;
  }
  // Control characters use the short escapes where JSON has them.
  std::string out = render(kFormatJson, [](rendr::Printer& p) {
    rendr::StringAttrInfo s("s", kFormatJson);
    s.setValue("\n\t\x01");
    p.addAttributes("", 1, s.getArg());
  });
  EXPECT_NE(out.find(R"("\n\t\u0001")"), std::string::npos) << out;
}

// Every byte value at every position of a string long enough for the word-at-a-time scan.
TEST(PrinterJson, EveryByteIsEscapedWhereverItStands) {
  std::vector<std::string> inputs;
  for (int byte = 0; byte < 256; ++byte) {
    for (std::size_t pos = 0; pos < 20; ++pos) {
      std::string in(20, 'a');
      in[pos] = static_cast<char>(byte);
      inputs.push_back(in);
    }
  }
  std::string out = render(kFormatJson, [&](rendr::Printer& p) {
    rendr::StringAttrInfo s("s", kFormatJson);
    p.startList("l");
    for (const std::string& in : inputs) {
      s.setValue(in);
      p.startListEntry();
      p.addAttributes("", 1, s.getArg());
      p.endListEntry();
    }
    p.endList();
  });
  ordered_json doc = parsePretty(out);
  ASSERT_EQ(doc["l"].size(), inputs.size());
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    std::string expected = inputs[i];
    std::size_t pos = i % 20;
    if (static_cast<unsigned char>(expected[pos]) >= 0x80) expected.replace(pos, 1, "\xef\xbf\xbd");
    ASSERT_EQ(doc["l"][i]["s"], expected) << "byte " << i / 20 << " at " << pos;
  }
}

TEST(PrinterJson, NamesAreEscapedToo) {
  std::string out = render(kFormatJson, [](rendr::Printer& p) {
    rendr::IntAttrInfo odd("we\"ird\\", kFormatJson);
    odd.setValue(1);
    p.addAttributes("", 1, odd.getArg());
    p.startSubmodel("sub\nmodel\xff");
    p.endSubmodel();
  });
  ordered_json doc = parsePretty(out);
  EXPECT_EQ(doc["we\"ird\\"], 1);
  EXPECT_TRUE(doc.contains("sub\nmodel\xef\xbf\xbd"));
}

}  // namespace
