// rova: one command from the command line, or an interactive shell when none is given.

#include <clocale>
#include <cstdio>
#include <exception>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "cli/Command.h"
#include "cli/Commands.h"
#include "cli/ConfigMode.h"
#include "cli/Grammar.h"
#include "cli/LiveMode.h"
#include "cli/Shell.h"
#include "platform/mox/Trace.h"

namespace {

constexpr const char* kUsage =
    "usage: rova [--state FILE] [--live] [--trace] [--keep-going] [COMMAND...]\n"
    "\n"
    "Runs one command, for example 'rova show ip route vrf red json', or an interactive\n"
    "shell when no command is given.\n"
    "\n"
    "  --state FILE  the device state to show (default: the built-in example)\n"
    "  --live        the routing state of this machine's Linux kernel, read now\n"
    "  --trace       write maintainers' trace messages to stderr\n"
    "  --keep-going  commands read from a pipe go on after one fails\n"
    "  --help        show this text\n";

struct Options {
  std::string statePath;
  bool live = false;
  std::vector<std::string> command;
  bool keepGoing = false;
};

// Options come before the command only, so that a command word can never be taken for one.
// Returns -1 to go on, or the exit status to leave with.
int parseOptions(int argc, char** argv, Options& options) {
  int i = 1;
  for (; i < argc; ++i) {
    std::string_view arg = argv[i];
    if (arg == "--") {
      ++i;
      break;
    }
    if (arg.substr(0, 2) != "--") break;
    if (arg == "--help") {
      std::fputs(kUsage, stdout);
      return cli::kStatusOk;
    }
    if (arg == "--keep-going") {
      options.keepGoing = true;
    } else if (arg == "--trace") {
      Mox::TraceHandle::levelIs(std::numeric_limits<int>::max());
    } else if (arg == "--live") {
      options.live = true;
    } else if (arg == "--state" && i + 1 < argc) {
      options.statePath = argv[++i];
    } else if (arg.substr(0, 8) == "--state=") {
      options.statePath = arg.substr(8);
    } else {
      std::fprintf(stderr, "rova: %s '%s'\n%s",
                   arg == "--state" ? "missing file after" : "unknown option", argv[i], kUsage);
      return cli::kStatusUsage;
    }
  }
  if (options.live && !options.statePath.empty()) {
    std::fprintf(stderr, "rova: --live and --state name two states; give one\n%s", kUsage);
    return cli::kStatusUsage;
  }
  options.command.assign(argv + i, argv + argc);
  return -1;
}

}  // namespace

int main(int argc, char** argv) {
  // libedit decodes typed characters in the user's locale.
  std::setlocale(LC_CTYPE, "");
  Options options;
  if (int status = parseOptions(argc, argv, options); status >= 0) return status;
  try {
    cli::Grammar grammar;
    cli::addCommands(grammar);
    cli::Context context;
    const int loaded = options.live ? cli::startLiveMode(grammar, context)
                                    : cli::loadState(options.statePath, context);
    if (loaded != cli::kStatusOk) return loaded;
    if (options.command.empty()) {
      cli::Shell shell(grammar, context);
      shell.modesIs(cli::shellModes(grammar));
      shell.keepGoingIs(options.keepGoing);
      return shell.run();
    }
    return cli::finishOneShot(cli::runCommand(grammar, options.command, context), context);
  } catch (const std::exception& e) {
    // The table itself is broken or the state hook threw: no command can run.
    std::fprintf(stderr, "%% Internal error: %s\n", e.what());
    return cli::kStatusInternal;
  }
}
