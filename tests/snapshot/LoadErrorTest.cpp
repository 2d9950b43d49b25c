// What the loader refuses, and how it says so: the JSON path of the offending value and a
// message a person can act on, with the platform's own text for its range errors.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "platform/brine/Fib.h"
#include "snapshot/JsonLibrary.h"
#include "snapshot/Snapshot.h"
#include "snapshot/StateLayout.h"
#include "snapshot/loader/Loader.h"

namespace {

namespace layout = Snapshot::layout;
using nlohmann::json;

json minimal() {
  return json{{"version", 1}, {"vrfs", {{"default", json::object()}}}};
}

json withRoutes(json routes) {
  json doc = minimal();
  doc["vrfs"]["default"]["ipv4"]["routes"] = std::move(routes);
  return doc;
}

json withFecs(json fecs) {
  json doc = minimal();
  doc["vrfs"]["default"]["ipv4"]["fecs"] = std::move(fecs);
  return doc;
}

// The load error's full text, or what went wrong instead.
std::string refusal(std::string_view text) {
  try {
    Snapshot::load(text);
  } catch (const Snapshot::LoadError& e) {
    return e.what();
  } catch (const std::exception& e) {
    return std::string("not a LoadError: ") + e.what();
  }
  return "loaded";
}
std::string refusal(const char* text) {
  return refusal(std::string_view(text));
}
std::string refusal(const std::string& text) {
  return refusal(std::string_view(text));
}
std::string refusal(const json& doc) {
  return refusal(doc.dump());
}

TEST(LoadError, UnknownKeysAreRefusedWithTheKeysThatAreKnown) {
  EXPECT_EQ(refusal(withRoutes({{{"prefix", "10.0.0.0/8"}, {"type", "eBgp"}, {"prefx", 1}}})),
            "$.vrfs.default.ipv4.routes[0].prefx: unknown key \"prefx\" (expected one of: prefix "
            "type fec preference metric hardwareProgrammed kernelProgrammed)");
  json doc = minimal();
  doc["hostnme"] = "x";
  EXPECT_EQ(refusal(doc).substr(0, 34), "$.hostnme: unknown key \"hostnme\" (");
  // A known key written with escapes is that key, repeated or not.
  EXPECT_EQ(refusal(R"({"ver\u0073ion": 1, "vrfs": {"default": {"ipv4": {"rout\u0065s": []}}}})"),
            "loaded");
  EXPECT_EQ(refusal(R"({"version": 1, "ver\u0073ion": 1, "vrfs": {}})"),
            "$.version: duplicate key \"version\"");
}

TEST(LoadError, WrongTypesMissingAndRepeatedKeysAreRefused) {
  EXPECT_EQ(refusal(withRoutes({{{"prefix", 10}, {"type", "eBgp"}}})),
            "$.vrfs.default.ipv4.routes[0].prefix: expected a string, found a number");
  EXPECT_EQ(refusal(withRoutes({{{"type", "eBgp"}}})),
            "$.vrfs.default.ipv4.routes[0]: missing required key \"prefix\"");
  EXPECT_EQ(refusal(R"({"version": 1, "vrfs": {"default": {"id": 0, "id": 0}}})"),
            "$.vrfs.default.id: duplicate key \"id\"");
  EXPECT_EQ(refusal(R"({"version": 1, "vrfs": {"default": {}, "default": {}}})"),
            "$.vrfs.default: duplicate key \"default\"");
  EXPECT_EQ(refusal(R"({"version": 1, "vrfs": {"default": {"id": -1}}})"),
            "$.vrfs.default.id: expected a whole number from 0 to 4294967294, found -1");
  EXPECT_EQ(refusal(withFecs({{{"id", "1"}, {"vias", {{{"interface", "Cpu"}, {"weight", 0}}}}}})),
            "$.vrfs.default.ipv4.fecs[0].vias[0].weight: expected a whole number from 1 to 65535, "
            "found 0");
  EXPECT_EQ(refusal(R"({"vrfs": {"default": {}}})"), "$: missing required key \"version\"");
  EXPECT_EQ(refusal(R"({"version": 2, "vrfs": {"default": {}}})"),
            "$.version: unsupported version 2 (this program reads 1)");
  EXPECT_EQ(refusal("[]"), "$: a state snapshot is a JSON object");
  // A key is shown as written, escapes and all.
  EXPECT_EQ(refusal(R"({"version": 1, "vrfs": {"default": {}}, "a\\": 1})"),
            R"($["a\\"]: unknown key "a\\" (expected one of: version hostname hardware vrfs )"
            R"(interfaces neighbors tunnels srTePolicies nexthopGroups flexCounters )"
            R"(routeDistinguisherInputs staticRouteDefaults))");
}

TEST(LoadError, MalformedJsonIsRefusedWhereItIsFound) {
  const std::string cut = R"({"version": 1, "vrfs": {"default": {"ipv4": {"routes": [{"prefix": )";
  EXPECT_EQ(refusal(cut).rfind("$", 0), 0u);
  EXPECT_NE(refusal(cut).find("malformed JSON"), std::string::npos);
  EXPECT_NE(refusal("").find("malformed JSON"), std::string::npos);
}

// The program carries its own copies of the table the parser's header reads from its library
// and of the library's error texts: they must stay the library's.
TEST(LoadError, TheParsersTextAndTableAreThoseOfItsLibrary) {
  const std::string refused = refusal("{");
  EXPECT_EQ(refused.rfind("$: malformed JSON: ", 0), 0u) << refused;
  EXPECT_EQ(refused.find("unknown JSON error"), std::string::npos) << refused;
  void* lib = dlopen(ROVA_TEST_SIMDJSON_SONAME, RTLD_LAZY | RTLD_LOCAL);
  ASSERT_NE(lib, nullptr) << dlerror();
  const auto* theirs = static_cast<const bool*>(
      dlsym(lib, "_ZN8simdjson8internal32structural_or_whitespace_negatedE"));
  ASSERT_NE(theirs, nullptr);
  for (int c = 0; c < 256; ++c)
    EXPECT_EQ(simdjson::internal::structural_or_whitespace_negated[c], theirs[c]) << c;
  const auto* codes = static_cast<const simdjson::internal::error_code_info*>(
      dlsym(lib, "_ZN8simdjson8internal11error_codesE"));
  ASSERT_NE(codes, nullptr);
  for (int e = 0; e < simdjson::NUM_ERROR_CODES; ++e)
    EXPECT_STREQ(Snapshot::jsonErrorMessage(simdjson::error_code(e)), codes[e].message) << e;
  EXPECT_STREQ(Snapshot::jsonErrorMessage(simdjson::NUM_ERROR_CODES), "unknown JSON error");
  dlclose(lib);
}

TEST(LoadError, BadValuesAreRefusedWithTheirText) {
  EXPECT_EQ(refusal(withRoutes({{{"prefix", "10.0.0.0/33"}, {"type", "eBgp"}}})),
            "$.vrfs.default.ipv4.routes[0].prefix: bad IPv4 prefix \"10.0.0.0/33\"");
  EXPECT_EQ(refusal(withRoutes({{{"prefix", "2001:db8::/32"}, {"type", "eBgp"}}})),
            "$.vrfs.default.ipv4.routes[0].prefix: bad IPv4 prefix \"2001:db8::/32\"");
  EXPECT_EQ(refusal(withRoutes({{{"prefix", "10.1.1.1/24"}, {"type", "eBgp"}}})),
            "$.vrfs.default.ipv4.routes[0].prefix: \"10.1.1.1/24\" has host bits set; the "
            "prefix is 10.1.1.0/24");
  EXPECT_EQ(refusal(withRoutes({{{"prefix", "10.0.0.0/8"}, {"type", "ospfInterArea "}}})),
            "$.vrfs.default.ipv4.routes[0].type: unknown IPv4 route type \"ospfInterArea \"");
  // Each family has its own words: "bgp" is an IPv6 route type only.
  EXPECT_EQ(refusal(withRoutes({{{"prefix", "10.0.0.0/8"}, {"type", "bgp"}}})),
            "$.vrfs.default.ipv4.routes[0].type: unknown IPv4 route type \"bgp\"");
  EXPECT_EQ(refusal(withRoutes({{{"prefix", "10.0.0.0/8"}, {"type", "eBgp"}, {"fec", "nh:1"}}})),
            "$.vrfs.default.ipv4.routes[0].fec: bad FEC \"nh:1\": unknown FEC kind (expected ip6, "
            "mpls, nhg, attached, tunnel or srte)");
  // An index one past the largest says what the largest is, in either form.
  EXPECT_EQ(refusal(withRoutes(
                {{{"prefix", "10.0.0.0/8"}, {"type", "eBgp"}, {"fec", "72057594037927936"}}})),
            "$.vrfs.default.ipv4.routes[0].fec: bad FEC \"72057594037927936\": a FEC is written "
            "\"<n>\" or \"<kind>:<n>\" with n a whole number below 2^56");
  EXPECT_EQ(refusal(withRoutes(
                {{{"prefix", "10.0.0.0/8"}, {"type", "eBgp"}, {"fec", "nhg:72057594037927936"}}})),
            "$.vrfs.default.ipv4.routes[0].fec: bad FEC \"nhg:72057594037927936\": the index "
            "after the FEC kind must be a whole number below 2^56");

  json doc = minimal();
  doc["interfaces"] = {{{"name", "Ethernet 1"}}};
  EXPECT_EQ(refusal(doc),
            "$.interfaces[0].name: bad interface name \"Ethernet 1\" (1 to 64 "
            "printable characters without blanks)");
  doc["interfaces"] = {{{"name", "Ethernet1"}, {"ipv4", {{"primary", "10.0.0.1"}}}}};
  EXPECT_EQ(refusal(doc),
            "$.interfaces[0].ipv4.primary: bad IPv4 address with mask "
            "\"10.0.0.1\" (expected address/length)");
  doc = minimal();
  doc["neighbors"] = {{{"address", "10.0.0.2"}, {"interface", "Ethernet1"}, {"mac", "00:11:22"}}};
  EXPECT_EQ(refusal(doc),
            "$.neighbors[0].mac: bad MAC address \"00:11:22\" (expected "
            "00:11:22:33:44:55)");
  doc = minimal();
  doc["routeDistinguisherInputs"] = {{"bgp", {{"red", "100"}}}};
  EXPECT_EQ(refusal(doc),
            "$.routeDistinguisherInputs.bgp.red: bad route distinguisher \"100\" "
            "(expected ASN:n or IPv4-address:n, for example 100:1)");
  // A push or swap needs a label to push or swap to; a pop takes none.
  doc = minimal();
  doc["nexthopGroups"] = {{{"name", "A"},
                           {"id", 1},
                           {"type", "mpls"},
                           {"entries", {{{"destination", "10.0.0.1"}, {"labels", "push"}}}}}};
  EXPECT_EQ(refusal(doc),
            "$.nexthopGroups[0].entries[0].labels: a push or swap takes at least one label: "
            "\"push\"");
  doc = minimal();
  doc["tunnels"]["fib"] = {
      {{"tunnel", "ldp:1"}, {"vias", {{{"interface", "Ethernet1"}, {"labels", "swap"}}}}}};
  EXPECT_EQ(refusal(doc),
            "$.tunnels.fib[0].vias[0].labels: a push or swap takes at least one label: "
            "\"swap\"");
  doc["tunnels"]["fib"][0]["vias"][0]["labels"] = "pop";
  EXPECT_EQ(refusal(doc), "loaded");
  // Each label after exactly one blank: none trailing, none doubled.
  for (const char* blanks : {"push 16 ", "push  16", "pop ", "swap 16  17"}) {
    doc["tunnels"]["fib"][0]["vias"][0]["labels"] = blanks;
    EXPECT_EQ(refusal(doc).rfind("$.tunnels.fib[0].vias[0].labels: ", 0), 0u) << blanks;
  }
}

TEST(LoadError, PlatformBoundsKeepThePlatformsMessage) {
  auto labelled = [](std::uint64_t label) {
    return withFecs({{{"id", "7"}, {"vias", {{{"interface", "Ethernet1"}, {"label", label}}}}}});
  };
  EXPECT_EQ(refusal(labelled(8388609)),
            "$.vrfs.default.ipv4.fecs[0].vias[0].label: MplsLabel::value < MplsLabel::min or > "
            "MplsLabel::luWithdraw not allowed (label 8388609)");
  EXPECT_EQ(refusal(labelled(8388608)), "loaded");

  json doc = minimal();
  doc["vrfs"][std::string(101, 'v')] = {{"id", 1}};
  EXPECT_EQ(refusal(doc), "$.vrfs." + std::string(101, 'v') + ": VrfName::bytes > 100 not allowed");
  // A key of any length shows as much of itself as any word does.
  doc = minimal();
  doc["vrfs"][std::string(200, 'v')] = {{"id", 1}};
  EXPECT_EQ(refusal(doc),
            "$.vrfs." + std::string(120, 'v') + "...: VrfName::bytes > 100 not allowed");
  doc = minimal();
  doc["vrfs"][std::string(100, 'v')] = {{"id", 1}};
  EXPECT_EQ(refusal(doc), "loaded");

  json vias = json::array();
  for (int i = 0; i < 513; ++i)
    vias.push_back({{"nexthop", "10.0.0.1"}, {"interface", "Ethernet1"}});
  json fecs = {{{"id", "1"}}, {{"id", "2"}}, {{"id", "3"}}, {{"id", "4"}, {"vias", vias}}};
  EXPECT_EQ(refusal(withFecs(fecs)),
            "$.vrfs.default.ipv4.fecs[3].vias[512]: PodArray::set "
            "expected size <= 512: a FEC holds at most 512 vias");
  vias.erase(vias.size() - 1);
  fecs[3]["vias"] = vias;
  EXPECT_EQ(refusal(withFecs(fecs)), "loaded");

  doc = minimal();
  doc["nexthopGroups"] = {{{"name", std::string(129, 'n')}, {"id", 1}, {"type", "ipInIp"}}};
  EXPECT_EQ(refusal(doc),
            "$.nexthopGroups[0].name: PodArray::set expected size <= 128: a "
            "nexthop group name has at most 128 bytes");
  doc["nexthopGroups"][0]["name"] = std::string(128, 'n');
  EXPECT_EQ(refusal(doc), "loaded");
}

TEST(LoadError, DuplicatesAreRefused) {
  EXPECT_EQ(refusal(withRoutes({{{"prefix", "10.0.0.0/8"}, {"type", "eBgp"}},
                                {{"prefix", "10.0.0.0/16"}, {"type", "eBgp"}},
                                {{"prefix", "10.0.0.0/8"}, {"type", "iBgp"}}})),
            "$.vrfs.default.ipv4.routes[2]: duplicate route for 10.0.0.0/8");
  // A repeated prefix is refused before whatever is wrong further on, as the document reads;
  // what is wrong before it is refused first.
  const json again = {{"prefix", "2001:db8::/32"}, {"type", "bgp"}};
  json doc6 = minimal();
  doc6["vrfs"]["default"]["ipv6"]["routes"] = {
      {{"prefix", "2001:db8::/32"}, {"type", "bgp"}}, again, {{"prefix", "::/0"}, {"typo", 1}}};
  EXPECT_EQ(refusal(doc6), "$.vrfs.default.ipv6.routes[1]: duplicate route for 2001:db8::/32");
  doc6["vrfs"]["default"]["ipv6"]["routes"][0]["type"] = "eBgp";
  EXPECT_EQ(refusal(doc6), "$.vrfs.default.ipv6.routes[0].type: unknown IPv6 route type \"eBgp\"");
  EXPECT_EQ(refusal(withFecs({{{"id", "5"}}, {{"id", "5"}}})),
            "$.vrfs.default.ipv4.fecs[1]: duplicate FEC 5");
  json doc = minimal();
  doc["vrfs"]["red"] = {{"id", 3}};
  doc["vrfs"]["blue"] = {{"id", 3}};
  EXPECT_EQ(refusal(doc), "$.vrfs.red.id: VRF id 3 is already the id of VRF \"blue\"");
  doc = minimal();
  doc["vrfs"]["default"]["staticRoutes"] = {
      {{"prefix", "10.0.0.0/8"}, {"type", "drop"}},
      {{"prefix", "10.0.0.0/8"}, {"type", "drop"}, {"preference", 200}},
      {{"prefix", "10.0.0.0/8"}, {"type", "drop"}, {"preference", 1}}};
  EXPECT_EQ(refusal(doc),
            "$.vrfs.default.staticRoutes[2]: duplicate static route for "
            "10.0.0.0/8 at preference 1");
}

TEST(LoadError, VrfsMustExistAndDefaultIsZero) {
  EXPECT_EQ(refusal(R"({"version": 1, "vrfs": {"red": {"id": 1}}})"),
            "$.vrfs: the VRF \"default\" is missing; every device has it");
  EXPECT_EQ(refusal(R"({"version": 1, "vrfs": {"default": {"id": 4}}})"),
            "$.vrfs.default.id: the VRF \"default\" has id 0");
  EXPECT_EQ(refusal(R"({"version": 1, "vrfs": {"default": {}, "red": {}}})"),
            "$.vrfs.red: missing required key \"id\"");
  // References are checked when the whole document is read, whatever the order of sections.
  const std::string neighbourFirst = R"({"version": 1,
      "neighbors": [{"vrf": "red", "address": "10.0.0.2", "interface": "Ethernet1",
                     "mac": "00:11:22:33:44:55"},
                    {"vrf": "green", "address": "10.0.0.3", "interface": "Ethernet1",
                     "mac": "00:11:22:33:44:55"}],
      "vrfs": {"default": {}, "red": {"id": 5}}})";
  EXPECT_EQ(refusal(neighbourFirst), "$.neighbors[1].vrf: unknown VRF \"green\" (not in \"vrfs\")");
}

