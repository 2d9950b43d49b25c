// A live agent's static routes, in a network namespace of the test's own: a configuration line
// reaches the kernel and the agent's state, `no ip route` takes away only what the agent put
// there, what the kernel refuses stays configured and goes in when it can, and a new agent
// programs the file's routes again.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "agent/KernelStatics.h"
#include "agent/LiveChanges.h"
#include "platform/plexa/Prefix.h"
#include "snapshot/LiveFollower.h"
#include "snapshot/StateLayout.h"
#include "tests/agent/AgentProcess.h"
#include "tests/cli/Capture.h"
#include "tests/support/InNamespace.h"

namespace {

namespace layout = Snapshot::layout;
using agenttest::AgentProcess;
using agenttest::uniqueName;

std::string fileText(const std::string& path) {
  std::ifstream in(path);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

using rovatest::InNamespace;

// A namespace with a link (v0, 10.1.0.1/24, 2001:db8:1::1/64) and a directory for the static
// configuration, both removed whatever the test's outcome.
class KernelStatics : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to make a network namespace";
    ns_ = uniqueName("statics");
    if (!sh("ip netns add " + ns_)) GTEST_SKIP() << "cannot make a network namespace";
    made_ = true;
    char dir[] = "/tmp/rova-statics-XXXXXX";
    ASSERT_NE(::mkdtemp(dir), nullptr);
    dir_ = dir;
    file_ = dir_ + "/static-routes.conf";
    ASSERT_TRUE(ip("link set lo up") && ip("link add v1 type veth peer name v0") &&
                ip("link set v0 up") && ip("link set v1 up") && ip("addr add 10.1.0.1/24 dev v0") &&
                ip("addr add 2001:db8:1::1/64 dev v0 nodad"));
  }
  void TearDown() override {
    agent_.reset();
    leave();
    if (made_) sh("ip netns del " + ns_);
    if (!dir_.empty()) std::filesystem::remove_all(dir_);
  }

  static bool sh(const std::string& command) {
    return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
  }
  bool ip(const std::string& args) { return sh("ip -n " + ns_ + " " + args); }
  std::string ipOut(const std::string& args) {
    std::vector<std::string> words = {"-n", ns_};
    std::istringstream in(args);
    for (std::string w; in >> w;)
      words.push_back(w);
    return clitest::runProgram("/usr/sbin/ip", words).out;
  }

  // The test's thread in the namespace, with a live state that follows it and the agent's
  // static routes, as rova-agent --live holds them.
  void enter() {
    in_ = std::make_unique<InNamespace>(ns_);
    ASSERT_TRUE(in_->entered());
    em_ = Mox::makePtr<Statum::EntityManager>();
    statics_ = std::make_unique<Agent::KernelStatics>(file_);
    follower_ = std::make_unique<Snapshot::LiveFollower>(
        *em_, [this](const Snapshot::LiveFollower::Batch& batch) {
          statics_->keepIn(*em_);
          if (loaded_ && batch.reread) Agent::retryStaticConfig(*statics_, *em_);
        });
    Agent::loadStaticConfig(*statics_, *em_);
    loaded_ = true;
  }
  void leave() {
    follower_.reset();
    statics_.reset();
    em_.reset();
    loaded_ = false;
    in_.reset();
  }
  Agent::LiveChangeResult apply(const std::string& line) {
    return Agent::applyLiveChange(*statics_, *em_, line);
  }

