// The commands of the device state itself: what it is (show version), writing it back, and
// loading it before the first command; and the VRF and interface checks every subject asks.

#include "cli/CommandActions.h"

#include <new>
#include <span>
#include <string>

#include "cli/Commands.h"
#include "cli/DeviceState.h"
#include "platform/mox/Exception.h"
#include "platform/plexa/VrfName.h"
#include "snapshot/Snapshot.h"

namespace cli {

std::string vrfOf(const Match& m, const char* key) {
  return m.has(key) ? m.value(key) : std::string(L3::VrfName::kDefault);
}

int checkVrf(const std::string& vrf, const Context& c) {
  if (state().hasVrf(vrf)) return -1;
  c.error("% VRF " + Mox::shownWord(vrf) + " does not exist");
  return kStatusFailed;
}

int checkIntf(const std::string& intf, const Context& c) {
  if (!state().intfStatus(intf).isNone()) return -1;
  c.error("% Interface " + Mox::shownWord(intf) + " does not exist");
  return kStatusFailed;
}

// ---- show version ----

// An attached state names its agent, the file or source the agent publishes, and the
// generation of the agent's tables at this moment.
std::string stateSource() {
  const auto& agent = state().attached();
  if (!agent) return state().source();
  return "agent " + Mox::shownWord(agent->name()) + ", " + agent->source() + ", generation " +
         std::to_string(agent->generation());
}

int showVersion(const Match&, const Context&, Output& out) {
  return out.print([&](rendr::Printer& p) {
    rendr::StringAttrInfo version("version", p.format());
    rendr::StringAttrInfo hostname("hostname", p.format());
    rendr::StringAttrInfo source("state", p.format());
    version.setValue(ROVA_VERSION);
    hostname.setValue(state().hostname());
    source.setValue(stateSource());
    p.addAttributes("rova %s\n", 1, version.getArg());
    p.addAttributes("Device: %s\n", 1, hostname.getArg());
    p.addAttributes("State: %s\n", 1, source.getArg());
  });
}

// ---- writing the state back ----

// A state file in a message, escaped and cut as every word from outside is, the same when it
// cannot be loaded or saved.
std::string shownStateFile(const std::string& path) {
  return path.empty() ? std::string("(built-in)") : Mox::shownWord(path, '\0');
}

std::string cannotWrite(const Snapshot::SaveError& e) {
  return "Cannot write " + shownStateFile(e.path()) + ": " + e.reason();
}

int writeState(const Match& m, const Context&, Output& out) {
  try {
    state().save(m.has("FILE") ? m.value("FILE") : std::string());
  } catch (const Snapshot::SaveError& e) {
    throw Mox::RangeException(cannotWrite(e));
  }
  return out.nothing();
}

int finishOneShot(int status, const Context& context) {
  if (status != kStatusOk || !state().unsaved()) return status;
  if (state().filePath().empty()) {
    context.error("% Not saved: the " + state().source() +
                  " has no file of its own; give the state with --state FILE");
    return status;
  }
  try {
    state().save("");
  } catch (const Snapshot::SaveError& e) {
    context.error("% " + cannotWrite(e));
    // A signal that abandoned the write ends the program as it would have ended the command.
    if (const int signal = rendr::takeStopSignal()) return kStatusSignal + signal;
    return kStatusFailed;
  }
  return status;
}

int finishShell(int status, const Context& context) {
  if (!state().unsaved()) return status;
  if (state().filePath().empty()) {
    context.error("% Not saved: the changes to the " + state().source() +
                  " are lost; it has no file of its own (write FILE saves them)");
  } else {
    context.error(
        "% Not saved: the changes since the state was loaded or last written are not in " +
        shownStateFile(state().filePath()) + " (write saves them)");
  }
  return status;
}

int loadState(const std::string& path, std::span<const std::string> command, const Context& context,
              Snapshot::Sections sections) {
  try {
    DeviceState::instance().load(path, sections);
  } catch (const Snapshot::LoadError& e) {
    // A file that cannot be read is named once, here.
    return refuseLine(command,
                      "% Cannot load state " + shownStateFile(path) + ": " +
                          (e.file().empty() ? e.what() : e.reason()),
                      kStatusUsage, context);
  } catch (const std::bad_alloc&) {
    return refuseLine(command, "% Cannot load state " + shownStateFile(path) + ": out of memory",
                      kStatusNoMemory, context);
  }
  return kStatusOk;
}

}  // namespace cli