TEST(LoadError, ShapesThatMeanNothingAreRefused) {
  EXPECT_EQ(refusal(withFecs({{{"id", "ip6:1"}}})),
            "$.vrfs.default.ipv4.fecs[0].id: an ip6: FEC lives in the VRF's ipv6.fecs");
  EXPECT_EQ(
      refusal(withFecs({{{"id", "1"}, {"backupIndex", 2}, {"vias", {{{"interface", "Cpu"}}}}}})),
      "$.vrfs.default.ipv4.fecs[0]: backupIndex 2 is above the number of vias (1)");
  // A via index is below 512, so not even a FEC of 512 vias can say "none" with 512.
  EXPECT_EQ(refusal(withFecs({{{"id", "1"}, {"backupIndex", 512}}})),
            "$.vrfs.default.ipv4.fecs[0].backupIndex: ViaIndex::value < ViaIndex::min or > "
            "ViaIndex::max not allowed (backupIndex 512)");
  EXPECT_EQ(refusal(withFecs({{{"id", "1"}, {"vias", {{{"weight", 2}}}}}})),
            "$.vrfs.default.ipv4.fecs[0].vias[0]: a via needs a nexthop, an interface or a tunnel");
  json doc = minimal();
  doc["vrfs"]["default"]["staticRoutes"] = {
      {{"prefix", "10.0.0.0/8"},
       {"vias", {{{"nexthop", "10.1.1.1"}, {"vtep", "10.2.2.2"}, {"vni", 10}}}}}};
  EXPECT_EQ(refusal(doc),
            "$.vrfs.default.staticRoutes[0].vias[0]: a via has a nexthop or a "
            "vtep, not both");
  doc["vrfs"]["default"]["staticRoutes"] = {
      {{"prefix", "10.0.0.0/8"}, {"vias", {{{"nexthop", "2001:db8::1"}}}}}};
  EXPECT_EQ(refusal(doc),
            "$.vrfs.default.staticRoutes[0].vias[0]: the nexthop 2001:db8::1 is "
            "not of the family of 10.0.0.0/8");
  doc["vrfs"]["default"]["staticRoutes"] = {{{"prefix", "10.0.0.0/8"}, {"type", "nexthopGroup"}}};
  EXPECT_EQ(refusal(doc),
            "$.vrfs.default.staticRoutes[0]: a nexthopGroup route needs "
            "\"nexthopGroup\"");
  doc["vrfs"]["default"]["staticRoutes"][0]["nexthopGroup"] = "";
  EXPECT_EQ(refusal(doc),
            "$.vrfs.default.staticRoutes[0]: \"nexthopGroup\" names no group: it is empty");
  // A zero address is no address: it cannot be a via's only next hop, and beside an interface
  // it is the same via as the interface alone (what the writer gives back).
  for (const json& zero : {json{{"nexthop", "0.0.0.0"}, {"label", 5}}, json{{"nexthop", "::"}},
                           json{{"vtep", "0.0.0.0"}, {"vni", 1}}}) {
    doc["vrfs"]["default"]["staticRoutes"] = {{{"prefix", "10.0.0.0/8"}, {"vias", {zero}}}};
    EXPECT_EQ(refusal(doc).substr(0, 40), "$.vrfs.default.staticRoutes[0].vias[0]: ") << zero;
  }
  doc["vrfs"]["default"]["staticRoutes"] = {
      {{"prefix", "10.0.0.0/8"},
       {"vias",
        {{{"nexthop", "0.0.0.0"}, {"interface", "Ethernet1"}}, {{"interface", "Ethernet1"}}}}}};
  EXPECT_EQ(refusal(doc), "$.vrfs.default.staticRoutes[0].vias[1]: duplicate via");
  EXPECT_EQ(refusal(withFecs({{{"id", "1"}, {"vias", {{{"nexthop", "0.0.0.0"}}}}}})),
            "$.vrfs.default.ipv4.fecs[0].vias[0]: a via needs a nexthop, an interface or a tunnel");
  doc = minimal();
  doc["tunnels"]["fib"] = {{{"tunnel", "ldp:1"}, {"vias", {{{"nexthop", "::"}}}}}};
  EXPECT_EQ(refusal(doc),
            "$.tunnels.fib[0].vias[0]: a tunnel via needs a nexthop, an interface "
            "or a tunnel");
  // 4294967295 is "no counter": no key names it, and no row may sit there.
  doc = minimal();
  doc["flexCounters"]["counters"] = {{{"index", 4294967295u}}};
  EXPECT_EQ(refusal(doc),
            "$.flexCounters.counters[0].index: expected a whole number from 0 to "
            "4294967294, found 4294967295");
}