  // The state's IPv4 route of `prefix` once `done` holds of it, the follower applying what
  // the kernel says meanwhile (a moment after the change); the last one seen otherwise.
  template <class Done>
  Brine::Fib::Route routeOnce(const char* prefix, Done&& done) {
    Brine::Fib::Route r{};
    for (int i = 0; i < 100; ++i) {
      pollfd p{follower_->fd(), POLLIN, 0};
      ::poll(&p, 1, 50);
      follower_->process();
      r = layout::find(*em_, layout::fibRoute, "default")
              ->lookup(Plexa::Prefix::fromString(prefix));
      if (done(r)) break;
    }
    return r;
  }
  // The configured routes of the default VRF's IPv4 configuration, by prefix and preference.
  std::vector<std::string> configured() {
    std::vector<std::string> routes;
    auto config = layout::find(*em_, layout::routingConfig, "default");
    if (!config) return routes;
    for (const auto& [key, route] : config->route())
      routes.push_back(key.prefix().stringValue() + " " + std::to_string(key.preference()));
    return routes;
  }

  std::string ns_, dir_, file_;
  bool made_ = false;
  bool loaded_ = false;
  std::unique_ptr<InNamespace> in_;
  Mox::Ptr<Statum::EntityManager> em_;
  std::unique_ptr<Agent::KernelStatics> statics_;
  std::unique_ptr<Snapshot::LiveFollower> follower_;
  std::unique_ptr<AgentProcess> agent_;
};

using T4 = Routing::Fib::RouteType;

TEST_F(KernelStatics, ALineReachesTheKernelAndTheStateAndNoRemovesOnlyWhatItProgrammed) {
  enter();
  const auto ok = apply("ip route 10.99.0.0/16 10.1.0.2");
  EXPECT_TRUE(ok.ok);
  EXPECT_EQ(ok.message, "");
  EXPECT_EQ(ipOut("route show proto static"), "10.99.0.0/16 via 10.1.0.2 dev v0 metric 1 \n");
  const auto r =
      routeOnce("10.99.0.0/16", [](const auto& x) { return x.routeType == T4::staticConfig; });
  EXPECT_EQ(r.routeType, T4::staticConfig);
  EXPECT_EQ(r.preference, 1);
  EXPECT_EQ(configured(), std::vector<std::string>{"10.99.0.0/16 1"});
  EXPECT_EQ(fileText(file_), "ip route 10.99.0.0/16 10.1.0.2\n");

  // A floating static: in the kernel behind the better one, in front once that goes.
  ASSERT_TRUE(apply("ip route 10.99.0.0/16 10.1.0.3 200").ok);
  EXPECT_EQ(ipOut("route show proto static"),
            "10.99.0.0/16 via 10.1.0.2 dev v0 metric 1 \n"
            "10.99.0.0/16 via 10.1.0.3 dev v0 metric 200 \n");
  ASSERT_TRUE(apply("no ip route 10.99.0.0/16 10.1.0.2").ok);
  const auto floating =
      routeOnce("10.99.0.0/16", [](const auto& x) { return x.preference == 200; });
  EXPECT_EQ(floating.preference, 200);
  EXPECT_EQ(fileText(file_), "ip route 10.99.0.0/16 10.1.0.3 200\n");

  // A whole read of the kernel (an address changed) keeps the configuration in the state.
  ASSERT_TRUE(ip("addr add 10.3.0.1/24 dev v1"));
  const auto before = follower_->last().resyncs;
  for (int i = 0; i < 100 && follower_->last().resyncs == before; ++i) {
    pollfd p{follower_->fd(), POLLIN, 0};
    ::poll(&p, 1, 50);
    follower_->process();
  }
  ASSERT_GT(follower_->last().resyncs, before);
  EXPECT_EQ(configured(), std::vector<std::string>{"10.99.0.0/16 200"});

  // Another protocol's route of the prefix stays when the static goes; so does an IPv6 one.
  ASSERT_TRUE(ip("route add 10.99.0.0/16 via 10.1.0.4 metric 50"));
  ASSERT_TRUE(apply("ipv6 route 2001:db8:99::/48 2001:db8:1::2").ok);
  ASSERT_TRUE(ip("-6 route add 2001:db8:99::/48 via 2001:db8:1::3 metric 7"));
  EXPECT_EQ(ipOut("-6 route show proto static"),
            "2001:db8:99::/48 via 2001:db8:1::2 dev v0 metric 1 pref medium\n");
  ASSERT_TRUE(apply("no ip route 10.99.0.0/16").ok);
  ASSERT_TRUE(apply("no ipv6 route 2001:db8:99::/48").ok);
  EXPECT_EQ(ipOut("route show 10.99.0.0/16"), "10.99.0.0/16 via 10.1.0.4 dev v0 metric 50 \n");
  EXPECT_EQ(ipOut("-6 route show 2001:db8:99::/48"),
            "2001:db8:99::/48 via 2001:db8:1::3 dev v0 metric 7 pref medium\n");
  EXPECT_EQ(ipOut("route show proto static") + ipOut("-6 route show proto static"), "");
  EXPECT_EQ(fileText(file_), "");
  EXPECT_TRUE(configured().empty());

  // Where another protocol's route holds the prefix at the same metric, the kernel refuses the
  // static one and the other stays as it was.
  ASSERT_TRUE(ip("route add 10.90.0.0/16 via 10.1.0.4 metric 1"));
  const auto taken = apply("ip route 10.90.0.0/16 10.1.0.2");
  EXPECT_TRUE(taken.ok);
  EXPECT_NE(taken.message.find("the kernel refused it: File exists"), std::string::npos)
      << taken.message;
  EXPECT_EQ(ipOut("route show 10.90.0.0/16"), "10.90.0.0/16 via 10.1.0.4 dev v0 metric 1 \n");
  ASSERT_TRUE(apply("no ip route 10.90.0.0/16").ok);
  EXPECT_EQ(ipOut("route show 10.90.0.0/16"), "10.90.0.0/16 via 10.1.0.4 dev v0 metric 1 \n");
}

