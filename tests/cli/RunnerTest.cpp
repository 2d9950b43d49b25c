#include "cli/Runner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <string>
#include <tuple>
#include <vector>

#include "platform/mox/Exception.h"
#include "tests/cli/Capture.h"

namespace {

using clitest::capture;
using testing::ElementsAre;

// A table whose actions fail in every way an action can.
class FailingActions : public testing::Test {
 protected:
  FailingActions() {
    g.addRows({
        {"internal",
         {},
         [](const cli::Match&, const cli::Context&) -> int {
           MOX_ASSERT(1 + 1 == 3);
           return 0;
         }},
        {"range",
         {},
         [](const cli::Match&, const cli::Context&) -> int {
           throw Mox::RangeException("VrfName::bytes > 100 not allowed");
         }},
        {"other",
         {},
         [](const cli::Match&, const cli::Context&) -> int {
           throw std::out_of_range("no such FEC");
         }},
        {"foreign", {}, [](const cli::Match&, const cli::Context&) -> int { throw 42; }},
        {"memory",
         {},
         [](const cli::Match&, const cli::Context&) -> int { throw std::bad_alloc(); }},
        {"refuse",
         {},
         [](const cli::Match& m, const cli::Context& c) {
           c.print(m.format() == cli::Format::json ? "{}\n" : "refused\n");
           c.error("% the address overlaps Ethernet1");
           return cli::kStatusFailed;
         }},
    });
  }

  clitest::Captured run(const char* line) {
    std::vector<std::string> words = cli::splitWords(line);
    return capture([&](const cli::Context& c) { return cli::runCommand(g, words, c); });
  }

  cli::Grammar g;
};

// A broken invariant, or anything that is no exception, is internal (status 70) and says so;
// range and other errors show their own text (status 1). Nothing goes to standard output.
TEST_F(FailingActions, EachKindOfFailureHasItsStatusAndMessage) {
  const std::tuple<const char*, int, const char*> cases[] = {
      {"internal", 70, "% Internal error: 1 + 1 == 3\n"},
      {"foreign", 70, "% Internal error: unknown exception\n"},
      {"range", 1, "% VrfName::bytes > 100 not allowed\n"},
      {"other", 1, "% no such FEC\n"},
      // The machine, not the program, ran out: said as such, with its own status.
      {"memory", 71, "% Out of memory\n"},
  };
  for (const auto& [line, status, err] : cases) {
    clitest::Captured r = run(line);
    EXPECT_EQ(r.status, status) << line;
    EXPECT_EQ(r.err, err);
    EXPECT_EQ(r.out, "");
  }
}

TEST_F(FailingActions, ActionStatusAndOutputPassThrough) {
  clitest::Captured r = run("ref json");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "{}\n");
  EXPECT_EQ(r.err, "% the address overlaps Ethernet1\n");
}

TEST_F(FailingActions, UnmatchedLineIsAUsageErrorAndRunsNothing) {
  clitest::Captured r = run("internal now");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err, "% Invalid input at 'now'\n");
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(run("").err, "% Incomplete command\n");
}

// In JSON mode every failure leaves one document on standard output, a refused line too, so
// that `| jq` never reads nothing.
TEST_F(FailingActions, ARefusedLineInJsonModeWritesAnEmptyDocument) {
  for (const char* line : {"internal now json", "json", "bogus json", "ref json json now"}) {
    clitest::Captured r = run(line);
    EXPECT_EQ(r.status, 2) << line;
    EXPECT_EQ(r.out, "{}\n") << line;
    EXPECT_EQ(r.err.rfind("% ", 0), 0u) << line;
  }
}

TEST(SplitWords, BlanksOfAnyKindSeparateAndVanish) {
  EXPECT_THAT(cli::splitWords("  show\tip  route \r\n"), ElementsAre("show", "ip", "route"));
  EXPECT_TRUE(cli::splitWords(" \t\n").empty());
  // Quotes keep blanks inside one word and are not part of it.
  EXPECT_THAT(cli::splitWords("show value \"Value('A', ** {'x': 1})\" json"),
              ElementsAre("show", "value", "Value('A', ** {'x': 1})", "json"));
  EXPECT_THAT(cli::splitWords("a\"b c\"d \"\""), ElementsAre("ab cd", ""));
}

}  // namespace
