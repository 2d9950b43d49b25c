#include "agent/LiveChanges.h"

#include <sys/mman.h>
#include <unistd.h>

#include <exception>
#include <span>

#include "cli/ConfigMode.h"
#include "cli/DeviceState.h"
#include "cli/Runner.h"
#include "snapshot/StateLayout.h"

namespace Agent {

namespace {

namespace layout = Snapshot::layout;

// A file in memory that a command writes to, read back afterwards.
class Captured {
 public:
  Captured() : fd_(::memfd_create("rova-agent-line", MFD_CLOEXEC)) {}
  ~Captured() {
    if (fd_ >= 0) ::close(fd_);
  }
  Captured(const Captured&) = delete;
  Captured& operator=(const Captured&) = delete;
  int fd() const { return fd_; }
  std::string text() const {
    std::string out;
    char buf[4096];
    ssize_t n;
    for (off_t at = 0; (n = ::pread(fd_, buf, sizeof buf, at)) > 0; at += n)
      out.append(buf, static_cast<std::size_t>(n));
    while (!out.empty() && out.back() == '\n')
      out.pop_back();
    return out;
  }

 private:
  int fd_;
};

// The state the configuration lines change is the agent's: the front end's lines write the
// state in use.
void use(Statum::EntityManager& state) {
  cli::state().adopt(Mox::Ptr<Statum::EntityManager>(&state), "live", "", true);
}

bool isStaticRouteLine(const cli::Row& row) {
  for (const char* head : {"ip route ", "ipv6 route ", "no ip route ", "no ipv6 route "}) {
    if (row.syntax.rfind(head, 0) == 0) return true;
  }
  return false;
}

// One line of configuration mode on the state in use: ok, or the refusal as configuration
// mode says it.
LiveChangeResult runLine(std::string_view line) {
  const std::vector<std::string> words = cli::splitWords(line);
  if (words.empty()) return {true, {}};
  const cli::Grammar& grammar = cli::configGrammar(cli::ConfigMode::config);
  const cli::MatchResult match = grammar.match(words);
  if (!match.match) return {false, match.error};
  if (!isStaticRouteLine(match.match->row()))
    return {false,
            "% A live agent takes static route lines only (ip route, ipv6 route and their no "
            "forms): the rest of a live state is the kernel's"};
  Captured out, err;
  cli::Context context;
  context.out = out.fd();
  context.err = err.fd();
  const int status = cli::runAction(*match.match, context);
  if (status != cli::kStatusOk) return {false, err.text()};
  return {true, {}};
}

// The configuration lines, as `show running-config static-routes` prints them.
std::string runningStatics() {
  static const std::vector<std::string> words = {"show", "running-config", "static-routes"};
  const cli::MatchResult match = cli::configGrammar(cli::ConfigMode::config).match(words);
  if (!match.match) throw std::runtime_error(match.error);
  Captured out, err;
  cli::Context context;
  context.out = out.fd();
  context.err = err.fd();
  if (cli::runAction(*match.match, context) != cli::kStatusOk) throw std::runtime_error(err.text());
  const std::string text = out.text();
  return text.empty() ? text : text + "\n";
}

// The file's text: the configuration's lines, then the lines held back, before the block's
// closing "!".
std::string fileText(const std::string& running, const std::vector<std::string>& held) {
  if (held.empty()) return running;
  std::string text = running;
  if (text.size() >= 2 && text.compare(text.size() - 2, 2, "!\n") == 0)
    text.resize(text.size() - 2);
  for (const std::string& line : held)
    text += line + "\n";
  return text + "!\n";
}

// Every configured static route goes (those an agent installed stay), then `lines` are
// applied: the configuration they print.
void replace(Statum::EntityManager& state, const std::string& lines) {
  for (const std::string& vrf : layout::vrfNames(state)) {
    for (const auto* leaf : {&layout::routingConfig, &layout::routing6Config}) {
      const auto it = state.entities().find(layout::pathOf(*leaf, vrf));
      if (it == state.entities().end()) continue;
      auto config = Mox::ptrCast<Routing::ConfigGen>(it->second);
      if (!config) continue;
      for (auto route = config->routeIterator(); route; ++route) {
        if (!route.value()->dynamic()) config->routeDel(route);
      }
    }
  }
  std::string_view rest = lines;
  while (!rest.empty()) {
    const auto end = rest.find('\n');
    runLine(rest.substr(0, end));
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
  }
}

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines)
    text += (text.empty() ? "" : "\n") + line;
  return text;
}

}  // namespace

LiveChangeResult applyLiveChange(KernelStatics& statics, Statum::EntityManager& state,
                                 std::string_view line) {
  try {
    use(state);
    statics.keepIn(state);
    const std::string before = runningStatics();
    LiveChangeResult result = runLine(line);
    if (!result.ok) return result;
    const std::string after = runningStatics();
    if (after != before) {
      try {
        statics.save(fileText(after, statics.heldLines()));
      } catch (const std::exception& e) {
        // What is not kept is not done: the configuration goes back to what the file holds.
        replace(state, before);
        return {false, std::string("% ") + e.what()};
      }
    }
    return {true, joined(statics.program())};
  } catch (const std::exception& e) {
    return {false, std::string("% ") + e.what()};
  }
}

std::vector<std::string> loadStaticConfig(KernelStatics& statics, Statum::EntityManager& state) {
  const std::string text = statics.load();
  use(state);
  statics.keepIn(state);
  std::vector<std::string> said;
  std::string_view rest = text;
  for (std::size_t number = 1; !rest.empty(); ++number) {
    const auto end = rest.find('\n');
    const std::string line(rest.substr(0, end));
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    const LiveChangeResult r = runLine(line);
    if (r.ok) continue;
    statics.heldLines().push_back(line);
    said.push_back(statics.file() + " line " + std::to_string(number) + ": " + r.message +
                   " (the line is kept and tried again when links change)");
  }
  for (std::string& refused : statics.program())
    said.push_back(std::move(refused));
  return said;
}

std::vector<std::string> retryStaticConfig(KernelStatics& statics, Statum::EntityManager& state) {
  std::vector<std::string> said;
  try {
    use(state);
    statics.keepIn(state);
    auto& held = statics.heldLines();
    const std::size_t before = held.size();
    std::erase_if(held, [](const std::string& line) { return runLine(line).ok; });
    if (held.size() != before) statics.save(fileText(runningStatics(), held));
    said = statics.retry();
  } catch (const std::exception& e) {
    said.push_back(std::string("% ") + e.what());
  }
  return said;
}

}  // namespace Agent
