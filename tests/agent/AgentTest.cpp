// rova-agent and rova --attach as a user runs them: the same output attached as loaded, one
// agent per name, a reader whose agent dies, and who may read a store.

#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "cli/Runner.h"
#include "tests/agent/AgentProcess.h"
#include "tests/cli/Capture.h"
#include "tests/support/GoldenCases.h"

namespace {

using agenttest::AgentProcess;
using agenttest::uniqueName;
using Case = rovatest::GoldenCase;

std::string fileText(const std::string& path) {
  std::ifstream in(path);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

// One agent per state file the golden cases use, started when first needed and ended with
// the test program.
class Agents : public testing::Environment {
 public:
  static AgentProcess& forState(const std::string& file) {
    auto& agents = all();
    auto it = agents.find(file);
    if (it == agents.end()) {
      it = agents
               .emplace(file, std::make_unique<AgentProcess>(
                                  uniqueName("golden"), std::vector<std::string>{"--state", file}))
               .first;
    }
    return *it->second;
  }
  void TearDown() override { all().clear(); }

 private:
  static std::map<std::string, std::unique_ptr<AgentProcess>>& all() {
    static std::map<std::string, std::unique_ptr<AgentProcess>> agents;
    return agents;
  }
};
const testing::Environment* const kAgents = testing::AddGlobalTestEnvironment(new Agents);

// The cases whose output names the state's source (show version) or that change the state,
// which an attached rova leaves to the agent.
bool comparable(const Case& c) {
  const std::vector<std::string> words = cli::splitWords(c.command);
  const std::string& first = words.at(0);
  const bool showVersion = words.size() >= 2 && first == "show" && words[1] == "version";
  return !showVersion && first != "clear" && first != "configure";
}

std::vector<Case> comparableCases() {
  std::vector<Case> cases;
  for (const Case& c : rovatest::readGoldenCases(ROVA_GOLDEN_DIR "/cases.txt")) {
    if (comparable(c)) cases.push_back(c);
  }
  return cases;
}

class AttachedGolden : public testing::TestWithParam<Case> {};

// Each case, its --state (or the built-in example, which is examples/leaf1.json) published by
// an agent and read attached: output, error and status exactly as loaded.
TEST_P(AttachedGolden, OutputIsThatOfTheLoadedState) {
  const Case& c = GetParam();
  std::vector<std::string> words = cli::splitWords(c.command);
  std::string state = ROVA_EXAMPLE;
  if (words.size() >= 2 && words[0] == "--state") {
    state = ROVA_GOLDEN_DIR "/" + words[1];
    words.erase(words.begin(), words.begin() + 2);
  }
  AgentProcess& agent = Agents::forState(state);
  ASSERT_TRUE(agent.ready());
  words.insert(words.begin(), "--attach=" + agent.name());
  const clitest::Captured r = clitest::runProgram(ROVA_PROGRAM, words);
  const std::string base = ROVA_GOLDEN_DIR "/" + c.name;
  EXPECT_EQ(r.status, c.status);
  EXPECT_EQ(r.out, fileText(base + ".out"));
  EXPECT_EQ(r.err, fileText(base + ".err"));
}

INSTANTIATE_TEST_SUITE_P(Commands, AttachedGolden, testing::ValuesIn(comparableCases()),
                         rovatest::goldenTestName);

// ---- the agent's life ----

TEST(Agent, OneAgentPerNameAndAStoreLeftByADeadAgentIsTakenOver) {
  const std::string name = uniqueName("life");
  AgentProcess first(name, {"--state", ROVA_EXAMPLE});
  ASSERT_TRUE(first.ready());
  {
    AgentProcess second(name, {"--state", ROVA_EXAMPLE});
    EXPECT_FALSE(second.ready());
    EXPECT_EQ(second.stop(SIGTERM) >> 8 & 0xff, 1) << "refused with status 1";
  }
  // The refused agent left the running one's store alone.
  clitest::Captured r = clitest::runProgram(ROVA_PROGRAM, {"--attach=" + name, "show", "version"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("State: agent '" + name + "', " ROVA_EXAMPLE ", generation "),
            std::string::npos)
      << r.out;

  // SIGKILL leaves the store behind; the next agent of the name takes it over.
  const int killed = first.stop(SIGKILL);
  EXPECT_TRUE(WIFSIGNALED(killed));
  struct stat st {};
  EXPECT_EQ(::stat(("/dev/shm/rova-agent." + name).c_str(), &st), 0) << "left behind";
  r = clitest::runProgram(ROVA_PROGRAM, {"--attach=" + name, "show", "ip", "route"});
  EXPECT_EQ(r.status, cli::kStatusUnavailable);
  EXPECT_EQ(r.err, "% Cannot attach: the state agent '" + name + "' has ended\n");

  AgentProcess next(name, {"--state", ROVA_EXAMPLE});
  ASSERT_TRUE(next.ready());
  r = clitest::runProgram(ROVA_PROGRAM, {"--attach=" + name, "show", "ip", "route"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, fileText(ROVA_GOLDEN_DIR "/ip-route.out"));

  // SIGTERM ends it cleanly: the store is gone.
  EXPECT_EQ(next.stop(SIGTERM), 0);
  EXPECT_NE(::stat(("/dev/shm/rova-agent." + name).c_str(), &st), 0);
  r = clitest::runProgram(ROVA_PROGRAM, {"--attach=" + name, "show", "ip", "route", "json"});
  EXPECT_EQ(r.status, cli::kStatusUnavailable);
  EXPECT_EQ(r.err, "% Cannot attach: the state agent '" + name + "' is not running\n");
  EXPECT_EQ(r.out, "{}\n");
}

// A state large enough that its listing fills the output pipe long before it ends.
class LargeState : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    char dir[] = "/tmp/rova-agent-test-XXXXXX";
    ASSERT_NE(::mkdtemp(dir), nullptr);
    dir_ = dir;
    state_ = dir_ + "/large.json";
    const std::string gen = std::string(ROVA_GEN) + " --ipv4 60000 --ipv6 10 -o " + state_;
    ASSERT_EQ(std::system(gen.c_str()), 0);
  }
  static void TearDownTestSuite() {
    ::unlink(state_.c_str());
    ::rmdir(dir_.c_str());
  }
  static inline std::string dir_, state_;
};

// A whole large table listed attached takes the path a small one does not (its heap on huge
// pages, a thread touching the store's pages ahead of the walk): the same bytes as loaded,
// in text and JSON, and a reader that stops reading ends it cleanly.
TEST_F(LargeState, AttachedListingsAreThoseOfTheLoadedState) {
  const std::string name = uniqueName("large");
  AgentProcess agent(name, {"--state", state_});
  ASSERT_TRUE(agent.ready());
  for (const char* format : {"", "json"}) {
    SCOPED_TRACE(format);
    std::vector<std::string> words{"show", "ip", "route"};
    if (*format) words.push_back(format);
    std::vector<std::string> loaded = words, attached = words;
    loaded.insert(loaded.begin(), {"--state", state_});
    attached.insert(attached.begin(), "--attach=" + name);
    const clitest::Captured want = clitest::runProgram(ROVA_PROGRAM, loaded);
    const clitest::Captured got = clitest::runProgram(ROVA_PROGRAM, attached);
    ASSERT_EQ(want.status, 0);
    EXPECT_GT(want.out.size(), 60000u * 40);
    EXPECT_EQ(got.status, 0);
    EXPECT_TRUE(got.out == want.out)
        << "attached output differs, " << got.out.size() << " bytes against " << want.out.size();
    EXPECT_EQ(got.err, want.err);
  }
  // The first bytes, then the pipe closed: the listing ends at its next write, quietly and
  // with status 0, whatever the thread beside it is doing.
  const std::string err = dir_ + "/closed.err";
  const std::string command = "bash -c '" + std::string(ROVA_PROGRAM) + " --attach=" + name +
                              " show ip route 2>" + err +
                              " | head -c 200 > /dev/null; exit ${PIPESTATUS[0]}'";
  const int status = std::system(command.c_str());
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_EQ(fileText(err), "");
  ::unlink(err.c_str());
}

// The agent killed while a reader lists its tables: the reader ends with its message and
// status, whatever it was doing, and a new agent of the name starts.
TEST_F(LargeState, AReaderWhoseAgentIsKilledMidListingSaysSo) {
  const std::string name = uniqueName("killed");
  auto agent = std::make_unique<AgentProcess>(name, std::vector<std::string>{"--state", state_});
  ASSERT_TRUE(agent->ready());
  for (const char* format : {"", "json"}) {
    SCOPED_TRACE(format);
    int out[2], err[2];
    ASSERT_EQ(::pipe(out), 0);
    ASSERT_EQ(::pipe(err), 0);
    const pid_t reader = ::fork();
    if (reader == 0) {
      ::dup2(out[1], 1);
      ::dup2(err[1], 2);
      for (int fd : {out[0], out[1], err[0], err[1]})
        ::close(fd);
      std::string attach = "--attach=" + name;
      std::vector<char*> argv{const_cast<char*>(ROVA_PROGRAM), attach.data(),
                              const_cast<char*>("show"), const_cast<char*>("ip"),
                              const_cast<char*>("route")};
      if (*format) argv.push_back(const_cast<char*>(format));
      argv.push_back(nullptr);
      ::execv(ROVA_PROGRAM, argv.data());
      ::_exit(127);
    }
    ::close(out[1]);
    ::close(err[1]);
    // The listing has begun (and waits on the full pipe) when its first bytes come.
    char first[4096];
    ASSERT_GT(::read(out[0], first, sizeof first), 0);
    agent->stop(SIGKILL);
    clitest::drain(out[0]);
    const std::string error = clitest::drain(err[0]);
    int status = 0;
    ::waitpid(reader, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), cli::kStatusUnavailable);
    EXPECT_EQ(error,
              "% The state agent '" + name + "' has ended; its state is no longer current\n");
    agent = std::make_unique<AgentProcess>(name, std::vector<std::string>{"--state", state_});
    ASSERT_TRUE(agent->ready());
  }
}

TEST(Agent, SourcesExcludeEachOtherAndAttachTakesTheNameBeforeACommand) {
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"--attach", "--live", "show", "ip", "route"},
        std::vector<std::string>{"--state", ROVA_EXAMPLE, "--attach=x", "show", "ip", "route"}}) {
    const clitest::Captured r = clitest::runProgram(ROVA_PROGRAM, args);
    EXPECT_EQ(r.status, cli::kStatusUsage);
    EXPECT_EQ(
        r.err.rfind("rova: --state, --live and --attach name different states; give one\n", 0), 0u)
        << r.err;
  }
  const std::string name = uniqueName("changes");
  AgentProcess agent(name, {"--state", ROVA_EXAMPLE});
  ASSERT_TRUE(agent.ready());
  // `--attach NAME` takes the word after it unless that word begins a command.
  clitest::Captured r = clitest::runProgram(ROVA_PROGRAM, {"--attach", name, "show", "version"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("State: agent '" + name + "'"), std::string::npos) << r.out;
}

