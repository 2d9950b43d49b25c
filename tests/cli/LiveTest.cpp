// rova --live on kernel state the tests make themselves: each builds a network namespace of
// its own (veth pairs, addresses, nexthop objects, routes of several protocols, a multipath
// route, drop routes, neighbours), runs `ip netns exec NS rova --live ...` in it, and compares
// with tests/golden/live. The namespace is removed when the test ends, whatever the outcome,
// and namespaces left by a test process that died are removed before the next one starts. No
// packet leaves a namespace: nothing is sent at all beyond what the kernel does by itself
// when a link comes up.
//
// The namespaces need root; what the kernel may lack (VRF devices, MPLS encapsulation) is
// tried first, and a test that needs it is skipped with the reason.
//
// ROVA_UPDATE_GOLDEN=1 rewrites the golden files; read every changed line before committing.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "cli/Commands.h"
#include "cli/DeviceState.h"
#include "cli/LiveMode.h"
#include "cli/Runner.h"
#include "snapshot/LiveFollower.h"
#include "tests/cli/Capture.h"
#include "tests/support/GoldenCases.h"
#include "tests/support/InNamespace.h"

namespace {

const std::string kPrefix = "rova-live-test-";

clitest::Captured sh(const std::string& command) {
  return clitest::runProgram("/bin/sh", {"-c", command});
}

// Namespaces of test processes that are gone: a crash must not leave them for good.
void removeStaleNamespaces() {
  std::istringstream names(sh("ip netns list 2>/dev/null").out);
  for (std::string line; std::getline(names, line);) {
    const std::string name = line.substr(0, line.find(' '));
    if (name.rfind(kPrefix, 0) != 0) continue;
    const std::string rest = name.substr(kPrefix.size());
    const pid_t pid = static_cast<pid_t>(std::atoi(rest.substr(0, rest.find('-')).c_str()));
    if (pid > 0 && ::kill(pid, 0) != 0) sh("ip netns del " + name);
  }
}

// A network namespace that lives as long as the object.
class Namespace {
 public:
  explicit Namespace(const std::string& tag)
      : name_(kPrefix + std::to_string(::getpid()) + "-" + tag) {
    removeStaleNamespaces();
    if (::geteuid() != 0) {
      error_ = "needs root to make a network namespace";
      return;
    }
    ipPath_ = sh("command -v ip").out;
    while (!ipPath_.empty() && ipPath_.back() == '\n')
      ipPath_.pop_back();
    if (ipPath_.empty()) {
      error_ = "needs iproute2's ip";
      return;
    }
    const auto made = sh("ip netns add " + name_ + " 2>&1");
    if (made.status != 0) {
      error_ = "cannot make a network namespace: " + made.out;
      return;
    }
    created_ = true;
    // Addresses are usable at once, without duplicate detection's wait: the listings do not
    // depend on timing.
    run("sysctl -q -w net.ipv6.conf.all.accept_dad=0 net.ipv6.conf.default.accept_dad=0", true);
  }
  ~Namespace() {
    if (created_) sh("ip netns del " + name_);
  }
  Namespace(const Namespace&) = delete;
  Namespace& operator=(const Namespace&) = delete;

  bool ready() const { return error_.empty(); }
  const std::string& name() const { return name_; }
  const std::string& error() const { return error_; }

  // `ip -n NS <args>`; the first failure is kept as the namespace's error.
  bool ip(const std::string& args) { return run("ip " + args, true); }
  // A command in the namespace; false (and no error kept) when `required` is false and it
  // fails, for probing what the kernel can do.
  bool run(const std::string& command, bool required) {
    if (!error_.empty()) return false;
    const auto r = sh("ip netns exec " + name_ + " " + command + " 2>&1");
    if (r.status != 0 && required) error_ = command + ": " + r.out;
    return r.status == 0;
  }

  clitest::Captured rova(const std::vector<std::string>& words, const std::string& input = "") {
    std::vector<std::string> args = {"netns", "exec", name_, ROVA_PROGRAM, "--live"};
    args.insert(args.end(), words.begin(), words.end());
    return clitest::runProgram(ipPath_.c_str(), args, input);
  }

