// Calls out of sequence are assertions in both formats, raised before anything is written,
// so that the output stays valid and a text-only test catches what would break JSON.

#include <gtest/gtest.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/mox/Exception.h"
#include "platform/rendr/Printer.h"
#include "tests/platform/rendr/Capture.h"

namespace {

using rendr::kFormatJson;
using rendr::kFormatText;

struct Misuse {
  const char* what;
  std::function<void(rendr::Printer&, const rendr::AttrInfo& key)> calls;
};

const std::vector<Misuse>& misuses() {
  static const std::vector<Misuse> all = {
      {"endDict with nothing open", [](auto& p, auto&) { p.endDict(); }},
      {"endDict after its dict was closed",
       [](auto& p, auto&) {
         p.startDict("d");
         p.endDict();
         p.endDict();
       }},
      {"endList closing a dict",
       [](auto& p, auto&) {
         p.startDict("d");
         p.endList();
       }},
      {"endSubmodel closing a list entry",
       [](auto& p, auto&) {
         p.startList("l");
         p.startListEntry();
         p.endSubmodel();
       }},
      {"endDictEntry for a simple entry",
       [](auto& p, auto& key) {
         p.startDict("d");
         p.startSimpleDictEntry(key);
         p.endDictEntry();
       }},
      {"startListEntry outside a list", [](auto& p, auto&) { p.startListEntry(); }},
      {"startListEntry in a list entry",
       [](auto& p, auto&) {
         p.startList("l");
         p.startListEntry();
         p.startListEntry();
       }},
      {"startDictEntry outside a dict", [](auto& p, auto& key) { p.startDictEntry(key); }},
      {"startSimpleDictEntry in a list",
       [](auto& p, auto& key) {
         p.startList("l");
         p.startSimpleDictEntry(key);
       }},
      {"a named dict directly in a dict",
       [](auto& p, auto&) {
         p.startDict("d");
         p.startDict("e");
       }},
      {"a submodel directly in a list",
       [](auto& p, auto&) {
         p.startList("l");
         p.startSubmodel("s");
       }},
      {"an attribute directly in a list",
       [](auto& p, auto& key) {
         p.startList("l");
         p.addAttributes("%s", 1, key.getArg());
       }},
      {"a JSON-only attribute directly in a dict",
       [](auto& p, auto& key) {
         p.startDict("d");
         p.addAttributesJson(1, key.getArg());
       }},
      {"two values for a simple entry",
       [](auto& p, auto& key) {
         p.startDict("d");
         p.startSimpleDictEntry(key);
         p.addAttributes("%s", 1, key.getArg());
         p.addAttributes("%s", 1, key.getArg());
       }},
      {"two attributes in one simple entry call",
       [](auto& p, auto& key) {
         p.startDict("d");
         p.startSimpleDictEntry(key);
         p.addAttributes("%s%s", 2, key.getArg(), key.getArg());
       }},
      {"a dict entry keyed by an unset attribute",
       [](auto& p, auto&) {
         rendr::StringAttrInfo unset("k", p.format());
         p.startDict("d");
         p.startDictEntry(unset);
       }},
      {"end twice",
       [](auto& p, auto&) {
         p.end();
         p.end();
       }},
      {"end with a dict open",
       [](auto& p, auto&) {
         p.startDict("d");
         p.end();
       }},
      {"start after output began",
       [](auto& p, auto& key) {
         p.addAttributes("%s", 1, key.getArg());
         p.start();
       }},
      {"attributes after end",
       [](auto& p, auto& key) {
         p.start();
         p.end();
         p.addAttributes("%s", 1, key.getArg());
       }},
      {"a null attribute",
       [](auto& p, auto&) {
         p.addAttributes("%s", 1, static_cast<const rendr::AttrInfo*>(nullptr));
       }},
      {"a negative attribute count", [](auto& p, auto&) { p.addAttributes("", -1); }},
  };
  return all;
}

class PrinterStructure : public ::testing::TestWithParam<unsigned> {};

TEST_P(PrinterStructure, MisuseIsAnAssertionAndTheOutputStaysValid) {
  unsigned format = GetParam();
  for (const Misuse& m : misuses()) {
    rendr::test::Capture cap;
    {
      rendr::Printer p(cap.fd(), format, true, false, true, 0);
      rendr::StringAttrInfo key("key", format);
      key.setValue("k");
      EXPECT_THROW(m.calls(p, key), Mox::InternalException) << m.what;
    }
    if (format == kFormatJson) {
      EXPECT_TRUE(nlohmann::json::accept(cap.contents())) << m.what << cap.contents();
    }
  }
}

TEST_P(PrinterStructure, FramesCloseInTheOrderTheyOpened) {
  unsigned format = GetParam();
  rendr::test::Capture cap;
  rendr::Printer p(cap.fd(), format, true, false, true, 0);
  rendr::StringAttrInfo key("key", format);
  key.setValue("k");
  p.start();
  p.startDict("d");
  p.startDictEntry(key);
  p.startList("l");
  p.startListEntry();
  p.startSubmodel("s");
  EXPECT_THROW(p.endListEntry(), Mox::InternalException);
  p.endSubmodel();
  EXPECT_THROW(p.endList(), Mox::InternalException);
  p.endListEntry();
  p.endList();
  EXPECT_THROW(p.endDict(), Mox::InternalException);
  p.endDictEntry();
  p.endDict();
  p.end();
}

INSTANTIATE_TEST_SUITE_P(BothFormats, PrinterStructure, ::testing::Values(kFormatText, kFormatJson),
                         [](const auto& info) {
                           return info.param == kFormatText ? "Text" : "Json";
                         });

TEST(PrinterStructure, UnknownFormatsAreAssertions) {
  rendr::test::Capture cap;
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
