// The state writer: what it writes loads back as the same state, and a save replaces the file
// whole or not at all.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "platform/brine/Fib.h"
#include "platform/brine/FlexCounters.h"
#include "platform/brine/Tunnel.h"
#include "platform/mox/Dir.h"
#include "platform/state/Interface.h"
#include "platform/state/Ip.h"
#include "platform/state/NexthopGroupConfig.h"
#include "platform/state/RoutingConfig.h"
#include "platform/state/RoutingHardware.h"
#include "snapshot/Generator.h"
#include "snapshot/Snapshot.h"
#include "snapshot/StateLayout.h"

namespace {

namespace layout = Snapshot::layout;
namespace fs = std::filesystem;

// Written once, loaded and written again: the second text is the first. Together with the
// checks below that the first load's values survive, the text holds the whole state.
void expectFixedPoint(std::string_view document) {
  const std::string once = Snapshot::write(*Snapshot::load(document));
  const std::string twice = Snapshot::write(*Snapshot::load(once));
  EXPECT_EQ(once, twice);
}

// A configuration session is judged on a copy written without the route tables: everything
// else (FECs included, which static routes may share) must come through whole.
TEST(WriterRoundTrip, ACopyWithoutRouteTablesKeepsEverythingElse) {
  Snapshot::GeneratorOptions o;
  o.ipv4Routes = 500;
  o.ipv6Routes = 200;
  o.extraVrfs = 2;
  const std::string text = Snapshot::generate(o);
  auto full = Snapshot::load(text);
  auto copy = Snapshot::load(Snapshot::write(*full, Snapshot::Sections::none()));
  for (const std::string vrf : {"default", "vrf1"}) {
    SCOPED_TRACE(vrf);
    EXPECT_EQ(layout::find(*copy, layout::fibRoute, vrf)->size(), 0u);
    EXPECT_EQ(layout::find(*copy, layout::fib6Route, vrf)->size(), 0u);
    EXPECT_EQ(layout::find(*copy, layout::fibFec, vrf)->size(),
              layout::find(*full, layout::fibFec, vrf)->size());
    EXPECT_EQ(layout::find(*copy, layout::fib6Fec, vrf)->size(),
              layout::find(*full, layout::fib6Fec, vrf)->size());
  }
  // The same as the state loaded without its route tables.
  EXPECT_EQ(Snapshot::write(*copy),
            Snapshot::write(*Snapshot::load(text, Snapshot::Sections::none())));
}

TEST(WriterRoundTrip, TheExampleDeviceAndGeneratedStatesReadBackAsWritten) {
  expectFixedPoint(Snapshot::embeddedExample());
  for (unsigned vrfs : {0u, 3u}) {
    Snapshot::GeneratorOptions o;
    o.ipv4Routes = 3000;
    o.ipv6Routes = 700;
    o.seed = 7 + vrfs;
    o.extraVrfs = vrfs;
    SCOPED_TRACE(vrfs);
    const std::string generated = Snapshot::generate(o);
    expectFixedPoint(generated);
    auto a = Snapshot::load(generated);
    auto b = Snapshot::load(Snapshot::write(*a));
    EXPECT_EQ(a->entities().size(), b->entities().size());
    for (const std::string vrf : {"default", "vrf1"}) {
      if (vrfs == 0 && vrf != "default") continue;
      EXPECT_EQ(layout::find(*a, layout::fibFec, vrf)->size(),
                layout::find(*b, layout::fibFec, vrf)->size());
    }
  }
}

// The values no listing shows, so that only a reader of the state would miss them.
TEST(WriterRoundTrip, KeepsWhatTheListingsDoNotShow) {
  auto em = Snapshot::load(Snapshot::write(*Snapshot::load(Snapshot::embeddedExample())));
  auto config = layout::find(*em, layout::routingConfig, "default");
  const auto route = [&](const char* prefix) {
    return config->route(Routing::RouteKey(Plexa::IpGenPrefix::fromString(prefix), 1));
  };
  EXPECT_FALSE(route("10.9.0.0/16")->persistent());
  EXPECT_TRUE(route("10.12.0.0/16")->dynamic());
  EXPECT_EQ(route("10.10.0.0/16")->viaTrackBfds(), 1u);
  EXPECT_FALSE(layout::find(*em, layout::routing6Config, "blue")->routingEnabled());

  auto intfs = layout::find(*em, layout::intfConfig);
  auto lab = intfs->intfConfig(Plexa::IntfId("Ethernet10"));
  EXPECT_EQ(lab->vrf().stringValue(), "");  // no VRF link, not "default"
  EXPECT_FALSE(
      layout::find(*em, layout::intfStatus)->intfStatus(Plexa::IntfId("Ethernet10"))->operUp());
  auto ip = layout::find(*em, layout::ipConfig)->intfConfig(Plexa::IntfId("Ethernet3"));
  EXPECT_EQ(ip->secondaryWithMasks(), 1u);
  EXPECT_EQ(ip->virtualSecondaryWithMasks(), 1u);

  auto snapshot = layout::find(*em, layout::snapshotCounterTable);
  EXPECT_EQ(snapshot->size(), 2u);
  auto rds = layout::find(*em, layout::rdInputDir);
  EXPECT_EQ(rds->size(), 2u);
  auto bgp = rds->entity<Ip::RouteDistinguisherInput>("bgp");
  EXPECT_EQ(bgp->routeDistinguisher("blue").stringValue(), "100:2");
  auto hw = layout::find(*em, layout::nhgHwStatus);
  EXPECT_EQ(hw->vrfs(), 2u);  // default and red
}

TEST(WriterRoundTrip, TextNeedingEscapesIsWrittenAsJsonStrings) {
  auto em = Snapshot::load(Snapshot::embeddedExample());
  auto intfs = layout::find(*em, layout::intfConfig);
  // (Control characters are refused in a state, so the writer never meets one.)
  const std::string odd = "say \"hi\"\\ there/\u00e9";
  const_cast<Interface::IntfConfig&>(*intfs->intfConfig(Plexa::IntfId("Ethernet1")))
      .descriptionIs(odd);
  auto back = Snapshot::load(Snapshot::write(*em));
  EXPECT_EQ(layout::find(*back, layout::intfConfig)
                ->intfConfig(Plexa::IntfId("Ethernet1"))
                ->description()
                .stringValue(),
            odd);
}

// A pop carries no labels, yet it is an operation: the writer keeps it, in a tunnel's via and
// in a nexthop group's entry alike.
TEST(WriterRoundTrip, APopLabelOperationIsWrittenBack) {
  const std::string doc = R"({"version": 1, "vrfs": {"default": {}},
    "tunnels": {"fib": [{"tunnel": "ldp:1",
                         "vias": [{"nexthop": "10.0.0.2", "interface": "Ethernet1", "labels": "pop"}]}]},
    "nexthopGroups": [{"name": "A", "id": 1, "type": "mpls",
                       "entries": [{"destination": "10.0.0.3", "labels": "pop"},
                                   {"destination": "10.0.0.4"}]}]})";
  const std::string written = Snapshot::write(*Snapshot::load(doc));
  auto em = Snapshot::load(written);
  using Action = Plexa::MplsLabelOperation::Action;
  auto group = layout::find(*em, layout::nhgConfig)->nexthopGroup("A");
  ASSERT_TRUE(group);
  EXPECT_EQ(group->entry(0).mplsLabels().action(), Action::pop) << written;
  EXPECT_EQ(group->entry(1).mplsLabels().action(), Action::none) << written;
  const auto entry =
      layout::find(*em, layout::tunnelFib)->lookup(Tunnel::TunnelTable::TunnelId(2, 1));  // ldp:1
  ASSERT_EQ(entry.tunnelVia.size(), 1u) << written;
  EXPECT_EQ(entry.tunnelVia[0].labelOp.action(), Action::pop) << written;
  expectFixedPoint(doc);
}