// The store's reservation is the agent's to choose (a machine that limits address space, a
// reader under a tool that maps less): whole pages of it, read the same; sizes that cannot
// hold a store, or are no size, are refused before anything is made.
TEST(Agent, TheStoreTakesTheAddressSpaceItIsGiven) {
  const std::string name = uniqueName("reserve");
  AgentProcess agent(name, {"--state", ROVA_EXAMPLE, "--reserve", "20971521"});
  ASSERT_TRUE(agent.ready());
  struct stat st {};
  ASSERT_EQ(::stat(("/dev/shm/rova-agent." + name).c_str(), &st), 0);
  EXPECT_EQ(st.st_size, (20 << 20) + 4096) << "rounded up to a whole page";
  clitest::Captured r =
      clitest::runProgram(ROVA_PROGRAM, {"--attach=" + name, "show", "ip", "route"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, fileText(ROVA_GOLDEN_DIR "/ip-route.out"));

  for (const char* size : {"15M", "65T", "4X", "G", "-1G", "99999999999T"}) {
    const std::string refused = uniqueName("refused");
    r = clitest::runProgram(ROVA_AGENT,
                            {"--state", ROVA_EXAMPLE, "--name", refused, "--reserve", size});
    EXPECT_EQ(r.status, 2) << size;
    EXPECT_EQ(r.err.rfind("rova-agent: --reserve takes a size from 16M to 64T, such as 4G\n", 0),
              0u)
        << size << ": " << r.err;
    EXPECT_NE(::stat(("/dev/shm/rova-agent." + refused).c_str(), &st), 0) << size;
  }
}

// Without root there is no second user to be.
TEST(Agent, AnotherUserCannotAttachToAStoreNotSharedWithItsGroup) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to run as another user";
  const auto asNobody = agenttest::becomeNobody();
  if (!asNobody) GTEST_SKIP() << "no user 'nobody'";
  // The build tree may sit where that user cannot reach it (a clone in a 0700 temporary
  // directory): the user runs a copy of the program in a directory of the test's own.
  char dir[] = "/tmp/rova-agent-test-XXXXXX";
  ASSERT_NE(::mkdtemp(dir), nullptr);
  struct RemoveDir {
    std::string path;
    ~RemoveDir() { std::filesystem::remove_all(path); }
  } removeDir{dir};
  ASSERT_EQ(::chmod(dir, 0755), 0);
  const std::string program = std::string(dir) + "/rova";
  std::filesystem::copy_file(ROVA_PROGRAM, program);
  ASSERT_EQ(::chmod(program.c_str(), 0755), 0);
  const std::string closed = uniqueName("closed");
  AgentProcess agent(closed, {"--state", ROVA_EXAMPLE});
  ASSERT_TRUE(agent.ready());
  clitest::Captured r = clitest::runProgram(
      program.c_str(), {"--attach=" + closed, "show", "ip", "route"}, "", asNobody);
  EXPECT_EQ(r.status, cli::kStatusUnavailable);
  EXPECT_EQ(r.err, "% Cannot attach: cannot read the store of the state agent '" + closed +
                       "': Permission denied\n");

  // Shared with everyone: nobody reads it, and still cannot write it.
  const std::string open = uniqueName("open");
  AgentProcess shared(open, {"--state", ROVA_EXAMPLE, "--mode", "0644"});
  ASSERT_TRUE(shared.ready());
  r = clitest::runProgram(program.c_str(), {"--attach=" + open, "show", "ip", "route"}, "",
                          asNobody);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, fileText(ROVA_GOLDEN_DIR "/ip-route.out"));
  struct stat st {};
  ASSERT_EQ(::stat(("/dev/shm/rova-agent." + open).c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0644u);
  ASSERT_EQ(::stat(("/dev/shm/rova-agent." + closed).c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
}

}  // namespace

// A live agent in a network namespace of its own: what the kernel does is, a moment later,
// what every attached reader lists, byte for byte what a fresh read of that kernel lists.
class LiveAgent : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to make a network namespace";
    char dir[] = "/tmp/rova-live-agent-XXXXXX";
    ASSERT_NE(::mkdtemp(dir), nullptr);
    dir_ = dir;
    ns_ = uniqueName("ns");
    if (!sh("ip netns add " + ns_)) GTEST_SKIP() << "cannot make a network namespace";
    made_ = true;
    // Names of no known form (v0, v1): their ids must mean the same in the agent and the
    // readers.
    ASSERT_TRUE(ip("link set lo up") && ip("link add v1 type veth peer name v0") &&
                ip("link set v0 up") && ip("link set v1 up") && ip("addr add 10.1.0.1/24 dev v0") &&
                ip("addr add 10.2.0.1/24 dev v1"));
  }
  void TearDown() override {
    agent_.reset();
    if (made_) sh("ip netns del " + ns_);
    if (!dir_.empty()) std::filesystem::remove_all(dir_);
  }
  static bool sh(const std::string& command) {
    return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
  }
  bool ip(const std::string& args) { return sh("ip -n " + ns_ + " " + args); }
  std::string attached(const std::vector<std::string>& command) {
    std::vector<std::string> args = {"--attach=" + agent_->name()};
    args.insert(args.end(), command.begin(), command.end());
    return clitest::runProgram(ROVA_PROGRAM, args).out;
  }
  std::string fresh(const std::vector<std::string>& command) {
    std::vector<std::string> args = {"ip", "netns", "exec", ns_, ROVA_PROGRAM, "--live"};
    args.insert(args.end(), command.begin(), command.end());
    return clitest::runProgram("/usr/bin/env", args).out;
  }
  // The attached listing once it equals a fresh read (the agent applies a notification a
  // moment after the kernel sends it); the last attached listing when it never does.
  std::string settled(const std::vector<std::string>& command) {
    std::string now;
    for (int i = 0; i < 100; ++i) {
      now = attached(command);
      if (now == fresh(command)) return now;
      ::usleep(50'000);
    }
    return now;
  }
  // `env`: settings of the agent's environment; its standard error goes to `log` when given.
  void startAgent(const std::vector<std::string>& env = {}, const std::string& log = {}) {
    std::vector<std::string> wrapper = {"ip", "netns", "exec", ns_, "env"};
    wrapper.insert(wrapper.end(), env.begin(), env.end());
    if (!log.empty()) wrapper.insert(wrapper.end(), {"sh", "-c", "exec \"$0\" \"$@\" 2>" + log});
    // The static configuration in the test's directory, not the default one under /var/lib.
    agent_ = std::make_unique<AgentProcess>(
        uniqueName("live"),
        std::vector<std::string>{"--live", "--static-config", dir_ + "/static-routes.conf"},
        wrapper);
    ASSERT_TRUE(agent_->ready());
  }
  // Runs the lines of `script` (one per line, as `ip -batch` takes them) in the namespace.
  bool ipBatch(const std::string& script) {
    const std::string file = dir_ + "/batch";
    std::ofstream(file) << script;
    return ip("-batch " + file);
  }
  // Every step-th of N /32 routes of 10.70.0.0/16 from `first`, a line `verb PREFIX rest` each.
  static std::string routes(int n, const std::string& verb, const std::string& rest, int step = 1,
                            int first = 0) {
    std::string text;
    for (int i = first; i < n; i += step)
      text += verb + " 10.70." + std::to_string(i / 256) + "." + std::to_string(i % 256) + "/32 " +
              rest + "\n";
    return text;
  }

  std::string ns_;
  bool made_ = false;
  std::unique_ptr<AgentProcess> agent_;
  std::string dir_;  // the test's files: batches, an agent's log
};

