// The running configuration is what configuration mode takes back: printed, replayed onto an
// empty state and printed again, it is the same text, for the example device and for states
// that random configuration scripts made of it. Sessions judge their candidate whole, commit
// all of it or nothing, and show it as a diff of the running configuration.

#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>

#include "cli/Commands.h"
#include "cli/ConfigMode.h"
#include "cli/ConfigSession.h"
#include "cli/DeviceState.h"
#include "cli/Grammar.h"
#include "cli/RunningConfig.h"
#include "cli/Shell.h"
#include "snapshot/Snapshot.h"
#include "tests/support/Capture.h"

namespace {

constexpr const char* kEmptyState = R"({"version": 1, "vrfs": {"default": {}}})";

class RunningConfig : public testing::Test {
 protected:
  void SetUp() override {
    cli::addCommands(grammar_);
    cli::addConfigureRow(grammar_);
  }
  void TearDown() override {
    // Whatever a test left open, the next one starts outside configuration mode.
    cli::leaveSession();
    cli::configPosition() = cli::ConfigPosition{};
  }

  void useState(const std::string& json) {
    cli::DeviceState::instance().adopt(Snapshot::load(json), "test", "");
  }
  void useExample() { cli::DeviceState::instance().load(""); }

  // Runs the script through the program's own shell, every line; returns its messages.
  std::string run(const std::string& script, std::string* output = nullptr) {
    std::FILE* in = ::fmemopen(const_cast<char*>(script.data()), script.size(), "r");
    rovatest::MemoryFile out("rova-out"), err("rova-err");
    {
      cli::Shell shell(grammar_, cli::Context{out.fd(), err.fd()}, in);
      shell.modesIs(cli::shellModes(grammar_));
      shell.keepGoingIs(true);
      shell.run();
    }
    std::fclose(in);
    if (output) *output = out.contents();
    return err.contents();
  }

  // Replays `text` onto an empty state and returns the running configuration it gives.
  std::string replayed(const std::string& text) {
    useState(kEmptyState);
    const std::string messages = run("configure\n" + text);
    EXPECT_EQ(messages, "") << text;
    return cli::runningConfigText(true);
  }

