// The attribute list of a class gives its text form, its parser and its equality. Two small
// value types of the tests' own prove it; the library's types use the same mechanism, and the
// registry's tests show access by name through it.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "platform/mox/Attribute.h"
#include "platform/mox/Dir.h"
#include "platform/mox/TextForm.h"

namespace Demo {

enum class Shade : std::uint8_t { light, dark };
inline const char* moxEnumName(Shade s) {
  return s == Shade::light ? "light" : "dark";
}
inline bool moxEnumFromName(std::string_view n, Shade& s) {
  if (n == "light")
    s = Shade::light;
  else if (n == "dark")
    s = Shade::dark;
  else
    return false;
  return true;
}

#define DEMO_SAMPLE_ATTRS(F, C)                                \
  F(packets, Packets, std::uint64_t, Mox::AttrKind::value, {}) \
  F(ratio, Ratio, double, Mox::AttrKind::value, {0.5})         \
  F(small, Small, std::uint8_t, Mox::AttrKind::value, {})      \
  F(delta, Delta, std::int32_t, Mox::AttrKind::value, {})

class Sample {
  MOX_VALUE_TYPE(Sample, "Demo::Sample", DEMO_SAMPLE_ATTRS)
};

using TagSet = Mox::OrderedSet<Mox::String8>;
#define DEMO_RESULT_ATTRS(F, C)                                   \
  F(acceptable, Acceptable, bool, Mox::AttrKind::value, {})       \
  F(msg, Msg, Mox::String8, Mox::AttrKind::value, {})             \
  F(shade, Shade, Demo::Shade, Mox::AttrKind::value, {})          \
  F(sample, Sample, Demo::Sample, Mox::AttrKind::value, {})       \
  F(dir, Dir, Mox::Ptr<Mox::Dir const>, Mox::AttrKind::input, {}) \
  C(tag, Tag, TagSet)

class Result {
  MOX_VALUE_TYPE(Result, "Demo::Result", DEMO_RESULT_ATTRS)
};

}  // namespace Demo

namespace {

using Demo::Result;
using Demo::Sample;

TEST(AttributeList, WritesTheValueTextForm) {
  Sample s;
  s.packetsIs(1);
  s.deltaIs(-7);
  EXPECT_EQ(Mox::textOf(s),
            "Value('Demo::Sample', ** {'packets': 1, 'ratio': 0.5, 'small': 0, 'delta': -7})");

  Result r;
  r.acceptableIs(true);
  r.msgIs("it's");
  r.shadeIs(Demo::Shade::dark);
  r.sampleIs(s);
  r.tagIs("t", true);  // collections are not carried in the text form
  EXPECT_EQ(Mox::textOf(r),
            "Value('Demo::Result', ** {'acceptable': True, 'msg': \"it's\", 'shade': 'dark', "
            "'sample': Value('Demo::Sample', ** {'packets': 1, 'ratio': 0.5, 'small': 0, "
            "'delta': -7}), 'dir': None, 'tag': None})");
}

TEST(AttributeList, ParsesWhatItWritesAndComparesByAttribute) {
  Result r;
  r.acceptableIs(true);
  r.msgIs("line\nbreak");
  Sample s;
  s.packetsIs(18446744073709551615ull);
  s.ratioIs(1e16);
  r.sampleIs(s);
  const std::string text = Mox::textOf(r);
  Result back = Mox::valueFromText<Result>(text);
  EXPECT_EQ(back, r);
  EXPECT_EQ(Mox::textOf(back), text);

  back.sampleIs(Sample{});
  EXPECT_NE(back, r);
}

TEST(AttributeList, RefusesTextThatDoesNotMatch) {
  const std::string good = Mox::textOf(Sample{});
  // A missing separator, a wrong type name, trailing text, an unterminated value.
  for (std::string bad : {
           std::string("Value('Demo::Sample', ** {'packets': 0 'ratio': 0.5, 'small': 0, "
                       "'delta': 0})"),
           std::string("Value('Demo::Other', ** {})"),
           good + " ",
           good.substr(0, good.size() - 2),
       }) {
    EXPECT_THROW(Mox::valueFromText<Sample>(bad), Mox::RangeException) << bad;
  }
}

TEST(AttributeList, ParseErrorsNameTheAttribute) {
  try {
    Mox::valueFromText<Sample>(
        "Value('Demo::Sample', ** {'packets': 1, 'ratio': 0.5, 'small': 256, 'delta': 0})");
    FAIL() << "an 8-bit field took 256";
  } catch (const Mox::RangeException& e) {
    EXPECT_EQ(std::string(e.what()), "attribute 'small': integer 256 out of range");
  }
  try {
    Mox::valueFromText<Result>(
        "Value('Demo::Result', ** {'acceptable': Maybe, 'msg': '', 'shade': 'light', "
        "'sample': None, 'dir': None, 'tag': None})");
    FAIL();
  } catch (const Mox::RangeException& e) {
    EXPECT_EQ(std::string(e.what()).rfind("attribute 'acceptable': expected True or False", 0), 0u)
        << e.what();
  }
}

TEST(AttributeList, HandlesResolveThroughTheStatePath) {
  auto dir = Mox::makePtr<Mox::Dir>();
  dir->pathIs("ip/rdInput");
  Mox::ptrResolverIs([&](std::string_view type, std::string_view path) -> Mox::Ptr<Mox::Entity> {
    if (type == "Mox::Dir" && path == "ip/rdInput") return dir;
    return nullptr;
  });
  Result r;
  r.dirIs(dir);
  const std::string text = Mox::textOf(r);
  EXPECT_NE(text.find("'dir': Ptr('Mox::Dir', 'ip/rdInput')"), std::string::npos) << text;
  EXPECT_EQ(Mox::valueFromText<Result>(text).dir(), dir);

  std::string missing = text;
  missing.replace(missing.find("ip/rdInput"), 10, "ip/nothing");
  EXPECT_THROW(Mox::valueFromText<Result>(missing), Mox::RangeException);
  Mox::ptrResolverIs(nullptr);
}

}  // namespace