// A damaged file is refused like any bad document: a path and a message, never a crash (the
// sanitizer build also runs the parser's own checks of how it is used).
TEST(LoadError, DamagedDocumentsAreRefusedNotCrashedOn) {
  const std::string_view example = Snapshot::embeddedExample();
  for (std::size_t cut = 0; cut < example.size(); cut += 61) {
    SCOPED_TRACE(cut);
    const std::string result = refusal(example.substr(0, cut));
    EXPECT_EQ(result.rfind("$", 0), 0u) << result;
  }
  const std::string brokenEscape = refusal(R"({"version": 1, "vrfs": {"default": {}}, "a\q": 1})");
  EXPECT_EQ(brokenEscape.rfind("$", 0), 0u) << brokenEscape;
}

// Only blanks may follow the document: a second document or a stray bracket means the file is
// not what its writer meant.
TEST(LoadError, DataAfterTheDocumentIsRefusedWithItsOffset) {
  const std::string doc = minimal().dump();
  EXPECT_EQ(refusal(doc + " \n\t\r\n"), "loaded");
  const std::string at = std::to_string(doc.size() + 1);
  EXPECT_EQ(refusal(doc + "\n" + doc),
            "$: more data after the end of the document, at byte offset " + at);
  EXPECT_EQ(refusal(doc + "\n}"),
            "$: more data after the end of the document, at byte offset " + at);
  // A value that is not a bracket, where the parser sees an object left open: the message
  // still says what is wrong and where.
  for (const char* after : {"0", "\"x\"", "x", "true", "[]", "{\"a\": \"}\"}"}) {
    SCOPED_TRACE(after);
    EXPECT_EQ(refusal(doc + "\n" + after),
              "$: more data after the end of the document, at byte offset " + at);
  }
  // A document cut short is not one with data after it.
  EXPECT_EQ(refusal(doc.substr(0, doc.size() - 1) + " 0").find("more data"), std::string::npos);
}