// ---- saving to a file ----

class WriterSave : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/rova-writer-XXXXXX";
    ASSERT_NE(::mkdtemp(name), nullptr);
    dir_ = name;
  }
  void TearDown() override { fs::remove_all(dir_); }

  static std::string read(const fs::path& path) {
    std::ifstream in(path);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
  }
  std::size_t filesIn(const fs::path& d) const {
    return std::distance(fs::directory_iterator(d), fs::directory_iterator());
  }
  std::string errorOf(const std::string& path) {
    try {
      Snapshot::save(*em_, path);
    } catch (const Snapshot::SaveError& e) {
      return e.what();
    }
    return "saved";
  }

  fs::path dir_;
  Mox::Ptr<Statum::EntityManager> em_ = Snapshot::load(Snapshot::embeddedExample());
};

TEST_F(WriterSave, ReplacesTheFileAndKeepsItsPermissions) {
  const fs::path file = dir_ / "state.json";
  std::ofstream(file) << "old";
  ::chmod(file.c_str(), 0640);
  Snapshot::save(*em_, file);
  EXPECT_EQ(read(file), Snapshot::write(*em_));
  EXPECT_EQ(fs::status(file).permissions(),
            fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
  EXPECT_EQ(filesIn(dir_), 1u);  // no temporary file left beside it
}

TEST_F(WriterSave, AFailedSaveNamesTheFileAndLeavesTheOldOneAsItWas) {
  EXPECT_EQ(errorOf((dir_ / "missing" / "s.json").string()),
            (dir_ / "missing" / "s.json").string() + ": No such file or directory");

  // Renaming over a directory fails after the text was written: the temporary file goes.
  fs::create_directory(dir_ / "taken");
  EXPECT_NE(errorOf((dir_ / "taken").string()), "saved");
  EXPECT_TRUE(fs::is_directory(dir_ / "taken"));
  EXPECT_EQ(filesIn(dir_), 1u);

  // A disk that fills up halfway, as the file size limit makes it.
  const fs::path file = dir_ / "state.json";
  std::ofstream(file) << "old state";
  rlimit saved{};
  ::getrlimit(RLIMIT_FSIZE, &saved);
  const auto previous = std::signal(SIGXFSZ, SIG_IGN);
  rlimit small = saved;
  small.rlim_cur = 4096;
  ::setrlimit(RLIMIT_FSIZE, &small);
  const std::string error = errorOf(file.string());
  ::setrlimit(RLIMIT_FSIZE, &saved);
  std::signal(SIGXFSZ, previous);
  EXPECT_EQ(error, file.string() + ": File too large");
  EXPECT_EQ(read(file), "old state");
  EXPECT_EQ(filesIn(dir_), 2u);
}

}  // namespace
