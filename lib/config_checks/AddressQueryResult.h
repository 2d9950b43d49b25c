#pragma once
// The answer of an address check, and how an equal address on the interface being configured
// is judged.

#include <cstdint>
#include <string_view>

#include "platform/mox/Attribute.h"
#include "platform/mox/String8.h"

namespace Rova {

enum class AddrMatchType : std::uint32_t {
  allowNoMatch = 0,       // any equal address is a conflict
  allowExactMatch = 1,    // an equal address conflicts only when its mask length differs
  allowAddressMatch = 2,  // an equal address never conflicts
};

constexpr const char* moxEnumTypeName(AddrMatchType) {
  return "Rova::AddrMatchType";
}
const char* moxEnumName(AddrMatchType t);
bool moxEnumFromName(std::string_view name, AddrMatchType& out);

#define ROVA_ADDRESS_QUERY_RESULT_ATTRS(F, C)                    \
  F(acceptable, Acceptable, bool, Mox::AttrKind::value, {false}) \
  F(msg, Msg, Mox::String8, Mox::AttrKind::value, {})

class AddressQueryResult {
  MOX_VALUE_TYPE(AddressQueryResult, "Rova::AddressQueryResult", ROVA_ADDRESS_QUERY_RESULT_ATTRS)
};

}  // namespace Rova
