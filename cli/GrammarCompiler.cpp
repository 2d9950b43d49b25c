// Building the table: a row's syntax line parsed into a tree, then compiled into a small
// program the matcher runs.

#include <optional>

#include "cli/GrammarWalk.h"
#include "platform/mox/Exception.h"

namespace cli {

using namespace grammar;

namespace {

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

}  // namespace

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

namespace {

// The plain keywords a syntax begins with ("show ip route" of "show ip route [vrf NAME]").
std::vector<std::string> leadOf(std::string_view syntax) {
  std::vector<std::string> lead;
  std::size_t at = 0;
  for (;;) {
    at = syntax.find_first_not_of(" \t", at);
    if (at == std::string_view::npos) return lead;
    const std::size_t end = std::min(syntax.find_first_of(" \t[]()|", at), syntax.size());
    const std::string_view word = syntax.substr(at, end - at);
    if (word.empty() || !isKeyword(word) || word == kJson) return lead;
    lead.emplace_back(word);
    at = end;
  }
}

void compileRow(const std::map<std::string, ArgType, std::less<>>& types,
                detail::CompiledRow& row) {
  Sequence tree = SyntaxParser(row.row.syntax).parse();
  RowCompiler(types, row.row.syntax).compile(tree, row.terms, row.program);
  row.compiled = true;
}

}  // namespace

void Grammar::addRow(Row row) {
  if (!row.action) throw GrammarError("syntax '" + row.syntax + "': no action");
  auto compiled = std::make_unique<detail::CompiledRow>();
  compiled->row = std::move(row);
  if (deferred_) compiled->lead = leadOf(compiled->row.syntax);
  if (compiled->lead.empty()) compileRow(types_, *compiled);
  rows_.push_back(std::move(compiled));
}

void Grammar::compileFor(std::span<const std::string> words) const {
  if (!deferred_) return;
  // Past a "json" the words no longer line up with the rows' keywords: "json" is skipped
  // where a command could end.
  std::vector<std::string> typed;
  for (const std::string& w : words) {
    if (isJson(w)) break;
    typed.push_back(lower(w));
  }
  // Where the words leave a row: its first keyword they do not abbreviate, or none.
  const auto leftAt = [&](const detail::CompiledRow& r) -> std::optional<std::size_t> {
    const std::size_t n = std::min(r.lead.size(), typed.size());
    for (std::size_t k = 0; k < n; ++k) {
      if (!startsWith(r.lead[k], typed[k])) return k;
    }
    return std::nullopt;
  };
  // The leading keywords of the compiled rows, by every length.
  std::set<std::vector<std::string>> begun;
  const auto compile = [&](detail::CompiledRow& r) {
    if (!r.compiled) compileRow(types_, r);
    for (std::size_t k = 1; k <= r.lead.size(); ++k)
      begun.emplace(r.lead.begin(), r.lead.begin() + std::ptrdiff_t(k));
  };
  for (const auto& r : rows_) {
    if (r->compiled || !leftAt(*r)) compile(*r);
  }
  for (const auto& r : rows_) {
    if (r->compiled) continue;
    const std::size_t k = *leftAt(*r);
    if (k > 0 && !begun.contains(std::vector<std::string>(r->lead.begin(),
                                                          r->lead.begin() + std::ptrdiff_t(k))))
      compile(*r);
  }
}

void Grammar::compileAll() const {
  for (const auto& r : rows_) {
    if (!r->compiled) compileRow(types_, *r);
  }
}

std::vector<const Row*> Grammar::rows() const {
  std::vector<const Row*> out;
  for (const auto& r : rows_)
    out.push_back(&r->row);
  return out;
}

std::vector<const ArgType*> Grammar::types() const {
  std::vector<const ArgType*> out;
  for (const auto& [name, type] : types_)
    out.push_back(&type);
  return out;
}

void Grammar::addRows(std::vector<Row> rows) {
  rows_.reserve(rows_.size() + rows.size());
  for (Row& r : rows)
    addRow(std::move(r));
}

}  // namespace cli
