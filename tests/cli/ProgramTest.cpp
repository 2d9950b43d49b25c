// Whole programs: the shell driven through a pseudo-terminal the way a user types at it, and
// the rova program run once per command.

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/stat.h>
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
  // The session keeps no history (no HOME) and pages through cat, which passes everything on,
  // unless `env` says otherwise ("NAME=value", or "NAME" alone to unset it). `args` follow the
  // program's name.
  explicit TerminalSession(const char* program, std::vector<std::string> env = {},
                           unsigned short rows = 24, std::vector<std::string> args = {}) {
    winsize size{};
    size.ws_row = rows;
    size.ws_col = 100;
    pid_ = forkpty(&master_, nullptr, nullptr, &size);
    if (pid_ == 0) {
      setenv("TERM", "vt100", 1);
      unsetenv("HOME");
      setenv("PAGER", "cat", 1);
      for (const std::string& e : env) {
        const std::size_t eq = e.find('=');
        if (eq == std::string::npos) {
          unsetenv(e.c_str());
        } else {
          setenv(e.substr(0, eq).c_str(), e.substr(eq + 1).c_str(), 1);
        }
      }
      std::vector<char*> argv{const_cast<char*>(program)};
      for (std::string& a : args)
        argv.push_back(a.data());
      argv.push_back(nullptr);
      execv(program, argv.data());
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
  ASSERT_TRUE(
      s.expect("  vrf          Routes of one VRF\n  |            Filter the output\n  <cr>\n"));
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
// empty line only prompts again, and the up arrow recalls the last line. A session at a
// terminal that was left as asked ends with status 0, whatever its last command did.
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
  EXPECT_EQ(s.exitStatus(), 0) << s.seen();
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

// The habits of command-line tools: a version, -h, JSON on one line for programs, and '?'
// at the end of a one-shot command giving the shell's help with the device's names.
TEST(RovaProgram, VersionShortHelpCompactJsonAndQuestionMark) {
  clitest::Captured version = runRova({"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.out, "rova 0.1.0\n");
  clitest::Captured help = runRova({"-h"});
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.out, runRova({"--help"}).out);
  EXPECT_NE(help.out.find("-j, --compact"), std::string::npos) << help.out;

  clitest::Captured compact = runRova({"-j", "show", "ip", "route", "vrf", "red"});
  EXPECT_EQ(compact.status, 0) << compact.err;
  ASSERT_FALSE(compact.out.empty());
  EXPECT_EQ(compact.out.find('\n'), compact.out.size() - 1) << compact.out;
  EXPECT_EQ(compact.out.find(' '), std::string::npos) << compact.out;
  clitest::Captured pretty = runRova({"show", "ip", "route", "vrf", "red", "json"});
  EXPECT_EQ(nlohmann::json::parse(compact.out), nlohmann::json::parse(pretty.out));
  EXPECT_EQ(runRova({"--compact", "show", "version"}).out,
            runRova({"show", "version", "|", "compact"}).out);

  clitest::Captured ip = runRova({"show", "ip", "?"});
  EXPECT_EQ(ip.status, 0);
  EXPECT_EQ(ip.out,
            "  interface  IPv4 addresses of the interfaces\n  route      IPv4 routing table\n");
  EXPECT_EQ(runRova({"show", "ip", "ro?"}).out, "  route  IPv4 routing table\n");
  clitest::Captured vrfs = runRova({"show", "ip", "route", "vrf", "?"});
  EXPECT_EQ(vrfs.out, "  NAME  VRF name\n  default\n  blue\n  red\n");
  clitest::Captured filters = runRova({"show", "version", "|", "?"});
  EXPECT_NE(filters.out.find("  include  Only the lines that match\n"), std::string::npos)
      << filters.out;
  clitest::Captured bad = runRova({"show", "ipx", "?"});
  EXPECT_EQ(bad.status, 2);
  EXPECT_EQ(bad.out, "");
  EXPECT_EQ(bad.err, "% Invalid input at 'ipx'\n");
}

// `clear static-routes interface` counts what it removed: whole routes, and vias of the routes
// that keep another.
TEST(RovaProgram, ClearingStaticRoutesSaysWhatWent) {
  clitest::Captured r = runRova({"--keep-going"},
                                "configure\n"
                                "ip route 10.8.0.0/16 Ethernet1 10.1.1.1\n"
                                "ip route 10.9.0.0/16 Ethernet3 10.2.3.9 label 3001\n"
                                "end\n"
                                "clear static-routes interface Ethernet3\n"
                                "clear static-routes interface Ethernet1 json\n"
                                "clear static-routes interface Ethernet1\n");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out,
            "Cleared 0 routes and 2 vias of Ethernet3\n"
            "{\n  \"routesCleared\": 2,\n  \"viasCleared\": 0,\n  \"interface\": \"Ethernet1\"\n}\n"
            "Cleared 0 routes and 0 vias of Ethernet1\n");
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

// A configured route is in the listings at the next command, as the routing agent would put it
// in the forwarding table: resolved through a connected subnet or another static, left out
// while its gateway is not reached, ahead of a worse route of another protocol, which is back
// when the static goes. The library's tests hold the rules; this is the shell's side of it.
TEST_F(StateFile, AConfiguredRouteReachesTheListingsAtOnce) {
  clitest::Captured r = session(
      "configure\nip route 10.99.0.0/16 10.2.3.5\nip route 10.98.0.0/16 10.99.1.1\n"
      "ip route 10.97.0.0/16 10.250.0.1\nip route 10.6.8.0/22 Ethernet2 50\nend\n"
      "show ip route 10.98.0.0/16\nshow ip route 10.97.0.0/16\nshow ip route 10.6.8.0/22\n"
      "show ip route summary\nconfigure\nno ip route 10.6.8.0/22\nend\n"
      "show ip route 10.6.8.0/22\nwrite\n");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find(" S      10.98.0.0/16 [1/0] via 10.2.3.5, Ethernet3\n"), std::string::npos)
      << r.out;
  EXPECT_EQ(r.out.find("10.97.0.0/16"), std::string::npos) << r.out;
  const auto staticAt = r.out.find(" 10.6.8.0/22 [50/0] is directly connected, Ethernet2\n");
  const auto ospfAt = r.out.find(" 10.6.8.0/22 [110/45] via 10.1.1.1, Ethernet1\n");
  EXPECT_NE(staticAt, std::string::npos) << r.out;
  EXPECT_NE(ospfAt, std::string::npos) << r.out;
  EXPECT_LT(staticAt, ospfAt);
  // Three more static routes than the example's four.
  EXPECT_NE(r.out.find("\nstatic                                  7\n"), std::string::npos)
      << r.out;
  // Written, the forwarding table keeps what was configured; the unreached route stays
  // configured.
  EXPECT_NE(runRova({"--state", file_, "show", "ip", "route", "10.98.0.0/16"})
                .out.find(" S      10.98.0.0/16 [1/0] via 10.2.3.5, Ethernet3\n"),
            std::string::npos);
  EXPECT_NE(staticRoutes().find("ip route 10.97.0.0/16 10.250.0.1\n"), std::string::npos);
}

// A command loads only the route tables it reads, but a state wrong in a table it leaves out
// is refused all the same, with the message the whole load gives, and so is the shell.
TEST_F(StateFile, AStateWrongInATableTheCommandSkipsIsStillRefused) {
  const std::pair<std::string, std::string> faults[] = {
      {R"("prefix": "10.4.0.0/16")", R"("prefix": "10.4.0.1/16")"},
      {R"("prefix": "2001:db8:3000::/48", "type": "bgp")",
       R"("prefix": "2001:db8:3000::/48", "type": "bgp", "type": "bgp")"},
  };
  const std::vector<std::vector<std::string>> commands = {
      {"show", "ipv6", "route"},
      {"show", "ip", "route"},
      {"show", "ip", "route", "summary"},
      {"check", "ip", "address", "Ethernet5", "10.99.0.1/24"},
      {"show", "version"},
      {},
  };
  for (const auto& [from, to] : faults) {
    std::string text = example_;
    ASSERT_NE(text.find(from), std::string::npos) << from;
    text.replace(text.find(from), from.size(), to);
    std::ofstream(file_, std::ios::trunc) << text;
    std::string first;
    for (const auto& command : commands) {
      std::vector<std::string> args = {"--state", file_};
      args.insert(args.end(), command.begin(), command.end());
      const clitest::Captured r = runRova(args, "show version\n");
      EXPECT_EQ(r.status, 2) << to;
      EXPECT_EQ(r.out, "");
      EXPECT_NE(r.err.find("% Cannot load state"), std::string::npos) << r.err;
      if (first.empty()) first = r.err;
      EXPECT_EQ(r.err, first) << to;
    }
  }
  EXPECT_NE(runRova({"--state", file_, "show", "ipv6", "route"})
                .err.find("].type: duplicate key \"type\""),
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
    // The refusal names its line, and the summary says the run stopped there.
    ASSERT_EQ(r.err.rfind("line ", 0), 0u) << r.err;
    const std::string n = r.err.substr(5, r.err.find(':') - 5);
    EXPECT_EQ(r.err, "line " + n + ": " + message + "% 1 of " + n +
                         " lines refused; the run stopped at line " + n + "\n");
    EXPECT_EQ(contents(), before);
  }
  // --keep-going runs every line; the accepted ones are written, and the run ends with the
  // refusal's status all the same.
  clitest::Captured r = session(
      "configure\nip route 10.5.0.0/16 10.1.1.0\nvrf instance green\nrd 100:7\nexit\n"
      "interface Loopback9\nip address 10.250.0.1/32\nend\nwrite\n",
      {"--keep-going"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err,
            "line 2: % Next hop 10.1.1.0 is an address of this router in VRF default\n"
            "% 1 of 9 lines refused, the first at line 2\n");
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
  EXPECT_EQ(r.err, "line 1: % Cannot write " + dir_ +
                       "/no/such/dir.json: No such file or directory\n"
                       "% 1 of 1 line refused; the run stopped at line 1\n");
  clitest::Captured builtIn = runRova({"write"});
  EXPECT_EQ(builtIn.status, 1);
  EXPECT_EQ(builtIn.err,
            "% The state has no file of its own (built-in example); give one: write FILE\n");
}

}  // namespace

namespace {

// A command the user stopped with ^C just before leaving is not the session's failure.
TEST(ShellTerminal, LeavingAfterAnInterruptedCommandEndsWithStatus0) {
  TerminalSession s(CLI_SHELL_DEMO);
  ASSERT_TRUE(s.started());
  ASSERT_TRUE(s.expect(kPrompt));
  s.type("print-until-interrupted\r");
  ASSERT_TRUE(s.expect("printing\n"));
  s.interrupt();
  ASSERT_TRUE(s.expect("% output interrupted\n"));
  ASSERT_TRUE(s.expect(kPrompt));
  s.type("exit\r");
  EXPECT_EQ(s.exitStatus(), 0) << s.seen();
}

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
  ASSERT_TRUE(s.expect("  vrf          A VRF\n  |            Filter the output\n  <cr>\n"));
  ASSERT_TRUE(s.expect("rova> show ip route "));
  s.type("vr\t");
  ASSERT_TRUE(s.expect("vrf "));
  // The device's VRFs are offered beside the placeholder, and one completes by its name.
  s.type("?");
  ASSERT_TRUE(s.expect("  NAME  VRF name\n  default\n  blue\n  red\n"));
  s.type("r\t");
  ASSERT_TRUE(s.expect("red "));
  // So are the prefixes of that VRF once one is begun.
  s.type("10.2\t");
  ASSERT_TRUE(s.expect("10.20.4.0/24  10.20.4.1/32"));
  s.type("\x15show ip route vrf red\n");
  ASSERT_TRUE(s.expect(" C      10.20.4.0/24 is directly connected, Ethernet4\n"));
  ASSERT_TRUE(s.expect(kPrompt));
  // Interfaces and groups complete from the device too; a filter word after '|'.
  s.type("show ipv6 route interface Ethernet1\t");
  ASSERT_TRUE(s.expect("INTF        Ethernet1   Ethernet10\n"));
  s.type("0 | co?");
  ASSERT_TRUE(
      s.expect("  compact  JSON output on one line, without blanks\n  count    Count the lines\n"));
  s.type("u\t\n");
  ASSERT_TRUE(s.expect("Count: "));
  ASSERT_TRUE(s.expect(kPrompt));
  s.type("show nexthop-group NHG-P\t");
  ASSERT_TRUE(s.expect("NHG-PENDING "));
  s.type("\x15show ip rout foo\n");
  ASSERT_TRUE(s.expect("% Invalid input at 'foo'\n"));
  ASSERT_TRUE(s.expect(kPrompt));
  s.type("exit\n");
  EXPECT_EQ(s.exitStatus(), 0);  // asked to end: the failed command before is not the session's
}

// A temporary home for one test, removed whatever the outcome.
class TemporaryHome : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/rova-home-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    home_ = name;
  }
  void TearDown() override {
    chmod(home_.c_str(), 0700);
    std::filesystem::remove_all(home_);
  }
  std::string historyFile() const { return home_ + "/.rova_history"; }
  std::string home_;
};

