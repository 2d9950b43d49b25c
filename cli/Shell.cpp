#include "cli/Shell.h"

#include <fcntl.h>
#include <histedit.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cwchar>
#include <optional>
#include <thread>

#include "cli/Filters.h"

namespace cli {

namespace {

volatile std::sig_atomic_t interrupted = 0;

extern "C" void onInterrupt(int) {
  interrupted = 1;
}

// Puts the shell's SIGINT handler in place for its scope and the previous one back after.
// SA_RESTART lets a command's system calls go on after a ^C it does not handle; the prompt
// waits in ppoll, which an interrupt ends all the same.
class InterruptHandler {
 public:
  InterruptHandler() {
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, &previous_);
  }
  ~InterruptHandler() { sigaction(SIGINT, &previous_, nullptr); }
  InterruptHandler(const InterruptHandler&) = delete;
  InterruptHandler& operator=(const InterruptHandler&) = delete;

 private:
  struct sigaction previous_ {};
};

// While el_gets runs: the shell's SIGINT handler is in place, and SIGINT is blocked except
// while Editor::readChar waits for a key. A ^C that comes while libedit is busy between two
// reads (echoing the last key, say) would otherwise be handled and then missed, and the next
// read would block with the interrupt already spent.
class PromptSignals {
 public:
  PromptSignals() {
    interrupted = 0;
    sigset_t block;
    sigemptyset(&block);
    sigaddset(&block, SIGINT);
    sigprocmask(SIG_BLOCK, &block, &saved_);
    waitMask_ = saved_;
    sigdelset(&waitMask_, SIGINT);
  }
  ~PromptSignals() { sigprocmask(SIG_SETMASK, &saved_, nullptr); }
  PromptSignals(const PromptSignals&) = delete;
  PromptSignals& operator=(const PromptSignals&) = delete;

  const sigset_t* waitMask() const { return &waitMask_; }

