#include "cli/Filters.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <system_error>

#include "platform/mox/Exception.h"

namespace cli {

namespace {

constexpr FilterWord kFilterWords[] = {
    {"begin", "Begin with the first line that matches", true},
    {"compact", "JSON output on one line, without blanks", false},
    {"count", "Count the lines", false},
    {"exclude", "Leave out the lines that match", true},
    {"include", "Only the lines that match", true},
    {"json", "Produce JSON output", false},
    {"section", "The lines that match and the lines indented below them", true},
};

std::string lowerWord(std::string_view w) {
  std::string s(w);
  for (char& c : s)
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::string atPosition(std::size_t index, const std::string& what) {
  return "at position " + std::to_string(index + 1) + ": " + what;
}

// The faults std::regex would refuse, found with where they are; std::regex itself says only
// what kind of fault it found.
std::string findFault(std::string_view re) {
  std::vector<std::size_t> open;  // the positions of '(' not yet closed
  bool canRepeat = false;         // an atom comes before: a quantifier may follow
  for (std::size_t i = 0; i < re.size(); ++i) {
    const char c = re[i];
    switch (c) {
      case '\\':
        if (i + 1 == re.size()) return atPosition(i, "'\\' at the end of the expression");
        ++i;
        canRepeat = true;
        break;
      case '(':
        open.push_back(i);
        if (i + 2 < re.size() && re[i + 1] == '?') {
          if (re[i + 2] != ':' && re[i + 2] != '=' && re[i + 2] != '!')
            return atPosition(i + 1, "unknown group '(?" + std::string(1, re[i + 2]) + "'");
          i += 2;
        }
        canRepeat = false;
        break;
      case ')':
        if (open.empty()) return atPosition(i, "')' without '('");
        open.pop_back();
        canRepeat = true;
        break;
      case '|':
        canRepeat = false;
        break;
      case '[': {
        std::size_t j = i + 1;
        if (j < re.size() && re[j] == '^') ++j;
        int previous = -1;  // the last single character of the class, for a range
        for (; j < re.size() && re[j] != ']'; ++j) {
          int here = static_cast<unsigned char>(re[j]);
          if (re[j] == '\\') {
            if (++j == re.size()) break;
            here = std::isalpha(static_cast<unsigned char>(re[j]))
                       ? -1
                       : static_cast<unsigned char>(re[j]);
          }
          if (re[j] == '-' && previous >= 0 && j + 1 < re.size() && re[j + 1] != ']') {
            int last = static_cast<unsigned char>(re[j + 1]);
            if (re[j + 1] == '\\') {
              if (j + 2 >= re.size()) break;
              last = static_cast<unsigned char>(re[j + 2]);
            }
            if (last < previous) return atPosition(j - 1, "range out of order in '[...]'");
            j += re[j + 1] == '\\' ? 2 : 1;
            previous = -1;
            continue;
          }
          previous = here;
        }
        if (j >= re.size()) return atPosition(i, "'[' without ']'");
        i = j;
        canRepeat = true;
        break;
      }
      case '*':
      case '+':
      case '?':
      case '{': {
        if (!canRepeat) return atPosition(i, std::string("nothing to repeat before '") + c + "'");
        if (c == '{') {
          std::size_t j = i + 1;
          auto number = [&](std::size_t& value) {
            std::size_t from = j;
            value = 0;
            while (j < re.size() && std::isdigit(static_cast<unsigned char>(re[j])))
              value = value * 10 + static_cast<std::size_t>(re[j++] - '0');
            return j > from;
          };
          std::size_t low = 0;
          std::size_t high = 0;
          bool ok = number(low);
          bool bounded = true;
          if (ok && j < re.size() && re[j] == ',') {
            ++j;
            bounded = number(high);
            if (bounded && high < low) return atPosition(i, "'{n,m}' with m below n");
          }
          if (!ok || j >= re.size() || re[j] != '}')
            return atPosition(i, "'{' is not a count '{n,m}'");
          i = j;
        }
        // A '?' after a quantifier makes it lazy; nothing else may repeat a quantifier.
        if (i + 1 < re.size() && re[i + 1] == '?') ++i;
        canRepeat = false;
        break;
      }
      default:
        canRepeat = c != '^' && c != '$';
        break;
    }
  }
  if (!open.empty()) return atPosition(open.back(), "'(' without ')'");
  return {};
}

std::size_t indentOf(std::string_view line) {
  std::size_t n = 0;
  while (n < line.size() && (line[n] == ' ' || line[n] == '\t'))
    ++n;
  return n;
}

std::string_view withoutNewline(std::string_view line) {
  if (!line.empty() && line.back() == '\n') line.remove_suffix(1);
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  return line;
}

}  // namespace

std::span<const FilterWord> filterWords() {
  return kFilterWords;
}

const FilterWord* findFilterWord(std::string_view typed) {
  const std::string name = lowerWord(typed);
  const FilterWord* found = nullptr;
  for (const FilterWord& f : kFilterWords) {
    if (f.word == name) return &f;
    if (std::string_view(f.word).substr(0, name.size()) == name) {
      if (found) return nullptr;
      found = &f;
    }
  }
  return found;
}

std::string regexError(std::string_view pattern) {
  std::string fault = findFault(pattern);
  if (fault.empty()) {
    try {
      std::regex re(pattern.begin(), pattern.end(), std::regex::ECMAScript);
    } catch (const std::regex_error& e) {
      fault = atPosition(pattern.size(), e.what());
    }
  }
  if (fault.empty()) return {};
  return "% Invalid regular expression " + Mox::shownWord(pattern) + " " + fault;
}

FilterSplit splitFilters(std::span<const std::string> words) {
  FilterSplit split;
  std::size_t i = 0;
  while (i < words.size() && words[i] != "|")
    split.command.push_back(words[i++]);
  if (i < words.size() && split.command.empty()) {
    split.error = "% A filter follows a command: COMMAND | include RE";
    return split;
  }
  while (i < words.size()) {
    ++i;  // the '|'
    if (i == words.size()) {
      split.error = "% Incomplete filter after '|' (include, exclude, begin, section, count, json)";
      return split;
    }
    const std::string name = lowerWord(words[i++]);
    const FilterWord* found = nullptr;
    int matches = 0;
    for (const FilterWord& f : kFilterWords) {
      if (f.word == name) {
        found = &f;
        matches = 1;
        break;
      }
      if (std::string_view(f.word).substr(0, name.size()) == name) {
        found = &f;
        ++matches;
      }
    }
    if (matches != 1) {
      split.error = (matches == 0 ? "% Unknown filter " : "% Ambiguous filter ") +
                    Mox::shownWord(words[i - 1]);
      return split;
    }
    std::string pattern;
    std::size_t given = 0;
    for (; i < words.size() && words[i] != "|"; ++i, ++given)
      pattern += (given ? " " : "") + words[i];
    if (!found->takesPattern) {
      if (given) {
        split.error = "% The filter '" + std::string(found->word) + "' takes nothing after it";
        return split;
      }
      if (std::string_view(found->word) == "json") split.filters.json = true;
      if (std::string_view(found->word) == "compact") split.filters.compact = true;
      if (std::string_view(found->word) == "count")
        split.filters.lines.push_back({LineFilter::Kind::count, "", {}});
      continue;
    }
    if (!given) {
      split.error = "% The filter '" + std::string(found->word) + "' needs a regular expression";
      return split;
    }
    if (std::string fault = regexError(pattern); !fault.empty()) {
      split.error = std::move(fault);
      return split;
    }
    const std::string_view word = found->word;
    const LineFilter::Kind kind = word == "include"   ? LineFilter::Kind::include
                                  : word == "exclude" ? LineFilter::Kind::exclude
                                  : word == "begin"   ? LineFilter::Kind::begin
                                                      : LineFilter::Kind::section;
    split.filters.lines.push_back(
        {kind, pattern, std::regex(pattern, std::regex::ECMAScript | std::regex::optimize)});
  }
  return split;
}

// ---- line filters ----

LineFilterChain::LineFilterChain(const OutputFilters& filters) {
  for (const LineFilter& f : filters.lines)
    stages_.push_back(Stage{&f, false, 0, false, 0});
}

std::string LineFilterChain::feed(std::string_view bytes) {
  std::string out;
  while (!bytes.empty()) {
    const std::size_t nl = bytes.find('\n');
    if (nl == std::string_view::npos) {
      partial_.append(bytes);
      break;
    }
    partial_.append(bytes.substr(0, nl + 1));
    bytes.remove_prefix(nl + 1);
    out += line(partial_);
    partial_.clear();
  }
  return out;
}

std::string LineFilterChain::line(std::string_view text) {
  return passFrom(0, text);
}

std::string LineFilterChain::passFrom(std::size_t first, std::string_view text) {
  const std::string_view bare = withoutNewline(text);
  for (std::size_t i = first; i < stages_.size(); ++i) {
    Stage& s = stages_[i];
    const LineFilter& f = *s.filter;
    switch (f.kind) {
      case LineFilter::Kind::include:
        if (!std::regex_search(bare.begin(), bare.end(), f.re)) return {};
        break;
      case LineFilter::Kind::exclude:
        if (std::regex_search(bare.begin(), bare.end(), f.re)) return {};
        break;
      case LineFilter::Kind::begin:
        if (!s.begun && !std::regex_search(bare.begin(), bare.end(), f.re)) return {};
        s.begun = true;
        break;
      case LineFilter::Kind::section: {
        const std::size_t indent = indentOf(bare);
        if (s.inSection && indent > s.sectionIndent && indent < bare.size()) break;
        s.inSection = std::regex_search(bare.begin(), bare.end(), f.re);
        if (!s.inSection) return {};
        s.sectionIndent = indent;
        break;
      }
      case LineFilter::Kind::count:
        ++s.count;
        return {};
    }
  }
  return std::string(text);
}

std::string LineFilterChain::finish() {
  std::string out;
  if (!partial_.empty()) out += line(partial_);
  partial_.clear();
  for (std::size_t i = 0; i < stages_.size(); ++i) {
    if (stages_[i].filter->kind != LineFilter::Kind::count) continue;
    const std::size_t n = stages_[i].count;
    out += passFrom(i + 1, "Count: " + std::to_string(n) + (n == 1 ? " line\n" : " lines\n"));
  }
  return out;
}

// ---- compact JSON ----

std::string JsonCompactor::feed(std::string_view bytes) {
  std::string out;
  out.reserve(bytes.size());
  for (char c : bytes) {
    if (inString_) {
      out.push_back(c);
      if (escaped_) {
        escaped_ = false;
      } else if (c == '\\') {
        escaped_ = true;
      } else if (c == '"') {
        inString_ = false;
      }
      continue;
    }
    if (c == ' ' || c == '\n' || c == '\t' || c == '\r') continue;
    if (c == '"') inString_ = true;
    out.push_back(c);
    any_ = true;
  }
  return out;
}

std::string JsonCompactor::finish() {
  return any_ ? "\n" : "";
}

// ---- the pipe ----

FilterPipe::FilterPipe(const OutputFilters& filters, int fd) : filters_(filters), out_(fd) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category());
  readEnd_ = ends[0];
  writeEnd_ = ends[1];
  // The thread never takes the user's signals: they are for the command it serves.
  sigset_t all;
  sigset_t saved;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &saved);
  try {
    thread_ = std::thread([this] { run(); });
  } catch (...) {
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
    ::close(readEnd_);
    ::close(writeEnd_);
    throw;
  }
  pthread_sigmask(SIG_SETMASK, &saved, nullptr);
}

