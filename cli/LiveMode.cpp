#include "cli/LiveMode.h"

#include <algorithm>
#include <exception>
#include <string_view>

#include "cli/DeviceState.h"

namespace cli {

namespace {

// The first words of the commands that change configuration or state, whether or not this
// build has them: in live mode each is refused by name rather than met with "% Invalid input".
constexpr std::string_view kConfigurationWords[] = {
    "clear", "configure", "interface", "ip", "ipv6", "no", "router", "vrf", "write",
};

bool isConfigurationWord(std::string_view w) {
  return std::find(std::begin(kConfigurationWords), std::end(kConfigurationWords), w) !=
         std::end(kConfigurationWords);
}

// Whether word `i` of `words` is `keyword`, written whole or abbreviated as the grammar
// takes it there.
bool wordIs(const Grammar& grammar, std::span<const std::string> words, std::size_t i,
            std::string_view keyword) {
  if (i >= words.size()) return false;
  if (words[i] == keyword) return true;
  if (keyword.substr(0, words[i].size()) != words[i]) return false;
  std::size_t keywords = 0;
  for (const Candidate& c : grammar.complete(words.first(i), words[i]).candidates)
    keywords += c.kind == Candidate::Kind::keyword ? 1 : 0;
  return keywords == 1;
}

}  // namespace

Snapshot::LiveScope liveScopeOf(const Grammar& grammar, std::span<const std::string> command) {
  Snapshot::LiveScope scope;
  if (!wordIs(grammar, command, 0, "show") || !wordIs(grammar, command, 2, "route")) return scope;
  if (wordIs(grammar, command, 1, "ip")) {
    scope.ipv6Routes = false;
  } else if (wordIs(grammar, command, 1, "ipv6")) {
    scope.ipv4Routes = false;
  }
  return scope;
}

int refuseConfiguration(const Grammar& grammar, std::span<const std::string> words,
                        const Context& context) {
  if (words.empty()) return -1;
  const std::string_view first = words[0];
  const bool configuration =
      std::any_of(std::begin(kConfigurationWords), std::end(kConfigurationWords),
                  [&](std::string_view w) { return w.substr(0, first.size()) == first; });
  if (!configuration) return -1;
  // "c" may still be "check": only a word that begins no other command is refused here.
  for (const Candidate& c : grammar.complete({}, first).candidates) {
    if (c.kind == Candidate::Kind::keyword && !isConfigurationWord(c.text)) return -1;
  }
  return refuseLine(words,
                    "% Configuration is refused in live mode: rova shows the kernel's routing "
                    "state and does not program the kernel",
                    kStatusFailed, context);
}

int startLiveMode(const Grammar& grammar, std::span<const std::string> command,
                  const Context& context) {
  try {
    DeviceState::instance().loadLive(liveScopeOf(grammar, command));
  } catch (const std::exception& e) {
    return refuseLine(command, std::string("% Cannot read live state: ") + e.what(), kStatusUsage,
                      context);
  }
  commandGateIs([&grammar](std::span<const std::string> words, const Context& c) {
    return refuseConfiguration(grammar, words, c);
  });
  return kStatusOk;
}

}  // namespace cli