  cli::Grammar grammar_;
};

TEST_F(RunningConfig, TheExampleDeviceReplaysToTheSameText) {
  useExample();
  const std::string text = cli::runningConfigText(true);
  // Every part is there, so the comparison below covers them all.
  for (const char* part :
       {"hostname leaf1\n", "vrf instance red\n   rd 100:1\n",
        "interface Ethernet4\n   vrf red\n   ip address 10.20.4.1/24\n",
        "   ip address 10.2.4.1/24 secondary\n", "   ipv6 address fe80::1/64 link-local\n",
        "nexthop-group NHG-GRE type gre\n   size 2\n   ttl 32\n",
        "   entry 2 nexthop 10.1.1.1 label push 30013 30113\n", "nexthop-group NHG-PENDING\n!\n",
        "ip route 10.70.0.0/24 Nexthop-Group NHG-A",
        "ip route vrf red 0.0.0.0/0 Ethernet4 10.20.4.254 1 tag 0\n"}) {
    EXPECT_NE(text.find(part), std::string::npos) << part;
  }
  EXPECT_EQ(replayed(text), text);
}

// Random edits of the example, including the lines the running configuration added: each
// resulting state's configuration replays to itself.
TEST_F(RunningConfig, EditedStatesReplayToTheSameText) {
  std::mt19937 random(20261125);
  auto pick = [&](std::initializer_list<const char*> words) {
    return std::string(words.begin()[random() % words.size()]);
  };
  const auto lines = [&] {
    std::string s;
    for (int i = 0; i < 6; ++i) {
      switch (random() % 7) {
        case 0:
          s += "hostname " + pick({"spine9", "leaf-2", "r"}) + "\n";
          break;
        case 1:
          s += "vrf instance " + pick({"green", "red", "blue", "v1"}) + "\n" +
               pick({"rd 200:1", "rd 10.0.0.1:7", "no rd"}) + "\nexit\n";
          break;
        case 2:
          s += "interface " + pick({"Ethernet5", "Loopback7", "Ethernet1"}) + "\n" +
               pick({"vrf red", "vrf blue", "no vrf", "ip address 10.201.0.1/24",
                     "ipv6 address fe80::7/64 link-local", "ipv6 address 2001:db8:77::1/64",
                     "no ip address"}) +
               "\nexit\n";
          break;
        case 3:
          s += "nexthop-group " + pick({"G1", "NHG-B", "NHG-IP"}) + " " +
               pick({"type mpls", "type gre", ""}) + "\n" +
               pick({"size 6", "ttl 9", "tunnel-source 10.0.0.11", "no entry 1", "no entry 2",
                     "entry 1 nexthop 10.5.5.5 label swap 17", "entry 0 nexthop 2001:db8::5",
                     "entry 2 nexthop 10.5.5.6", "entry 3 nexthop 10.5.5.7 label push 9", "no size",
                     "label pop"}) +
               "\nexit\n";
          break;
        case 4:
          s += pick({"no nexthop-group NHG-B", "no hostname", "no nexthop-group G1"}) + "\n";
          break;
        default:
          s += pick({"ip route 10.99.0.0/16 10.1.1.9", "ip route vrf red 10.98.0.0/16 Null0 7",
                     "ipv6 route 2001:db8:99::/48 Ethernet1 fe80::9 tag 4",
                     "no ip route 10.8.0.0/16", "ip route 10.97.0.0/16 Nexthop-Group G1"}) +
               "\n";
          break;
      }
    }
    return s;
  };
  int changed = 0;
  for (int i = 0; i < 60; ++i) {
    useExample();
    const std::string before = cli::runningConfigText(true);
    const std::string script = "configure\n" + lines() + "end\n";
    run(script);
    const std::string text = cli::runningConfigText(true);
    if (text != before) ++changed;
    EXPECT_EQ(replayed(text), text) << script;
  }
  EXPECT_GT(changed, 40);
}

// A state numbers a group's entries from 0 without gaps, so configuration keeps them so: what
// it takes, `write` saves and loads again as it was.
TEST_F(RunningConfig, NexthopGroupEntriesHaveNoGaps) {
  useState(kEmptyState);
  EXPECT_EQ(run("configure\nnexthop-group G type gre\nentry 0 nexthop 10.1.1.1\n"
                "entry 2 nexthop 10.1.1.3\nentry 1 nexthop 10.1.1.2\nno entry 0\nno entry 1\n"
                "entry 0 nexthop 10.1.1.9\n"),
            "line 4: % Entry 2 would leave a gap; the next entry is 1\n"
            "line 6: % Entry 0 is not the last (1); the entries have no gaps\n"
            "% 2 of 8 lines refused, the first at line 4\n");
  const std::string text = cli::runningConfigText();
  EXPECT_NE(text.find("nexthop-group G type gre\n   entry 0 nexthop 10.1.1.9\n!\n"),
            std::string::npos)
      << text;
  cli::DeviceState::instance().adopt(
      Snapshot::load(Snapshot::write(cli::DeviceState::instance().entities())), "test", "");
  EXPECT_EQ(cli::runningConfigText(), text);
}

TEST_F(RunningConfig, OneInterfaceIsItsBlockOfTheWhole) {
  useExample();
  const std::string block = cli::interfaceConfigText("Vlan100");
  EXPECT_EQ(block.rfind("interface Vlan100\n", 0), 0u);
  EXPECT_NE(cli::runningConfigText().find(block), std::string::npos);
  EXPECT_EQ(cli::interfaceConfigText("Ethernet99"), "");
}

// The session's lines reach the state only at commit, and then all of them.
TEST_F(RunningConfig, ASessionCommitsWholeOrNotAtAll) {
  useExample();
  const std::string before = cli::runningConfigText();
  EXPECT_EQ(run("configure session s\nip route 10.99.0.0/16 10.1.1.9\nhostname other\n"), "");
  EXPECT_EQ(cli::runningConfigText(), before) << "a session line applied before commit";

  // A refused line names itself, and nothing of the candidate is applied.
  const std::string refused =
      run("configure session s\ninterface Ethernet5\nvrf nosuch\nexit\ncommit\n");
  EXPECT_EQ(refused,
            "line 5: % Session s not committed, nothing changed: line 4 'vrf nosuch' (interface "
            "Ethernet5): VRF 'nosuch' does not exist\n"
            "% 1 of 5 lines refused, the first at line 5\n");
  EXPECT_EQ(cli::runningConfigText(), before);

  // Abort drops the candidate; a session opened again by that name starts empty.
  EXPECT_EQ(run("configure session s\nabort\n"), "");
  EXPECT_EQ(run("configure session s\nhostname other\ncommit\n"), "");
  EXPECT_EQ(cli::DeviceState::instance().hostname(), "other");
  EXPECT_EQ(cli::runningConfigText().find("10.99.0.0/16"), std::string::npos);
  EXPECT_EQ(run("commit\n"),
            "line 1: % Invalid input at 'commit'\n% 1 of 1 line refused, the first at line 1\n");
}

// Refusals are decided against the candidate: an address the session assigns is one of the
// router's own, and an address it removes no longer is.
TEST_F(RunningConfig, ACandidateIsJudgedWhole) {
  useExample();
  EXPECT_EQ(run("configure session own\ninterface Ethernet5\nip address 10.77.0.1/24\nexit\n"
                "ip route 10.99.0.0/16 10.77.0.1\ncommit\n"),
            "line 6: % Session own not committed, nothing changed: line 3 'ip route 10.99.0.0/16 "
            "10.77.0.1': Next hop 10.77.0.1 is an address of this router in VRF default\n"
            "% 1 of 6 lines refused, the first at line 6\n");
  EXPECT_EQ(cli::interfaceConfigText("Ethernet5"), "interface Ethernet5\n!\n");
  EXPECT_EQ(run("abort\n"), "");

  EXPECT_EQ(run("configure session freed\ninterface Loopback0\nno ip address\nexit\n"
                "ip route 10.99.0.0/16 10.0.0.11\ncommit\n"),
            "");
  EXPECT_NE(cli::runningConfigText().find("ip route 10.99.0.0/16 10.0.0.11\n"), std::string::npos);
}

TEST_F(RunningConfig, TheSessionDiffIsAUnifiedDiffOfTheRunningConfiguration) {
  useExample();
  std::string out;
  EXPECT_EQ(run("configure session d\nhostname leaf9\ninterface Ethernet5\n"
                "ip address 10.77.0.1/24\nshow session diff\nabort\n",
                &out),
            "");
  EXPECT_EQ(out,
            "--- running-config\n+++ session-config:d\n"
            "@@ -1,4 +1,4 @@\n-hostname leaf1\n+hostname leaf9\n !\n vrf instance blue\n    rd "
            "100:2\n"
            "@@ -26,6 +26,7 @@\n    ipv6 address 2001:db8:20:4::1/64\n !\n interface Ethernet5\n"
            "+   ip address 10.77.0.1/24\n !\n interface Ethernet10\n    ip address "
            "172.31.10.1/24\n");
  EXPECT_EQ(cli::DeviceState::instance().hostname(), "leaf1");
}

TEST(UnifiedDiff, HunksJoinWhenTheirContextsMeet) {
  EXPECT_EQ(cli::unifiedDiff("a\nb\n", "a\nb\n", "x", "y"), "");
  EXPECT_EQ(cli::unifiedDiff("", "a\n", "x", "y"), "--- x\n+++ y\n@@ -0,0 +1,1 @@\n+a\n");
  EXPECT_EQ(cli::unifiedDiff("a\nb\n", "", "x", "y"), "--- x\n+++ y\n@@ -1,2 +0,0 @@\n-a\n-b\n");
  // Changes six lines apart share one hunk; eight apart, two.
  const std::string ten = "1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n";
  EXPECT_EQ(cli::unifiedDiff(ten, "1\n2\n3\n4\n5\n6\n7\n8\n9\nX\n", "x", "y"),
            "--- x\n+++ y\n@@ -7,4 +7,4 @@\n 7\n 8\n 9\n-10\n+X\n");
  EXPECT_EQ(cli::unifiedDiff(ten, "X\n2\n3\n4\n5\n6\n7\nY\n9\n10\n", "x", "y"),
            "--- x\n+++ y\n@@ -1,10 +1,10 @@\n-1\n+X\n 2\n 3\n 4\n 5\n 6\n 7\n-8\n+Y\n 9\n 10\n");
  const std::string many = ten + "11\n12\n";
  EXPECT_EQ(cli::unifiedDiff(many, "X\n2\n3\n4\n5\n6\n7\n8\n9\n10\n11\nY\n", "x", "y"),
            "--- x\n+++ y\n@@ -1,4 +1,4 @@\n-1\n+X\n 2\n 3\n 4\n@@ -9,4 +9,4 @@\n 9\n 10\n "
            "11\n-12\n+Y\n");
}

}  // namespace
