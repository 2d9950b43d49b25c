// Static routes as configured, with their vias.

#include "snapshot/loader/Loader.h"

namespace Snapshot::loader {

enum StaticKey {
  kStPrefix,
  kStPreference,
  kStType,
  kStTag,
  kStDynamic,
  kStPersistent,
  kStName,
  kStNexthopGroup,
  kStVias,
};
constexpr Keys<9> kStaticKeys = {"prefix",     "preference", "type",         "tag", "dynamic",
                                 "persistent", "name",       "nexthopGroup", "vias"};

void Loader::staticRoutes(od::value& v, VrfState& vrf) {
  r_.elements(r_.array(v), [&](std::size_t, od::value& e) {
    Plexa::IpGenPrefix prefix;
    int preference = 1;
    auto type = Routing::RouteType::forward;
    std::uint32_t tag = 0;
    bool dynamic = false, persistent = true;
    std::string name, group;
    struct ViaInfo {
      Routing::Via via;
      bool trackBfd;
      std::string name;
    };
    std::vector<ViaInfo> vias;
    const std::uint64_t seen =
        r_.fields(r_.object(e), kStaticKeys, bit(kStPrefix), [&](unsigned k, od::value& f) {
          switch (k) {
            case kStPrefix:
              prefix = genPrefix(f);
              break;
            case kStPreference:
              preference = int(r_.number(f, 255));
              break;
            case kStType: {
              const std::string_view word = r_.string(f);
              if (!Routing::routeTypeFromName(word, type))
                r_.fail("unknown static route type " + quote(word) +
                        " (expected forward, drop or nexthopGroup)");
              break;
            }
            case kStTag:
              tag = std::uint32_t(r_.number(f, kU32Max));
              break;
            case kStDynamic:
              dynamic = r_.boolean(f);
              break;
            case kStPersistent:
              persistent = r_.boolean(f);
              break;
            case kStName:
              name = r_.string(f);
              break;
            case kStNexthopGroup:
              group = r_.string(f);
              break;
            case kStVias:
              // The prefix may come after the vias; its family is checked below.
              r_.elements(r_.array(f), [&](std::size_t, od::value& via) {
                ViaInfo info;
                info.via = staticVia(via, info.trackBfd, info.name);
                for (const auto& other : vias) {
                  if (other.via == info.via) r_.fail("duplicate via");
                }
                vias.push_back(std::move(info));
              });
              break;
          }
        });
    if (type != Routing::RouteType::forward && !vias.empty())
      r_.fail(std::string("a ") + std::string(Routing::routeTypeName(type)) + " route has no vias");
    if (type == Routing::RouteType::forward && vias.empty())
      r_.fail("a forward route needs at least one via");
    if ((seen & bit(kStName)) && type != Routing::RouteType::drop)
      r_.fail("\"name\" names a drop route; a forward route names its vias");
    if ((seen & bit(kStNexthopGroup)) != 0 && type != Routing::RouteType::nexthopGroup)
      r_.fail("\"nexthopGroup\" is for routes of type nexthopGroup");
    if (type == Routing::RouteType::nexthopGroup && group.empty()) {
      r_.fail((seen & bit(kStNexthopGroup)) ? "\"nexthopGroup\" names no group: it is empty"
                                            : "a nexthopGroup route needs \"nexthopGroup\"");
    }
    for (std::size_t i = 0; i < vias.size(); ++i) {
      const auto& hop = vias[i].via.hop();
      if (!hop.isZero() && hop.af() != prefix.af()) {
        r_.path().push(std::string_view("vias"));
        r_.path().push(i);
        r_.fail("the nexthop " + hop.stringValue() + " is not of the family of " +
                prefix.stringValue());
      }
    }
    const Routing::RouteKey key(prefix, std::uint8_t(preference));
    auto route = makePtr<Routing::Route>(key);
    route->routeTypeIs(type);
    route->tagIs(tag);
    route->dynamicIs(dynamic);
    route->persistentIs(persistent);
    route->dropNextHopNameIs(name);
    route->nexthopGroupNameIs(group);
    for (const auto& info : vias) {
      route->viaIs(info.via, true);
      if (info.trackBfd) route->viaTrackBfdIs(info.via, true);
      if (!info.name.empty()) route->viaNextHopNameIs(info.via, info.name);
    }
    auto& config =
        prefix.af() == Plexa::AddressFamily::ipv4 ? *vrf.routingConfig : *vrf.routing6Config;
    if (config.route().contains(key))
      r_.fail("duplicate static route for " + prefix.stringValue() + " at preference " +
              std::to_string(preference));
    config.routeIs(key, route);
  });
}

enum StaticViaKey {
  kSvNexthop,
  kSvInterface,
  kSvLabel,
  kSvVtep,
  kSvVni,
  kSvRouterMac,
  kSvTrackBfd,
  kSvName,
};
constexpr Keys<8> kStaticViaKeys = {"nexthop", "interface", "label",    "vtep",
                                    "vni",     "routerMac", "trackBfd", "name"};

Routing::Via Loader::staticVia(od::value& v, bool& trackBfd, std::string& name) {
  Routing::Via via;
  trackBfd = false;
  const std::uint64_t seen =
      r_.fields(r_.object(v), kStaticViaKeys, 0, [&](unsigned k, od::value& f) {
        switch (k) {
          case kSvNexthop:
            via.hopIs(genAddress(f));
            break;
          case kSvInterface:
            via.intfIdIs(intf(f));
            break;
          case kSvLabel:
            via.mplsLabelIs(label(f));
            break;
          case kSvVtep:
            via.vtepAddrIs(genAddress(f));
            break;
          case kSvVni:
            via.vniIs(vni(f));
            break;
          case kSvRouterMac:
            via.routerMacIs(mac(f));
            break;
          case kSvTrackBfd:
            trackBfd = r_.boolean(f);
            break;
          case kSvName:
            name = r_.string(f);
            break;
        }
      });
  // A via that has nothing but zero addresses is refused here rather than saved as an empty
  // via the next load would refuse.
  Routing::dropZeroAddresses(via);
  Routing::ViaParts parts;
  parts.hop = bool(via.hop());
  parts.interface = seen & bit(kSvInterface);
  parts.label = seen & bit(kSvLabel);
  parts.vtep = bool(via.vtepAddr());
  parts.vni = seen & bit(kSvVni);
  parts.routerMac = seen & bit(kSvRouterMac);
  if (const char* why = Routing::staticViaProblem(parts)) r_.fail(why);
  return via;
}

}  // namespace Snapshot::loader