// A byte-order mark, as some editors save "UTF-8", is named for what it is.
TEST(LoadError, AByteOrderMarkIsNamed) {
  EXPECT_EQ(refusal("\xEF\xBB\xBF" + minimal().dump()),
            "$: malformed JSON: a byte-order mark (EF BB BF) before the document; save the file "
            "as UTF-8 without one");
  // Only at the start: the same bytes in a string are the character U+FEFF.
  json doc = minimal();
  doc["hostname"] = "a\xEF\xBB\xBF";
  EXPECT_EQ(refusal(doc), "loaded");
}

// A string of the state ends up on the user's terminal: control characters could drive it.
TEST(LoadError, ControlCharactersAreRefusedInEveryString) {
  json doc = minimal();
  doc["hostname"] = "leaf\x1b]0;owned\x07";
  EXPECT_EQ(refusal(doc),
            "$.hostname: control character \\x1b at byte 4 of \"leaf\\x1b]0;owned\\x07\"; strings "
            "hold printable text");
  doc = minimal();
  doc["interfaces"] = {{{"name", "Ethernet1"}, {"description", std::string("a\0b", 3)}}};
  EXPECT_EQ(refusal(doc),
            "$.interfaces[0].description: control character \\x00 at byte 1 of \"a\\x00b\"; "
            "strings hold printable text");
  doc = minimal();
  doc["interfaces"] = {{{"name", "Eth\x7f"}}};
  EXPECT_EQ(refusal(doc).rfind("$.interfaces[0].name: control character \\x7f at byte 3", 0), 0u);
  doc = minimal();
  doc["nexthopGroups"] = {{{"name", "g\u009b1m"}, {"id", 1}, {"type", "ipInIp"}, {"size", 1}}};
  EXPECT_EQ(
      refusal(doc).rfind("$.nexthopGroups[0].name: control character \\xc2\\x9b at byte 1", 0), 0u);
  // Keys that are data too, and the message's path shows them escaped.
  doc = minimal();
  doc["vrfs"]["red\nblue"] = {{"id", 1}};
  EXPECT_EQ(refusal(doc),
            "$.vrfs[\"red\\nblue\"]: control character \\n at byte 3 of \"red\\nblue\"; "
            "strings hold printable text");
  // Tabs in a description are refused like the rest; printable UTF-8 is welcome.
  doc = minimal();
  doc["hostname"] = "caf\u00e9-\u00a0leaf";
  EXPECT_EQ(refusal(doc), "loaded");
}

