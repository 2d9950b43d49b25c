// Whatever configuration mode accepts, `write` saves and the loader takes back. Many
// configuration scripts are generated from the words a user may type, edge values included
// (long and odd names, zero addresses, the largest numbers), run through the program's own
// shell on a copy of the example device, written, and the written file must load again and
// write the same text.

#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "cli/Commands.h"
#include "cli/ConfigMode.h"
#include "cli/DeviceState.h"
#include "cli/Grammar.h"
#include "cli/Shell.h"
#include "snapshot/Snapshot.h"
#include "tests/support/Capture.h"
#include "tests/support/GoldenCases.h"

namespace {

class ScriptMaker {
 public:
  explicit ScriptMaker(unsigned seed) : random_(seed) {}

  std::string script() {
    std::string text = "configure\n";
    const int lines = 1 + int(random_() % 10);
    for (int i = 0; i < lines; ++i)
      text += line() + "\n";
    return text + "end\n";
  }

 private:
  std::mt19937 random_;

  template <std::size_t N>
  std::string pick(const char* const (&words)[N]) {
    return words[random_() % N];
  }
  bool chance(unsigned percent) { return random_() % 100 < percent; }

  std::string intf() {
    static const char* const names[] = {"Ethernet1", "Ethernet2",   "Ethernet5",       "Loopback9",
                                        "Vlan100",   "Management1", "Port-Channel1.5", "Et1/2_3",
                                        "Tunnel0",   "Null0"};
    if (chance(15)) return "E" + std::string(63 + random_() % 4, 'x');
    return pick(names);
  }
  std::string vrf() {
    static const char* const names[] = {"red",         "blue",  "green",   "json", "a/b",
                                        "caf\xc3\xa9", "x\xff", "default", "Vrf-1"};
    if (chance(10)) return std::string(99 + random_() % 3, 'v');
    return pick(names);
  }
  std::string hop(bool v6) {
    static const char* const four[] = {"10.1.1.2", "0.0.0.0", "10.1.1.0", "192.0.2.9",
                                       "255.255.255.255"};
    static const char* const six[] = {"2001:db8::9", "::", "fe80::1", "::ffff:10.1.1.2",
                                      "2001:db8:1:1::1"};
    return v6 ? pick(six) : pick(four);
  }
  std::string prefix(bool v6) {
    static const char* const four[] = {"10.99.0.0/16", "0.0.0.0/0",   "10.9.0.0/16",
                                       "192.0.2.0/24", "10.1.1.1/32", "10.12.0.0/16"};
    static const char* const six[] = {"2001:db8:99::/48", "::/0", "2001:db8:1:1::/64", "fe80::/10",
                                      "::1/128"};
    return v6 ? pick(six) : pick(four);
  }
  std::string text() {
    static const char* const texts[] = {"fw",   "caf\xc3\xa9", "\xff\xfe", "a\"b",
                                        "it's", "back\\slash", "NHG-A",    "x"};
    if (chance(10)) return std::string(200 + random_() % 200, 'n');
    return pick(texts);
  }
  std::string number() {
    static const char* const numbers[] = {"0",       "1",        "16",        "255",
                                          "1048575", "16777215", "4294967295"};
    return pick(numbers);
  }
  std::string mac() {
    static const char* const macs[] = {"00:00:00:00:00:00", "00:1c:73:00:00:21",
                                       "ff:ff:ff:ff:ff:ff"};
    return pick(macs);
  }

  std::string route() {
    const bool v6 = chance(40);
    std::string s = std::string(chance(20) ? "no " : "") + (v6 ? "ipv6 route" : "ip route");
    if (chance(25)) s += " vrf " + vrf();
    s += " " + prefix(v6);
    switch (random_() % 4) {
      case 0:
        s += " Null0";
        break;
      case 1:
        s += " Nexthop-Group " + text();
        break;
      default:
        if (chance(60)) s += " " + intf();
        if (chance(70)) {
          s += " " + hop(v6);
          if (chance(30)) s += " label " + number();
        }
        if (chance(15)) s += " track bfd";
        if (chance(20)) {
          s += " vtep " + hop(chance(50)) + " vni " + number() + " router-mac-address " + mac();
        }
        break;
    }
    if (chance(30)) s += " " + number();
    if (chance(20)) s += " tag " + number();
    if (chance(30)) s += " name " + text();
    return s;
  }

  std::string intfMode() {
    static const char* const four[] = {"10.250.0.1/32", "0.0.0.0/0",          "10.1.1.1/31",
                                       "10.2.3.7/16",   "255.255.255.255/32", "10.251.0.1/24",
                                       "127.0.0.1/8",   "224.0.0.1/24"};
    static const char* const six[] = {"2001:db8:250::1/64", "::/0",    "fe80::1/64",
                                      "ff02::1/64",         "::1/128", "2001:db8:1:1::9/64",
                                      "::ffff:1.2.3.4/96"};
    std::string s = "interface " + intf() + "\n";
    const int lines = 1 + int(random_() % 3);
    for (int i = 0; i < lines; ++i) {
      switch (random_() % 5) {
        case 0:
          s += std::string("ip address ") + pick(four) + (chance(40) ? " secondary" : "");
          break;
        case 1:
          s += chance(50) ? "no ip address" : std::string("no ip address ") + pick(four);
          break;
        case 2:
        case 3:
          s += std::string("ipv6 address ") + pick(six);
          break;
        default:
          s += chance(50) ? "no ipv6 address" : std::string("no ipv6 address ") + pick(six);
          break;
      }
      s += "\n";
    }
    return s + "exit";
  }