TEST_F(KernelStatics, WhatTheConfigurationRefusesIsRefusedWithItsTextAndChangesNothing) {
  enter();
  // The same words through rova's own configuration mode, on its built-in state.
  const auto configMode = [](const std::string& line) {
    const auto r = clitest::runProgram(ROVA_PROGRAM, {}, "configure\n" + line + "\n");
    std::string err = r.err.substr(0, r.err.find('\n'));
    return err.rfind("line 2: ", 0) == 0 ? err.substr(8) : err;
  };
  for (const std::string line :
       {"ip route 10.99.0.0/16", "ip route 10.99.0.1/16 10.1.0.2",
        "ip route 10.99.0.0/16 10.1.0.2 tag", "ip route vrf nosuch 10.99.0.0/16 v0",
        "ipv6 route 2001:db8::/32 10.1.0.2 300"}) {
    const auto r = apply(line);
    EXPECT_FALSE(r.ok) << line;
    EXPECT_EQ(r.message, configMode(line)) << line;
    EXPECT_NE(r.message, "") << line;
  }
  const auto own = apply("ip route 10.99.0.0/16 10.1.0.1");
  EXPECT_FALSE(own.ok);
  EXPECT_EQ(own.message, "% Next hop 10.1.0.1 is an address of this router in VRF default");
  // Lines that are not static routes are the kernel's business.
  for (const std::string line : {"hostname spine1", "interface v0"}) {
    const auto r = apply(line);
    EXPECT_FALSE(r.ok) << line;
    EXPECT_NE(r.message.find("static route lines only"), std::string::npos) << r.message;
  }
  EXPECT_EQ(ipOut("route show proto static"), "");
  EXPECT_FALSE(std::filesystem::exists(file_));
  EXPECT_TRUE(configured().empty());
}

