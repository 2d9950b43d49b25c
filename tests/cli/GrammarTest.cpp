#include "cli/Grammar.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "cli/Runner.h"
#include "platform/mox/Exception.h"
#include "tests/cli/DemoGrammar.h"

namespace {

using cli::Candidate;
using cli::Grammar;
using testing::ElementsAre;

int noAction(const cli::Match&, const cli::Context&) {
  return 0;
}

cli::Row row(std::string syntax, std::vector<cli::WordHelp> help = {}) {
  return {std::move(syntax), std::move(help), noAction};
}

void addTypes(Grammar& g) {
  g.addType({"NAME", "Name", [](std::string_view w) { return !w.empty(); }, {}});
  g.addType({"A.B.C.D", "IPv4 address", clitest::isIpv4Address, {}});
  g.addType({"A.B.C.D/LEN", "IPv4 prefix", clitest::isIpv4Prefix, {}});
  g.addType({"PROTOCOL",
             "Protocol",
             {},
             {{"connected", "Connected routes"}, {"static", ""}, {"dhcp", ""}, {"ospf", ""}}});
}

// The matched words as "keyword" or "KEY=value", or the error text.
std::string parse(const Grammar& g, std::string_view line) {
  std::vector<std::string> words = cli::splitWords(line);
  cli::MatchResult r = g.match(words);
  if (!r.match) return r.error;
  std::string out;
  for (const cli::Token& t : r.match->tokens()) {
    if (!out.empty()) out += " ";
    out += t.kind == cli::Token::Kind::keyword ? t.value : t.name + "=" + t.value;
  }
  return out;
}

std::string rowOf(const Grammar& g, std::string_view line) {
  std::vector<std::string> words = cli::splitWords(line);
  cli::MatchResult r = g.match(words);
  return r.match ? r.match->row().syntax : r.error;
}

std::vector<std::string> texts(const cli::Completion& c) {
  std::vector<std::string> out;
  for (const Candidate& k : c.candidates)
    out.push_back(k.text);
  return out;
}

cli::Completion complete(const Grammar& g, std::string_view line, std::string_view partial) {
  std::vector<std::string> words = cli::splitWords(line);
  return g.complete(words, partial);
}

class RouteGrammar : public testing::Test {
 protected:
  RouteGrammar() {
    addTypes(g);
    g.addKeywordHelp("show", "Show running system information");
    g.addKeywordHelp("ip", "IP information");
    g.addKeywordHelp("route", "Shared help that the row overrides");
    g.addRows({
        row("show ip route [vrf NAME] [A.B.C.D | A.B.C.D/LEN [longer-prefixes]] [PROTOCOL] "
            "[detail]",
            {{"route", "IP routing table"}, {"NAME", "VRF name"}, {"detail", "All of each route"}}),
        row("show ipv6 route"),
        row("show interfaces [NAME]"),
        row("show vrf [NAME] [detail]"),
        row("check ip address NAME A.B.C.D/LEN [primary-match (none|exact|address)] "
            "[secondary-match (none|exact|address)] [mgmt-prefix NAME:prefix]"),
    });
  }
  Grammar g;
};

// ---- Optional parts, alternatives and nesting ----

// Each line as the grammar reads it: the matched words, or where it fails.
TEST_F(RouteGrammar, ReadsEachLineOrSaysWhereItFails) {
  const std::pair<const char*, const char*> lines[] = {
      // Optional parts may be skipped, not reordered or repeated.
      {"show ip route", "show ip route"},
      {"show ip route detail", "show ip route detail"},
      {"show ip route vrf red 10.0.0.0/8 longer-prefixes static detail",
       "show ip route vrf NAME=red A.B.C.D/LEN=10.0.0.0/8 longer-prefixes PROTOCOL=static detail"},
      {"show ip route connected vrf red", "% Invalid input at 'vrf'"},
      {"show ip route detail detail", "% Invalid input at 'detail'"},
      {"show", "% Incomplete command"},
      // A nested part belongs to its alternative.
      {"show ip route 10.0.0.0/8 longer-prefixes",
       "show ip route A.B.C.D/LEN=10.0.0.0/8 longer-prefixes"},
      {"show ip route 10.0.0.1 longer-prefixes", "% Invalid input at 'longer-prefixes'"},
      {"show ip route longer-prefixes", "% Invalid input at 'longer-prefixes'"},
      {"show ip route 10.0.0.1 10.0.0.0/8", "% Invalid input at '10.0.0.0/8'"},
      // A unique beginning abbreviates, across rows and among a choice's keywords; a whole
      // keyword is never ambiguous with the longer ones it begins. Case does not matter to
      // keywords; arguments keep it.
      {"sh ip ro", "show ip route"},
      {"sh ipv ro", "show ipv6 route"},
      {"sh int", "show interfaces"},
      {"sh i ro", "% Ambiguous command at 'i'"},
      {"show ip route con", "show ip route PROTOCOL=connected"},
      {"show ip route de", "show ip route detail"},
      {"show ip route d", "% Ambiguous command at 'd'"},  // detail, dhcp
      {"SHOW Ip ROUTE vrf RED Connected", "show ip route vrf NAME=RED PROTOCOL=connected"},
      // An argument that fails its validator is named.
      {"show ip route 10.1.1.300", "% Invalid input at '10.1.1.300'"},
      {"show ip route 10.1.1.0/33", "% Invalid input at '10.1.1.0/33'"},
      {"show ip route vrf red bogus", "% Invalid input at 'bogus'"},
      // A whole keyword beats an argument; an abbreviation does not.
      {"show vrf detail", "show vrf detail"},
      {"show vrf detail detail", "% Invalid input at 'detail'"},
      {"show vrf red detail", "show vrf NAME=red detail"},
      {"show vrf det", "% Ambiguous command at 'det'"},
  };
  for (const auto& [line, read] : lines)
    EXPECT_EQ(parse(g, line), read) << line;
}

TEST_F(RouteGrammar, ChoiceGroupTakesExactlyOneAndAfterReadsIt) {
  std::vector<std::string> words = cli::splitWords(
      "check ip address Ethernet1 10.0.0.1/24 primary-match ex secondary-match addr "
      "mgmt-prefix mgmt");
  cli::MatchResult r = g.match(words);
  ASSERT_TRUE(r.match) << r.error;
  EXPECT_EQ(r.match->after("primary-match"), "exact");
  EXPECT_EQ(r.match->after("secondary-match"), "address");
  EXPECT_EQ(r.match->value("NAME"), "Ethernet1");
  EXPECT_EQ(r.match->value("prefix"), "mgmt");
  EXPECT_TRUE(r.match->flag("exact"));
  EXPECT_FALSE(r.match->flag("none"));
  EXPECT_TRUE(r.match->has("prefix"));

  EXPECT_EQ(parse(g, "check ip address Ethernet1 10.0.0.1/24 primary-match"),
            "% Incomplete command");
  EXPECT_EQ(parse(g, "check ip address Ethernet1 10.0.0.1/24 primary-match some"),
            "% Invalid input at 'some'");
}

TEST(GrammarStructure, GroupsNestAnyDepth) {
  Grammar g;
  g.addRows({row("a [b [c [d]]] [(e | f [g]) h]")});
  EXPECT_EQ(parse(g, "a b c d"), "a b c d");
  EXPECT_EQ(parse(g, "a b d"), "% Invalid input at 'd'");
  EXPECT_EQ(parse(g, "a f g h"), "a f g h");
  EXPECT_EQ(parse(g, "a e g h"), "% Invalid input at 'g'");
  EXPECT_EQ(parse(g, "a b e"), "% Incomplete command");
}

TEST(GrammarStructure, RepeatedPlaceholdersGetDistinctKeys) {
  Grammar g;
  addTypes(g);
  g.addType(
      {"X:X::X", "IPv6 address", [](std::string_view w) { return w.find(':') != w.npos; }, {}});
  g.addRows({row("copy A.B.C.D A.B.C.D"), row("route A.B.C.D/LEN A.B.C.D:nexthop X:X::X")});
  EXPECT_EQ(parse(g, "copy 10.0.0.1 10.0.0.2"), "copy A.B.C.D=10.0.0.1 A.B.C.D#2=10.0.0.2");
  EXPECT_EQ(parse(g, "route 10.0.0.0/8 10.0.0.1 2001:db8::1"),
            "route A.B.C.D/LEN=10.0.0.0/8 nexthop=10.0.0.1 X:X::X=2001:db8::1");
}

TEST(GrammarStructure, EarlierRowWinsWhenTwoCouldEnd) {
  Grammar g;
  addTypes(g);
  g.addRows({row("show vrf NAME"), row("show vrf A.B.C.D"), row("show vrf NAME summary")});
  EXPECT_EQ(rowOf(g, "show vrf 10.0.0.1"), "show vrf NAME");
  EXPECT_EQ(rowOf(g, "show vrf red summary"), "show vrf NAME summary");
}

// ---- Typed arguments ----

TEST(FreeText, ControlCharacterInAnyWordIsRefusedShownEscaped) {
  // Even where any word is a valid argument: it would go on into the state.
  Grammar g;
  g.addType({"WORD", "Any word", [](std::string_view) { return true; }, {}});
  g.addRows({row("set name WORD")});
  const std::string refused = ": control characters are not allowed";
  EXPECT_EQ(parse(g,
                  "set name a\x01"
                  "b"),
            "% Invalid input at 'a\\x01b'" + refused);
  EXPECT_EQ(parse(g, "set name \"tab\there\""), "% Invalid input at 'tab\\there'" + refused);
  EXPECT_EQ(parse(g, "set name del\x7f"), "% Invalid input at 'del\\x7f'" + refused);
  EXPECT_EQ(parse(g, "set name caf\u00e9"), "set name WORD=caf\u00e9");
}

TEST(TypedArguments, ValidatorThatThrowsSaysNo) {
  Grammar g;
  g.addType({"VRF",
             "VRF name",
             [](std::string_view w) {
               if (w.size() > 5) throw Mox::RangeException("VrfName::bytes > 5 not allowed");
               return true;
             },
             {}});
  g.addRows({row("show vrf VRF")});
  EXPECT_EQ(parse(g, "show vrf red"), "show vrf VRF=red");
  EXPECT_EQ(parse(g, "show vrf magenta"), "% Invalid input at 'magenta'");
  EXPECT_EQ(complete(g, "show vrf", "magenta").error, "% Invalid input at 'magenta'");
}

TEST_F(RouteGrammar, EmptyWordIsInvalid) {
  std::vector<std::string> words = {"show", "", "version"};
  EXPECT_EQ(g.match(words).error, "% Invalid input at ''");
}

// ---- The output format ----

// "json" may come anywhere the command could already end, and the command go on after it;
// where an argument is expected it is the argument, the last word too.
TEST_F(RouteGrammar, JsonMayComeWhereverTheCommandCouldEnd) {
  for (const char* line :
       {"show ip route json detail", "show ip route json vrf red detail",
        "show ip route vrf red json 10.0.0.0/8 longer-prefixes", "show ip route detail json",
        "show ipv6 route json", "sh int eth1 JSON"}) {
    std::vector<std::string> words = cli::splitWords(line);
    cli::MatchResult r = g.match(words);
    ASSERT_TRUE(r.match) << line << ": " << r.error;
    EXPECT_EQ(r.match->format(), cli::Format::json) << line;
    EXPECT_EQ(r.match->formatNumber(), 2);
  }
  EXPECT_EQ(parse(g, "show ip route json vrf red detail"), "show ip route vrf NAME=red detail");
  EXPECT_EQ(parse(g, "show ip route vrf json detail"), "show ip route vrf NAME=json detail");
  std::vector<std::string> words = cli::splitWords("show ip route vrf json detail");
  EXPECT_EQ(g.match(words).match->format(), cli::Format::text);
  EXPECT_EQ(g.match(words).match->formatNumber(), 1);
  EXPECT_EQ(parse(g, "show ip route vrf json"), "show ip route vrf NAME=json");
  words = cli::splitWords("show ip route vrf json");
  EXPECT_EQ(g.match(words).match->format(), cli::Format::text);
  EXPECT_EQ(parse(g, "show ip route vrf json json"), "show ip route vrf NAME=json");
}

// Where no command can end yet, the refusal says where json goes.
TEST_F(RouteGrammar, MisplacedJsonIsRefusedWithWhereItGoes) {
  const std::string where = Grammar::misplacedJson();
  EXPECT_EQ(where.rfind("% Invalid input at 'json': it goes after the command's keywords", 0), 0u);
  EXPECT_EQ(parse(g, "show ip json route"), where);
  EXPECT_EQ(parse(g, "json show ip route"), where);
  EXPECT_EQ(parse(g, "show json"), where);
  EXPECT_EQ(parse(g, "json"), where);
  EXPECT_EQ(complete(g, "show json", "").error, where);
}

// ---- Declaring rows ----

TEST(GrammarDeclaration, MalformedRowsAreRefusedWhenAdded) {
  Grammar g;
  addTypes(g);
  for (const char* syntax : {"", "show [vrf NAME", "show vrf NAME]", "show [vrf | ]",
                             "show (a | b]", "show a | b", "show UNKNOWN", "show Ip", "show 1x",
                             "show route json", "copy NAME:a NAME:a", "copy NAME:a-b=c"}) {
    EXPECT_THROW(g.addRow(row(syntax)), cli::GrammarError) << syntax;
  }
  EXPECT_THROW(g.addRow({"show version", {}, nullptr}), cli::GrammarError);
}

TEST(GrammarDeclaration, TypesNeedExactlyOneWayToMatch) {
  Grammar g;
  EXPECT_THROW(g.addType({"NAME", "Name", {}, {}}), cli::GrammarError);
  EXPECT_THROW(g.addType({"NAME", "Name", [](std::string_view) { return true; }, {{"a", ""}}}),
               cli::GrammarError);
  EXPECT_THROW(g.addType({"PROTOCOL", "Protocol", {}, {{"Static", ""}}}), cli::GrammarError);
  EXPECT_THROW(g.addType({"name", "Name", [](std::string_view) { return true; }, {}}),
               cli::GrammarError);
  g.addType({"NAME", "Name", [](std::string_view) { return true; }, {}});
  EXPECT_THROW(g.addType({"NAME", "Name", [](std::string_view) { return true; }, {}}),
               cli::GrammarError);
}

// ---- Completion and help ----

TEST_F(RouteGrammar, HelpListsEverythingThatMayComeNext) {
  cli::Completion c = complete(g, "show ip route", "");
  EXPECT_TRUE(c.error.empty());
  EXPECT_THAT(texts(c), ElementsAre("A.B.C.D", "A.B.C.D/LEN", "connected", "detail", "dhcp", "json",
                                    "ospf", "static", "vrf", "<cr>"));
  EXPECT_EQ(c.candidates.front().help, "IPv4 address");
  EXPECT_EQ(c.candidates[2].help, "Connected routes");  // a choice's own help
  EXPECT_EQ(c.candidates[4].help, "Protocol");          // else its type's
  EXPECT_EQ(c.candidates.back().kind, Candidate::Kind::end);
}

TEST_F(RouteGrammar, HelpTextComesFromTheRowThenTheSharedTable) {
  EXPECT_THAT(complete(g, "show ip route vrf", "").candidates,
              ElementsAre(Candidate{Candidate::Kind::argument, "NAME", "VRF name"}));
  cli::Completion atShow = complete(g, "show", "i");
  EXPECT_THAT(texts(atShow), ElementsAre("interfaces", "ip", "ipv6"));
  EXPECT_EQ(atShow.candidates[1].help, "IP information");
  EXPECT_EQ(complete(g, "", "sh").candidates.at(0).help, "Show running system information");
  EXPECT_EQ(complete(g, "show ip", "").candidates.at(0).help, "IP routing table");
}

TEST_F(RouteGrammar, PartialWordNarrowsTheCandidates) {
  EXPECT_THAT(texts(complete(g, "show ip route", "de")), ElementsAre("detail"));
  EXPECT_THAT(texts(complete(g, "show ip route", "j")), ElementsAre("json"));
  // A placeholder shows once the partial word already fits it.
  EXPECT_THAT(texts(complete(g, "show ip route", "10.0.0.1")), ElementsAre("A.B.C.D"));
  EXPECT_THAT(texts(complete(g, "sh ip ro", "10.0.0.0/8")), ElementsAre("A.B.C.D/LEN"));
}

TEST_F(RouteGrammar, CommandEndsOnlyWhereTheRowMay) {
  EXPECT_THAT(texts(complete(g, "show ip", "")), ElementsAre("route"));
  // After json the command may still go on, and json is not offered twice.
  EXPECT_THAT(texts(complete(g, "show ip route detail json", "")), ElementsAre("<cr>"));
  EXPECT_THAT(texts(complete(g, "show ip route json", "")),
              ElementsAre("A.B.C.D", "A.B.C.D/LEN", "connected", "detail", "dhcp", "ospf", "static",
                          "vrf", "<cr>"));
  EXPECT_THAT(texts(complete(g, "show ip route 10.0.0.0/8 longer-prefixes detail", "")),
              ElementsAre("json", "<cr>"));
}

TEST_F(RouteGrammar, HelpAfterAWrongWordReportsIt) {
  EXPECT_EQ(complete(g, "show bogus", "").error, "% Invalid input at 'bogus'");
  EXPECT_EQ(complete(g, "show i", "").error, "% Ambiguous command at 'i'");
  EXPECT_EQ(complete(g, "show ip route", "x").error, "% Invalid input at 'x'");
  EXPECT_TRUE(complete(g, "show ip route", "x").candidates.empty());
}

}  // namespace
