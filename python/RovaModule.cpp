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
#include <sys/mman.h>
#include <unistd.h>

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "cli/Commands.h"
#include "cli/DeviceState.h"
#include "cli/Grammar.h"
#include "cli/Runner.h"
#include "cli/StateInputs.h"
#include "lib/registry/TypeRegistry.h"
#include "platform/mox/Exception.h"
#include "platform/plexa/IntfId.h"
#include "platform/plexa/VrfName.h"
#include "platform/rendr/Interrupt.h"
#include "snapshot/Snapshot.h"

namespace py = pybind11;
using Rova::Value;

namespace {

const Rova::TypeRegistry& reg() {
  return Rova::TypeRegistry::instance();
}

// ---- errors ----

// The module's exception classes, made at import.
struct Errors {
  py::object error, rangeError, internalError, loadError, commandError, changedError;
};
Errors& errors() {
  static Errors* e = new Errors;  // never destroyed: Python may outlive static destructors
  return *e;
}

[[noreturn]] void raise(const py::object& type, const std::string& message, int status = -1) {
  py::object exc = type(message);
  if (status >= 0) exc.attr("status") = status;
  PyErr_SetObject(type.ptr(), exc.ptr());
  throw py::error_already_set();
}

// ---- values ----

struct PyValue {
  Value v;
};

py::object toPy(const Value& v);

// Text the library gives may hold bytes that are not UTF-8 (a value's text form can carry any);
// Python gets U+FFFD in their place, as the JSON output shows them, not a decoding error.
py::str pyText(const std::string& s) {
  PyObject* text = PyUnicode_DecodeUTF8(s.data(), static_cast<Py_ssize_t>(s.size()), "replace");
  if (!text) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(text);
}

// A str as the UTF-8 the library reads. A lone surrogate has no UTF-8 form: refused as a
// value, not left to a failed conversion.
std::string utf8(py::handle text) {
  Py_ssize_t size = 0;
  const char* bytes = PyUnicode_AsUTF8AndSize(text.ptr(), &size);
  if (!bytes) {
    PyErr_Clear();
    throw Mox::RangeException("text " + py::repr(text).cast<std::string>() +
                              " is not valid Unicode (a lone surrogate)");
  }
  return std::string(bytes, static_cast<std::size_t>(size));
}

Value fromPy(py::handle h) {
  if (h.is_none()) return Value();
  if (PyBool_Check(h.ptr())) return Value(h.cast<bool>());
  if (PyLong_Check(h.ptr())) {
    int overflow = 0;
    const long long n = PyLong_AsLongLongAndOverflow(h.ptr(), &overflow);
    if (overflow == 0)
      return n >= 0 ? Value(static_cast<std::uint64_t>(n)) : Value(std::int64_t(n));
    if (overflow > 0) {
      const unsigned long long u = PyLong_AsUnsignedLongLong(h.ptr());
      if (!PyErr_Occurred()) return Value(static_cast<std::uint64_t>(u));
      PyErr_Clear();
    }
    throw Mox::RangeException("integer " + py::str(h).cast<std::string>() + " out of range");
  }
  if (PyFloat_Check(h.ptr())) return Value(h.cast<double>());
  if (PyUnicode_Check(h.ptr())) return Value(Mox::String8(utf8(h)));
  if (py::isinstance<PyValue>(h)) return h.cast<const PyValue&>().v;
  throw py::type_error("rova cannot take a " +
                       py::str(py::type::handle_of(h).attr("__name__")).cast<std::string>());
}

py::object toPy(const Value& v) {
  return std::visit(
      [&](const auto& x) -> py::object {
        using T = std::decay_t<decltype(x)>;
        if constexpr (std::is_same_v<T, std::monostate>) {
          return py::none();
        } else if constexpr (std::is_same_v<T, bool>) {
          return py::bool_(x);
        } else if constexpr (std::is_same_v<T, std::int64_t> || std::is_same_v<T, std::uint64_t>) {
          return py::int_(x);
        } else if constexpr (std::is_same_v<T, double>) {
          return py::float_(x);
        } else if constexpr (std::is_same_v<T, Mox::Ptr<Rova::BoxedValue>> ||
                             std::is_same_v<T, Mox::Ptr<Mox::Entity>>) {
          if (!x) return py::none();
          return py::cast(PyValue{v});
        } else {
          return pyText(v.displayText());
        }
      },
      v.variant());
}

// Interface and VRF names from a script are held to the rule a state holds them to, the one the
// loader and the command line apply: a name a command refuses, or that a state written from it
// could not load again, is refused here too. An input is a name by its type, or, where the
// library takes the name as plain text, by its own name.
void checkName(const std::string& input, const std::string& typeName, const Value& v) {
  if (!v.holds<Mox::String8>()) return;
  const std::string& text = v.get<Mox::String8>().stringValue();
  const bool text8 = typeName == "Mox::String8";
  if (typeName == "Plexa::IntfId" || (text8 && (input == "intfName" || input == "intf"))) {
    if (!Plexa::IntfId::validName(text)) {
      throw Mox::RangeException("argument '" + input + "': bad interface name " +
                                Mox::shownWord(text) + " (" + Plexa::IntfId::kNameRule + ")");
    }
  } else if (typeName == "L3::VrfName" || (text8 && input == "vrfName")) {
    // A name too long is the value type's own range error, raised when it is converted.
    if (text.size() <= L3::VrfName::kMaxBytes && !L3::VrfName::validName(text)) {
      throw Mox::RangeException("argument '" + input + "': bad VRF name " + Mox::shownWord(text) +
                                " (" + L3::VrfName::kNameRule + ")");
    }
  }
}

void checkNames(const std::vector<Rova::Param>& params, const std::vector<Value>& args) {
  for (std::size_t i = 0; i < args.size() && i < params.size(); ++i)
    checkName(params[i].name, params[i].typeName, args[i]);
}

// An input given by name may be a constructor input or an attribute written after construction.
void checkNames(const Rova::TypeEntry& type, const std::vector<Rova::NamedValue>& named) {
  for (const Rova::NamedValue& in : named) {
    for (const Rova::Param& p : type.constructorInputs) {
      if (p.name == in.name) checkName(p.name, p.typeName, in.value);
    }
    if (const Rova::AttrEntry* a = type.attr(in.name)) checkName(a->name, a->typeName, in.value);
  }
}

// Arguments given in order or by name, put in the order of `params`; a name that is not a
// parameter, one given twice, or one left out is refused.
std::vector<Value> orderedArgs(const std::string& what, const std::vector<Rova::Param>& params,
                               const py::args& args, const py::kwargs& kwargs) {
  if (args.size() > params.size()) {
    throw Mox::RangeException(what + " takes " + std::to_string(params.size()) + " argument" +
                              (params.size() == 1 ? "" : "s") + ", got " +
                              std::to_string(args.size()));
  }
  std::vector<Value> out;
  for (py::handle a : args)
    out.push_back(fromPy(a));
  std::size_t used = 0;
  for (std::size_t i = out.size(); i < params.size(); ++i) {
    const char* name = params[i].name.c_str();
    if (!kwargs.contains(name))
      throw Mox::RangeException(what + " needs the argument '" + params[i].name + "'");
    out.push_back(fromPy(kwargs[name]));
    ++used;
  }
  if (used != kwargs.size()) {
    for (auto item : kwargs) {
      const std::string name = py::str(item.first);
      bool positional = false, known = false;
      for (std::size_t i = 0; i < params.size(); ++i) {
        if (params[i].name == name) (i < args.size() ? positional : known) = true;
      }
      if (positional) throw Mox::RangeException(what + ": argument '" + name + "' given twice");
      if (!known) throw Mox::RangeException(what + " has no argument '" + name + "'");
    }
  }
  checkNames(params, out);
  return out;
}

// ---- collections ----

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

// An attribute, a collection or a bound operation of a value, by name. Anything else is an
// AttributeError, which Python's own protocols (copy, pickle, hasattr) rely on.
// A state record of a type the registry does not describe has no attributes to offer.
const Rova::TypeEntry& typeForAttribute(const Value& v, const std::string& name) {
  try {
    return reg().typeOf(v);
  } catch (const Mox::RangeException&) {
    throw py::attribute_error(v.kindName() + " has no attribute '" + name + "'");
  }
}

py::object getAttr(py::object self, const std::string& name) {
  const PyValue& pv = self.cast<const PyValue&>();
  const Rova::TypeEntry& type = typeForAttribute(pv.v, name);
  if (const Rova::AttrEntry* a = type.attr(name)) {
    if (a->iterate) return py::cast(PyCollection{self, name});
    return toPy(a->get(pv.v));
  }
  if (const Rova::OpEntry* op = type.op(name)) {
    const std::string what = type.name + "::" + name;
    return py::cpp_function(
        [self, name, what, params = op->params](py::args args, py::kwargs kwargs) {
          std::vector<Value> ordered = orderedArgs(what, params, args, kwargs);
          PyValue& target = self.cast<PyValue&>();
          return toPy(reg().call(target.v, name, ordered));
        });
  }
  throw py::attribute_error(type.name + " has no attribute or operation '" + name + "'");
}

void setAttr(PyValue& self, const std::string& name, py::handle v) {
  const Rova::TypeEntry& type = typeForAttribute(self.v, name);
  const Rova::AttrEntry* a = type.attr(name);
  if (!a) throw py::attribute_error(type.name + " has no attribute '" + name + "'");
  const Value value = fromPy(v);
  checkName(a->name, a->typeName, value);
  reg().attributeIs(self.v, name, value);
}

std::vector<std::string> dirOf(const PyValue& self) {
  std::vector<std::string> names;
  const Rova::TypeEntry* type = reg().find(self.v.kindName());
  if (!type) return names;
  for (const auto& a : type->attrs)
    names.push_back(a.name);
  for (const auto& o : type->ops)
    names.push_back(o.name);
  return names;
}

// ---- type descriptions ----

py::list paramList(const std::vector<Rova::Param>& params) {
  py::list out;
  for (const auto& p : params)
    out.append(py::dict(py::arg("name") = p.name, py::arg("type") = p.typeName));
  return out;
}

// The same description as `show type NAME json`.
py::dict typeInfo(const std::string& name) {
  const Rova::TypeEntry& t = reg().type(name);
  py::dict d;
  d["name"] = t.name;
  d["kind"] = Rova::kindName(t.kind);
  d["constructible"] = bool(t.construct);
  if (t.construct) {
    d["constructedBy"] = t.factory.empty() ? t.name : t.factory;
    d["constructorInputs"] = paramList(t.constructorInputs);
  }
  if (!t.enumNames.empty()) {
    py::list names;
    for (std::size_t i = 0; i < t.enumNames.size(); ++i)
      names.append(py::dict(py::arg("name") = t.enumNames[i], py::arg("value") = i));
    d["enumNames"] = names;
  }
  py::list attrs;
  for (const auto& a : t.attrs) {
    py::dict ad;
    ad["name"] = a.name;
    ad["type"] = a.typeName;
    if (a.kind == Mox::AttrKind::collection) {
      ad["keyType"] = a.keyType;
      ad["valueType"] = a.valueType;
    }
    ad["kind"] = Rova::kindName(a.kind);
    ad["writable"] = a.writable;
    attrs.append(ad);
  }
  d["attributes"] = attrs;
  py::list ops;
  for (const auto& o : t.ops) {
    ops.append(py::dict(py::arg("name") = o.name, py::arg("parameters") = paramList(o.params),
                        py::arg("result") = o.resultType));
  }
  d["operations"] = ops;
  return d;
}

// ---- construction ----

Value construct(const std::string& type, const py::args& args, const py::kwargs& kwargs) {
  if (args.size() && kwargs.size())
    throw Mox::RangeException(type + ": give the constructor inputs in order or by name, not both");
  const Rova::TypeEntry& entry = reg().type(type);
  if (!kwargs.size()) {
    std::vector<Value> ordered;
    for (py::handle a : args)
      ordered.push_back(fromPy(a));
    checkNames(entry.constructorInputs, ordered);
    return reg().construct(type, ordered);
  }
  std::vector<Rova::NamedValue> named;
  for (auto item : kwargs)
    named.push_back({py::str(item.first), fromPy(item.second)});
  checkNames(entry, named);
  return reg().constructNamed(type, named);
}

// ---- states and commands ----

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
    throw Mox::RangeException(
        "another command is still running: read its lines to the end or close() them first");
  }
  return lock;
}

