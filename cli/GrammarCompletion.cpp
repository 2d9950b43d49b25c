// TAB completion and "?" help: what may come next after the words typed so far.

#include "cli/GrammarWalk.h"
#include "platform/mox/Exception.h"

namespace cli {

using namespace grammar;

// ---- Completion and help ----

namespace {

// Collects candidates without repeats: the first thread to offer a word gives its help.
class CandidateList {
 public:
  void add(Candidate::Kind kind, std::string text, std::string help, bool named = false) {
    for (Candidate& c : list_) {
      if (c.kind == kind && c.text == text) {
        c.named = c.named || named;
        return;
      }
    }
    list_.push_back(Candidate{kind, std::move(text), std::move(help), named});
  }

  // Keywords and placeholders by text, then values as they came, "<cr>" last.
  std::vector<Candidate> sorted() && {
    const auto rank = [](const Candidate& c) {
      return c.kind == Candidate::Kind::end ? 2 : c.kind == Candidate::Kind::value ? 1 : 0;
    };
    std::stable_sort(list_.begin(), list_.end(), [&](const Candidate& a, const Candidate& b) {
      if (rank(a) != rank(b)) return rank(a) < rank(b);
      return rank(a) == 0 && a.text < b.text;
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

void Grammar::namesIs(std::string_view typeName, NameSource names) {
  auto type = types_.find(typeName);
  if (type == types_.end() || !type->second.valid) {
    throw GrammarError("names for '" + std::string(typeName) + "', not a free-word type");
  }
  names_[&type->second] = std::move(names);
}

std::string Grammar::keywordHelp(const Row& row, const std::string& keyword) const {
  if (const std::string* own = rowHelp(row, keyword, keyword)) return *own;
  auto shared = keywordHelp_.find(keyword);
  return shared == keywordHelp_.end() ? std::string() : shared->second;
}

Completion Grammar::complete(std::span<const std::string> words, std::string_view partial) const {
  Completion result;
  compileAll();
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
    } else {
      const std::string& text = help ? *help : term->type->help;
      const auto names = names_.find(term->type);
      const bool named = names != names_.end();
      if (partial.empty() || accepts(*term->type, partial)) {
        list.add(Candidate::Kind::argument, term->text, text, named);
      }
      if (named) {
        for (std::string& name : names->second(words, partial)) {
          if (startsWith(lower(name), lp) && accepts(*term->type, name))
            list.add(Candidate::Kind::value, std::move(name), "");
        }
      }
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

}  // namespace cli
