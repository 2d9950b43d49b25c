#include "agent/LiveChanges.h"

#include <exception>

#include "snapshot/StateLayout.h"

namespace Agent {

namespace {

namespace layout = Snapshot::layout;

LiveChangeResult runLine(Statum::EntityManager& state, std::string_view line) {
  return staticRouteLines().apply(state, line);
}

std::string runningStatics(Statum::EntityManager& state) {
  return staticRouteLines().running(state);
}

// The file's text: the configuration's lines, then the lines held back, before the block's
// closing "!".
std::string fileText(const std::string& running, const std::vector<std::string>& held) {
  if (held.empty()) return running;
  std::string text = running;
  if (text.size() >= 2 && text.compare(text.size() - 2, 2, "!\n") == 0)
    text.resize(text.size() - 2);
  for (const std::string& line : held)
    text += line + "\n";
  return text + "!\n";
}

// Every configured static route goes (those an agent installed stay), then `lines` are
// applied: the configuration they print.
void replace(Statum::EntityManager& state, const std::string& lines) {
  for (const std::string& vrf : layout::vrfNames(state)) {
    for (const auto* leaf : {&layout::routingConfig, &layout::routing6Config}) {
      const auto it = state.entities().find(layout::pathOf(*leaf, vrf));
      if (it == state.entities().end()) continue;
      auto config = Mox::ptrCast<Routing::ConfigGen>(it->second);
      if (!config) continue;
      for (auto route = config->routeIterator(); route; ++route) {
        if (!route.value()->dynamic()) config->routeDel(route);
      }
    }
  }
  std::string_view rest = lines;
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

LiveChangeResult applyLiveChange(KernelStatics& statics, Statum::EntityManager& state,
                                 std::string_view line) {
  try {
    statics.keepIn(state);
    const std::string before = runningStatics(state);
    LiveChangeResult result = runLine(state, line);
    if (!result.ok) return result;
    const std::string after = runningStatics(state);
    if (after != before) {
      try {
        statics.save(fileText(after, statics.heldLines()));
      } catch (const std::exception& e) {
        // What is not kept is not done: the configuration goes back to what the file holds.
        replace(state, before);
        return {false, std::string("% ") + e.what()};
      }
    }
    return {true, joined(statics.program())};
  } catch (const std::exception& e) {
    return {false, std::string("% ") + e.what()};
  }
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
    if (held.size() != before) statics.save(fileText(runningStatics(state), held));
    said = statics.retry();
  } catch (const std::exception& e) {
    said.push_back(std::string("% ") + e.what());
  }
  return said;
}

}  // namespace Agent
