// `write` keeps the state file's form: a file written back unchanged is the same file byte for
// byte, a change to the configuration changes the lines of what changed, and the file written
// loads back to the same listings. Every test works on a copy of the example in its own
// temporary directory, removed afterwards.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/cli/Capture.h"
#include "tests/cli/ExampleStateFile.h"
#include "tests/support/GoldenCases.h"

namespace {

clitest::Captured runRova(std::vector<std::string> args, std::string input = "") {
  return clitest::runProgram(ROVA_PROGRAM, std::move(args), input);
}

// The lines of `b` that are not in `a`, and those of `a` not in `b`, as a unified diff would
// count them when the two share their first and last lines.
struct Hunk {
  std::vector<std::string> removed, added;
};
Hunk hunk(const std::string& a, const std::string& b) {
  const auto lines = [](const std::string& t) {
    std::vector<std::string> out;
    std::size_t at = 0;
    while (at < t.size()) {
      const std::size_t nl = t.find('\n', at);
      out.push_back(t.substr(at, nl - at));
      at = nl == std::string::npos ? t.size() : nl + 1;
    }
    return out;
  };
  const std::vector<std::string> x = lines(a), y = lines(b);
  std::size_t head = 0, tail = 0;
  while (head < x.size() && head < y.size() && x[head] == y[head])
    ++head;
  while (tail < x.size() - head && tail < y.size() - head &&
         x[x.size() - 1 - tail] == y[y.size() - 1 - tail])
    ++tail;
  return {{x.begin() + head, x.end() - tail}, {y.begin() + head, y.end() - tail}};
}

std::multiset<std::string> linesOf(const std::string& text) {
  std::multiset<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    lines.insert(line);
  return lines;
}

using WriteForm = clitest::ExampleStateFile;

TEST_F(WriteForm, AnUnchangedStateIsWrittenBackAsTheSameFile) {
  // A hand-edited copy too: blanks, member order and defaults of the person who wrote it.
  std::string edited = example_;
  edited.replace(edited.find("\"version\": 1,"), 13, "\"version\" :1 ,\t");
  edited.replace(edited.find("{\"prefix\": \"10.8.0.0/16\","), 26,
                 "{ \"preference\": 1,\"prefix\": \"10.8.0.0/16\" ,");
  for (const std::string& text : {example_, edited}) {
    std::ofstream(file_, std::ios::trunc) << text;
    const clitest::Captured r = runRova({"--state", file_, "write"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(rovatest::readText(file_), text);
  }
}

TEST_F(WriteForm, AConfigurationChangeChangesOnlyItsLines) {
  // A static route changed (a second via), one removed, one added (whose next hop no route
  // reaches), in one session.
  const clitest::Captured session =
      runRova({"--state", file_},
              "configure\nip route 10.8.0.0/16 Ethernet3 10.2.3.11\nno ip route 10.9.0.0/16\n"
              "ip route 10.99.0.0/16 10.1.1.5\nend\nshow running-config static-routes\n"
              "show ip route\nwrite\n");
  ASSERT_EQ(session.status, 0) << session.err;
  const std::string written = rovatest::readText(file_);
  // The configuration's part of the file: from the changed route to the new one after the
  // last, nothing else moved.
  const std::string fibStart = "\n      \"ipv4\": {";
  const std::string configBefore = example_.substr(0, example_.find(fibStart));
  const std::string configAfter = written.substr(0, written.find(fibStart));
  const Hunk h = hunk(configBefore, configAfter);
  ASSERT_EQ(h.removed.size(), 14u);
  EXPECT_EQ(h.removed.front(),
            "        {\"prefix\": \"10.8.0.0/16\", \"vias\": [{\"nexthop\": \"10.2.3.10\", "
            "\"interface\": \"Ethernet3\"}]},");
  EXPECT_EQ(h.added.front(),
            "        {\"prefix\": \"10.8.0.0/16\", \"vias\": [{\"nexthop\": \"10.2.3.10\", "
            "\"interface\": \"Ethernet3\"}, {\"nexthop\": \"10.2.3.11\", \"interface\": "
            "\"Ethernet3\"}]},");
  EXPECT_EQ(h.added.back(),
            "        {\"prefix\": \"10.99.0.0/16\", \"vias\": [{\"nexthop\": \"10.1.1.5\"}]}");
  // Between them, the lines as they were but for the two of the removed route.
  EXPECT_EQ(std::vector<std::string>(h.removed.begin() + 3, h.removed.end() - 1),
            std::vector<std::string>(h.added.begin() + 1, h.added.end() - 2));
  EXPECT_EQ(h.added[h.added.size() - 2], h.removed.back() + ",");

  // The forwarding table's part: the two routes the statics changed and the entry of the new
  // via set; every other line as it was.
  const auto fibBefore = linesOf(example_.substr(configBefore.size()));
  const auto fibAfter = linesOf(written.substr(configAfter.size()));
  std::vector<std::string> gone, came;
  std::ranges::set_difference(fibBefore, fibAfter, std::back_inserter(gone));
  std::ranges::set_difference(fibAfter, fibBefore, std::back_inserter(came));
  auto mentionsTheChange = [](const std::string& line) {
    return line.find("10.8.0.0/16") != std::string::npos ||
           line.find("10.9.0.0/16") != std::string::npos ||
           line.find("\"id\": \"12") != std::string::npos;
  };
  EXPECT_EQ(gone.size(), 3u);
  for (const std::string& line : gone)
    EXPECT_TRUE(mentionsTheChange(line)) << line;
  for (const std::string& line : came)
    EXPECT_TRUE(mentionsTheChange(line)) << line;

  // The file loads back to what the session showed.
  const std::string config =
      runRova({"--state", file_, "show", "running-config", "static-routes"}).out;
  EXPECT_NE(session.out.find(config), std::string::npos) << session.out;
  const std::string routes = runRova({"--state", file_, "show", "ip", "route"}).out;
  EXPECT_NE(session.out.find(routes), std::string::npos) << session.out;
}

// The example's static route through Ethernet1 is in its forwarding table too, put there by
// whoever wrote the file: a clear in a new process takes out its configuration, that route and
// its FEC, and nothing else.
TEST_F(WriteForm, AClearTakesOutOnlyTheLinesOfWhatItClears) {
  const clitest::Captured r =
      runRova({"--state", file_, "clear", "static-routes", "interface", "Ethernet1"});
  ASSERT_EQ(r.status, 0) << r.err;
  const auto before = linesOf(example_), after = linesOf(rovatest::readText(file_));
  std::vector<std::string> gone, came;
  std::ranges::set_difference(before, after, std::back_inserter(gone));
  std::ranges::set_difference(after, before, std::back_inserter(came));
  EXPECT_TRUE(came.empty());
  ASSERT_EQ(gone.size(), 4u);
  const std::string fec =
      "\"id\": \"121\", \"vias\": [{\"nexthop\": \"10.1.1.1\", \"interface\": \"Ethernet1\"";
  for (const std::string& line : gone)
    EXPECT_TRUE(line.find("\"10.9.0.0/16\"") != std::string::npos ||
                line.find("\"nexthop\": \"10.1.1.1\"") != std::string::npos)
        << line;
  EXPECT_EQ(std::ranges::count_if(
                gone, [&](const std::string& l) { return l.find(fec) != std::string::npos; }),
            1);
  EXPECT_EQ(runRova({"--state", file_, "show", "ip", "route", "10.9.0.0/16"}).out.find("10.9.0.0"),
            std::string::npos);
}

}  // namespace
