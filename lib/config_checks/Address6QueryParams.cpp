#include "lib/config_checks/Address6QueryParams.h"

#include <new>
#include <utility>

#include "platform/mox/Exception.h"

namespace Rova {

Address6QueryParams::Address6QueryParams(Mox::Ptr<Ip6::Config const> ip6Config,
                                         Mox::String8 intfName, Mox::String8 mgmtPrefix,
                                         Plexa::Ip6AddrWithMask addrWithMask)
    : ip6Config_(std::move(ip6Config)),
      intfName_(std::move(intfName)),
      mgmtPrefix_(std::move(mgmtPrefix)),
      addrWithMask_(addrWithMask) {}

Mox::Ptr<Address6QueryParams> address6QueryParamsFactory(Mox::Ptr<Ip6::Config const> ip6Config,
                                                         Mox::String8 intfName,
                                                         Mox::String8 mgmtPrefix,
                                                         Plexa::Ip6AddrWithMask addrWithMask) {
  // As for IPv4: a failed allocation is a range error, never a null handle.
  Mox::Ptr<Address6QueryParams> p(new (std::nothrow) Address6QueryParams(
      std::move(ip6Config), std::move(intfName), std::move(mgmtPrefix), addrWithMask));
  if (!p) throw Mox::RangeException("null ValidPtr");
  return p;
}

}  // namespace Rova
