#pragma once
// The route types' names for front ends that show routes themselves (a script's own table):
// per family, each type's enumerator name (the state document's word), the codes column of
// text output, the word JSON shows, the host listing's code, and the protocol code a filter
// compares with; and a protocol word turned into its code.

#include <string>
#include <string_view>
#include <vector>

namespace Rova {

struct RouteTypeNames {
  std::string name;      // "eBgp": the enumerator, as the state document writes it
  unsigned number = 0;   // its number in its family's table
  std::string code;      // "B E"
  std::string word;      // "eBGP"
  std::string hostCode;  // "F": the host listing's one-letter code
  std::string hostWord;  // "FIB"
  std::string protocol;  // "B": what a protocol filter is compared with
};

// Every route type of the family (4 or 6), in number order. A family other than 4 or 6 is a
// Mox::RangeException.
std::vector<RouteTypeNames> routeTypes(int family);
// One route type by its enumerator name or its number; an unknown one is a
// Mox::RangeException naming it.
RouteTypeNames routeType(int family, std::string_view name);
RouteTypeNames routeType(int family, unsigned number);

// The code of the first IPv4 route type whose JSON word begins `word` ("ospfExternalType2" ->
// "O E2", "eBGP" -> "B E"). A word no type's word begins is refused (Mox::RangeException).
std::string protocolCodeOfWord(std::string_view word);

}  // namespace Rova
