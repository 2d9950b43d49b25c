// Golden tests: every case of tests/golden/cases.txt runs the rova program on the example
// device (or on a hand-written state of tests/golden/states/), and its standard output, standard
// error and exit status must be exactly what the case's files say. JSON output is parsed back as
// well: valid JSON is part of the contract.
//
// After a deliberate change of output, ROVA_UPDATE_GOLDEN=1 rewrites the files; read every
// changed line before committing them.

#include <gtest/gtest.h>

#include <filesystem>
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

// Every JSON golden, of this folder's cases and of the others (the live listings), is one
// document in which no object repeats a key: a reader keeps only one of repeated keys, so such
// an output loses the others whatever reads it. The finder must see a repeated key where there
// is one, or the walk proves nothing.
TEST(GoldenJson, NoObjectRepeatsAKey) {
  EXPECT_EQ(rovatest::repeatedJsonKey(R"({"a": {"b": [{"c": 1, "c": 2}]}})"), "$.a.b[].c");
  EXPECT_EQ(rovatest::repeatedJsonKey(R"({"a": {"c": 1}, "b": {"c": 2}})"), "");
  int files = 0;
  for (const auto& e : std::filesystem::recursive_directory_iterator(ROVA_GOLDEN_DIR)) {
    const std::string name = e.path().filename().string();
    if (!e.is_regular_file() || name.size() < 9 ||
        name.compare(name.size() - 9, 9, ".json.out") != 0)
      continue;
    const std::string text = rovatest::readText(e.path().string());
    if (text.empty()) continue;
    ++files;
    EXPECT_TRUE(nlohmann::json::accept(text)) << e.path();
    EXPECT_EQ(rovatest::repeatedJsonKey(text), "") << e.path();
  }
  EXPECT_GT(files, 40);
}

}  // namespace
