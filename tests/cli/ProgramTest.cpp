// Whole programs: the shell driven through a pseudo-terminal the way a user types at it, and
// the rova program run once per command.

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "tests/cli/Capture.h"
#include "tests/cli/ExampleStateFile.h"
#include "tests/support/GoldenCases.h"

namespace {

// Every wait is for a text to appear; the limit only turns a hang into a failure, so it is
// generous enough for a loaded sanitizer build.
constexpr std::chrono::seconds kPatience{60};

// Terminal control sequences and carriage returns removed, so that tests read what a user
// would see on a line.
std::string visibleText(std::string_view raw) {
  std::string out;
  for (std::size_t i = 0; i < raw.size(); ++i) {
    char c = raw[i];
    if (c == '\x1b') {
      if (i + 1 < raw.size() && raw[i + 1] == '[') {
        i += 2;
        while (i < raw.size() && !(raw[i] >= '@' && raw[i] <= '~'))
          ++i;
      } else {
        i += 1;  // a two-character sequence such as ESC =
      }
    } else if (c != '\r' && c != '\a' && c != '\0') {  // NULs are vt100 padding
      out += c;
    }
  }
  return out;
}

class TerminalSession {
 public:
  explicit TerminalSession(const char* program) {
    winsize size{};
    size.ws_row = 24;
    size.ws_col = 100;
    pid_ = forkpty(&master_, nullptr, nullptr, &size);
    if (pid_ == 0) {
      setenv("TERM", "vt100", 1);
      execl(program, program, static_cast<char*>(nullptr));
      _exit(127);
    }
  }

  ~TerminalSession() {
    if (pid_ > 0 && !exited_) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    if (master_ >= 0) close(master_);
  }

  bool started() const { return pid_ > 0; }

  void type(std::string_view keys) {
    while (!keys.empty()) {
      ssize_t n = write(master_, keys.data(), keys.size());
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return;
      keys.remove_prefix(static_cast<std::size_t>(n));
    }
  }

  // SIGINT straight to the program, as the terminal's ^C would send it.
  void interrupt() { kill(pid_, SIGINT); }

  // Waits until `text` appears after everything earlier expectations have seen, and moves
  // past it.
  testing::AssertionResult expect(std::string_view text) {
    auto deadline = std::chrono::steady_clock::now() + kPatience;
    for (;;) {
      std::string seen = visibleText(raw_);
      if (auto at = seen.find(text, consumed_); at != std::string::npos) {
        consumed_ = at + text.size();
        return testing::AssertionSuccess();
      }
      if (!readSome(deadline)) {
        return testing::AssertionFailure() << "no '" << text << "' after:\n"
                                           << seen.substr(consumed_) << "\n--- whole session:\n"
                                           << seen;
      }
    }
  }

