#include "cli/Shell.h"

#include <histedit.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cwchar>

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
    ::history(history, &event, H_SETSIZE, 1000);
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
    return show(helpListing(shell.mode().grammar->complete(t.words, t.partial)));
  }

  unsigned char tab() {
    TypedLine t = typed();
    Completion completion = shell.mode().grammar->complete(t.words, t.partial);
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
  status_ = runCommand(*current.grammar, words, context_);
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
  return status_;
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
  std::vector<const std::string*> keywords;
  for (const Candidate& c : completion.candidates) {
    if (c.kind == Candidate::Kind::keyword) keywords.push_back(&c.text);
  }
  bool onlyKeywords = keywords.size() == completion.candidates.size();
  if (onlyKeywords && keywords.size() == 1) {
    action.replacement = *keywords[0] + " ";
    return action;
  }
  // A placeholder or the end of the command could come instead, so only a beginning every
  // candidate shares is certain.
  if (onlyKeywords) {
    std::string common = *keywords[0];
    for (const std::string* k : keywords) {
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
  for (const Candidate& c : completion.candidates)
    width = std::max(width, c.text.size());
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
