// Writing a state in the form of the document it came from: an unchanged state gives its
// document back byte for byte, a change touches only the lines of what changed, and the text
// always loads as the state it was written from.
#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/brine/Fib.h"
#include "platform/state/Interface.h"
#include "platform/state/RoutingConfig.h"
#include "snapshot/Generator.h"
#include "snapshot/Snapshot.h"
#include "snapshot/StateLayout.h"

namespace {

namespace layout = Snapshot::layout;

// A document as a person writes one: members in their own order, defaults left out (and one
// written out), keys spelt with an escape, tabs and CRLF line ends, VRFs, interfaces and static
// routes out of the writer's order, an IPv6 FEC named without its "ip6:", no final newline.
const char* const kHandWritten =
    "{\"vrfs\": {\r\n"
    "\t\"red\": {\"id\": 1, \"ipv4\": {\"routes\": [{\"type\": \"connected\", \"prefix\": "
    "\"10.20.4.0/24\", \"fec\": \"14\"}],\r\n"
    "\t                        \"fecs\": [{\"id\": \"14\", \"vias\": [{\"interface\": "
    "\"Ethernet4\"}]}]}},\r\n"
    "\t\"default\": {\"staticRoutes\": [\r\n"
    "\t    {\"prefix\": \"10.9.0.0/16\", \"vias\": [{\"nexthop\": \"10.1.1.1\"}]},\r\n"
    "\t    {\"pref\\u0069x\": \"10.8.0.0/16\", \"tag\": 0, \"vias\": [{\"interface\": "
    "\"Ethernet1\"}]},\r\n"
    "\t    {\"preference\": 200, \"prefix\": \"0.0.0.0/0\", \"vias\": [{\"nexthop\": "
    "\"10.1.1.1\"}]}\r\n"
    "\t  ],\r\n"
    "\t  \"ipv4\": {\"routes\": [\r\n"
    "\t    {\"prefix\": \"10.5.0.0/24\", \"type\": \"ospfIntraArea\", \"fec\": \"106\"},\r\n"
    "\t    {\"prefix\": \"10.6.0.0/24\",   \"type\": \"ospfIntraArea\", \"fec\": \"106\", "
    "\"metric\": 20},\r\n"
    "\t    {\"prefix\": \"10.7.0.0/24\", \"type\": \"eBgp\", \"fec\": \"106\"}]},\r\n"
    "\t  \"ipv6\": {\"routes\": [{\"prefix\": \"2001:db8::/32\", \"type\": \"bgp\", \"fec\": "
    "\"12\"}],\r\n"
    "\t           \"fecs\": [{\"id\": \"12\", \"vias\": [{\"nexthop\": \"fe80::1\", "
    "\"interface\": \"Ethernet1\"}]}]}}},\r\n"
    "  \"interfaces\": [{\"name\": \"Ethernet10\"}, {\"name\": \"Ethernet2\", \"description\": "
    "\"b\"},\r\n"
    "                 {\"name\": \"Ethernet1\", \"ipv4\": {\"primary\": \"10.1.1.0/31\"}}],\r\n"
    "  \"version\": 1, \"hostname\": \"h\"}";

// The lines that differ between two texts: the first and the last lines that differ, and
// everything between, of each.
std::pair<std::vector<std::string>, std::vector<std::string>> hunk(const std::string& a,
                                                                   const std::string& b) {
  const auto lines = [](const std::string& t) {
    std::vector<std::string> out;
    std::istringstream in(t);
    for (std::string l; std::getline(in, l);)
      out.push_back(l);
    return out;
  };
  std::vector<std::string> x = lines(a), y = lines(b);
  std::size_t head = 0;
  while (head < x.size() && head < y.size() && x[head] == y[head])
    ++head;
  std::size_t tail = 0;
  while (tail < x.size() - head && tail < y.size() - head &&
         x[x.size() - 1 - tail] == y[y.size() - 1 - tail])
    ++tail;
  return {{x.begin() + head, x.end() - tail}, {y.begin() + head, y.end() - tail}};
}

using Lines = std::vector<std::string>;

// The line of `text` that holds `part`, and the line after it when `next`.
std::string lineWith(const std::string& text, const std::string& part, int next = 0) {
  std::size_t at = text.rfind('\n', text.find(part)) + 1;
  for (; next > 0; --next)
    at = text.find('\n', at) + 1;
  return text.substr(at, text.find('\n', at) - at);
}

// The routes of a VRF's IPv4 table, whatever their order.
std::set<std::string> routesOf(const Statum::EntityManager& em, const char* vrf) {
  std::set<std::string> out;
  for (const auto& r : *layout::find(em, layout::fibRoute, vrf)) {
    out.insert(r.prefix.stringValue() + " " + std::to_string(unsigned(r.routeType)) + " " +
               std::to_string(r.fecId.value()) + " " + std::to_string(r.preference) + " " +
               std::to_string(r.metric));
  }
  return out;
}

Brine::Fib::RouteStatus& routes(Statum::EntityManager& em, const char* vrf = "default") {
  return const_cast<Brine::Fib::RouteStatus&>(*layout::find(em, layout::fibRoute, vrf));
}

Brine::Fib::Route route(Brine::Fib::RouteStatus& table, const char* prefix) {
  return table.lookup(Plexa::Prefix::fromString(prefix));
}

TEST(KeepForm, AnUnchangedStateGivesItsDocumentBackByteForByte) {
  Snapshot::GeneratorOptions o;
  o.ipv4Routes = 300;
  o.ipv6Routes = 50;
  for (const std::string& doc : {std::string(Snapshot::embeddedExample()),
                                 std::string(kHandWritten), Snapshot::generate(o)}) {
    auto em = Snapshot::load(doc);
    EXPECT_EQ(Snapshot::write(*em, doc), doc);
  }
  // The writer's own text of the hand-written one is another: the test above means something.
  EXPECT_NE(Snapshot::write(*Snapshot::load(kHandWritten)), kHandWritten);
  // No document: the writer's own text.
  auto em = Snapshot::load(kHandWritten);
  EXPECT_EQ(Snapshot::write(*em, ""), Snapshot::write(*em));
}

TEST(KeepForm, AChangedEntityChangesOnlyItsOwnLines) {
  const std::string doc(Snapshot::embeddedExample());
  auto em = Snapshot::load(doc);
  Brine::Fib::Route r = route(routes(*em), "10.6.8.0/22");
  r.metric = 46;
  routes(*em).recordIs(r);
  const std::string was = lineWith(doc, "\"10.6.8.0/22\"");
  ASSERT_NE(was.find("\"metric\": 45,"), std::string::npos);
  std::string changed = was;
  changed.replace(changed.find("45"), 2, "46");
  EXPECT_EQ(hunk(doc, Snapshot::write(*em, doc)), std::pair(Lines{was}, Lines{changed}));

  // In a hand-written document: the member order, the escaped key, the blanks and the
  // defaults written out or left out stay as they were around the one value that changed.
  auto hand = Snapshot::load(kHandWritten);
  auto config = layout::find(*hand, layout::routingConfig, "default");
  const_cast<Routing::Route&>(
      *config->route(Routing::RouteKey(Plexa::IpGenPrefix::fromString("10.8.0.0/16"), 1)))
      .tagIs(7);
  EXPECT_EQ(hunk(kHandWritten, Snapshot::write(*hand, kHandWritten)),
            std::pair(Lines{"\t    {\"pref\\u0069x\": \"10.8.0.0/16\", \"tag\": 0, \"vias\": "
                            "[{\"interface\": \"Ethernet1\"}]},\r"},
                      Lines{"\t    {\"pref\\u0069x\": \"10.8.0.0/16\", \"tag\": 7, \"vias\": "
                            "[{\"interface\": \"Ethernet1\"}]},\r"}));

  // A value that was left out as the default is written where it now differs, after the
  // entity's other members; one that goes back to the default goes.
  Brine::Fib::Route plain = route(routes(*hand), "10.5.0.0/24");
  plain.metric = 9;
  routes(*hand).recordIs(plain);
  Brine::Fib::Route metric = route(routes(*hand), "10.6.0.0/24");
  metric.metric = 0;
  routes(*hand).recordIs(metric);
  const auto [before, now] = hunk(kHandWritten, Snapshot::write(*hand, kHandWritten));
  ASSERT_GE(now.size(), 2u);
  EXPECT_EQ(now[now.size() - 2],
            "\t    {\"prefix\": \"10.5.0.0/24\", \"type\": \"ospfIntraArea\", \"fec\": \"106\", "
            "\"metric\": 9},\r");
  EXPECT_EQ(now.back(),
            "\t    {\"prefix\": \"10.6.0.0/24\",   \"type\": \"ospfIntraArea\", \"fec\": "
            "\"106\"},\r");
}

TEST(KeepForm, RemovedEntitiesGoAndNewOnesComeAfterTheLastOfTheirList) {
  const std::string doc(Snapshot::embeddedExample());
  auto em = Snapshot::load(doc);
  // The table fills the hole with its last route: the document keeps its own order.
  ASSERT_TRUE(routes(*em).recordDel(Plexa::Prefix::fromString("10.6.8.0/22")));
  const std::string removed = Snapshot::write(*em, doc);
  EXPECT_EQ(hunk(doc, removed),
            std::pair(Lines{lineWith(doc, "\"10.6.8.0/22\""), lineWith(doc, "\"10.6.8.0/22\"", 1)},
                      Lines{}));
  EXPECT_EQ(routesOf(*Snapshot::load(removed), "default"), routesOf(*em, "default"));

  // A new route comes after the last one, on a line of its own as its neighbours are, and
  // leaves out what routes of its type leave out there (the preference of eBGP).
  Brine::Fib::Route added = route(routes(*em), "0.0.0.0/0");
  added.prefix = Plexa::Prefix::fromString("10.99.0.0/16");
  routes(*em, "red").recordIs(added);
  const std::string red = Snapshot::write(*em, doc);
  const auto [was, now] = hunk(removed, red);
  ASSERT_EQ(was.size(), 1u);
  EXPECT_EQ(now, (Lines{was[0] + ",",
                        "          {\"prefix\": \"10.99.0.0/16\", \"type\": \"eBgp\", \"fec\": "
                        "\"100\"}"}));
  auto back = Snapshot::load(red);
  EXPECT_EQ(routesOf(*back, "red"), routesOf(*em, "red"));

  // A new interface in a list written one a line, unsorted: after the last one.
  auto hand = Snapshot::load(kHandWritten);
  auto intfs = layout::find(*hand, layout::intfConfig);
  auto intf = Mox::makePtr<Interface::IntfConfig>(Plexa::IntfId("Ethernet3"));
  intf->vrfIs(L3::VrfName::defaultVrf());
  const_cast<Interface::AllIntfConfigDir&>(*intfs).intfConfigIs(Plexa::IntfId("Ethernet3"), intf);
  const std::string withIntf = Snapshot::write(*hand, kHandWritten);
  EXPECT_NE(withIntf.find("\"primary\": \"10.1.1.0/31\"}},\r\n                 {\"name\": "
                          "\"Ethernet3\"}],"),
            std::string::npos)
      << withIntf;
}

TEST(KeepForm, WhateverTheOriginalTheTextIsTheStateNow) {
  // The hand-written document as the form of the example device: little of it is kept, and
  // the text still loads as the example.
  auto em = Snapshot::load(Snapshot::embeddedExample());
  const std::string text = Snapshot::write(*em, kHandWritten);
  auto back = Snapshot::load(text);
  for (const char* vrf : {"default", "red", "blue"})
    EXPECT_EQ(routesOf(*back, vrf), routesOf(*em, vrf)) << vrf;
  // The rest holds the same, if in other places: the tables in the document's order.
  const auto sortedLines = [](const std::string& t) {
    std::multiset<std::string> out;
    std::istringstream in(t);
    for (std::string l; std::getline(in, l);)
      out.insert(l);
    return out;
  };
  EXPECT_EQ(sortedLines(Snapshot::write(*back)), sortedLines(Snapshot::write(*em)));
  EXPECT_NE(text.find("\"hostname\": \"leaf1\""), std::string::npos);
  // An original that is not a state at all: the writer's own text.
  EXPECT_EQ(Snapshot::write(*em, "{\"not\": \"a state\"}"), Snapshot::write(*em));
}

}  // namespace
