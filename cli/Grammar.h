#pragma once
// The command grammar: one table of rows, each a syntax line, its help texts and its action.
// The engine matches a typed word list against every row at once, the way a router CLI does:
// keywords may be abbreviated, optional parts may be skipped, placeholders are checked by named
// argument types, and "json" selects JSON output for any row: as the last word, or anywhere
// the command could already end ("show ip route json detail"). The same walk answers
// the shell's completion and '?' help, so what the shell offers is exactly what runs.
//
// Syntax of a row (docs/shell.md has the user-facing version):
//   keyword          lower case, digits and '-' ("longer-prefixes"); may be abbreviated
//   PLACEHOLDER      starts with an upper-case letter ("NAME", "A.B.C.D/LEN", "X:X::X"); it
//                    names a registered ArgType. Its value is keyed by the placeholder text,
//                    or by an explicit key: "A.B.C.D:nexthop" (the key starts lower case). A
//                    placeholder repeated without a key gets "TEXT#2", "TEXT#3", ... in order.
//   [ a b | c ]      optional; alternatives separated by '|'; groups nest
//   ( a | b )        exactly one of the alternatives
// Optional parts are matched in the order written; any of them may be skipped.

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

namespace detail {
struct CompiledRow;
}

// The printer's format numbers, passed through unchanged.
enum class Format { text = 1, json = 2 };

// One word of a fixed choice list, with its own help (empty: the type's help).
struct Choice {
  std::string word;
  std::string help;
};

// How a placeholder is matched. Either `valid` checks a free word (throwing counts as "no"),
// or `choices` lists the keywords the placeholder may take (then they abbreviate and complete
// like keywords, and the bound value is the full choice). Exactly one of the two is given.
struct ArgType {
  std::string name;  // as written in the syntax: "A.B.C.D/LEN", "PROTOCOL"
  std::string help;  // one line for '?'
  std::function<bool(std::string_view)> valid;
  std::vector<Choice> choices;
};

// The values a device has for a free-word placeholder (its VRFs, its interfaces), offered by
// TAB and '?' beside the placeholder. Given the words before and the beginning typed, it
// returns values that begin so (case aside); it may return fewer than all where there are many.
using NameSource = std::function<std::vector<std::string>(std::span<const std::string> words,
                                                          std::string_view partial)>;

// Help for one word of a row: a keyword, or a placeholder (by its key or its type name) when
// the type's generic help says too little ("NAME" -> "VRF name").
struct WordHelp {
  std::string word;
  std::string text;
};

class Match;
struct Context;
// An action runs a matched row and returns the process exit status (0 when it worked).
using Action = std::function<int(const Match&, const Context&)>;

struct Row {
  std::string syntax;
  std::vector<WordHelp> help;
  Action action;
};

// A malformed row or type, found while the table is built: a programming error.
class GrammarError : public std::logic_error {
 public:
  using std::logic_error::logic_error;
};

// One matched word, in typed order.
struct Token {
  enum class Kind { keyword, argument };
  Kind kind;
  std::string name;   // the keyword, or the placeholder's key
  std::string typed;  // the word as typed ("ro")
  std::string value;  // the full keyword, the full choice, or the argument text
};

class Match {
 public:
  Match(const Row& row, std::vector<Token> tokens, Format format)
      : row_(&row), tokens_(std::move(tokens)), format_(format) {}

  const Row& row() const { return *row_; }
  Format format() const { return format_; }
  int formatNumber() const { return static_cast<int>(format_); }
  const std::vector<Token>& tokens() const { return tokens_; }

  // A keyword of the row was typed (by any abbreviation).
  bool flag(std::string_view keyword) const;
  // A placeholder was given a value.
  bool has(std::string_view key) const;
  // The placeholder's value; empty when it was not given.
  const std::string& value(std::string_view key) const;
  // The value of the word right after a keyword: "primary-match (none|exact)" gives
  // after("primary-match") == "exact". Empty when the keyword is absent or ends the command.
  std::string_view after(std::string_view keyword) const;