// A message shows at most a few dozen bytes of a bad word, however long the word.
TEST(LoadError, LongBadWordsAreCutInMessages) {
  json doc = withRoutes({{{"prefix", "10.0.0.0/8"}, {"type", std::string(5'000'000, 'o')}}});
  const std::string message = refusal(doc);
  EXPECT_LT(message.size(), 300u);
  EXPECT_EQ(message.rfind("$.vrfs.default.ipv4.routes[0].type: unknown IPv4 route type \"ooo", 0),
            0u);
  EXPECT_EQ(message.substr(message.size() - 7), "ooo...\"");
}

// A pipe or a FIFO has no size and cannot seek: it is read as it comes, in pieces.
TEST(LoadError, PipesAndFifosAreReadToTheirEnd) {
  const std::string text = withRoutes({{{"prefix", "10.0.0.0/8"}, {"type", "eBgp"}}}).dump(1);
  const auto routes = [](const Mox::Ptr<Statum::EntityManager>& em) {
    return layout::mount(*em, layout::fibRoute, "default")->size();
  };
  // Written slowly, a few bytes at a time, so that reads come back short.
  const auto writeSlowly = [&](int fd) {
    for (std::size_t i = 0; i < text.size(); i += 7) {
      const std::size_t n = std::min<std::size_t>(7, text.size() - i);
      if (::write(fd, text.data() + i, n) != static_cast<ssize_t>(n)) break;
    }
    ::close(fd);
  };

  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  std::thread writer(writeSlowly, fds[1]);
  auto em = Snapshot::loadFile("/dev/fd/" + std::to_string(fds[0]));
  writer.join();
  ::close(fds[0]);
  EXPECT_EQ(routes(em), 1u);

  const std::string fifo = ::testing::TempDir() + "snapshot_fifo_test";
  ::unlink(fifo.c_str());
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  std::thread fifoWriter([&] { writeSlowly(::open(fifo.c_str(), O_WRONLY)); });
  em = Snapshot::loadFile(fifo);
  fifoWriter.join();
  ::unlink(fifo.c_str());
  EXPECT_EQ(routes(em), 1u);
}

