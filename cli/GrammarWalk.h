// The grammar's own parts, shared by its three files (the row compiler, the matcher and the
// completion): the compiled form of a row and the walk that matches words against every row
// at once. Users of the grammar include cli/Grammar.h.

#pragma once

#include <algorithm>
#include <exception>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cli/Grammar.h"

namespace cli {

namespace grammar {

inline constexpr std::string_view kJson = "json";
inline constexpr std::string_view kEnd = "<cr>";

// Router CLIs take keywords in any case; argument values keep the case they were typed in.
inline std::string lower(std::string_view s) {
  std::string out(s);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

inline bool isKeyword(std::string_view w) {
  if (w.empty() || w[0] < 'a' || w[0] > 'z') return false;
  return std::all_of(w.begin(), w.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
  });
}

inline bool isPlaceholder(std::string_view w) {
  return !w.empty() && w[0] >= 'A' && w[0] <= 'Z';
}

inline bool isJson(std::string_view w) {
  return lower(w) == kJson;
}

// A word of the syntax that consumes one typed word.
struct Term {
  bool keyword = false;
  std::string text;  // the keyword, or the placeholder's type name
  std::string key;   // placeholders only
  const ArgType* type = nullptr;

  bool isChoice() const { return type && !type->choices.empty(); }
};

// Pike-style program: `split` tries `a` before `b`, so an optional part is taken when it can
// be and earlier alternatives win ties.
struct Inst {
  enum class Op { term, split, jump, end };
  Op op;
  int a = 0;
  int b = 0;
};

inline bool startsWith(std::string_view s, std::string_view prefix) {
  return s.substr(0, prefix.size()) == prefix;
}

// A validator may say no by throwing: a value type's parser refusing the text is the natural
// way to write one.
inline bool accepts(const ArgType& type, std::string_view word) {
  try {
    return type.valid(word);
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace grammar

namespace detail {

struct CompiledRow {
  Row row;
  std::vector<grammar::Term> terms;
  std::vector<grammar::Inst> program;  // a `term` instruction's `a` is its index in `terms`
  // In a table that compiles on demand, a row that begins with plain keywords is compiled
  // once a line needs it (Grammar::compileFor).
  bool compiled = false;
  std::vector<std::string> lead;  // the keywords the syntax begins with, up to its first
                                  // group or placeholder
};

}  // namespace detail

namespace grammar {

using detail::CompiledRow;
using Rows = std::vector<std::unique_ptr<CompiledRow>>;

inline bool hasControlCharacter(std::string_view word) {
  return std::any_of(word.begin(), word.end(), [](char c) {
    const auto b = static_cast<unsigned char>(c);
    return b < 0x20 || b == 0x7f;
  });
}

// One way of reading the words so far: a row and the place in its program.
struct Thread {
  std::size_t row;
  int pc;
  std::vector<Token> tokens;
};

struct Walk {
  std::vector<Thread> threads;  // each waits at a term or at the end, in priority order
  std::string error;
  bool json = false;  // a "json" was taken for the output format
};

// What one typed word is taken to be, decided over every term the live threads wait at.
struct Decision {
  enum class Kind { keyword, arguments, invalid, ambiguous };
  Kind kind = Kind::invalid;
  std::string keyword;                      // the full keyword when kind == keyword
  std::map<const ArgType*, bool> accepted;  // validator answers, asked once per type
};

// Matches the words against every row at once, one word at a time, keeping every reading
// that still fits (a Pike-style walk: no backtracking, no reading followed twice).
class Walker {
 public:
  explicit Walker(const Rows& rows) : rows_(rows) {}

  Walk run(std::span<const std::string> words) {
    Walk walk;
    seen_.clear();
    // A row not compiled yet is one whose reading would say nothing another row does not say
    // as well (Grammar::compileFor).
    for (std::size_t r = 0; r < rows_.size(); ++r) {
      if (rows_[r]->compiled) follow(walk.threads, r, 0, {});
    }
    for (const std::string& word : words) {
      // Where the command could end, "json" is the output format, and the command may go on
      // after it. Elsewhere it is an ordinary word (a VRF may be called json).
      if (isJson(word) && canEnd(walk.threads)) {
        walk.json = true;
        continue;
      }
      // No argument may carry a control character into the state: a written state would
      // not load again, and a listing would send it to the user's terminal.
      if (hasControlCharacter(word)) {
        walk.threads.clear();
        walk.error = Grammar::invalidInput(word) + ": control characters are not allowed";
        return walk;
      }
      Decision d = decide(walk.threads, word);
      if (d.kind == Decision::Kind::invalid || d.kind == Decision::Kind::ambiguous) {
        walk.error = d.kind == Decision::Kind::ambiguous ? Grammar::ambiguous(word)
                     : isJson(word)                      ? Grammar::misplacedJson()
                                                         : Grammar::invalidInput(word);
        // An address typed without its mask where only an address with one may come: say
        // what was expected.
        if (d.kind == Decision::Kind::invalid && word.find('/') == std::string::npos) {
          const ArgType* expected = onlyArgument(walk.threads);
          if (expected && expected->name.ends_with("/LEN")) {
            walk.error += ": expected " + expected->name + " (" + expected->help + ")";
          }
        }
        walk.threads.clear();
        return walk;
      }
      walk.threads = advance(walk.threads, d, word);
    }
    return walk;
  }

  // The free-word argument type every thread waits for, when they all wait for the same one
  // and none may end or take a keyword; nullptr otherwise.
  const ArgType* onlyArgument(const std::vector<Thread>& threads) const {
    const ArgType* type = nullptr;
    for (const Thread& t : threads) {
      const Term* term = termOf(t);
      if (!term || term->keyword || term->isChoice()) return nullptr;
      if (type && type != term->type) return nullptr;
      type = term->type;
    }
    return type;
  }

  bool canEnd(const std::vector<Thread>& threads) const {
    return std::any_of(threads.begin(), threads.end(), [&](const Thread& t) { return atEnd(t); });
  }

  bool atEnd(const Thread& t) const { return rows_[t.row]->program[t.pc].op == Inst::Op::end; }

  const Term* termOf(const Thread& t) const {
    const CompiledRow& row = *rows_[t.row];
    const Inst& inst = row.program[t.pc];
    return inst.op == Inst::Op::term ? &row.terms[inst.a] : nullptr;
  }

 private:
  // Follows splits and jumps until the thread waits at a term or at the end. A state reached
  // twice keeps the first (higher priority) thread.
  void follow(std::vector<Thread>& out, std::size_t row, int pc, const std::vector<Token>& tokens) {
    const Inst& inst = rows_[row]->program[pc];
    switch (inst.op) {
      case Inst::Op::split:
        follow(out, row, inst.a, tokens);
        follow(out, row, inst.b, tokens);
        return;
      case Inst::Op::jump:
        follow(out, row, inst.a, tokens);
        return;
      case Inst::Op::term:
      case Inst::Op::end:
        if (seen_.emplace(row, pc).second) out.push_back(Thread{row, pc, tokens});
        return;
    }
  }

  // A whole keyword wins; otherwise the word must abbreviate exactly one keyword or fit
  // arguments only. A typed argument has no precedence over an abbreviation.
  Decision decide(const std::vector<Thread>& threads, const std::string& word) const {
    Decision d;
    if (word.empty()) return d;
    std::string lw = lower(word);
    bool exact = false;
    std::set<std::string> prefixed;
    auto consider = [&](const std::string& keyword) {
      if (keyword == lw) {
        exact = true;
      } else if (startsWith(keyword, lw)) {
        prefixed.insert(keyword);
      }
    };
    bool anyArgument = false;
    for (const Thread& t : threads) {
      const Term* term = termOf(t);
      if (!term) continue;
      if (term->keyword) {
        consider(term->text);
      } else if (term->isChoice()) {
        for (const Choice& c : term->type->choices)
          consider(c.word);
      } else {
        auto [it, fresh] = d.accepted.emplace(term->type, false);
        if (fresh) it->second = accepts(*term->type, word);
        anyArgument = anyArgument || it->second;
      }
    }
    if (exact) {
      d.kind = Decision::Kind::keyword;
      d.keyword = lw;
    } else if (prefixed.size() > 1 || (prefixed.size() == 1 && anyArgument)) {
      d.kind = Decision::Kind::ambiguous;
    } else if (prefixed.size() == 1) {
      d.kind = Decision::Kind::keyword;
      d.keyword = *prefixed.begin();
    } else if (anyArgument) {
      d.kind = Decision::Kind::arguments;
    }
    return d;
  }

  std::optional<Token> take(const Term& term, const Decision& d, const std::string& word) const {
    if (d.kind == Decision::Kind::keyword) {
      if (term.keyword && term.text == d.keyword) {
        return Token{Token::Kind::keyword, term.text, word, term.text};
      }
      if (term.isChoice() && std::any_of(term.type->choices.begin(), term.type->choices.end(),
                                         [&](const Choice& c) { return c.word == d.keyword; })) {
        return Token{Token::Kind::argument, term.key, word, d.keyword};
      }
    } else if (!term.keyword && !term.isChoice() && d.accepted.at(term.type)) {
      return Token{Token::Kind::argument, term.key, word, word};
    }
    return std::nullopt;
  }

  std::vector<Thread> advance(const std::vector<Thread>& threads, const Decision& d,
                              const std::string& word) {
    std::vector<Thread> next;
    seen_.clear();
    for (const Thread& t : threads) {
      const Term* term = termOf(t);
      if (!term) continue;
      std::optional<Token> token = take(*term, d, word);
      if (!token) continue;
      std::vector<Token> tokens = t.tokens;
      tokens.push_back(std::move(*token));
      follow(next, t.row, t.pc + 1, tokens);
    }
    return next;
  }

  const Rows& rows_;
  std::set<std::pair<std::size_t, int>> seen_;
};

}  // namespace grammar

}  // namespace cli
