// Output filters: how a line is split into command and filters, what each filter lets
// through, expressions refused with the place of their fault, and compact JSON.

#include "cli/Filters.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using cli::LineFilterChain;
using cli::splitFilters;

std::string filtered(const std::vector<std::string>& line, const std::string& text,
                     std::size_t chunk = 3) {
  cli::FilterSplit split = splitFilters(line);
  EXPECT_EQ(split.error, "");
  LineFilterChain chain(split.filters);
  std::string out;
  // Bytes arrive in pieces that cut lines anywhere.
  for (std::size_t i = 0; i < text.size(); i += chunk)
    out += chain.feed(std::string_view(text).substr(i, chunk));
  return out + chain.finish();
}

const std::string kPage =
    "Codes: C - connected\n"
    " C      10.1.1.0/31 is directly connected, Ethernet1\n"
    " O      10.5.0.0/24 [110/20] via 10.1.1.1, Ethernet1\n"
    "                             via 10.1.2.1, Ethernet2\n"
    " B E    10.6.0.0/16 [200/0] via 10.1.2.1, Ethernet2\n"
    "                            via 10.1.3.1, Ethernet3\n";

TEST(Filters, EachFilterOnThePage) {
  EXPECT_EQ(filtered({"x", "|", "include", "Ethernet2"}, kPage),
            "                             via 10.1.2.1, Ethernet2\n"
            " B E    10.6.0.0/16 [200/0] via 10.1.2.1, Ethernet2\n");
  EXPECT_EQ(filtered({"x", "|", "exclude", "via", "10\\.1\\.[23]"}, kPage),
            "Codes: C - connected\n"
            " C      10.1.1.0/31 is directly connected, Ethernet1\n"
            " O      10.5.0.0/24 [110/20] via 10.1.1.1, Ethernet1\n");
  EXPECT_EQ(filtered({"x", "|", "begin", "^ O"}, kPage), kPage.substr(kPage.find(" O")));
  // A section is the matching line and the lines indented below it, until one is not.
  EXPECT_EQ(filtered({"x", "|", "section", "^ O"}, kPage),
            " O      10.5.0.0/24 [110/20] via 10.1.1.1, Ethernet1\n"
            "                             via 10.1.2.1, Ethernet2\n");
  EXPECT_EQ(filtered({"x", "|", "count"}, kPage), "Count: 6 lines\n");
  EXPECT_EQ(filtered({"x", "|", "count"}, ""), "Count: 0 lines\n");
  // Chained, each on what the one before let through; abbreviated as keywords are.
  EXPECT_EQ(filtered({"x", "|", "inc", "Ethernet", "|", "e", "via", "|", "cou"}, kPage),
            "Count: 1 line\n");
  // The last line without its newline is still a line.
  EXPECT_EQ(filtered({"x", "|", "include", "b"}, "a\nb"), "b");
}

TEST(Filters, TheCommandAndTheFormatWords) {
  cli::FilterSplit none = splitFilters(std::vector<std::string>{"show", "ip", "route"});
  EXPECT_EQ(none.command, (std::vector<std::string>{"show", "ip", "route"}));
  EXPECT_FALSE(none.filters.transforms());
  cli::FilterSplit json = splitFilters(std::vector<std::string>{"show", "version", "|", "json"});
  EXPECT_EQ(json.command, (std::vector<std::string>{"show", "version"}));
  EXPECT_TRUE(json.filters.json);
  EXPECT_FALSE(json.filters.transforms());
  cli::FilterSplit compact = splitFilters(std::vector<std::string>{"show", "version", "|", "comp"});
  EXPECT_TRUE(compact.filters.compact);
  EXPECT_TRUE(compact.filters.transforms());
}

TEST(Filters, RefusalsSayWhatIsWrong) {
  const auto error = [](std::vector<std::string> line) { return splitFilters(line).error; };
  EXPECT_EQ(error({"show", "|"}),
            "% Incomplete filter after '|' (include, exclude, begin, section, count, json)");
  EXPECT_EQ(error({"|", "count"}), "% A filter follows a command: COMMAND | include RE");
  EXPECT_EQ(error({"show", "|", "grep", "x"}), "% Unknown filter 'grep'");
  EXPECT_EQ(error({"show", "|", "c"}), "% Ambiguous filter 'c'");
  EXPECT_EQ(error({"show", "|", "include"}), "% The filter 'include' needs a regular expression");
  EXPECT_EQ(error({"show", "|", "count", "x"}), "% The filter 'count' takes nothing after it");
  EXPECT_EQ(error({"show", "|", "include", "a", "(b"}),
            "% Invalid regular expression 'a (b' at position 3: '(' without ')'");
}

TEST(Filters, BadExpressionsAreRefusedWithTheirPosition) {
  const std::pair<const char*, const char*> cases[] = {
      {"ab)", "at position 3: ')' without '('"},
      {"(a(b)", "at position 1: '(' without ')'"},
      {"*a", "at position 1: nothing to repeat before '*'"},
      {"a|+", "at position 3: nothing to repeat before '+'"},
      {"a**", "at position 3: nothing to repeat before '*'"},
      {"x[abc", "at position 2: '[' without ']'"},
      {"[z-a]", "at position 2: range out of order in '[...]'"},
      {"a{2,1}", "at position 2: '{n,m}' with m below n"},
      {"a{x}", "at position 2: '{' is not a count '{n,m}'"},
      {"ab\\", "at position 3: '\\' at the end of the expression"},
      {"(?<a)", "at position 2: unknown group '(?<'"},
  };
  for (const auto& [re, fault] : cases) {
    const std::string message = cli::regexError(re);
    EXPECT_NE(message.find(fault), std::string::npos) << re << ": " << message;
    EXPECT_EQ(message.rfind("% Invalid regular expression ", 0), 0u) << message;
  }
  // Expressions of every kind the filters are used with pass.
  for (const char* re : {"^ B E", "via 10\\.1\\.1\\.1$", "Ethernet[1-3]", "(a|b)+?", "x{2,}",
                         "\\d{1,3}", "[]a]", "(?:ab)*", "a|b|"}) {
    EXPECT_EQ(cli::regexError(re), "") << re;
  }
}

TEST(Filters, CompactJsonKeepsStringsWhole) {
  cli::JsonCompactor c;
  std::string out = c.feed("{\n  \"a b\": \"x \\\" y\",\n  \"l\": [\n    1,\n    2\n  ]\n}\n");
  out += c.finish();
  EXPECT_EQ(out, "{\"a b\":\"x \\\" y\",\"l\":[1,2]}\n");
  cli::JsonCompactor empty;
  EXPECT_EQ(empty.feed("") + empty.finish(), "");
}

}  // namespace
