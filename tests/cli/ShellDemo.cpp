// The shell over the demo table, for the tests that drive it through a pseudo-terminal.

#include <clocale>

#include "cli/Shell.h"
#include "tests/cli/DemoGrammar.h"

int main() {
  std::setlocale(LC_CTYPE, "");
  cli::Grammar grammar;
  clitest::addDemoCommands(grammar);
  return cli::Shell(grammar, cli::Context{}).run();
}