 private:
  std::string name_;
  std::string ipPath_;
  std::string error_;
  bool created_ = false;
};

// The device of the golden files: two uplinks with addresses of both families (one interface
// with a secondary), a third link down, a loopback address, nexthop objects and a weighted
// group, routes of every protocol the listing has a code for, a multipath route, an IPv4 route
// over an IPv6 next hop, the three kinds of drop route, two routes of one prefix at different
// metrics, a route of a table no VRF reads, and neighbours of both families.
const char* const kDevice[] = {
    "link set lo up",
    "link add eth1 address 02:00:00:00:01:01 type veth peer name peer1 address 02:00:00:00:01:02",
    "link add eth2 address 02:00:00:00:02:01 type veth peer name peer2 address 02:00:00:00:02:02",
    "link add eth3 address 02:00:00:00:03:01 type veth peer name peer3 address 02:00:00:00:03:02",
    "link set eth2 alias \"uplink to spine 2\"",
    "link set eth1 up",
    "link set peer1 up",
    "link set eth2 up",
    "link set peer2 up",
    "addr add 10.0.0.1/32 dev lo",
    "addr add 10.0.1.1/24 dev eth1",
    "addr add 10.0.9.1/24 dev eth1",
    "addr add 10.0.2.1/24 dev eth2",
    "addr add 10.0.3.1/24 dev eth3",
    "addr add 2001:db8:1::1/64 dev eth1",
    "addr add 2001:db8:2::1/64 dev eth2",
    "nexthop add id 1 via 10.0.1.2 dev eth1",
    "nexthop add id 2 via 10.0.2.2 dev eth2",
    "nexthop add id 10 group 1,3/2",
    "route add default via 10.0.1.2 proto dhcp",
    "route add 10.20.0.0/16 nhid 10 proto bgp",
    "route add 10.21.0.0/16 nhid 1 proto ospf metric 20",
    "route add 10.7.0.0/16 proto static nexthop via 10.0.1.2 weight 2 nexthop via 10.0.2.2 "
    "weight 1",
    "route add 10.8.0.0/16 via inet6 2001:db8:1::2 dev eth1 proto isis",
    "route add 10.9.0.0/16 via 10.0.2.2 proto rip",
    "route add 10.10.0.0/16 dev eth2",
    "route add 10.3.0.0/16 via 10.0.1.2 metric 10",
    "route add 10.3.0.0/16 via 10.0.2.2 metric 5",
    "route add blackhole 10.6.0.0/16",
    "route add unreachable 10.5.0.0/16",
    "route add prohibit 10.4.0.0/16",
    "route add 192.0.2.0/24 via 10.0.1.2 table 100",
    "-6 route add default via fe80::2 dev eth1 proto ra",
    "-6 route add 2001:db8:100::/48 proto bgp nexthop via 2001:db8:1::2 dev eth1 nexthop via "
    "2001:db8:2::2 dev eth2",
    "-6 route add 2001:db8:200::/48 via 2001:db8:2::2 proto static",
    "-6 route add 2001:db8:300::/48 via 2001:db8:2::2 proto ospf",
    "-6 route add blackhole 2001:db8:dead::/48",
    "neigh add 10.0.1.2 lladdr 02:00:00:00:01:02 dev eth1 nud permanent",
    "neigh add 10.0.1.3 lladdr 02:00:00:00:01:03 dev eth1 nud stale",
    "neigh add 10.0.2.2 lladdr 02:00:00:00:02:02 dev eth2 nud reachable",
    "neigh add 2001:db8:1::2 lladdr 02:00:00:00:01:02 dev eth1 nud stale",
    "neigh add fe80::2 lladdr 02:00:00:00:01:02 dev eth1 nud permanent",
};

bool makeDevice(Namespace& ns) {
  for (const char* command : kDevice) {
    if (!ns.ip(command)) return false;
  }
  // IPv4 forwards, IPv6 does not: the two listings show both states.
  return ns.run("sysctl -q -w net.ipv4.ip_forward=1", true);
}

// ---- the golden cases ----

using Case = rovatest::GoldenCase;

class LiveGolden : public testing::TestWithParam<Case> {
 protected:
  static void SetUpTestSuite() {
    ns_ = new Namespace("golden");
    if (ns_->ready()) makeDevice(*ns_);
  }
  static void TearDownTestSuite() {
    delete ns_;
    ns_ = nullptr;
  }
  void SetUp() override {
    if (!ns_->ready()) GTEST_SKIP() << ns_->error();
  }
  static Namespace* ns_;
};
Namespace* LiveGolden::ns_ = nullptr;

TEST_P(LiveGolden, OutputIsExactlyTheGoldenFile) {
  const clitest::Captured r = ns_->rova(cli::splitWords(GetParam().command));
  rovatest::expectGolden(ROVA_GOLDEN_DIR "/live", GetParam(), r.status, r.out, r.err);
}

INSTANTIATE_TEST_SUITE_P(Commands, LiveGolden,
                         testing::ValuesIn(rovatest::readGoldenCases(ROVA_GOLDEN_DIR
                                                                     "/live/cases.txt")),
                         rovatest::goldenTestName);

// ---- the shell ----

// A script stops at the refusal (its status is the refusal's); with --keep-going, as at the
// prompt, the next command runs on the live state, and the run still ends with the refusal's
// status.
TEST(Live, TheShellRefusesConfigurationAndGoesOn) {
  Namespace ns("shell");
  if (ns.ready()) makeDevice(ns);
  if (!ns.ready()) GTEST_SKIP() << ns.error();
  const auto stopped = ns.rova({}, "configure\nshow ip route 10.21.0.0/16\n");
  EXPECT_EQ(stopped.status, 1);
  EXPECT_EQ(stopped.out, "");
  const auto r = ns.rova({"--keep-going"}, "configure\nshow ip route 10.21.0.0/16\n");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err,
            "line 1: % Configuration is refused in live mode: rova shows the kernel's routing "
            "state and does not program the kernel\n"
            "% 1 of 2 lines refused, the first at line 1\n");
  EXPECT_NE(r.out.find(" O      10.21.0.0/16 [110/20] via 10.0.1.2, eth1\n"), std::string::npos)
      << r.out;
}