// A change the file cannot keep is not made: the configuration and the kernel stay as they
// were.
TEST_F(KernelStatics, ALineWhoseFileCannotBeWrittenChangesNothing) {
  enter();
  ASSERT_TRUE(apply("ip route 10.99.0.0/16 10.1.0.2").ok);
  // The file's directory becomes a file: nothing can be written there any more.
  std::filesystem::remove_all(dir_);
  { std::ofstream(dir_) << "not a directory\n"; }
  const std::string kernel = "10.99.0.0/16 via 10.1.0.2 dev v0 metric 1 \n";
  for (const char* line : {"ip route 10.98.0.0/16 10.1.0.3", "ip route 10.99.0.0/16 10.1.0.4",
                           "no ip route 10.99.0.0/16"}) {
    const auto r = apply(line);
    EXPECT_FALSE(r.ok) << line;
    EXPECT_EQ(r.message.rfind("% cannot write the static configuration " + file_, 0), 0u)
        << r.message;
    EXPECT_EQ(ipOut("route show proto static"), kernel) << line;
    EXPECT_EQ(configured(), std::vector<std::string>{"10.99.0.0/16 1"}) << line;
    auto config = layout::find(*em_, layout::routingConfig, "default");
    auto route =
        config->route(Routing::RouteKey(Plexa::IpGenPrefix::fromString("10.99.0.0/16"), 1));
    ASSERT_TRUE(route);
    EXPECT_EQ(route->vias(), 1u) << line;
  }
}

TEST_F(KernelStatics, ARouteTheKernelRefusesStaysConfiguredAndGoesInWhenItCan) {
  enter();
  const auto r = apply("ip route 10.95.0.0/16 10.200.0.1");
  EXPECT_TRUE(r.ok);
  EXPECT_NE(r.message.find("% 10.95.0.0/16 (preference 1, VRF default) is configured but not "
                           "programmed: the kernel refused it: "),
            std::string::npos)
      << r.message;
  EXPECT_NE(r.message.find("Network is unreachable"), std::string::npos) << r.message;
  const auto missing = apply("ip route 10.94.0.0/16 v9");
  EXPECT_TRUE(missing.ok);
  EXPECT_NE(missing.message.find("the kernel has no interface named 'v9'"), std::string::npos)
      << missing.message;
  EXPECT_EQ(ipOut("route show proto static"), "");
  EXPECT_EQ(configured(), (std::vector<std::string>{"10.94.0.0/16 1", "10.95.0.0/16 1"}));
  EXPECT_EQ(fileText(file_), "ip route 10.94.0.0/16 v9\nip route 10.95.0.0/16 10.200.0.1\n");
  EXPECT_EQ(statics_->notProgrammed().size(), 2u);

  // The gateway reachable, the interface made: each goes in at the next whole read.
  ASSERT_TRUE(ip("addr add 10.200.0.2/24 dev v1") && ip("link add v9 type veth peer name v8") &&
              ip("link set v8 up") && ip("link set v9 up"));
  for (int i = 0; i < 100 && !statics_->notProgrammed().empty(); ++i) {
    pollfd p{follower_->fd(), POLLIN, 0};
    ::poll(&p, 1, 50);
    follower_->process();
  }
  EXPECT_TRUE(statics_->notProgrammed().empty());
  EXPECT_EQ(ipOut("route show proto static"),
            "10.94.0.0/16 dev v9 scope link metric 1 \n"
            "10.95.0.0/16 via 10.200.0.1 dev v1 metric 1 \n");

  // A link that goes down takes its routes out of the kernel; they go back when it is up.
  ASSERT_TRUE(ip("link set v9 down"));
  ASSERT_TRUE(ip("link set v9 up"));
  for (int i = 0; i < 100 && ipOut("route show proto static dev v9").empty(); ++i) {
    pollfd p{follower_->fd(), POLLIN, 0};
    ::poll(&p, 1, 50);
    follower_->process();
  }
  EXPECT_EQ(ipOut("route show proto static dev v9"), "10.94.0.0/16 scope link metric 1 \n");
}

