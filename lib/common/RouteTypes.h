#pragma once
// Route type codes, words and legends: what each route type shows in the codes column of text
// output, the word JSON shows instead, the protocol code a listing's protocol filter matches,
// and the key the route summary counts it under. Constant data and pure functions.

#include <map>

#include "platform/brine/Fib.h"
#include "platform/brine/RouteType.h"
#include "platform/mox/String8.h"

namespace Rova {

struct RouteTypeStrings {
  const char* code;        // codes column of text output ("O IA")
  const char* word;        // the same in JSON output ("ospfInterArea")
  const char* protocol;    // what a protocol filter is compared with ("O")
  const char* summaryKey;  // the route summary's count key ("ospfInterArea")
};

// The two tables, ordered by the numeric route type.
const std::map<Routing::Fib::RouteType, RouteTypeStrings>& routeTypeStrings4();
const std::map<Routing6::Fib::RouteType, RouteTypeStrings>& routeTypeStrings6();

// Exact lookup; a type without an entry is a broken invariant.
const RouteTypeStrings& routeTypeStringsLookup(Routing::Fib::RouteType t);
const RouteTypeStrings& routeTypeStringsLookup(Routing6::Fib::RouteType t);

inline const char* pcode(Routing::Fib::RouteType t) {
  return routeTypeStringsLookup(t).code;
}
inline const char* pcode(Routing6::Fib::RouteType t) {
  return routeTypeStringsLookup(t).code;
}
inline const char* pcodeAsWord(Routing::Fib::RouteType t) {
  return routeTypeStringsLookup(t).word;
}
inline const char* pcodeAsWord(Routing6::Fib::RouteType t) {
  return routeTypeStringsLookup(t).word;
}

// The host listing's one-letter code and its JSON word.
char hcode(Routing::Fib::RouteType t);
char hcode(Routing6::Fib::RouteType t);
const char* hcodeWord(Routing::Fib::RouteType t);
const char* hcodeWord(Routing6::Fib::RouteType t);

// The RIB route types of the static route dump.
const char* ribRouteTypeCode(Routing::RouteType t);
const char* ribRouteType(Routing::RouteType t);

// True when the filter is empty or equals the protocol code of the route's type.
bool protocolMatch(const Brine::Fib::Route& route, const Mox::String8& protocol);
bool protocolMatch(const Brine::Fib6::Route& route, const Mox::String8& protocol);

// Per-family predicates, by enumerator: the two enumerations number their types differently,
// and the receive class is the router's own addresses (with IPv4's broadcast kinds).
constexpr bool isInvalid(Routing::Fib::RouteType t) {
  return t == Routing::Fib::RouteType::invalid;
}
constexpr bool isReceive(Routing::Fib::RouteType t) {
  using T = Routing::Fib::RouteType;
  return t == T::receive || t == T::receiveLoopback || t == T::broadcast || t == T::directedBcast;
}
// The host listing's to-CPU routes: the router's own addresses and the subnet broadcast. A
// directed broadcast is forwarded out of its subnet's interface, not taken by the CPU.
constexpr bool isHostToCpu(Routing::Fib::RouteType t) {
  using T = Routing::Fib::RouteType;
  return t == T::receive || t == T::receiveLoopback || t == T::broadcast;
}
constexpr bool isAttached(Routing::Fib::RouteType t) {
  return t == Routing::Fib::RouteType::attached;
}
constexpr bool isNexthopGroup(Routing::Fib::RouteType t) {
  return t == Routing::Fib::RouteType::nexthopGroupStaticRoute;
}
constexpr bool isMartian(Routing::Fib::RouteType t) {
  return t == Routing::Fib::RouteType::martian;
}

constexpr bool isInvalid(Routing6::Fib::RouteType t) {
  return t == Routing6::Fib::RouteType::invalid;
}
constexpr bool isReceive(Routing6::Fib::RouteType t) {
  using T = Routing6::Fib::RouteType;
  return t == T::receive || t == T::receiveLoopback;
}
constexpr bool isHostToCpu(Routing6::Fib::RouteType t) {
  return isReceive(t);
}
constexpr bool isAttached(Routing6::Fib::RouteType t) {
  return t == Routing6::Fib::RouteType::attached;
}
constexpr bool isNexthopGroup(Routing6::Fib::RouteType t) {
  return t == Routing6::Fib::RouteType::nexthopGroupStaticRoute;
}
constexpr bool isMartian(Routing6::Fib::RouteType t) {
  return t == Routing6::Fib::RouteType::martian;
}

// The legends printed before a listing.
extern const char* const kRouteLegend4;
extern const char* const kRouteLegend6;
extern const char* const kHostLegend4;
extern const char* const kHostLegend6;
extern const char* const kRibLegend;

}  // namespace Rova

// Maps a word to the code of the first IPv4 route type whose (non-empty) word begins it.
const char* Rova_protocolCodeWordToCode(const char* word);
