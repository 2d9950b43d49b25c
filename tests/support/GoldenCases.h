#pragma once
// Golden cases: "name | status | command" lines of a cases file, the expected output files
// beside it, and the check of one run against them.

#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace rovatest {

struct GoldenCase {
  std::string name;
  int status;
  std::string command;
};

// A failing case names itself and its command, not its bytes.
inline void PrintTo(const GoldenCase& c, std::ostream* os) {
  *os << c.name << " (rova " << c.command << ")";
}

inline std::string trimmed(const std::string& s) {
  const auto b = s.find_first_not_of(' ');
  const auto e = s.find_last_not_of(' ');
  return b == std::string::npos ? std::string() : s.substr(b, e - b + 1);
}

// The cases of a file; blank lines and lines starting with '#' are comments.
inline std::vector<GoldenCase> readGoldenCases(const std::string& path) {
  std::ifstream in(path);
  std::vector<GoldenCase> cases;
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    const auto a = line.find('|');
    const auto b = line.find('|', a + 1);
    cases.push_back({trimmed(line.substr(0, a)), std::stoi(line.substr(a + 1, b - a - 1)),
                     trimmed(line.substr(b + 1))});
  }
  return cases;
}

// A file's text; empty when it does not exist.
inline std::string readText(const std::string& path) {
  std::ifstream in(path);
  if (!in) return {};
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

// The first line where two texts differ, to make a failure readable.
inline std::string firstDifference(const std::string& want, const std::string& got) {
  std::istringstream a(want), b(got);
  std::string la, lb;
  for (int n = 1;; ++n) {
    const bool ma = bool(std::getline(a, la)), mb = bool(std::getline(b, lb));
    if (!ma && !mb) return "(the texts differ only in their last newline)";
    if (la != lb || ma != mb) {
      return "line " + std::to_string(n) + ":\n  want: " + (ma ? la : "<end>") +
             "\n  got:  " + (mb ? lb : "<end>");
    }
  }
}

// A case's name as a test name.
inline std::string goldenTestName(const testing::TestParamInfo<GoldenCase>& info) {
  std::string n = info.param.name;
  for (char& ch : n) {
    if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
  }
  return n;
}

// Where a JSON text repeats a key within one object ("$.routes.10.0.0.0/8"), empty when it
// does not (or is not JSON at all: parsing says that). Every reader keeps one of repeated keys,
// so an output that repeats one loses the others.
inline std::string repeatedJsonKey(const std::string& text) {
  struct Finder : nlohmann::json_sax<nlohmann::json> {
    struct Open {
      bool object;
      std::string path;
      std::string lastKey;
      std::set<std::string> keys;
    };
    std::vector<Open> open;
    std::string found;

    bool enter(bool object) {
      std::string path = "$";
      if (!open.empty())
        path = open.back().path + (open.back().object ? "." + open.back().lastKey : "[]");
      open.push_back({object, std::move(path), {}, {}});
      return true;
    }
    bool leave() {
      open.pop_back();
      return true;
    }
    bool key(string_t& k) override {
      if (!open.back().keys.insert(k).second && found.empty()) found = open.back().path + "." + k;
      open.back().lastKey = k;
      return true;
    }
    bool start_object(std::size_t) override { return enter(true); }
    bool end_object() override { return leave(); }
    bool start_array(std::size_t) override { return enter(false); }
    bool end_array() override { return leave(); }
    bool null() override { return true; }
    bool boolean(bool) override { return true; }
    bool number_integer(number_integer_t) override { return true; }
    bool number_unsigned(number_unsigned_t) override { return true; }
    bool number_float(number_float_t, const string_t&) override { return true; }
    bool string(string_t&) override { return true; }
    bool binary(binary_t&) override { return true; }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
      return false;
    }
  } finder;
  nlohmann::json::sax_parse(text, &finder, nlohmann::json::input_format_t::json, false);
  return finder.found;
}

// What a run of case `c` gave against the case's files in `dir`: the status, standard output
// and standard error exactly, and a .json case's output parsed back as an object. With
// ROVA_UPDATE_GOLDEN set the files are rewritten first; read every changed line before
// committing them.
inline void expectGolden(const std::string& dir, const GoldenCase& c, int status,
                         const std::string& out, const std::string& err) {
  const std::string base = dir + "/" + c.name;
  if (std::getenv("ROVA_UPDATE_GOLDEN")) {
    std::ofstream(base + ".out") << out;
    if (err.empty()) {
      std::remove((base + ".err").c_str());
    } else {
      std::ofstream(base + ".err") << err;
    }
  }
  EXPECT_EQ(status, c.status) << c.command << "\n" << err;
  const std::string wantOut = readText(base + ".out");
  EXPECT_TRUE(out == wantOut) << c.command << "\n" << firstDifference(wantOut, out);
  EXPECT_EQ(err, readText(base + ".err")) << c.command;
  if (c.name.size() > 5 && c.name.compare(c.name.size() - 5, 5, ".json") == 0) {
    nlohmann::json parsed;
    EXPECT_NO_THROW(parsed = nlohmann::json::parse(out)) << c.command << "\n" << out;
    EXPECT_TRUE(parsed.is_object()) << c.command;
    EXPECT_EQ(repeatedJsonKey(out), "") << c.command << ": a key repeated in one object";
  }
}

}  // namespace rovatest
