#include "cli/ConfigSession.h"

#include <sys/mman.h>
#include <unistd.h>

#include <fcntl.h>

#include <algorithm>
#include <map>
#include <string_view>
#include <vector>

#include "cli/AgentChanges.h"
#include "cli/CommandActions.h"
#include "cli/ConfigMode.h"
#include "cli/DeviceState.h"
#include "cli/Output.h"
#include "cli/RunningConfig.h"
#include "platform/mox/Exception.h"
#include "snapshot/Snapshot.h"

namespace cli {

namespace {

using Entry = SessionLine;

struct Sessions {
  std::map<std::string, std::vector<Entry>> candidate;
  std::string current;
  bool replaying = false;  // lines apply, even inside a session: its candidate is being judged
};
Sessions& sessions() {
  static Sessions s;
  return s;
}

std::string readAll(int fd) {
  std::string text;
  ::lseek(fd, 0, SEEK_SET);
  char buf[4096];
  ssize_t n;
  while ((n = ::read(fd, buf, sizeof buf)) > 0)
    text.append(buf, static_cast<std::size_t>(n));
  return text;
}

// What a refused line said, as one line without its "% ".
std::string refusalText(std::string messages) {
  while (!messages.empty() && messages.back() == '\n')
    messages.pop_back();
  if (messages.rfind("% ", 0) == 0) messages.erase(0, 2);
  std::replace(messages.begin(), messages.end(), '\n', ' ');
  return messages;
}

struct Verdict {
  int status = kStatusOk;
  std::string refusal;
};

// Applies the lines in order, from configuration mode, to the state in use; stops at the first
// refused one. The shell's own position in the modes is kept.
Verdict replay(const std::vector<Entry>& entries) {
  struct Restore {
    ConfigPosition saved = configPosition();
    ~Restore() {
      configPosition() = saved;
      sessions().replaying = false;
    }
  } restore;
  sessions().replaying = true;
  const int outFd = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  const int errFd = ::memfd_create("rova-session", MFD_CLOEXEC);
  if (outFd < 0 || errFd < 0) {
    if (outFd >= 0) ::close(outFd);
    if (errFd >= 0) ::close(errFd);
    throw Mox::RangeException("cannot judge the session: no file for its messages");
  }
  struct Close {
    int a, b;
    ~Close() {
      ::close(a);
      ::close(b);
    }
  } close{outFd, errFd};
  const Context quiet{outFd, errFd};
  Verdict verdict;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const Entry& e = entries[i];
    configPosition() = ConfigPosition{ConfigMode::config, {}, {}, {}, {}};
    int status = kStatusOk;
    if (!e.context.empty())
      status = runCommand(configGrammar(ConfigMode::config), splitWords(e.context), quiet);
    if (status == kStatusOk)
      status = runCommand(configGrammar(configPosition().mode), splitWords(e.line), quiet);
    if (status != kStatusOk) {
      verdict.status = status;
      verdict.refusal = "line " + std::to_string(i + 1) + " '" + e.line + "'" +
                        (e.context.empty() ? "" : " (" + e.context + ")") + ": " +
                        refusalText(readAll(errFd));
      break;
    }
  }
  return verdict;
}

// The candidate applied to a copy of the state, which is then put back: what the session would
// make, and whether it may. No configuration line reads the route tables (the static routes'
// overlay only writes into them, and never refuses), so the copy leaves them out: on a full
// table that is most of the state, and copying it cost seconds and hundreds of megabytes.
Verdict judge(const std::vector<Entry>& entries, std::string* runningConfig) {
  auto copy = Snapshot::load(Snapshot::write(state().entities(), Snapshot::Sections::none()));
  struct Swap {
    Mox::Ptr<Statum::EntityManager>& em;
    explicit Swap(Mox::Ptr<Statum::EntityManager>& e) : em(e) { state().swapEntities(em); }
    ~Swap() { state().swapEntities(em); }
  } swap(copy);
  Verdict v = replay(entries);
  if (v.status == kStatusOk && runningConfig) *runningConfig = runningConfigText();
  forgetStaticRouteFibs(state().entityManager());
  return v;
}

int notInSession(const Context& c) {
  c.error("% Not in a configuration session (configure session [NAME])");
  return kStatusFailed;
}

int refused(const std::string& name, const Context& c, const Verdict& v) {
  c.error("% Session " + name + " not committed, nothing changed: " + v.refusal);
  return v.status;
}

void leaveConfig() {
  sessions().current.clear();
  configPosition() = ConfigPosition{};
}

int commit(const Match&, const Context& c, Output& out) {
  Sessions& s = sessions();
  if (s.current.empty()) return notInSession(c);
  const std::vector<Entry> entries = s.candidate[s.current];
  const int status =
      changesGoToAgent() ? sendCommit(s.current, entries, c) : commitLines(s.current, entries, c);
  if (status != kStatusOk) return status;
  s.candidate.erase(s.current);
  leaveConfig();
  return out.nothing();
}

int abort(const Match&, const Context& c, Output& out) {
  Sessions& s = sessions();
  if (s.current.empty()) return notInSession(c);
  s.candidate.erase(s.current);
  leaveConfig();
  return out.nothing();
}

int showDiff(const Match&, const Context& c, Output& out) {
  Sessions& s = sessions();
  if (s.current.empty()) return notInSession(c);
  std::string candidate;
  const Verdict v = judge(s.candidate[s.current], &candidate);
  if (v.status != kStatusOk) {
    c.error("% The candidate is refused: " + v.refusal);
    return v.status;
  }
  return printLines(out, unifiedDiff(runningConfigText(), candidate, "running-config",
                                     "session-config:" + s.current));
}

// ---- the diff ----

std::vector<std::string_view> linesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const auto end = text.find('\n');
    lines.push_back(text.substr(0, end));
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
  }
  return lines;
}