// Several vias, a nexthop object, and what the kernel cannot hold.
TEST_F(KernelStatics, ViasAreOneRouteAndAGroupIsANexthopObject) {
  ASSERT_TRUE(ip("nexthop add id 10 via 10.1.0.2 dev v0"));
  enter();
  for (const char* line : {"ip route 10.92.0.0/16 10.1.0.2", "ip route 10.92.0.0/16 10.1.0.3",
                           "ipv6 route 2001:db8:5::/48 v0", "ipv6 route 2001:db8:5::/48 v1",
                           "ip route 10.97.0.0/16 nexthop-group nhid10"}) {
    const auto r = apply(line);
    EXPECT_TRUE(r.ok && r.message.empty()) << line << ": " << r.message;
  }
  EXPECT_EQ(ipOut("route show proto static"),
            "10.92.0.0/16 metric 1 \n"
            "\tnexthop via 10.1.0.2 dev v0 weight 1 \n"
            "\tnexthop via 10.1.0.3 dev v0 weight 1 \n"
            "10.97.0.0/16 nhid 10 via 10.1.0.2 dev v0 metric 1 \n");
  EXPECT_EQ(ipOut("-6 route show proto static"),
            "2001:db8:5::/48 dev v0 metric 1 pref medium\n"
            "2001:db8:5::/48 dev v1 metric 1 pref medium\n");
  // A via that goes takes its next hop, and only it, out of the kernel.
  ASSERT_TRUE(apply("no ip route 10.92.0.0/16 10.1.0.3").ok);
  ASSERT_TRUE(apply("no ipv6 route 2001:db8:5::/48 v0").ok);
  EXPECT_EQ(ipOut("route show proto static 10.92.0.0/16"),
            "10.92.0.0/16 via 10.1.0.2 dev v0 metric 1 \n");
  EXPECT_EQ(ipOut("-6 route show proto static"), "2001:db8:5::/48 dev v1 metric 1 pref medium\n");

  const auto group = apply("ip route 10.96.0.0/16 nexthop-group other");
  EXPECT_TRUE(group.ok);
  EXPECT_NE(group.message.find("is configured but not programmed: the kernel holds nexthop groups "
                               "as nexthop objects"),
            std::string::npos)
      << group.message;
  EXPECT_EQ(ipOut("route show proto static 10.96.0.0/16"), "");
}

