#include "snapshot/Refs.h"

#include <charconv>

#include "platform/brine/Tunnel.h"

namespace Snapshot {

namespace {

using Brine::Fib::AdjType;
using Tunnel::TunnelTable::TunnelType;

struct FecKind {
  std::string_view word;
  AdjType type;
};
constexpr FecKind kFecKinds[] = {
    {"ip6", AdjType::ip6Adj},          {"mpls", AdjType::mplsAdj},
    {"nhg", AdjType::nexthopGroupAdj}, {"attached", AdjType::attachedAdj},
    {"tunnel", AdjType::tunnelAdj},    {"srte", AdjType::srTePolicyAdj},
};

struct TunnelKind {
  std::string_view word;
  TunnelType type;
};
constexpr TunnelKind kTunnelKinds[] = {
    {"static", TunnelType::staticTunnel},
    {"ldp", TunnelType::ldpTunnel},
    {"sr", TunnelType::srTunnel},
    {"bgpLu", TunnelType::bgpLuTunnel},
    {"srTePolicy", TunnelType::srTePolicyTunnel},
};

// A decimal number without sign or leading zeros, at most `max`.
bool decimal(std::string_view s, std::uint64_t max, std::uint64_t& out) {
  if (s.empty() || (s.size() > 1 && s[0] == '0')) return false;
  auto r = std::from_chars(s.data(), s.data() + s.size(), out);
  return r.ec == std::errc() && r.ptr == s.data() + s.size() && out <= max;
}

}  // namespace

const char* parseFecRef(std::string_view text, Brine::Fib::FecId& out) {
  const auto colon = text.find(':');
  std::uint64_t n;
  if (colon == std::string_view::npos) {
    if (!decimal(text, Brine::Fib::adjIndexMask(), n))
      return "a FEC is written \"<n>\" or \"<kind>:<n>\" with n a whole number below 2^56";
    if (n == 0) return "FEC 0 means no FEC: leave the key out instead";
    out = Brine::Fib::FecId(AdjType::ipAdj, n);
    return nullptr;
  }
  const std::string_view word = text.substr(0, colon);
  for (const FecKind& k : kFecKinds) {
    if (word != k.word) continue;
    if (!decimal(text.substr(colon + 1), Brine::Fib::adjIndexMask(), n))
      return "the index after the FEC kind must be a whole number below 2^56";
    out = Brine::Fib::FecId(k.type, n);
    return nullptr;
  }
  return "unknown FEC kind (expected ip6, mpls, nhg, attached, tunnel or srte)";
}

char* writeFecRef(Brine::Fib::FecId id, char* out) {
  const auto type = static_cast<AdjType>(id.value() >> Brine::Fib::adjTypePos());
  for (const FecKind& k : kFecKinds) {
    if (k.type == type) {
      for (char c : k.word)
        *out++ = c;
      *out++ = ':';
    }
  }
  return std::to_chars(out, out + 20, id.index()).ptr;
}

std::string fecRefText(Brine::Fib::FecId id) {
  char buf[32];
  return std::string(buf, writeFecRef(id, buf));
}

const char* parseTunnelRef(std::string_view text, Tunnel::TunnelTable::TunnelId& out) {
  const auto colon = text.find(':');
  if (colon == std::string_view::npos)
    return "a tunnel is written \"<type>:<index>\", for example \"ldp:1\"";
  const std::string_view word = text.substr(0, colon);
  for (const TunnelKind& k : kTunnelKinds) {
    if (word != k.word) continue;
    std::uint64_t n;
    if (!decimal(text.substr(colon + 1), Tunnel::TunnelTable::TunnelId::kIndexMask, n))
      return "the tunnel index must be a whole number below 8388608";
    out = Tunnel::TunnelTable::TunnelId(static_cast<std::uint64_t>(k.type), n);
    return nullptr;
  }
  return "unknown tunnel type (expected static, ldp, sr, bgpLu or srTePolicy)";
}

std::string tunnelRefText(Tunnel::TunnelTable::TunnelId id) {
  for (const TunnelKind& k : kTunnelKinds) {
    if (static_cast<std::uint64_t>(k.type) == id.tunnelType())
      return std::string(k.word) + ":" + std::to_string(id.tunnelIndex());
  }
  return std::to_string(id.tunnelType()) + ":" + std::to_string(id.tunnelIndex());
}

}  // namespace Snapshot