  std::string vrfMode() {
    static const char* const rds[] = {
        "100:1", "100:2", "100:77", "10.0.0.1:5", "65536:1", "4294967295:65535", "0:0"};
    std::string s = "vrf instance " + vrf() + "\n";
    s += chance(80) ? std::string("rd ") + pick(rds) : std::string("no rd");
    return s + "\nexit";
  }

  std::string line() {
    switch (random_() % 8) {
      case 0:
      case 1:
      case 2:
        return route();
      case 3:
      case 4:
        return intfMode();
      case 5:
        return vrfMode();
      case 6:
        return "clear static-routes interface " + intf() + (chance(30) ? " vrf " + vrf() : "");
      default:
        return "clear nexthop-group counters";
    }
  }
};

class ConfigRoundTrip : public testing::Test {
 protected:
  void SetUp() override {
    // In memory where the machine has it: every write is flushed to disk, five hundred times.
    std::string name = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
    name += "/rova-roundtrip-XXXXXX";
    ASSERT_NE(::mkdtemp(name.data()), nullptr);
    dir_ = name;
    file_ = dir_ + "/state.json";
    example_ = rovatest::readText(ROVA_EXAMPLE);
    cli::addCommands(grammar_);
    cli::addConfigureRow(grammar_);
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  // Runs the script as `rova --state FILE --keep-going` would run it from a pipe: every line,
  // refused or not (an `exit` too many leaves the shell early, as it would there), then writes
  // the state as `write` does.
  std::string run(const std::string& script) {
    std::ofstream(file_, std::ios::trunc) << example_;
    cli::DeviceState::instance().load(file_);
    std::FILE* in = ::fmemopen(const_cast<char*>(script.data()), script.size(), "r");
    rovatest::MemoryFile out("rova-out"), err("rova-err");
    {
      cli::Shell shell(grammar_, cli::Context{out.fd(), err.fd()}, in);
      shell.modesIs(cli::shellModes(grammar_));
      shell.keepGoingIs(true);
      shell.run();
    }
    std::fclose(in);
    const Snapshot::FileStamp loaded = Snapshot::stampOf(file_);
    try {
      cli::DeviceState::instance().save("");
    } catch (const std::exception& e) {
      ADD_FAILURE() << "write failed: " << e.what() << "\nscript:\n" << script;
    }
    // A save replaces the file: a new one, even when its text is the old one.
    replaced_ = !Snapshot::stampOf(file_).sameFile(loaded);
    return err.contents();
  }

  // The lines of a text, sorted: two states that differ only in the order of their tables
  // (a table fills a removed record's place with its last one) have the same.
  static std::multiset<std::string> sortedLines(const std::string& text) {
    std::multiset<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
      out.insert(line);
    return out;
  }

  cli::Grammar grammar_;
  std::string dir_, file_, example_;
  bool replaced_ = false;  // the last run's write replaced the file
};

TEST_F(ConfigRoundTrip, EveryWrittenStateLoadsAgainAndWritesTheSameText) {
  ScriptMaker maker(20261125);
  int written = 0;
  for (int i = 0; i < 500; ++i) {
    const std::string script = maker.script();
    const std::string messages = run(script);
    const std::string saved = rovatest::readText(file_);
    if (!replaced_) {
      ADD_FAILURE() << "not written\nscript:\n" << script << "messages:\n" << messages;
      continue;
    }
    if (saved != example_) ++written;
    try {
      // The file holds the state of the session, and in its own form gives itself back.
      const auto reloaded = Snapshot::loadFile(file_);
      EXPECT_EQ(sortedLines(Snapshot::write(*reloaded)),
                sortedLines(Snapshot::write(cli::DeviceState::instance().entities())))
          << script;
      EXPECT_EQ(Snapshot::write(*reloaded, saved), saved) << script;
    } catch (const Snapshot::LoadError& e) {
      ADD_FAILURE() << "the written state does not load: " << e.what() << "\nscript:\n"
                    << script << "messages:\n"
                    << messages;
    }
  }
  // The scripts change the state often enough for the test to mean something.
  EXPECT_GT(written, 200);
}

// A zero gateway is no gateway: the via through Ethernet1 "to 0.0.0.0" is the via through
// Ethernet1, one via and not two the loader would find repeated.
TEST_F(ConfigRoundTrip, AZeroGatewayIsNoGateway) {
  EXPECT_EQ(run("configure\nip route 10.99.0.0/16 Ethernet1 0.0.0.0\nip route 10.99.0.0/16 "
                "Ethernet1\nipv6 route 2001:db8:99::/48 Ethernet1 ::\nipv6 route "
                "2001:db8:99::/48 Ethernet1\nend\n"),
            "");
  const auto reloaded = Snapshot::loadFile(file_);
  const std::string text = Snapshot::write(*reloaded);
  EXPECT_NE(text.find("\"prefix\": \"10.99.0.0/16\",\n          \"preference\": 1,\n          "
                      "\"type\": \"forward\",\n          \"vias\": [\n            {\n              "
                      "\"interface\": \"Ethernet1\"\n            }\n          ]"),
            std::string::npos)
      << text;
}

}  // namespace