TEST_F(LiveAgent, RoutesAddedReplacedAndRemovedAreEachSeenAttached) {
  startAgent();
  const std::vector<std::string> routes = {"show", "ip", "route"};
  EXPECT_EQ(settled(routes), fresh(routes));
  ASSERT_TRUE(ip("route add 10.50.0.0/16 via 10.1.0.2"));
  std::string now = settled(routes);
  EXPECT_EQ(now, fresh(routes));
  EXPECT_NE(now.find("10.50.0.0/16 [0/0] via 10.1.0.2, v0"), std::string::npos) << now;
  ASSERT_TRUE(ip("route replace 10.50.0.0/16 via 10.2.0.2"));
  now = settled(routes);
  EXPECT_NE(now.find("10.50.0.0/16 [0/0] via 10.2.0.2, v1"), std::string::npos) << now;
  ASSERT_TRUE(ip("route del 10.50.0.0/16"));
  now = settled(routes);
  EXPECT_EQ(now.find("10.50.0.0/16"), std::string::npos) << now;
  EXPECT_EQ(now, fresh(routes));
  EXPECT_NE(attached({"show", "version"}).find("live, generation"), std::string::npos);
}

// What a live agent cannot take is refused by the agent, and a refused commit names its line as
// a loaded state's does; the kernel's state stays as it was.
TEST_F(LiveAgent, ChangesItCannotMakeAreRefusedAndChangeNothing) {
  startAgent();
  const std::string name = agent_->name();
  const std::string before = attached({"show", "running-config"});
  clitest::Captured r = clitest::runProgram(
      ROVA_PROGRAM, {"--attach=" + name, "clear", "static-routes", "interface", "v0"});
  EXPECT_EQ(r.status, cli::kStatusFailed);
  EXPECT_EQ(r.err, "% Refused: the state agent '" + name +
                       "' follows the kernel's state, which clear and write do not change\n");
  r = clitest::runProgram(ROVA_PROGRAM, {"--attach=" + name, "write"});
  EXPECT_EQ(r.status, cli::kStatusFailed);
  r = clitest::runProgram(ROVA_PROGRAM, {"--attach=" + name},
                          "configure session s1\nhostname other\ncommit\n");
  EXPECT_EQ(r.status, cli::kStatusFailed);
  EXPECT_EQ(r.err.rfind("line 3: % Session s1 not committed, nothing changed: line 1 'hostname "
                        "other': ",
                        0),
            0u)
      << r.err;
  EXPECT_EQ(attached({"show", "running-config"}), before);
  // Without an agent, a live state takes no configuration at all.
  r = clitest::runProgram("/usr/bin/env", {"ip", "netns", "exec", ns_, ROVA_PROGRAM, "--live",
                                           "clear", "nexthop-group", "counters"});
  EXPECT_EQ(r.status, cli::kStatusFailed);
  EXPECT_EQ(r.err.rfind("% Configuration is refused in live mode", 0), 0u) << r.err;
}

