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

}  // namespace cli
