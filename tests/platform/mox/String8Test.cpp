#include "platform/mox/String8.h"

#include <gtest/gtest.h>

#include "platform/mox/Exception.h"

namespace {

using Mox::String8;

TEST(String8, TextFormQuotesLikePython) {
  EXPECT_EQ(String8("x").textForm(), "'x'");
  EXPECT_EQ(String8("").textForm(), "''");
  EXPECT_EQ(String8("it's").textForm(), "\"it's\"");
  EXPECT_EQ(String8("say \"hi\" it's").textForm(), "'say \"hi\" it\\'s'");
  EXPECT_EQ(String8("a\\b\n\t\x01").textForm(), "'a\\\\b\\n\\t\\x01'");
}

TEST(String8, TextFormRoundTrips) {
  for (const char* s : {"", "x", "it's", "both ' and \"", "tab\tnew\nline\\", "\x7f\x02"}) {
    std::string text = String8(s).textForm() + ", rest";
    std::string_view in = text;
    EXPECT_EQ(String8::parseTextForm(in), String8(s)) << text;
    EXPECT_EQ(in, ", rest");
  }
}

TEST(String8, ParseRefusesBadText) {
  for (const char* bad : {"abc", "'unterminated", "'bad \\q escape'", "'\\x4'"}) {
    std::string_view in = bad;
    EXPECT_THROW(String8::parseTextForm(in), Mox::RangeException) << bad;
  }
}

}  // namespace
