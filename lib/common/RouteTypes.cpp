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
    {T4::invalid, {"", "", "", ""}},
    {T4::receive, {"C", "connected", "C", "internal"}},
    {T4::receiveLoopback, {"C", "connected", "C", "internal"}},
    {T4::broadcast, {"C", "connected", "C", "internal"}},
    {T4::directedBcast, {"C", "connected", "C", "internal"}},
    {T4::attached, {"", "", "", "attached"}},
    {T4::staticConfig, {"S", "static", "S", "static"}},
    {T4::vcs, {"V", "vcs", "V", "vcs"}},
    {T4::kernel, {"K", "kernel", "K", "internal"}},
    {T4::rip, {"R", "RIP", "R", "rip"}},
    {T4::connected, {"C", "connected", "C", "connected"}},
    {T4::reserved, {"", "", "", ""}},
    {T4::bgpAggregate, {"A B", "bgpAggregate", "A", "aggregate"}},
    {T4::ospfSummary, {"A O", "ospfSummary", "A", "aggregate"}},
    {T4::ospfIntraArea, {"O", "OSPF", "O", "ospfIntraArea"}},
    {T4::ospfInterArea, {"O IA", "ospfInterArea", "O", "ospfInterArea"}},
    {T4::ospfExternalType1, {"O E1", "ospfExternalType1", "O", "ospfExternal1"}},
    {T4::ospfExternalType2, {"O E2", "ospfExternalType2", "O", "ospfExternal2"}},
    {T4::ospfNssaExternalType1, {"O N1", "ospfNssaExternalType1", "O", "nssaExternal1"}},
    {T4::ospfNssaExternalType2, {"O N2", "ospfNssaExternalType2", "O", "nssaExternal2"}},
    {T4::iBgp, {"B I", "iBGP", "B", "bgpInternal"}},
    {T4::eBgp, {"B E", "eBGP", "B", "bgpExternal"}},
    {T4::isisLevel1, {"I L1", "ISISLevel1", "I", "isisLevel1"}},
    {T4::isisLevel2, {"I L2", "ISISLevel2", "I", "isisLevel2"}},
    {T4::nexthopGroupStaticRoute, {"NG", "nexthopGroupStaticRoute", "S", "staticNexthopGroup"}},
    {T4::dropRoute, {"S", "dropRoute", "S", "internal"}},
    {T4::ospfv3, {"O3", "OSPFv3", "O3", "ospfv3Total"}},
    {T4::dhcp, {"DH", "dhcp", "DH", "DhcpDefaultRoute"}},
    {T4::martian, {"M", "martian", "M", "internal"}},
    {T4::unknown, {"", "", "", ""}},
};

// IPv6 has one OSPFv3 and one BGP row, its own IS-IS words, RIP without a summary key, and
// DHCP counted under "dhcp"; kept as they are.
const std::map<T6, RouteTypeStrings> kTable6 = {
    {T6::invalid, {"", "", "", ""}},
    {T6::receive, {"C", "connected", "C", "internal"}},
    {T6::receiveLoopback, {"C", "connected", "C", "internal"}},
    {T6::attached, {"", "", "", "attached"}},
    {T6::staticConfig, {"S", "static", "S", "static"}},
    {T6::kernel, {"K", "kernel", "K", "internal"}},
    {T6::rip, {"R", "RIP", "R", ""}},
    {T6::connected, {"C", "connected", "C", "connected"}},
    {T6::reserved, {"", "", "", ""}},
    {T6::bgpAggregate, {"A B", "bgpAggregate", "A", "aggregate"}},
    {T6::ospfSummary, {"A O", "ospfSummary", "A", "aggregate"}},
    {T6::ospf3, {"O3", "ospf", "O3", "ospfTotal"}},
    {T6::bgp, {"B", "bgp", "B", "bgpTotal"}},
    {T6::isisLevel1, {"I L1", "isisL1", "I", "isisLevel1"}},
    {T6::isisLevel2, {"I L2", "isisL2", "I", "isisLevel2"}},
    {T6::nexthopGroupStaticRoute, {"NG", "nexthopGroupStaticRoute", "S", "staticNexthopGroup"}},
    {T6::dropRoute, {"S", "dropRoute", "S", "internal"}},
    {T6::dhcp, {"DH", "dhcp", "DH", "dhcp"}},
    {T6::martian, {"M", "martian", "M", "internal"}},
    {T6::unknown, {"", "", "", ""}},
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
  switch (t) {
    case T4::invalid:
      return '-';
    case T4::receive:
    case T4::receiveLoopback:
      return 'R';
    case T4::broadcast:
      return 'B';
    case T4::directedBcast:
      return 'D';
    case T4::attached:
      return 'A';
    case T4::connected:
      return 'R';  // connected shows as R in text but is "FIB" in JSON
    default:
      return 'F';
  }
}

const char* hcodeWord(T4 t) {
  switch (t) {
    case T4::invalid:
      return "-";
    case T4::receive:
    case T4::receiveLoopback:
      return "receive";
    case T4::broadcast:
      return "broadcast";
    case T4::directedBcast:
      return "directedBcast";
    case T4::attached:
      return "attached";
    default:
      return "FIB";
  }
}

char hcode(T6 t) {
  switch (t) {
    case T6::invalid:
      return '-';
    case T6::receive:
    case T6::receiveLoopback:
      return 'R';
    case T6::attached:
      return 'A';
    case T6::connected:
      return 'R';
    default:
      return 'F';
  }
}

const char* hcodeWord(T6 t) {
  switch (t) {
    case T6::invalid:
      return "-";
    case T6::receive:
    case T6::receiveLoopback:
      return "receive";
    case T6::attached:
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
