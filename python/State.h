#pragma once
// A device state loaded for scripts, and the one lock that commands and construction from a
// state share.

#include <pybind11/pybind11.h>

#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>

#include "cli/DeviceState.h"
#include "platform/mox/Ptr.h"
#include "platform/statum/EntityManager.h"
#include "python/Values.h"

namespace rovapy {

// Commands share the front end's state and printer status, so one runs at a time; a second
// one is refused with BusyError (rova.BusyError) instead of waiting.
std::unique_lock<std::mutex> commandLock();

struct BusyError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct PyState {
  // An attached state's is read again when its agent published since (a change sent to it).
  mutable Mox::Ptr<Statum::EntityManager> em;
  std::string source;
  std::string file;
  bool live = false;  // the kernel's own state: configuration commands are refused
  // The agent's store whose tables the state reads; null for a loaded state.
  std::shared_ptr<Agent::Attachment> attached;

  void adopt() const;
};

// The routing state of this machine's kernel, read now, as `rova --live` reads it.
PyState liveState();

// Without a path, the built-in example; a path as open() takes it.
PyState loadState(const py::object& path);
// The tables the state agent `name` publishes, read in place.
PyState attachState(const std::string& name);

// Builds a type with inputs by name, the state records it needs and that are not given taken
// from the state.
Value constructFromState(const PyState& s, const std::string& typeName, const py::kwargs& kwargs);

}  // namespace rovapy
