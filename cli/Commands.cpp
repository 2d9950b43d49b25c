#include "cli/Commands.h"

namespace cli {

namespace {

int showVersion(const Match&, const Context& context) {
  context.print("rova " ROVA_VERSION "\n");
  return kStatusOk;
}

}  // namespace

void addCommands(Grammar& grammar) {
  grammar.addKeywordHelp("show", "Show running system information");
  grammar.addRows({
      {"show version", {{"version", "Software version"}}, showVersion},
  });
}

int loadState(const std::string&, const Context&) {
  return kStatusOk;
}

}  // namespace cli
