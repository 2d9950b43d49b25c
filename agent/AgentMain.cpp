// rova-agent: owns a device's state and publishes its tables in shared memory, where every
// `rova --attach NAME` reads them in place.

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

#include "agent/Store.h"
#include "snapshot/Snapshot.h"

namespace {

constexpr const char* kUsage =
    "usage: rova-agent --state FILE [--name NAME] [--mode MODE]\n"
    "\n"
    "Publishes the device state of FILE in shared memory for 'rova --attach NAME', in the\n"
    "foreground, until SIGTERM or SIGINT.\n"
    "\n"
    "  --state FILE  the device state to publish\n"
    "  --name NAME   the agent's name (default: default); one agent per name\n"
    "  --mode MODE   who may read the store, in octal (default: 0640, the agent's user and\n"
    "                group)\n"
    "  --help        show this text\n";

constexpr int kStatusUsage = 2;
constexpr int kStatusFailed = 1;

void log(const std::string& name, const std::string& line) {
  std::fprintf(stderr, "rova-agent[%s]: %s\n", name.c_str(), line.c_str());
}

int usage(const std::string& why) {
  std::fprintf(stderr, "rova-agent: %s\n%s", why.c_str(), kUsage);
  return kStatusUsage;
}

}  // namespace

int main(int argc, char** argv) {
  Agent::Store::Options options;
  std::optional<std::string> state;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    const bool hasValue = i + 1 < argc;
    if (arg == "--help") {
      std::fputs(kUsage, stdout);
      return 0;
    } else if (arg == "--state" && hasValue) {
      state = argv[++i];
    } else if (arg == "--name" && hasValue) {
      options.name = argv[++i];
    } else if (arg == "--mode" && hasValue) {
      char* end = nullptr;
      const unsigned long mode = std::strtoul(argv[++i], &end, 8);
      if (*argv[i] == '\0' || *end != '\0' || mode > 0777 || (mode & 0022) != 0)
        return usage("--mode takes an octal mode that lets only the agent write, such as 0644");
      options.mode = static_cast<mode_t>(mode) | 0600;
    } else {
      return usage(std::string(arg.substr(0, 2) == "--" && !hasValue ? "missing value after "
                                                                     : "unknown argument ") +
                   "'" + std::string(arg) + "'");
    }
  }
  if (!state || state->empty()) return usage("give the state to publish: --state FILE");
  try {
    Agent::shmNameOf(options.name);
  } catch (const Agent::StoreError& e) {
    return usage(e.what());
  }

  // The signals that end the agent are taken by sigtimedwait() below, never by a handler, so
  // that the store is removed on the main thread whatever it was doing.
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGTERM);
  sigaddset(&stop, SIGINT);
  sigprocmask(SIG_BLOCK, &stop, nullptr);
  ::signal(SIGPIPE, SIG_IGN);

  std::shared_ptr<Agent::Store> store;
  Mox::Ptr<Statum::EntityManager> em;
  try {
    em = Snapshot::loadFile(*state);
    bool reclaimed = false;
    store = Agent::Store::create(options, *state, &reclaimed);
    if (reclaimed) log(options.name, "removed the store left by an agent that died");
    store->publish(*em);
  } catch (const Agent::AgentRunning& e) {
    log(options.name, e.what());
    return kStatusFailed;
  } catch (const std::exception& e) {
    log(options.name, e.what());
    if (store) store->unlink();
    return kStatusFailed;
  }
  std::printf("rova-agent: ready: agent '%s', state %s, generation %llu\n", options.name.c_str(),
              state->c_str(), static_cast<unsigned long long>(store->generation()));
  std::fflush(stdout);
  log(options.name, "publishing " + *state + " in " + store->shmName());

  const timespec tick{0, 500'000'000};
  for (;;) {
    const int sig = sigtimedwait(&stop, nullptr, &tick);
    if (sig == SIGTERM || sig == SIGINT) {
      log(options.name, std::string("ending on ") + (sig == SIGTERM ? "SIGTERM" : "SIGINT"));
      break;
    }
    store->reclaim();
  }
  store->unlink();
  // The tables and the store are left to the process's end, like the rova program's state.
  std::fflush(stderr);
  std::_Exit(0);
}
