// The static routes: their running configuration, the routing information base's view of
// them, and clearing an interface's routes and vias.

#include "cli/CommandActions.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "cli/DeviceState.h"
#include "cli/RunningConfig.h"
#include "lib/registry/TypeRegistry.h"
#include "platform/plexa/VrfName.h"
#include "snapshot/StateLayout.h"

namespace cli {

namespace {

namespace layout = Snapshot::layout;
using Rova::Value;

// The defaults a saved line leaves out, from the state's static route defaults record; a state
// without that record keeps the built-in defaults (preference 1, tag 0, no name).
Value staticRouteDefaults() {
  Value consts = registry().construct("Rova::RovaConsts", {});
  const Value defaults = state().at(layout::staticRouteDefaults);
  if (defaults.isNone()) return consts;
  const auto& r = registry();
  r.attributeIs(consts, "defaultStaticRoutePreference", r.attribute(defaults, "preference"));
  r.attributeIs(consts, "defaultStaticRouteTag", r.attribute(defaults, "tag"));
  r.attributeIs(consts, "defaultStaticRouteName", r.attribute(defaults, "name"));
  return consts;
}

}  // namespace

std::vector<StaticRouteSection> staticRouteSections(bool all) {
  // Collect first: the saver may throw, and a half-written configuration helps nobody.
  std::vector<StaticRouteSection> sections;
  const Value consts = staticRouteDefaults();
  for (const std::string& vrf : state().vrfNames()) {
    for (bool v6 : {false, true}) {
      const Value config = state().atVrf(vrf, v6 ? layout::routing6Config : layout::routingConfig);
      if (config.isNone()) continue;
      std::string routeCmd = v6 ? "ipv6 route " : "ip route ";
      if (vrf != L3::VrfName::kDefault) routeCmd += "vrf " + vrf + " ";
      Value saver = registry().construct("Rova::StaticRoutesCliSaver", {});
      const Value args[] = {config, Value(all), Value(routeCmd.c_str()), consts};
      sections.push_back({vrf, registry().call(saver, "save", args).displayText()});
    }
  }
  return sections;
}

int showStaticRoutes(const Match& m, const Context&, Output& out) {
  const std::vector<StaticRouteSection> sections = staticRouteSections(m.flag("all"));
  return out.print([&](rendr::Printer& p) {
    rendr::StringAttrInfo vrfAttr("vrf", p.format());
    rendr::StringAttrInfo command("command", p.format());
    p.startList("staticRoutes");
    for (const auto& s : sections) {
      std::string_view text = s.text;
      vrfAttr.setValue(s.vrf);
      while (!text.empty()) {
        const auto end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        p.startListEntry();
        command.setValue(line);
        p.addAttributesJson(1, vrfAttr.getArg());
        p.addAttributes("%s\n", 1, command.getArg());
        p.endListEntry();
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
      }
    }
    p.endList();
  });
}

// ---- static routes in the routing information base ----

int showStaticRoutesRib(const Match& m, const Context& c, Output& out) {
  const std::string vrf = vrfOf(m);
  if (int s = checkVrf(vrf, c); s >= 0) return s;
  Value rib = registry().construct("Rova::StaticRoutesRibCommon",
                                   {{"allIntfConfig", state().at(layout::intfConfig)}});
  for (const auto& leaf : {layout::routingConfig, layout::routing6Config}) {
    const Value input = state().atVrf(vrf, leaf);
    if (input.isNone()) continue;
    const Value args[] = {input, Value(true)};
    registry().call(rib, "newRouteInputConf", args);
  }
  registry().attributeIs(rib, "dynamic", Value(m.flag("dynamic")));
  registry().attributeIs(rib, "fd", Value(out.fd()));
  registry().attributeIs(rib, "fmt", Value(out.format()));
  const Value args[] = {staticRouteDefaults()};
  return out.library([&] { registry().call(rib, "dump", args); });
}

namespace {

// The vias of each configured route of one VRF and family, by route.
std::map<std::string, std::size_t> viaCounts(
    const std::string& vrf, const layout::Entity<Routing::ConfigGen, layout::Scope::vrf>& leaf) {
  std::map<std::string, std::size_t> counts;
  if (auto config = layout::find(state().entities(), leaf, vrf)) {
    for (const auto& [key, route] : config->route()) {
      if (route)
        counts[key.prefix().stringValue() + " " + std::to_string(key.preference())] =
            route->via().size();
    }
  }
  return counts;
}

}  // namespace

int clearStaticRoutes(const Match& m, const Context& c, Output& out) {
  std::vector<std::string> vrfs;
  if (m.has("NAME")) {
    if (int s = checkVrf(m.value("NAME"), c); s >= 0) return s;
    vrfs.push_back(m.value("NAME"));
  } else {
    vrfs = state().vrfNames();
  }
  // What went is what was there before and is not after: whole routes, and vias of the routes
  // that stay.
  std::uint32_t routes = 0;
  std::uint32_t vias = 0;
  Value helper = registry().construct("Rova::ClearIntfRoutesAndViasHelper", {});
  for (const std::string& vrf : vrfs) {
    for (const auto& leaf : {layout::routingConfig, layout::routing6Config}) {
      const Value config = state().atVrf(vrf, leaf);
      if (config.isNone()) continue;
      const auto before = viaCounts(vrf, leaf);
      const Value args[] = {config, Value(m.value("INTF").c_str())};
      registry().call(helper, "clearIntfRoutesAndViasHelper", args);
      const auto after = viaCounts(vrf, leaf);
      for (const auto& [route, count] : before) {
        auto kept = after.find(route);
        if (kept == after.end()) {
          ++routes;
        } else if (kept->second < count) {
          vias += static_cast<std::uint32_t>(count - kept->second);
        }
      }
    }
  }
  state().changed();
  updateStaticRouteFibs();
  return out.print([&](rendr::Printer& p) {
    rendr::UintAttrInfo routesCleared("routesCleared", p.format());
    rendr::UintAttrInfo viasCleared("viasCleared", p.format());
    rendr::StringAttrInfo intf("interface", p.format());
    routesCleared.setValue(routes);
    viasCleared.setValue(vias);
    intf.setValue(m.value("INTF"));
    p.addAttributes(routes == 1 && vias == 1 ? "Cleared %u route and %u via of %s\n"
                    : routes == 1            ? "Cleared %u route and %u vias of %s\n"
                    : vias == 1              ? "Cleared %u routes and %u via of %s\n"
                                             : "Cleared %u routes and %u vias of %s\n",
                    3, routesCleared.getArg(), viasCleared.getArg(), intf.getArg());
  });
}

// ---- static routes in the forwarding tables ----

namespace {
// The resolvers of one state's VRFs: they remember the routes the statics displaced, so they
// live as long as the state does.
struct StaticRouteFibs {
  Mox::Ptr<Statum::EntityManager> owner;
  std::map<std::string, Value> fibs;
};
// Two states at a time: the one in use and another, so that a session judging its candidate
// on a copy, or Python switching between two states, does not make the state in use forget
// what its statics displaced.
StaticRouteFibs& staticRouteFibsOf(const Mox::Ptr<Statum::EntityManager>& em) {
  static StaticRouteFibs first, second;
  if (first.owner == em) return first;
  if (second.owner == em) return second;
  StaticRouteFibs& slot = first.owner == nullptr ? first : second;
  slot = StaticRouteFibs{em, {}};
  return slot;
}
}  // namespace

void forgetStaticRouteFibs(const Mox::Ptr<Statum::EntityManager>& em) {
  StaticRouteFibs& f = staticRouteFibsOf(em);
  f = StaticRouteFibs{};
}

namespace {
// The resolver of every VRF of the state in use, made where missing.
std::map<std::string, Value>& staticRouteFibs() {
  std::map<std::string, Value>& fibs = staticRouteFibsOf(state().entityManager()).fibs;
  for (const std::string& vrf : state().vrfNames()) {
    Value& fib = fibs[vrf];
    if (fib.isNone()) {
      fib = registry().construct("Rova::StaticRouteFib",
                                 {{"routes", state().atVrf(vrf, layout::fibRoute)},
                                  {"fecs", state().atVrf(vrf, layout::fibFec)},
                                  {"routes6", state().atVrf(vrf, layout::fib6Route)},
                                  {"fecs6", state().atVrf(vrf, layout::fib6Fec)},
                                  {"config", state().atVrf(vrf, layout::routingConfig)},
                                  {"config6", state().atVrf(vrf, layout::routing6Config)},
                                  {"intfStatus", state().at(layout::intfStatus)},
                                  {"intfConfig", state().at(layout::intfConfig)},
                                  {"nhgEntryStatus", state().at(layout::nhgEntryStatus)}});
    }
  }
  return fibs;
}
}  // namespace

void prepareStaticRouteFibs() {
  if (!state().live()) staticRouteFibs();
}

void updateStaticRouteFibs() {
  if (state().live()) return;
  for (auto& [vrf, fib] : staticRouteFibs())
    registry().call(fib, "update", {});
}

}  // namespace cli
