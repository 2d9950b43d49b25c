// A route distinguisher that another VRF already uses is refused: the cases beyond the golden
// files of `check rd`.
#include "lib/config_checks/RdAssignmentChecker.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/mox/Exception.h"
#include "platform/mox/TextForm.h"
#include "platform/state/Ip.h"

namespace {

Plexa::RouteDistinguisher rd(const char* text) {
  return Plexa::RouteDistinguisher::fromString(text);
}

class RdAssignment : public ::testing::Test {
 protected:
  Mox::Ptr<Mox::Dir> dir = Mox::makePtr<Mox::Dir>();

  Ip::RouteDistinguisherInput& input(const char* name) {
    auto in = Mox::makePtr<Ip::RouteDistinguisherInput>();
    dir->entityIs(name, in);
    return *in;
  }
  Mox::Ptr<Rova::RdAssignmentChecker> checker(const char* vrf, const char* wanted) {
    return Mox::makePtr<Rova::RdAssignmentChecker>(dir, vrf, rd(wanted));
  }
};

TEST_F(RdAssignment, SameVrfIsReapplyingTheConfiguration) {
  input("bgp").routeDistinguisherIs("red", rd("100:1"));
  EXPECT_TRUE(checker("red", "100:1")->acceptable());
  // Every input is searched, past the ones that hold the RD for the same VRF.
  input("static").routeDistinguisherIs("blue", rd("100:1"));
  auto c = checker("red", "100:1");
  EXPECT_FALSE(c->acceptable());
  EXPECT_EQ(c->errorMessage(), "RD 100:1 already in use by VRF blue");
}

TEST_F(RdAssignment, EmptyDirectoryAndEmptyInputsAreAcceptable) {
  EXPECT_TRUE(checker("red", "100:1")->acceptable());
  input("bgp");
  EXPECT_TRUE(checker("red", "100:1")->acceptable());
  EXPECT_TRUE(Mox::makePtr<Rova::RdAssignmentChecker>(nullptr, "red", rd("100:1"))->acceptable());
}

TEST_F(RdAssignment, EntryOfAnotherTypeBreaksTheDirectoryInvariant) {
  input("bgp");
  dir->entityIs("stray", Mox::makePtr<Ip::Config>());
  EXPECT_THROW(checker("red", "100:1"), Mox::InternalException);
}

TEST_F(RdAssignment, RunningAgainGivesAFreshAnswer) {
  input("bgp").routeDistinguisherIs("blue", rd("100:1"));
  auto c = checker("red", "100:1");
  ASSERT_FALSE(c->acceptable());
  c->routeDistinguisherIs(rd("100:2"));
  c->handleInitialized();
  EXPECT_TRUE(c->acceptable());
  EXPECT_EQ(c->errorMessage(), "");
}

class RdAssignmentText : public RdAssignment {
 protected:
  void SetUp() override {
    dir->pathIs("ip/rdInput");
    Mox::ptrResolverIs([d = dir](std::string_view type, std::string_view path) {
      return type == "Mox::Dir" && path == "ip/rdInput" ? Mox::Ptr<Mox::Entity>(d) : nullptr;
    });
  }
  void TearDown() override { Mox::ptrResolverIs(nullptr); }
};

TEST_F(RdAssignmentText, ConstructionFromTextRunsTheCheck) {
  input("bgp").routeDistinguisherIs("blue", rd("100:1"));
  const std::string text = Mox::textOf(*checker("red", "100:1"));
  EXPECT_EQ(text,
            "Value('Rova::RdAssignmentChecker', ** {'routeDistinguisherInputDir': "
            "Ptr('Mox::Dir', 'ip/rdInput'), 'vrfName': 'red', 'routeDistinguisher': '100:1', "
            "'acceptable': False, 'errorMessage': 'RD 100:1 already in use by VRF blue'})");

  // The text claims the RD is fine; the check made on construction says otherwise.
  const Rova::RdAssignmentChecker parsed(
      "Value('Rova::RdAssignmentChecker', ** {'routeDistinguisherInputDir': "
      "Ptr('Mox::Dir', 'ip/rdInput'), 'vrfName': 'red', 'routeDistinguisher': '100:1', "
      "'acceptable': True, 'errorMessage': ''})");
  EXPECT_EQ(parsed.routeDistinguisherInputDir(), dir);
  EXPECT_FALSE(parsed.acceptable());
  EXPECT_EQ(parsed.errorMessage(), "RD 100:1 already in use by VRF blue");
  EXPECT_EQ(Mox::textOf(parsed), text);

  // And the other way: a stale refusal is dropped.
  const Rova::RdAssignmentChecker stale(
      "Value('Rova::RdAssignmentChecker', ** {'routeDistinguisherInputDir': None, "
      "'vrfName': 'red', 'routeDistinguisher': '100:1', 'acceptable': False, "
      "'errorMessage': 'RD 100:1 already in use by VRF blue'})");
  EXPECT_TRUE(stale.acceptable());
  EXPECT_EQ(stale.errorMessage(), "");
}

}  // namespace
