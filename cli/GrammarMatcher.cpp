// Matching a typed line against every row at once, the messages for a line that does not
// match, and what a match gives its action.

#include "cli/GrammarWalk.h"
#include "platform/mox/Exception.h"

namespace cli {

using namespace grammar;

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

MatchResult Grammar::match(std::span<const std::string> words) const {
  Format format = Format::text;
  MatchResult result;
  if (words.empty()) {
    result.error = incomplete();
    return result;
  }
  compileFor(words);
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
