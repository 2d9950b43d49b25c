// The manual page and the bash completion generated from the rova command table: every row is
// in them, and the completion script, run by bash, offers what the shell would.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "cli/CommandDocs.h"
#include "cli/Commands.h"

namespace {

const cli::Grammar& table() {
  static cli::Grammar* g = [] {
    auto* made = new cli::Grammar;
    cli::addCommands(*made);
    return made;
  }();
  return *g;
}

// The keywords a row begins with, before its first placeholder or optional part.
std::vector<std::string> leadingKeywords(const std::string& syntax) {
  std::vector<std::string> out;
  std::istringstream in(syntax);
  std::string w;
  while (in >> w && std::islower(static_cast<unsigned char>(w[0])))
    out.push_back(w);
  return out;
}

std::string roffed(std::string s) {
  std::string out;
  for (char c : s)
    out += c == '-' ? std::string("\\-") : std::string(1, c);
  return out;
}

TEST(ManPage, ListsEveryRowWithItsHelpAndEveryArgumentType) {
  const std::string page =
      cli::manPage(table(), "usage: rova [--state FILE]\n  --help  this\n", "9.9");
  EXPECT_EQ(page.rfind(".TH ROVA 1", 0), 0u);
  EXPECT_NE(page.find("rova 9.9"), std::string::npos);
  EXPECT_NE(page.find("rova [\\-\\-state FILE]"), std::string::npos);
  ASSERT_GT(table().rows().size(), 10u);
  for (const cli::Row* row : table().rows()) {
    EXPECT_NE(page.find(".B " + roffed(row->syntax) + "\n"), std::string::npos) << row->syntax;
    for (const cli::WordHelp& h : row->help)
      EXPECT_NE(page.find(roffed(h.text)), std::string::npos) << row->syntax << ": " << h.text;
  }
  for (const cli::ArgType* type : table().types())
    EXPECT_NE(page.find(".B " + roffed(type->name) + "\n"), std::string::npos) << type->name;
}

// Runs the completion function for the words typed (the last one being completed).
std::string complete(const std::string& script, const std::string& typed) {
  const std::filesystem::path dir =
      std::filesystem::temp_directory_path() / ("rova-completion-" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  {
    std::ofstream(dir / "rova.bash") << script;
    std::ofstream(dir / "run.sh") << "source \"$1\"\nCOMP_WORDS=(" << typed
                                  << ")\nCOMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n_rova\n"
                                     "echo \"${COMPREPLY[*]}\"\n";
  }
  const std::string cmd = "bash " + (dir / "run.sh").string() + " " + (dir / "rova.bash").string();
  std::string out;
  if (FILE* p = ::popen(cmd.c_str(), "r")) {
    char buf[4096];
    while (std::fgets(buf, sizeof buf, p))
      out += buf;
    ::pclose(p);
  }
  std::filesystem::remove_all(dir);
  while (!out.empty() && out.back() == '\n')
    out.pop_back();
  return out;
}

TEST(BashCompletion, OffersTheWordsOfEveryRow) {
  const std::string script = cli::bashCompletion(table());
  for (const cli::Row* row : table().rows()) {
    const std::vector<std::string> words = leadingKeywords(row->syntax);
    ASSERT_FALSE(words.empty()) << row->syntax;
    std::string typed = "rova";
    for (const std::string& w : words) {
      const std::string offered = " " + complete(script, typed + " ''") + " ";
      EXPECT_NE(offered.find(" " + w + " "), std::string::npos) << typed << " | " << offered;
      typed += " " + w;
    }
  }
}

TEST(BashCompletion, CompletesPastArgumentsAndOptions) {
  const std::string script = cli::bashCompletion(table());
  EXPECT_EQ(complete(script, "rova sh"), "show");
  EXPECT_EQ(complete(script, "rova show ip ro"), "route");
  const std::string afterVrf = complete(script, "rova --state f.json show ip route vrf red ''");
  EXPECT_NE(afterVrf.find("summary"), std::string::npos) << afterVrf;
  EXPECT_NE(afterVrf.find("detail"), std::string::npos) << afterVrf;
  EXPECT_NE(afterVrf.find("json"), std::string::npos) << afterVrf;
  EXPECT_EQ(complete(script, "rova --li"), "--live");
}

}  // namespace
