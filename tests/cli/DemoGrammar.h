#pragma once
// A small command table shaped like the real one, for the shell tests and the demo program
// they drive through a terminal.

#include <string_view>

#include "cli/Grammar.h"

namespace clitest {

bool isIpv4Address(std::string_view word);
bool isIpv4Prefix(std::string_view word);

void addDemoCommands(cli::Grammar& grammar);

}  // namespace clitest
