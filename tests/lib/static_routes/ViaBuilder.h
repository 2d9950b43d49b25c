#pragma once
// A static route's via from its gateway and interface, as the tests of this folder write them:
// "" leaves either out.

#include "platform/plexa/IntfId.h"
#include "platform/plexa/IpAddr.h"
#include "platform/state/RoutingConfig.h"

namespace StaticRoutesTest {

inline Routing::Via via(const char* hop, const char* intf = "") {
  Routing::Via v;
  if (*hop) v.hopIs(Plexa::IpGenAddr::fromString(hop));
  v.intfIdIs(Plexa::IntfId(intf));
  return v;
}

}  // namespace StaticRoutesTest