struct PyState {
  Mox::Ptr<Statum::EntityManager> em;
  std::string source;
  std::string file;

  void adopt() const { cli::DeviceState::instance().adopt(em, source, file); }
};

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
  for (Rova::NamedValue& in : cli::stateInputs(cli::DeviceState::instance(), type, vrf)) {
    if (!kwargs.contains(in.name.c_str())) named.push_back(std::move(in));
  }
  return reg().constructNamed(typeName, named);
}

cli::Grammar& grammar() {
  static cli::Grammar* g = [] {
    auto* made = new cli::Grammar;
    cli::addCommands(*made);
    return made;
  }();
  return *g;
}

// A file in memory for a command's output or messages.
int memoryFile(const char* name) {
  const int fd = ::memfd_create(name, MFD_CLOEXEC);
  if (fd < 0)
    throw Mox::RangeException(std::string("cannot make an output file: ") + strerror(errno));
  return fd;
}

std::string readAll(int fd) {
  std::string out;
  ::lseek(fd, 0, SEEK_SET);
  char buf[65536];
  for (;;) {
    const ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    out.append(buf, static_cast<std::size_t>(n));
  }
  return out;
}

std::vector<std::string> commandWords(const std::string& line, bool& json) {
  std::vector<std::string> words = cli::splitWords(line);
  if (words.empty()) throw Mox::RangeException("no command given");
  auto asksForJson = [&] {
    return cli::Grammar::formatOf(grammar().match(words), words) == cli::Format::json;
  };
  if (json && !asksForJson()) words.push_back("json");
  json = asksForJson();
  return words;
}

