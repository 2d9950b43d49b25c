// Changes typed in an attached rova: sent to the agent, applied there, seen by every reader, and
// read back exactly as the same lines give on a loaded state; who may change; what a broken or
// stalled client does to the agent (nothing).

#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "agent/Channel.h"
#include "cli/Runner.h"
#include "tests/agent/AgentProcess.h"
#include "tests/cli/Capture.h"

namespace {

using agenttest::AgentProcess;
using agenttest::uniqueName;
using clitest::Captured;

// A directory of the test's own with a copy of the example state, removed whatever happens.
class StateDir {
 public:
  StateDir() {
    char dir[] = "/tmp/rova-changes-test-XXXXXX";
    if (::mkdtemp(dir)) path_ = dir;
  }
  ~StateDir() {
    if (!path_.empty()) std::filesystem::remove_all(path_);
  }
  // A copy of the example, named `name` in the directory.
  std::string copy(const std::string& name) const {
    const std::string to = path_ + "/" + name;
    std::filesystem::copy_file(ROVA_EXAMPLE, to);
    return to;
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

Captured attached(const AgentProcess& agent, std::vector<std::string> args,
                  const std::string& input = "") {
  args.insert(args.begin(), "--attach=" + agent.name());
  return clitest::runProgram(ROVA_PROGRAM, args, input);
}

Captured loaded(const std::string& file, std::vector<std::string> args,
                const std::string& input = "") {
  args.insert(args.begin(), {"--state", file});
  return clitest::runProgram(ROVA_PROGRAM, args, input);
}

// What a state shows of its configuration and routes.
const std::vector<std::vector<std::string>> kListings = {
    {"show", "running-config"},
    {"show", "ip", "route"},
    {"show", "ip", "route", "vrf", "red", "json"},
    {"show", "ipv6", "route"},
    {"show", "ip", "interface", "brief"},
    {"show", "nexthop-group", "json"},
};

std::string generationOf(const AgentProcess& agent) {
  const std::string out = attached(agent, {"show", "version"}).out;
  const std::size_t at = out.find("generation ");
  return at == std::string::npos ? "" : out.substr(at);
}

class Changes : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(dir_.path().empty());
    agentState_ = dir_.copy("agent.json");
    loadedState_ = dir_.copy("loaded.json");
    agent_ = std::make_unique<AgentProcess>(uniqueName("changes"),
                                            std::vector<std::string>{"--state", agentState_});
    ASSERT_TRUE(agent_->ready());
  }
  // Runs `script` and `write` attached and on the loaded copy: the same output, messages and
  // status.
  void sameEitherWay(const std::string& script, const std::string& what) {
    const Captured a = attached(*agent_, {"--keep-going"}, script + "write\n");
    const Captured l = loaded(loadedState_, {"--keep-going"}, script + "write\n");
    EXPECT_EQ(a.status, l.status) << what;
    EXPECT_EQ(a.out, l.out) << what;
    EXPECT_EQ(a.err, l.err) << what;
  }
  // Every listing of a reader attached now equals that of the loaded copy.
  void sameListings(const std::string& what) {
    for (const auto& listing : kListings) {
      const Captured a = attached(*agent_, listing);
      const Captured l = loaded(loadedState_, listing);
      EXPECT_EQ(a.status, 0) << what << ": " << a.err;
      EXPECT_EQ(a.out, l.out) << what << ": " << listing[1] << " " << listing.back();
    }
  }