// A large file is mapped and let go behind the reader: it loads as its text does, whatever its
// size against the page size, and what is refused near its end is refused with its path.
TEST(LoadError, ALargeFileLoadsLikeTextAndIsRefusedWhereItIsWrong) {
  json routes = json::array();
  for (std::uint32_t i = 0; i < 40000; ++i) {
    routes.push_back(
        {{"prefix", Plexa::Prefix(Plexa::IpAddr(0x0b000000u | i << 8), 24).stringValue()},
         {"type", i % 3 ? "eBgp" : "iBgp"},
         {"fec", std::to_string(i % 7 + 1)}});
  }
  const std::string path = ::testing::TempDir() + "snapshot_large_test.json";
  const auto load = [&](const json& doc, std::size_t pageMultiple) {
    std::string text = doc.dump(1);
    if (pageMultiple) text.resize((text.size() / pageMultiple + 1) * pageMultiple, ' ');
    std::FILE* f = std::fopen(path.c_str(), "wb");
    std::fwrite(text.data(), 1, text.size(), f);
    std::fclose(f);
    EXPECT_GT(text.size(), 1u << 20);
    try {
      auto em = Snapshot::loadFile(path);
      auto table = layout::mount(*em, layout::fibRoute, "default");
      return std::to_string(table->size()) + " " +
             table->lookup(Plexa::Prefix::fromString("11.156.63.0/24")).fecId.stringValue() + " " +
             std::string(Routing::Fib::routeTypeName(
                 table->lookup(Plexa::Prefix::fromString("11.0.3.0/24")).routeType));
    } catch (const Snapshot::LoadError& e) {
      return std::string(e.what());
    }
  };
  json doc = withRoutes(routes);
  EXPECT_EQ(load(doc, 0), "40000 2 iBgp");
  EXPECT_EQ(load(doc, 4096), "40000 2 iBgp");
  doc["vrfs"]["default"]["ipv4"]["routes"][39999]["prefix"] = "11.0.7.0/24";
  EXPECT_EQ(load(doc, 0), "$.vrfs.default.ipv4.routes[39999]: duplicate route for 11.0.7.0/24");
  doc["vrfs"]["default"]["ipv4"]["routes"][39999]["prefix"] = "11.0.7.1/24";
  EXPECT_EQ(load(doc, 0),
            "$.vrfs.default.ipv4.routes[39999].prefix: \"11.0.7.1/24\" has host "
            "bits set; the prefix is 11.0.7.0/24");
  std::remove(path.c_str());
}

