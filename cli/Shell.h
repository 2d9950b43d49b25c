#pragma once
// The interactive shell: a libedit prompt with history, TAB completion and '?' help drawn from
// the grammar, running each line through runCommand. When its input is not a terminal it reads
// plain lines instead, so a file of commands can be piped in.

#include <cstddef>
#include <cstdio>
#include <functional>
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
  // that stopped a command; returns the status of the last command run (0 when none ran).
  // When the input is not a terminal, the first failing command ends the run with its
  // status, unless keepGoingIs(true).
  int run();

  // Asked before every line; without one the shell has one mode, the grammar it was made with.
  void modesIs(ModeSource modes) { modes_ = std::move(modes); }
  void keepGoingIs(bool keepGoing) { keepGoing_ = keepGoing; }

  static constexpr const char* kPrompt = "rova> ";

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

  // The libedit session and its key functions (Shell.cpp).
  struct Editor;
};

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
