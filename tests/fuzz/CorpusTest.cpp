// The command fuzzers start from seeds and a dictionary that cover every command, so that a
// command added to the table is fuzzed from the start. What "every command" is comes from the
// grammars themselves: the walk below follows the shell's completion from the empty line
// through every keyword and placeholder of every mode, and ends at each row.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "cli/Grammar.h"
#include "tests/fuzz/ScriptRunner.h"

namespace {

namespace fs = std::filesystem;

const fs::path kFuzzDir = ROVA_FUZZ_DIR;

// A word each placeholder accepts, to walk past it.
const std::map<std::string, std::string> kSampleWords = {
    {"NAME", "red"},
    {"A.B.C.D", "10.1.1.1"},
    {"A.B.C.D/LEN", "10.1.0.0/16"},
    {"X:X::X", "2001:db8::1"},
    {"X:X::X/LEN", "2001:db8::/32"},
    {"INTF", "Ethernet1"},
    {"TEXT", "text"},
    {"RD", "100:1"},
    {"VALUE", "Value('Rova::CounterEntry', ** {'packets': 1, 'bytes': 2})"},
    {"FILE", "state.json"},
    {"TYPE", "Rova::RouteSorter"},
    {"GROUP", "NHG-A"},
    {"PREF", "5"},
    {"TAG", "7"},
    {"LABEL", "16"},
    {"VNI", "10"},
    {"MAC", "00:11:22:33:44:55"},
    {"ADDR", "10.9.9.9"},
    {"SESSION", "s9"},
    {"SIZE", "8"},
    {"TTL", "32"},
    {"INDEX", "2"},
    {"LINES", "0"},
};

// What a grammar offers: every keyword (choices and `json` included) and every row.
struct Reach {
  std::set<std::string> keywords;
  std::set<std::string> rows;
  std::set<std::string> unknownPlaceholders;
  // Where the walk has been: the first word, what may come next, and the row the words match.
  std::set<std::string> seen;
};

void walk(const cli::Grammar& grammar, std::vector<std::string>& words, Reach& reach) {
  const cli::Completion next = grammar.complete(words, "");
  const cli::MatchResult m = grammar.match(words);
  // Optional parts may be taken in any combination. A place the walk has been before by other
  // words (the same first two words, the same continuations with the same help, the same row
  // matched) leads nowhere new.
  std::string place;
  for (std::size_t i = 0; i < words.size() && i < 2; ++i)
    place += words[i] + " ";
  for (const cli::Candidate& c : next.candidates)
    place += "|" + c.text + ":" + c.help;
  place += "|" + (m.match ? m.match->row().syntax : std::string());
  if (!reach.seen.insert(place).second) return;
  if (m.match) reach.rows.insert(m.match->row().syntax);

  for (const cli::Candidate& c : next.candidates) {
    // The device's own names are samples of a placeholder the walk passes already.
    if (c.kind == cli::Candidate::Kind::end || c.kind == cli::Candidate::Kind::value) continue;
    std::string word = c.text;
    if (c.kind == cli::Candidate::Kind::keyword) {
      reach.keywords.insert(c.text);
      // `json` goes anywhere a command may end; following it would only double the walk.
      if (c.text == "json") continue;
    } else {
      auto sample = kSampleWords.find(c.text);
      if (sample == kSampleWords.end()) {
        reach.unknownPlaceholders.insert(c.text);
        continue;
      }
      word = sample->second;
    }
    words.push_back(word);
    walk(grammar, words, reach);
    words.pop_back();
  }
}

// The grammar of each mode, reached the way a script reaches it, and what it offers.
struct Mode {
  const cli::Grammar* grammar;
  Reach reach;
};

const std::map<std::string, Mode>& modes() {
  static const std::map<std::string, Mode> all = [] {
    fuzz::ScriptRunner& runner = fuzz::ScriptRunner::instance();
    runner.useExample();
    std::map<std::string, Mode> m;
    const auto add = [&](const char* name) {
      Mode mode{runner.mode().grammar, {}};
      std::vector<std::string> words;
      walk(*mode.grammar, words, mode.reach);
      m.emplace(name, std::move(mode));
    };
    add("exec");
    runner.runWords({"configure"});
    add("config");
    runner.runWords({"interface", "Ethernet1"});
    add("interface");
    runner.runWords({"exit"});
    runner.runWords({"vrf", "instance", "red"});
    add("vrf");
    runner.runWords({"exit"});
    runner.runWords({"nexthop-group", "NHG-A"});
    add("nexthop-group");
    runner.leaveModes();
    return m;
  }();
  return all;
}

std::string fileText(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST(FuzzCorpus, TheWalkReachesEveryModeAndPlaceholder) {
  for (const auto& [name, mode] : modes()) {
    EXPECT_TRUE(mode.reach.unknownPlaceholders.empty())
        << name << " mode: no sample word for " << *mode.reach.unknownPlaceholders.begin()
        << "; add one to kSampleWords";
  }
  // Each configuration mode is a grammar of its own, with rows the command table lacks.
  const auto& exec = modes().at("exec").reach.rows;
  for (const char* name : {"config", "interface", "vrf"}) {
    const Mode& mode = modes().at(name);
    EXPECT_NE(mode.grammar, modes().at("exec").grammar) << name;
    EXPECT_TRUE(
        std::includes(mode.reach.rows.begin(), mode.reach.rows.end(), exec.begin(), exec.end()))
        << name << " mode lacks a row of the command table";
    EXPECT_GT(mode.reach.rows.size(), exec.size()) << name;
  }
}

TEST(FuzzCorpus, TheDictionaryHoldsEveryKeyword) {
  const std::string dict = fileText(kFuzzDir / "command.dict");
  std::set<std::string> keywords;
  for (const auto& [name, mode] : modes())
    keywords.insert(mode.reach.keywords.begin(), mode.reach.keywords.end());
  std::string missing;
  for (const std::string& k : keywords) {
    if (dict.find("\"" + k + "\"\n") == std::string::npos) missing += "\"" + k + "\"\n";
  }
  EXPECT_EQ(missing, "") << "add these lines to tests/fuzz/command.dict";
}

// Every row of every mode runs in some seed script (a row several modes share, such as the
// command table's or the route lines, in any of them), and every mode is entered.
TEST(FuzzCorpus, TheSeedScriptsRunEveryRow) {
  std::set<std::string> wanted;
  for (const auto& [name, mode] : modes())
    wanted.insert(mode.reach.rows.begin(), mode.reach.rows.end());

  fuzz::ScriptRunner& runner = fuzz::ScriptRunner::instance();
  std::set<std::string> ran;
  std::set<std::string> modesRun;
  for (const char* corpus : {"command", "round-trip"}) {
    for (const auto& entry : fs::directory_iterator(kFuzzDir / "corpus" / corpus)) {
      const std::string script = fileText(entry.path());
      if (script.find('\0') != std::string::npos || script.rfind('{', 0) == 0) continue;
      runner.useExample();
      runner.runScript(script, [&](const fuzz::LineRun& r) {
        modesRun.insert(r.mode);
        const cli::MatchResult m = r.grammar->match(r.words);
        if (m.match) ran.insert(m.match->row().syntax);
      });
      runner.leaveModes();
      runner.clearFiles();
    }
  }
  EXPECT_EQ(modesRun.size(), modes().size());
  std::string missing;
  for (const std::string& row : wanted) {
    if (!ran.count(row)) missing += row + "\n";
  }
  EXPECT_EQ(missing, "") << "no seed script in tests/fuzz/corpus runs these rows";
}

}  // namespace
