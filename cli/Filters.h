#pragma once
// Output filters, written after a command behind '|' as on a router's shell:
//
//   show ip route | include via 10\.1\.1\.1 | exclude Ethernet2
//
// include RE, exclude RE, begin RE, section RE and count work on the lines of the text output;
// `json` asks for JSON as the word json does and `compact` for JSON on one line. Filters may be
// chained, each working on what the one before let through. A regular expression is the rest
// of the words up to the next '|', joined by one blank (ECMAScript syntax, std::regex); it may
// match anywhere in a line.
//
// The filtered command writes into a pipe that a thread of the filter reads, so a long listing
// streams through and the printer sees the same end of output (a closed reader, an interrupt)
// that it would see without the filter.

#include <cstddef>
#include <memory>
#include <optional>
#include <regex>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace cli {

struct LineFilter {
  enum class Kind { include, exclude, begin, section, count };
  Kind kind;
  std::string pattern;
  std::regex re;
};

struct OutputFilters {
  std::vector<LineFilter> lines;
  bool json = false;     // `| json`
  bool compact = false;  // `| compact`: JSON, without blanks, on one line

  bool transforms() const { return !lines.empty() || compact; }
};

struct FilterSplit {
  std::vector<std::string> command;  // the words before the first '|'
  OutputFilters filters;
  std::string error;  // the message for the user when a filter is refused
};

// Splits a command line at its first '|' word and reads the filters after it. Filter names
// abbreviate like keywords (`| inc`, `| e`).
FilterSplit splitFilters(std::span<const std::string> words);

// Checks a regular expression; returns the message for the user when it is refused, with the
// 1-based position of the fault ("% Invalid regular expression at position 3: ...").
std::string regexError(std::string_view pattern);

// The words the filter names offer after '|', with their help, for '?' and TAB.
struct FilterWord {
  const char* word;
  const char* help;
  bool takesPattern;
};
std::span<const FilterWord> filterWords();
// The filter a typed word names (a unique beginning of one); nullptr when none or several.
const FilterWord* findFilterWord(std::string_view typed);

// Line by line: what the line filters let through. `feed` takes bytes as they come, `finish`
// the last line without its newline and what `count` writes. Returns the text to write.
class LineFilterChain {
 public:
  explicit LineFilterChain(const OutputFilters& filters);
  std::string feed(std::string_view bytes);
  std::string finish();

 private:
  struct Stage {
    const LineFilter* filter;
    bool begun = false;         // begin: the first match was seen
    std::size_t sectionIndent;  // section: the indent of the matching line
    bool inSection = false;     // section: lines below it are let through
    std::size_t count = 0;      // count: lines seen
  };
  std::string line(std::string_view text);  // one line, newline included
  // The line through the stages from `first` on.
  std::string passFrom(std::size_t first, std::string_view text);

  std::vector<Stage> stages_;
  std::string partial_;
};

// Writes JSON text without the blanks between its tokens, and one newline at its end.
class JsonCompactor {
 public:
  std::string feed(std::string_view bytes);
  std::string finish();

 private:
  bool inString_ = false;
  bool escaped_ = false;
  bool any_ = false;
};

// The filters of one command between it and the output `fd`: fd() is where the command writes;
// close() waits for the filter to write everything. A reader of `fd` that went away closes
// the pipe, so the command sees its output closed.
class FilterPipe {
 public:
  FilterPipe(const OutputFilters& filters, int fd);
  ~FilterPipe();
  FilterPipe(const FilterPipe&) = delete;
  FilterPipe& operator=(const FilterPipe&) = delete;

  int fd() const { return writeEnd_; }
  void close();

 private:
  void run();

  const OutputFilters& filters_;
  int out_;
  int readEnd_ = -1;
  int writeEnd_ = -1;
  std::thread thread_;
};

}  // namespace cli
