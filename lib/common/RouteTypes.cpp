#include "lib/common/RouteTypes.h"

#include <array>
#include <cstring>

#include "platform/mox/Exception.h"

namespace Rova {

namespace {

using T4 = Routing::Fib::RouteType;
using T6 = Routing6::Fib::RouteType;

// The words are the command's published JSON vocabulary; their irregularities ("OSPF" beside
// "ospfInterArea", "ISISLevel1") are part of it and stay as they are.
const std::map<T4, RouteTypeStrings> kTable4 = {
    {T4(0), {"", "", "", ""}},
    {T4(1), {"C", "connected", "C", "internal"}},
    {T4(2), {"C", "connected", "C", "internal"}},
    {T4(3), {"C", "connected", "C", "internal"}},
    {T4(4), {"C", "connected", "C", "internal"}},
    {T4(5), {"", "", "", "attached"}},
    {T4(7), {"S", "static", "S", "static"}},
    {T4(8), {"V", "vcs", "V", "vcs"}},
    {T4(9), {"K", "kernel", "K", "internal"}},
    {T4(10), {"R", "RIP", "R", "rip"}},
    {T4(11), {"C", "connected", "C", "connected"}},
    {T4(12), {"", "", "", ""}},
    {T4(13), {"A B", "bgpAggregate", "A", "aggregate"}},
    {T4(14), {"A O", "ospfSummary", "A", "aggregate"}},
    {T4(15), {"O", "OSPF", "O", "ospfIntraArea"}},
    {T4(16), {"O IA", "ospfInterArea", "O", "ospfInterArea"}},
    {T4(17), {"O E1", "ospfExternalType1", "O", "ospfExternal1"}},
    {T4(18), {"O E2", "ospfExternalType2", "O", "ospfExternal2"}},
    {T4(19), {"O N1", "ospfNssaExternalType1", "O", "nssaExternal1"}},
    {T4(20), {"O N2", "ospfNssaExternalType2", "O", "nssaExternal2"}},
    {T4(21), {"B I", "iBGP", "B", "bgpInternal"}},
    {T4(22), {"B E", "eBGP", "B", "bgpExternal"}},
    {T4(23), {"I L1", "ISISLevel1", "I", "isisLevel1"}},
    {T4(24), {"I L2", "ISISLevel2", "I", "isisLevel2"}},
    {T4(25), {"NG", "nexthopGroupStaticRoute", "S", "staticNexthopGroup"}},
    {T4(26), {"S", "dropRoute", "S", "internal"}},
    {T4(27), {"O3", "OSPFv3", "O3", "ospfv3Total"}},
    {T4(28), {"DH", "dhcp", "DH", "DhcpDefaultRoute"}},
    {T4(29), {"M", "martian", "M", "internal"}},
    {T4(31), {"", "", "", ""}},
};

// IPv6 has one OSPFv3 and one BGP row, its own IS-IS words, RIP without a summary key, and
// DHCP counted under "dhcp"; kept as they are.
const std::map<T6, RouteTypeStrings> kTable6 = {
    {T6(0), {"", "", "", ""}},
    {T6(1), {"C", "connected", "C", "internal"}},
    {T6(2), {"C", "connected", "C", "internal"}},
    {T6(3), {"", "", "", "attached"}},
    {T6(4), {"S", "static", "S", "static"}},
    {T6(5), {"K", "kernel", "K", "internal"}},
    {T6(6), {"R", "RIP", "R", ""}},
    {T6(7), {"C", "connected", "C", "connected"}},
    {T6(8), {"", "", "", ""}},
    {T6(9), {"A B", "bgpAggregate", "A", "aggregate"}},
    {T6(10), {"A O", "ospfSummary", "A", "aggregate"}},
    {T6(11), {"O3", "ospf", "O3", "ospfTotal"}},
    {T6(12), {"B", "bgp", "B", "bgpTotal"}},
    {T6(13), {"I L1", "isisL1", "I", "isisLevel1"}},
    {T6(14), {"I L2", "isisL2", "I", "isisLevel2"}},
    {T6(15), {"NG", "nexthopGroupStaticRoute", "S", "staticNexthopGroup"}},
    {T6(16), {"S", "dropRoute", "S", "internal"}},
    {T6(17), {"DH", "dhcp", "DH", "dhcp"}},
    {T6(18), {"M", "martian", "M", "internal"}},
    {T6(20), {"", "", "", ""}},
};

// Every route printed looks its type up a few times: an array indexed by the type number
// answers without a tree descent. It points into the ordered table, which stays the data.
template <class Map>
std::array<const RouteTypeStrings*, 32> indexOf(const Map& table) {
  std::array<const RouteTypeStrings*, 32> index{};
  for (const auto& [type, strings] : table)
    index[std::size_t(type)] = &strings;
  return index;
}

template <class Key>
const RouteTypeStrings& lookup(const std::array<const RouteTypeStrings*, 32>& index, Key t) {
  const auto i = static_cast<std::uint32_t>(t);
  if (i >= index.size() || !index[i]) MOX_ASSERT(0 && "unexpected RouteType");
  return *index[i];
}

const auto kIndex4 = indexOf(kTable4);
const auto kIndex6 = indexOf(kTable6);

}  // namespace

const std::map<T4, RouteTypeStrings>& routeTypeStrings4() {
  return kTable4;
}
const std::map<T6, RouteTypeStrings>& routeTypeStrings6() {
  return kTable6;
}

const RouteTypeStrings& routeTypeStringsLookup(T4 t) {
  return lookup(kIndex4, t);
}
const RouteTypeStrings& routeTypeStringsLookup(T6 t) {
  return lookup(kIndex6, t);
}

char hcode(T4 t) {
  switch (std::uint32_t(t)) {
    case 0:
      return '-';
    case 1:
    case 2:
      return 'R';
    case 3:
      return 'B';
    case 4:
      return 'D';
    case 5:
      return 'A';
    case 11:
      return 'R';  // connected shows as R in text but is "FIB" in JSON
    default:
      return 'F';
  }
}

const char* hcodeWord(T4 t) {
  switch (std::uint32_t(t)) {
    case 0:
      return "-";
    case 1:
    case 2:
      return "receive";
    case 3:
      return "broadcast";
    case 4:
      return "directedBcast";
    case 5:
      return "attached";
    default:
      return "FIB";
  }
}

char hcode(T6 t) {
  switch (std::uint32_t(t)) {
    case 0:
      return '-';
    case 1:
    case 2:
      return 'R';
    case 3:
      return 'A';
    case 7:
      return 'R';
    default:
      return 'F';
  }
}

const char* hcodeWord(T6 t) {
  switch (std::uint32_t(t)) {
    case 0:
      return "-";
    case 1:
    case 2:
      return "receive";
    case 3:
      return "attached";
    default:
      return "FIB";
  }
}

const char* ribRouteTypeCode(Routing::RouteType t) {
  switch (t) {
    case Routing::RouteType::forward:
      return "F";
    case Routing::RouteType::drop:
      return "D";
    case Routing::RouteType::nexthopGroup:
      return "NG";
  }
  MOX_ASSERT(0 && "Invalid Routing::RouteType argument");
  return "";
}

const char* ribRouteType(Routing::RouteType t) {
  switch (t) {
    case Routing::RouteType::forward:
      return "forward";
    case Routing::RouteType::drop:
      return "drop";
    case Routing::RouteType::nexthopGroup:
      return "nexthopGroup";
  }
  MOX_ASSERT(0 && "Invalid Routing::RouteType argument");
  return "";
}

bool protocolMatch(const Brine::Fib::Route& route, const Mox::String8& protocol) {
  return protocol.empty() || protocol == routeTypeStringsLookup(route.routeType).protocol;
}

bool protocolMatch(const Brine::Fib6::Route& route, const Mox::String8& protocol) {
  return protocol.empty() || protocol == routeTypeStringsLookup(route.routeType).protocol;
}

const char* const kRouteLegend4 =
    "Codes: C - connected, S - static, K - kernel, \n"
    "       O - OSPF, IA - OSPF inter area, E1 - OSPF external type 1,\n"
    "       E2 - OSPF external type 2, N1 - OSPF NSSA external type 1,\n"
    "       N2 - OSPF NSSA external type2, B I - iBGP, B E - eBGP,\n"
    "       R - RIP, I L1 - IS-IS level 1, I L2 - IS-IS level 2,\n"
    "       O3 - OSPFv3, A B - BGP Aggregate, A O - OSPF Summary,\n"
    "       NG - Nexthop Group Static Route, V - VXLAN Control Service,\n"
    "       DH - DHCP client installed default route, M - Martian\n";

const char* const kRouteLegend6 =
    "Codes: C - connected, S - static, K - kernel, O3 - OSPFv3,"
    " B - BGP, R - RIP, A B - BGP Aggregate,"
    " I L1 - IS-IS level 1, I L2 - IS-IS level 2, DH - DHCP,"
    " NG - Nexthop Group Static Route, M - Martian"
    "\n";

const char* const kHostLegend4 =
    "R - receive, B - broadcast, F - FIB, A - attached, "
    "D - directed broadcast\n";

const char* const kHostLegend6 = "R - receive, F - FIB, A - attached\n";

const char* const kRibLegend = "Codes: F - forward, D - drop, NG - nexthop group\n";

}  // namespace Rova

const char* Rova_protocolCodeWordToCode(const char* word) {
  // First match in type order, by prefix: "OSPFv3" is claimed by the intra-area row "OSPF".
  for (const auto& [type, s] : Rova::routeTypeStrings4()) {
    const std::size_t n = std::strlen(s.word);
    if (n == 0) continue;
    if (std::strncmp(word, s.word, n) == 0) return s.code;
  }
  MOX_ASSERT(0 && "Invalid string");
  return "";
}
