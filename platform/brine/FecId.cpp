#include "platform/brine/FecId.h"

#include <charconv>

#include "platform/mox/Exception.h"

namespace Brine::Fib {

FecId FecId::fromString(std::string_view text) {
  std::uint64_t v = 0;
  auto r = std::from_chars(text.data(), text.data() + text.size(), v);
  if (text.empty() || r.ec != std::errc() || r.ptr != text.data() + text.size()) {
    throw Mox::RangeException("invalid FEC id '" + std::string(text) + "'");
  }
  return FecId(v);
}

Brine::Fib::AdjType FecId::adjType() const {
  MOX_ASSERT((value_ >> Fib::adjTypePos()) < Fib::adjTypeMax());
  return static_cast<AdjType>(value_ >> adjTypePos());
}

bool isV6FecId(FecId fecId) {
  return fecId.adjType() == AdjType::ip6Adj;
}

bool isNexthopGroupFec(FecId fecId) {
  return fecId.adjType() == AdjType::nexthopGroupAdj;
}

bool isSrTePolicyFec(FecId fecId) {
  return fecId.adjType() == AdjType::srTePolicyAdj;
}

std::uint64_t nexthopGroupIdFromFec(FecId fecId) {
  return fecId.value() & adjIndexMask();
}

}  // namespace Brine::Fib

#include "platform/brine/Fib.h"

namespace Brine {

ViaIndex ViaIndex::fromString(std::string_view text) {
  std::uint32_t v = 0;
  auto r = std::from_chars(text.data(), text.data() + text.size(), v);
  if (text.empty() || r.ec != std::errc() || r.ptr != text.data() + text.size()) {
    throw Mox::RangeException("invalid via index '" + std::string(text) + "'");
  }
  return ViaIndex(v);
}

}  // namespace Brine