// Long output stops at "--More--" when no pager is installed: space shows the next page, q or
// Ctrl-C drops the rest and the prompt comes back; `terminal length 0` turns paging off.
TEST(RovaShell, PagesLongOutputWithTheBuiltInPager) {
  TerminalSession s(ROVA_PROGRAM, {"PAGER", "PATH=/nonexistent"}, 10);
  ASSERT_TRUE(s.started());
  ASSERT_TRUE(s.expect(kPrompt));
  s.type("show ip route\n");
  ASSERT_TRUE(s.expect("--More--"));
  EXPECT_EQ(s.seen().find(" B E    0.0.0.0/0"), std::string::npos) << s.seen();
  s.type(" ");
  ASSERT_TRUE(s.expect("--More--"));
  s.type("q");
  ASSERT_TRUE(s.expect(kPrompt));
  EXPECT_EQ(s.seen().find("172.16.0.0/16"), std::string::npos) << s.seen();
  s.type("show ip route\n");
  ASSERT_TRUE(s.expect("--More--"));
  s.type("\x03");
  ASSERT_TRUE(s.expect(kPrompt));
  s.type("terminal length 0\n");
  ASSERT_TRUE(s.expect(kPrompt));
  s.type("show ip route\n");
  ASSERT_TRUE(s.expect("172.16.0.0/16"));
  ASSERT_TRUE(s.expect(kPrompt));
  // A page of its own length; Enter shows one line more; output that ends with the page is
  // not held.
  s.type("terminal length 2\n");
  ASSERT_TRUE(s.expect(kPrompt));
  s.type("show version\n");
  ASSERT_TRUE(s.expect("Device: leaf1\n--More--"));
  s.type("\r");
  ASSERT_TRUE(s.expect("State: built-in example\n"));
  ASSERT_TRUE(s.expect(kPrompt));
  s.type("show ip route summary | include ^Total\n");
  ASSERT_TRUE(s.expect("Total"));
  ASSERT_TRUE(s.expect(kPrompt));
  s.type("exit\n");
  EXPECT_EQ(s.exitStatus(), 0);
  EXPECT_EQ(s.seen().find("exiting"), std::string::npos) << s.seen();
}

