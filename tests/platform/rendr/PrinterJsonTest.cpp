// JSON output: structure, layout, values and escaping. Every output is parsed back, and its
// layout compared with what a standard pretty printer makes of the same document. Whole
// listings in both formats are pinned by the golden files.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/rendr/Printer.h"
#include "tests/support/Capture.h"

namespace {

using nlohmann::ordered_json;
using namespace std::string_literals;
using rendr::kFormatJson;
using rendr::kFormatText;

template <class F>
std::string render(unsigned format, F body) {
  rovatest::MemoryFile cap;
  {
    rendr::Printer p(cap.fd(), format, true, false, true, 0);
    body(p, format);
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

TEST(PrinterJson, SimpleDictEntriesTakeOneValue) {
  auto counts = [](rendr::Printer& p, unsigned f) {
    rendr::StringAttrInfo type("type", f);
    rendr::UintAttrInfo count("count", f);
    p.startDict("tunnelCounts");
    for (const char* t : {"ipInIp", "gre", "mpls"}) {
      type.setValue(t);
      count.setValue(2);
      p.startSimpleDictEntry(type);
      if (t[0] == 'i') p.addAttributes("ipInIp %u\n", 1, count.getArg());
      if (t[0] == 'g') p.addAttributesJson(1, type.getArg());
      p.endSimpleDictEntry();  // mpls: no value
    }
    p.endDict();
  };
  EXPECT_EQ(render(kFormatText, counts), "ipInIp 2\n");
  EXPECT_EQ(parsePretty(render(kFormatJson, counts)),
            ordered_json::parse(R"({"tunnelCounts": {"ipInIp": 2, "gre": "gre", "mpls": null}})"));
}

TEST(PrinterJson, ValuesKeepTheirKindsAndKeysAreText) {
  std::string out = render(kFormatJson, [](rendr::Printer& p, unsigned f) {
    rendr::IntAttrInfo imin("intMin", f);
    rendr::UintAttrInfo umax("uintMax", f);
    rendr::Uint64AttrInfo u64("bytes", f);
    rendr::DoubleAttrInfo nan("nan", f), inf("inf", f);
    rendr::BoolAttrInfo yes("yes", f);
    rendr::StringAttrInfo unset("neverSet", f);
    imin.setValue(std::numeric_limits<std::int32_t>::min());
    umax.setValue(std::numeric_limits<std::uint32_t>::max());
    u64.setValue(1ull << 63);
    nan.setValue(std::nan(""));
    inf.setValue(-HUGE_VAL);
    yes.setValue(true);
    p.addAttributes("%d %u", 7, imin.getArg(), umax.getArg(), u64.getArg(), nan.getArg(),
                    inf.getArg(), yes.getArg(), unset.getArg());
    p.startDict("byKey");
    for (const rendr::AttrInfo* key : {imin.getArg(), umax.getArg(), u64.getArg(), yes.getArg()}) {
      p.startDictEntry(*key);
      p.endDictEntry();
    }
    p.endDict();
  });
  EXPECT_EQ(parsePretty(out), ordered_json::parse(R"({"intMin": -2147483648,
      "uintMax": 4294967295, "bytes": 9223372036854775808, "nan": null, "inf": null,
      "yes": true, "neverSet": null, "byKey": {"-2147483648": {}, "4294967295": {},
      "9223372036854775808": {}, "true": {}}})"));
}

// Doubles are written as Python's json module writes them, so the output is the same from
// run to run and from this printer to a script's.
TEST(PrinterJson, DoublesUseTheShortestExactForm) {
  const std::pair<double, const char*> cases[] = {
      {100.0, "100.0"},   {-0.0, "-0.0"},
      {-3.25, "-3.25"},   {1e15, "1000000000000000.0"},
      {1e16, "1e+16"},    {12345678901234567.0, "1.2345678901234568e+16"},
      {1e-4, "0.0001"},   {1.5e-5, "1.5e-05"},
      {5e-324, "5e-324"}, {0.1f, "0.10000000149011612"},  // a float, widened
  };
  for (const auto& [value, text] : cases) {
    // clang 14 does not let a lambda capture a structured binding.
    const double v = value;
    std::string out = render(kFormatJson, [&](rendr::Printer& p, unsigned f) {
      rendr::DoubleAttrInfo d("d", f);
      d.setValue(v);
      p.addAttributes("", 1, d.getArg());
    });
    EXPECT_EQ(out, "{\n  \"d\": "s + text + "\n}\n");
    EXPECT_EQ(ordered_json::parse(out)["d"], value) << text;
  }
}

TEST(PrinterJson, RootObjectIsOpenedOnDemandAndClosedOnce) {
  auto json = [](auto body) { return render(kFormatJson, body); };
  EXPECT_EQ(json([](auto&, unsigned) {}), "{}\n");
  EXPECT_EQ(json([](auto& p, unsigned) {
              p.addFrills("only text\n");
              p.addText("and more\n");
            }),
            "{}\n");
  EXPECT_EQ(json([](auto& p, unsigned) { p.end(); }), "{}\n");
  EXPECT_EQ(json([](auto& p, unsigned) {
              p.start();
              p.startList("empty");
              p.endList();
              p.end();
            }),
            "{\n  \"empty\": []\n}\n");
}

TEST(PrinterJson, DestructorClosesWhatIsStillOpen) {
  std::string out = render(kFormatJson, [](rendr::Printer& p, unsigned f) {
    rendr::StringAttrInfo key("k", f);
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

// Blocks close what they open where they end, so what follows lands outside them.
TEST(PrinterJson, BlocksCloseWhereTheyEnd) {
  const std::string out = render(kFormatJson, [](rendr::Printer& p, unsigned f) {
    rendr::StringAttrInfo key("k", f);
    rendr::StringAttrInfo after("after", f);
    key.setValue("x");
    after.setValue("y");
    {
      auto d = p.dict("d");
      {
        auto e = p.dictEntry(key);
        auto l = p.list("l");
        auto le = p.listEntry();
        auto s = p.submodel("s");
      }
      p.itemDone();
    }
    p.addAttributes("", 1, after.getArg());
  });
  EXPECT_EQ(parsePretty(out),
            ordered_json::parse(R"({"d": {"x": {"l": [{"s": {}}]}}, "after": "y"})"));
}

// Strings, keys and names come from device state (interface descriptions, VRF names): any
// bytes at all.
TEST(PrinterJson, StringsAreEscapedAndMadeValidUtf8) {
  const std::pair<std::string, std::string> cases[] = {
      {"say \"hi\" \\ \n\t\x01\x7f"s, "say \"hi\" \\ \n\t\x01\x7f"s},
      {"nul\0!"s, "nul\0!"s},
      {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80", "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80"},
      {"\xc0\xaf", "\xef\xbf\xbd\xef\xbf\xbd"},                                  // overlong '/'
      {"\xed\xa0\x80", "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd"},                  // a surrogate
      {"\xf4\x90\x80\x80", "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd"},  // > U+10FFFF
      {"cut\xe2\x82", "cut\xef\xbf\xbd"},  // one replacement per maximal subpart
      {"\xf0\x9f\x98x", "\xef\xbf\xbdx"},
  };
  for (const auto& [in, expected] : cases) {
    const std::string& text = in;
    std::string out = render(kFormatJson, [&](rendr::Printer& p, unsigned f) {
      rendr::StringAttrInfo s("s", f);
      rendr::IntAttrInfo named(text.c_str(), f);
      s.setValue(text);
      named.setValue(1);
      p.addAttributes("", 2, s.getArg(), named.getArg());
      p.startDict("d");
      p.startDictEntry(s);
      p.endDictEntry();
      p.endDict();
    });
    ordered_json doc = parsePretty(out);
    EXPECT_EQ(doc["s"], expected) << out;
    EXPECT_TRUE(doc["d"].contains(expected)) << out;
    if (in.find('\0') == std::string::npos) {
      EXPECT_EQ(doc[expected], 1) << out;  // the same text as an attribute name
    }
  }
  std::string out = render(kFormatJson, [](rendr::Printer& p, unsigned f) {
    rendr::StringAttrInfo s("s", f);
    s.setValue("\n\t\x01");
    p.addAttributes("", 1, s.getArg());
  });
  EXPECT_NE(out.find(R"("\n\t\u0001")"), std::string::npos) << "short escapes where JSON has them";
}

// Every byte value at every position of a string long enough for the word-at-a-time scan.
// Every byte value at every position of strings of every length the checks read differently
// (byte by byte, in one word, in two overlapping words, a word at a time), in values and in
// dict keys.
TEST(PrinterJson, EveryByteIsEscapedWhereverItStands) {
  struct Input {
    std::string text;
    std::size_t pos;
  };
  std::vector<Input> inputs;
  for (std::size_t len : {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 20, 33}) {
    for (int byte = 0; byte < 256; ++byte) {
      for (std::size_t pos = 0; pos < len; ++pos) {
        inputs.push_back({std::string(len, 'a'), pos});
        inputs.back().text[pos] = static_cast<char>(byte);
      }
    }
  }
  std::string out = render(kFormatJson, [&](rendr::Printer& p, unsigned f) {
    rendr::StringAttrInfo s("s", f);
    rendr::UintAttrInfo i("i", f);
    rendr::Printer::EntryMembers members{s.getArg()};
    p.startList("l");
    for (const Input& in : inputs) {
      s.setValue(in.text);
      p.startListEntry();
      p.addAttributes("", 1, s.getArg());
      p.endListEntry();
    }
    p.endList();
    // Each in a dict of its own: a parser's ordered object finds a key by a linear search.
    p.startList("d");
    for (std::size_t k = 0; k < inputs.size(); ++k) {
      s.setValue(inputs[k].text);
      i.setValue(static_cast<std::uint32_t>(k));
      p.startListEntry();
      p.startDict("e");
      p.startDictEntry(i, members);
      p.endDictEntry();
      p.endDict();
      p.endListEntry();
    }
    p.endList();
  });
  ordered_json doc = parsePretty(out);
  ASSERT_EQ(doc["l"].size(), inputs.size());
  ASSERT_EQ(doc["d"].size(), inputs.size());
  for (std::size_t k = 0; k < inputs.size(); ++k) {
    std::string expected = inputs[k].text;
    const std::size_t pos = inputs[k].pos;
    if (static_cast<unsigned char>(expected[pos]) >= 0x80) expected.replace(pos, 1, "\xef\xbf\xbd");
    ASSERT_EQ(doc["l"][k]["s"], expected)
        << "byte " << int(static_cast<unsigned char>(inputs[k].text[pos])) << " at " << pos;
    ASSERT_EQ(doc["d"][k]["e"][std::to_string(k)]["s"], expected) << k;
  }
}

// Attributes of every kind, with values at their edges and texts that need escaping; set to
// their `row`-th values. The names include one that is not plain.
struct Row {
  explicit Row(unsigned f)
      : key("key", f),
        flag("flag", f),
        word("word", f),
        i32("i32", f),
        u32("u32", f),
        u64("u64", f),
        d("d", f),
        unset("unset", f),
        odd("odd \"name\"\t", f),
        after("after", f) {}
  void set(std::size_t row) {
    static const std::string kKeys[] = {"10.0.0.0/8",          "",
                                        "2001:db8::/32",       "quote\" and \\ and \x01",
                                        std::string(256, 'k'), std::string(257, 'k'),
                                        "bad \xc0\xaf utf-8",  "caf\xc3\xa9"};
    static const std::string kWords[] = {
        "forward", "",     "a \"word\"", std::string(256, 'w'), std::string(300, 'w'),
        "tab\t",   "\xff", "é"};
    static const std::int32_t kInts[] = {0, -1, INT32_MIN, INT32_MAX, 110, -200, 7, 255};
    static const std::uint32_t kUints[] = {0, UINT32_MAX, 1, 10, 100000, 4000000000u, 9, 65535};
    key.setValue(kKeys[row % 8]);
    flag.setValue(row % 2 == 0);
    word.setValue(kWords[row % 8]);
    i32.setValue(kInts[row % 8]);
    u32.setValue(kUints[row % 8]);
    u64.setValue(row % 3 ? UINT64_MAX : 0);
    d.setValue(row % 2 ? 0.5 : std::nan(""));
    odd.setValue(static_cast<std::uint32_t>(row));
    after.setValue(static_cast<std::uint32_t>(row * 3));
  }
  rendr::StringAttrInfo key;
  rendr::BoolAttrInfo flag;
  rendr::StringAttrInfo word;
  rendr::IntAttrInfo i32;
  rendr::UintAttrInfo u32;
  rendr::Uint64AttrInfo u64;
  rendr::DoubleAttrInfo d;
  rendr::StringAttrInfo unset;
  rendr::UintAttrInfo odd;
  rendr::UintAttrInfo after;
};

// Rows in a dict `depth` levels below the root (submodels around it), each opened either with
// its first members in one call or by the generic calls, then another member and a nested
// object after them. The first eight are keyed by texts, the others by numbers.
std::string rows(unsigned format, bool together, unsigned depth,
                 rendr::Printer::EntryMembers* none) {
  return render(format, [&](rendr::Printer& p, unsigned f) {
    Row r(f);
    rendr::UintAttrInfo numberKey("n", f);
    rendr::Printer::EntryMembers members{r.flag.getArg(),  r.word.getArg(), r.i32.getArg(),
                                         r.u32.getArg(),   r.u64.getArg(),  r.d.getArg(),
                                         r.unset.getArg(), r.odd.getArg()};
    for (unsigned level = 0; level < depth; ++level)
      p.startSubmodel("level");
    p.startDict("rows");
    for (std::size_t i = 0; i < 24; ++i) {
      r.set(i);
      numberKey.setValue(static_cast<std::uint32_t>(i));
      const rendr::AttrInfo& key = i < 8 ? *r.key.getArg() : *numberKey.getArg();
      if (i == 7) {
        // An empty run: the entry alone.
        if (together) {
          p.startDictEntry(key, *none);
        } else {
          p.startDictEntry(key);
        }
      } else if (together) {
        p.startDictEntry(key, members);
      } else {
        p.startDictEntry(key);
        p.addAttributesJson(8, r.flag.getArg(), r.word.getArg(), r.i32.getArg(), r.u32.getArg(),
                            r.u64.getArg(), r.d.getArg(), r.unset.getArg(), r.odd.getArg());
      }
      p.addAttributes("%u\n", 1, r.after.getArg());
      p.startSubmodel("nested");
      p.endSubmodel();
      p.endDictEntry();
      p.itemDone();
    }
    p.endDict();
  });
}

// The first members written in one call are the bytes the generic calls write, whatever the
// values (escaping, long text, numbers at their limits, null, NaN), the keys and the depth;
// text writes nothing for them.
TEST(PrinterJson, EntryMembersAreWhatTheGenericCallsWrite) {
  rendr::Printer::EntryMembers none{};
  for (unsigned depth = 0; depth < 12; ++depth) {
    const std::string fast = rows(kFormatJson, true, depth, &none);
    ASSERT_EQ(fast, rows(kFormatJson, false, depth, &none)) << "depth " << depth;
    const ordered_json doc = parsePretty(fast);
    const ordered_json* level = &doc;
    for (unsigned i = 0; i < depth; ++i)
      level = &(*level)["level"];
    EXPECT_EQ((*level)["rows"].size(), 24u);
  }
  EXPECT_EQ(rows(kFormatText, true, 2, &none), rows(kFormatText, false, 2, &none));
  EXPECT_EQ(rows(kFormatText, true, 2, &none).find("odd"), std::string::npos);
}

// One set of members serves entries at several depths, and its entries replay a recording made
// after the members like entries opened by the generic calls.
TEST(PrinterJson, EntryMembersFollowTheDepthAndKeepRecordingsValid) {
  auto doc = [](bool together) {
    return render(kFormatJson, [&](rendr::Printer& p, unsigned f) {
      Row r(f);
      rendr::Printer::EntryMembers members{r.flag.getArg(), r.i32.getArg()};
      std::string kept;
      rendr::Printer::RecordedShape shape;
      const unsigned depths[] = {1, 3, 1, 2};
      for (unsigned k = 0; k < 4; ++k) {
        const unsigned depth = depths[k];
        for (unsigned level = 1; level < depth; ++level)
          p.startSubmodel(("s" + std::to_string(k) + std::to_string(level)).c_str());
        p.startDict(("d" + std::to_string(k)).c_str());
        for (std::size_t i = 0; i < 3; ++i) {
          r.set(i);
          if (together) {
            p.startDictEntry(r.key, members);
          } else {
            p.startDictEntry(r.key);
            p.addAttributesJson(2, r.flag.getArg(), r.i32.getArg());
          }
          if (depth == 1 && i == 0 && kept.empty()) {
            const auto start = p.startRecording();
            p.addAttributesJson(1, r.u32.getArg());
            kept = std::string(*p.finishRecording(start, shape));
          } else if (depth == 1) {
            p.replay(kept, shape);
          }
          p.endDictEntry();
        }
        p.endDict();
        for (unsigned level = 1; level < depth; ++level)
          p.endSubmodel();
      }
    });
  };
  const std::string fast = doc(true);
  EXPECT_EQ(fast, doc(false));
  const ordered_json parsed = parsePretty(fast);
  EXPECT_EQ(parsed["d2"][""], ordered_json::parse(R"({"flag": false, "i32": -1, "u32": 0})"));
  EXPECT_EQ(parsed["s11"]["s12"]["d1"][""], ordered_json::parse(R"({"flag": false, "i32": -1})"));
}

}  // namespace
