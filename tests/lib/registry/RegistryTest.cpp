#include "lib/registry/TypeRegistry.h"
#include "tests/support/Capture.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "lib/registry/RecordText.h"
#include "platform/brine/Fib.h"
#include "platform/state/RoutingConfig.h"

namespace {

using Rova::TypeRegistry;
using Rova::Value;

const TypeRegistry& reg() {
  return TypeRegistry::instance();
}

using rovatest::errorOf;

TEST(Registry, UnknownTypeNamesAreRefused) {
  EXPECT_EQ(reg().find("Rova::Nothing"), nullptr);
  EXPECT_EQ(errorOf([] { reg().type("Rova::Nothing"); }), "unknown type 'Rova::Nothing'");
}

TEST(Registry, ConstructsReadsAndWritesValues) {
  const Value args[] = {Value(1u), Value(2u)};
  Value e = reg().construct("Rova::CounterEntry", args);
  EXPECT_EQ(reg().attribute(e, "packets"), Value(1u));
  EXPECT_EQ(e.text(), "Value('Rova::CounterEntry', ** {'packets': 1, 'bytes': 2})");

  // Values keep value semantics: writing one copy leaves the other alone.
  Value copy = e;
  reg().attributeIs(copy, "bytes", Value(64u));
  EXPECT_EQ(reg().attribute(copy, "bytes"), Value(64u));
  EXPECT_EQ(reg().attribute(e, "bytes"), Value(2u));
  EXPECT_NE(e, copy);
}

TEST(Registry, ConversionErrorsNameTheExpectedType) {
  EXPECT_EQ(errorOf([] {
              const Value args[] = {Value("x"), Value(1u)};
              reg().construct("Rova::CounterIndex", args);
            }),
            "argument 'counterIndex': expected U32, got Mox::String8 'x'");
  EXPECT_EQ(errorOf([] {
              const Value args[] = {Value(std::uint64_t(1) << 40), Value(1u)};
              reg().construct("Rova::CounterIndex", args);
            }),
            "argument 'counterIndex': expected U32, got integer 1099511627776");
  EXPECT_EQ(errorOf([] {
              const Value args[] = {Value(1u)};
              reg().construct("Rova::CounterIndex", args);
            }),
            "Rova::CounterIndex takes 2 arguments, got 1");
  Value r = reg().construct("Rova::AddressQueryResult", {});
  EXPECT_EQ(errorOf([&] { reg().attributeIs(r, "acceptable", Value(3u)); }),
            "attribute 'acceptable': expected bool, got integer 3");
  EXPECT_EQ(errorOf([&] { reg().attribute(r, "nope"); }),
            "Rova::AddressQueryResult has no attribute 'nope'");
}

// A value text comes from a user or a script: the part quoted back is escaped, so a message
// cannot clear the screen, whichever parser refuses it.
TEST(Registry, ValueTextErrorsShowTheRefusedTextEscaped) {
  EXPECT_EQ(errorOf([] {
              reg().parse(
                  "Value('Rova::CachedVia', ** {'hop': '1\x1b[2J', 'intfId': "
                  "'Ethernet1', 'isBackup': False, 'viaLabel': '3', 'viaWeight': ''})");
            }),
            "attribute 'hop': invalid IP address '1\\x1b[2J'");
  EXPECT_EQ(errorOf([] { reg().parse("Value('Rova::\r', ** {})"); }), "unknown type 'Rova::\\r'");
  EXPECT_EQ(errorOf([] {
              reg().parse("Value('Rova::CounterIndex', ** {'counterIndex': \x07x, 'chipMask': 1})");
            }),
            "attribute 'counterIndex': expected an integer but found \"\\x07x, 'chipMask': 1})\"");
}

TEST(Registry, ValueTextFormsAndTheirRefusals) {
  Value r = reg().construct("Rova::AddressQueryResult", {});
  EXPECT_EQ(r.text(), "Value('Rova::AddressQueryResult', ** {'acceptable': False, 'msg': ''})");
  EXPECT_EQ(reg().parse(r.text()), r);
  EXPECT_EQ(errorOf([] {
              reg().parse("Value('Rova::AddressQueryResult', ** {'acceptable': Yes, 'msg': 'x'})");
            }),
            "attribute 'acceptable': expected True or False but found \"Yes, 'msg': 'x'})\"");
  Value c = reg().construct("Rova::RovaConsts", {});
  EXPECT_EQ(errorOf([&] { reg().attributeIs(c, "defaultStaticRoutePreference", Value(256u)); }),
            "attribute 'defaultStaticRoutePreference': expected U8, got integer 256");
}

// Named construction: the inputs a caller gives by name, the rest at their declared defaults; a
// name the type does not take, one given twice, or a required one left out names itself.
TEST(Registry, NamedConstructionTakesInputsByName) {
  const Value routes{Mox::Ptr<Mox::Entity>(Mox::makePtr<Brine::Fib::RouteStatus>())};
  const Value fecs{Mox::Ptr<Mox::Entity>(Mox::makePtr<Brine::Fib::ForwardingStatus>())};
  const Value sorter = reg().construct("Rova::RouteSorter", {{"vrfName", Value("red")},
                                                             {"routingStatus", routes},
                                                             {"forwardingStatus", fecs},
                                                             {"detail", Value(true)}});
  EXPECT_EQ(reg().attribute(sorter, "vrfName").text(), "'red'");
  EXPECT_EQ(reg().attribute(sorter, "detail").text(), "True");
  EXPECT_EQ(reg().attribute(sorter, "host").text(), "False");
  EXPECT_EQ(reg().attribute(sorter, "routingConfig").text(), "None");

  EXPECT_EQ(errorOf([&] {
              reg().construct("Rova::RouteSorter",
                              {{"routingStatus", routes}, {"forwardingStatus", fecs}});
            }),
            "Rova::RouteSorter needs the constructor input 'vrfName'");
  // The interface filter is the IPv6 sorter's alone.
  EXPECT_EQ(errorOf([&] {
              reg().construct("Rova::RouteSorter", {{"vrfName", Value("red")},
                                                    {"routingStatus", routes},
                                                    {"forwardingStatus", fecs},
                                                    {"intf", Value(true)}});
            }),
            "Rova::RouteSorter has no constructor input 'intf'");
  EXPECT_EQ(
      errorOf([&] {
        reg().construct("Rova::CounterEntry", {{"packets", Value(1u)}, {"packets", Value(2u)}});
      }),
      "Rova::CounterEntry: constructor input 'packets' given twice");
  EXPECT_EQ(errorOf([&] {
              reg().construct("Rova::CounterEntry", {{"packets", Value(1u)}});
            }),
            "Rova::CounterEntry needs the constructor input 'bytes'");
  EXPECT_EQ(
      reg().construct("Rova::CounterEntry", {{"bytes", Value(64u)}, {"packets", Value(1u)}}).text(),
      "Value('Rova::CounterEntry', ** {'packets': 1, 'bytes': 64})");
  EXPECT_EQ(errorOf([&] {
              reg().construct("Rova::RouteSorter", {{"vrfName", Value(true)},
                                                    {"routingStatus", routes},
                                                    {"forwardingStatus", fecs}});
            }).rfind("argument 'vrfName': ", 0),
            0u);
}

// State records are read by attribute name; one whose type is not registered is an error, never
// an empty read that would leave a caller on its built-in defaults.
TEST(Registry, StateRecordsAreReadByNameOrRefused) {
  auto defaults = Mox::makePtr<Routing::StaticRouteDefaults>();
  defaults->preferenceIs(5);
  defaults->nameIs("x");
  const Value record{Mox::Ptr<Mox::Entity>(defaults)};
  EXPECT_EQ(reg().attribute(record, "preference").text(), "5");
  EXPECT_EQ(reg().attribute(record, "name").text(), "'x'");
  EXPECT_EQ(reg().find("Routing::StaticRouteDefaults"), nullptr);  // not a library type

  const Value config{Mox::Ptr<Mox::Entity>(Mox::makePtr<Routing::ConfigGen>())};
  EXPECT_EQ(reg().attribute(config, "routingEnabled").text(), "True");
  // A forwarding table is read through its records, not attribute by attribute.
  const Value table{Mox::Ptr<Mox::Entity>(Mox::makePtr<Brine::Fib::RouteStatus>())};
  EXPECT_EQ(errorOf([&] { reg().attribute(table, "size"); }),
            "a Brine::Fib::RouteStatus is not of a registered type");

  // A forwarding route a listing hands back reads by name too.
  Brine::Fib::Route route;
  route.prefix = Plexa::Prefix::fromString("10.0.0.0/8");
  route.routeType = Routing::Fib::RouteType::eBgp;
  route.preference = 200;
  const Value boxed = Rova::toValue(route);
  EXPECT_EQ(reg().attribute(boxed, "routeType").text(), "'eBgp'");
  EXPECT_EQ(reg().attribute(boxed, "preference").text(), "200");
  EXPECT_EQ(reg().attribute(boxed, "prefix").text(), "'10.0.0.0/8'");
}

// An entity of the test's own with a collection and operations, registered in a registry of its
// own, shows the generic operations that the library's entities get.
using PortMap = Mox::OrderedMap<std::uint32_t, Mox::String8>;
#define TEST_SWITCH_ATTRS(F, C)                            \
  F(name, Name, Mox::String8, Mox::AttrKind::input, {})    \
  F(total, Total, std::uint32_t, Mox::AttrKind::state, {}) \
  C(port, Port, PortMap)

class Switch : public Mox::Entity {
  MOX_ENTITY_TYPE(Switch, "Test::Switch", TEST_SWITCH_ATTRS)

