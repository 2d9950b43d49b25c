// Loading without a family's route tables: the document is refused exactly when the whole load
// refuses it, with the same message, and what the routes say beyond their table is kept.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/brine/Fib.h"
#include "snapshot/Snapshot.h"
#include "snapshot/StateLayout.h"
#include "snapshot/loader/Loader.h"

namespace {

namespace layout = Snapshot::layout;
using Snapshot::Sections;

constexpr Sections kChoices[] = {
    Sections::all(),
    Sections::none(),
    {.ipv4Routes = true, .ipv6Routes = false},
    {.ipv4Routes = false, .ipv6Routes = true},
};

std::string refusal(const std::string& text, Sections sections, bool file = false) {
  try {
    file ? Snapshot::loadFile(text, sections) : Snapshot::load(text, sections);
  } catch (const Snapshot::LoadError& e) {
    return e.what();
  } catch (const std::exception& e) {
    return std::string("not a LoadError: ") + e.what();
  }
  return "loaded";
}

// The same document with its route arrays' keys written with an escape: the scan that reads
// route arrays before the parser does not take an escaped key, so the loader reads these
// arrays itself, route by route, the reading every other is held to.
std::string unscanned(std::string text) {
  for (std::size_t at = 0; (at = text.find("\"routes\"", at)) != std::string::npos;)
    text.replace(at, 8, "\"rout\\u0065s\"");
  return text;
}

// A document with routes of both families in two VRFs; `v4` and `v6` are the default VRF's
// route arrays' elements.
std::string document(const std::string& v4, const std::string& v6) {
  return R"({"version": 1, "vrfs": {
    "default": {"ipv4": {"routes": [)" +
         v4 + R"(], "fecs": [{"id": "3", "vias": [{"interface": "Ethernet1"}]}]},
                "ipv6": {"routes": [)" +
         v6 + R"(]}},
    "red": {"id": 1, "ipv4": {"routes": [{"prefix": "10.9.0.0/16", "type": "connected"}]}}}})";
}

const std::string kV4 =
    R"({"prefix": "10.1.0.0/16", "type": "eBgp", "fec": "3", "preference": 20, "metric": 7},
       {"prefix": "10.0.0.0/8", "type": "iBgp", "hardwareProgrammed": false},
       {"prefix": "10.2.0.0/16", "type": "ospfIntraArea", "kernelProgrammed": false})";
const std::string kV6 =
    R"({"prefix": "2001:db8::/32", "type": "bgp", "fec": "4", "kernelProgrammed": false},
       {"prefix": "2001:db8:1::/48", "type": "connected", "hardwareProgrammed": false})";

