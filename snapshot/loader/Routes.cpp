// The VRFs and their routes and FECs, both families by one template; the route
// distinguishers' inputs.

#include "snapshot/loader/Loader.h"

namespace Snapshot::loader {

void Loader::vrfs(od::value& v) {
  r_.entries(r_.object(v), [&](std::string_view name, od::value& f) { vrf(name, f); });
}

enum VrfKey { kVrfId, kRoutingEnabled, kRouting6Enabled, kStaticRoutes, kIpv4, kIpv6 };
constexpr Keys<6> kVrfKeys = {"id",           "routingEnabled", "routing6Enabled",
                              "staticRoutes", "ipv4",           "ipv6"};

void Loader::vrf(std::string_view name, od::value& v) {
  const L3::VrfName vrfName = this->vrfName(name);
  auto state = std::make_unique<VrfState>();
  VrfState& s = *state;
  s.name = vrfName.stringValue();
  s.hwVrfStatus->vrfNameIs(vrfName);
  vrfs_.emplace(s.name, std::move(state));
  r_.fields(r_.object(v), kVrfKeys, 0, [&](unsigned k, od::value& f) {
    switch (k) {
      case kVrfId:
        s.id = std::uint32_t(r_.number(f, kU32Max - 1));
        s.hasId = true;
        if (vrfName.isDefault() && s.id != Vrf::VrfIdMap::kDefaultVrfId)
          r_.fail("the VRF \"default\" has id 0");
        if (auto it = vrfIds_.find(s.id); it != vrfIds_.end())
          r_.fail("VRF id " + std::to_string(s.id) + " is already the id of VRF " +
                  quote(it->second));
        vrfIds_.emplace(s.id, s.name);
        break;
      case kRoutingEnabled:
        s.routingConfig->routingEnabledIs(r_.boolean(f));
        break;
      case kRouting6Enabled:
        s.routing6Config->routingEnabledIs(r_.boolean(f));
        break;
      case kStaticRoutes:
        staticRoutes(f, s);
        break;
      case kIpv4:
        family<V4>(f, s);
        break;
      case kIpv6:
        family<V6>(f, s);
        break;
    }
  });
  if (!s.hasId) {
    if (!vrfName.isDefault()) r_.fail("missing required key \"id\"");
    if (auto it = vrfIds_.find(0); it != vrfIds_.end())
      r_.fail("VRF id 0 belongs to the VRF \"default\", not " + quote(it->second));
    s.hasId = true;
    vrfIds_.emplace(0, s.name);
  }
  Vrf::VrfIdMap::Entry entry;
  entry.vrfId = s.id;
  entry.vrfNameIs(vrfName);
  tables_.vrfIdMap->recordIs(entry);
}

template <class Fam>
void Loader::family(od::value& v, VrfState& vrf) {
  static constexpr Keys<2> keys = {"routes", "fecs"};
  r_.fields(r_.object(v), keys, 0, [&](unsigned k, od::value& f) {
    if (k != 0) {
      fecs<Fam>(f, vrf);
    } else if (takeScannedRoutes<Fam>(f, vrf)) {
    } else if (std::is_same_v<Fam, V4> ? sections_.ipv4Routes : sections_.ipv6Routes) {
      routes<Fam>(f, vrf);
    } else {
      checkRoutes<Fam>(f, vrf);
    }
  });
}

enum RouteKey { kPrefix, kType, kFec, kPreference, kMetric, kHwProgrammed, kKernelProgrammed };
constexpr Keys<7> kRouteKeys = {
    "prefix", "type", "fec", "preference", "metric", "hardwareProgrammed", "kernelProgrammed"};

template <class Fam>
void Loader::routes(od::value& v, VrfState& vrf) {
  od::array arr = r_.array(v);
  auto& table = vrf.routes<Fam>();
  const std::size_t first = table.size();
  table.reserve(first + r_.count(arr));
  // The routes are appended as they are read and indexed once the array is read, which is
  // when a prefix given twice is found. So that the first error in the document is still the
  // one reported, an error further on first looks for a repeated prefix before it.
  const std::size_t depth = r_.path().depth();
  const auto refuseDuplicate = [&] {
    if (const auto dup = table.indexAppended()) {
      r_.path().truncate(depth);
      r_.path().push(dup->position - first);
      r_.fail("duplicate route for " + dup->key.stringValue());
    }
  };
  std::uint32_t unprogrammed = 0;
  try {
    r_.elements(arr, [&](std::size_t, od::value& e) {
      typename Fam::Route route;
      int preference = -1;
      bool kernelProgrammed = true;
      r_.fields(r_.object(e), kRouteKeys, bit(kPrefix) | bit(kType), [&](unsigned k, od::value& f) {
        switch (k) {
          case kPrefix:
            route.prefix = prefix<Fam>(f);
            break;
          case kType:
            route.routeType = routeType<Fam>(f);
            break;
          case kFec:
            route.fecId = familyFecRef<Fam>(f);
            break;
          case kPreference:
            preference = int(r_.number(f, 255));
            break;
          case kMetric:
            route.metric = std::uint32_t(r_.number(f, kU32Max));
            break;
          case kHwProgrammed:
            route.hardwareProgrammed = r_.boolean(f);
            break;
          case kKernelProgrammed:
            kernelProgrammed = r_.boolean(f);
            break;
        }
      });
      route.preference =
          preference >= 0 ? std::uint8_t(preference) : Fam::defaultPreference(route.routeType);
      table.recordAppend(route);
      if (!route.hardwareProgrammed) ++unprogrammed;
      if (!kernelProgrammed) vrf.kernel<Fam>().recordIs({Plexa::IpGenPrefix(route.prefix)});
    });
  } catch (...) {
    refuseDuplicate();
    throw;
  }
  refuseDuplicate();
  vrf.countUnprogrammed<Fam>(unprogrammed);
}
// The route check falls back on the whole reading (RouteCheck.cpp).
template void Loader::routes<V4>(od::value&, VrfState&);
template void Loader::routes<V6>(od::value&, VrfState&);

enum FecKey { kFecId, kBackupIndex, kVias };
constexpr Keys<3> kFecKeys = {"id", "backupIndex", "vias"};

template <class Fam>
void Loader::fecs(od::value& v, VrfState& vrf) {
  od::array arr = r_.array(v);
  auto& table = vrf.fecs<Fam>();
  const std::size_t count = r_.count(arr);
  // An empty list, as every attach reads in the agent's catalog, makes no scratch record: its
  // pages would be fresh memory touched for nothing.
  if (count == 0) return;
  table.reserve(table.size() + count);
  // A FEC record holds room for 512 vias: one scratch record, not one on the stack per FEC.
  auto fec = std::make_unique<typename Fam::Fec>();
  r_.elements(arr, [&](std::size_t, od::value& e) {
    fec->fecId = {};
    fec->backupViaIndexValue = 0;
    fec->via.clear();
    r_.fields(r_.object(e), kFecKeys, bit(kFecId), [&](unsigned k, od::value& f) {
      switch (k) {
        case kFecId:
          fec->fecId = familyFecRef<Fam>(f);
          if (std::is_same_v<Fam, V4> && Brine::Fib::isV6FecId(fec->fecId))
            r_.fail("an ip6: FEC lives in the VRF's ipv6.fecs");
          break;
        case kBackupIndex: {
          // The bound is the platform's via index; the message says which index broke it.
          const std::uint64_t n = r_.number(f, kU32Max);
          try {
            fec->backupViaIndexValue = Brine::ViaIndex(std::uint32_t(n)).value();
          } catch (const Mox::RangeException& bound) {
            r_.fail(std::string(bound.what()) + " (backupIndex " + std::to_string(n) + ")");
          }
          break;
        }
        case kVias:
          r_.elements(r_.array(f), [&](std::size_t, od::value& via) {
            if (fec->via.size() >= Fam::Fec::kMaxVias) {
              r_.fail(std::string(Pelo::kPodArraySizeMessage) + " " +
                      std::to_string(Fam::Fec::kMaxVias) + ": a FEC holds at most " +
                      std::to_string(Fam::Fec::kMaxVias) + " vias");
            }
            fec->via.push(fecVia<Fam>(via));
          });
          break;
      }
    });
    // An index equal to the number of vias says the backups start past the last via: there
    // are none. One beyond that points at vias the FEC does not have.
    if (fec->backupViaIndexValue > fec->via.size()) {
      r_.fail("backupIndex " + std::to_string(fec->backupViaIndexValue) +
              " is above the number of vias (" + std::to_string(fec->via.size()) + ")");
    }
    const std::size_t before = table.size();
    table.recordIs(*fec);
    if (table.size() == before) r_.fail("duplicate FEC " + fecRefText(fec->fecId));
  });
}

enum FecViaKey { kViaNexthop, kViaInterface, kViaWeight, kViaLabel, kViaTunnel };
constexpr Keys<5> kFecViaKeys = {"nexthop", "interface", "weight", "label", "tunnel"};

template <class Fam>
typename Fam::Via Loader::fecVia(od::value& v) {
  typename Fam::Via via;
  const std::uint64_t seen = r_.fields(r_.object(v), kFecViaKeys, 0, [&](unsigned k, od::value& f) {
    switch (k) {
      case kViaNexthop:
        via.hop = address<typename Fam::Addr>(f, Fam::kName);
        break;
      case kViaInterface:
        via.intfId = intf(f);
        break;
      case kViaWeight:
        via.weight = std::uint16_t(r_.number(f, 65535, 1));
        break;
      case kViaLabel:
        via.labelValue = label(f).value();
        break;
      case kViaTunnel: {
        const auto id = tunnelRef(f);
        via.tunnelIdValue = id.value();
        // A tunnel via leaves through the dynamic interface that stands for the tunnel.
        via.intfId = Plexa::DynamicTunnelIntfId::intfId(id.value());
        break;
      }
    }
  });
  if ((seen & bit(kViaInterface)) && (seen & bit(kViaTunnel)))
    r_.fail("a via names an interface or a tunnel, not both");
  // A zero next hop is no next hop (see staticVia).
  if (via.hop.isZero() && !(seen & (bit(kViaInterface) | bit(kViaTunnel))))
    r_.fail("a via needs a nexthop, an interface or a tunnel");
  return via;
}

void Loader::routeDistinguishers(od::value& v) {
  r_.entries(r_.object(v), [&](std::string_view inputName, od::value& f) {
    if (inputName.empty()) r_.fail("an input has a name");
    auto input = makePtr<Ip::RouteDistinguisherInput>();
    r_.entries(r_.object(f), [&](std::string_view vrf, od::value& rd) {
      const L3::VrfName name = vrfName(vrf);
      const std::string_view text = r_.string(rd);
      Plexa::RouteDistinguisher value;
      if (!Plexa::RouteDistinguisher::parse(text, value))
        r_.fail("bad route distinguisher " + quote(text) +
                " (expected ASN:n or IPv4-address:n, for example 100:1)");
      input->routeDistinguisherIs(name.string8(), value);
    });
    tables_.rdInputDir->entityIs(std::string(inputName), input);
  });
}

}  // namespace Snapshot::loader
