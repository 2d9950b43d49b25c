// The attribute base is meant to be extended: a subclass shows one thing in text and another
// in JSON. These are written the way the library's own attribute classes are.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "platform/rendr/Printer.h"
#include "tests/support/Capture.h"

namespace {

using rendr::kFormatJson;
using rendr::kFormatText;

// A blank when programmed, "*" when not; the boolean in JSON.
class ProgrammedMark : public rendr::BoolAttrInfo {
 public:
  using BoolAttrInfo::BoolAttrInfo;
  void setValue(bool programmed) {
    requireKnownFormat();
    storeBool(programmed, programmed ? " " : "*");
  }
};

// A code in text, a word in JSON, both from a table.
class TypeCode : public rendr::StringAttrInfo {
 public:
  using StringAttrInfo::StringAttrInfo;
  void setValue(int type) {
    static const char* const kCodes[] = {"C", "S"};
    static const char* const kWords[] = {"connected", "static"};
    requireKnownFormat();
    storeStatic(kWords[type], kCodes[type]);
  }
  // A code formatted in place, like "%c  ".
  void setFormatted(char code) {
    char* buf = textBuffer(3);
    buf[0] = code;
    buf[1] = buf[2] = ' ';
    storeBuffer(3);
  }
};

std::string renderRoute(unsigned format) {
  rovatest::MemoryFile cap;
  {
    rendr::Printer p(cap.fd(), format, true, false, true, 0);
    ProgrammedMark hw("hardwareProgrammed", format);
    TypeCode type("routeType", format);
    TypeCode host("hostType", format);
    rendr::StringAttrInfo prefix("prefix", format);
    p.startDict("routes");
    for (int t : {0, 1}) {
      type.setValue(t);
      hw.setValue(t == 0);
      host.setFormatted(t ? 'S' : 'C');
      prefix.setValue(t ? "10.0.0.0/8" : "10.1.0.0/16");
      p.startDictEntry(prefix);
      p.addAttributes("%s%s %s%s\n", 4, hw.getArg(), type.getArg(), prefix.getArg(), host.getArg());
      p.endDictEntry();
    }
    p.endDict();
  }
  return cap.contents();
}

TEST(AttrInfo, SubclassesShowOneThingInTextAndAnotherInJson) {
  EXPECT_EQ(renderRoute(kFormatText), " C 10.1.0.0/16C  \n*S 10.0.0.0/8S  \n");
  nlohmann::json doc = nlohmann::json::parse(renderRoute(kFormatJson));
  EXPECT_EQ(doc["routes"]["10.1.0.0/16"]["hardwareProgrammed"], true);
  EXPECT_EQ(doc["routes"]["10.0.0.0/8"]["hardwareProgrammed"], false);
  EXPECT_EQ(doc["routes"]["10.1.0.0/16"]["routeType"], "connected");
  EXPECT_EQ(doc["routes"]["10.0.0.0/8"]["routeType"], "static");
  EXPECT_EQ(doc["routes"]["10.0.0.0/8"]["hostType"], "S  ");
}

}  // namespace
