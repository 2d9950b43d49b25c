// rova: one command from the command line, or an interactive shell when none is given.

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <limits>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/AttachMode.h"
#include "cli/Commands.h"
#include "cli/ConfigMode.h"
#include "cli/DeviceState.h"
#include "cli/Grammar.h"
#include "cli/LiveMode.h"
#include "cli/Runner.h"
#include "cli/Shell.h"
#include "platform/brine/Table.h"
#include "platform/mox/Exception.h"
#include "platform/mox/Trace.h"
#include "platform/rendr/Interrupt.h"
#include "snapshot/JsonLibrary.h"

namespace {

const Mox::TraceHandle traceHandle("rova");

std::chrono::nanoseconds processorTime() {
  timespec t{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return std::chrono::seconds(t.tv_sec) + std::chrono::nanoseconds(t.tv_nsec);
}

constexpr const char* kUsage =
    "usage: rova [--state FILE | --live | --attach [NAME]] [--trace] [--keep-going] [-j]\n"
    "            [COMMAND...]\n"
    "\n"
    "Runs one command, for example 'rova show ip route vrf red json', or an interactive\n"
    "shell when no command is given.\n"
    "\n"
    "  --state FILE  the device state to show: a file, a pipe, or - for standard input\n"
    "                (default: the built-in example)\n"
    "  --live        the routing state of this machine's Linux kernel, read now\n"
    "  --attach [NAME]  the tables the state agent NAME publishes (default: default), read\n"
    "                in place; --attach=NAME when NAME could be taken for a command\n"
    "  --trace       write maintainers' trace messages to stderr\n"
    "  --keep-going  commands read from a pipe go on after one fails\n"
    "  -j, --compact JSON output on one line, for programs (the word json is pretty)\n"
    "  -h, --help    show this text\n"
    "  --version     show the program's version\n"
    "\n"
    "A command ending in '?' lists what may come next, as '?' does in the shell.\n"
    "Output filters follow a '|': rova show ip route '|' include Ethernet1\n";

struct Options {
  std::optional<std::string> statePath;
  bool live = false;
  // --attach: the agent's name, or empty when the word after it may be the command's.
  std::optional<std::string> attach;
  bool attachNamed = false;
  std::vector<std::string> command;
  bool keepGoing = false;
  bool compact = false;
};

// Options come before the command only, so that a command word can never be taken for one.
// Returns -1 to go on, or the exit status to leave with. A refused option leaves the words
// after it in `command`, which say whether the user wanted JSON.
int parseOptions(int argc, char** argv, Options& options, const cli::Context& context) {
  int i = 1;
  for (; i < argc; ++i) {
    std::string_view arg = argv[i];
    if (arg == "--") {
      ++i;
      break;
    }
    if (arg == "-h" || arg == "--help") {
      std::fputs(kUsage, stdout);
      return cli::kStatusOk;
    }
    if (arg == "--version") {
      std::fputs("rova " ROVA_VERSION "\n", stdout);
      return cli::kStatusOk;
    }
    if (arg == "-j" || arg == "--compact") {
      options.compact = true;
      continue;
    }
    if (arg.substr(0, 2) != "--") break;
    std::string refusal;
    if (arg == "--keep-going") {
      options.keepGoing = true;
    } else if (arg == "--trace") {
      Mox::TraceHandle::levelIs(std::numeric_limits<int>::max());
    } else if (arg == "--live") {
      options.live = true;
    } else if (arg == "--attach") {
      options.attach = std::string();
    } else if (arg.substr(0, 9) == "--attach=") {
      options.attach = std::string(arg.substr(9));
      options.attachNamed = true;
      if (options.attach->empty()) refusal = "empty agent name after '--attach'";
    } else if (arg == "--state" && i + 1 < argc) {
      options.statePath = argv[++i];
    } else if (arg.substr(0, 8) == "--state=") {
      options.statePath = arg.substr(8);
    } else {
      refusal = std::string(arg == "--state" ? "missing file after " : "unknown option ") +
                Mox::shownWord(arg);
    }
    // An empty name is a mistake (an unset shell variable), not a way to ask for the example.
    if (refusal.empty() && options.statePath && options.statePath->empty()) {
      refusal = "empty file name after '--state'";
    }
    if (!refusal.empty()) {
      options.command.assign(argv + i + 1, argv + argc);
      std::string_view usage = kUsage;
      usage.remove_suffix(1);  // the message ends the line itself
      return cli::refuseLine(options.command, "rova: " + refusal + "\n" + std::string(usage),
                             cli::kStatusUsage, context);
    }
  }
  options.command.assign(argv + i, argv + argc);
  const int sources =
      int(options.live) + int(options.statePath.has_value()) + int(options.attach.has_value());
  if (sources > 1) {
    std::string_view usage = kUsage;
    usage.remove_suffix(1);
    return cli::refuseLine(
        options.command,
        "rova: --state, --live and --attach name different states; give one\n" + std::string(usage),
        cli::kStatusUsage, context);
  }
  return -1;
}

// `--attach NAME`: the word after --attach is the agent's name unless it begins a command.
void takeAgentName(Options& options, const cli::Grammar& grammar) {
  if (!options.attach || options.attachNamed) return;
  if (!options.command.empty()) {
    const std::string& word = options.command.front();
    bool command = false;
    for (const cli::Candidate& c : grammar.complete({}, word).candidates)
      command = command || c.kind == cli::Candidate::Kind::keyword;
    if (!command) {
      options.attach = word;
      options.command.erase(options.command.begin());
    }
  }
  if (options.attach->empty()) options.attach = "default";
}

// Reading a large state fills a great deal of fresh memory, and every 4 KiB page of it costs a
// fault: on a million routes, a third of `show ip route` and two fifths of `show ipv6 route`.
// glibc's malloc asks the kernel for transparent huge pages (one fault per 2 MiB) only when told so
// before the program starts, through GLIBC_TUNABLES. So a command about to build route tables
// from a large file, or from the kernel's tables, starts itself once more with that set; the copy
// that runs puts the environment back as the user gave it, so that a pager or a filter it starts
// sees no change. The attached path never restarts: it allocates little, and its start-up is the
// point. A restart that fails (no /proc) just goes on as it is.
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ROVA_SANITIZED_ALLOCATOR 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define ROVA_SANITIZED_ALLOCATOR 1
#endif

#ifndef ROVA_SANITIZED_ALLOCATOR  // the sanitizer's allocator takes no malloc tunables
constexpr const char* kRestartedWith = "ROVA_TUNABLES_WERE";
constexpr off_t kLargeState = off_t(4) << 20;

bool largeState(const Options& options, Snapshot::Sections reads) {
  if (options.live) return true;
  // A command that builds no route table (a check, show version) fills little memory.
  if (!options.statePath || options.attach || reads == Snapshot::Sections::none()) return false;
  struct stat st {};
  const bool got = *options.statePath == "-" ? ::fstat(0, &st) == 0
                                             : ::stat(options.statePath->c_str(), &st) == 0;
  return got && S_ISREG(st.st_mode) && st.st_size >= kLargeState;
}

void restartForLargeState(const Options& options, Snapshot::Sections reads, char** argv) {
  if (const char* was = std::getenv(kRestartedWith)) {
    // "=" and the user's own value, or empty when there was none.
    if (*was == '=')
      ::setenv("GLIBC_TUNABLES", was + 1, 1);
    else
      ::unsetenv("GLIBC_TUNABLES");
    ::unsetenv(kRestartedWith);
    return;
  }
  const char* own = std::getenv("GLIBC_TUNABLES");
  const bool hadOwn = own != nullptr;
  const std::string given = hadOwn ? own : "";
  if (given.find("glibc.malloc.hugetlb") != std::string::npos) return;  // the user chose
  if (!largeState(options, reads)) return;
  ::setenv(kRestartedWith, hadOwn ? ("=" + given).c_str() : "", 1);
  ::setenv("GLIBC_TUNABLES",
           (given.empty() ? "" : given + ":").append("glibc.malloc.hugetlb=1").c_str(), 1);
  ::execv("/proc/self/exe", argv);
  ::unsetenv(kRestartedWith);  // still here: go on as it was
  if (hadOwn)
    ::setenv("GLIBC_TUNABLES", given.c_str(), 1);
  else
    ::unsetenv("GLIBC_TUNABLES");
}
#else
void restartForLargeState(const Options&, Snapshot::Sections, char**) {}
#endif

// The process leaves its state to the kernel on the way out instead of taking it apart: the
// kernel frees all the memory in one go, where destructors would first walk every structure
// of the state (many small records on a large configuration). Output is flushed first, and
// then the process ends there: the libraries' and the program's destructors and exit handlers
// have nothing to write or remove, and running them touched pages of each library's code that
// nothing had read yet (a twentieth of an attached lookup's processor time). The sanitizer
// builds return as before, so that the leak checker runs at exit; there the state is still
// referenced from a global, so the checker counts it as reachable rather than lost, and a leak
// anywhere else is still found.
int leaveStateToExit(int status) {
  std::fflush(stdout);
  std::fflush(stderr);
#ifndef ROVA_SANITIZED_ALLOCATOR
  std::_Exit(status);
#else
  static const Mox::Ptr<Statum::EntityManager>* kept = nullptr;
  if (!kept)
    kept = new Mox::Ptr<Statum::EntityManager>(cli::DeviceState::instance().entityManager());
  return status;
#endif
}

}  // namespace

int main(int argc, char** argv) {
  const auto started = processorTime();
#ifdef ROVA_STATIC_PROGRAM
  // A statically linked program cannot safely open the JSON parser's shared library (it would
  // bring a second C library and C++ runtime with it): the built-in kernel reads every document.
  Snapshot::useBuiltinJsonKernelOnly();
#endif
  const cli::Context context;
  Options options;
  if (int status = parseOptions(argc, argv, options, context); status >= 0) return status;
  // A table that finds a record corrupt reads it as empty and goes on; the user hears of it.
  Brine::CorruptionReporter::globalHookIs([](const std::string& table, const std::string& what) {
    cli::Context().error("% Warning: a corrupt record in " + table + " was left out: " + what);
  });
  try {
    cli::Grammar grammar;
    // A one-shot command compiles only the rows its first word may begin; the shell compiles
    // the rest as its completion asks for them.
    grammar.deferCompiling();
    cli::addCommands(grammar);
    cli::addConfigureRow(grammar);
    const auto grammarBuilt = processorTime();
    // Until the state is loaded, a signal ends rova at once: there is nothing to close yet,
    // and a state read from a FIFO or a terminal may wait for its writer.
    takeAgentName(options, grammar);
    const Snapshot::Sections reads = cli::sectionsRead(grammar, options.command);
    restartForLargeState(options, reads, argv);
    const int loaded =
        options.live ? cli::startLiveMode(grammar, options.command, context)
        : options.attach
            ? cli::startAttachMode(grammar, *options.attach, options.command, context)
            : cli::loadState(options.statePath.value_or(""), options.command, context, reads);
    if (loaded != cli::kStatusOk) return loaded;
    if (options.attach) {
      // What attaching costs, in processor time (wall time says more about the machine's
      // load): `rova --trace --attach=NAME show version`.
      const auto now = processorTime();
      const auto us = [](auto d) {
        return std::chrono::duration_cast<std::chrono::microseconds>(d).count();
      };
      MOX_TRACE(traceHandle, 1, "attached to ", Mox::shownWord(*options.attach), " ",
                us(now - started), " us of processor time after main began (command table ",
                us(grammarBuilt - started), " us, store and catalog ", us(now - grammarBuilt),
                " us)");
    }
    if (options.command.empty()) {
      // libedit decodes typed characters in the user's locale; nothing else reads it, and
      // loading it costs a one-shot command a file's mapping.
      std::setlocale(LC_CTYPE, "");
      int status;
      {
        // The shell puts the terminal back as it found it when it goes.
        cli::Shell shell(grammar, context);
        shell.modesIs(cli::shellModes(grammar));
        shell.keepGoingIs(options.keepGoing);
        status = cli::finishShell(shell.run(), context);
      }
      return leaveStateToExit(status);
    }
    bool refused = false;
    if (auto help = cli::oneShotHelp(grammar, options.command, refused)) {
      if (refused) {
        context.error(std::string_view(*help).substr(0, help->size() - 1));
        return leaveStateToExit(cli::kStatusUsage);
      }
      std::fputs(help->c_str(), stdout);
      return leaveStateToExit(cli::kStatusOk);
    }
    // `-j`: the command's JSON, compact, as its last filter says it.
    if (options.compact) options.command.insert(options.command.end(), {"|", "compact"});
    rendr::installSignalHandlers();
    const int status = cli::runCommand(grammar, options.command, context);
    return leaveStateToExit(cli::finishOneShot(cli::checkAttachedAfter(status, context), context));
  } catch (const std::bad_alloc&) {
    return cli::refuseLine(options.command, "% Out of memory", cli::kStatusNoMemory, context);
  } catch (const std::exception& e) {
    // The table itself is broken or the state hook threw: no command can run.
    return cli::refuseLine(options.command, std::string("% Internal error: ") + e.what(),
                           cli::kStatusInternal, context);
  }
}