// $PAGER is the pager when it is set; one-shot commands never page.
TEST(RovaShell, PagesThroughThePagerOfTheEnvironment) {
  TerminalSession s(ROVA_PROGRAM, {"PAGER=sed s/^/paged:/"});
  ASSERT_TRUE(s.started());
  ASSERT_TRUE(s.expect(kPrompt));
  s.type("show version\n");
  ASSERT_TRUE(s.expect("paged:Device: leaf1\n"));
  ASSERT_TRUE(s.expect(kPrompt));
  s.type("exit\n");
  EXPECT_EQ(s.exitStatus(), 0);
}

// The history outlives the session in a file of the user's own, bounded; without a home that
// can be written there is none, and nothing is said.
TEST_F(TemporaryHome, HistoryIsKeptAcrossSessionsInTheUsersHome) {
  {
    TerminalSession s(ROVA_PROGRAM, {"HOME=" + home_});
    ASSERT_TRUE(s.started());
    ASSERT_TRUE(s.expect(kPrompt));
    s.type("show version\n");
    ASSERT_TRUE(s.expect("Device: leaf1\n"));
    s.type("exit\n");
    EXPECT_EQ(s.exitStatus(), 0);
  }
  struct stat st {};
  ASSERT_EQ(stat(historyFile().c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  {
    TerminalSession s(ROVA_PROGRAM, {"HOME=" + home_});
    ASSERT_TRUE(s.started());
    ASSERT_TRUE(s.expect(kPrompt));
    s.type(kUp);
    s.type(kUp);
    ASSERT_TRUE(s.expect("show version"));
    s.type("\n");
    ASSERT_TRUE(s.expect("Device: leaf1\n"));
    s.type("exit\n");
    EXPECT_EQ(s.exitStatus(), 0);
  }
  // A file grown long elsewhere is cut to the history's size when the shell writes it.
  {
    std::ofstream file(historyFile());
    file << "_HiStOrY_V2_\n";
    for (int i = 0; i < 3000; ++i)
      file << "show\\040ip\\040route\\040" << i << "\n";
  }
  chmod(historyFile().c_str(), 0644);
  {
    TerminalSession s(ROVA_PROGRAM, {"HOME=" + home_});
    ASSERT_TRUE(s.started());
    ASSERT_TRUE(s.expect(kPrompt));
    s.type("show version\n");
    ASSERT_TRUE(s.expect("Device: leaf1\n"));
    s.type("exit\n");
    EXPECT_EQ(s.exitStatus(), 0);
  }
  std::ifstream file(historyFile());
  std::string line, last;
  int lines = 0;
  while (std::getline(file, line)) {
    ++lines;
    last = line;
  }
  EXPECT_LE(lines, 1001);  // the header and the history
  EXPECT_GE(lines, 900);
  EXPECT_EQ(last, "exit");
  ASSERT_EQ(stat(historyFile().c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  // A home that cannot be written: no file, no message (root writes anywhere, so the home is a
  // file here rather than a directory without write permission).
  const std::string notADirectory = home_ + "/file";
  std::ofstream(notADirectory) << "x";
  for (const std::string& env : {std::string("HOME=") + notADirectory, std::string("HOME")}) {
    TerminalSession s(ROVA_PROGRAM, {env});
    ASSERT_TRUE(s.started());
    ASSERT_TRUE(s.expect(kPrompt));
    s.type("show version\n");
    ASSERT_TRUE(s.expect("Device: leaf1\n"));
    ASSERT_TRUE(s.expect(kPrompt));
    s.type("exit\n");
    EXPECT_EQ(s.exitStatus(), 0) << env;
    EXPECT_EQ(s.seen().find('%'), std::string::npos) << s.seen();
  }
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

// A state this large has rova start itself again with a malloc setting of its own; what it
// starts (the pager here) still sees the environment the user gave, with nothing added.
TEST_F(LongListing, WhatTheShellStartsSeesTheUsersEnvironment) {
  for (const std::string tunables : {"", "glibc.malloc.check=0"}) {
    SCOPED_TRACE(tunables);
    TerminalSession s(
        ROVA_PROGRAM,
        {"PAGER=env", tunables.empty() ? "GLIBC_TUNABLES" : "GLIBC_TUNABLES=" + tunables}, 24,
        {"--state", state_});
    ASSERT_TRUE(s.started());
    ASSERT_TRUE(s.expect(kPrompt));
    s.type("show version\n");
    ASSERT_TRUE(s.expect("PAGER=env\n"));
    ASSERT_TRUE(s.expect(kPrompt));
    s.type("exit\n");
    EXPECT_EQ(s.exitStatus(), 0);
    const std::string seen = s.seen();
    EXPECT_EQ(seen.find("ROVA_TUNABLES"), std::string::npos) << seen;
    if (tunables.empty()) {
      EXPECT_EQ(seen.find("GLIBC_TUNABLES"), std::string::npos) << seen;
    } else {
      EXPECT_NE(seen.find("\nGLIBC_TUNABLES=" + tunables + "\n"), std::string::npos) << seen;
    }
  }
}

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
