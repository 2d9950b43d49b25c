#pragma once
// One command's standard output. Everything a command of the table writes goes through its
// Output, which builds the printer and holds the one policy for a listing that ends early:
//
// - A stop (the user's interrupt, SIGTERM or SIGHUP, a reader that went away) ends the
//   listing where it was; the printer that was cut says "exiting <reason>" (in text on the
//   output, in JSON on stderr) and closes the JSON it had begun, and runCommand gives the
//   command the signal's status. A closed output ends it quietly.
// - A write error the printer reported (once, on stderr) fails the command.
// - Anything else the listing throws passes on, to be reported as the command's failure.
// - A command that ends without having begun its output (a refusal, an exception, a failed
//   check before any listing) leaves the output of a command with nothing to show: `{}` in
//   JSON, nothing in text. oneDocument applies this to every row of the table.

#include <cstdint>
#include <functional>

#include "cli/Grammar.h"
#include "cli/Runner.h"
#include "platform/rendr/Interrupt.h"
#include "platform/rendr/Printer.h"

namespace cli {

class Output {
 public:
  Output(const Match& match, const Context& context) : match_(match), context_(context) {}
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  // A listing of the front end's own: `body(printer)` writes it on a printer built for the
  // command's output and format. Returns kStatusOk, or kStatusFailed after a write error.
  template <class Body>
  int print(Body&& body) {
    return listing([&] {
      rendr::Printer p(context_.out, format(), true, false, true, 0);
      try {
        body(p);
      } catch (const rendr::sigintException& e) {
        p.reportStop(e);
        throw;
      }
    });
  }

  // A library object's listing: `call()` has the object print on fd() in format() with a
  // printer of its own, which says itself where the listing was cut. Returns as print does.
  template <class Call>
  int library(Call&& call) {
    return listing(std::forward<Call>(call));
  }

  // The output of a command with nothing to show. Returns kStatusOk.
  int nothing();

  // Where and how the command writes, as a library object takes them.
  std::uint32_t fd() const { return static_cast<std::uint32_t>(context_.out); }
  std::uint32_t format() const { return static_cast<std::uint32_t>(match_.formatNumber()); }
  // Whether the command has begun its output (or written that it has nothing to show).
  bool started() const { return started_; }

 private:
  template <class Run>
  int listing(Run&& run) {
    rendr::Printer::clearOutputFailed();
    started_ = true;
    try {
      run();
    } catch (const rendr::sigintException&) {
      // Said where it was cut, by the printer that was.
    }
    return rendr::Printer::outputFailed() ? kStatusFailed : kStatusOk;
  }

  const Match& match_;
  const Context& context_;
  bool started_ = false;
};

// An action of the command table, given the command's output.
using OutputAction = std::function<int(const Match&, const Context&, Output&)>;

// The row's action: runs `action` with an Output of its own and, when the command fails
// before its output began, writes the output of a command with nothing to show.
Action oneDocument(OutputAction action);

}  // namespace cli