// Bursts of route changes go to the store in place, prefix by prefix: after each, the attached
// listing is that of a fresh read, and the catalog (the small entities) is not published
// again for batches that changed routes only; an address changed publishes it.
TEST_F(LiveAgent, BurstsOfRouteChangesLeaveTheListingOfAFreshReadAndTheCatalogAlone) {
  startAgent();
  const std::vector<std::string> routesCommand = {"show", "ip", "route"};
  const auto attachment = Agent::Attachment::open(agent_->name());
  const std::uint64_t catalog = attachment->catalogPublished();

  ASSERT_TRUE(ipBatch(routes(600, "route add", "via 10.1.0.2 proto bgp")));
  std::string now = settled(routesCommand);
  EXPECT_EQ(now, fresh(routesCommand));
  EXPECT_NE(now.find("10.70.2.87/32 [200/0] via 10.1.0.2, v0"), std::string::npos) << now;
  // Replaced over the other link, a second metric under some (hidden, then shown when the
  // first goes), multipath over both, and a third removed.
  ASSERT_TRUE(ipBatch(routes(600, "route replace", "via 10.2.0.2 proto static") +
                      routes(600, "route add", "via 10.1.0.2 metric 50", 7) +
                      routes(600, "route replace", "nexthop via 10.1.0.2 nexthop via 10.2.0.2", 5) +
                      routes(600, "route del", "", 3)));
  now = settled(routesCommand);
  EXPECT_EQ(now, fresh(routesCommand));
  EXPECT_NE(now.find("10.70.2.86/32 [1/0] via 10.2.0.2, v1"), std::string::npos) << now;
  EXPECT_EQ(now.find("10.70.2.85/32"), std::string::npos) << now;
  // The first metric goes where there is a second: the second shows.
  ASSERT_TRUE(ipBatch(routes(600, "route del", "metric 0", 3, 1)));
  now = settled(routesCommand);
  EXPECT_EQ(now, fresh(routesCommand));
  EXPECT_NE(now.find("10.70.0.7/32 [0/50] via 10.1.0.2, v0"), std::string::npos) << now;
  EXPECT_EQ(attachment->catalogPublished(), catalog) << "route changes published the catalog";

  ASSERT_TRUE(ip("addr add 10.3.0.1/24 dev v1"));
  now = settled(routesCommand);
  EXPECT_NE(now.find("10.3.0.0/24"), std::string::npos) << now;
  EXPECT_GT(attachment->catalogPublished(), catalog);
}