  StateDir dir_;
  std::string agentState_, loadedState_;
  std::unique_ptr<AgentProcess> agent_;
};

TEST_F(Changes, LinesAppliedAttachedAreSeenByEveryReaderAsOnALoadedState) {
  const std::string before = generationOf(*agent_);
  // Static routes, an interface the state does not have, an address, a VRF and a group: each
  // kind of line, in configuration mode and in sub-modes.
  const std::string script =
      "configure\n"
      "ip route 10.99.0.0/16 Ethernet1 10.0.0.9 tag 7\n"
      "ipv6 route 2001:db8:99::/48 Null0\n"
      "interface Loopback9\n"
      "ip address 10.199.0.1/32\n"
      "exit\n"
      "vrf instance blue\n"
      "rd 65000:9\n"
      "exit\n"
      "ip route vrf blue 10.5.0.0/16 Null0\n"
      "nexthop-group NHG-Z type mpls\n"
      "entry 0 nexthop 10.1.1.9 label push 900\n"
      "end\n";
  sameEitherWay(script + "show running-config static-routes\n", "configuration lines");
  sameListings("after the configuration lines");
  EXPECT_NE(generationOf(*agent_), before);

  // A clear command: its output, then what a second reader lists, as one shell on a loaded
  // copy gives them (the agent, like a shell, remembers which routes its statics put in the
  // tables).
  const std::vector<std::string> clear = {"clear", "static-routes", "interface", "Ethernet1"};
  const Captured a = attached(*agent_, clear);
  EXPECT_EQ(a.status, 0) << a.err;
  for (const auto& listing : kListings) {
    std::string line;
    for (const std::string& w : listing)
      line += w + " ";
    const Captured reference =
        loaded(dir_.copy("reference.json"), {},
               script + "clear static-routes interface Ethernet1\n" + line + "\n");
    std::filesystem::remove(dir_.path() + "/reference.json");
    EXPECT_EQ(a.out + attached(*agent_, listing).out, reference.out) << line;
  }
  const Captured aj = attached(*agent_, {"clear", "nexthop-group", "counters", "json"});
  const Captured lj = loaded(loadedState_, {"clear", "nexthop-group", "counters", "json"});
  EXPECT_EQ(aj.out, lj.out);
  EXPECT_EQ(aj.status, lj.status);

  // A shell that stays open sees its own change at once, and `write` saves the agent's file.
  const Captured shell = attached(*agent_, {},
                                  "configure\nno ip route vrf blue 10.5.0.0/16\nend\n"
                                  "show running-config static-routes\nwrite\n");
  EXPECT_EQ(shell.status, 0) << shell.err;
  EXPECT_EQ(shell.out.find("10.5.0.0/16"), std::string::npos) << shell.out;
  const Captured saved = loaded(agentState_, {"show", "running-config"});
  EXPECT_EQ(saved.out, attached(*agent_, {"show", "running-config"}).out);
  EXPECT_NE(saved.out.find("nexthop-group NHG-Z type mpls"), std::string::npos) << saved.out;
  EXPECT_EQ(saved.out.find("10.5.0.0/16"), std::string::npos) << saved.out;
}

TEST_F(Changes, RefusalsReadAsOnALoadedStateAndChangeNothing) {
  const std::string before = attached(*agent_, {"show", "running-config"}).out;
  sameEitherWay(
      "configure\n"
      "ip route vrf nosuch 10.1.0.0/16 Null0\n"
      "ip route 10.1.2.3/16 Null0\n"
      "interface Ethernet1\n"
      "ip address 999.1.1.1/24\n"
      "end\n",
      "refused lines");
  sameEitherWay("clear static-routes interface Ethernet1 vrf nosuch\n", "a refused clear");
  EXPECT_EQ(attached(*agent_, {"show", "running-config"}).out, before);

  // A session with one bad line: the agent says what the loaded state says, and takes nothing.
  sameEitherWay(
      "configure session s1\n"
      "ip route 10.91.0.0/16 Null0\n"
      "ip route 10.92.0.0/16 Ethernet1 10.0.0.9\n"
      "interface Ethernet2\n"
      "ip address 10.88.0.1/24\n"
      "exit\n"
      "ip route vrf nosuch 10.93.0.0/16 Null0\n"
      "commit\n",
      "a refused commit");
  EXPECT_EQ(attached(*agent_, {"show", "running-config"}).out, before);
  // The same session without it goes in whole.
  sameEitherWay(
      "configure session s2\n"
      "ip route 10.91.0.0/16 Null0\n"
      "interface Ethernet2\n"
      "ip address 10.88.0.1/24\n"
      "exit\n"
      "ip route 10.88.5.0/24 Ethernet2 10.88.0.5\n"
      "commit\n",
      "a commit");
  sameListings("after the commit");

  // `write FILE` would have the agent write where a client says: refused.
  const Captured w = attached(*agent_, {"write", dir_.path() + "/elsewhere.json"});
  EXPECT_EQ(w.status, cli::kStatusFailed);
  EXPECT_EQ(w.err, "% Refused when attached: the state agent '" + agent_->name() +
                       "' writes only its own state file (write, without a file)\n");
  EXPECT_FALSE(std::filesystem::exists(dir_.path() + "/elsewhere.json"));
}

// ---- the channel ----

// A client of the change socket that says what it likes.
int connectTo(const std::string& name) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un a{};
  a.sun_family = AF_UNIX;
  const std::string path = Agent::socketPathOf(name);
  std::memcpy(a.sun_path, path.data(), path.size());
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&a), sizeof a) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

