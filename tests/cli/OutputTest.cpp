// The one policy of a command's output: every way a command ends leaves exactly one document in
// JSON, a stop is said where the listing was cut, and a failure after the listing began adds
// nothing to it.
#include "cli/Output.h"

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "platform/mox/Exception.h"
#include "tests/cli/Capture.h"

namespace {

using cli::Output;

// One short listing: "name: x" in text, {"name": "x"} in JSON.
void line(rendr::Printer& p) {
  rendr::StringAttrInfo name("name", p.format());
  name.setValue("x");
  p.addAttributes("name: %s\n", 1, name.getArg());
}

class CommandOutput : public testing::Test {
 protected:
  CommandOutput() {
    const auto row = [](const char* syntax, cli::OutputAction action) {
      return cli::Row{syntax, {}, cli::oneDocument(std::move(action))};
    };
    g.addRows({
        row("refuse",
            [](const cli::Match&, const cli::Context& c, Output&) {
              c.error("% no such VRF");
              return cli::kStatusFailed;
            }),
        row("throw",
            [](const cli::Match&, const cli::Context&, Output&) -> int {
              throw Mox::RangeException("bad value");
            }),
        row("verdict",
            [](const cli::Match&, const cli::Context&, Output& out) {
              out.print(line);
              return cli::kStatusFailed;  // a check that refuses, after saying so
            }),
        row("fail-late",
            [](const cli::Match&, const cli::Context&, Output& out) -> int {
              out.print(line);
              throw Mox::RangeException("after the listing");
            }),
        row("stop",
            [](const cli::Match&, const cli::Context&, Output& out) {
              return out.print([](rendr::Printer& p) {
                line(p);
                p.addFrills("partial");
                throw rendr::sigintException(SIGINT);
              });
            }),
        row("library-stop",
            [](const cli::Match&, const cli::Context&, Output& out) {
              return out.library([] { throw rendr::outputClosedException(); });
            }),
        row("nothing",
            [](const cli::Match&, const cli::Context&, Output& out) { return out.nothing(); }),
    });
  }

  clitest::Captured run(const char* line) {
    std::vector<std::string> words = cli::splitWords(line);
    return clitest::capture([&](const cli::Context& c) { return cli::runCommand(g, words, c); });
  }

  cli::Grammar g;
};

TEST_F(CommandOutput, AFailureBeforeTheListingLeavesTheEmptyDocument) {
  for (const char* line : {"refuse json", "throw json", "nothing json"}) {
    EXPECT_EQ(run(line).out, "{}\n") << line;
  }
  const auto refused = run("refuse");
  EXPECT_EQ(refused.status, cli::kStatusFailed);
  EXPECT_EQ(refused.out, "");
  EXPECT_EQ(refused.err, "% no such VRF\n");
  const auto thrown = run("throw");
  EXPECT_EQ(thrown.status, cli::kStatusFailed);
  EXPECT_EQ(thrown.err, "% bad value\n");
}

TEST_F(CommandOutput, AFailureAfterTheListingBeganAddsNothingToIt) {
  const auto verdict = run("verdict json");
  EXPECT_EQ(verdict.status, cli::kStatusFailed);
  EXPECT_EQ(verdict.out, "{\n  \"name\": \"x\"\n}\n");
  const auto late = run("fail-late json");
  EXPECT_EQ(late.status, cli::kStatusFailed);
  EXPECT_EQ(late.out, "{\n  \"name\": \"x\"\n}\n");
  EXPECT_EQ(late.err, "% after the listing\n");
}

TEST_F(CommandOutput, AStopIsSaidWhereTheListingWasCutAndFailsNothing) {
  const auto text = run("stop");
  EXPECT_EQ(text.status, cli::kStatusOk);
  EXPECT_EQ(text.out, "name: x\npartial\nexiting on user interrupt\n");
  EXPECT_EQ(text.err, "");
  // The JSON document is closed; the reason goes to the process's stderr, not the document.
  EXPECT_EQ(run("stop json").out, "{\n  \"name\": \"x\"\n}\n");
  // A library object said it itself: nothing more is written.
  const auto library = run("library-stop json");
  EXPECT_EQ(library.status, cli::kStatusOk);
  EXPECT_EQ(library.out, "");
  EXPECT_EQ(library.err, "");
}

}  // namespace