py::object document(const std::string& out, bool json) {
  if (!json) return pyText(out);
  return py::module_::import("json").attr("loads")(out);
}

// A failed command: its messages as the CLI writes them on standard error (a refused check:
// its verdict); the status and what it wrote on standard output ride along.
[[noreturn]] void raiseCommandError(int status, std::string messages, py::object output,
                                    const std::string& text) {
  // A check that refuses says why on standard output, where its verdict goes.
  if (messages.empty()) messages = text;
  while (!messages.empty() && messages.back() == '\n')
    messages.pop_back();
  const py::object& type =
      status == cli::kStatusInternal ? errors().internalError : errors().commandError;
  py::object exc = type(messages);
  exc.attr("status") = status;
  exc.attr("output") = output;
  PyErr_SetObject(type.ptr(), exc.ptr());
  throw py::error_already_set();
}

// A signal noted while no command ran belongs to the script, which Python has already told
// (its own handler runs after the printer's): it must not stop the next command.
void startCommand() {
  rendr::clearInterrupt();
}

// A command that ^C stopped raises KeyboardInterrupt, as any interrupted call does in Python;
// Python's own handler saw the signal too.
void raiseInterrupt(int status) {
  if (status == cli::kStatusSignal + SIGINT && PyErr_CheckSignals() != 0)
    throw py::error_already_set();
}