// The status looked at before and after reading spares the second read only when it proves the
// text did not change: a file whose last change is recent may have been written again within
// its clock's tick, and any field that moved means something happened to it.
TEST(LoadError, TheFilesStatusSparesTheSecondReadOnlyWhenItProvesNoChange) {
  using Snapshot::detail::ReadStamp;
  using Snapshot::detail::unchangedWhileRead;
  constexpr std::int64_t kS = 1000000000;
  const std::int64_t now = 1700000000 * kS;
  const ReadStamp old{
      .device = 1, .inode = 2, .size = 300, .modified = now - 60 * kS, .changed = now - 60 * kS};
  EXPECT_TRUE(unchangedWhileRead(old, old, now));
  ReadStamp after = old;
  for (auto field : {&ReadStamp::modified, &ReadStamp::changed, &ReadStamp::size}) {
    after = old;
    after.*field += 1;
    EXPECT_FALSE(unchangedWhileRead(old, after, now));
  }
  after = old;
  after.inode = 3;
  EXPECT_FALSE(unchangedWhileRead(old, after, now));
  // Changed a second ago, or set in the future: read again, however still the status is.
  for (auto field : {&ReadStamp::modified, &ReadStamp::changed}) {
    for (const std::int64_t when : {now - kS, now, now + 60 * kS}) {
      ReadStamp recent = old;
      recent.*field = when;
      EXPECT_FALSE(unchangedWhileRead(recent, recent, now)) << when - now;
    }
  }
  ReadStamp justSettled = old;
  justSettled.changed = justSettled.modified = now - 2 * kS;
  EXPECT_TRUE(unchangedWhileRead(justSettled, justSettled, now));
}

}  // namespace

namespace {

// A name that is empty (an unset variable) or holds a NUL (which the file system would stop
// at, opening a file the caller did not name) is refused before anything is opened.
TEST(LoadError, EmptyNamesAndNamesWithANulAreRefused) {
  const auto refusedAs = [](const std::string& path) {
    try {
      Snapshot::loadFile(path);
    } catch (const Snapshot::LoadError& e) {
      return e.reason();
    }
    return std::string("loaded");
  };
  EXPECT_EQ(refusedAs(""), "empty file name");
  const std::string real = ::testing::TempDir() + "snapshot_nul_test.json";
  const std::string text = minimal().dump();
  std::FILE* f = std::fopen(real.c_str(), "wb");
  ASSERT_NE(f, nullptr);
  std::fwrite(text.data(), 1, text.size(), f);
  std::fclose(f);
  EXPECT_EQ(refusedAs(real), "loaded");
  EXPECT_EQ(refusedAs(real + std::string(1, '\0') + "x"), "a file name cannot hold a NUL byte");
  std::remove(real.c_str());
}

}  // namespace
