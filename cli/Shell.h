#pragma once
// The interactive shell: a libedit prompt with history, TAB completion and '?' help drawn from
// the grammar, running each line through runCommand. When its input is not a terminal it reads
// plain lines instead, so a file of commands can be piped in.

#include <cstddef>
#include <cstdio>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/Grammar.h"
#include "cli/Runner.h"

namespace cli {

// The mode the shell reads the next line in: its grammar and prompt. In a nested mode (the
// configuration modes) "exit" is a command of the grammar, which leaves the mode, instead of
// leaving the shell.
struct ShellMode {
  const Grammar* grammar = nullptr;
  std::string prompt;
  bool nested = false;
};
using ModeSource = std::function<ShellMode()>;

class Shell {
 public:
  Shell(const Grammar& grammar, Context context, std::FILE* in = stdin, std::FILE* out = stdout);

  // Reads and runs commands until "exit", "quit", the end of input, or a SIGTERM or SIGHUP
  // that stopped a command. On a terminal it returns 0, or 128 + the signal that ended it;
  // output longer than the terminal goes through a pager (terminalLength()), and the history
  // is kept in ~/.rova_history. When the input is not a terminal it returns the status of the
  // last command run (0 when none ran), and the first failing command ends the run with its
  // status, unless keepGoingIs(true).
  int run();

  // Asked before every line; without one the shell has one mode, the grammar it was made with.
  void modesIs(ModeSource modes) { modes_ = std::move(modes); }
  void keepGoingIs(bool keepGoing) { keepGoing_ = keepGoing; }

  static constexpr const char* kPrompt = "rova> ";
  // The most commands the history holds, in the session and in its file.
  static constexpr int kHistorySize = 1000;

 private:
  int runInteractive();
  int runLines();
  // Runs one typed line; false when the line asks to leave.
  bool execute(std::string_view line);

  ShellMode mode() const;

  const Grammar& grammar_;
  Context context_;
  std::FILE* in_;
  std::FILE* out_;
  int status_ = kStatusOk;
  ModeSource modes_;
  bool keepGoing_ = false;
  bool paging_ = false;  // an interactive session on a terminal pages long output

  // The libedit session and its key functions (Shell.cpp).
  struct Editor;
};

// The session's `terminal length`: -1 (the default) pages output longer than the terminal
// through $PAGER, else `less -FRX`, else the built-in "--More--"; 0 never pages; N > 0 pages
// every N lines with the built-in pager.
int& terminalLength();

// What may come next on a line, output filters after '|' included (Filters.h).
Completion completeLine(const Grammar& grammar, std::span<const std::string> words,
                        std::string_view partial);

// A one-shot command that ends in '?' ("show ip ?", "show ip ro?") asks for the help the shell's
// '?' gives: that listing, with `refused` set when the words before cannot go on. Nothing for
// any other command.
std::optional<std::string> oneShotHelp(const Grammar& grammar, std::span<const std::string> words,
                                       bool& refused);

// The words before the cursor, split into the finished ones and the one being typed (empty
// after a blank).
struct TypedLine {
  std::vector<std::string> words;
  std::string partial;
};
TypedLine splitTypedLine(std::string_view beforeCursor);

// What TAB does: replace the partial word with `replacement` (a unique keyword gets a blank
// after it), and/or list the candidates; `beep` when nothing can come.
struct TabAction {
  std::string replacement;
  bool list = false;
  bool beep = false;
};
TabAction tabAction(const Completion& completion, std::string_view partial);

// The '?' listing, router style: two blanks, the word padded to a column, its help.
std::string helpListing(const Completion& completion);
// TAB's listing: the candidate words in columns that fit `width`.
std::string wordListing(const std::vector<Candidate>& candidates, std::size_t width);

}  // namespace cli