 private:
  const Row* row_;
  std::vector<Token> tokens_;
  Format format_;
};

struct MatchResult {
  std::optional<Match> match;
  std::string error;  // the exact message for the user when there is no match
};

// A candidate for the next word, for TAB and '?'.
// A `value` is a name the device has for a placeholder (a VRF, an interface); `named` marks
// a placeholder whose values are offered, so that TAB may complete to them.
struct Candidate {
  enum class Kind { keyword, argument, end, value };
  Kind kind;
  std::string text;  // keyword, placeholder ("A.B.C.D"), a value, or "<cr>"
  std::string help;
  bool named = false;
  friend bool operator==(const Candidate&, const Candidate&) = default;
};

struct Completion {
  // Keywords and placeholders sorted by text, then the values in the order given, "<cr>" last
  std::vector<Candidate> candidates;
  std::string error;  // set when the words typed so far cannot match
};

class Grammar {
 public:
  Grammar();
  ~Grammar();
  Grammar(const Grammar&) = delete;
  Grammar& operator=(const Grammar&) = delete;

  // Types are registered before the rows that use them.
  void addType(ArgType type);
  // Help for a keyword shared by many rows ("show", "ip"); a row's own help overrides it.
  void addKeywordHelp(std::string keyword, std::string help);
  // The names offered for a registered free-word type.
  void namesIs(std::string_view typeName, NameSource names);
  void addRow(Row row);
  void addRows(std::vector<Row> rows);
  // From now on a row that begins with plain keywords is compiled the first time a line may
  // need it, and checked then rather than as it is added: a one-shot command compiles the
  // rows its words may begin instead of the whole table. Matches, messages and completions
  // are the same either way. For a table used from one thread (the program's own); others
  // compile rows as they are added.
  void deferCompiling() { deferred_ = true; }

  // The table as written, for what is generated from it (the manual page, the shell's
  // completion script): the rows in order, the argument types by name.
  std::vector<const Row*> rows() const;
  std::vector<const ArgType*> types() const;

  MatchResult match(std::span<const std::string> words) const;
  // What may follow `words`, completing `partial` (the word being typed, possibly empty).
  Completion complete(std::span<const std::string> words, std::string_view partial) const;

  // The messages the user sees.
  static std::string invalidInput(std::string_view word);
  static std::string ambiguous(std::string_view word);
  static const std::string& incomplete();
  // "json" where no command can end yet.
  static const std::string& misplacedJson();

  // Whether a line asks for JSON output: any of its words is "json". A line the grammar
  // refuses is answered in JSON by this rule, since no row says what its words mean.
  static bool asksForJson(std::span<const std::string> words);
  static Format formatOf(std::span<const std::string> words) {
    return asksForJson(words) ? Format::json : Format::text;
  }
  // The format a matched line asks for is its match's ("vrf json" names a VRF); a refused
  // line's is the rule above.
  static Format formatOf(const MatchResult& r, std::span<const std::string> words) {
    return r.match ? r.match->format() : formatOf(words);
  }

 private:
  std::string keywordHelp(const Row& row, const std::string& keyword) const;
  // Compiles the rows matching `words` may need. A row whose leading keywords the words
  // (those before the first "json") abbreviate all the way is needed. A row the words leave
  // at its k-th keyword (k > 0) only adds its first k keywords to the choices of the first k
  // words, and then ends: it is needed unless a compiled row begins with the same k keywords.
  // A row left at its first keyword says nothing. Rows that begin otherwise are always
  // compiled.
  void compileFor(std::span<const std::string> words) const;
  void compileAll() const;

  std::map<std::string, ArgType, std::less<>> types_;
  std::map<const ArgType*, NameSource> names_;
  std::map<std::string, std::string, std::less<>> keywordHelp_;
  std::vector<std::unique_ptr<detail::CompiledRow>> rows_;
  bool deferred_ = false;
};

}  // namespace cli