py::object runCommand(const PyState& s, const std::string& line, bool json) {
  std::vector<std::string> words = commandWords(line, json);
  auto lock = commandLock();
  s.adopt();
  const int out = memoryFile("rova-output");
  const int err = memoryFile("rova-messages");
  int status;
  {
    py::gil_scoped_release release;
    startCommand();
    status = cli::runCommand(grammar(), words, cli::Context{out, err});
  }
  const std::string text = readAll(out), messages = readAll(err);
  ::close(out);
  ::close(err);
  raiseInterrupt(status);
  if (status != cli::kStatusOk) {
    py::object output = pyText(text);
    if (json) {
      try {
        output = document(text, true);
      } catch (const py::error_already_set&) {
      }
    }
    raiseCommandError(status, messages, output, text);
  }
  return document(text, json);
}

// A command's output line by line as it is written: the command runs on its own thread into
// a pipe, so no more than the pipe's buffer is held at once. Closing early (or dropping the
// iterator) closes the pipe; the command's printer then ends quietly.
class LineStream {
 public:
  LineStream(const PyState& s, const std::string& line, bool json) {
    std::vector<std::string> words = commandWords(line, json);
    lock_ = commandLock();
    s.adopt();
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
      throw Mox::RangeException(std::string("cannot make a pipe: ") + strerror(errno));
    read_ = fds[0];
    err_ = memoryFile("rova-messages");
    startCommand();
    worker_ = std::thread([this, words = std::move(words), write = fds[1]] {
      // runCommand reports every failure of the command itself; this is for the rest (no
      // memory), which must not end the interpreter from a thread of ours.
      try {
        status_ = cli::runCommand(grammar(), words, cli::Context{write, err_});
      } catch (const std::exception& e) {
        cli::Context{write, err_}.error(std::string("% Internal error: ") + e.what());
        status_ = cli::kStatusInternal;
      }
      ::close(write);
    });
  }
  ~LineStream() { close(); }
  LineStream(const LineStream&) = delete;
  LineStream& operator=(const LineStream&) = delete;