// ---- what this kernel may not have ----

TEST(Live, VrfDevicesAreVrfsWithTheirOwnTables) {
  Namespace ns("vrf");
  if (ns.ready()) makeDevice(ns);
  if (!ns.ready()) GTEST_SKIP() << ns.error();
  if (!ns.run("ip link add red type vrf table 10", false))
    GTEST_SKIP() << "the kernel has no VRF devices (CONFIG_NET_VRF)";
  ns.ip("link set red up");
  ns.ip("link set eth3 master red");
  ns.ip("link set eth3 up");
  ns.ip("link set peer3 up");
  ns.ip("route add 10.11.0.0/16 via 10.0.3.2 vrf red proto bgp");
  ns.ip("neigh add 10.0.3.2 lladdr 02:00:00:00:03:02 dev eth3 nud permanent");
  ASSERT_TRUE(ns.ready()) << ns.error();

  const auto red = ns.rova({"show", "ip", "route", "vrf", "red"});
  ASSERT_EQ(red.status, 0) << red.err;
  EXPECT_NE(red.out.find(" C      10.0.3.0/24 is directly connected, eth3\n"), std::string::npos)
      << red.out;
  EXPECT_NE(red.out.find(" B E    10.11.0.0/16 [200/0] via 10.0.3.2, eth3\n"), std::string::npos)
      << red.out;
  const auto def = ns.rova({"show", "ip", "route"});
  EXPECT_EQ(def.out.find("10.11.0.0/16"), std::string::npos);
  EXPECT_EQ(def.out.find("10.0.3.0/24"), std::string::npos);
  const auto host = ns.rova({"show", "ip", "route", "vrf", "red", "host"});
  EXPECT_NE(host.out.find("10.0.3.2/32 on eth3"), std::string::npos) << host.out;
  // The address is the VRF's: a next hop in the default VRF may use it.
  EXPECT_EQ(ns.rova({"check", "ip", "nexthop", "10.0.3.1", "vrf", "red"}).status, 1);
  EXPECT_EQ(ns.rova({"check", "ip", "nexthop", "10.0.3.1"}).status, 0);
}

TEST(Live, MplsEncapsulationPushesItsLabels) {
  Namespace ns("mpls");
  if (ns.ready()) makeDevice(ns);
  if (!ns.ready()) GTEST_SKIP() << ns.error();
  if (!ns.run("ip route add 10.30.0.0/16 encap mpls 100/200 via 10.0.1.2 dev eth1 proto bgp",
              false))
    GTEST_SKIP() << "the kernel has no MPLS encapsulation (CONFIG_MPLS_IPTUNNEL)";
  ns.ip("route add 10.31.0.0/16 encap mpls 300 via 10.0.2.2 dev eth2 proto bgp");
  ASSERT_TRUE(ns.ready()) << ns.error();
  const auto stack = ns.rova({"show", "ip", "route", "10.30.0.0/16"});
  EXPECT_NE(stack.out.find("via 10.0.1.2, eth1 label 100 200"), std::string::npos) << stack.out;
  const auto one = ns.rova({"show", "ip", "route", "10.31.0.0/16"});
  EXPECT_NE(one.out.find("via 10.0.2.2, eth2 label 300"), std::string::npos) << one.out;
}

// ---- what a command reads ----

