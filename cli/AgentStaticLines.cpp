// The static route lines of configuration mode as a live agent applies them
// (agent/LiveChanges.h): the same grammar, the same editors and the same refusals as
// `configure`, on the agent's state.

#include <unistd.h>

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "agent/LiveChanges.h"
#include "cli/ConfigMode.h"
#include "cli/DeviceState.h"
#include "cli/MemoryFile.h"
#include "cli/Runner.h"
#include "platform/plexa/VrfName.h"
#include "snapshot/StateLayout.h"

namespace cli {

namespace {

using Rova::Value;

// The lines write the state in use: the agent's.
void use(Statum::EntityManager& em) {
  state().adopt(Mox::Ptr<Statum::EntityManager>(&em), "live", "", true);
}

bool isStaticRouteLine(const Row& row) {
  for (const char* head : {"ip route ", "ipv6 route ", "no ip route ", "no ipv6 route "}) {
    if (row.syntax.rfind(head, 0) == 0) return true;
  }
  return false;
}

Agent::LiveChangeResult apply(Statum::EntityManager& em, std::string_view line) {
  const std::vector<std::string> words = splitWords(line);
  if (words.empty()) return {true, {}};
  const MatchResult match = configGrammar(ConfigMode::config).match(words);
  if (!match.match) return {false, match.error};
  if (!isStaticRouteLine(match.match->row())) return {false, Agent::kStaticLinesOnly};
  use(em);
  MemoryFile out("rova-agent-line"), err("rova-agent-messages");
  if (runAction(*match.match, Context{out.fd(), err.fd()}) == kStatusOk) return {true, {}};
  std::string message = err.text();
  while (!message.empty() && message.back() == '\n')
    message.pop_back();
  return {false, message};
}

// The saver of `show running-config static-routes`, with the state's defaults.
std::string lines(Statum::EntityManager& em, const Routing::ConfigGen& config,
                  const std::string& vrf, bool v6) {
  use(em);
  Value consts = registry().construct("Rova::RovaConsts", {});
  const Value defaults = state().at(Snapshot::layout::staticRouteDefaults);
  if (!defaults.isNone()) {
    const auto& r = registry();
    r.attributeIs(consts, "defaultStaticRoutePreference", r.attribute(defaults, "preference"));
    r.attributeIs(consts, "defaultStaticRouteTag", r.attribute(defaults, "tag"));
    r.attributeIs(consts, "defaultStaticRouteName", r.attribute(defaults, "name"));
  }
  std::string routeCmd = v6 ? "ipv6 route " : "ip route ";
  if (vrf != L3::VrfName::kDefault) routeCmd += "vrf " + vrf + " ";
  Value saver = registry().construct("Rova::StaticRoutesCliSaver", {});
  const Value args[] = {Rova::toValue(Mox::Ptr<const Routing::ConfigGen>(&config)), Value(false),
                        Value(routeCmd.c_str()), consts};
  return registry().call(saver, "save", args).displayText();
}

}  // namespace

}  // namespace cli

namespace Agent {

const StaticRouteLines& staticRouteLines() {
  static const StaticRouteLines lines{cli::apply, cli::lines};
  return lines;
}

}  // namespace Agent
