// Route type names for front ends, from the route type tables.

#include "lib/registry/RouteTypeNames.h"

#include "lib/common/RouteTypes.h"
#include "platform/mox/Exception.h"

namespace Rova {

namespace {

template <class T>
RouteTypeNames namesOf(T type, const RouteTypeStrings& s) {
  RouteTypeNames n;
  n.name = std::string(routeTypeName(type));
  n.number = static_cast<unsigned>(type);
  n.code = s.code;
  n.word = s.word;
  n.hostCode = std::string(1, hcode(type));
  n.hostWord = hcodeWord(type);
  n.protocol = s.protocol;
  return n;
}

template <class Table>
std::vector<RouteTypeNames> all(const Table& table) {
  std::vector<RouteTypeNames> out;
  for (const auto& [type, strings] : table)
    out.push_back(namesOf(type, strings));
  return out;
}

void checkFamily(int family) {
  if (family != 4 && family != 6)
    throw Mox::RangeException("family " + std::to_string(family) + ": 4 or 6");
}

}  // namespace

std::vector<RouteTypeNames> routeTypes(int family) {
  checkFamily(family);
  return family == 4 ? all(routeTypeStrings4()) : all(routeTypeStrings6());
}

RouteTypeNames routeType(int family, std::string_view name) {
  for (RouteTypeNames& n : routeTypes(family)) {
    if (n.name == name) return std::move(n);
  }
  throw Mox::RangeException("no IPv" + std::to_string(family) + " route type " +
                            Mox::shownWord(name));
}

RouteTypeNames routeType(int family, unsigned number) {
  for (RouteTypeNames& n : routeTypes(family)) {
    if (n.number == number) return std::move(n);
  }
  throw Mox::RangeException("no IPv" + std::to_string(family) + " route type numbered " +
                            std::to_string(number));
}

// The table's own lookup takes a C string and asserts on a word it does not know: a script's
// word is input, so it is checked here first, by the same rule (a non-empty word that begins
// the given one), and refused as a bad value.
std::string protocolCodeOfWord(std::string_view word) {
  for (const auto& [type, s] : routeTypeStrings4()) {
    const std::string_view w = s.word;
    if (!w.empty() && word.substr(0, w.size()) == w)
      return Rova_protocolCodeWordToCode(std::string(word).c_str());
  }
  throw Mox::RangeException("no route type's word begins " + Mox::shownWord(word));
}

}  // namespace Rova
