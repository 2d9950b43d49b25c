#include "lib/config_checks/AddressQueryResult.h"

#include <iterator>

namespace Rova {

namespace {
const char* const kNames[] = {"allowNoMatch", "allowExactMatch", "allowAddressMatch"};
}

const char* moxEnumName(AddrMatchType t) {
  const auto i = static_cast<std::size_t>(t);
  return i < std::size(kNames) ? kNames[i] : "";
}

bool moxEnumFromName(std::string_view name, AddrMatchType& out) {
  for (std::size_t i = 0; i < std::size(kNames); ++i) {
    if (name == kNames[i]) {
      out = static_cast<AddrMatchType>(i);
      return true;
    }
  }
  return false;
}

}  // namespace Rova