 public:
  explicit Switch(Mox::String8 name) : name_(std::move(name)) {}
  void addPort(std::uint32_t n, Mox::String8 label) {
    portIs(n, label);
    total_ = static_cast<std::uint32_t>(ports());
  }
  Mox::String8 describe(bool loud) const { return loud ? name_ + "!" : name_; }
};

TEST(Registry, EntitiesIterateCallAndRefuseReadOnlyWrites) {
  TypeRegistry local;
  local.add(Rova::TypeBuilder<Switch>("Test::Switch")
                .constructor<Mox::String8>({"name"})
                .op("addPort", &Switch::addPort, {"n", "label"})
                .op("describe", &Switch::describe, {"loud"})
                .build());
  const Value ctor[] = {Value("sw1")};
  Value sw = local.construct("Test::Switch", ctor);
  for (std::uint32_t i = 1; i <= 5; ++i) {
    const Value a[] = {Value(i), Value(("p" + std::to_string(i)).c_str())};
    EXPECT_TRUE(local.call(sw, "addPort", a).isNone());
  }
  EXPECT_EQ(local.attribute(sw, "total"), Value(5u));
  EXPECT_EQ(errorOf([&] { local.attributeIs(sw, "total", Value(1u)); }),
            "Test::Switch::total is not writable");
  const Value loud[] = {Value(true)};
  EXPECT_EQ(local.call(sw, "describe", loud), Value("sw1!"));

  std::vector<std::string> seen;
  for (auto c = local.iterate(sw, "port"); c->valid(); c->next()) {
    seen.push_back(c->value().displayText());
    if (c->key() == Value(2u) || c->key() == Value(5u)) c->deleteCurrent();
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"p1", "p2", "p3", "p4", "p5"}));
  std::vector<std::string> left;
  for (auto c = local.iterate(sw, "port"); c->valid(); c->next())
    left.push_back(c->key().text());
  EXPECT_EQ(left, (std::vector<std::string>{"1", "3", "4"}));
  EXPECT_EQ(sw.text(), "Ptr('Test::Switch')");
  EXPECT_EQ(errorOf([&] { local.call(sw, "fly", {}); }), "Test::Switch has no operation 'fly'");
}