  py::str next() {
    for (;;) {
      const auto nl = buffer_.find('\n', scanned_);
      if (nl != std::string::npos) {
        std::string line = buffer_.substr(0, nl);
        buffer_.erase(0, nl + 1);
        scanned_ = 0;
        return pyText(line);
      }
      scanned_ = buffer_.size();
      if (read_ < 0 || !fill()) break;
    }
    if (!buffer_.empty()) {
      std::string rest;
      rest.swap(buffer_);
      return pyText(rest);
    }
    finish();
    throw py::stop_iteration();
  }

  void close() {
    if (read_ >= 0) {
      ::close(read_);
      read_ = -1;
    }
    if (worker_.joinable()) {
      py::gil_scoped_release release;
      worker_.join();
    }
    if (err_ >= 0) {
      ::close(err_);
      err_ = -1;
    }
    if (lock_) lock_.unlock();
  }

 private:
  // Reads more of the output; false at its end.
  bool fill() {
    char buf[65536];
    ssize_t n;
    {
      py::gil_scoped_release release;
      do {
        n = ::read(read_, buf, sizeof buf);
      } while (n < 0 && errno == EINTR);
    }
    if (n <= 0) return false;
    buffer_.append(buf, static_cast<std::size_t>(n));
    return true;
  }

  // After the last line: a command that failed raises now, with its messages.
  void finish() {
    if (finished_) return;
    finished_ = true;
    const int errFd = err_;
    err_ = -1;
    std::string messages;
    if (worker_.joinable()) {
      py::gil_scoped_release release;
      worker_.join();
    }
    if (errFd >= 0) {
      messages = readAll(errFd);
      ::close(errFd);
    }
    close();
    raiseInterrupt(status_);
    if (status_ != cli::kStatusOk) raiseCommandError(status_, messages, py::none(), "");
  }

  std::unique_lock<std::mutex> lock_;
  std::thread worker_;
  int read_ = -1;
  int err_ = -1;
  int status_ = cli::kStatusOk;
  bool finished_ = false;
  std::string buffer_;
  std::size_t scanned_ = 0;
};

}  // namespace

PYBIND11_MODULE(rova, m) {
  m.doc() = "Rova: a router's routing state, its library types and its commands";

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
  m.attr("Error") = e.error;
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

  py::class_<PyCursor>(m, "CollectionIterator")
      .def("__iter__", [](py::object self) { return self; })
      .def("__next__", &PyCursor::next)
      .def("delete_current", &PyCursor::deleteCurrent,
           "Deletes the entry next() returned last; iteration goes on with the one after it.");

  py::class_<PyState>(m, "State", "A device state: a snapshot document, loaded whole.")
      .def_static("load", &loadState, py::arg("path") = py::none(),
                  "Loads a state document; without a path, the built-in example device.")
      .def_property_readonly("source",
                             [](const PyState& s) -> py::object {
                               if (s.file.empty()) return py::str(s.source);
                               return py::module_::import("os").attr("fsdecode")(py::bytes(s.file));
                             })
      .def_property_readonly(
          "entity_manager", [](const PyState& s) { return PyValue{Rova::toValue(s.em)}; },
          "The state database itself, for objects that mount their own tables from it.")
      .def("__repr__",
           [](const PyState& s) {
             return pyText("<rova.State " + Mox::shownWord(s.source, '\0') + ">");
           })
      .def("vrfs",
           [](const PyState& s) {
             auto lock = commandLock();
             s.adopt();
             return cli::DeviceState::instance().vrfNames();
           })
      .def("paths",
           [](const PyState& s) {
             std::vector<std::string> out;
             for (const auto& [path, entity] : s.em->entities())
               out.push_back(path);
             return out;
           })
      .def("__getitem__",
           [](const PyState& s, const std::string& path) {
             auto it = s.em->entities().find(path);
             if (it == s.em->entities().end()) throw py::key_error(path);
             return PyValue{Value(it->second)};
           })
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

  m.def(
      "types",
      [] {
        std::vector<std::string> names;
        for (const auto& t : reg().types())
          names.push_back(t->name);
        return names;
      },
      "The registered type names, in registration order.");
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
}
