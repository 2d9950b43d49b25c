// The Python module `rova`: the type registry and the command table for scripts. Like the CLI,
// it knows the library only by type names: every object is built, read, written and called
// through the registry, and a command runs through the same table as `rova COMMAND`.
//
// What crosses into Python: None, bool, int, float and str as themselves; addresses, prefixes,
// interface names and the other platform values as their usual text ("10.1.0.0/16"), which
// they are also built from; registered values, library objects and state records as
// rova.Value. Every error becomes a rova.Error with the message the CLI would show.

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <algorithm>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/DeviceState.h"
#include "lib/registry/TypeRegistry.h"
#include "platform/mox/Exception.h"
#include "python/Routes.h"
#include "python/Runner.h"
#include "python/State.h"
#include "python/Values.h"

using namespace rovapy;

PYBIND11_MODULE(rova, m) {
  m.doc() = "Rova: a router's routing state, its library types and its commands";
  m.attr("__version__") = ROVA_VERSION;

  Errors& e = errors();
  e.error = py::reinterpret_steal<py::object>(
      PyErr_NewExceptionWithDoc("rova.Error", "Any error rova raises.", PyExc_Exception, nullptr));
  py::tuple rangeBases = py::make_tuple(e.error, py::handle(PyExc_ValueError));
  e.rangeError = py::reinterpret_steal<py::object>(
      PyErr_NewExceptionWithDoc("rova.RangeError", "A value, argument or text the library refuses.",
                                rangeBases.ptr(), nullptr));
  e.internalError = py::reinterpret_steal<py::object>(PyErr_NewExceptionWithDoc(
      "rova.InternalError", "A broken invariant inside the library: a fault to report.",
      e.error.ptr(), nullptr));
  e.loadError = py::reinterpret_steal<py::object>(PyErr_NewExceptionWithDoc(
      "rova.LoadError", "A state document that cannot be loaded.", e.error.ptr(), nullptr));
  e.commandError = py::reinterpret_steal<py::object>(PyErr_NewExceptionWithDoc(
      "rova.CommandError", "A command that failed; .status is its exit status.", e.error.ptr(),
      nullptr));
  py::tuple changedBases = py::make_tuple(e.error, py::handle(PyExc_RuntimeError));
  e.changedError = py::reinterpret_steal<py::object>(PyErr_NewExceptionWithDoc(
      "rova.CollectionChangedError",
      "A collection changed while an iterator walked it, other than through that iterator.",
      changedBases.ptr(), nullptr));
  e.busyError = py::reinterpret_steal<py::object>(PyErr_NewExceptionWithDoc(
      "rova.BusyError",
      "The module is busy: a command's lines are still open while another call needs it.",
      changedBases.ptr(), nullptr));
  m.attr("Error") = e.error;
  m.attr("BusyError") = e.busyError;
  m.attr("RangeError") = e.rangeError;
  m.attr("InternalError") = e.internalError;
  m.attr("LoadError") = e.loadError;
  m.attr("CommandError") = e.commandError;
  m.attr("CollectionChangedError") = e.changedError;

  py::register_exception_translator([](std::exception_ptr p) {
    try {
      if (p) std::rethrow_exception(p);
    } catch (const py::error_already_set&) {
      throw;
    } catch (const py::builtin_exception&) {
      throw;
    } catch (const Mox::InternalException& x) {
      PyErr_SetString(errors().internalError.ptr(), x.what());
    } catch (const Mox::RangeException& x) {
      PyErr_SetString(errors().rangeError.ptr(), x.what());
    } catch (const BusyError& x) {
      PyErr_SetString(errors().busyError.ptr(), x.what());
    } catch (const Mox::CollectionChangedException& x) {
      PyErr_SetString(errors().changedError.ptr(), x.what());
    } catch (const std::exception& x) {
      PyErr_SetString(errors().error.ptr(), x.what());
    }
  });

  py::class_<PyValue>(m, "Value",
                      "A registered value, library object or state record. Attributes read and "
                      "write as Python attributes, operations are methods, collections iterate "
                      "as (key, value) pairs; str() is the value text form.")
      .def("__getattr__", &getAttr)
      .def("__setattr__", &setAttr)
      .def("__dir__", &dirOf)
      .def("to_dict", &toDict,
           "The attributes as a dict: records and registered values as dicts of their own, a "
           "collection as a dict (a set as a list).")
      .def("__str__", [](const PyValue& v) { return pyText(reg().text(v.v)); })
      .def("__repr__", [](const PyValue& v) { return pyText(reg().text(v.v)); })
      .def("__eq__",
           [](const PyValue& a, py::handle b) {
             return py::isinstance<PyValue>(b) && a.v == b.cast<const PyValue&>().v;
           })
      .def_static(
          "parse",
          [](const py::str& text, std::optional<PyState> state) {
            std::unique_lock<std::mutex> lock;
            if (state) {
              lock = commandLock();
              state->adopt();
            }
            return PyValue{reg().parse(utf8(text))};
          },
          py::arg("text"), py::arg("state") = py::none(),
          "Builds a value from its text form; state records named in it are read from `state`.");

  py::class_<PyCollection>(m, "Collection", "A collection attribute: iterate for (key, value).")
      .def("__iter__", &PyCollection::iter)
      .def("__repr__", [](const PyCollection& c) { return "<rova.Collection " + c.name + ">"; });

  py::class_<PyCursor>(
      m, "CollectionIterator",
      "An iterator over a collection: (key, value) pairs, in the collection's order.")
      .def("__iter__", [](py::object self) { return self; })
      .def("__next__", &PyCursor::next)
      .def("delete_current", &PyCursor::deleteCurrent,
           "Deletes the entry next() returned last; iteration goes on with the one after it.");

  py::class_<PyState>(m, "State", "A device state: a snapshot document, loaded whole.")
      .def_static("load", &loadState, py::arg("path") = py::none(),
                  "Loads a state document; without a path, the built-in example device.")
      .def_static("live", &liveState,
                  "The routing state of this machine's kernel, read now (as rova --live): "
                  "show and check commands work on it, configuration is refused.")
      .def_property_readonly(
          "is_live", [](const PyState& s) { return s.live; }, "Whether this is the kernel's state.")
      .def_property_readonly(
          "source",
          [](const PyState& s) -> py::object {
            if (s.file.empty()) return py::str(s.source);
            return py::module_::import("os").attr("fsdecode")(py::bytes(s.file));
          },
          "Where the state came from: its file, 'built-in example' or 'live'.")
      .def_static("attach", &attachState, py::arg("name") = "default",
                  "The tables the state agent NAME publishes, read in place (see rova-agent).")
      .def_property_readonly(
          "entity_manager", [](const PyState& s) { return PyValue{Rova::toValue(s.em)}; },
          "The state database itself, for objects that mount their own tables from it.")
      .def("__repr__",
           [](const PyState& s) {
             return pyText("<rova.State " + Mox::shownWord(s.source, '\0') + ">");
           })
      .def(
          "vrfs",
          [](const PyState& s) {
            auto lock = commandLock();
            s.adopt();
            return cli::DeviceState::instance().vrfNames();
          },
          "The state's VRF names: 'default' first, then by name.")
      .def(
          "paths",
          [](const PyState& s) {
            std::vector<std::string> out;
            for (const auto& [path, entity] : s.em->entities())
              out.push_back(path);
            return out;
          },
          "The paths of the state's records, for state[path].")
      .def(
          "__getitem__",
          [](const PyState& s, const std::string& path) {
            auto it = s.em->entities().find(path);
            if (it == s.em->entities().end()) throw py::key_error(path);
            return PyValue{Value(it->second)};
          },
          "The state record at a path (state.paths() lists them); a KeyError for another.")
      .def(
          "construct",
          [](const PyState& s, const std::string& type, py::kwargs kwargs) {
            return PyValue{constructFromState(s, type, kwargs)};
          },
          py::arg("type"),
          "Builds a registered type by name with inputs by name; the state records it needs "
          "and that are not given come from this state (per VRF from vrfName), and a record "
          "may be given by its path in the state.");

  py::class_<LineStream>(m, "Lines", "The output of a command, line by line as it is written.")
      .def("__iter__", [](py::object self) { return self; })
      .def("__next__", &LineStream::next)
      .def("close", &LineStream::close, "Stops reading; the command ends quietly.")
      .def("__enter__", [](py::object self) { return self; })
      .def("__exit__", [](LineStream& s, py::args) { s.close(); });

  addRoutes(m);

  m.def(
      "types",
      [] {
        std::vector<std::string> names;
        for (const auto& t : reg().types())
          names.push_back(t->name);
        return names;
      },
      "The registered type names, in registration order.");
  m.def(
      "record_types",
      [] {
        std::vector<std::string> names;
        for (const auto& t : reg().records())
          names.push_back(t->name);
        return names;
      },
      "The state record types whose attributes scripts read by name (a state's records, the "
      "routes a listing hands back), in registration order.");
  m.def("type_info", &typeInfo, py::arg("name"),
        "A registered type: construction, attributes with their kinds, operations.");
  m.def(
      "type_name", [](const PyValue& v) { return v.v.kindName(); }, py::arg("value"),
      "The type of a value: its registered name, or a state record's own.");
  m.def(
      "construct",
      [](const std::string& type, py::args args, py::kwargs kwargs) {
        return PyValue{construct(type, args, kwargs)};
      },
      py::arg("type"), "Builds a registered type from its inputs, in order or by name.");
  m.def(
      "run",
      [](const PyState& s, const py::str& command, bool json, bool lines) -> py::object {
        const std::string line = utf8(command);
        if (lines) return py::cast(std::make_unique<LineStream>(s, line, json));
        return runCommand(s, line, json);
      },
      py::arg("state"), py::arg("command"), py::arg("json") = false, py::arg("lines") = false,
      "Runs a rova command on a state: its output as text, the parsed document with "
      "json=True, or an iterator of lines with lines=True. A failed command raises "
      "rova.CommandError (rova.InternalError for an internal error) with the CLI's messages.");
  m.def(
      "configure",
      [](const PyState& s, const py::object& lines, const py::object& session) {
        std::vector<std::string> list;
        if (py::isinstance<py::str>(lines)) {
          const std::string text = utf8(lines);
          std::size_t start = 0;
          while (start < text.size()) {
            const std::size_t end = std::min(text.find('\n', start), text.size());
            list.push_back(text.substr(start, end - start));
            start = end + 1;
          }
        } else {
          for (const py::handle& l : lines)
            list.push_back(utf8(l));
        }
        if (session.is_none()) {
          configure(s, list, "configure", true);
        } else {
          configure(s, list, "configure session " + utf8(session), true);
        }
      },
      py::arg("state"), py::arg("lines"), py::arg("session") = py::none(),
      "Configuration lines (one text of lines, or a list), as configuration mode takes them. "
      "Without a session each applies at once; with session=NAME they are recorded in that "
      "session's candidate until commit(). A refused line raises rova.CommandError naming it; "
      "the lines before it stay.");
  m.def(
      "session_diff",
      [](const PyState& s, const py::str& session) {
        return configure(s, {"show session diff"}, "configure session " + utf8(session), false);
      },
      py::arg("state"), py::arg("session"),
      "What the session's candidate changes: a unified diff of the running configuration.");
  m.def(
      "commit",
      [](const PyState& s, const py::str& session) {
        configure(s, {"commit"}, "configure session " + utf8(session), false);
      },
      py::arg("state"), py::arg("session"),
      "Applies the session's candidate whole; when a line is refused, nothing, and raises "
      "rova.CommandError naming the line.");
  m.def(
      "abort",
      [](const PyState& s, const py::str& session) {
        configure(s, {"abort"}, "configure session " + utf8(session), false);
      },
      py::arg("state"), py::arg("session"), "Drops the session's candidate.");
}
