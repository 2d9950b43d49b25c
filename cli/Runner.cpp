#include "cli/Runner.h"

#include <unistd.h>

#include <cerrno>
#include <exception>
#include <new>
#include <string>

#include "cli/Filters.h"
#include "platform/mox/Exception.h"
#include "platform/mox/Trace.h"
#include "platform/rendr/Interrupt.h"
#include "platform/rendr/Printer.h"

namespace cli {

namespace {

Mox::TraceHandle traceHandle("cli");

CommandGate& gate() {
  static CommandGate g;
  return g;
}

// A write that fails (a closed pipe, a full disk) ends the text quietly: there is nowhere
// left to report it.
void writeAll(int fd, std::string_view text) {
  while (!text.empty()) {
    ssize_t n = ::write(fd, text.data(), text.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(n));
  }
}

bool isSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

}  // namespace

void Context::print(std::string_view text) const {
  writeAll(out, text);
}

void Context::error(std::string_view message) const {
  std::string text;
  if (line != 0) text = "line " + std::to_string(line) + ": ";
  text += message;
  text += '\n';
  writeAll(err, text);
}

int runAction(const Match& match, const Context& context) {
  try {
    return match.row().action(match, context);
  } catch (const Mox::InternalException& e) {
    MOX_TRACE(traceHandle, 0, "internal error in ", e.function(), ": ", e.what());
    context.error(std::string("% Internal error: ") + e.what());
    return kStatusInternal;
  } catch (const Mox::UnavailableException& e) {
    context.error(std::string("% ") + e.what());
    return kStatusUnavailable;
  } catch (const std::bad_alloc&) {
    // Nothing is wrong with the command or the program: the machine has no more to give.
    context.error("% Out of memory");
    return kStatusNoMemory;
  } catch (const std::exception& e) {
    context.error(std::string("% ") + e.what());
    return kStatusFailed;
  } catch (...) {
    context.error("% Internal error: unknown exception");
    return kStatusInternal;
  }
}

void commandGateIs(CommandGate g) {
  gate() = std::move(g);
}

int refuseLine(std::span<const std::string> words, std::string_view message, int status,
               const Context& context) {
  context.error(message);
  rendr::writeEmptyOutput(context.out, static_cast<unsigned>(Grammar::formatOf(words)));
  return status;
}

int runCommand(const Grammar& grammar, std::span<const std::string> line, const Context& context) {
  // What follows a '|' filters the output; the words before it are the command.
  FilterSplit split = splitFilters(line);
  std::vector<std::string>& words = split.command;
  if (split.filters.json || split.filters.compact) words.push_back("json");
  if (!split.error.empty()) return refuseLine(words, split.error, kStatusUsage, context);
  if (gate()) {
    if (const int status = gate()(words, context); status >= 0) return status;
  }
  MatchResult result = grammar.match(words);
  if (!result.match) return refuseLine(words, result.error, kStatusUsage, context);
  // Lines of JSON taken out or counted would leave no document at all.
  if (!split.filters.lines.empty() && result.match->format() == Format::json) {
    return refuseLine(words, "% Line filters work on text output: leave out json", kStatusUsage,
                      context);
  }
  if (Mox::TraceHandle::enabled(1)) {
    std::string bound;
    for (const Token& t : result.match->tokens()) {
      if (t.kind == Token::Kind::argument) bound += " " + t.name + "=" + t.value;
    }
    MOX_TRACE(traceHandle, 1, "row '", result.match->row().syntax, "'", bound, " format ",
              result.match->formatNumber());
  }
  // A SIGTERM or SIGHUP that comes while the command runs ends its listing the way ^C does,
  // so that a JSON document is still closed; the process ends after it.
  rendr::StopSignalHold hold;
  int status;
  if (split.filters.transforms()) {
    FilterPipe pipe(split.filters, context.out);
    Context filtered = context;
    filtered.out = pipe.fd();
    status = runAction(*result.match, filtered);
    pipe.close();
  } else {
    status = runAction(*result.match, context);
  }
  if (const int signal = rendr::takeStopSignal()) return kStatusSignal + signal;
  return status;
}

std::vector<std::string> splitWords(std::string_view line) {
  // Double quotes hold blanks inside one word ("show value \"Value('X', ** {})\""); the
  // quotes themselves are not part of the word. An unclosed quote runs to the end.
  std::vector<std::string> words;
  std::size_t i = 0;
  // A line that starts with '!' is a comment, as in a router's configuration, whose blocks
  // `show running-config` separates with "!" lines.
  while (i < line.size() && isSpace(line[i]))
    ++i;
  if (i < line.size() && line[i] == '!') return words;
  while (i < line.size()) {
    while (i < line.size() && isSpace(line[i]))
      ++i;
    if (i >= line.size()) break;
    std::string word;
    bool quoted = false;
    while (i < line.size() && (quoted || !isSpace(line[i]))) {
      if (line[i] == '"') {
        quoted = !quoted;
      } else {
        word.push_back(line[i]);
      }
      ++i;
    }
    words.push_back(std::move(word));
  }
  return words;
}

}  // namespace cli
