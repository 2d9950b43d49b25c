#include "lib/route_listing/CachedFec.h"

#include <cstdio>

namespace Rova {

Tunnel::TunnelTable::TunnelId CachedVia::tunnelId() const {
  if (!Plexa::DynamicTunnelIntfId::isDynamicTunnelIntfId(intfId_)) return {};
  return Tunnel::TunnelTable::TunnelId(Plexa::DynamicTunnelIntfId::tunnelId(intfId_));
}

void CachedVia::tunnelIdIs(Tunnel::TunnelTable::TunnelId tunnelId) {
  if (tunnelId.isZero()) return;
  char name[48];
  std::snprintf(name, sizeof name, "DynamicTunnel%u.%u", unsigned(tunnelId.value() >> 23),
                unsigned(tunnelId.value() & 0x7fffff));
  intfId_ = Plexa::IntfId(name);
}

bool operator<(const CachedVia& a, const CachedVia& b) {
  if (a.isBackup_ != b.isBackup_) return !a.isBackup_;
  if (a.intfId_ != b.intfId_) return a.intfId_ < b.intfId_;
  return a.hop_ < b.hop_;
}

Mox::Ptr<CachedFec> cachedFecFactory(Brine::Fib::FecId fecId) {
  return Mox::makePtr<CachedFec>(fecId);
}

}  // namespace Rova