enum class Op : char { same = ' ', del = '-', add = '+' };
struct Edit {
  Op op;
  std::size_t a, b;  // the line's index in the old text (same, del) and in the new (same, add)
};

// The shortest edit script (Myers' O(ND) algorithm). Each round keeps only the diagonals it can
// reach, so a small change to a large configuration costs little.
std::vector<Edit> shortestEdit(const std::vector<std::string_view>& a,
                               const std::vector<std::string_view>& b) {
  const long n = long(a.size()), m = long(b.size()), max = n + m;
  std::vector<long> v(std::size_t(2 * max + 3), 0);
  const long off = max + 1;
  std::vector<std::vector<long>> trace;
  long found = -1;
  for (long d = 0; d <= max && found < 0; ++d) {
    trace.emplace_back(v.begin() + (off - d - 1), v.begin() + (off + d + 2));
    for (long k = -d; k <= d; k += 2) {
      long x = (k == -d || (k != d && v[off + k - 1] < v[off + k + 1])) ? v[off + k + 1]
                                                                        : v[off + k - 1] + 1;
      long y = x - k;
      while (x < n && y < m && a[std::size_t(x)] == b[std::size_t(y)]) {
        ++x;
        ++y;
      }
      v[off + k] = x;
      if (x >= n && y >= m) {
        found = d;
        break;
      }
    }
  }
  std::vector<Edit> edits;
  long x = n, y = m;
  for (long d = found; d >= 0; --d) {
    const std::vector<long>& t = trace[std::size_t(d)];
    auto at = [&](long k) { return t[std::size_t(k + d + 1)]; };
    const long k = x - y;
    const long prevK = (k == -d || (k != d && at(k - 1) < at(k + 1))) ? k + 1 : k - 1;
    const long prevX = at(prevK), prevY = prevX - prevK;
    while (x > prevX && y > prevY) {
      --x;
      --y;
      edits.push_back({Op::same, std::size_t(x), std::size_t(y)});
    }
    if (d == 0) break;
    if (x == prevX) {
      edits.push_back({Op::add, std::size_t(x), std::size_t(prevY)});
    } else {
      edits.push_back({Op::del, std::size_t(prevX), std::size_t(y)});
    }
    x = prevX;
    y = prevY;
  }
  std::reverse(edits.begin(), edits.end());
  return edits;
}

}  // namespace