// Each is one change to the first IPv4 route (or the whole array) of kV4: the ones the load
// accepts and the ones it refuses, by every rule a route has.
const std::vector<std::pair<std::string, std::string>> kChanges = {
    {R"("prefix": "10.1.0.0/16")", R"("prefix": "10.1.0.1/16")"},     // host bits
    {R"("prefix": "10.1.0.0/16")", R"("prefix": "10.1.0.0/33")"},     // bad prefix
    {R"("prefix": "10.1.0.0/16")", R"("prefix": "2001:db8::/32")"},   // other family
    {R"("prefix": "10.1.0.0/16")", R"("prefix": "010.1.0.0/16")"},    // leading 0
    {R"("prefix": "10.1.0.0/16")", R"("prefix": "10.1.0.0/016")"},    // leading 0
    {R"("prefix": "10.1.0.0/16")", R"("prefix": "10.1.0/16")"},       // three octets
    {R"("prefix": "10.1.0.0/16")", R"("prefix": "10.256.0.0/16")"},   // octet past 255
    {R"("prefix": "10.1.0.0/16")", R"("prefix": "10.1.0.0/")"},       // no length
    {R"("prefix": "10.1.0.0/16")", R"("prefix": "10.1.0.0/16 ")"},    // a blank after
    {R"("prefix": "10.1.0.0/16")", R"("prefix": "10.1.0.0")"},        // no slash
    {R"("prefix": "10.1.0.0/16")", R"("prefix": "0.0.0.0/0")"},       // the default
    {R"("prefix": "10.1.0.0/16")", R"("prefix": 10)"},                // a number
    {R"("prefix": "10.1.0.0/16")", R"("prefix": 10.1.0.0/16")"},      // not a string
    {R"("prefix": "10.1.0.0/16")", R"("prefix": "10.1.0.0/16/16")"},  // two lengths
    {R"("prefix": "10.1.0.0/16")", R"("prefix": "10.1.0.00/16")"},    // leading 0
    {R"("prefix": "10.1.0.0/16")", R"("prefix": "10.1.0.0/100")"},    // three digits
    {R"("prefix": "10.1.0.0/16")", R"("prefix": "10.1.0.1000/16")"},  // four digits
    {R"("prefix": "10.1.0.0/16")", R"("prefix": "10.1.0.0.0/16")"},   // five octets
    {R"("prefix": "10.1.0.0/16")", R"("prefix": "255.255.255.255/32")"},
    {R"("prefix": "10.1.0.0/16")", R"("prefix": "10.0.0.0/8")"},        // twice
    {R"("prefix": "10.1.0.0/16")", R"("pref\u0069x": "10.1.0.0/16")"},  // escaped key
    {R"("prefix": "10.1.0.0/16")", R"("prefix": "10.1.0.0\/16")"},      // escaped text
    {R"("prefix": "10.1.0.0/16")", R"("prefx": "10.1.0.0/16")"},        // unknown key
    {R"("prefix": "10.1.0.0/16", )", ""},                               // no prefix
    {R"("type": "eBgp")", R"("type": "ospf")"},                         // unknown type
    {R"("type": "eBgp")", R"("type": "eBgp", "type": "eBgp")"},         // key twice
    {R"("type": "eBgp")", R"("type": "eB\u0067p")"},                    // escaped word
    {R"("type": "eBgp")", R"("type": "éBgp")"},                         // not ASCII
    {R"("type": "eBgp")", "\"type\": \"eBgp\x1b\""},                    // control
    {R"("fec": "3")", R"("fec": "0")"},                                 // no FEC 0
    {R"("fec": "3")", R"("fec": "ip6:3")"},                             // over IPv6
    {R"("fec": "3")", R"("fec": "vrf:3")"},                             // unknown kind
    {R"("fec": "3")", R"("fec": 3")"},                                  // not a string
    {R"("fec": "3")", R"("fec": "03")"},                                // leading 0
    {R"("fec": "3")", R"("fec": "ip6:0")"},                             // index 0
    {R"("fec": "3")", R"("fec": "9999999999999999")"},                  // 16 digits
    {R"("fec": "3")", R"("fec": "99999999999999999")"},                 // past 2^56
    {R"("fec": "3")", R"("fec": "3x")"},                                // not a number
    {R"("fec": "3")", R"("fec": "ip6:3x")"},                            // not a number
    {R"("type": "eBgp")", R"("type": "eBgpX")"},                        // a longer word
    {R"("type": "eBgp")", R"("type": "eBg")"},                          // a shorter one
    {R"("type": "eBgp")", R"("type": eBgp")"},                          // not a string
    {R"("type": "eBgp")", R"("type": "iBgp")"},                         // another word
    {R"("preference": 20)", R"("preference": 256)"},                    // too large
    {R"("preference": 20)", R"("preference": 255)"},                    // the largest
    {R"("preference": 20)", R"("preference": 020)"},                    // leading 0
    {R"("preference": 20)", R"("preference": 2.0)"},                    // fraction
    {R"("preference": 20)", R"("preference": -1)"},                     // negative
    {R"("preference": 20)", R"("preference": 2e1)"},                    // exponent
    {R"("metric": 7)", R"("metric": 4294967295)"},                      // the largest
    {R"("metric": 7)", R"("metric": 4294967296)"},                      // too large
    {R"("metric": 7)", R"("metric": 99999999999999999999)"},            // past 64 bits
    {R"("metric": 7)", R"("metric": true)"},                            // a boolean
    {R"("metric": 7})", R"("metric": 7, "hardwareProgrammed": 1})"},    // a number
    {R"("metric": 7})", R"("metric": 7, "kernelProgrammed": tru})"},    // not JSON
    {R"("metric": 7})", R"("metric": 7 "kernelProgrammed": true})"},    // no comma
    {R"("metric": 7})", R"("metric": 7,})"},                            // comma at end
    {R"("metric": 7})", R"("metric" 7})"},                              // no colon
    {R"("metric": 7},)", R"("metric": 7},,)"},                          // empty element
    {R"("metric": 7},)", R"("metric": 7}, null,)"},                     // not an object
    {R"("metric": 7},)", R"("metric": 7}, {},)"},                       // empty route
    {R"("metric": 7},)", R"("metric": 7}, [],)"},                       // an array
};

