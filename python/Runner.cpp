// Running commands for scripts.

#include "python/Runner.h"

#include <sys/mman.h>
#include <unistd.h>

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "cli/Commands.h"
#include "cli/ConfigMode.h"
#include "cli/ConfigSession.h"
#include "cli/Grammar.h"
#include "cli/Runner.h"
#include "platform/mox/Exception.h"
#include "platform/rendr/Interrupt.h"

namespace rovapy {

cli::Grammar& grammar() {
  static cli::Grammar* g = [] {
    auto* made = new cli::Grammar;
    cli::addCommands(*made);
    return made;
  }();
  return *g;
}

// A file in memory for a command's output or messages.
int memoryFile(const char* name) {
  const int fd = ::memfd_create(name, MFD_CLOEXEC);
  if (fd < 0)
    throw Mox::RangeException(std::string("cannot make an output file: ") + strerror(errno));
  return fd;
}

std::string readAll(int fd) {
  std::string out;
  ::lseek(fd, 0, SEEK_SET);
  char buf[65536];
  for (;;) {
    const ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    out.append(buf, static_cast<std::size_t>(n));
  }
  return out;
}

std::vector<std::string> commandWords(const std::string& line, bool& json) {
  std::vector<std::string> words = cli::splitWords(line);
  if (words.empty()) throw Mox::RangeException("no command given");
  auto asksForJson = [&] {
    return cli::Grammar::formatOf(grammar().match(words), words) == cli::Format::json;
  };
  if (json && !asksForJson()) words.push_back("json");
  json = asksForJson();
  return words;
}

py::object document(const std::string& out, bool json) {
  if (!json) return pyText(out);
  return py::module_::import("json").attr("loads")(out);
}

// A failed command: its messages as the CLI writes them on standard error (a refused check:
// its verdict); the status and what it wrote on standard output ride along.
[[noreturn]] void raiseCommandError(int status, std::string messages, py::object output,
                                    const std::string& text) {
  // A check that refuses says why on standard output, where its verdict goes.
  if (messages.empty()) messages = text;
  while (!messages.empty() && messages.back() == '\n')
    messages.pop_back();
  const py::object& type =
      status == cli::kStatusInternal ? errors().internalError : errors().commandError;
  py::object exc = type(messages);
  exc.attr("status") = status;
  exc.attr("output") = output;
  PyErr_SetObject(type.ptr(), exc.ptr());
  throw py::error_already_set();
}

// A signal noted while no command ran belongs to the script, which Python has already told
// (its own handler runs after the printer's): it must not stop the next command.
void startCommand() {
  rendr::clearInterrupt();
}

// A command that ^C stopped raises KeyboardInterrupt, as any interrupted call does in Python;
// Python's own handler saw the signal too.
void raiseInterrupt(int status) {
  if (status == cli::kStatusSignal + SIGINT && PyErr_CheckSignals() != 0)
    throw py::error_already_set();
}

// A check that refuses ends with status 1 and its verdict on standard output, nothing on
// standard error: an answer, which a script reads like any other, not a failed command.
bool isVerdict(const std::vector<std::string>& words, int status, const std::string& messages) {
  if (status != cli::kStatusFailed || !messages.empty()) return false;
  const cli::MatchResult m = grammar().match(words);
  return m.match && m.match->row().syntax.rfind("check ", 0) == 0;
}

py::object runCommand(const PyState& s, const std::string& line, bool json) {
  std::vector<std::string> words = commandWords(line, json);
  auto lock = commandLock();
  s.adopt();
  const int out = memoryFile("rova-output");
  const int err = memoryFile("rova-messages");
  int status;
  {
    py::gil_scoped_release release;
    startCommand();
    status = cli::runCommand(grammar(), words, cli::Context{out, err});
  }
  const std::string text = readAll(out), messages = readAll(err);
  ::close(out);
  ::close(err);
  raiseInterrupt(status);
  if (status != cli::kStatusOk && !isVerdict(words, status, messages)) {
    py::object output = pyText(text);
    if (json) {
      try {
        output = document(text, true);
      } catch (const py::error_already_set&) {
      }
    }
    raiseCommandError(status, messages, output, text);
  }
  return document(text, json);
}

// The command table with the way into configuration mode, for configuration lines only: `run`
// keeps the table without it, so that no command of a script is left in configuration mode.
const cli::Grammar& configExec() {
  static cli::Grammar* g = [] {
    auto* made = new cli::Grammar;
    cli::addCommands(*made);
    cli::addConfigureRow(*made);
    return made;
  }();
  return *g;
}

py::object configure(const PyState& s, const std::vector<std::string>& lines,
                     const std::string& opening, bool nameLines) {
  auto lock = commandLock();
  s.adopt();
  const int out = memoryFile("rova-output");
  const int err = memoryFile("rova-messages");
  // Whatever happens, the module leaves configuration mode; a session's candidate stays.
  struct Leave {
    int out, err;
    ~Leave() {
      cli::configPosition() = cli::ConfigPosition{};
      cli::leaveSession();
      ::close(out);
      ::close(err);
    }
  } leave{out, err};
  int status = cli::kStatusOk;
  std::string refusal;
  {
    py::gil_scoped_release release;
    startCommand();
    cli::configPosition() = cli::ConfigPosition{};
    cli::leaveSession();
    const cli::Context context{out, err};
    status = cli::runInMode(configExec(), cli::splitWords(opening), context);
    for (std::size_t i = 0; status == cli::kStatusOk && i < lines.size(); ++i) {
      const std::vector<std::string> words = cli::splitWords(lines[i]);
      if (words.empty()) continue;
      status = cli::runInMode(configExec(), words, context);
      if (status != cli::kStatusOk && nameLines)
        refusal = "line " + std::to_string(i + 1) + " '" + lines[i] + "': ";
    }
  }
  std::string messages = readAll(err);
  raiseInterrupt(status);
  if (status != cli::kStatusOk) {
    if (messages.rfind("% ", 0) == 0 && !refusal.empty()) messages.erase(0, 2);
    raiseCommandError(status, refusal + messages, py::none(), "");
  }
  return pyText(readAll(out));
}

}  // namespace rovapy
