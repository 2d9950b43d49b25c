// rova-agent: owns a device's state and publishes its tables in shared memory, where every
// `rova --attach NAME` reads them in place.

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "agent/Store.h"
#include "snapshot/LiveFollower.h"
#include "snapshot/Snapshot.h"

namespace {

constexpr const char* kUsage =
    "usage: rova-agent (--state FILE | --live) [--name NAME] [--mode MODE]\n"
    "\n"
    "Publishes the device state of FILE, or the routing state of this network namespace's\n"
    "kernel, followed as it changes, in shared memory for 'rova --attach NAME', in the\n"
    "foreground, until SIGTERM or SIGINT.\n"
    "\n"
    "  --state FILE  the device state to publish\n"
    "  --live        the kernel's routing state, read now and then followed\n"
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
  bool live = false;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    const bool hasValue = i + 1 < argc;
    if (arg == "--help") {
      std::fputs(kUsage, stdout);
      return 0;
    } else if (arg == "--state" && hasValue) {
      state = argv[++i];
    } else if (arg == "--live") {
      live = true;
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
  if (live && state) return usage("--state and --live exclude each other");
  if (!live && (!state || state->empty()))
    return usage("give the state to publish: --state FILE or --live");
  const std::string source = live ? std::string("live") : *state;
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
  std::unique_ptr<Snapshot::LiveFollower> follower;
  try {
    bool reclaimed = false;
    if (live) {
      // The name first, so that a second agent of the name is refused before it reads the
      // kernel; the follower then writes the tables, which move into the store at publish.
      store = Agent::Store::create(options, source, &reclaimed);
      em = Mox::makePtr<Statum::EntityManager>();
      Snapshot::LiveFollower::Options followOptions;
      followOptions.log = [&options](const std::string& line) { log(options.name, line); };
      // The notification socket's buffer (docs/agent.md): tests make it small to overrun it.
      if (const char* bytes = std::getenv("ROVA_AGENT_RECEIVE_BUFFER"))
        followOptions.receiveBuffer = std::atoi(bytes);
      // The follower writes route, FEC and neighbour changes in the store's records in place;
      // after a whole read (links, addresses, nexthop objects, a lost notification) the
      // entities it replaced whole move into the store and the catalog is published again.
      follower = std::make_unique<Snapshot::LiveFollower>(
          *em,
          [&store, &em](const Snapshot::LiveFollower::Batch& batch) {
            if (store && batch.reread) store->publish(*em);
          },
          followOptions);
    } else {
      em = Snapshot::loadFile(*state);
      store = Agent::Store::create(options, source, &reclaimed);
    }
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
              source.c_str(), static_cast<unsigned long long>(store->generation()));
  std::fflush(stdout);
  log(options.name, "publishing " + source + " in " + store->shmName());
  if (follower) {
    const auto& b = follower->last();
    log(options.name, "following the kernel: " + std::to_string(b.keptRoutes) + " routes kept in " +
                          std::to_string(b.keptBytes >> 20) + " MB");
  }

  // The ending signals arrive on a descriptor, polled beside the kernel's notifications.
  const int signals = ::signalfd(-1, &stop, SFD_CLOEXEC);
  for (;;) {
    pollfd fds[2] = {{signals, POLLIN, 0}, {follower ? follower->fd() : -1, POLLIN, 0}};
    ::poll(fds, 2, 500);
    if (fds[0].revents & POLLIN) {
      signalfd_siginfo info{};
      if (::read(signals, &info, sizeof info) == sizeof info &&
          (info.ssi_signo == SIGTERM || info.ssi_signo == SIGINT)) {
        log(options.name,
            std::string("ending on ") + (info.ssi_signo == SIGTERM ? "SIGTERM" : "SIGINT"));
        break;
      }
    }
    if (follower) {
      try {
        follower->process();
      } catch (const std::exception& e) {
        // The kernel cannot be read any more: what the store holds would silently fall
        // behind, so the agent ends and its readers say so.
        log(options.name, e.what());
        store->unlink();
        std::fflush(stderr);
        std::_Exit(kStatusFailed);
      }
    }
    store->reclaim();
  }
  store->unlink();
  // The tables and the store are left to the process's end, like the rova program's state.
  std::fflush(stderr);
  std::_Exit(0);
}
