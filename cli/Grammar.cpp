#include "cli/Grammar.h"

#include <algorithm>
#include <exception>
#include <set>
#include <utility>

#include "platform/mox/Exception.h"

namespace cli {

namespace {

constexpr std::string_view kJson = "json";
constexpr std::string_view kEnd = "<cr>";

// Router CLIs take keywords in any case; argument values keep the case they were typed in.
std::string lower(std::string_view s) {
  std::string out(s);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

bool isKeyword(std::string_view w) {
  if (w.empty() || w[0] < 'a' || w[0] > 'z') return false;
  return std::all_of(w.begin(), w.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
  });
}

bool isPlaceholder(std::string_view w) {
  return !w.empty() && w[0] >= 'A' && w[0] <= 'Z';
}

bool isJson(std::string_view w) {
  return lower(w) == kJson;
}

// ---- The syntax line, parsed into a tree and then into a small program ----

struct Node;
using Sequence = std::vector<Node>;

struct Node {
  enum class Kind { word, optional, choice };
  Kind kind = Kind::word;
  std::string word;
  std::vector<Sequence> alternatives;
};

class SyntaxParser {
 public:
  explicit SyntaxParser(std::string_view syntax) : syntax_(syntax) { tokenize(); }

  Sequence parse() {
    Sequence top = sequence();
    if (pos_ < tokens_.size()) fail("unexpected '" + tokens_[pos_] + "'");
    if (top.empty()) fail("empty syntax");
    return top;
  }

 private:
  void tokenize() {
    std::string word;
    auto flush = [&] {
      if (!word.empty()) tokens_.push_back(std::exchange(word, {}));
    };
    for (char c : syntax_) {
      if (c == ' ' || c == '\t') {
        flush();
      } else if (c == '[' || c == ']' || c == '(' || c == ')' || c == '|') {
        flush();
        tokens_.emplace_back(1, c);
      } else {
        word += c;
      }
    }
    flush();
  }

  Sequence sequence() {
    Sequence seq;
    while (pos_ < tokens_.size()) {
      const std::string& t = tokens_[pos_];
      if (t == "]" || t == ")" || t == "|") break;
      ++pos_;
      if (t == "[" || t == "(") {
        Node group;
        group.kind = t == "[" ? Node::Kind::optional : Node::Kind::choice;
        group.alternatives = alternatives(t == "[" ? "]" : ")");
        seq.push_back(std::move(group));
      } else {
        seq.push_back(Node{Node::Kind::word, t, {}});
      }
    }
    return seq;
  }

  std::vector<Sequence> alternatives(const std::string& close) {
    std::vector<Sequence> alts;
    for (;;) {
      alts.push_back(sequence());
      if (alts.back().empty()) fail("empty alternative");
      if (pos_ >= tokens_.size()) fail("missing '" + close + "'");
      const std::string& t = tokens_[pos_++];
      if (t == close) return alts;
      if (t != "|") fail("'" + t + "' closes a group opened with the other bracket");
    }
  }

  [[noreturn]] void fail(const std::string& what) const {
    throw GrammarError("syntax '" + std::string(syntax_) + "': " + what);
  }

