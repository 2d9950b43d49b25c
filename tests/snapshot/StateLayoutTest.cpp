#include "snapshot/StateLayout.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <type_traits>

#include "platform/mox/Exception.h"
#include "snapshot/LiveBuilder.h"
#include "snapshot/Snapshot.h"

namespace {

namespace layout = Snapshot::layout;

std::vector<const layout::EntityInfo*> entities(layout::Scope scope) {
  std::vector<const layout::EntityInfo*> out;
  layout::forEachEntity([&](const layout::EntityInfo& e) {
    if (e.scope == scope) out.push_back(&e);
  });
  return out;
}

// Every entity the layout declares is in the state, at its path and of its type, and nothing
// else is: a source that forgets a table, or publishes one the layout does not know, fails.
void expectExactlyTheLayout(const Statum::EntityManager& em) {
  const std::vector<std::string> vrfs = layout::vrfNames(em);
  ASSERT_FALSE(vrfs.empty());
  std::size_t expected = 0;
  layout::forEachEntity([&](const auto& entity) {
    if constexpr (std::decay_t<decltype(entity)>::kScope == layout::Scope::device) {
      EXPECT_NE(layout::find(em, entity), nullptr) << entity.path;
      ++expected;
    } else {
      for (const std::string& vrf : vrfs) {
        EXPECT_NE(layout::find(em, entity, vrf), nullptr) << layout::pathOf(entity, vrf);
        ++expected;
      }
    }
  });
  EXPECT_EQ(em.entities().size(), expected);
}

TEST(StateLayout, NamesAndPathsAreUniqueAndNoDeviceEntityLiesInAVrf) {
  std::set<std::string_view> names, devicePaths, vrfPaths;
  for (const auto* e : entities(layout::Scope::device)) {
    EXPECT_TRUE(names.insert(e->name).second) << e->name;
    EXPECT_TRUE(devicePaths.insert(e->path).second) << e->path;
    // A device path of the form vrf/<x>/<leaf> would be taken for VRF <x>'s entity.
    const std::string_view p = e->path;
    EXPECT_FALSE(p.rfind("vrf/", 0) == 0 && p.find('/', 4) != std::string_view::npos) << p;
  }
  for (const auto* e : entities(layout::Scope::vrf)) {
    EXPECT_TRUE(names.insert(e->name).second) << e->name;
    EXPECT_TRUE(vrfPaths.insert(e->path).second) << e->path;
  }
  EXPECT_EQ(layout::pathOf(layout::fib6Fec, "red"), "vrf/red/fib6/fec");
  EXPECT_EQ(layout::pathOf(layout::ipConfig, "red"), "ip/config");
}

TEST(StateLayout, ALoadedSnapshotAndTheLiveStateHoldEveryEntityAndNoOther) {
  expectExactlyTheLayout(*Snapshot::load(Snapshot::embeddedExample()));
  expectExactlyTheLayout(*Snapshot::load(R"({"version": 1, "vrfs": {"default": {}}})"));

  Snapshot::LiveBuilder b;
  Snapshot::kernel::Link lo;
  lo.index = 1;
  lo.name = "lo";
  b.link(lo);
  Snapshot::kernel::Link red;
  red.index = 2;
  red.name = "red";
  red.isVrf = true;
  red.vrfTable = 10;
  b.link(red);
  const auto live = b.finish();
  expectExactlyTheLayout(*live);
  EXPECT_EQ(layout::vrfNames(*live), (std::vector<std::string>{"default", "red"}));
}

TEST(StateLayout, PublishedTablesAreFoundTypedAtTheirPaths) {
  Statum::EntityManager em;
  layout::DeviceTables device;
  layout::publish(em, device);
  layout::VrfTables red;
  layout::publish(em, "red", red);
  EXPECT_EQ(layout::find(em, layout::ipConfig), device.ipConfig);
  EXPECT_EQ(layout::mount(em, layout::fib6Route, "red"), red.fib6Route);
  EXPECT_EQ(red.fib6Route->path(), "vrf/red/fib6/route");
  // Two entities of one record type are two tables.
  EXPECT_NE(layout::find(em, layout::routingConfig, "red"),
            layout::find(em, layout::routing6Config, "red"));
  EXPECT_NE(layout::find(em, layout::tunnelTables), layout::find(em, layout::rdInputDir));
  EXPECT_EQ(layout::find(em, layout::fibRoute, "blue"), nullptr);
  EXPECT_THROW(layout::mount(em, layout::fibRoute, "blue"), Mox::RangeException);
}

template <class E, class... Vrf>
concept findable = requires(const Statum::EntityManager& em, const E& e, Vrf... vrf) {
  layout::find(em, e, vrf...);
};

TEST(StateLayout, ALookupYieldsTheRecordTypeAndRefusesAnotherAtThePath) {
  Statum::EntityManager em;
  static_assert(
      std::is_same_v<decltype(layout::find(em, layout::ipConfig)), Mox::Ptr<Ip::Config const>>);
  static_assert(std::is_same_v<decltype(layout::find(em, layout::fib6Route, "red")),
                               Mox::Ptr<Brine::Fib6::RouteStatus const>>);
  // A per-VRF entity is not found without its VRF, nor a device-wide one with a VRF.
  static_assert(findable<decltype(layout::fibRoute), std::string_view>);
  static_assert(!findable<decltype(layout::fibRoute)>);
  static_assert(findable<decltype(layout::ipConfig)>);
  static_assert(!findable<decltype(layout::ipConfig), std::string_view>);

  em.entityIs(std::string(layout::ipConfig.path), Mox::makePtr<Ip6::Config>());
  EXPECT_EQ(layout::find(em, layout::ipConfig), nullptr);
  try {
    layout::mount(em, layout::ipConfig);
    FAIL();
  } catch (const Mox::RangeException& e) {
    EXPECT_EQ(std::string(e.what()), "entity at 'ip/config' is a Ip6::Config, not a Ip::Config");
  }
}

TEST(StateLayout, VrfsAreNamedByTheirRouteTablesInPathOrder) {
  Statum::EntityManager em;
  layout::publish(em, layout::DeviceTables());
  for (const char* vrf : {"red", "default", "a-b", "a"})
    layout::publish(em, vrf, layout::VrfTables());
  // Another VRF entity alone does not make a VRF, and the device-wide VRF id map is none.
  em.entityIs(layout::pathOf(layout::fib6Route, "half"), Mox::makePtr<Brine::Fib6::RouteStatus>());
  EXPECT_EQ(layout::vrfNames(em), (std::vector<std::string>{"a-b", "a", "default", "red"}));
  EXPECT_TRUE(layout::hasVrf(em, "a"));
  EXPECT_FALSE(layout::hasVrf(em, "half"));
  EXPECT_FALSE(layout::hasVrf(em, "idMap"));
}

}  // namespace
