#pragma once
// Running one command line: match it against the grammar, run the row's action, and turn
// every way it can fail into the message and exit status the user sees. The one-shot program
// and the shell both go through runCommand, so a command behaves the same in either.

#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/Grammar.h"

namespace cli {

// Exit statuses of a command.
constexpr int kStatusOk = 0;
constexpr int kStatusFailed = 1;        // the command refused: range error, failed check
constexpr int kStatusUsage = 2;         // the command line itself is wrong
constexpr int kStatusUnavailable = 69;  // the attached state's agent ended (EX_UNAVAILABLE)
constexpr int kStatusInternal = 70;     // a broken invariant (EX_SOFTWARE)
constexpr int kStatusNoMemory = 71;     // the system gave no more memory (EX_OSERR)
// A command stopped by a signal ends with 128 + the signal's number, as a shell reports a
// process the signal ended: 130 for SIGINT, 143 for SIGTERM, 129 for SIGHUP.
constexpr int kStatusSignal = 128;

// Where a command writes. The printer takes the file descriptor; messages for the user go to
// `err` so that JSON output on `out` stays clean.
struct Context {
  int out = 1;
  int err = 2;
  // The line of a script the command came from (1 for the first); 0 outside a script.
  std::size_t line = 0;

  // Writes all of `text` to `out`.
  void print(std::string_view text) const;
  // Writes one message line (a newline is added) to `err`; in a script the message names the
  // line it is about first ("line 3: % Invalid input at 'bogus'").
  void error(std::string_view line) const;
};

// Calls the matched row's action and maps what it throws to a message on `err` and a status:
// Mox::InternalException -> "% Internal error: <what>" and 70; std::bad_alloc -> "% Out of
// memory" and 71; any other exception -> "% <what>" and 1.
int runAction(const Match& match, const Context& context);

// A check every command line passes before it is matched, in one-shot mode and in the shell:
// it returns -1 to let the line run, or the status to end it with after refusing the line
// (refuseLine). The program sets it once, before the first command (rova --live does).
using CommandGate = std::function<int(std::span<const std::string> words, const Context&)>;
void commandGateIs(CommandGate gate);

// Reads the output filters after a '|' (Filters.h), passes the gate, matches the words before
// it and runs the action, its output through the filters; a line that does not match prints the
// grammar's message and returns kStatusUsage. A signal that stops the command (see
// rendr/Interrupt.h) makes its status kStatusSignal + the signal.
int runCommand(const Grammar& grammar, std::span<const std::string> words, const Context& context);

// Refuses a command line before any command runs: `message` on err and, in JSON mode (a line
// that holds the word json), {} on out, so that every failure in JSON mode leaves one
// document on standard output. Returns `status`.
int refuseLine(std::span<const std::string> words, std::string_view message, int status,
               const Context& context);

// Splits a typed line at blanks (spaces, tabs, a trailing newline); a comment line (its first
// word starts with '!') has no words.
std::vector<std::string> splitWords(std::string_view line);

}  // namespace cli