 private:
  InterruptHandler handler_;  // a handler a command left behind must not see this ^C
  sigset_t saved_;
  sigset_t waitMask_;
};

bool isLeaveWord(std::string_view word) {
  std::string w(word);
  for (char& c : w)
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return w == "exit" || w == "quit";
}

bool isBlank(char c) {
  return c == ' ' || c == '\t';
}

// The history file: in the user's home, or none when HOME is unset.
std::string historyPath() {
  const char* home = std::getenv("HOME");
  if (!home || !*home) return {};
  std::string path = home;
  if (path.back() != '/') path += '/';
  return path + ".rova_history";
}

bool isExecutableOnPath(const char* name) {
  const char* path = std::getenv("PATH");
  if (!path) return false;
  std::string_view dirs = path;
  while (!dirs.empty()) {
    const std::size_t colon = dirs.find(':');
    std::string dir(dirs.substr(0, colon));
    dirs = colon == std::string_view::npos ? std::string_view() : dirs.substr(colon + 1);
    if (dir.empty()) dir = ".";
    if (::access((dir + "/" + name).c_str(), X_OK) == 0) return true;
  }
  return false;
}

// One command's output on its way to the terminal through a pager: an external one ($PAGER,
// or less) as a child process reading a pipe, or the built-in one, a thread that stops after
// each page at "--More--". Either way, a pager the user quits closes the pipe, and the command
// finds its output closed and ends quietly.
class Pager {
 public:
  // `length` is the lines of a page for the built-in pager, or -1 to use an external one when
  // there is one (with `rows` for the built-in one otherwise).
  Pager(int screen, int keys, int length, std::size_t rows, std::size_t cols)
      : screen_(screen), keys_(keys), cols_(cols) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return;
    readEnd_ = ends[0];
    writeEnd_ = ends[1];
    if (::pipe2(ends, O_CLOEXEC) == 0) {
      stopRead_ = ends[0];
      stopWrite_ = ends[1];
    }
    if (length < 0) {
      const char* pager = std::getenv("PAGER");
      if (pager && *pager) {
        startChild({"/bin/sh", "-c", pager});
      } else if (isExecutableOnPath("less")) {
        startChild({"less", "-FRX"});
      }
      if (child_ > 0 || failed_) return;
      length = static_cast<int>(rows > 1 ? rows - 1 : 1);
    }
    page_ = static_cast<std::size_t>(length);
    sigset_t all;
    sigset_t saved;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &saved);
    try {
      thread_ = std::thread([this] { runBuiltIn(); });
    } catch (...) {
      failed_ = true;
    }
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
  }
  ~Pager() { finish(); }
  Pager(const Pager&) = delete;
  Pager& operator=(const Pager&) = delete;

  // Where the command writes; -1 when no pager could be started.
  int fd() const { return failed_ ? -1 : writeEnd_; }

  // Ends the output and waits for the pager to finish. `stopped`: the command was stopped (^C
  // reached it before the pager took the keys), so the pager stops waiting for a key too.
  void finish(bool stopped = false) {
    if (stopped && stopWrite_ >= 0) {
      const char stop = 'q';
      [[maybe_unused]] const ssize_t n = ::write(stopWrite_, &stop, 1);
    }
    if (writeEnd_ >= 0) ::close(writeEnd_);
    writeEnd_ = -1;
    if (thread_.joinable()) thread_.join();
    if (readEnd_ >= 0) ::close(readEnd_);
    readEnd_ = -1;
    for (int* fd : {&stopRead_, &stopWrite_}) {
      if (*fd >= 0) ::close(*fd);
      *fd = -1;
    }
    if (child_ > 0) {
      int status;
      while (::waitpid(child_, &status, 0) < 0 && errno == EINTR) {
      }
      child_ = -1;
    }
  }

 private:
  void startChild(std::vector<const char*> argv) {
    argv.push_back(nullptr);
    const pid_t pid = ::fork();
    if (pid < 0) {
      failed_ = true;
      return;
    }
    if (pid == 0) {
      ::dup2(readEnd_, 0);
      ::signal(SIGPIPE, SIG_DFL);
      ::signal(SIGINT, SIG_DFL);
      sigset_t none;
      sigemptyset(&none);
      ::sigprocmask(SIG_SETMASK, &none, nullptr);
      ::execvp(argv[0], const_cast<char* const*>(argv.data()));
      ::_exit(127);
    }
    child_ = pid;
    ::close(readEnd_);
    readEnd_ = -1;
  }

  bool writeScreen(std::string_view text) {
    while (!text.empty()) {
      const ssize_t n = ::write(screen_, text.data(), text.size());
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return false;
      text.remove_prefix(static_cast<std::size_t>(n));
    }
    return true;
  }

  // Shows "--More--" and reads the answer: how many lines more, or 0 to stop. The key is read
  // raw, ^C included, so that it stops the listing here rather than reach the command.
  // The keys are raw before the prompt shows, so that a key typed on seeing it is read here;
  // a ^C typed earlier stopped the command, which says so through the stop pipe.
  std::size_t ask() {
    termios saved{};
    const bool tty = ::tcgetattr(keys_, &saved) == 0;
    if (tty) {
      termios raw = saved;
      raw.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO | ISIG));
      raw.c_cc[VMIN] = 1;
      raw.c_cc[VTIME] = 0;
      ::tcsetattr(keys_, TCSANOW, &raw);
    }
    char key = 'q';
    if (writeScreen("--More--")) {
      for (;;) {
        pollfd fds[2] = {{keys_, POLLIN, 0}, {stopRead_, POLLIN, 0}};
        const int ready = ::poll(fds, stopRead_ >= 0 ? 2 : 1, -1);
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0 || (fds[1].revents & POLLIN)) break;
        const ssize_t n = ::read(keys_, &key, 1);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) key = 'q';
        break;
      }
    }
    if (tty) ::tcsetattr(keys_, TCSANOW, &saved);
    writeScreen("\r        \r");
    if (key == 'q' || key == 'Q' || key == '\x03') return 0;
    if (key == '\r' || key == '\n') return 1;
    return page_;
  }

  void runBuiltIn() {
    char buffer[4096];
    std::size_t left = page_;  // lines before the next "--More--"
    std::size_t column = 0;
    for (;;) {
      const ssize_t n = ::read(readEnd_, buffer, sizeof buffer);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return;
      std::string_view text(buffer, static_cast<std::size_t>(n));
      while (!text.empty()) {
        // A full page is followed by more: ask before showing it (output that ends with the
        // page is never held).
        if (left == 0) {
          left = ask();
          if (left == 0) return quit();
        }
        // Up to the end of the page: lines ended, or wrapped at the terminal's width.
        // A line as wide as the terminal wraps only when more follows on it.
        std::size_t i = 0;
        for (; i < text.size(); ++i) {
          if (text[i] == '\n') {
            column = 0;
            if (--left == 0) {
              ++i;
              break;
            }
          } else {
            if (column == cols_) {
              column = 0;
              if (--left == 0) break;
            }
            ++column;
          }
        }
        if (!writeScreen(text.substr(0, i))) return quit();
        text.remove_prefix(i);
      }
    }
  }

  // The rest is not wanted: the command's next write finds its output closed.
  void quit() {
    ::close(readEnd_);
    readEnd_ = -1;
  }

  int screen_;
  int keys_;
  std::size_t cols_;
  std::size_t page_ = 0;
  int readEnd_ = -1;
  int writeEnd_ = -1;
  int stopRead_ = -1;
  int stopWrite_ = -1;
  pid_t child_ = -1;
  bool failed_ = false;
  std::thread thread_;
};

}  // namespace

