#include "tests/cli/DemoGrammar.h"

#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <charconv>
#include <csignal>
#include <stdexcept>
#include <string>

#include "cli/Runner.h"

namespace clitest {

namespace {

bool isNumber(std::string_view s, unsigned max) {
  unsigned value = 0;
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
  return !s.empty() && ec == std::errc() && end == s.data() + s.size() && value <= max;
}

// Echoes what the engine bound, so a test sees the match through the whole program.
int showRoute(const cli::Match& m, const cli::Context& context) {
  std::string text = "route";
  for (const cli::Token& t : m.tokens()) {
    if (t.kind == cli::Token::Kind::argument) text += " " + t.name + "=" + t.value;
  }
  if (m.flag("longer-prefixes")) text += " longer";
  if (m.flag("detail")) text += " detail";
  text += m.format() == cli::Format::json ? " json\n" : " text\n";
  context.print(text);
  return cli::kStatusOk;
}

// Reports the terminal mode a command runs in: a line editor left in raw mode would show.
int ttyMode(const cli::Match&, const cli::Context& context) {
  termios mode{};
  if (tcgetattr(STDIN_FILENO, &mode) != 0) throw std::runtime_error("not a terminal");
  auto on = [&](tcflag_t flag) { return (mode.c_lflag & flag) ? "1" : "0"; };
  context.print(std::string("mode icanon=") + on(ICANON) + " echo=" + on(ECHO) +
                " isig=" + on(ISIG) + "\n");
  return cli::kStatusOk;
}

// A command busy with no handler of its own: it waits for SIGINT with the signal blocked
// until sigsuspend, so the interrupt cannot slip in between the message and the wait.
int waitForInterrupt(const cli::Match&, const cli::Context& context) {
  sigset_t block, previous;
  sigemptyset(&block);
  sigaddset(&block, SIGINT);
  sigprocmask(SIG_BLOCK, &block, &previous);
  context.print("waiting for ^C\n");
  sigset_t waitMask = previous;
  sigdelset(&waitMask, SIGINT);
  sigsuspend(&waitMask);
  sigprocmask(SIG_SETMASK, &previous, nullptr);
  context.print("command went on after ^C\n");
  return cli::kStatusOk;
}

volatile std::sig_atomic_t printerInterrupted = 0;
extern "C" void onPrinterInterrupt(int) {
  printerInterrupted = 1;
}

// Behaves like the printer: its own SIGINT handler for the length of the output, and an
// exception from the next output call once the user interrupted.
int printUntilInterrupted(const cli::Match&, const cli::Context& context) {
  sigset_t block, previous;
  sigemptyset(&block);
  sigaddset(&block, SIGINT);
  sigprocmask(SIG_BLOCK, &block, &previous);
  struct sigaction own {
  }, saved{};
  own.sa_handler = onPrinterInterrupt;
  sigemptyset(&own.sa_mask);
  own.sa_flags = SA_RESTART;
  sigaction(SIGINT, &own, &saved);
  printerInterrupted = 0;
  context.print("printing\n");
  sigset_t waitMask = previous;
  sigdelset(&waitMask, SIGINT);
  while (!printerInterrupted)
    sigsuspend(&waitMask);
  sigaction(SIGINT, &saved, nullptr);
  sigprocmask(SIG_SETMASK, &previous, nullptr);
  throw std::runtime_error("output interrupted");
}

}  // namespace

bool isIpv4Address(std::string_view word) {
  int parts = 0;
  while (true) {
    auto dot = word.find('.');
    if (!isNumber(word.substr(0, dot), 255)) return false;
    ++parts;
    if (dot == std::string_view::npos) break;
    word.remove_prefix(dot + 1);
  }
  return parts == 4;
}

bool isIpv4Prefix(std::string_view word) {
  auto slash = word.find('/');
  return slash != std::string_view::npos && isIpv4Address(word.substr(0, slash)) &&
         isNumber(word.substr(slash + 1), 32);
}

void addDemoCommands(cli::Grammar& grammar) {
  grammar.addType({"NAME", "Name", [](std::string_view w) { return !w.empty(); }, {}});
  grammar.addType({"A.B.C.D", "IPv4 address", isIpv4Address, {}});
  grammar.addType({"A.B.C.D/LEN", "IPv4 prefix", isIpv4Prefix, {}});
  grammar.addType({"PROTOCOL",
                   "Routes of one protocol",
                   {},
                   {{"connected", "Connected routes"},
                    {"static", "Static routes"},
                    {"kernel", "Kernel routes"},
                    {"ospf", "OSPF routes"}}});
  grammar.addKeywordHelp("show", "Show running system information");
  grammar.addRows({
      {"show version",
       {{"version", "Software version"}},
       [](const cli::Match&, const cli::Context& c) {
         c.print("demo 1.0\n");
         return cli::kStatusOk;
       }},
      {"show ip route [vrf NAME] [A.B.C.D | A.B.C.D/LEN [longer-prefixes]] [PROTOCOL] [detail]",
       {{"ip", "IP information"},
        {"route", "IP routing table"},
        {"vrf", "Routes of one VRF"},
        {"NAME", "VRF name"},
        {"longer-prefixes", "Also the more specific routes"},
        {"detail", "All of each route"}},
       showRoute},
      {"show interfaces [NAME]",
       {{"interfaces", "Interface status"}},
       [](const cli::Match& m, const cli::Context& c) {
         c.print("interfaces " + m.value("NAME") + "\n");
         return cli::kStatusOk;
       }},
      {"tty-mode", {{"tty-mode", "Terminal mode while a command runs"}}, ttyMode},
      {"wait-interrupt", {}, waitForInterrupt},
      {"print-until-interrupted", {}, printUntilInterrupted},
      {"fail",
       {},
       [](const cli::Match&, const cli::Context&) -> int {
         throw std::runtime_error("the check refused");
       }},
  });
}

}  // namespace clitest