// A socket buffer too small for a burst: the notifications lost are never passed over, the
// kernel is read again, and the listing is a fresh read's.
TEST_F(LiveAgent, AnOverrunEndsInAReadAndTheListingOfAFreshRead) {
  const std::string log = dir_ + "/agent.log";
  startAgent({"ROVA_AGENT_RECEIVE_BUFFER=4096"}, log);
  const std::vector<std::string> routesCommand = {"show", "ip", "route"};
  // The agent stopped while the bursts come, so that they overrun its socket however fast it
  // would read them; it goes on whatever the bursts did.
  ::kill(agent_->pid(), SIGSTOP);
  const bool added = ipBatch(routes(3000, "route add", "via 10.1.0.2 proto bgp"));
  const bool changed = ipBatch(routes(3000, "route replace", "via 10.2.0.2 proto bgp", 2) +
                               routes(3000, "route del", "", 3));
  ::kill(agent_->pid(), SIGCONT);
  ASSERT_TRUE(added && changed);
  const std::string now = settled(routesCommand);
  EXPECT_EQ(now, fresh(routesCommand));
  EXPECT_NE(now.find("10.70.11.183/32 [200/0] via 10.1.0.2, v0"), std::string::npos) << now;
  EXPECT_NE(fileText(log).find("notifications were lost"), std::string::npos) << fileText(log);
}