  // Reads to the end of the session and returns the program's exit status, or -1 when it
  // is still running after the wait.
  int exitStatus() {
    auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (readSome(deadline)) {
    }
    // The terminal closes as the program exits, so then waiting for it is safe.
    int status = 0;
    if (waitpid(pid_, &status, ended_ ? 0 : WNOHANG) != pid_) return -1;
    exited_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  std::string seen() const { return visibleText(raw_); }

 private:
  // False at the end of the session or when the deadline passed.
  bool readSome(std::chrono::steady_clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return false;
    pollfd p{master_, POLLIN, 0};
    int ready = poll(&p, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno == EINTR) return true;
    if (ready <= 0) return false;
    char buffer[4096];
    ssize_t n = read(master_, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) return true;
    if (n <= 0) {  // EIO: the program closed the terminal
      ended_ = true;
      return false;
    }
    raw_.append(buffer, static_cast<std::size_t>(n));
    return true;
  }

  int master_ = -1;
  pid_t pid_ = -1;
  bool exited_ = false;
  bool ended_ = false;
  std::string raw_;
  std::size_t consumed_ = 0;
};

constexpr const char* kPrompt = "rova> ";
constexpr const char* kUp = "\x1b[A";

TEST(ShellTerminal, TabCompletesAndListsQuestionMarkHelps) {
  TerminalSession s(CLI_SHELL_DEMO);
  ASSERT_TRUE(s.started());
  ASSERT_TRUE(s.expect(kPrompt));
  s.type("sh\t");
  ASSERT_TRUE(s.expect("show "));
  s.type("ip route ?");
  ASSERT_TRUE(s.expect("\n  A.B.C.D      IPv4 address\n  A.B.C.D/LEN  IPv4 prefix\n"));
  ASSERT_TRUE(s.expect("  vrf          Routes of one VRF\n  <cr>\n"));
  // The line comes back as it was, without the '?'.
  ASSERT_TRUE(s.expect("rova> show ip route "));
  s.type("vrf red 10.0.0.0/8 l\t");
  ASSERT_TRUE(s.expect("longer-prefixes "));
  s.type("\r");
  ASSERT_TRUE(s.expect("route NAME=red A.B.C.D/LEN=10.0.0.0/8 longer text\n"));
  ASSERT_TRUE(s.expect(kPrompt));
  s.type("show i\t");
  ASSERT_TRUE(s.expect("interfaces  ip\n"));
  ASSERT_TRUE(s.expect("rova> show i"));
  s.type("p?");
  ASSERT_TRUE(s.expect("  ip  IP information\n"));
  s.type(
      "\x15"
      "exit\r");  // ^U drops the line first
  EXPECT_EQ(s.exitStatus(), 0) << s.seen();
  EXPECT_EQ(s.seen().find("Invalid"), std::string::npos) << s.seen();
}

// At the prompt a refused or failing command does not end the session (a script's does), an
// empty line only prompts again, and the up arrow recalls the last line. The session ends
// with the status of its last command.
TEST(ShellTerminal, GoesOnAfterErrorsAndRecallsHistory) {
  TerminalSession s(CLI_SHELL_DEMO);
  ASSERT_TRUE(s.started());
  ASSERT_TRUE(s.expect(kPrompt));
  s.type("show bogus\r");
  ASSERT_TRUE(s.expect("% Invalid input at 'bogus'\n"));
  s.type("\r");
  ASSERT_TRUE(s.expect(kPrompt));
  s.type("sh ver\r");
  ASSERT_TRUE(s.expect("demo 1.0\n"));
  s.type(kUp);
  ASSERT_TRUE(s.expect("sh ver"));
  s.type("\r");
  ASSERT_TRUE(s.expect("demo 1.0\n"));
  s.type("fail\r");
  ASSERT_TRUE(s.expect("% the check refused\n"));
  s.type("quit\r");
  EXPECT_EQ(s.exitStatus(), 1) << s.seen();
}

TEST(ShellTerminal, InterruptAbandonsTheLineOrStopsTheCommand) {
  TerminalSession s(CLI_SHELL_DEMO);
  ASSERT_TRUE(s.started());
  ASSERT_TRUE(s.expect(kPrompt));
  // At the prompt: the half-typed line is dropped, so the next one runs on its own.
  s.type("show ver");
  ASSERT_TRUE(s.expect("show ver"));
  s.type("\x03");
  ASSERT_TRUE(s.expect(kPrompt));
  s.type("tty-mode\r");
  // The command runs with the terminal back in its normal mode.
  ASSERT_TRUE(s.expect("mode icanon=1 echo=1 isig=1\n"));
  ASSERT_TRUE(s.expect(kPrompt));

  // A command without a handler of its own is interrupted, not the shell. The terminal
  // flushes its output on ^C while a command runs, so what the command printed after it may
  // be lost; the next command shows the shell went on.
  s.type("wait-interrupt\r");
  ASSERT_TRUE(s.expect("waiting for ^C\n"));
  s.type("\x03");
  s.type("show version\r");
  ASSERT_TRUE(s.expect("demo 1.0\n"));
  ASSERT_TRUE(s.expect(kPrompt));

  // A printer-like command turns the interrupt into an exception, which ends only that
  // command. Sent as a signal, so that no flush can take the message away.
  s.type("print-until-interrupted\r");
  ASSERT_TRUE(s.expect("printing\n"));
  s.interrupt();
  ASSERT_TRUE(s.expect("% output interrupted\n"));
  ASSERT_TRUE(s.expect(kPrompt));

  // Its handler is gone again: ^C at the prompt still abandons the line.
  s.type("show");
  ASSERT_TRUE(s.expect("show"));
  s.type("\x03");
  ASSERT_TRUE(s.expect(kPrompt));
  s.type("show version\r");
  ASSERT_TRUE(s.expect("demo 1.0\n"));
  ASSERT_TRUE(s.expect(kPrompt));
  s.type("\x04");  // ^D leaves
  EXPECT_EQ(s.exitStatus(), 0) << s.seen();
  EXPECT_EQ(s.seen().find("Invalid"), std::string::npos) << s.seen();
}

// ---- The rova program, one command per run ----

clitest::Captured runRova(std::vector<std::string> args, std::string input = "") {
  return clitest::runProgram(ROVA_PROGRAM, std::move(args), input);
}

TEST(RovaProgram, RunsOneCommandWithOptionsBeforeIt) {
  clitest::Captured r = runRova({"--state", ROVA_EXAMPLE, "--", "sh", "ver"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.rfind("rova ", 0), 0u) << r.out;
  EXPECT_NE(r.out.find("State: " ROVA_EXAMPLE "\n"), std::string::npos) << r.out;
  EXPECT_EQ(r.err, "");
  clitest::Captured help = runRova({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.out.rfind("usage: rova [--state FILE | --live | --attach [NAME]]", 0), 0u)
      << help.out;
}

// The state may come from anything that can be read: standard input, a pipe, a FIFO.
TEST(RovaProgram, ReadsTheStateFromStandardInput) {
  clitest::Captured in =
      runRova({"--state", "-", "show", "version"}, rovatest::readText(ROVA_EXAMPLE));
  EXPECT_EQ(in.status, 0) << in.err;
  EXPECT_NE(in.out.find("Device: leaf1\nState: standard input\n"), std::string::npos) << in.out;
}

// Refused before any command runs, or by the command: nothing on standard output, and the
// words the user typed come back escaped and cut, so that a message can neither drive the
// terminal nor fill it. An empty file name is a mistake, not the built-in example, and a
// directory is refused by what it is.
TEST(RovaProgram, RefusalsSayWhatWasWrongWithTheWordsEscaped) {
  struct Case {
    std::vector<std::string> args;
    int status;
    std::string err;  // the whole message, or its first line when it goes on with the usage
  };
  const Case cases[] = {
      {{"--state", "no-such.json", "show", "version"},
       2,
       "% Cannot load state no-such.json: No such file or directory"},
      {{"--state", "/tmp", "show", "version"}, 2, "% Cannot load state /tmp: Is a directory"},
      {{"--state", "no\x1b[2Jsuch.json", "show", "version"},
       2,
       "% Cannot load state no\\x1b[2Jsuch.json: No such file or directory"},
      {{"--state", "", "show", "version"}, 2, "rova: empty file name after '--state'"},
      {{"--state=", "show", "version"}, 2, "rova: empty file name after '--state'"},
      {{"--state"}, 2, "rova: missing file after '--state'"},
      {{"--colour", "show", "version"}, 2, "rova: unknown option '--colour'"},
      {{"--\x07"
        "bell"},
       2,
       "rova: unknown option '--\\x07bell'"},
      {{"show", "version", "--state", "x"}, 2, "% Invalid input at '--state'"},
      {{"show", "ip", "route", "vrf", "red\x1b[2J"},
       2,
       "% Invalid input at 'red\\x1b[2J': control characters are not allowed"},
      {{"show", "ip", "route", std::string(100000, 'w')},
       2,
       "% Invalid input at '" + std::string(120, 'w') + "...'"},
      {{"show", "ip", "route", "vrf", "it's"}, 1, "% VRF 'it\\'s' does not exist"},
      {{"--live", "--state", "x.json", "show", "version"},
       2,
       "rova: --state, --live and --attach name different states; give one"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.err);
    clitest::Captured r = runRova(c.args);
    EXPECT_EQ(r.status, c.status);
    EXPECT_EQ(r.err.substr(0, r.err.find('\n')), c.err);
    EXPECT_EQ(r.out, "");
  }
}

// One rule for JSON mode: whatever fails, and at whatever stage, standard output carries one
// document ({} when nothing else) and the message goes to standard error. The golden files
// show it for the grammar's and the commands' refusals; here are the program's own.
TEST(RovaProgram, EveryFailureInJsonModeWritesADocument) {
  const std::vector<std::vector<std::string>> lines = {
      {"--colour", "show", "version", "json"},
      {"--state", "", "show", "version", "json"},
      {"--state", "/tmp", "show", "version", "json"},
  };
  for (const auto& line : lines) {
    clitest::Captured r = runRova(line);
    SCOPED_TRACE(line[0] + " " + line[1]);
    EXPECT_NE(r.status, 0);
    EXPECT_EQ(r.out, "{}\n");
    EXPECT_NE(r.err, "");
  }
}

TEST(RovaProgram, JsonMayComeAfterAnyKeywordOfTheCommand) {
  clitest::Captured last = runRova({"show", "ip", "route", "vrf", "red", "detail", "json"});
  clitest::Captured early = runRova({"show", "ip", "route", "json", "vrf", "red", "detail"});
  EXPECT_EQ(early.status, 0) << early.err;
  EXPECT_EQ(early.out, last.out);
  EXPECT_EQ(early.out.rfind("{\n", 0), 0u);
  clitest::Captured quantify = runRova({"show", "ip", "route", "json", "quantify"});
  EXPECT_EQ(quantify.status, 0) << quantify.err;
  EXPECT_TRUE(nlohmann::json::accept(quantify.out)) << quantify.out;
}

// ---- Changing the state: configuration mode, clearing, writing back ----

class StateFile : public clitest::ExampleStateFile {
 protected:
  clitest::Captured session(const std::string& input, std::vector<std::string> extra = {}) {
    std::vector<std::string> args = {"--state", file_};
    args.insert(args.end(), extra.begin(), extra.end());
    return runRova(args, input);
  }
  std::string staticRoutes() {
    return runRova({"--state", file_, "show", "running-config", "static-routes"}).out;
  }
  std::string contents() { return rovatest::readText(file_); }
};

// What `show running-config static-routes` writes (every kind of line: VRFs, IPv6, labels,
// BFD, names, tags, VXLAN), `no` before each line removes, and pasted back and written it gives
// the same configuration.
TEST_F(StateFile, RunningConfigLinesPasteBack) {
  const std::string lines = staticRoutes();
  ASSERT_FALSE(lines.empty());
  std::string removal = "configure\n", paste = "configure\n";
  std::istringstream in(lines);
  for (std::string line; std::getline(in, line);) {
    removal += "no " + line + "\n";
    paste += line + "\n";
  }
  clitest::Captured removed = session(removal + "end\nwrite\n");
  EXPECT_EQ(removed.status, 0) << removed.err;
  EXPECT_EQ(staticRoutes(), "");
  clitest::Captured pasted = session(paste + "end\nwrite\n");
  EXPECT_EQ(pasted.status, 0) << pasted.err;
  EXPECT_EQ(staticRoutes(), lines);
}

// `no ip route PREFIX PREF` removes the route at that preference alone, and an agent's
// (dynamic) route is not configuration: no line removes it.
TEST_F(StateFile, RemovingRoutesLeavesOtherPreferencesAndTheAgentsRoutes) {
  clitest::Captured r = session(
      "configure\nip route 10.77.0.0/16 Null0 50\nip route 10.77.0.0/16 10.1.1.9 60\n"
      "no ip route 10.77.0.0/16 50\nno ip route 10.12.0.0/16\nend\nwrite\n");
  EXPECT_EQ(r.status, 0) << r.err;
  const std::string lines = staticRoutes();
  EXPECT_EQ(lines.find("10.77.0.0/16 Null0"), std::string::npos) << lines;
  EXPECT_NE(lines.find("ip route 10.77.0.0/16 10.1.1.9 60\n"), std::string::npos) << lines;
  EXPECT_NE(
      runRova({"--state", file_, "show", "static-routes", "dynamic"}).out.find("10.12.0.0/16"),
      std::string::npos);
}

TEST_F(StateFile, ARefusedLineStopsTheScriptBeforeItWrites) {
  const std::string before = contents();
  const char* const refusals[][2] = {
      {"interface Ethernet5\nip address 10.2.3.7/16\n",
       "% Subnet 10.2.0.0 overlaps with existing subnet 10.2.3.0 of interface Ethernet3\n"},
      {"interface Vlan100\nipv6 address fe80::1/64\n",
       "% 'link-local' keyword must be used to configure a link local address.\n"},
      {"vrf instance red\nrd 100:2\n", "% RD 100:2 already in use by VRF blue\n"},
      {"ip route 10.1.1.1/24 10.1.1.5\n",
       "% Invalid input at '10.1.1.1/24': host bits are set; the prefix is 10.1.1.0/24\n"},
      {"ip route 10.5.0.0/16 10.1.1.0\n",
       "% Next hop 10.1.1.0 is an address of this router in VRF default\n"},
      {"ip route vrf nope 10.0.0.0/8 Null0\n", "% VRF 'nope' does not exist\n"},
      {"ip route 10.12.0.0/16 Ethernet1 10.1.1.9\n",
       "% A dynamic static route holds 10.12.0.0/16 at preference 1; configure another "
       "preference\n"},
      {"ip route 10.0.0.0/8 10.1.1.9 bogus\n", "% Invalid input at 'bogus'\n"},
      // What the state cannot hold is refused at the line, by the loader's own rules, rather
      // than written to a file that would not load again.
      {"interface E1234567890123456789012345678901234567890123456789012345678901234\n",
       "% Invalid input at 'E1234567890123456789012345678901234567890123456789012345678901234'\n"},
      {"ip route 10.99.0.0/16 E1234567890123456789012345678901234567890123456789012345678901234 "
       "10.1.1.9\n",
       "% Invalid input at 'E1234567890123456789012345678901234567890123456789012345678901234'\n"},
      {"vrf instance a/b\nrd 100:99\n",
       "% Invalid input at 'a/b': a VRF name is printable, no blanks or slashes\n"},
      {"vrf instance caf\xc3\xa9\nrd 100:99\n",
       "% Invalid input at 'caf\xc3\xa9': a VRF name is printable, no blanks or slashes\n"},
      {"ip route 10.99.0.0/16 Ethernet1 0.0.0.0 label 5\n",
       "% Invalid input: a label goes with a nexthop\n"},
      {"ipv6 route 2001:db8:99::/48 Ethernet1 :: label 5\n",
       "% Invalid input: a label goes with a nexthop\n"},
      {"ip route 10.99.0.0/16 Ethernet1 vtep 0.0.0.0 vni 5 router-mac-address 00:1c:73:00:00:01\n",
       "% Invalid input: vni and routerMac go with a vtep\n"},
  };
  for (const auto& [lines, message] : refusals) {
    SCOPED_TRACE(lines);
    clitest::Captured r = session(std::string("configure\n") + lines + "write\n");
    EXPECT_NE(r.status, 0);
    EXPECT_EQ(r.err, message);
    EXPECT_EQ(contents(), before);
  }
  // --keep-going runs every line; the accepted ones are written.
  clitest::Captured r = session(
      "configure\nip route 10.5.0.0/16 10.1.1.0\nvrf instance green\nrd 100:7\nexit\n"
      "interface Loopback9\nip address 10.250.0.1/32\nend\nwrite\n",
      {"--keep-going"});
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(contents(), before);
  EXPECT_EQ(runRova({"--state", file_, "check", "rd", "blue", "100:7"}).out,
            "RD 100:7 already in use by VRF green\n");
  EXPECT_EQ(runRova({"--state", file_, "check", "ip", "address", "Ethernet1", "10.250.0.1/32"}).out,
            "Address 10.250.0.1 is already assigned to interface Loopback9\n");
}

TEST_F(StateFile, AOneShotClearWritesTheFileBack) {
  clitest::Captured r =
      runRova({"--state", file_, "clear", "static-routes", "interface", "Ethernet1"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(staticRoutes().find("10.9.0.0/16"), std::string::npos);
  EXPECT_NE(staticRoutes().find("10.8.0.0/16"), std::string::npos);
  // The built-in example has no file: the change is made and said to be lost.
  clitest::Captured builtIn = runRova({"clear", "static-routes", "interface", "Ethernet1"});
  EXPECT_EQ(builtIn.status, 0);
  EXPECT_NE(builtIn.err.find("% Not saved"), std::string::npos) << builtIn.err;
}

TEST_F(StateFile, WriteFailuresNameTheFile) {
  clitest::Captured r = session("write " + dir_ + "/no/such/dir.json\n");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "% Cannot write " + dir_ + "/no/such/dir.json: No such file or directory\n");
  clitest::Captured builtIn = runRova({"write"});
  EXPECT_EQ(builtIn.status, 1);
  EXPECT_EQ(builtIn.err,
            "% The state has no file of its own (built-in example); give one: write FILE\n");
}

}  // namespace

namespace {

// The shell of the real program: completion and '?' over the real command table, a listing of
// the example device, an error, and the way out.
TEST(RovaShell, CompletesHelpsAndRunsCommandsOnTheExampleDevice) {
  TerminalSession s(ROVA_PROGRAM);
  ASSERT_TRUE(s.started());
  ASSERT_TRUE(s.expect(kPrompt));
  s.type("sh\t");
  ASSERT_TRUE(s.expect("show "));
  s.type("ip route ?");
  ASSERT_TRUE(s.expect("  A.B.C.D      The longest match for an address\n"));
  ASSERT_TRUE(s.expect("  ospf         OSPF routes\n"));
  ASSERT_TRUE(s.expect("  vrf          A VRF\n  <cr>\n"));
  ASSERT_TRUE(s.expect("rova> show ip route "));
  s.type("vr\t");
  ASSERT_TRUE(s.expect("vrf "));
  s.type("red\n");
  ASSERT_TRUE(s.expect(" C      10.20.4.0/24 is directly connected, Ethernet4\n"));
  ASSERT_TRUE(s.expect(kPrompt));
  s.type("show ip rout foo\n");
  ASSERT_TRUE(s.expect("% Invalid input at 'foo'\n"));
  ASSERT_TRUE(s.expect(kPrompt));
  s.type("exit\n");
  EXPECT_EQ(s.exitStatus(), 2);  // the status of the last command
}

// The shell's commands share one loaded state: counters cleared by one command list as zero in
// the next listing of the same session, in every group that has counters, while entries
// without a counter keep their dashes.
TEST(RovaShell, ClearedCountersListAsZeroInTheSameSession) {
  clitest::Captured r = runRova({}, "clear nexthop-group counters\nshow nexthop-group\n");
  EXPECT_EQ(r.status, 0) << r.err;
  for (const char* lines :
       {"Nexthop group NHG-A\n",
        "      0  10.0.0.12    -             0      0\n"
        "      1  10.0.0.13    -             0      0\n"
        "      2  10.0.0.14    -             0      0\n"
        "      3  10.0.0.21    -             -      -\n",
        "Nexthop group NHG-GRE\n", "      1  10.0.0.13    -             0      0\n",
        "      1  2001:db8:0:21::1  push 40022        0      0\n"})
    EXPECT_NE(r.out.find(lines), std::string::npos) << lines << r.out;
}

// ---- Listings cut short: by the reader, by a signal ----

// A generated state whose listings are far larger than a pipe holds, made once.
class LongListing : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    char path[] = "/tmp/rova-long-XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    state_ = path;
    const std::string gen = std::string(ROVA_GEN) + " --ipv4 60000 --ipv6 10 -o " + state_;
    ASSERT_EQ(std::system(gen.c_str()), 0);
  }
  static void TearDownTestSuite() { unlink(state_.c_str()); }

  struct Ended {
    int status = -1;  // the exit status, or 128 + the signal that killed it
    std::string out;
    std::string err;
  };

  // Runs rova on the long state with stdout on a pipe. Once the first 100 kB arrive, `cut`
  // runs with the pid and the pipe's reading end, while the program cannot get ahead: the
  // pipe is full long before the listing ends. Then the rest is read.
  template <class Cut>
  static Ended run(std::vector<std::string> args, Cut cut, const std::string& input = "") {
    int in[2], out[2], err[2];
    Ended e;
    if (pipe(in) != 0 || pipe(out) != 0 || pipe(err) != 0) return e;
    args.insert(args.begin(), {ROVA_PROGRAM, "--state", state_});
    const pid_t pid = fork();
    if (pid == 0) {
      dup2(in[0], 0);
      dup2(out[1], 1);
      dup2(err[1], 2);
      for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]})
        close(fd);
      std::vector<char*> argv;
      for (std::string& a : args)
        argv.push_back(a.data());
      argv.push_back(nullptr);
      execv(ROVA_PROGRAM, argv.data());
      _exit(127);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    if (write(in[1], input.data(), input.size()) != static_cast<ssize_t>(input.size())) return e;
    close(in[1]);
    // Well into the routes: the page's header is written (and flushed) on its own.
    char buffer[4096];
    ssize_t n;
    while (e.out.size() < 100000 && (n = read(out[0], buffer, sizeof buffer)) > 0)
      e.out.append(buffer, static_cast<std::size_t>(n));
    if (!cut(pid, out[0])) {
      e.out += clitest::drain(out[0]);
    }
    e.err = clitest::drain(err[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    e.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return e;
  }

  // Sends `sig` and reads on: returns false, so that run() drains the output.
  static auto signal(int sig) {
    return [sig](pid_t pid, int) {
      kill(pid, sig);
      return false;
    };
  }

  static std::string state_;
};

std::string LongListing::state_;

// `rova show ip route | head -1`: the reader goes away after one line of a long listing, and
// the program ends quietly and successfully, in both formats.
TEST_F(LongListing, EndsQuietlyWhenTheReaderGoesAway) {
  for (const char* format : {"text", "json"}) {
    SCOPED_TRACE(format);
    std::vector<std::string> args = {"show", "ip", "route"};
    if (std::string(format) == "json") args.push_back("json");
    const Ended e = run(args, [](pid_t, int fd) {
      close(fd);
      return true;
    });
    EXPECT_EQ(e.status, 0);
    EXPECT_EQ(e.err, "");
  }
}

// ^C during a listing to a file or a pipe: the message on a line of its own, never glued to
// the half-written line the signal found, and the status a shell expects of an interrupt.
TEST_F(LongListing, AnInterruptEndsTheListingOnALineOfItsOwnWithStatus130) {
  const Ended e = run({"show", "ip", "route"}, signal(SIGINT));
  EXPECT_EQ(e.status, 130);
  EXPECT_EQ(e.err, "");
  const std::string message = "\nexiting on user interrupt\n";
  ASSERT_GE(e.out.size(), message.size());
  EXPECT_EQ(e.out.substr(e.out.size() - message.size()), message);
  EXPECT_LT(e.out.size(), 64u << 20);  // it did stop
}

// A service manager's SIGTERM, or a hangup, ends a JSON listing with a closed document and the
// reason on stderr; text as ^C does.
TEST_F(LongListing, TerminateAndHangupEndTheListingWithAClosedDocument) {
  const Ended term = run({"show", "ip", "route", "json"}, signal(SIGTERM));
  EXPECT_EQ(term.status, 143);
  EXPECT_EQ(term.err, "exiting on terminate request\n");
  nlohmann::json doc;
  ASSERT_NO_THROW(doc = nlohmann::json::parse(term.out)) << term.out.substr(term.out.size() - 200);
  EXPECT_GT(doc["routes"].size(), 0u);
  EXPECT_LT(doc["routes"].size(), 60000u);

  const Ended text = run({"show", "ip", "route"}, signal(SIGHUP));
  EXPECT_EQ(text.status, 129);
  EXPECT_EQ(text.out.substr(text.out.size() - 19), "\nexiting on hangup\n");
}

// The shell reading commands from a pipe stops at a SIGTERM: the command it was running ends
// as a one-shot one would, and no further command runs.
TEST_F(LongListing, TerminateEndsTheShellToo) {
  const Ended e = run({}, signal(SIGTERM), "show ip route\nshow version\n");
  EXPECT_EQ(e.status, 143);
  EXPECT_EQ(e.out.find("rova 0.1.0"), std::string::npos);
  EXPECT_NE(e.out.find("\nexiting on terminate request\n"), std::string::npos);
}

// A full disk stops the listing at once with one error line.
TEST_F(LongListing, AFullDiskFailsTheCommandWithOneMessage) {
  for (const char* format : {"text", "json"}) {
    SCOPED_TRACE(format);
    const std::string cmd = std::string(ROVA_PROGRAM) + " --state " + state_ + " show ip route " +
                            (std::string(format) == "json" ? "json" : "") + " >/dev/full 2>" +
                            state_ + ".err";
    const int status = std::system(cmd.c_str());
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 1);
    std::FILE* f = std::fopen((state_ + ".err").c_str(), "r");
    ASSERT_NE(f, nullptr);
    char buffer[4096] = {};
    const std::size_t n = std::fread(buffer, 1, sizeof buffer - 1, f);
    std::fclose(f);
    std::remove((state_ + ".err").c_str());
    EXPECT_EQ(std::string(buffer, n), "% Error writing output: No space left on device\n");
  }
}

}  // namespace
