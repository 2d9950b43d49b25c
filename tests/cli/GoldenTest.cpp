// Golden tests: every case of tests/golden/cases.txt runs the rova program on the example
// device (or on a hand-written state of tests/golden/states/), and its standard output, standard
// error and exit status must be exactly what the case's files say. JSON output is parsed back as
// well: valid JSON is part of the contract.
//
// After a deliberate change of output, ROVA_UPDATE_GOLDEN=1 rewrites the files; read every
// changed line before committing them.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli/Runner.h"
#include "tests/cli/Capture.h"
#include "tests/support/GoldenCases.h"

namespace {

using Case = rovatest::GoldenCase;

class Golden : public testing::TestWithParam<Case> {};

TEST_P(Golden, OutputIsExactlyTheGoldenFile) {
  const Case& c = GetParam();
  // A word "states/F.json" names a hand-written state of the golden folder.
  std::vector<std::string> words = cli::splitWords(c.command);
  for (std::string& w : words) {
    if (w.rfind("states/", 0) == 0) w = ROVA_GOLDEN_DIR "/" + w;
  }
  const clitest::Captured r = clitest::runProgram(ROVA_PROGRAM, words);
  rovatest::expectGolden(ROVA_GOLDEN_DIR, c, r.status, r.out, r.err);
}

INSTANTIATE_TEST_SUITE_P(Commands, Golden,
                         testing::ValuesIn(rovatest::readGoldenCases(ROVA_GOLDEN_DIR "/cases.txt")),
                         rovatest::goldenTestName);

}  // namespace