// A cursor survives its own deletions and nothing else: once the collection changed under it
// (another cursor deleted, an operation cleared or added), it raises instead of reading entries
// that may be freed.
TEST(Registry, CursorsStopWhenTheCollectionChangesUnderThem) {
  TypeRegistry local;
  local.add(Rova::TypeBuilder<Switch>("Test::Switch")
                .constructor<Mox::String8>({"name"})
                .op("addPort", &Switch::addPort, {"n", "label"})
                .op("portDelAll", static_cast<void (Switch::*)()>(&Switch::portDelAll), {})
                .op("portDel",
                    static_cast<bool (Switch::*)(const std::uint32_t&)>(&Switch::portDel), {"n"})
                .build());
  const Value ctor[] = {Value("sw1")};
  Value sw = local.construct("Test::Switch", ctor);
  const auto addPorts = [&] {
    for (std::uint32_t i = 1; i <= 3; ++i) {
      const Value a[] = {Value(i), Value("p")};
      local.call(sw, "addPort", a);
    }
  };
  addPorts();
  const std::string changed =
      "Test::Switch::port changed while it was iterated, other than by the iterator itself";
  const auto changedError = [](auto body) {
    try {
      body();
    } catch (const Mox::CollectionChangedException& e) {
      return std::string(e.what());
    } catch (const std::exception& e) {
      return std::string("other error: ") + e.what();
    }
    return std::string("no error");
  };

  auto first = local.iterate(sw, "port");
  auto second = local.iterate(sw, "port");
  first->deleteCurrent();  // its own deletion: it goes on
  EXPECT_EQ(first->key(), Value(2u));
  EXPECT_EQ(changedError([&] { second->key(); }), changed);
  EXPECT_EQ(changedError([&] { second->next(); }), changed);
  EXPECT_EQ(changedError([&] { second->deleteCurrent(); }), changed);

  local.call(sw, "portDelAll", {});
  EXPECT_EQ(changedError([&] { first->valid(); }), changed);

  addPorts();
  auto walk = local.iterate(sw, "port");
  const Value one[] = {Value(1u)};
  local.call(sw, "portDel", one);  // the entry the cursor stands on
  EXPECT_EQ(changedError([&] { walk->value(); }), changed);

  auto past = local.iterate(sw, "port");
  while (past->valid())
    past->next();
  EXPECT_EQ(errorOf([&] { past->key(); }), "Test::Switch::port: the iterator stands on no entry");
}

