// Calls out of sequence are assertions in both formats, raised before anything is written,
// so that the output stays valid and a text-only test catches what would break JSON.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <span>
#include <vector>

#include "platform/mox/Exception.h"
#include "platform/rendr/Printer.h"
#include "tests/support/Capture.h"

#include <unistd.h>

#include <string>

namespace {

using rendr::kFormatJson;
using rendr::kFormatText;

struct Keys {
  rendr::StringAttrInfo key, unset;
  explicit Keys(unsigned format) : key("key", format), unset("unset", format) { key.setValue("k"); }
};
using Op = void (*)(rendr::Printer&, Keys&);

// clang-format off
constexpr Op start = [](rendr::Printer& p, Keys&) { p.start(); };
constexpr Op end = [](rendr::Printer& p, Keys&) { p.end(); };
constexpr Op dict = [](rendr::Printer& p, Keys&) { p.startDict("d"); };
constexpr Op endDict = [](rendr::Printer& p, Keys&) { p.endDict(); };
constexpr Op entry = [](rendr::Printer& p, Keys& k) { p.startDictEntry(k.key); };
constexpr Op endEntry = [](rendr::Printer& p, Keys&) { p.endDictEntry(); };
constexpr Op simple = [](rendr::Printer& p, Keys& k) { p.startSimpleDictEntry(k.key); };
constexpr Op list = [](rendr::Printer& p, Keys&) { p.startList("l"); };
constexpr Op endList = [](rendr::Printer& p, Keys&) { p.endList(); };
constexpr Op item = [](rendr::Printer& p, Keys&) { p.startListEntry(); };
constexpr Op endItem = [](rendr::Printer& p, Keys&) { p.endListEntry(); };
constexpr Op sub = [](rendr::Printer& p, Keys&) { p.startSubmodel("s"); };
constexpr Op endSub = [](rendr::Printer& p, Keys&) { p.endSubmodel(); };
constexpr Op attr = [](rendr::Printer& p, Keys& k) { p.addAttributes("%s", 1, k.key.getArg()); };
constexpr Op attrJson = [](rendr::Printer& p, Keys& k) { p.addAttributesJson(1, k.key.getArg()); };
constexpr Op twoAttrs = [](rendr::Printer& p, Keys& k) {
  p.addAttributes("%s%s", 2, k.key.getArg(), k.key.getArg());
};
constexpr Op unsetKeyEntry = [](rendr::Printer& p, Keys& k) { p.startDictEntry(k.unset); };
constexpr Op nullAttr = [](rendr::Printer& p, Keys&) {
  p.addAttributes("%s", 1, static_cast<const rendr::AttrInfo*>(nullptr));
};
// clang-format on

void run(rendr::Printer& p, std::span<const Op> ops) {
  Keys keys(p.format());
  for (Op op : ops)
    op(p, keys);
}

class PrinterStructure : public ::testing::TestWithParam<unsigned> {};

// Each sequence is fine up to its last call, which is the mistake.
TEST_P(PrinterStructure, MisuseIsAnAssertionAndTheOutputStaysValid) {
  const std::vector<std::vector<Op>> misuses = {
      {endDict},                 // nothing open
      {dict, endDict, endDict},  // closed already
      {dict, endList},           // closing the wrong kind
      {list, item, endSub},
      {dict, simple, endEntry},
      {item},  // an entry outside its list
      {list, item, item},
      {entry},
      {list, simple},
      {dict, dict},  // a dict holds only entries
      {list, sub},   // a list holds only entries
      {list, attr},
      {dict, attrJson},
      {dict, simple, attr, attr},  // a simple entry has one value
      {dict, simple, twoAttrs},
      {dict, unsetKeyEntry},
      {end, end},
      {dict, end},
      {attr, start},  // start() once output began
      {start, end, attr},
      {nullAttr},
  };
  for (std::size_t i = 0; i < misuses.size(); ++i) {
    std::span<const Op> ops = misuses[i];
    rovatest::MemoryFile cap;
    {
      rendr::Printer p(cap.fd(), GetParam(), true, false, true, 0);
      ASSERT_NO_THROW(run(p, ops.first(ops.size() - 1))) << "case " << i;
      EXPECT_THROW(run(p, ops.last(1)), Mox::InternalException) << "case " << i;
    }
    if (GetParam() == kFormatJson) {
      EXPECT_TRUE(nlohmann::json::accept(cap.contents())) << "case " << i;
    }
  }
}

TEST_P(PrinterStructure, EveryLevelClosesOnlyItself) {
  rovatest::MemoryFile cap;
  rendr::Printer p(cap.fd(), GetParam(), true, false, true, 0);
  run(p, std::vector{start, dict, entry, list, item, sub});
  for (Op wrong : {endItem, endList, endEntry, endDict, end}) {
    EXPECT_THROW(run(p, std::span(&wrong, 1)), Mox::InternalException);
  }
  EXPECT_NO_THROW(run(p, std::vector{endSub, endItem, endList, endEntry, endDict, end}));
}

TEST_P(PrinterStructure, NestingHasALimit) {
  rovatest::MemoryFile cap;
  unsigned depth = 1;  // the root
  {
    rendr::Printer p(cap.fd(), GetParam(), true, false, true, 0);
    EXPECT_THROW(
        {
          for (; depth < 2 * rendr::Printer::kMaxDepth; ++depth)
            p.startSubmodel("s");
        },
        Mox::InternalException);
  }
  EXPECT_EQ(depth, rendr::Printer::kMaxDepth);
  if (GetParam() == kFormatJson) {
    EXPECT_TRUE(nlohmann::json::accept(cap.contents()));
  }
}

INSTANTIATE_TEST_SUITE_P(BothFormats, PrinterStructure, ::testing::Values(kFormatText, kFormatJson),
                         [](const auto& info) {
                           return info.param == kFormatText ? "Text" : "Json";
                         });

TEST(PrinterStructure, UnknownFormatsAreAssertions) {
  rovatest::MemoryFile cap;
  for (unsigned format : {0u, 3u}) {
    EXPECT_THROW(rendr::Printer(cap.fd(), format, true, false, true, 0), Mox::InternalException);
    rendr::IntAttrInfo i("i", format);
    rendr::StringAttrInfo s("s", format);
    rendr::BoolAttrInfo b("b", format);
    EXPECT_THROW(i.setValue(1), Mox::InternalException);
    EXPECT_THROW(s.setValue("x"), Mox::InternalException);
    EXPECT_THROW(b.setValue(true), Mox::InternalException);
  }
}

}  // namespace

namespace {

// A listing cut short leaves levels open; unwind() closes them so the next listing can go on
// on the same printer, and the document stays valid.
TEST(PrinterUnwind, ClosesWhatAnInterruptedListingLeftOpen) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  {
    rendr::Printer p(fds[1], rendr::kFormatJson);
    rendr::StringAttrInfo key("prefix", rendr::kFormatJson);
    key.setValue("10.0.0.0/8");
    p.startDict("hosts");
    p.startDictEntry(key);
    p.startList("vias");
    p.unwind();
    p.startDict("routes");
    p.endDict();
  }
  close(fds[1]);
  std::string out;
  char buf[4096];
  for (ssize_t n; (n = read(fds[0], buf, sizeof buf)) > 0;)
    out.append(buf, std::size_t(n));
  close(fds[0]);
  EXPECT_EQ(out,
            "{\n  \"hosts\": {\n    \"10.0.0.0/8\": {\n      \"vias\": []\n    }\n  },\n  "
            "\"routes\": {}\n}\n");
}

}  // namespace
