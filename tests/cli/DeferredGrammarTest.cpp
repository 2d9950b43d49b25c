// The program's command table compiled on demand answers every line as the table compiled
// whole does: the same row, the same words, the same format, the same message.

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "cli/Commands.h"
#include "cli/ConfigMode.h"

namespace {

std::unique_ptr<cli::Grammar> table(bool deferred) {
  auto g = std::make_unique<cli::Grammar>();
  if (deferred) g->deferCompiling();
  cli::addCommands(*g);
  cli::addConfigureRow(*g);
  return g;
}

std::string shown(const cli::MatchResult& r) {
  if (!r.match) return "error: " + r.error;
  std::string out = r.match->row().syntax + " format " + std::to_string(r.match->formatNumber());
  for (const cli::Token& t : r.match->tokens())
    out += " | " + t.name + "=" + t.typed + "->" + t.value;
  return out;
}

// Every word of a row's syntax that is not punctuation, in order.
std::vector<std::string> syntaxWords(const std::string& syntax) {
  std::string spaced;
  for (char c : syntax)
    spaced += (c == '[' || c == ']' || c == '(' || c == ')' || c == '|') ? ' ' : c;
  std::istringstream in(spaced);
  std::vector<std::string> out;
  for (std::string w; in >> w;)
    out.push_back(w);
  return out;
}

// Lines made from the table's own words: each row's words cut and abbreviated at every
// length, followed by words that keep a line going, end it, or refuse it.
std::set<std::vector<std::string>> lines(const cli::Grammar& g) {
  const std::vector<std::string> tails[] = {{},
                                            {"json"},
                                            {"detail"},
                                            {"10.1.2.3"},
                                            {"vrf", "red"},
                                            {"x"},
                                            {"json", "detail"},
                                            {"summary"},
                                            {"ip"},
                                            {"Ethernet1"},
                                            {"2001:db8::1"},
                                            {"10.0.0.0/8"}};
  std::set<std::vector<std::string>> out;
  out.insert({"json"});
  out.insert({"JSON", "show"});
  out.insert({"frobnicate"});
  out.insert({"s\x01"});
  for (const cli::Row* row : g.rows()) {
    const std::vector<std::string> words = syntaxWords(row->syntax);
    for (std::size_t n = 1; n <= words.size(); ++n) {
      for (std::size_t cut = 1; cut <= 3; ++cut) {
        std::vector<std::string> line(words.begin(), words.begin() + std::ptrdiff_t(n));
        // The last word abbreviated, or taken whole when it is a placeholder.
        std::string& last = line.back();
        if (std::islower(static_cast<unsigned char>(last[0])) && last.size() > cut)
          last.resize(cut);
        for (const auto& tail : tails) {
          std::vector<std::string> withTail = line;
          withTail.insert(withTail.end(), tail.begin(), tail.end());
          out.insert(withTail);
        }
      }
    }
  }
  return out;
}

TEST(DeferredGrammar, AnswersEveryLineAsTheWholeTable) {
  const auto whole = table(false);
  const auto corpus = lines(*whole);
  ASSERT_GT(corpus.size(), 1000u);
  const auto shared = table(true);  // compiles more and more rows as lines come
  std::size_t matched = 0;
  for (const auto& line : corpus) {
    const std::string expected = shown(whole->match(line));
    if (expected.rfind("error: ", 0) != 0) ++matched;
    // A fresh table compiles only what this one line needs.
    EXPECT_EQ(shown(table(true)->match(line)), expected) << testing::PrintToString(line);
    EXPECT_EQ(shown(shared->match(line)), expected) << testing::PrintToString(line);
  }
  // The corpus reaches commands, not only refusals.
  EXPECT_GT(matched, 100u);
}

// "json" is skipped where a command may end, so the words after it no longer line up with
// the rows' leading keywords: the row that takes them must still be compiled.
TEST(DeferredGrammar, WordsAfterJsonStillReachTheirRow) {
  const auto action = [](const cli::Match&, const cli::Context&) { return 0; };
  for (const bool deferred : {false, true}) {
    cli::Grammar g;
    if (deferred) g.deferCompiling();
    g.addRow({"show route", {}, action});
    g.addRow({"show route detail", {}, action});
    g.addRow({"show routers", {}, action});
    EXPECT_EQ(shown(g.match(std::vector<std::string>{"show", "route", "json", "detail"})),
              "show route detail format 2 | show=show->show | route=route->route | "
              "detail=detail->detail")
        << "deferred " << deferred;
  }
}

TEST(DeferredGrammar, CompletionSeesEveryRow) {
  const auto whole = table(false);
  const auto deferred = table(true);
  (void)deferred->match(std::vector<std::string>{"show", "version"});
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{}, {"show"}, {"sh", "ip"}, {"check"}}) {
    const auto a = whole->complete(words, "");
    const auto b = deferred->complete(words, "");
    EXPECT_EQ(a.candidates, b.candidates) << testing::PrintToString(words);
    EXPECT_EQ(a.error, b.error);
  }
}

}  // namespace
