#pragma once
// The key that orders saved static routes: by address, then the shorter mask first, then the
// lower preference. The address family takes no part, because one saver only ever sees the
// routes of one family and the 16 address bytes already order IPv4 addresses numerically.

#include "platform/mox/Attribute.h"
#include "platform/plexa/Prefix.h"
#include "platform/state/RoutingConfig.h"

namespace Rova {

#define ROVA_ROUTE_SORT_KEY_ATTRS(F, C)                           \
  F(prefix, Prefix, Plexa::IpGenPrefix, Mox::AttrKind::value, {}) \
  F(preference, Preference, Routing::RoutePreference, Mox::AttrKind::value, {})

class RouteSortKey {
  MOX_VALUE_TYPE(RouteSortKey, "Rova::RouteSortKey", ROVA_ROUTE_SORT_KEY_ATTRS)

 public:
  RouteSortKey() = default;
  RouteSortKey(const Plexa::IpGenPrefix& prefix, Routing::RoutePreference preference)
      : prefix_(prefix), preference_(preference) {}

  friend bool operator<(const RouteSortKey& a, const RouteSortKey& b) {
    // The address field read as an IPv6 address, whatever the family.
    const auto byAddress =
        Plexa::Ip6Addr(a.prefix_.address().bytes()) <=> Plexa::Ip6Addr(b.prefix_.address().bytes());
    if (byAddress != 0) return byAddress < 0;
    if (a.prefix_.len() != b.prefix_.len()) return a.prefix_.len() < b.prefix_.len();
    return a.preference_ < b.preference_;
  }
  // == sees the family and < does not, so <= and >= name both rather than negate <; each
  // comparison then mirrors its partner (a > b exactly when b < a).
  friend bool operator<=(const RouteSortKey& a, const RouteSortKey& b) { return a < b || a == b; }
  friend bool operator>(const RouteSortKey& a, const RouteSortKey& b) { return b < a; }
  friend bool operator>=(const RouteSortKey& a, const RouteSortKey& b) { return b <= a; }
};

}  // namespace Rova
