#include "cli/AttachMode.h"

#include <exception>

#include "cli/ConfigSession.h"
#include "cli/DeviceState.h"
#include "platform/mox/Exception.h"

namespace cli {

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

int attachedGate(const Grammar&, std::span<const std::string> words, const Context& context) {
  try {
    DeviceState::instance().checkAgent();
  } catch (const Mox::UnavailableException& e) {
    return refuseLine(words, std::string("% ") + e.what(), kStatusUnavailable, context);
  }
  // A session judging its candidate has put a copy of the state in place: that stays.
  if (!judgingSession()) {
    try {
      DeviceState::instance().refreshAttached();
    } catch (const std::exception& e) {
      return refuseLine(words, std::string("% Cannot read the attached state: ") + e.what(),
                        kStatusUnavailable, context);
    }
  }
  return -1;
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
