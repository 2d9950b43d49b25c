#include "agent/LiveChanges.h"

#include <exception>

#include "platform/plexa/VrfName.h"
#include "snapshot/StateLayout.h"

namespace Agent {

namespace {

namespace layout = Snapshot::layout;

LiveChangeResult runLine(Statum::EntityManager& state, std::string_view line) {
  return staticRouteLines().apply(state, line);
}

// The file's text: the lines of every configuration the agent keeps, as `show running-config
// static-routes` prints them (the default VRF first, then by name; IPv4, then IPv6), those of
// a VRF the state no longer has (its device went) included, then the lines held back.
std::string fileText(KernelStatics& statics, Statum::EntityManager& state) {
  std::string text;
  const auto& configs = statics.configs();
  for (const bool defaultVrf : {true, false}) {
    for (const auto& [name, config] : configs) {
      const std::string vrf = name.substr(0, name.rfind(' '));
      if ((vrf == L3::VrfName::kDefault) != defaultVrf || !config) continue;
      text += staticRouteLines().lines(state, *config, vrf, name.back() == '6');
    }
  }
  for (const std::string& line : statics.heldLines())
    text += line + "\n";
  return text;
}

// Every configured static route goes (those an agent installed stay), then the lines of
// `text` are applied: the configuration they print.
void replace(KernelStatics& statics, Statum::EntityManager& state, const std::string& text) {
  for (const auto& [name, config] : statics.configs()) {
    // A VRF the state no longer has takes no line: its routes stay as they are.
    const std::string vrf = name.substr(0, name.rfind(' '));
    const auto it = state.entities().find(
        layout::pathOf(name.back() == '6' ? layout::routing6Config : layout::routingConfig, vrf));
    if (it == state.entities().end() || it->second != config) continue;
    for (auto route = config->routeIterator(); route; ++route) {
      if (!route.value()->dynamic()) config->routeDel(route);
    }
  }
  std::string_view rest = text;
  while (!rest.empty()) {
    const auto end = rest.find('\n');
    runLine(state, rest.substr(0, end));
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
  }
}

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines)
    text += (text.empty() ? "" : "\n") + line;
  return text;
}

}  // namespace

LiveBatchResult applyLiveChanges(LiveAgent& agent, std::span<const LiveChange> changes) {
  LiveBatchResult result;
  result.status = 1;
  for (std::size_t i = 0; i < changes.size(); ++i) {
    if (changes[i].mode.empty()) continue;
    result.refused = i;
    result.message = kStaticLinesOnly;
    return result;
  }
  KernelStatics& statics = agent.statics;
  Statum::EntityManager& state = agent.em;
  try {
    statics.keepIn(state);
    const std::string before = fileText(statics, state);
    // Back to what the file holds: a refused line, or a file that cannot be written, leaves
    // the configuration (and so the kernel) as it was.
    const auto undo = [&] {
      statics.keepIn(state);
      replace(statics, state, before);
    };
    for (std::size_t i = 0; i < changes.size(); ++i) {
      const LiveChangeResult r = runLine(state, changes[i].line);
      if (r.ok) continue;
      undo();
      result.refused = i;
      result.message = r.message;
      return result;
    }
    statics.keepIn(state);
    const std::string after = fileText(statics, state);
    if (after != before) {
      try {
        statics.save(after);
      } catch (const std::exception& e) {
        undo();
        result.refused = changes.size();
        result.message = std::string("% ") + e.what();
        return result;
      }
    }
    result.status = 0;
    result.warning = joined(statics.program());
  } catch (const std::exception& e) {
    result.refused = changes.size();
    result.message = std::string("% ") + e.what();
  }
  return result;
}

LiveChangeResult applyLiveChange(KernelStatics& statics, Statum::EntityManager& state,
                                 std::string_view line) {
  LiveAgent agent{state, statics, ""};
  const LiveChange change{"", std::string(line)};
  const LiveBatchResult r = applyLiveChanges(agent, std::span(&change, 1));
  return r.status == 0 ? LiveChangeResult{true, r.warning} : LiveChangeResult{false, r.message};
}

std::vector<std::string> loadStaticConfig(KernelStatics& statics, Statum::EntityManager& state) {
  const std::string text = statics.load();
  statics.keepIn(state);
  std::vector<std::string> said;
  std::string_view rest = text;
  for (std::size_t number = 1; !rest.empty(); ++number) {
    const auto end = rest.find('\n');
    const std::string line(rest.substr(0, end));
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    const LiveChangeResult r = runLine(state, line);
    if (r.ok) continue;
    statics.heldLines().push_back(line);
    said.push_back(statics.file() + " line " + std::to_string(number) + ": " + r.message +
                   " (the line is kept and tried again when links change)");
  }
  for (std::string& refused : statics.program())
    said.push_back(std::move(refused));
  return said;
}

std::vector<std::string> retryStaticConfig(KernelStatics& statics, Statum::EntityManager& state) {
  std::vector<std::string> said;
  try {
    statics.keepIn(state);
    auto& held = statics.heldLines();
    const std::size_t before = held.size();
    std::erase_if(held, [&](const std::string& line) { return runLine(state, line).ok; });
    if (held.size() != before) statics.save(fileText(statics, state));
    said = statics.retry();
  } catch (const std::exception& e) {
    said.push_back(std::string("% ") + e.what());
  }
  return said;
}

}  // namespace Agent