// One libedit session. Its key functions reach the shell through EL_CLIENTDATA.
struct Shell::Editor {
  Shell& shell;
  std::FILE* screen;
  EditLine* el;
  History* history;
  const sigset_t* waitMask = nullptr;  // set for each el_gets by runInteractive

  Editor(Shell& s, std::FILE* screenFile)
      : shell(s),
        screen(screenFile),
        el(el_init("rova", s.in_, screenFile, stderr)),
        history(history_init()) {
    HistEvent event;
    ::history(history, &event, H_SETSIZE, kHistorySize);
    ::history(history, &event, H_SETUNIQUE, 1);
    el_set(el, EL_EDITOR, "emacs");
    el_set(el, EL_PROMPT, &Editor::prompt);
    el_set(el, EL_HIST, ::history, history);
    // The shell owns SIGINT (PromptSignals, readChar). libedit's handlers would put the
    // terminal back to normal and re-raise the signal to the whole process group; el_gets
    // itself already returns with the terminal in normal mode, so commands never run raw.
    el_set(el, EL_SIGNAL, 0);
    el_set(el, EL_GETCFN, &Editor::readChar);
    // ^C at the prompt must not flush the terminal's output: the driver flushes after it has
    // sent the signal, and could throw away the fresh prompt the shell has just written.
    el_set(el, EL_SETTY, "-d", "+noflsh", nullptr);
    el_set(el, EL_CLIENTDATA, this);
    // The wide form: libedit keeps these names as given, where the narrow one copies them
    // and never frees the copies.
    el_wset(el, EL_ADDFN, L"rova-complete", L"Complete the word being typed", &Editor::onTab);
    el_set(el, EL_BIND, "^I", "rova-complete", nullptr);
    el_wset(el, EL_ADDFN, L"rova-help", L"List what may come next", &Editor::onHelp);
    el_set(el, EL_BIND, "?", "rova-help", nullptr);
  }
  ~Editor() {
    el_end(el);
    history_end(history);
  }
  Editor(const Editor&) = delete;
  Editor& operator=(const Editor&) = delete;

  void remember(const std::string& line) {
    HistEvent event;
    ::history(history, &event, H_ENTER, line.c_str());
    saveHistory();
  }

