#include "lib/static_routes/StaticRoutesCliSaver.h"

#include <charconv>
#include <cstdint>
#include <string>

#include "platform/mox/ActivityLock.h"
#include "platform/mox/Exception.h"
#include "platform/mox/TextForm.h"
#include "platform/mox/Trace.h"

namespace Rova {

namespace {

Mox::TraceHandle saverTrace("CliSupport");

// Writers of the configuration agents must not wait for a whole large configuration to be read.
constexpr unsigned kRoutesPerYield = 2000;

void appendNumber(std::string& out, std::uint64_t n) {
  char buf[24];
  const auto r = std::to_chars(buf, buf + sizeof buf, n);
  out.append(buf, r.ptr);
}

void appendAddress(std::string& out, const Plexa::IpGenAddr& a) {
  char buf[Plexa::IpGenAddr::kMaxTextLen + 1];
  out.append(buf, a.write(buf));
}

void appendPreferenceAndTag(std::string& out, const Routing::Route& route, bool saveAll,
                            const RovaConsts& rovaConsts) {
  if (route.preference() != rovaConsts.defaultStaticRoutePreference() || saveAll) {
    out += ' ';
    Mox::writeText(out, route.preference());
  }
  if (route.tag() != rovaConsts.defaultStaticRouteTag() || saveAll) {
    out += " tag ";
    appendNumber(out, route.tag());
  }
}

std::string nexthopGroupText(const Routing::Route& route, bool saveAll,
                             const RovaConsts& rovaConsts) {
  std::string text = " Nexthop-Group";
  if (!route.nexthopGroupName().empty()) {
    text += ' ';
    text += route.nexthopGroupName().view();
  }
  appendPreferenceAndTag(text, route, saveAll, rovaConsts);
  return text;
}

std::string dropText(const Routing::Route& route, bool saveAll, const RovaConsts& rovaConsts) {
  std::string text = " Null0";
  appendPreferenceAndTag(text, route, saveAll, rovaConsts);
  // Unlike a via's name, an empty drop name is not tested for: with a non-empty default the
  // line ends in " name " with nothing after it. This is deliberate; keep it when touching the
  // via case.
  if (route.dropNextHopName() != rovaConsts.defaultStaticRouteName()) {
    text += " name ";
    text += route.dropNextHopName().view();
  }
  return text;
}

std::string viaText(const Routing::Route& route, const Routing::Via& via, bool saveAll,
                    const RovaConsts& rovaConsts) {
  std::string text;
  if (via.intfId().isValid()) {
    text += ' ';
    via.intfId().appendTo(text);
  }
  if (via.hop()) {
    text += ' ';
    appendAddress(text, via.hop());
    if (!via.mplsLabel().isNoLabel()) {
      text += " label ";
      text += via.mplsLabel().stringValue();
    }
    // A gateway and a VXLAN end point exclude each other; the configuration agent never
    // stores both, so seeing both means the configuration is corrupt.
    MOX_ASSERT(!via.vtepAddr());
  }
  if (const bool* track = route.viaTrackBfd().find(via); track && *track) text += " track bfd";
  if (via.vtepAddr()) {
    text += " vtep ";
    appendAddress(text, via.vtepAddr());
    text += " vni ";
    text += via.vni().stringValue();
    text += " router-mac-address ";
    text += via.routerMac().stringValue();
  }
  appendPreferenceAndTag(text, route, saveAll, rovaConsts);
  // saveAll does not force the name: a name is never a default worth writing.
  if (const Mox::String8* name = route.viaNextHopName().find(via);
      name && !name->empty() && *name != rovaConsts.defaultStaticRouteName()) {
    text += " name ";
    text += name->view();
  }
  return text;
}

}  // namespace

StaticRoutesCliSaver::StaticRoutesCliSaver(std::string_view text) {
  Mox::parseWhole(text, *this);
}

Mox::String8 StaticRoutesCliSaver::save(Mox::Ptr<Routing::ConfigGen const> config, bool saveAll,
                                        Mox::String8 routeCmd, Rova::RovaConsts rovaConsts) {
  MOX_TRACE(saverTrace, 5, "Saving static routes", saveAll ? " (all values)" : "");
  // No configuration (a VRF the state has no routing configuration for) has no static routes.
  if (config) collect(*config, saveAll, rovaConsts);
  // Writing reads only our own collection, so the agents may change the state meanwhile.
  Mox::ActivityLockRelease unlocked;
  return write(routeCmd);
}

void StaticRoutesCliSaver::collect(const Routing::ConfigGen& config, bool saveAll,
                                   const RovaConsts& rovaConsts) {
  unsigned sinceYield = 0;
  for (const auto& [routeKey, route] : config.route()) {
    if (route->dynamic()) continue;
    const RouteSortKey key(route->prefix(), route->preference());
    NexthopInfo info;
    switch (route->routeType()) {
      case Routing::RouteType::nexthopGroup:
        info.nexthopCmdIs(nexthopGroupText(*route, saveAll, rovaConsts));
        break;
      case Routing::RouteType::drop:
        info.nexthopCmdIs(dropText(*route, saveAll, rovaConsts));
        break;
      default:
        for (const Routing::Via& via : route->via())
          info.sortedViaIs(via, viaText(*route, via, saveAll, rovaConsts));
        break;
    }
    sortedRouteIs(key, std::move(info));
    if (++sinceYield >= kRoutesPerYield) {
      Mox::ActivityLock::instance().yield();
      sinceYield = 0;
    }
  }
}

Mox::String8 StaticRoutesCliSaver::write(const Mox::String8& routeCmd) const {
  std::string out;
  char prefix[Plexa::Ip6Prefix::kMaxTextLen + 1];
  const auto line = [&](std::string_view prefixText, const Mox::String8& tail) {
    out += routeCmd.view();
    out += prefixText;
    out += tail.view();
    out += '\n';
  };
  for (const auto& [key, info] : sortedRoute()) {
    const std::string_view prefixText(prefix, key.prefix().write(prefix) - prefix);
    if (!info.nexthopCmd().empty()) {
      line(prefixText, info.nexthopCmd());
      continue;
    }
    for (const auto& [via, tail] : info.sortedVia())
      line(prefixText, tail);
  }
  return Mox::String8(std::move(out));
}

}  // namespace Rova