// Each is one change to the first IPv6 route of kV6.
const std::vector<std::pair<std::string, std::string>> kChanges6 = {
    {"2001:db8::/32", "2001:db8::1/32"},                  // host bits
    {"2001:db8::/32", "2001:db8:0:0:0:0:0:0/32"},         // eight groups
    {"2001:db8::/32", "2001:DB8:0000::/32"},              // capitals, leading zeros
    {"2001:db8::/32", "2001:db8:0:0:0:0:0/32"},           // seven groups, no gap
    {"2001:db8::/32", "2001:db8::0:0:0:0:0:0/32"},        // a gap and eight groups
    {"2001:db8::/32", "2001:db8:::/32"},                  // three colons
    {"2001:db8::/32", "2001:db8::1::/32"},                // two gaps
    {"2001:db8::/32", "02001:db8::/32"},                  // five digits
    {"2001:db8::/32", ":2001:db8::/32"},                  // a colon before
    {"2001:db8::/32", "2001:db8:/32"},                    // a colon after
    {"2001:db8::/32", "2001:db8::/129"},                  // too long
    {"2001:db8::/32", "2001:db8::/032"},                  // leading 0
    {"2001:db8::/32", "2001:db8::/"},                     // no length
    {"2001:db8::/32", "2001:db8::"},                      // no slash
    {"2001:db8::/32", "2001:db8::/32 "},                  // a blank after
    {"2001:db8::/32", "2001:db8::/32/32"},                // two lengths
    {"2001:db8::/32", "::ffff:10.0.0.0/104"},             // a dotted tail
    {"2001:db8::/32", "::/0"},                            // the default
    {"2001:db8::/32", "2001:db8:1::/48"},                 // twice
    {"2001:db8::/32", "2001:db8:1:2:3:4:5:6/128"},        // a host, kept apart
    {"2001:db8::/32", "2001:db8:1:2:3:4:5:0/127"},        // longer than 63
    {"2001:db8::/32", "2001:db8:1:2:3:4:5:0/127\" \"x"},  // not JSON after it
    {"\"2001:db8::/32\"", "2001:db8::/32\""},             // not a string
    {"\"2001:db8::/32\"", "\"10.1.0.0/16\""},             // other family
};

