#include "cli/AgentChanges.h"

#include <unistd.h>

#include <algorithm>
#include <optional>

#include "cli/ConfigMode.h"
#include "cli/DeviceState.h"
#include "cli/MemoryFile.h"
#include "platform/mox/Exception.h"
#include "platform/rendr/Interrupt.h"

namespace cli {

namespace {

// ---- a reader's side ----

Agent::Reply exchange(const Agent::Request& request) {
  const std::shared_ptr<Agent::Attachment>& a = state().attached();
  // ^C (or a request to terminate) stops the wait, not the change: the agent has the request
  // and may still apply it, which the user must know.
  auto alive = [a] {
    if (rendr::detail::takeInterrupt()) {
      throw Mox::RangeException("Interrupted: the change was sent to the state agent " +
                                Mox::shownWord(a->name()) + ", which may still apply it");
    }
    return a->agentRunning();
  };
  try {
    return Agent::sendRequest(a->name(), a->agentPid(), Agent::encodeRequest(request), alive);
  } catch (const Agent::ChannelError& e) {
    // An agent that ended says so as every command then does.
    state().checkAgent();
    throw Mox::RangeException("Cannot send the change to the state agent " +
                              Mox::shownWord(a->name()) + ": " + e.what());
  }
}

// The agent's messages, each as this process would have given it (in a script, after its
// line's number); then the attached state is read again, so that the change is seen.
int printReply(const Agent::Reply& reply, const Context& c, Output* out) {
  std::string_view err = reply.err;
  while (!err.empty()) {
    const std::size_t end = err.find('\n');
    c.error(err.substr(0, end));
    err = end == std::string_view::npos ? std::string_view() : err.substr(end + 1);
  }
  if (out) {
    out->library([&] { c.print(reply.out); });
  } else {
    c.print(reply.out);
  }
  state().refreshAttached();
  return reply.status;
}

// ---- the agent's side ----

// Runs `f` with a context writing into memory; its status and texts are the reply.
template <class F>
Agent::Reply captured(F&& f) {
  MemoryFile out("rova-agent-output"), err("rova-agent-messages");
  const Context context{out.fd(), err.fd()};
  Agent::Reply reply;
  reply.status = f(context);
  reply.out = out.text();
  reply.err = err.text();
  return reply;
}

Agent::Reply refusal(int status, const std::string& message) {
  return {status, "", message + "\n"};
}

// The sub-mode an `enter` line's row leads to.
ConfigMode modeEnteredBy(const std::string& syntax) {
  if (syntax.rfind("interface ", 0) == 0) return ConfigMode::interface;
  if (syntax.rfind("vrf ", 0) == 0) return ConfigMode::vrf;
  if (syntax.rfind("nexthop-group ", 0) == 0) return ConfigMode::nexthopGroup;
  return ConfigMode::config;
}

// A line of a request, matched as a configuration line of `mode`: an edit, or with `enter` a
// line that enters a sub-mode. Anything else (a show command, write, a filter) is not a change
// the channel carries.
struct Checked {
  std::optional<Match> match;
  LineKind kind = LineKind::edit;
  std::string error;
  int status = kStatusOk;
};
Checked checkLine(ConfigMode mode, const std::string& line, bool editOk, bool enterOk) {
  Checked c;
  const std::vector<std::string> words = splitWords(line);
  const bool filtered = std::find(words.begin(), words.end(), "|") != words.end();
  MatchResult r;
  if (!words.empty() && !filtered) r = configGrammar(mode).match(words);
  if (!r.match) {
    c.status = kStatusUsage;
    c.error =
        words.empty() || filtered ? "% Not a configuration line: " + Mox::shownWord(line) : r.error;
    return c;
  }
  const auto it = changeLineKinds().find(r.match->row().syntax);
  if (it == changeLineKinds().end() || (it->second == LineKind::edit && !editOk) ||
      (it->second == LineKind::enter && !enterOk) || it->second == LineKind::leave) {
    c.status = kStatusUsage;
    c.error = "% Not a configuration line: " + Mox::shownWord(line);
    return c;
  }
  c.kind = it->second;
  c.match = std::move(r.match);
  return c;
}

// Every line of a request is a configuration line in the mode its context enters; the first
// one that is not is named.
std::optional<Agent::Reply> checkLines(const Agent::Request& request) {
  for (std::size_t i = 0; i < request.lines.size(); ++i) {
    const Agent::RequestLine& l = request.lines[i];
    ConfigMode mode = ConfigMode::config;
    if (!l.mode.empty()) {
      const Checked entered = checkLine(ConfigMode::config, l.mode, false, true);
      if (!entered.match) return refusal(entered.status, entered.error);
      mode = modeEnteredBy(entered.match->row().syntax);
    }
    const Checked line = checkLine(mode, l.line, true, l.mode.empty());
    if (!line.match) return refusal(line.status, line.error);
  }
  return std::nullopt;
}

// One configuration line, from configuration mode or the sub-mode its context enters.
int applyLine(const Agent::RequestLine& l, const Context& c) {
  struct Restore {
    ~Restore() { configPosition() = ConfigPosition{}; }
  } restore;
  configPosition() = ConfigPosition{ConfigMode::config, {}, {}, {}, {}};
  if (!l.mode.empty()) {
    const Checked entered = checkLine(ConfigMode::config, l.mode, false, true);
    const int status = runAction(*entered.match, c);
    if (status != kStatusOk) return status;
  }
  const Checked line = checkLine(configPosition().mode, l.line, true, l.mode.empty());
  return runAction(*line.match, c);
}

std::string withoutPercent(std::string message) {
  if (message.rfind("% ", 0) == 0) message.erase(0, 2);
  return message;
}

Agent::Reply applyLive(const Agent::Request& request, const ServeOptions& options) {
  std::vector<Agent::LiveChange> changes;
  for (const Agent::RequestLine& l : request.lines)
    changes.push_back({l.mode, l.line});
  const Agent::LiveBatchResult r = options.live(changes);
  // Routes the kernel refused stay configured: applied, with the kernel's reason said.
  if (r.status == kStatusOk) return {kStatusOk, "", r.warning.empty() ? "" : r.warning + "\n"};
  if (request.kind != Agent::Request::Kind::commit || r.refused >= request.lines.size())
    return refusal(r.status, r.message);
  // As a session on a loaded state names its refused line.
  const Agent::RequestLine& l = request.lines[r.refused];
  return refusal(
      r.status, "% Session " + request.session + " not committed, nothing changed: line " +
                    std::to_string(r.refused + 1) + " '" + l.line + "'" +
                    (l.mode.empty() ? "" : " (" + l.mode + ")") + ": " + withoutPercent(r.message));
}

Agent::Reply applyCommand(const Grammar& exec, const Agent::Request& request,
                          const ServeOptions& options) {
  const std::vector<std::string> words = splitWords(request.lines[0].line);
  const bool filtered = std::find(words.begin(), words.end(), "|") != words.end();
  MatchResult r;
  if (!words.empty() && !filtered) r = exec.match(words);
  const std::string syntax = r.match ? r.match->row().syntax : std::string();
  const bool write = syntax == "write [FILE]";
  if (!r.match || (syntax.rfind("clear ", 0) != 0 && !write)) {
    return captured([&](const Context& c) {
      return refuseLine(
          words, "% Not a command that changes the state: " + Mox::shownWord(request.lines[0].line),
          kStatusUsage, c);
    });
  }
  const std::string agent = "the state agent " + Mox::shownWord(options.agentName);
  if (options.live) {
    return captured([&](const Context& c) {
      return refuseLine(words,
                        "% Refused: " + agent +
                            " follows the kernel's state, which clear and write do not change",
                        kStatusFailed, c);
    });
  }
  // The agent writes its own state file, never a file a client names, which it could
  // otherwise be made to write with the agent's rights.
  if (write && r.match->has("FILE")) {
    return captured([&](const Context& c) {
      return refuseLine(words,
                        "% Refused when attached: " + agent +
                            " writes only its own state file (write, without a file)",
                        kStatusFailed, c);
    });
  }
  return captured([&](const Context& c) { return runAction(*r.match, c); });
}

}  // namespace

bool changesGoToAgent() {
  return state().attached() != nullptr && !judgingSession();
}

int sendLine(const Match& m, const std::string& mode, const Context& c) {
  Agent::Request request;
  request.kind = Agent::Request::Kind::lines;
  request.lines.push_back({mode, lineOf(m)});
  return printReply(exchange(request), c, nullptr);
}

int sendCommit(const std::string& session, const std::vector<SessionLine>& lines,
               const Context& c) {
  Agent::Request request;
  request.kind = Agent::Request::Kind::commit;
  request.session = session;
  for (const SessionLine& l : lines)
    request.lines.push_back({l.context, l.line});
  // An empty candidate changes nothing; it needs no agent.
  if (request.lines.empty()) return kStatusOk;
  return printReply(exchange(request), c, nullptr);
}

OutputAction changeGoesToAgent(OutputAction local) {
  return [local = std::move(local)](const Match& m, const Context& c, Output& out) {
    if (!changesGoToAgent()) return local(m, c, out);
    Agent::Request request;
    request.kind = Agent::Request::Kind::command;
    request.lines.push_back({"", lineOf(m) + (m.format() == Format::json ? " json" : "")});
    return printReply(exchange(request), c, &out);
  };
}

Agent::Reply serveChange(const Grammar& exec, const Agent::Request& request,
                         const ServeOptions& options) {
  if (!options.allowed) {
    const std::string message = "% Changes are refused: " + options.user +
                                " may read the state agent " + Mox::shownWord(options.agentName) +
                                " but not change it";
    if (request.kind != Agent::Request::Kind::command) return refusal(kStatusFailed, message);
    return captured([&](const Context& c) {
      return refuseLine(splitWords(request.lines[0].line), message, kStatusFailed, c);
    });
  }
  if (request.kind == Agent::Request::Kind::command) return applyCommand(exec, request, options);
  if (request.kind == Agent::Request::Kind::lines && request.lines.size() != 1)
    return refusal(kStatusUsage, "% A request of lines holds one line");
  if (auto refused = checkLines(request)) return *refused;
  if (options.live) return applyLive(request, options);
  if (request.kind == Agent::Request::Kind::lines) {
    return captured([&](const Context& c) { return applyLine(request.lines[0], c); });
  }
  std::vector<SessionLine> lines;
  for (const Agent::RequestLine& l : request.lines)
    lines.push_back({l.mode, l.line});
  return captured([&](const Context& c) { return commitLines(request.session, lines, c); });
}

}  // namespace cli