  // The history of earlier sessions, kept in historyFile (none when it is empty). The file
  // holds as many lines as the history does (kHistorySize), is the user's alone, and is
  // replaced whole, so that a session that ends mid-write leaves the one before. A home that
  // cannot be written to keeps no history, and says nothing.
  std::string historyFile;
  void loadHistory() {
    if (historyFile.empty()) return;
    HistEvent event;
    ::history(history, &event, H_LOAD, historyFile.c_str());
  }
  void saveHistory() {
    if (historyFile.empty()) return;
    std::string temporary = historyFile + ".XXXXXX";
    const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);  // mode 0600
    if (fd < 0) return;
    std::FILE* file = ::fdopen(fd, "w");
    if (!file) {
      ::close(fd);
      ::unlink(temporary.c_str());
      return;
    }
    HistEvent event;
    const bool saved = ::history(history, &event, H_SAVE_FP, file) >= 0;
    if (std::fclose(file) != 0 || !saved || ::rename(temporary.c_str(), historyFile.c_str()) != 0)
      ::unlink(temporary.c_str());
  }

  std::string promptText = kPrompt;  // the mode's prompt, set before each el_gets
  static char* prompt(EditLine* el) { return of(el).promptText.data(); }

  static Editor& of(EditLine* el) {
    void* self = nullptr;
    el_get(el, EL_CLIENTDATA, &self);
    return *static_cast<Editor*>(self);
  }
  // One character for libedit: waits with SIGINT let through, so that ^C ends the wait and
  // with it el_gets. Bytes are decoded in the user's locale, as libedit's own reader does.
  static int readChar(EditLine* el, wchar_t* out) {
    Editor& self = of(el);
    int fd = fileno(self.shell.in_);
    char bytes[MB_LEN_MAX];
    std::size_t have = 0;
    for (;;) {
      if (interrupted) {
        errno = EINTR;
        return -1;
      }
      pollfd wait{fd, POLLIN, 0};
      if (ppoll(&wait, 1, nullptr, self.waitMask) < 0) {
        if (errno == EINTR) continue;
        return -1;
      }
      ssize_t n = read(fd, bytes + have, 1);
      if (n == 0) return 0;
      if (n < 0) {
        if (errno == EINTR || errno == EAGAIN) continue;
        return -1;
      }
      ++have;
      std::mbstate_t state{};
      std::size_t decoded = std::mbrtowc(out, bytes, have, &state);
      if (decoded == static_cast<std::size_t>(-2) && have < sizeof bytes) continue;
      if (decoded == static_cast<std::size_t>(-1) || decoded == static_cast<std::size_t>(-2)) {
        have = 0;  // not a character: drop the bytes, as libedit does
        continue;
      }
      return 1;
    }
  }
  // Nothing may unwind through libedit's C frames.
  static unsigned char onTab(EditLine* el, int) {
    try {
      return of(el).tab();
    } catch (...) {
      return CC_ERROR;
    }
  }
  static unsigned char onHelp(EditLine* el, int) {
    try {
      return of(el).help();
    } catch (...) {
      return CC_ERROR;
    }
  }

  TypedLine typed() const {
    const LineInfo* line = el_line(el);
    return splitTypedLine(std::string_view(line->buffer, line->cursor - line->buffer));
  }

  // Prints below the line being edited; CC_REDISPLAY then draws prompt and line afresh.
  unsigned char show(const std::string& text) {
    std::fputs("\n", screen);
    std::fputs(text.c_str(), screen);
    std::fflush(screen);
    return CC_REDISPLAY;
  }

  unsigned char help() {
    TypedLine t = typed();
    return show(helpListing(completeLine(*shell.mode().grammar, t.words, t.partial)));
  }

  unsigned char tab() {
    TypedLine t = typed();
    Completion completion = completeLine(*shell.mode().grammar, t.words, t.partial);
    TabAction action = tabAction(completion, t.partial);
    if (action.beep) return CC_REFRESH_BEEP;
    if (action.replacement != t.partial) {
      el_deletestr(el, static_cast<int>(t.partial.size()));
      el_insertstr(el, action.replacement.c_str());
    }
    if (!action.list) return CC_REFRESH;
    return show(wordListing(completion.candidates, width()));
  }

  std::size_t width() const {
    winsize size{};
    if (ioctl(fileno(screen), TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
    return 80;
  }
};

Shell::Shell(const Grammar& grammar, Context context, std::FILE* in, std::FILE* out)
    : grammar_(grammar), context_(context), in_(in), out_(out) {}

int Shell::run() {
  return isatty(fileno(in_)) ? runInteractive() : runLines();
}

ShellMode Shell::mode() const {
  if (modes_) return modes_();
  return ShellMode{&grammar_, kPrompt, false};
}

bool Shell::execute(std::string_view line) {
  std::vector<std::string> words = splitWords(line);
  if (words.empty()) return true;
  const ShellMode current = mode();
  if (!current.nested && words.size() == 1 && isLeaveWord(words[0])) return false;
  // Commands write to the file descriptor; what the shell buffered must come first.
  std::fflush(out_);
  Context context = context_;
  std::optional<Pager> pager;
  if (paging_ && terminalLength() != 0) {
    winsize size{};
    if (ioctl(fileno(out_), TIOCGWINSZ, &size) != 0 || size.ws_row == 0) size.ws_row = 24;
    if (size.ws_col == 0) size.ws_col = 80;
    pager.emplace(fileno(out_), fileno(in_), terminalLength(), size.ws_row, size.ws_col);
    if (pager->fd() >= 0) {
      context.out = pager->fd();
    } else {
      pager.reset();
    }
  }
  status_ = runCommand(*current.grammar, words, context);
  if (pager) pager->finish(status_ >= kStatusSignal);
  // ^C stops one command; a request to terminate, or a hangup, is for the shell too.
  return status_ != kStatusSignal + SIGTERM && status_ != kStatusSignal + SIGHUP;
}

int Shell::runLines() {
  char* buffer = nullptr;
  std::size_t capacity = 0;
  ssize_t length;
  // Every refusal names its line; the run ends with the status of the first one, which is
  // what a script's caller needs to know even when the lines after it went on.
  std::size_t refused = 0, firstRefused = 0;
  int firstStatus = kStatusOk;
  bool leave = false;
  while (!leave && (length = getline(&buffer, &capacity, in_)) >= 0) {
    ++context_.line;
    leave = !execute(std::string_view(buffer, static_cast<std::size_t>(length)));
    if (status_ == kStatusOk) continue;
    if (refused++ == 0) {
      firstRefused = context_.line;
      firstStatus = status_;
    }
    // A script must not go on past a refused change: what follows (a write, say) assumed it.
    if (!keepGoing_) break;
  }
  std::free(buffer);
  const std::size_t lines = context_.line;
  context_.line = 0;
  if (refused == 0) return status_;
  std::string summary = "% " + std::to_string(refused) + " of " + std::to_string(lines) +
                        (lines == 1 ? " line" : " lines") + " refused";
  // A SIGTERM or SIGHUP ends the run too, with its own status.
  const bool signalled = leave && status_ > kStatusSignal;
  summary += keepGoing_ && !signalled ? ", the first at line " + std::to_string(firstRefused)
                                      : "; the run stopped at line " + std::to_string(lines);
  context_.error(summary);
  return signalled ? status_ : firstStatus;
}

int Shell::runInteractive() {
  // The prompt and the line go to the terminal even when the output is redirected.
  std::FILE* screen = isatty(fileno(out_)) ? out_ : stderr;
  // A command that installs no handler of its own is not ended by ^C; the printer installs
  // its own while it writes.
  InterruptHandler duringCommands;
  Editor editor(*this, screen);
  editor.historyFile = historyPath();
  editor.loadHistory();
  // Output longer than the terminal is paged, when the output is the terminal.
  paging_ = isatty(fileno(out_));
  // A pager that quits early closes its end of the pipe: the command must not die of it.
  std::signal(SIGPIPE, SIG_IGN);
  for (;;) {
    int count = 0;
    const char* line;
    {
      PromptSignals signals;
      editor.waitMask = signals.waitMask();
      // el_gets writes the prompt before it switches the terminal to raw mode; a key typed in
      // between would be echoed by the terminal and again by libedit.
      editor.promptText = mode().prompt;
      el_set(editor.el, EL_PREP_TERM, 1);
      line = el_gets(editor.el, &count);
    }
    if (!line) {
      std::fputs("\n", screen);
      std::fflush(screen);
      if (count < 0 && interrupted) continue;  // ^C: a fresh prompt
      break;                                   // ^D or the terminal went away
    }
    std::string text(line, static_cast<std::size_t>(count));
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
      text.pop_back();
    if (!splitWords(text).empty()) editor.remember(text);
    if (!execute(text)) break;
  }
  // The session ended as asked: a command that failed earlier is not the session's failure.
  // A signal that ended it is reported as such.
  const bool stopped = status_ == kStatusSignal + SIGTERM || status_ == kStatusSignal + SIGHUP;
  return stopped ? status_ : kStatusOk;
}

int& terminalLength() {
  static int length = -1;
  return length;
}

Completion completeLine(const Grammar& grammar, std::span<const std::string> words,
                        std::string_view partial) {
  const auto bar = std::find(words.begin(), words.end(), "|");
  if (bar == words.end()) {
    Completion c = grammar.complete(words, partial);
    // A whole command may be filtered.
    if (c.error.empty() && !c.candidates.empty() &&
        c.candidates.back().kind == Candidate::Kind::end) {
      c.candidates.insert(c.candidates.end() - 1,
                          Candidate{Candidate::Kind::keyword, "|", "Filter the output", false});
    }
    return c;
  }
  Completion c;
  const MatchResult command = grammar.match(words.first(bar - words.begin()));
  if (!command.match) {
    c.error = command.error;
    return c;
  }
  auto last = std::find(words.rbegin(), words.rend(), "|").base();  // after the last '|'
  std::span<const std::string> after(last, words.end());
  const auto offerEnd = [&] {
    if (!partial.empty()) return;
    c.candidates.push_back({Candidate::Kind::keyword, "|", "Filter the output", false});
    c.candidates.push_back({Candidate::Kind::end, "<cr>", "", false});
  };
  if (after.empty()) {
    std::string lp(partial);
    for (char& ch : lp)
      ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    for (const FilterWord& f : filterWords()) {
      if (std::string_view(f.word).substr(0, lp.size()) == lp)
        c.candidates.push_back({Candidate::Kind::keyword, f.word, f.help, false});
    }
    if (c.candidates.empty()) c.error = Grammar::invalidInput(partial);
    return c;
  }
  const FilterWord* filter = findFilterWord(after[0]);
  if (!filter) {
    c.error = Grammar::invalidInput(after[0]);
    return c;
  }
  if (filter->takesPattern) {
    c.candidates.push_back(
        {Candidate::Kind::argument, "RE", "Regular expression (ECMAScript)", false});
    if (after.size() > 1) offerEnd();
  } else if (after.size() > 1 || !partial.empty()) {
    c.error = Grammar::invalidInput(after.size() > 1 ? after[1] : std::string(partial));
  } else {
    offerEnd();
  }
  return c;
}

std::optional<std::string> oneShotHelp(const Grammar& grammar, std::span<const std::string> words,
                                       bool& refused) {
  refused = false;
  if (words.empty()) return std::nullopt;
  const std::string& lastWord = words.back();
  const bool filtered = std::find(words.begin(), words.end(), "|") != words.end();
  // In a filter's expression a '?' is the expression's own, unless it stands alone.
  if (lastWord != "?" && (filtered || lastWord.empty() || lastWord.back() != '?'))
    return std::nullopt;
  std::string partial = lastWord.substr(0, lastWord.size() - 1);
  const Completion c = completeLine(grammar, words.first(words.size() - 1), partial);
  refused = !c.error.empty();
  return helpListing(c);
}

TypedLine splitTypedLine(std::string_view beforeCursor) {
  TypedLine typed;
  typed.words = splitWords(beforeCursor);
  if (!beforeCursor.empty() && !isBlank(beforeCursor.back()) && !typed.words.empty()) {
    typed.partial = std::move(typed.words.back());
    typed.words.pop_back();
  }
  return typed;
}

TabAction tabAction(const Completion& completion, std::string_view partial) {
  TabAction action;
  action.replacement = std::string(partial);
  if (!completion.error.empty() || completion.candidates.empty()) {
    action.beep = true;
    return action;
  }
  // What TAB may write: keywords, and the device's names for a placeholder. A placeholder
  // whose values are not known, or the end of the command, could come instead of them.
  std::vector<const std::string*> words;
  bool certain = true;
  for (const Candidate& c : completion.candidates) {
    if (c.kind == Candidate::Kind::keyword || c.kind == Candidate::Kind::value) {
      words.push_back(&c.text);
    } else if (!(c.kind == Candidate::Kind::argument && c.named)) {
      certain = false;
    }
  }
  if (certain && words.size() == 1) {
    action.replacement = *words[0] + " ";
    return action;
  }
  // Only a beginning every candidate shares is certain.
  if (certain && !words.empty()) {
    std::string common = *words[0];
    for (const std::string* k : words) {
      auto [a, b] = std::mismatch(common.begin(), common.end(), k->begin(), k->end());
      common.erase(a, common.end());
    }
    if (common.size() > partial.size()) action.replacement = common;
  }
  action.list = true;
  return action;
}

std::string helpListing(const Completion& completion) {
  if (!completion.error.empty()) return completion.error + "\n";
  std::size_t width = 0;
  for (const Candidate& c : completion.candidates) {
    if (!c.help.empty()) width = std::max(width, c.text.size());
  }
  std::string text;
  for (const Candidate& c : completion.candidates) {
    text += "  " + c.text;
    if (!c.help.empty()) text += std::string(width - c.text.size() + 2, ' ') + c.help;
    text += "\n";
  }
  return text;
}

std::string wordListing(const std::vector<Candidate>& candidates, std::size_t width) {
  std::size_t column = 0;
  for (const Candidate& c : candidates)
    column = std::max(column, c.text.size() + 2);
  std::size_t perLine = column == 0 ? 1 : std::max<std::size_t>(1, width / column);
  std::string text;
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    const std::string& word = candidates[i].text;
    bool lineEnds = (i + 1) % perLine == 0 || i + 1 == candidates.size();
    text += word;
    text += lineEnds ? std::string("\n") : std::string(column - word.size(), ' ');
  }
  return text;
}

}  // namespace cli