std::string unifiedDiff(const std::string& from, const std::string& to, const std::string& fromName,
                        const std::string& toName) {
  constexpr std::size_t kContext = 3;
  const auto a = linesOf(from), b = linesOf(to);
  const std::vector<Edit> edits = shortestEdit(a, b);
  std::string out;
  std::size_t i = 0;
  while (i < edits.size()) {
    // The next change, and the last one whose unchanged lines before it are no more than two
    // contexts: those share one hunk.
    while (i < edits.size() && edits[i].op == Op::same)
      ++i;
    if (i == edits.size()) break;
    std::size_t last = i;
    for (std::size_t j = i + 1; j < edits.size() && j <= last + 2 * kContext + 1; ++j) {
      if (edits[j].op != Op::same) last = j;
    }
    const std::size_t begin = i > kContext ? i - kContext : 0;
    const std::size_t end = std::min(edits.size(), last + kContext + 1);
    std::size_t aCount = 0, bCount = 0;
    std::string body;
    for (std::size_t j = begin; j < end; ++j) {
      const Edit& e = edits[j];
      if (e.op != Op::add) ++aCount;
      if (e.op != Op::del) ++bCount;
      body += char(e.op);
      body += e.op == Op::add ? b[e.b] : a[e.a];
      body += '\n';
    }
    // A hunk's start is its first line's number; a side with no lines names the line before.
    const std::size_t aStart = edits[begin].a + (aCount ? 1 : 0);
    const std::size_t bStart = edits[begin].b + (bCount ? 1 : 0);
    if (out.empty()) out = "--- " + fromName + "\n+++ " + toName + "\n";
    out += "@@ -" + std::to_string(aStart) + "," + std::to_string(aCount) + " +" +
           std::to_string(bStart) + "," + std::to_string(bCount) + " @@\n" + body;
    i = end;
  }
  return out;
}

bool inSession() {
  return !sessions().current.empty() && !sessions().replaying;
}

bool judgingSession() {
  return sessions().replaying;
}

bool changesHere() {
  return sessions().replaying || (sessions().current.empty() && !changesGoToAgent());
}

int commitLines(const std::string& name, const std::vector<SessionLine>& lines, const Context& c) {
  if (const Verdict v = judge(lines, nullptr); v.status != kStatusOk) return refused(name, c, v);
  // The copy took every line, so the state takes them too, in the same order.
  if (const Verdict v = replay(lines); v.status != kStatusOk)
    throw Mox::InternalException("commit", "a line the candidate took was refused: " + v.refusal);
  return kStatusOk;
}

const std::string& sessionName() {
  return sessions().current;
}

int enterSession(const std::string& name, const Context&) {
  Sessions& s = sessions();
  std::string n = name;
  for (unsigned i = 1; n.empty(); ++i) {
    const std::string fresh = "s" + std::to_string(i);
    if (!s.candidate.count(fresh)) n = fresh;
  }
  s.candidate[n];
  s.current = n;
  return -1;
}

void leaveSession() {
  sessions().current.clear();
}

void dropSessions() {
  sessions().candidate.clear();
  sessions().current.clear();
}

std::string lineOf(const Match& m) {
  std::string line;
  for (const Token& t : m.tokens()) {
    if (!line.empty()) line += ' ';
    if (t.value.find_first_of(" \t") != std::string::npos) {
      line += '"' + t.value + '"';
    } else {
      line += t.value;
    }
  }
  return line;
}

void sessionRecord(const Match& m, bool enter) {
  Sessions& s = sessions();
  s.candidate[s.current].push_back({enter ? std::string() : configPosition().enteredBy, lineOf(m)});
}

void addSessionRows(Grammar& g) {
  g.addKeywordHelp("session", "The configuration session");
  g.addRows({{"commit",
              {{"commit", "Apply the session's candidate whole, or nothing"}},
              oneDocument(commit)},
             {"abort", {{"abort", "Drop the session's candidate"}}, oneDocument(abort)},
             {"show session diff",
              {{"diff", "What the candidate changes, as a diff of the running configuration"}},
              oneDocument(showDiff)}});
}

}  // namespace cli
