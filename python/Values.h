#pragma once
// Values between Python and the registry. What crosses: None, bool, int, float and str as
// themselves; addresses, prefixes, interface names and the other platform values as their
// usual text ("10.1.0.0/16"), which they are also built from; registered values, library
// objects and state records as rova.Value.

#include <pybind11/pybind11.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "lib/registry/TypeRegistry.h"
#include "platform/mox/Exception.h"

namespace rovapy {

namespace py = pybind11;
using Rova::Value;

const Rova::TypeRegistry& reg();

// The module's exception classes, made at import.
struct Errors {
  py::object error, rangeError, internalError, loadError, commandError, changedError, busyError;
};
Errors& errors();
// Raises `type` with `message`, and `.status` when it is given.
[[noreturn]] void raise(const py::object& type, const std::string& message, int status = -1);

struct PyValue {
  Value v;
};

// Text the library gives, with U+FFFD for bytes that are not UTF-8.
py::str pyText(std::string_view s);
// A str as UTF-8; a lone surrogate is a range error.
std::string utf8(py::handle text);
Value fromPy(py::handle h);
py::object toPy(const Value& v);

// The names rule for an input (by its type, or for plain text by its name).
void checkName(const std::string& input, const std::string& typeName, const Value& v);
void checkNames(const std::vector<Rova::Param>& params, const std::vector<Value>& args);
void checkNames(const Rova::TypeEntry& type, const std::vector<Rova::NamedValue>& named);

// Arguments in order or by name, put in the order of `params`.
std::vector<Value> orderedArgs(const std::string& what, const std::vector<Rova::Param>& params,
                               const py::args& args, const py::kwargs& kwargs);

struct PyCursor {
  py::object owner;  // the rova.Value whose collection this walks
  std::unique_ptr<Rova::CollectionCursor> cursor;
  bool started = false;
  // The entry given last is gone: the cursor already stands on the one after it, which the
  // caller has not seen and must not delete.
  bool deleted = false;

  py::tuple next() {
    if (started) cursor->next();
    started = true;
    deleted = false;
    if (!cursor->valid()) throw py::stop_iteration();
    return py::make_tuple(toPy(cursor->key()), toPy(cursor->value()));
  }
  void deleteCurrent() {
    if (!started || deleted || !cursor->valid())
      throw Mox::RangeException("no current entry to delete: call next() first");
    cursor->deleteCurrent();
    deleted = true;
  }
};

struct PyCollection {
  py::object owner;
  std::string name;

  PyCursor iter() const {
    PyValue& o = owner.cast<PyValue&>();
    return PyCursor{owner, reg().iterate(o.v, name)};
  }
};

py::object getAttr(py::object self, const std::string& name);
void setAttr(PyValue& self, const std::string& name, py::handle v);
std::vector<std::string> dirOf(const PyValue& self);
// The attributes as a dict: values as Python values, records and registered values as dicts
// of their own, a collection as a dict (a set as a list of its keys).
py::dict toDict(const PyValue& self);

// The same description as `show type NAME json`.
py::dict typeInfo(const std::string& name);

// Builds a registered type from inputs in order or by name.
Value construct(const std::string& type, const py::args& args, const py::kwargs& kwargs);

}  // namespace rovapy
