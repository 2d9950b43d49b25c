// Loading a state for scripts, and construction from it.

#include "python/State.h"

#include <string>
#include <vector>

#include "cli/AttachMode.h"
#include "cli/DeviceState.h"
#include "cli/LiveMode.h"
#include "cli/StateInputs.h"
#include "platform/mox/Exception.h"
#include "platform/plexa/VrfName.h"
#include "python/Runner.h"
#include "snapshot/Live.h"
#include "snapshot/Snapshot.h"

namespace rovapy {

// Commands share the front end's state and printer status, so one runs at a time. A second
// one started while a line iterator is still open is refused instead of waiting for it, which
// from the same thread would never end.
std::mutex& commandMutex() {
  static std::mutex m;
  return m;
}

std::unique_lock<std::mutex> commandLock() {
  std::unique_lock<std::mutex> lock(commandMutex(), std::try_to_lock);
  if (!lock) {
    throw BusyError(
        "the module is busy: another command is still running; read its lines to the end or "
        "close() them first");
  }
  return lock;
}

// The state a command is about to run on becomes the front end's, and with it the rule of
// its source: the kernel's own state takes no configuration, as under `rova --live`.
void PyState::adopt() const {
  if (attached) em = attached->current();
  cli::DeviceState::instance().adopt(em, source, file, live, attached);
  if (attached) {
    cli::commandGateIs([](std::span<const std::string> words, const cli::Context& c) {
      return cli::attachedGate(grammar(), words, c);
    });
  } else if (live) {
    cli::commandGateIs([](std::span<const std::string> words, const cli::Context& c) {
      return cli::refuseConfiguration(grammar(), words, c);
    });
  } else {
    cli::commandGateIs(nullptr);
  }
}

PyState liveState() {
  try {
    PyState s;
    s.em = Snapshot::readLive();
    s.source = "live";
    s.live = true;
    return s;
  } catch (const Snapshot::LiveError& e) {
    raise(errors().loadError, std::string("Cannot read live state: ") + e.what());
  }
}

// Without a path, the built-in example. A path is what Python's own open() takes (str,
// bytes or a path object), turned into the file system's bytes the way open() turns it, so a
// file whose name is not UTF-8 can still be named. An empty name or one holding a NUL is
// refused by the loader, for the module as for the command line.
PyState loadState(const py::object& path) {
  std::string p;
  if (!path.is_none()) p = py::module_::import("os").attr("fsencode")(path).cast<std::string>();
  try {
    PyState s;
    s.em = path.is_none() ? Snapshot::load(Snapshot::embeddedExample()) : Snapshot::loadFile(p);
    s.source = path.is_none() ? "built-in example" : p;
    s.file = p;
    return s;
  } catch (const Snapshot::LoadError& e) {
    // The CLI's message for a state it cannot load.
    raise(errors().loadError, "Cannot load state " +
                                  (path.is_none() ? std::string("(built-in)")
                                   : p.empty()    ? std::string("''")
                                                  : Mox::shownWord(p, '\0')) +
                                  ": " + (e.file().empty() ? e.what() : e.reason()));
  }
}

PyState attachState(const std::string& name) {
  try {
    PyState s;
    s.attached = Agent::Attachment::open(name);
    s.em = s.attached->current();
    s.source = "agent " + Mox::shownWord(name);
    return s;
  } catch (const Agent::StoreError& e) {
    raise(errors().loadError, std::string("Cannot attach: ") + e.what());
  }
}

// Builds a type with inputs by name, the ones not given taken from the state (the entities
// the CLI would pass), and a text given for a state record read as the record's path.
Value constructFromState(const PyState& s, const std::string& typeName, const py::kwargs& kwargs) {
  const Rova::TypeEntry& type = reg().type(typeName);
  std::vector<Rova::NamedValue> named;
  for (auto item : kwargs) {
    const std::string name = py::str(item.first);
    Value v = fromPy(item.second);
    for (const Rova::Param& p : type.constructorInputs) {
      if (p.name != name || !v.holds<Mox::String8>()) continue;
      auto it = s.em->entities().find(v.get<Mox::String8>().stringValue());
      if (it != s.em->entities().end() && p.typeName == it->second->typeName())
        v = Value(it->second);
    }
    named.push_back({name, std::move(v)});
  }
  checkNames(type, named);
  std::string vrf(L3::VrfName::kDefault);
  if (kwargs.contains("vrfName") && py::isinstance<py::str>(kwargs["vrfName"]))
    vrf = utf8(kwargs["vrfName"]);
  auto lock = commandLock();
  s.adopt();
  // The state records come from the VRF named, which must be one of the state's, as the
  // command line holds it. The RD checker's VRF is the one to receive an RD, which may be new.
  // A name too long is the value type's own range error, raised when it is converted.
  if (kwargs.contains("vrfName") && typeName != "Rova::RdAssignmentChecker" &&
      vrf.size() <= L3::VrfName::kMaxBytes && !cli::DeviceState::instance().hasVrf(vrf))
    throw Mox::RangeException("VRF " + Mox::shownWord(vrf) + " does not exist");
  for (Rova::NamedValue& in : cli::stateInputs(cli::DeviceState::instance(), type, vrf)) {
    if (!kwargs.contains(in.name.c_str())) named.push_back(std::move(in));
  }
  return reg().constructNamed(typeName, named);
}

}  // namespace rovapy