TEST(LoadSections, ARouteTableLeftOutIsRefusedAsTheWholeLoadRefusesIt) {
  const std::string base = document(kV4, kV6);
  ASSERT_EQ(refusal(base, Sections::all()), "loaded");
  for (const auto& [from, to] : kChanges) {
    // The change, in the first IPv4 route or the array.
    std::string v4 = kV4;
    v4.replace(v4.find(from), from.size(), to);
    const std::string text = document(v4, kV6);
    const std::string whole = refusal(unscanned(text), Sections::all());
    for (const Sections s : kChoices) {
      EXPECT_EQ(refusal(text, s), whole)
          << to << " ipv4 " << s.ipv4Routes << " ipv6 " << s.ipv6Routes;
      EXPECT_EQ(refusal(unscanned(text), s), whole) << to;
    }
  }
  // The same changes in the last route, once the scan has read its type word and FEC forms
  // on the routes before (it keeps the last few words it read, and compares with those first).
  for (const auto& [from, to] : kChanges) {
    const std::string first = kV4.substr(0, kV4.find("},") + 1);
    std::string changed = first;
    if (changed.find(from) == std::string::npos) continue;
    changed.replace(changed.find(from), from.size(), to);
    const std::string warm = R"({"prefix": "10.50.0.0/16", "type": "eBgp", "fec": "3"},
        {"prefix": "10.51.0.0/16", "type": "iBgp", "fec": "ip6:3"}, )";
    const std::string text = document(warm + kV4.substr(kV4.find("},") + 2) + ", " + changed, kV6);
    const std::string whole = refusal(unscanned(text), Sections::all());
    for (const Sections s : kChoices)
      EXPECT_EQ(refusal(text, s), whole) << to << " ipv4 " << s.ipv4Routes;
  }
  for (const auto& [from, to] : kChanges6) {
    std::string v6 = kV6;
    v6.replace(v6.find(from), from.size(), to);
    for (const std::string& text : {document(kV4, v6), document(kV4, kV6 + ", " + v6)}) {
      const std::string whole = refusal(unscanned(text), Sections::all());
      for (const Sections s : kChoices) {
        EXPECT_EQ(refusal(text, s), whole) << to << " ipv6 " << s.ipv6Routes;
        EXPECT_EQ(refusal(unscanned(text), s), whole) << to;
      }
    }
  }
  // Shapes of the array itself, and an error after it that the scan must not hide.
  for (const std::string& text : {
           document("", ""),
           document(kV4 + "," + kV4, kV6),
           document(kV4, kV6 + R"(, {"prefix": "2001:db8::/32", "type": "bgp"})"),
           document(kV4, R"({"prefix": "2001:db8::1/32", "type": "bgp"})"),
           std::string(R"({"version": 1, "vrfs": {"default": {"ipv4": {"routes": {}}}}})"),
           std::string(R"({"version": 1, "vrfs": {"default": {"ipv4": {"routes": [] ]}}}})"),
           std::string(R"({"version": 1, "vrfs": {"default": {"ipv4": {"routes": [}}}})"),
           std::string(R"({"version": 1, "vrfs": {"default": {"ipv4": {"routes": []}}, "x": 1}})"),
       }) {
    const std::string whole = refusal(unscanned(text), Sections::all());
    for (const Sections s : kChoices) {
      EXPECT_EQ(refusal(text, s), whole) << text;
      EXPECT_EQ(refusal(unscanned(text), s), whole) << text;
    }
  }
}

// A prefix given twice far apart in a long table, in either family: the check of a table left
// out deals its prefixes into many buckets, and the two copies must still meet.
TEST(LoadSections, APrefixTwiceInALongTableIsRefusedWhateverIsLeftOut) {
  std::string v4, v6;
  for (int i = 0; i < 5000; ++i) {
    const std::string sep = i ? ", " : "";
    v4 += sep + R"({"prefix": ")" + std::to_string(i / 256) + "." + std::to_string(i % 256) +
          R"(.0.0/16", "type": "eBgp"})";
    v6 += sep + R"({"prefix": "2001:db8:)" + std::to_string(i) + R"(::/48", "type": "bgp"})";
  }
  const std::string v4Twice = v4 + R"(, {"prefix": "3.7.0.0/16", "type": "iBgp"})";
  const std::string v6Twice = v6 + R"(, {"prefix": "2001:db8:1234::/48", "type": "bgp"})";
  ASSERT_EQ(refusal(document(v4, v6), Sections::none()), "loaded");
  for (const std::string& text : {document(v4Twice, v6), document(v4, v6Twice)}) {
    const std::string whole = refusal(unscanned(text), Sections::all());
    EXPECT_NE(whole.find("duplicate"), std::string::npos) << whole;
    for (const Sections s : kChoices)
      EXPECT_EQ(refusal(text, s), whole) << "ipv4 " << s.ipv4Routes << " ipv6 " << s.ipv6Routes;
  }
}

