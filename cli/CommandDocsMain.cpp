// rova-docs: writes what is generated from the command table, at build time.
//   rova-docs man USAGE_FILE VERSION   the manual page rova(1), the usage from `rova --help`
//   rova-docs bash                     the bash completion script

#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "cli/CommandDocs.h"
#include "cli/Commands.h"

int main(int argc, char** argv) {
  cli::Grammar grammar;
  cli::addCommands(grammar);
  const std::string what = argc > 1 ? argv[1] : "";
  try {
    if (what == "man" && argc == 4) {
      std::ifstream in(argv[2]);
      std::stringstream usage;
      usage << in.rdbuf();
      std::cout << cli::manPage(grammar, usage.str(), argv[3]);
      return 0;
    }
    if (what == "bash" && argc == 2) {
      std::cout << cli::bashCompletion(grammar);
      return 0;
    }
  } catch (const std::exception& e) {
    std::cerr << "rova-docs: " << e.what() << "\n";
    return 1;
  }
  std::cerr << "usage: rova-docs man USAGE_FILE VERSION | rova-docs bash\n";
  return 2;
}