// Types registered by name are built the first time they are asked for, once each, even by
// threads asking together; listing every type builds the rest, in registration order. A
// maker whose entry carries another name is a programming error, refused rather than found
// under the wrong name.
int switchesBuilt = 0;
int boxesBuilt = 0;

Rova::TypeEntry makeSwitch(const char* name) {
  ++switchesBuilt;
  return Rova::TypeBuilder<Switch>(name).constructor<Mox::String8>({"name"}).build();
}

Rova::TypeEntry makeBox(const char* name) {
  ++boxesBuilt;
  Rova::TypeEntry e;
  e.name = name;
  return e;
}

Rova::TypeEntry misnamed(const char*) {
  Rova::TypeEntry e;
  e.name = "Test::Other";
  return e;
}

TEST(Registry, TypesAreBuiltWhenFirstAskedForAndOnce) {
  TypeRegistry local;
  local.add({"Test::Switch", makeSwitch});
  local.add({"Test::Box", makeBox});
  local.addRecord({"Test::Record", makeBox});
  local.add({"Test::Misnamed", misnamed});
  EXPECT_EQ(switchesBuilt + boxesBuilt, 0);

  std::vector<std::thread> threads;
  std::vector<const Rova::TypeEntry*> seen(4);
  for (auto& s : seen)
    threads.emplace_back([&local, &s] { s = local.find("Test::Switch"); });
  for (auto& t : threads)
    t.join();
  EXPECT_EQ(switchesBuilt, 1);
  EXPECT_EQ(boxesBuilt, 0);
  for (const auto* s : seen)
    EXPECT_EQ(s, seen.front());
  ASSERT_NE(seen.front(), nullptr);
  EXPECT_EQ(seen.front()->name, "Test::Switch");
  const Value ctor[] = {Value("sw1")};
  EXPECT_EQ(local.construct("Test::Switch", ctor).text(), "Ptr('Test::Switch')");
  EXPECT_EQ(switchesBuilt, 1);

  // Records are not types: asking for one does not build the other of the same maker.
  EXPECT_EQ(local.find("Test::Record"), nullptr);
  EXPECT_EQ(boxesBuilt, 0);
  EXPECT_EQ(errorOf([&] { local.find("Test::Misnamed"); }),
            "type 'Test::Misnamed' was built as 'Test::Other'");
  EXPECT_EQ(errorOf([&] { local.types(); }), "type 'Test::Misnamed' was built as 'Test::Other'");
  EXPECT_EQ(boxesBuilt, 1);  // Test::Box, listed before the misnamed type

  TypeRegistry good;
  good.add({"Test::Box", makeBox});
  good.add({"Test::Switch", makeSwitch});
  std::vector<std::string> names;
  for (const auto* t : good.types())
    names.push_back(t->name);
  EXPECT_EQ(names, (std::vector<std::string>{"Test::Box", "Test::Switch"}));
  EXPECT_EQ(boxesBuilt, 2);
  EXPECT_EQ(good.records().size(), 0u);
  EXPECT_EQ(local.records().size(), 1u);
  EXPECT_EQ(boxesBuilt, 3);
}

}  // namespace
