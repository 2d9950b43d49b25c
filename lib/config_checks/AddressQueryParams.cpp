#include "lib/config_checks/AddressQueryParams.h"

#include <new>
#include <utility>

#include "platform/mox/Exception.h"

namespace Rova {

AddressQueryParams::AddressQueryParams(Mox::Ptr<Ip::Config const> ipConfig, Mox::String8 intfName,
                                       Mox::String8 mgmtPrefix, AddrMatchType primaryMatch,
                                       AddrMatchType secondaryMatch,
                                       Plexa::IpAddrWithMask addrWithMask)
    : ipConfig_(std::move(ipConfig)),
      intfName_(std::move(intfName)),
      mgmtPrefix_(std::move(mgmtPrefix)),
      primaryMatch_(primaryMatch),
      secondaryMatch_(secondaryMatch),
      addrWithMask_(addrWithMask) {}

Mox::Ptr<AddressQueryParams> addressQueryParamsFactory(
    Mox::Ptr<Ip::Config const> ipConfig, Mox::String8 intfName, Mox::String8 mgmtPrefix,
    AddrMatchType primaryMatch, AddrMatchType secondaryMatch, Plexa::IpAddrWithMask addrWithMask) {
  // The front end only ever sees a valid handle: running out of memory becomes the framework's
  // range error instead of a null object the script would trip over later.
  Mox::Ptr<AddressQueryParams> p(new (std::nothrow) AddressQueryParams(
      std::move(ipConfig), std::move(intfName), std::move(mgmtPrefix), primaryMatch, secondaryMatch,
      addrWithMask));
  if (!p) throw Mox::RangeException("null ValidPtr");
  return p;
}

}  // namespace Rova