  std::string_view syntax_;
  std::vector<std::string> tokens_;
  std::size_t pos_ = 0;
};

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

bool startsWith(std::string_view s, std::string_view prefix) {
  return s.substr(0, prefix.size()) == prefix;
}

// A validator may say no by throwing: a value type's parser refusing the text is the natural
// way to write one.
bool accepts(const ArgType& type, std::string_view word) {
  try {
    return type.valid(word);
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace

namespace detail {

struct CompiledRow {
  Row row;
  std::vector<Term> terms;
  std::vector<Inst> program;  // a `term` instruction's `a` is its index in `terms`
};

}  // namespace detail

// ---- Building the table ----

namespace {

class RowCompiler {
 public:
  RowCompiler(const std::map<std::string, ArgType, std::less<>>& types, std::string_view syntax)
      : types_(types), syntax_(syntax) {}

  void compile(const Sequence& seq, std::vector<Term>& terms, std::vector<Inst>& program) {
    terms_ = &terms;
    program_ = &program;
    sequence(seq);
    emit(Inst::Op::end);
    assignDefaultKeys();
  }

 private:
  void sequence(const Sequence& seq) {
    for (const Node& n : seq) {
      if (n.kind == Node::Kind::word) {
        int t = static_cast<int>(terms_->size());
        terms_->push_back(term(n.word));
        program_->push_back(Inst{Inst::Op::term, t, 0});
      } else {
        group(n.alternatives, n.kind == Node::Kind::optional);
      }
    }
  }

  // Each alternative but a choice's last one starts with a split to the next; an optional
  // group's last split falls through to "skip it".
  void group(const std::vector<Sequence>& alts, bool optional) {
    std::vector<int> exits;
    for (std::size_t i = 0; i < alts.size(); ++i) {
      bool branches = optional || i + 1 < alts.size();
      int split = -1;
      if (branches) {
        split = emit(Inst::Op::split);
        (*program_)[split].a = split + 1;
      }
      sequence(alts[i]);
      if (branches) {
        exits.push_back(emit(Inst::Op::jump));
        (*program_)[split].b = static_cast<int>(program_->size());
      }
    }
    for (int e : exits)
      (*program_)[e].a = static_cast<int>(program_->size());
  }

  int emit(Inst::Op op) {
    program_->push_back(Inst{op, 0, 0});
    return static_cast<int>(program_->size()) - 1;
  }

  Term term(const std::string& word) {
    if (isKeyword(word)) {
      if (word == kJson) fail("'json' is reserved for the output format");
      return Term{true, word, {}, nullptr};
    }
    if (!isPlaceholder(word)) fail("'" + word + "' is neither a keyword nor a placeholder");
    // An explicit key follows the last ':' and starts lower case, so "X:X::X" stays a type.
    std::string name = word;
    std::string key;
    if (auto colon = word.rfind(':'); colon != std::string::npos && colon + 1 < word.size() &&
                                      isKeyword(word.substr(colon + 1))) {
      name = word.substr(0, colon);
      key = word.substr(colon + 1);
    }
    auto type = types_.find(name);
    if (type == types_.end()) fail("unknown argument type '" + name + "'");
    return Term{false, name, key, &type->second};
  }

  void assignDefaultKeys() {
    std::map<std::string, int> seen;
    for (Term& t : *terms_) {
      if (t.keyword || !t.key.empty()) continue;
      int n = ++seen[t.text];
      t.key = n == 1 ? t.text : t.text + "#" + std::to_string(n);
    }
    std::set<std::string> keys;
    for (const Term& t : *terms_) {
      if (!t.keyword && !keys.insert(t.key).second) fail("key '" + t.key + "' used twice");
    }
  }

  [[noreturn]] void fail(const std::string& what) const {
    throw GrammarError("syntax '" + std::string(syntax_) + "': " + what);
  }

  const std::map<std::string, ArgType, std::less<>>& types_;
  std::string_view syntax_;
  std::vector<Term>* terms_ = nullptr;
  std::vector<Inst>* program_ = nullptr;
};

}  // namespace

Grammar::Grammar() = default;
Grammar::~Grammar() = default;

void Grammar::addType(ArgType type) {
  if (!isPlaceholder(type.name)) {
    throw GrammarError("argument type '" + type.name + "' must start with an upper-case letter");
  }
  if (static_cast<bool>(type.valid) == !type.choices.empty()) {
    throw GrammarError("argument type '" + type.name + "' needs a validator or choices, not both");
  }
  for (const Choice& c : type.choices) {
    if (!isKeyword(c.word)) {
      throw GrammarError("argument type '" + type.name + "': choice '" + c.word +
                         "' is not a keyword");
    }
  }
  std::string name = type.name;
  if (!types_.emplace(name, std::move(type)).second) {
    throw GrammarError("argument type '" + name + "' registered twice");
  }
}

void Grammar::addKeywordHelp(std::string keyword, std::string help) {
  keywordHelp_[std::move(keyword)] = std::move(help);
}

void Grammar::addRow(Row row) {
  if (!row.action) throw GrammarError("syntax '" + row.syntax + "': no action");
  auto compiled = std::make_unique<detail::CompiledRow>();
  Sequence tree = SyntaxParser(row.syntax).parse();
  RowCompiler(types_, row.syntax).compile(tree, compiled->terms, compiled->program);
  compiled->row = std::move(row);
  rows_.push_back(std::move(compiled));
}

void Grammar::addRows(std::vector<Row> rows) {
  for (Row& r : rows)
    addRow(std::move(r));
}

// ---- Matching ----

std::string Grammar::invalidInput(std::string_view word) {
  return "% Invalid input at " + Mox::shownWord(word);
}

std::string Grammar::ambiguous(std::string_view word) {
  return "% Ambiguous command at " + Mox::shownWord(word);
}

const std::string& Grammar::misplacedJson() {
  static const std::string text =
      "% Invalid input at 'json': it goes after the command's keywords, for example "
      "'show ip route json'";
  return text;
}

bool Grammar::asksForJson(std::span<const std::string> words) {
  return std::any_of(words.begin(), words.end(), [](const std::string& w) { return isJson(w); });
}

const std::string& Grammar::incomplete() {
  static const std::string text = "% Incomplete command";
  return text;
}

namespace {

using detail::CompiledRow;
using Rows = std::vector<std::unique_ptr<CompiledRow>>;

bool hasControlCharacter(std::string_view word) {
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
    for (std::size_t r = 0; r < rows_.size(); ++r)
      follow(walk.threads, r, 0, {});
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
        walk.threads.clear();
        walk.error = d.kind == Decision::Kind::ambiguous ? Grammar::ambiguous(word)
                     : isJson(word)                      ? Grammar::misplacedJson()
                                                         : Grammar::invalidInput(word);
        return walk;
      }
      walk.threads = advance(walk.threads, d, word);
    }
    return walk;
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

}  // namespace

MatchResult Grammar::match(std::span<const std::string> words) const {
  Format format = Format::text;
  if (!words.empty() && isJson(words.back())) {
    format = Format::json;
    words = words.first(words.size() - 1);
  }
  MatchResult result;
  if (words.empty()) {
    result.error = incomplete();
    return result;
  }
  Walker walker(rows_);
  Walk walk = walker.run(words);
  if (!walk.error.empty()) {
    result.error = std::move(walk.error);
    return result;
  }
  if (walk.json) format = Format::json;
  for (Thread& t : walk.threads) {
    if (walker.atEnd(t)) {
      result.match.emplace(rows_[t.row]->row, std::move(t.tokens), format);
      return result;
    }
  }
  result.error = incomplete();
  return result;
}

// ---- Completion and help ----

namespace {

// Collects candidates without repeats: the first thread to offer a word gives its help.
class CandidateList {
 public:
  void add(Candidate::Kind kind, std::string text, std::string help) {
    for (const Candidate& c : list_) {
      if (c.kind == kind && c.text == text) return;
    }
    list_.push_back(Candidate{kind, std::move(text), std::move(help)});
  }

  // Sorted by text, "<cr>" last.
  std::vector<Candidate> sorted() && {
    std::stable_sort(list_.begin(), list_.end(), [](const Candidate& a, const Candidate& b) {
      bool aEnd = a.kind == Candidate::Kind::end;
      bool bEnd = b.kind == Candidate::Kind::end;
      return aEnd != bEnd ? bEnd : a.text < b.text;
    });
    return std::move(list_);
  }

 private:
  std::vector<Candidate> list_;
};

const std::string* rowHelp(const Row& row, const std::string& word, const std::string& alias) {
  for (const WordHelp& h : row.help) {
    if (h.word == word || h.word == alias) return &h.text;
  }
  return nullptr;
}

}  // namespace

std::string Grammar::keywordHelp(const Row& row, const std::string& keyword) const {
  if (const std::string* own = rowHelp(row, keyword, keyword)) return *own;
  auto shared = keywordHelp_.find(keyword);
  return shared == keywordHelp_.end() ? std::string() : shared->second;
}

Completion Grammar::complete(std::span<const std::string> words, std::string_view partial) const {
  Completion result;
  Walker walker(rows_);
  Walk walk = walker.run(words);
  if (!walk.error.empty()) {
    result.error = std::move(walk.error);
    return result;
  }

  std::string lp = lower(partial);
  CandidateList list;
  bool canEnd = false;
  for (const Thread& t : walk.threads) {
    const Term* term = walker.termOf(t);
    if (!term) {
      canEnd = true;
      continue;
    }
    const Row& row = rows_[t.row]->row;
    const std::string* help = term->keyword ? nullptr : rowHelp(row, term->key, term->text);
    if (term->keyword) {
      if (startsWith(term->text, lp)) {
        list.add(Candidate::Kind::keyword, term->text, keywordHelp(row, term->text));
      }
    } else if (term->isChoice()) {
      for (const Choice& c : term->type->choices) {
        if (!startsWith(c.word, lp)) continue;
        list.add(Candidate::Kind::keyword, c.word,
                 !c.help.empty() ? c.help
                 : help          ? *help
                                 : term->type->help);
      }
    } else if (partial.empty() || accepts(*term->type, partial)) {
      list.add(Candidate::Kind::argument, term->text, help ? *help : term->type->help);
    }
  }
  if (canEnd && !walk.json && startsWith(kJson, lp)) {
    list.add(Candidate::Kind::keyword, std::string(kJson), "Produce JSON output");
  }
  if (canEnd && partial.empty()) {
    list.add(Candidate::Kind::end, std::string(kEnd), "");
  }
  result.candidates = std::move(list).sorted();
  if (result.candidates.empty() && !partial.empty()) result.error = invalidInput(partial);
  return result;
}

// ---- Match accessors ----

bool Match::flag(std::string_view keyword) const {
  return std::any_of(tokens_.begin(), tokens_.end(), [&](const Token& t) {
    return t.kind == Token::Kind::keyword && t.name == keyword;
  });
}

bool Match::has(std::string_view key) const {
  return std::any_of(tokens_.begin(), tokens_.end(), [&](const Token& t) {
    return t.kind == Token::Kind::argument && t.name == key;
  });
}

const std::string& Match::value(std::string_view key) const {
  static const std::string none;
  for (const Token& t : tokens_) {
    if (t.kind == Token::Kind::argument && t.name == key) return t.value;
  }
  return none;
}

std::string_view Match::after(std::string_view keyword) const {
  for (std::size_t i = 0; i + 1 < tokens_.size(); ++i) {
    if (tokens_[i].kind == Token::Kind::keyword && tokens_[i].name == keyword) {
      return tokens_[i + 1].value;
    }
  }
  return {};
}

}  // namespace cli
