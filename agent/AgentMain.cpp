// rova-agent: owns a device's state and publishes its tables in shared memory, where every
// `rova --attach NAME` reads them in place.

#include <poll.h>
#include <pwd.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "agent/Channel.h"
#include "agent/KernelStatics.h"
#include "agent/LiveChanges.h"
#include "agent/Store.h"
#include "cli/AgentChanges.h"
#include "cli/Commands.h"
#include "cli/ConfigMode.h"
#include "cli/DeviceState.h"
#include "snapshot/LiveFollower.h"
#include "snapshot/Snapshot.h"

namespace {

constexpr const char* kUsage =
    "usage: rova-agent (--state FILE | --live [--static-config FILE]) [--name NAME] [--mode MODE]\n"
    "                  [--allow USER[,USER...]] [--reserve SIZE]\n"
    "\n"
    "Publishes the device state of FILE, or the routing state of this network namespace's\n"
    "kernel, followed as it changes, in shared memory for 'rova --attach NAME', in the\n"
    "foreground, until SIGTERM or SIGINT.\n"
    "\n"
    "  --state FILE  the device state to publish\n"
    "  --live        the kernel's routing state, read now and then followed\n"
    "  --static-config FILE\n"
    "                with --live: where the static routes configured through the agent are\n"
    "                kept, and programmed into the kernel again at start (default:\n"
    "                /var/lib/rova/NAME/static-routes.conf)\n"
    "  --name NAME   the agent's name (default: default); one agent per name\n"
    "  --mode MODE   who may read the store, in octal (default: 0640, the agent's user and\n"
    "                group)\n"
    "  --allow USERS the users, besides the agent's own and root, whose configuration and\n"
    "                clear commands typed in 'rova --attach NAME' the agent applies; every\n"
    "                other user may only read\n"
    "  --reserve SIZE\n"
    "                the address space the store takes, in bytes or with K, M, G or T\n"
    "                (default: 64G): the most its tables can grow to. Only the pages\n"
    "                written use memory\n"
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

// A user by name or number; nullopt when there is no such user.
std::optional<uid_t> userId(const std::string& user) {
  if (const passwd* pw = ::getpwnam(user.c_str())) return pw->pw_uid;
  char* end = nullptr;
  const unsigned long n = std::strtoul(user.c_str(), &end, 10);
  if (!user.empty() && *end == '\0' && n < 0xffffffffUL) return static_cast<uid_t>(n);
  return std::nullopt;
}

// A size such as 4096, 512M or 64G (binary multiples); nullopt when it is not one.
std::optional<std::uint64_t> sizeOf(std::string_view text) {
  std::uint64_t n = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), n);
  if (ec != std::errc() || end == text.data()) return std::nullopt;
  const std::string_view unit(end, text.data() + text.size() - end);
  int shift = 0;
  if (unit == "K")
    shift = 10;
  else if (unit == "M")
    shift = 20;
  else if (unit == "G")
    shift = 30;
  else if (unit == "T")
    shift = 40;
  else if (!unit.empty())
    return std::nullopt;
  if (n > (std::numeric_limits<std::uint64_t>::max() >> shift)) return std::nullopt;
  return n << shift;
}

std::string userName(uid_t uid) {
  if (const passwd* pw = ::getpwuid(uid)) return "user " + Mox::shownWord(pw->pw_name);
  return "uid " + std::to_string(uid);
}

}  // namespace