TEST(Live, ACommandReadsOnlyTheRoutesItLists) {
  cli::Grammar grammar;
  cli::addCommands(grammar);
  const auto scope = [&](const std::string& line) {
    return cli::liveScopeOf(grammar, cli::splitWords(line));
  };
  const Snapshot::LiveScope all, v4{true, false}, v6{false, true};
  EXPECT_EQ(scope("show ip route"), v4);
  EXPECT_EQ(scope("sh ip ro vrf all json"), v4);
  EXPECT_EQ(scope("show ipv6 route 2001:db8::/32"), v6);
  EXPECT_EQ(scope("show ip interface"), all);
  EXPECT_EQ(scope("show version"), all);
  EXPECT_EQ(scope("check ip nexthop 10.0.0.1"), all);
  EXPECT_EQ(scope(""), all);
}

// The narrowed read lists what the whole read lists.
TEST(Live, TheNarrowedReadListsWhatTheWholeReadLists) {
  Namespace ns("scope");
  if (ns.ready()) makeDevice(ns);
  if (!ns.ready()) GTEST_SKIP() << ns.error();
  for (const char* family : {"ip", "ipv6"}) {
    const auto narrowed = ns.rova({"show", family, "route"});
    // Through the shell, which reads everything.
    const auto whole = ns.rova({}, std::string("show ") + family + " route\n");
    EXPECT_EQ(narrowed.status, 0) << narrowed.err;
    EXPECT_EQ(narrowed.out, whole.out);
  }
}

// ---- following the kernel ----

using rovatest::InNamespace;

class Following : public testing::Test {
 protected:
  void SetUp() override {
    ns_ = std::make_unique<Namespace>("follow");
    if (ns_->ready()) makeDevice(*ns_);
    if (!ns_->ready()) GTEST_SKIP() << ns_->error();
    in_ = std::make_unique<InNamespace>(ns_->name());
    if (!in_->entered()) GTEST_SKIP() << "cannot enter the network namespace";
    grammar_.emplace();
    cli::addCommands(*grammar_);
    em_ = Mox::makePtr<Statum::EntityManager>();
  }
  void TearDown() override {
    follower_.reset();
    in_.reset();
    ns_.reset();
  }

  void follow(Snapshot::LiveFollower::Options options = {}) {
    options.log = [this](const std::string& line) { log_.push_back(line); };
    follower_ = std::make_unique<Snapshot::LiveFollower>(
        *em_, [this](const Snapshot::LiveFollower::Batch&) { ++batches_; }, options);
  }
  // Applies what the kernel has sent: the notifications of a command are queued by the time
  // it returns.
  void catchUp() {
    pollfd p{follower_->fd(), POLLIN, 0};
    while (::poll(&p, 1, 0) > 0)
      follower_->process();
  }
  // A listing of the followed tables.
  std::string followed(const std::string& line) {
    cli::DeviceState::instance().adopt(em_, "followed", "");
    // Drained while the command writes: a listing may be larger than a pipe holds.
    int out[2], err[2];
    if (::pipe(out) != 0 || ::pipe(err) != 0) return "(no pipe)";
    std::string text, errors;
    std::thread drainOut([&] { text = clitest::drain(out[0]); });
    std::thread drainErr([&] { errors = clitest::drain(err[0]); });
    const int status =
        cli::runCommand(*grammar_, cli::splitWords(line), cli::Context{out[1], err[1]});
    ::close(out[1]);
    ::close(err[1]);
    drainOut.join();
    drainErr.join();
    EXPECT_EQ(status, 0) << errors;
    return text;
  }
  // The same listing from a fresh read.
  std::string fresh(const std::string& line) {
    const auto r = ns_->rova(cli::splitWords(line));
    EXPECT_EQ(r.status, 0) << r.err;
    return r.out;
  }
  void expectSameAsFresh(const std::string& why) {
    for (const char* line : {"show ip route", "show ipv6 route", "show ip route json",
                             "show ip route host", "show nexthop-group"}) {
      EXPECT_EQ(followed(line), fresh(line)) << why << ": " << line;
    }
  }

  std::unique_ptr<Namespace> ns_;
  std::unique_ptr<InNamespace> in_;
  std::optional<cli::Grammar> grammar_;
  Mox::Ptr<Statum::EntityManager> em_;
  std::unique_ptr<Snapshot::LiveFollower> follower_;
  std::vector<std::string> log_;
  int batches_ = 0;
};