TEST_F(KernelStatics, ANewAgentProgramsTheFileAgain) {
  enter();
  ASSERT_TRUE(apply("ip route 10.99.0.0/16 10.1.0.2").ok);
  ASSERT_TRUE(apply("ip route 10.98.0.0/16 Null0 20").ok);
  ASSERT_TRUE(apply("ipv6 route 2001:db8:98::/48 v0").ok);
  const std::string config =
      "ip route 10.98.0.0/16 Null0 20\n"
      "ip route 10.99.0.0/16 10.1.0.2\n"
      "ipv6 route 2001:db8:98::/48 v0\n";
  EXPECT_EQ(fileText(file_), config);
  leave();
  ASSERT_TRUE(ip("route flush proto static") && ip("-6 route flush proto static"));
  ASSERT_EQ(ipOut("route show proto static"), "");

  const std::vector<std::string> inNamespace = {"ip", "netns", "exec", ns_};
  agent_ = std::make_unique<AgentProcess>(
      uniqueName("statics"), std::vector<std::string>{"--live", "--static-config", file_},
      inNamespace);
  ASSERT_TRUE(agent_->ready());
  const std::string kernel =
      "blackhole 10.98.0.0/16 metric 20 \n"
      "10.99.0.0/16 via 10.1.0.2 dev v0 metric 1 \n";
  EXPECT_EQ(ipOut("route show proto static"), kernel);
  EXPECT_EQ(ipOut("-6 route show proto static"), "2001:db8:98::/48 dev v0 metric 1 pref medium\n");
  const auto attached = [&](std::vector<std::string> command) {
    command.insert(command.begin(), "--attach=" + agent_->name());
    return clitest::runProgram(ROVA_PROGRAM, command).out;
  };
  EXPECT_EQ(attached({"show", "running-config", "static-routes"}), config);
  EXPECT_NE(attached({"show", "static-routes"}).find("D    10.98.0.0/16 [20] tag 0"),
            std::string::npos);
  std::string routes;
  for (int i = 0; i < 100; ++i) {
    routes = attached({"show", "ip", "route"});
    if (routes.find("10.99.0.0/16") != std::string::npos) break;
    ::usleep(50'000);
  }
  EXPECT_NE(routes.find(" S      10.99.0.0/16 [1/1] via 10.1.0.2, v0"), std::string::npos)
      << routes;

  // An agent that ends leaves its routes forwarding; the next one finds them there and
  // programs them as they are, once.
  agent_->stop(SIGTERM);
  agent_ = std::make_unique<AgentProcess>(
      uniqueName("statics"), std::vector<std::string>{"--live", "--static-config", file_},
      inNamespace);
  ASSERT_TRUE(agent_->ready());
  EXPECT_EQ(ipOut("route show proto static"), kernel);
  EXPECT_EQ(fileText(file_), config);

  // The option goes with --live only.
  const auto refused =
      clitest::runProgram(ROVA_AGENT, {"--state", "x.json", "--static-config", file_});
  EXPECT_EQ(refused.status, 2);
  EXPECT_NE(refused.err.find("--static-config FILE goes with --live"), std::string::npos);
}

// From an attached rova, through the agent's socket: a commit with a line the agent refuses
// programs nothing; a commit of good lines programs all of them at once; `no ip route` typed in
// another attached rova takes its route out of the kernel and the file.
TEST_F(KernelStatics, LinesTypedAttachedReachTheKernelAllOrNothing) {
  agent_ = std::make_unique<AgentProcess>(
      uniqueName("statics"), std::vector<std::string>{"--live", "--static-config", file_},
      std::vector<std::string>{"ip", "netns", "exec", ns_});
  ASSERT_TRUE(agent_->ready());
  const auto attached = [&](const std::string& input) {
    return clitest::runProgram(ROVA_PROGRAM, {"--attach=" + agent_->name()}, input);
  };
  clitest::Captured r =
      attached("configure session s1\nip route 10.97.0.0/16 10.1.0.2\nhostname other\ncommit\n");
  EXPECT_EQ(r.status, cli::kStatusFailed);
  EXPECT_NE(r.err.find("% Session s1 not committed, nothing changed: line 2 'hostname other': A "
                       "live agent takes static route lines only"),
            std::string::npos)
      << r.err;
  EXPECT_EQ(ipOut("route show proto static"), "");
  EXPECT_EQ(fileText(file_), "");

  // The refused commit's first line is not waiting in the agent's configuration either: the
  // next commit programs its own lines only.
  r = attached(
      "configure session s2\nip route 10.95.0.0/16 10.1.0.2\nip route 10.96.0.0/16 Null0 "
      "30\ncommit\n");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(ipOut("route show proto static"),
            "10.95.0.0/16 via 10.1.0.2 dev v0 metric 1 \nblackhole 10.96.0.0/16 metric 30 \n");
  // What the agent programmed is the kernel's: a fresh read shows it, with its preference.
  const std::string live =
      clitest::runProgram("/usr/bin/env", {"ip", "netns", "exec", ns_, ROVA_PROGRAM, "--live",
                                           "show", "ip", "route"})
          .out;
  EXPECT_NE(live.find(" S      10.95.0.0/16 [1/1] via 10.1.0.2, v0"), std::string::npos) << live;
  r = attached("configure\nno ip route 10.95.0.0/16 10.1.0.2\n");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(ipOut("route show proto static"), "blackhole 10.96.0.0/16 metric 30 \n");
  EXPECT_EQ(fileText(file_), "ip route 10.96.0.0/16 Null0 30\n");
}

}  // namespace