int main(int argc, char** argv) {
  Agent::Store::Options options;
  std::optional<std::string> state;
  bool live = false;
  std::optional<std::string> staticConfig;
  // Who may change the state: root, the agent's own user, and these.
  std::set<uid_t> allowed = {0, ::geteuid()};
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
    } else if (arg == "--static-config" && hasValue) {
      staticConfig = argv[++i];
    } else if (arg == "--allow" && hasValue) {
      std::string_view users = argv[++i];
      while (!users.empty()) {
        const std::string user(users.substr(0, users.find(',')));
        users.remove_prefix(std::min(users.size(), user.size() + 1));
        const auto uid = userId(user);
        if (!uid) return usage("--allow names no user " + Mox::shownWord(user));
        allowed.insert(*uid);
      }
    } else if (arg == "--name" && hasValue) {
      options.name = argv[++i];
    } else if (arg == "--mode" && hasValue) {
      char* end = nullptr;
      const unsigned long mode = std::strtoul(argv[++i], &end, 8);
      if (*argv[i] == '\0' || *end != '\0' || mode > 0777 || (mode & 0022) != 0)
        return usage("--mode takes an octal mode that lets only the agent write, such as 0644");
      options.mode = static_cast<mode_t>(mode) | 0600;
    } else if (arg == "--reserve" && hasValue) {
      // At least room for the catalog and a few tables; at most what a process can map.
      const auto size = sizeOf(argv[++i]);
      if (!size || *size < (std::uint64_t(16) << 20) || *size > (std::uint64_t(64) << 40))
        return usage("--reserve takes a size from 16M to 64T, such as 4G");
      constexpr std::uint64_t kPage = 4096;
      options.reserve = (*size + kPage - 1) / kPage * kPage;
    } else {
      return usage(std::string(arg.substr(0, 2) == "--" && !hasValue ? "missing value after "
                                                                     : "unknown argument ") +
                   "'" + std::string(arg) + "'");
    }
  }
  if (live && state) return usage("--state and --live exclude each other");
  if (!live && (!state || state->empty()))
    return usage("give the state to publish: --state FILE or --live");
  if (staticConfig && (!live || staticConfig->empty()))
    return usage("--static-config FILE goes with --live");
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
  std::unique_ptr<Agent::KernelStatics> statics;
  bool staticsLoaded = false;
  try {
    bool reclaimed = false;
    if (live) {
      // The name first, so that a second agent of the name is refused before it reads the
      // kernel; the follower then writes the tables, which move into the store at publish.
      store = Agent::Store::create(options, source, &reclaimed);
      em = Mox::makePtr<Statum::EntityManager>();
      statics = std::make_unique<Agent::KernelStatics>(
          staticConfig.value_or("/var/lib/rova/" + options.name + "/static-routes.conf"),
          [&options](const std::string& line) { log(options.name, line); });
      Snapshot::LiveFollower::Options followOptions;
      followOptions.log = [&options](const std::string& line) { log(options.name, line); };
      // The notification socket's buffer (docs/agent.md): tests make it small to overrun it.
      if (const char* bytes = std::getenv("ROVA_AGENT_RECEIVE_BUFFER"))
        followOptions.receiveBuffer = std::atoi(bytes);
      // The follower writes route, FEC and neighbour changes in the store's records in place.
      // After a whole read (links, addresses, nexthop objects, a lost notification) the static
      // configuration is put back in the entities the follower replaced, routes the kernel
      // refused are tried again, and the replaced entities move into the store with the
      // catalog published again.
      follower = std::make_unique<Snapshot::LiveFollower>(
          *em,
          [&](const Snapshot::LiveFollower::Batch& batch) {
            statics->keepIn(*em);
            if (!batch.reread) return;
            if (staticsLoaded) {
              for (const std::string& line : Agent::retryStaticConfig(*statics, *em))
                log(options.name, line);
            }
            if (store) store->publish(*em);
          },
          followOptions);
      // The configured static routes, in the state and in the kernel, before the agent says
      // it is ready.
      for (const std::string& line : Agent::loadStaticConfig(*statics, *em))
        log(options.name, line);
      staticsLoaded = true;
    } else {
      // Loaded as the rova program loads it, so that `write` saves it back to its file in the
      // form it was read.
      cli::DeviceState::instance().load(*state);
      em = cli::DeviceState::instance().entityManager();
      store = Agent::Store::create(options, source, &reclaimed);
    }
    if (reclaimed) log(options.name, "removed the store left by an agent that died");
    store->publish(*em);
  } catch (const Agent::AgentRunning& e) {
    log(options.name, e.what());
    return kStatusFailed;
  } catch (const std::bad_alloc&) {
    log(options.name, "out of memory, or the state does not fit in the store's " +
                          std::to_string(options.reserve >> 20) + " MiB (--reserve)");
    if (store) store->unlink();
    return kStatusFailed;
  } catch (const std::exception& e) {
    log(options.name, e.what());
    if (store) store->unlink();
    return kStatusFailed;
  }
  // Changes typed in attached rova programs: applied to the state here by the editors the rova
  // program uses, or on a live agent by applyLiveChanges, then published again.
  cli::Grammar exec;
  cli::addCommands(exec);
  cli::addConfigureRow(exec);
  if (live) cli::DeviceState::instance().adopt(em, "live", "", true);
  cli::ServeOptions serve;
  serve.agentName = options.name;
  if (live) {
    serve.live = [&, agent = Agent::LiveAgent{*em, *statics, options.name}](
                     std::span<const Agent::LiveChange> changes) mutable {
      return Agent::applyLiveChanges(agent, changes);
    };
  }
  const auto handle = [&](std::string_view text, const Agent::Peer& peer) {
    std::string why;
    const auto request = Agent::decodeRequest(text, &why);
    if (!request) return Agent::encodeReply({2, "", "% A malformed request: " + why + "\n"});
    serve.allowed = allowed.count(peer.uid) != 0;
    serve.user = userName(peer.uid);
    const Agent::Reply reply = cli::serveChange(exec, *request, serve);
    if (serve.allowed && reply.status == 0) {
      store->publish(live ? *em : *cli::DeviceState::instance().entityManager());
      log(options.name, "applied a change from " + serve.user + " (pid " +
                            std::to_string(peer.pid) + "); generation " +
                            std::to_string(store->generation()));
    }
    return Agent::encodeReply(reply);
  };
  std::unique_ptr<Agent::ChangeServer> changes;
  try {
    changes = Agent::ChangeServer::open(
        options.name, handle, [&options](const std::string& line) { log(options.name, line); });
  } catch (const std::exception& e) {
    log(options.name, e.what());
    store->unlink();
    return kStatusFailed;
  }

  std::printf("rova-agent: ready: agent '%s', state %s, generation %llu\n", options.name.c_str(),
              source.c_str(), static_cast<unsigned long long>(store->generation()));
  std::fflush(stdout);
  log(options.name,
      "publishing " + source + " in " + store->shmName() + "; changes on " + changes->path());
  if (follower) {
    const auto& b = follower->last();
    log(options.name, "following the kernel: " + std::to_string(b.keptRoutes) + " routes kept in " +
                          std::to_string(b.keptBytes >> 20) + " MB");
  }

  // The ending signals arrive on a descriptor, polled beside the kernel's notifications and the
  // change socket's clients.
  const int signals = ::signalfd(-1, &stop, SFD_CLOEXEC);
  std::vector<pollfd> fds;
  for (;;) {
    fds.assign({{signals, POLLIN, 0}, {follower ? follower->fd() : -1, POLLIN, 0}});
    changes->pollFds(fds);
    // A table written since its listing order was made gets it again once nothing has
    // arrived for a moment: never in the middle of a burst of changes.
    const Statum::EntityManager& published =
        live ? *em : *cli::DeviceState::instance().entityManager();
    const bool stale = store->ordersStale(published);
    if (::poll(fds.data(), fds.size(), stale ? 100 : 500) == 0 && stale)
      store->orderTables(published);
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
        changes->unlink();
        store->unlink();
        std::fflush(stderr);
        std::_Exit(kStatusFailed);
      }
    }
    changes->process();
    store->reclaim();
  }
  changes->unlink();
  store->unlink();
  if (!live && cli::DeviceState::instance().unsaved())
    log(options.name, "the changes made since the last write are not in " + *state);
  // The tables and the store are left to the process's end, like the rova program's state.
  std::fflush(stderr);
  std::_Exit(0);
}