// A file last changed two seconds ago or more, loaded without a family's tables, is read a
// window at a time, those tables checked as they pass; the rest of the text is parsed as usual.
// Every document is refused as the whole load refuses it, over window bounds too, and one the
// window cannot take (a blank run longer than it looks ahead) is loaded the usual way.
TEST(LoadSections, ASettledFileIsCheckedAWindowAtATimeAndRefusedAsTheWholeLoadRefusesIt) {
  char dirTemplate[] = "/tmp/rova-load-sections-XXXXXX";
  ASSERT_NE(::mkdtemp(dirTemplate), nullptr);
  const std::filesystem::path dir(dirTemplate);
  struct Remove {
    std::filesystem::path dir;
    ~Remove() { std::filesystem::remove_all(dir); }
  } remove{dir};

  std::vector<std::string> texts;
  for (const auto& [from, to] : kChanges) {
    std::string v4 = kV4;
    v4.replace(v4.find(from), from.size(), to);
    texts.push_back(document(v4, kV6));
  }
  // Past two windows of routes, with what the scan keeps beyond the table near the end.
  std::string v4, v6;
  for (int i = 0; i < 40000; ++i) {
    const std::string sep = i ? ", " : "";
    v4 += sep + R"({"prefix": "11.)" + std::to_string(i / 256) + "." + std::to_string(i % 256) +
          R"(.0/24", "type": "eBgp", "fec": "3", "preference": 20})";
    char group[8];
    std::snprintf(group, sizeof group, "%x", i);
    v6 += sep + R"({"prefix": "2001:db8:)" + group + R"(::/48", "type": "bgp"})";
  }
  const std::string marks = R"(, {"prefix": "12.0.0.0/8", "type": "iBgp", "kernelProgrammed": false,
      "hardwareProgrammed": false})";
  const std::string large = document(v4 + marks, v6);
  texts.push_back(large);
  texts.push_back(document(v4 + R"(, {"prefix": "11.3.7.0/24", "type": "iBgp"})", v6));
  texts.push_back(document(v4, v6 + R"(, {"prefix": "2001:db8:9c3f::/48", "type": "bgp"})"));
  texts.push_back(document(v4 + R"(, {"prefix": "11.3.7.1/24", "type": "iBgp"})", v6));
  texts.push_back(document(v4 + "," + std::string(3 << 20, ' ') + kV4, v6));
  texts.push_back(document(v4, v6) + std::string(3 << 20, ' ') + "]");
  std::vector<std::string> paths;
  for (const std::string& text : texts) {
    paths.push_back((dir / ("s" + std::to_string(paths.size()) + ".json")).string());
    std::ofstream(paths.back()) << text;
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(2100));  // settled

  // The good large document goes through the window, which keeps only what is not left out.
  {
    Snapshot::loader::Loader loader;
    loader.sectionsIs({.ipv4Routes = false, .ipv6Routes = true});
    const int fd = ::open(paths[kChanges.size()].c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    std::vector<char> doc;
    EXPECT_TRUE(loader.stripRoutes(fd, doc, large.size()));
    ::close(fd);
    EXPECT_LT(doc.size(), large.size() / 2);
    EXPECT_NE(std::string(doc.begin(), doc.end()).find("2001:db8:9c3f::/48"), std::string::npos);
    const auto whole = Snapshot::load(large);
    const auto partial = Snapshot::loadFile(paths[kChanges.size()],
                                            Sections{.ipv4Routes = false, .ipv6Routes = true});
    EXPECT_EQ(layout::find(*partial, layout::fibRoute, "default")->size(), 0u);
    EXPECT_EQ(layout::find(*partial, layout::fib6Route, "default")->size(),
              layout::find(*whole, layout::fib6Route, "default")->size());
    EXPECT_EQ(layout::find(*partial, layout::hwVrfStatus, "default")->unprogrammedRouteCount(), 1u);
    EXPECT_EQ(layout::find(*partial, layout::kernelUnprogrammed, "default")->size(),
              layout::find(*whole, layout::kernelUnprogrammed, "default")->size());
  }
  for (std::size_t i = 0; i < texts.size(); ++i) {
    std::string whole = refusal(unscanned(texts[i]), Sections::all());
    // Data after the document is refused at its offset, which the escapes of `unscanned` move.
    if (whole.starts_with("$: more data after the end of the document"))
      whole = refusal(texts[i], Sections::all());
    for (const Sections s : kChoices)
      EXPECT_EQ(refusal(paths[i], s, true), whole)
          << i << " ipv4 " << s.ipv4Routes << " ipv6 " << s.ipv6Routes;
  }
}