FilterPipe::~FilterPipe() {
  close();
}

void FilterPipe::close() {
  if (writeEnd_ >= 0) {
    ::close(writeEnd_);
    writeEnd_ = -1;
  }
  if (thread_.joinable()) thread_.join();
}

void FilterPipe::run() {
  LineFilterChain lines(filters_);
  JsonCompactor compactor;
  bool outputOpen = true;
  const auto write = [&](std::string_view text) {
    while (outputOpen && !text.empty()) {
      const ssize_t n = ::write(out_, text.data(), text.size());
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) {
        // The reader went away: so does this one, and the command finds its output closed.
        outputOpen = false;
        return;
      }
      text.remove_prefix(static_cast<std::size_t>(n));
    }
  };
  const auto pass = [&](std::string_view bytes) {
    std::string text = lines.feed(bytes);
    write(filters_.compact ? compactor.feed(text) : text);
  };
  char buffer[65536];
  for (;;) {
    const ssize_t n = ::read(readEnd_, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    if (outputOpen) pass(std::string_view(buffer, static_cast<std::size_t>(n)));
    if (!outputOpen) break;
  }
  if (outputOpen) {
    std::string text = lines.finish();
    if (filters_.compact) text = compactor.feed(text) + compactor.finish();
    write(text);
  }
  ::close(readEnd_);
  readEnd_ = -1;
}

}  // namespace cli