TEST_F(Following, RoutesAddedReplacedAndRemovedAreEachSeen) {
  follow();
  EXPECT_EQ(batches_, 1);
  expectSameAsFresh("the first read");

  ns_->ip("route add 10.50.0.0/16 via 10.0.1.2 proto bgp");
  ns_->ip(
      "-6 route add 2001:db8:500::/48 proto bgp nexthop via 2001:db8:1::2 dev eth1 "
      "nexthop via 2001:db8:2::2 dev eth2");
  ns_->ip("neigh add 10.0.2.9 lladdr 02:00:00:00:02:09 dev eth2 nud permanent");
  ASSERT_TRUE(ns_->ready()) << ns_->error();
  catchUp();
  EXPECT_NE(followed("show ip route").find(" B E    10.50.0.0/16 [200/0] via 10.0.1.2, eth1\n"),
            std::string::npos);
  expectSameAsFresh("added");

  ns_->ip("route replace 10.50.0.0/16 via 10.0.2.2 proto static");
  // One next hop of the IPv6 multipath route goes; the other stays.
  ns_->ip("-6 route del 2001:db8:500::/48 via 2001:db8:1::2 dev eth1");
  // A lower metric hides the route of the same prefix.
  ns_->ip("route add 10.3.0.0/16 via 10.0.1.2 metric 1");
  ASSERT_TRUE(ns_->ready()) << ns_->error();
  catchUp();
  EXPECT_NE(followed("show ip route").find(" S      10.50.0.0/16 [1/0] via 10.0.2.2, eth2\n"),
            std::string::npos);
  expectSameAsFresh("replaced");

  ns_->ip("route del 10.50.0.0/16");
  ns_->ip("route del 10.3.0.0/16 via 10.0.1.2 metric 1");
  ns_->ip("-6 route del 2001:db8:500::/48");
  ns_->ip("neigh del 10.0.2.9 dev eth2");
  ASSERT_TRUE(ns_->ready()) << ns_->error();
  catchUp();
  EXPECT_EQ(followed("show ip route").find("10.50.0.0/16"), std::string::npos);
  expectSameAsFresh("removed");

  // A link that goes down takes its routes along without a word from the kernel: read again.
  ns_->ip("link set eth2 down");
  ASSERT_TRUE(ns_->ready()) << ns_->error();
  catchUp();
  EXPECT_GE(follower_->last().resyncs, 1u);
  expectSameAsFresh("a link down");
  EXPECT_EQ(follower_->last().rereads, 0u);
  EXPECT_TRUE(log_.empty());
}

TEST_F(Following, AnOverrunEndsInAReadNotALostRoute) {
  Snapshot::LiveFollower::Options options;
  options.receiveBuffer = 4096;
  follow(options);
  // Two thousand routes at once: far more notifications than the socket's buffer holds.
  const auto burst =
      sh("awk 'BEGIN { for (i = 0; i < 2000; i++) printf \"route add "
         "10.60.%d.%d/32 via 10.0.1.2 proto bgp\\n\", i / 256, i % 256 }' | ip -n " +
         ns_->name() + " -batch - 2>&1");
  ASSERT_EQ(burst.status, 0) << burst.out;
  catchUp();
  ASSERT_GE(follower_->last().rereads, 1u);
  ASSERT_EQ(log_.size(), follower_->last().rereads);
  EXPECT_NE(log_[0].find("notifications were lost"), std::string::npos) << log_[0];
  const std::string routes = followed("show ip route");
  EXPECT_NE(routes.find(" B E    10.60.7.207/32 [200/0] via 10.0.1.2, eth1\n"), std::string::npos);
  EXPECT_EQ(routes, fresh("show ip route"));
}

// ---- when the kernel cannot be read ----

#if defined(__x86_64__) || defined(__aarch64__)
// Makes socket(AF_NETLINK, ...) fail with EPERM, as a sandbox that denies netlink does.
void denyNetlink() {
#if defined(__x86_64__)
  constexpr std::uint32_t arch = AUDIT_ARCH_X86_64;
#else
  constexpr std::uint32_t arch = AUDIT_ARCH_AARCH64;
#endif
  sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, arch, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_socket, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[0])),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AF_NETLINK, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | (EPERM & SECCOMP_RET_DATA)),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  sock_fprog program = {static_cast<unsigned short>(sizeof filter / sizeof filter[0]), filter};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
    ::_exit(125);
}

TEST(Live, WithoutNetlinkTheStateCannotBeRead) {
  const auto r =
      clitest::runProgram(ROVA_PROGRAM, {"--live", "show", "ip", "route"}, "", denyNetlink);
  ASSERT_NE(r.status, 125) << "the system refused the seccomp filter";
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err,
            "% Cannot read live state: cannot open a netlink socket: Operation not permitted\n");
  EXPECT_EQ(r.out, "");
}
#endif

}  // namespace
