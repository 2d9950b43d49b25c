// The values every section reads: prefixes, addresses, interfaces, labels, references.

#include "snapshot/loader/Loader.h"

namespace Snapshot::loader {

Plexa::IpGenPrefix Loader::genPrefix(od::value& v) {
  // Both families are spelled apart by the colon, as the address types do.
  const std::string_view text = r_.string(v);
  if (text.find(':') != std::string_view::npos) {
    Plexa::Ip6AddrWithMask a;
    if (!Plexa::Ip6AddrWithMask::parse(text, a)) r_.fail("bad prefix " + quote(text));
    if (!(a.subnet().address() == a.address()))
      r_.fail(quote(text) + " has host bits set; the prefix is " + a.subnet().stringValue());
    return a.subnet();
  }
  Plexa::IpAddrWithMask a;
  if (!Plexa::IpAddrWithMask::parse(text, a)) r_.fail("bad prefix " + quote(text));
  if (!(a.subnet().address() == a.address()))
    r_.fail(quote(text) + " has host bits set; the prefix is " + a.subnet().stringValue());
  return a.subnet();
}

Plexa::IpGenAddr Loader::genAddress(od::value& v) {
  const std::string_view text = r_.string(v);
  Plexa::IpGenAddr a;
  if (text.empty() || !Plexa::IpGenAddr::parse(text, a)) r_.fail("bad IP address " + quote(text));
  return a;
}

Plexa::IntfId Loader::intf(od::value& v) {
  const std::string_view text = r_.string(v);
  if (!Plexa::IntfId::validName(text))
    r_.fail("bad interface name " + quote(text) + " (" + Plexa::IntfId::kNameRule + ")");
  return Plexa::IntfId(text);
}

Plexa::MplsLabel Loader::label(od::value& v) {
  const std::uint64_t n = r_.number(v, kU32Max);
  try {
    return Plexa::MplsLabel(std::uint32_t(n));
  } catch (const Mox::RangeException& e) {
    r_.fail(std::string(e.what()) + " (label " + std::to_string(n) + ")");
  }
}

Plexa::MplsLabelOperation Loader::labelOp(od::value& v) {
  const std::string_view text = r_.string(v);
  auto op = r_.guarded([&] { return Plexa::MplsLabelOperation::fromString(text); });
  // A push or swap of nothing is no operation at all, and no configuration line can say it.
  if (op.empty() && op.action() != Plexa::MplsLabelOperation::Action::none &&
      op.action() != Plexa::MplsLabelOperation::Action::pop)
    r_.fail("a push or swap takes at least one label: " + quote(text));
  return op;
}

Plexa::EthAddr Loader::mac(od::value& v) {
  const std::string_view text = r_.string(v);
  Plexa::EthAddr a;
  if (!Plexa::EthAddr::parse(text, a))
    r_.fail("bad MAC address " + quote(text) + " (expected 00:11:22:33:44:55)");
  return a;
}

Vxlan::VniOrNone Loader::vni(od::value& v) {
  const std::uint64_t n = r_.number(v, Vxlan::VniOrNone::kMax);
  return Vxlan::VniOrNone(std::uint32_t(n));
}

Brine::Fib::FecId Loader::fecRef(od::value& v) {
  const std::string_view text = r_.string(v);
  Brine::Fib::FecId id;
  if (const char* why = parseFecRef(text, id)) r_.fail("bad FEC " + quote(text) + ": " + why);
  return id;
}

Tunnel::TunnelTable::TunnelId Loader::tunnelRef(od::value& v) {
  const std::string_view text = r_.string(v);
  Tunnel::TunnelTable::TunnelId id;
  if (const char* why = parseTunnelRef(text, id)) r_.fail("bad tunnel " + quote(text) + ": " + why);
  return id;
}

L3::VrfName Loader::vrfName(std::string_view text) {
  L3::VrfName name = r_.guarded([&] { return L3::VrfName(text); });
  if (!L3::VrfName::validName(text))
    r_.fail("bad VRF name " + quote(text) + " (" + L3::VrfName::kNameRule + ")");
  return name;
}

}  // namespace Snapshot::loader