TEST(LoadSections, ATableLeftOutIsEmptyAndItsRoutesStillMarkWhatIsNotProgrammed) {
  // Through the scan, and through the whole reading when the scan cannot prove the array
  // (an escaped prefix).
  for (const std::string& v4 : {kV4, R"({"prefix": "10.7.0.0\/16", "type": "eBgp"},)" + kV4}) {
    const std::string text = document(v4, kV6);
    const auto whole = Snapshot::load(text);
    const auto partial = Snapshot::load(text, Sections::none());
    for (const char* vrf : {"default", "red"}) {
      EXPECT_GT(layout::find(*whole, layout::fibRoute, vrf)->size(), 0u);
      EXPECT_EQ(layout::find(*partial, layout::fibRoute, vrf)->size(), 0u);
      EXPECT_EQ(layout::find(*partial, layout::fib6Route, vrf)->size(), 0u);
      const auto hwWhole = layout::find(*whole, layout::hwVrfStatus, vrf);
      const auto hwPartial = layout::find(*partial, layout::hwVrfStatus, vrf);
      EXPECT_EQ(hwPartial->unprogrammedRouteCount(), hwWhole->unprogrammedRouteCount());
      EXPECT_EQ(hwPartial->unprogrammedRoute6Count(), hwWhole->unprogrammedRoute6Count());
      for (const auto& e : {layout::kernelUnprogrammed, layout::kernelUnprogrammed6}) {
        const auto kWhole = layout::find(*whole, e, vrf);
        const auto kPartial = layout::find(*partial, e, vrf);
        EXPECT_EQ(kPartial->size(), kWhole->size());
        for (const auto& entry : *kWhole)
          EXPECT_TRUE(kPartial->contains(entry.prefix)) << entry.prefix.stringValue();
      }
    }
    EXPECT_EQ(layout::find(*whole, layout::hwVrfStatus, "default")->unprogrammedRouteCount(), 1u);
    EXPECT_EQ(layout::find(*whole, layout::kernelUnprogrammed6, "default")->size(), 1u);
    // The FECs are built either way.
    EXPECT_EQ(layout::find(*partial, layout::fibFec, "default")->size(), 1u);
  }
}

// The text in memory that reads as a file, for the window's reading (nothing on disk).
struct MemoryFile {
  explicit MemoryFile(const std::string& text)
      : fd(::memfd_create("rova-test-state", MFD_CLOEXEC)) {
    for (std::size_t at = 0; fd >= 0 && at < text.size();) {
      const ssize_t n = ::write(fd, text.data() + at, text.size() - at);
      if (n <= 0) break;
      at += static_cast<std::size_t>(n);
    }
  }
  ~MemoryFile() { ::close(fd); }
  int fd;
};

// What a load without a family's tables keeps of the routes, per VRF: the tables' sizes and
// what the routes mark.
std::string kept(const Statum::EntityManager& em) {
  std::string out;
  for (const char* vrf : {"default", "red", "mgmt", "blue"}) {
    const auto v4 = layout::find(em, layout::fibRoute, vrf);
    if (!v4) continue;
    const auto hw = layout::find(em, layout::hwVrfStatus, vrf);
    out += std::string(vrf) + " " + std::to_string(v4->size()) + " " +
           std::to_string(layout::find(em, layout::fib6Route, vrf)->size()) + " " +
           std::to_string(hw->unprogrammedRouteCount()) + " " +
           std::to_string(hw->unprogrammedRoute6Count());
    for (const auto& e : {layout::kernelUnprogrammed, layout::kernelUnprogrammed6}) {
      for (const auto& entry : *layout::find(em, e, vrf))
        out += " " + entry.prefix.stringValue();
    }
    out += "\n";
  }
  return out;
}

