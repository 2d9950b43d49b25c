#include "cli/Shell.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tests/cli/Capture.h"
#include "tests/cli/DemoGrammar.h"

namespace {

using testing::ElementsAre;

class ShellLines : public testing::Test {
 protected:
  ShellLines() { clitest::addDemoCommands(g); }

  // Runs the shell over `input` as a file that is not a terminal.
  clitest::Captured session(std::string input, bool keepGoing = false) {
    return clitest::capture([&](const cli::Context& c) {
      std::FILE* in = fmemopen(input.data(), input.size(), "r");
      cli::Shell shell(g, c, in);
      shell.keepGoingIs(keepGoing);
      int status = shell.run();
      std::fclose(in);
      return status;
    });
  }

  cli::Grammar g;
};

TEST_F(ShellLines, StopsAtTheFirstFailingCommandWithItsStatus) {
  const std::string script =
      "show version\n\n   \nsh ip ro vrf red json\nshow bogus\nshow version\n";
  clitest::Captured r = session(script);
  EXPECT_EQ(r.out, "demo 1.0\nroute NAME=red json\n");
  EXPECT_EQ(r.err,
            "line 5: % Invalid input at 'bogus'\n"
            "% 1 of 5 lines refused; the run stopped at line 5\n");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(session("fail\nshow version\n").out, "");
  EXPECT_EQ(session("show version\nfail\n").status, 1);
}

// --keep-going runs every line, but a script that had a refusal does not end as if it had
// none: its status is the first refusal's, and a summary counts the refused lines.
TEST_F(ShellLines, KeepGoingRunsEveryLineAndEndsWithTheFirstFailure) {
  clitest::Captured r =
      session("show version\n\n   \nsh ip ro vrf red json\nshow bogus\nfail\nshow version\n", true);
  EXPECT_EQ(r.out, "demo 1.0\nroute NAME=red json\ndemo 1.0\n");
  EXPECT_EQ(r.err,
            "line 5: % Invalid input at 'bogus'\n"
            "line 6: % the check refused\n"
            "% 2 of 7 lines refused, the first at line 5\n");
  EXPECT_EQ(r.status, 2);

  clitest::Captured clean = session("show version\nshow version\n", true);
  EXPECT_EQ(clean.status, 0);
  EXPECT_EQ(clean.err, "");
  EXPECT_EQ(session("show version\nfail\nshow version\n", true).status, 1);
  // The last line counts even without its newline.
  clitest::Captured unterminated = session("show version\nshow bogus", true);
  EXPECT_EQ(unterminated.status, 2);
  EXPECT_EQ(unterminated.err,
            "line 2: % Invalid input at 'bogus'\n"
            "% 1 of 2 lines refused, the first at line 2\n");
}

TEST_F(ShellLines, ExitAndQuitStopReading) {
  EXPECT_EQ(session("show version\nexit\nshow version\n").out, "demo 1.0\n");
  clitest::Captured r = session("fail\n QUIT \nshow version\n");
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.status, 1);
}

class TabKey : public testing::Test {
 protected:
  TabKey() { clitest::addDemoCommands(g); }

  cli::TabAction tab(std::string_view line) {
    cli::TypedLine t = cli::splitTypedLine(line);
    return cli::tabAction(g.complete(t.words, t.partial), t.partial);
  }

  cli::Grammar g;
};

TEST_F(TabKey, UniqueKeywordCompletesWithABlank) {
  EXPECT_EQ(tab("sh").replacement, "show ");
  EXPECT_EQ(tab("SH").replacement, "show ");
  EXPECT_EQ(tab("show in").replacement, "interfaces ");
  EXPECT_EQ(tab("show ip route con").replacement, "connected ");
  EXPECT_EQ(tab("show ip route j").replacement, "json ");
  EXPECT_FALSE(tab("sh").list);
}

TEST_F(TabKey, SeveralCandidatesAreListed) {
  cli::TabAction a = tab("show i");
  EXPECT_TRUE(a.list);
  EXPECT_EQ(a.replacement, "i");
  // json alone is not forced on a command that may already end.
  cli::TabAction b = tab("show version ");
  EXPECT_TRUE(b.list);
  EXPECT_EQ(b.replacement, "");
  // A placeholder cannot be completed, only shown.
  cli::TabAction c = tab("show ip route vrf ");
  EXPECT_TRUE(c.list);
  EXPECT_EQ(c.replacement, "");
}

TEST_F(TabKey, NothingPossibleBeeps) {
  EXPECT_TRUE(tab("show ip route x").beep);
  EXPECT_TRUE(tab("show bogus ").beep);
}

TEST(TabKeyPrefix, SharedBeginningIsFilledIn) {
  cli::Grammar g;
  auto none = [](const cli::Match&, const cli::Context&) { return 0; };
  g.addRows({{"interval", {}, none}, {"interfaces", {}, none}});
  std::vector<std::string> words;
  cli::TabAction a = cli::tabAction(g.complete(words, "i"), "i");
  EXPECT_EQ(a.replacement, "inter");
  EXPECT_TRUE(a.list);
}

TEST(Listings, HelpIsAlignedRouterStyle) {
  cli::Grammar g;
  clitest::addDemoCommands(g);
  std::vector<std::string> words = {"show", "interfaces"};
  EXPECT_EQ(cli::helpListing(g.complete(words, "")),
            "  NAME  Name\n"
            "  json  Produce JSON output\n"
            "  <cr>\n");
  words = {"show", "bogus"};
  EXPECT_EQ(cli::helpListing(g.complete(words, "")), "% Invalid input at 'bogus'\n");
}

TEST(Listings, WordsWrapIntoColumnsThatFit) {
  using K = cli::Candidate::Kind;
  std::vector<cli::Candidate> c = {
      {K::keyword, "connected", ""}, {K::keyword, "detail", ""}, {K::keyword, "dhcp", ""}};
  EXPECT_EQ(cli::wordListing(c, 25), "connected  detail\ndhcp\n");
  EXPECT_EQ(cli::wordListing(c, 5), "connected\ndetail\ndhcp\n");
}

}  // namespace
