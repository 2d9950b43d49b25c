#pragma once
// A copy of the example device's state in a fresh temporary directory, removed after the test
// whatever its outcome: for tests that change a state file or write beside it.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/GoldenCases.h"

namespace clitest {

class ExampleStateFile : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/rova-state-XXXXXX";
    ASSERT_NE(::mkdtemp(name), nullptr);
    dir_ = name;
    file_ = dir_ + "/state.json";
    example_ = rovatest::readText(ROVA_EXAMPLE);
    std::ofstream(file_) << example_;
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  std::string dir_, file_, example_;
};

}  // namespace clitest