// A large file is read on two threads, the second from half way: it guesses where a route
// starts and reads on from there, and the first takes what it read only when its own walk
// arrives at that very place in an array of that family. Started anywhere (in a string, a
// key, a number, another section, between arrays, past the end), the load is what one thread
// gives: the same tables and marks for a good document, and for a bad one never a load (the
// whole reading then refuses it with its own message). A part is taken wherever the second
// thread starts inside a table left out, so the taking is what these cases test.
TEST(LoadSections, ASecondThreadStartedAnywhereLoadsWhatOneThreadLoads) {
  std::string v4 = kV4, v6 = kV6;
  for (int i = 0; i < 6; ++i) {
    v4 += R"(, {"prefix": "10.)" + std::to_string(20 + i) +
          R"(.0.0/16", "type": "eBgp", "fec": "3"})";
    v6 += R"(, {"prefix": "2001:db8:)" + std::to_string(20 + i) + R"(::/48", "type": "bgp"})";
  }
  const std::string good = document(v4, v6);
  // An error in the last route of each family, and a prefix in the first route given again in
  // the last, so that only a scan of both parts meets both.
  std::vector<std::string> bad = {
      document(v4 + R"(, {"prefix": "10.30.0.1/16", "type": "eBgp"})", v6),
      document(v4, v6 + R"(, {"prefix": "2001:db8::/32", "type": "bgp"})"),
      document(v4 + R"(, {"prefix": "10.1.0.0/16", "type": "iBgp"})", v6),
      document(v4 + R"(, {"prefix": "10.31.0.0/16", "type": "eBgp", "metric": 1.5})", v6),
      document(v4, v6 + R"(, {"prefix": "2001:db8:40::/48", "type": "bgp", "x": 1})"),
  };
  const std::string example(Snapshot::embeddedExample());
  struct Case {
    std::string text;
    std::size_t step;
  };
  std::vector<Case> cases = {{good, 4}, {example, 127}};
  for (const std::string& text : bad)
    cases.push_back({text, 29});
  for (const Case& c : cases) {
    const std::string whole = refusal(unscanned(c.text), Sections::all());
    ASSERT_EQ(whole == "loaded", c.text == good || c.text == example) << whole;
    MemoryFile file(c.text);
    ASSERT_GE(file.fd, 0);
    for (const Sections s : kChoices) {
      if (s.isAll()) continue;
      // What the tables keep; empty when the window sends the file to the whole reading (a
      // table it did not prove), or the message when the rest of the document is refused.
      const auto outcome = [&](std::size_t at) -> std::string {
        try {
          const auto em = Snapshot::detail::loadStripped(
              file.fd, c.text.size(), s, [] { return true; }, at);
          return em ? kept(*em) : "";
        } catch (const Snapshot::LoadError& e) {
          return e.what();
        }
      };
      const std::string alone = outcome(0);
      if (whole == "loaded") {
        EXPECT_FALSE(alone.empty());
      } else {
        EXPECT_TRUE(alone.empty() || alone == whole) << alone;
      }
      std::size_t taken = 0, tried = 0;
      for (std::size_t at = 1; at <= c.text.size() + 2; at += c.step) {
        EXPECT_EQ(outcome(at), alone)
            << "from " << at << " ipv4 " << s.ipv4Routes << " in " << c.text.substr(0, 60);
        if (c.text == good && !s.ipv4Routes && !s.ipv6Routes) {
          Snapshot::loader::Loader loader;
          loader.sectionsIs(s);
          std::vector<char> doc;
          EXPECT_TRUE(loader.stripRoutes(file.fd, doc, c.text.size(), at));
          taken += loader.takenAhead() > 0;
          ++tried;
        }
      }
      // Started nearly anywhere in the routes of either family, a part is taken (not in the
      // last route of the last array, nor where the route found next is not after a comma).
      if (tried > 0) {
        EXPECT_GT(4 * taken * c.step, 3 * (v4.size() + v6.size())) << taken << " of " << tried;
      }
    }
  }
}

// The route arrays in the form the scan proves are built by it from the text; read by the
// loader route by route, the same arrays give the same tables.
TEST(LoadSections, TheScanBuildsTheTablesTheWholeReadingBuilds) {
  const std::string v4 = kV4 + R"(, {"prefix": "10.100.0.0/16", "type": "eBgp", "fec": "ip6:3"},
      {"prefix": "0.0.0.0/0", "type": "staticConfig", "fec": "nhg:2", "preference": 0})";
  const std::string v6 = kV6 + R"(, {"prefix": "::/0", "type": "staticConfig", "fec": "ip6:4"})";
  const std::string scanned = Snapshot::write(*Snapshot::load(document(v4, v6)));
  EXPECT_EQ(Snapshot::write(*Snapshot::load(unscanned(document(v4, v6)))), scanned);
  EXPECT_NE(scanned.find("10.100.0.0/16"), std::string::npos);
  EXPECT_NE(scanned.find("2001:db8:1::/48"), std::string::npos);
}

}  // namespace
