#include "cli/AttachMode.h"

#include <algorithm>
#include <exception>
#include <string_view>

#include "cli/DeviceState.h"
#include "platform/mox/Exception.h"

namespace cli {

namespace {

// The first words of the commands that change configuration or state.
constexpr std::string_view kChangeWords[] = {
    "clear", "configure", "interface", "ip", "ipv6", "no", "router", "vrf", "write",
};

bool isChangeWord(std::string_view w) {
  return std::find(std::begin(kChangeWords), std::end(kChangeWords), w) != std::end(kChangeWords);
}

int refuseChange(const Grammar& grammar, std::span<const std::string> words,
                 const Context& context) {
  if (words.empty()) return -1;
  const std::string_view first = words[0];
  const bool change =
      std::any_of(std::begin(kChangeWords), std::end(kChangeWords),
                  [&](std::string_view w) { return w.substr(0, first.size()) == first; });
  if (!change) return -1;
  // "c" may still be "check": only a word that begins no other command is refused here.
  for (const Candidate& c : grammar.complete({}, first).candidates) {
    if (c.kind == Candidate::Kind::keyword && !isChangeWord(c.text)) return -1;
  }
  return refuseLine(words,
                    "% Configuration is refused when attached: the state agent " +
                        Mox::shownWord(DeviceState::instance().attached()->name()) +
                        " owns the state",
                    kStatusFailed, context);
}

}  // namespace

int startAttachMode(const Grammar& grammar, const std::string& name,
                    std::span<const std::string> command, const Context& context) {
  try {
    DeviceState::instance().attach(name);
  } catch (const std::exception& e) {
    return refuseLine(command, std::string("% Cannot attach: ") + e.what(), kStatusUnavailable,
                      context);
  }
  commandGateIs([&grammar](std::span<const std::string> words, const Context& c) {
    return attachedGate(grammar, words, c);
  });
  return kStatusOk;
}

int attachedGate(const Grammar& grammar, std::span<const std::string> words,
                 const Context& context) {
  try {
    DeviceState::instance().checkAgent();
  } catch (const Mox::UnavailableException& e) {
    return refuseLine(words, std::string("% ") + e.what(), kStatusUnavailable, context);
  }
  return refuseChange(grammar, words, context);
}

int checkAttachedAfter(int status, const Context& context) {
  if (status != kStatusOk || !DeviceState::instance().attached()) return status;
  try {
    DeviceState::instance().checkAgent();
  } catch (const Mox::UnavailableException& e) {
    context.error(std::string("% ") + e.what());
    return kStatusUnavailable;
  }
  return status;
}

}  // namespace cli
