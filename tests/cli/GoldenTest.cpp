// Golden tests: every case of tests/golden/cases.txt runs the rova program on the example
// device (or on a hand-written state of tests/golden/states/), and its standard output, standard
// error and exit status must be exactly what the case's files say. JSON output is parsed back as
// well: valid JSON is part of the contract.
//
// After a deliberate change of output, ROVA_UPDATE_GOLDEN=1 rewrites the files; read every
// changed line before committing them.

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "cli/Runner.h"
#include "tests/cli/Capture.h"
#include "tests/support/GoldenCases.h"

namespace {

using Case = rovatest::GoldenCase;
using rovatest::firstDifference;

std::vector<Case> readCases() {
  return rovatest::readGoldenCases(ROVA_GOLDEN_DIR "/cases.txt");
}

std::string readFile(const std::string& path) {
  return rovatest::readText(path);
}

class Golden : public testing::TestWithParam<Case> {};

TEST_P(Golden, OutputIsExactlyTheGoldenFile) {
  const Case& c = GetParam();
  // A word "states/F.json" names a hand-written state of the golden folder.
  std::vector<std::string> words = cli::splitWords(c.command);
  for (std::string& w : words) {
    if (w.rfind("states/", 0) == 0) w = ROVA_GOLDEN_DIR "/" + w;
  }
  const clitest::Captured r = clitest::runProgram(ROVA_PROGRAM, words);
  const std::string outPath = std::string(ROVA_GOLDEN_DIR "/") + c.name + ".out";
  const std::string errPath = std::string(ROVA_GOLDEN_DIR "/") + c.name + ".err";
  if (std::getenv("ROVA_UPDATE_GOLDEN")) {
    std::ofstream(outPath) << r.out;
    if (r.err.empty()) {
      std::remove(errPath.c_str());
    } else {
      std::ofstream(errPath) << r.err;
    }
  }
  EXPECT_EQ(r.status, c.status) << c.command << "\n" << r.err;
  const std::string wantOut = readFile(outPath);
  EXPECT_TRUE(r.out == wantOut) << c.command << "\n" << firstDifference(wantOut, r.out);
  const std::string wantErr = readFile(errPath);
  EXPECT_EQ(r.err, wantErr) << c.command;
  if (c.name.size() > 5 && c.name.compare(c.name.size() - 5, 5, ".json") == 0) {
    nlohmann::json parsed;
    EXPECT_NO_THROW(parsed = nlohmann::json::parse(r.out)) << c.command << "\n" << r.out;
    EXPECT_TRUE(parsed.is_object()) << c.command;
  }
}

INSTANTIATE_TEST_SUITE_P(Commands, Golden, testing::ValuesIn(readCases()),
                         [](const testing::TestParamInfo<Case>& info) {
                           std::string n = info.param.name;
                           for (char& ch : n) {
                             if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
                           }
                           return n;
                         });

}  // namespace