std::string frame(std::uint32_t length, const std::string& body) {
  std::string f = {char(length >> 24), char(length >> 16), char(length >> 8), char(length)};
  return f + body;
}
std::string frame(const std::string& body) {
  return frame(static_cast<std::uint32_t>(body.size()), body);
}

// The whole answer, up to the agent's closing the connection.
std::string answer(int fd) {
  std::string in;
  char buf[4096];
  ssize_t n;
  while ((n = ::recv(fd, buf, sizeof buf, 0)) > 0)
    in.append(buf, static_cast<std::size_t>(n));
  return in.size() < 4 ? in : in.substr(4);
}

TEST_F(Changes, BrokenAndStalledClientsNeverStopTheAgentServingTheNext) {
  struct Fd {
    int fd;
    ~Fd() {
      if (fd >= 0) ::close(fd);
    }
  };
  // Stalled: half a request, and the connection held open for the whole test.
  Fd stalled{connectTo(agent_->name())};
  ASSERT_GE(stalled.fd, 0);
  ASSERT_EQ(::send(stalled.fd, "\0\0\0\x40rova", 8, 0), 8);
  // Gone: half a request, then closed.
  {
    Fd gone{connectTo(agent_->name())};
    ASSERT_GE(gone.fd, 0);
    ASSERT_EQ(::send(gone.fd, "\0\0\0\x40", 4, 0), 4);
  }
  const std::vector<std::pair<std::string, std::string>> broken = {
      {frame("not a req"), "% A malformed request: not a change request\n"},
      {frame("rova-request 1\nexplode\n"), "% A malformed request: an unknown kind of request\n"},
      {frame("rova-request 1\nlines\nin x\n"), "% A malformed request: a mode without its line\n"},
      {frame(0xffffffffu, "x"), "% The request is too large for the state agent\n"},
      {frame("rova-request 1\nlines\nline show"),
       "% A malformed request: a line without its end\n"},
      {frame("rova-request 1\ncommand\nline write /etc/x\n"),
       "% Refused when attached: the state agent '" + agent_->name() +
           "' writes only its own state file (write, without a file)\n"},
      {frame("rova-request 1\nlines\nline show ip route json\n"),
       "% Not a configuration line: 'show ip route json'\n"},
  };
  for (const auto& [request, message] : broken) {
    Fd c{connectTo(agent_->name())};
    ASSERT_GE(c.fd, 0);
    ASSERT_EQ(::send(c.fd, request.data(), request.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(request.size()));
    ::shutdown(c.fd, SHUT_WR);
    const auto reply = Agent::decodeReply(answer(c.fd));
    ASSERT_TRUE(reply) << message;
    EXPECT_NE(reply->status, 0) << message;
    EXPECT_EQ(reply->err, message);
  }
  // While the stalled client still waits, a real change is applied and seen.
  const Captured r = attached(*agent_, {}, "configure\nip route 10.66.0.0/16 Null0\n");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(attached(*agent_, {"show", "ip", "route", "10.66.0.0/16"}).out.find("10.66.0.0/16"),
            std::string::npos);
}

// An agent that takes its time (here: stopped) keeps a change's sender waiting; ^C ends the
// wait with status 130 and says that the change may still be applied.
TEST_F(Changes, AnInterruptEndsTheWaitForASlowAgent) {
  ASSERT_EQ(::kill(agent_->pid(), SIGSTOP), 0);
  struct Resume {
    pid_t pid;
    ~Resume() { ::kill(pid, SIGCONT); }
  } resume{agent_->pid()};
  // In the sender, just before it starts: a watcher that interrupts it after a second, and
  // kills it should it still wait half a minute later (a failure, not a hung test). The
  // watcher ends as soon as the sender does.
  const auto watcher = [] {
    const pid_t sender = ::getpid();
    if (::fork() != 0) return;
    for (int fd : {0, 1, 2})
      ::close(fd);  // the test reads the sender's output to its end
    for (int tick = 0; ::getppid() == sender; ++tick) {
      if (tick == 20) ::kill(sender, SIGINT);
      if (tick == 600) ::kill(sender, SIGKILL);
      ::usleep(50'000);
    }
    ::_exit(0);
  };
  const Captured r = clitest::runProgram(
      ROVA_PROGRAM,
      {"--attach=" + agent_->name(), "clear", "static-routes", "interface", "Ethernet1"}, "",
      watcher);
  EXPECT_EQ(r.status, cli::kStatusSignal + SIGINT);
  EXPECT_EQ(r.err, "% Interrupted: the change was sent to the state agent '" + agent_->name() +
                       "', which may still apply it\n");
}

TEST(ChangeTexts, RequestsAndRepliesReadBackAsWrittenAndNothingElseReads) {
  Agent::Request r;
  r.kind = Agent::Request::Kind::commit;
  r.session = "s1";
  r.lines = {{"", "ip route 10.0.0.0/8 Null0"},
             {"interface Ethernet1", "ip address 10.1.1.1/24"},
             {"", "ip route 10.1.0.0/16 Null0 name \"a b\""}};
  const auto back = Agent::decodeRequest(Agent::encodeRequest(r));
  ASSERT_TRUE(back);
  EXPECT_EQ(back->kind, r.kind);
  EXPECT_EQ(back->session, "s1");
  ASSERT_EQ(back->lines.size(), 3u);
  EXPECT_EQ(back->lines[1].mode, "interface Ethernet1");
  EXPECT_EQ(back->lines[2].line, "ip route 10.1.0.0/16 Null0 name \"a b\"");
  // A newline inside a line would be read as a line of its own: refused when written.
  r.lines[0].line = "ip route 10.0.0.0/8 Null0\nline write /etc/passwd";
  EXPECT_THROW(Agent::encodeRequest(r), Agent::ChannelError);

  const Agent::Reply reply{1, "{}\n", "% one\n% two\n"};
  const auto replyBack = Agent::decodeReply(Agent::encodeReply(reply));
  ASSERT_TRUE(replyBack);
  EXPECT_EQ(replyBack->status, 1);
  EXPECT_EQ(replyBack->out, "{}\n");
  EXPECT_EQ(replyBack->err, "% one\n% two\n");
  const std::string whole = Agent::encodeReply(reply);
  for (std::size_t cut = 0; cut < whole.size(); ++cut)
    EXPECT_FALSE(Agent::decodeReply(whole.substr(0, cut))) << cut;
  EXPECT_FALSE(Agent::decodeRequest("rova-request 1\ncommand\nin x\nline clear x\n"));
  EXPECT_FALSE(Agent::decodeRequest("rova-request 1\ncommand\nline a\nline b\n"));
  EXPECT_FALSE(Agent::decodeRequest("rova-request 1\nlines\n"));
}

// Without root there is no second user to be.
TEST(ChangeUsers, AnUnlistedUserReadsButIsRefusedAChangeAndAListedOneChanges) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to run as another user";
  const auto asNobody = agenttest::becomeNobody();
  if (!asNobody) GTEST_SKIP() << "no user 'nobody'";
  StateDir dir;
  ASSERT_FALSE(dir.path().empty());
  ASSERT_EQ(::chmod(dir.path().c_str(), 0755), 0);
  const std::string program = dir.path() + "/rova";
  std::filesystem::copy_file(ROVA_PROGRAM, program);
  ASSERT_EQ(::chmod(program.c_str(), 0755), 0);
  const std::string state = dir.copy("s.json");
  const std::string name = uniqueName("users");
  const std::string script = "configure\nip route 10.44.0.0/16 Null0\n";
  {
    AgentProcess agent(name, {"--state", state, "--mode", "0644"});
    ASSERT_TRUE(agent.ready());
    Captured r = clitest::runProgram(program.c_str(), {"--attach=" + name}, script, asNobody);
    EXPECT_EQ(r.status, cli::kStatusFailed);
    EXPECT_EQ(r.err,
              "line 2: % Changes are refused: user 'nobody' may read the state agent '" + name +
                  "' but not change it\n% 1 of 2 lines refused; the run stopped at line 2\n");
    r = clitest::runProgram(program.c_str(),
                            {"--attach=" + name, "clear", "nexthop-group", "counters", "json"}, "",
                            asNobody);
    EXPECT_EQ(r.status, cli::kStatusFailed);
    EXPECT_EQ(r.out, "{}\n");
    r = clitest::runProgram(program.c_str(), {"--attach=" + name, "show", "ip", "route"}, "",
                            asNobody);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.find("10.44.0.0/16"), std::string::npos);
    // Its owner, root, changes it.
    r = clitest::runProgram(ROVA_PROGRAM, {"--attach=" + name}, script);
    EXPECT_EQ(r.status, 0) << r.err;
  }
  AgentProcess agent(name, {"--state", state, "--mode", "0644", "--allow", "65000,nobody"});
  ASSERT_TRUE(agent.ready());
  const Captured r = clitest::runProgram(program.c_str(), {"--attach=" + name}, script, asNobody);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(clitest::runProgram(ROVA_PROGRAM, {"--attach=" + name, "show", "ip", "route"})
                .out.find("10.44.0.0/16"),
            std::string::npos);
}

}  // namespace
