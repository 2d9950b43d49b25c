// Values between Python and the registry: conversions both ways, the names rule, attributes,
// collections, type descriptions and construction.

#include "python/Values.h"

#include "platform/mox/Exception.h"
#include "platform/plexa/IntfId.h"
#include "platform/plexa/VrfName.h"

namespace rovapy {

const Rova::TypeRegistry& reg() {
  return Rova::TypeRegistry::instance();
}

// ---- errors ----

Errors& errors() {
  static Errors* e = new Errors;  // never destroyed: Python may outlive static destructors
  return *e;
}

void raise(const py::object& type, const std::string& message, int status) {
  py::object exc = type(message);
  if (status >= 0) exc.attr("status") = status;
  PyErr_SetObject(type.ptr(), exc.ptr());
  throw py::error_already_set();
}

// ---- values ----

// Text the library gives may hold bytes that are not UTF-8 (a value's text form can carry any);
// Python gets U+FFFD in their place, as the JSON output shows them, not a decoding error.
py::str pyText(std::string_view s) {
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
  const Rova::TypeEntry* type = nullptr;
  try {
    type = &reg().typeOf(self.v);
  } catch (const Mox::RangeException&) {
    return names;  // a value of no registered type has no attributes to list
  }
  for (const auto& a : type->attrs)
    names.push_back(a.name);
  for (const auto& o : type->ops)
    names.push_back(o.name);
  return names;
}

namespace {

py::object plain(const Value& v, int depth);

bool isHandle(const Value& v) {
  return v.holds<Mox::Ptr<Rova::BoxedValue>>() || v.holds<Mox::Ptr<Mox::Entity>>();
}

// A collection: a set (values all true, as sets iterate) as the list of its keys, a map as a
// dict; a key that is itself a record is keyed by its text form, which a dict can hash.
py::object collectionOf(Value& owner, const Rova::AttrEntry& a, int depth) {
  py::dict entries;
  py::list keys;
  bool set = a.valueType == "bool";
  for (auto cursor = reg().iterate(owner, a.name); cursor->valid(); cursor->next()) {
    const Value key = cursor->key(), value = cursor->value();
    py::object k = isHandle(key) ? py::object(pyText(reg().text(key))) : toPy(key);
    if (set && !(value.holds<bool>() && value.get<bool>())) set = false;
    keys.append(isHandle(key) ? plain(key, depth + 1) : k);
    entries[k] = plain(value, depth + 1);
  }
  if (set) return keys;
  return entries;
}

// A registered value or record as a dict; a value of no registered type as its text.
py::object dictOf(const Value& v, int depth) {
  const Rova::TypeEntry* type = nullptr;
  try {
    type = &reg().typeOf(v);
  } catch (const Mox::RangeException&) {
    // A value of no registered type (an enumeration of a record) as its word, unquoted.
    std::string text = v.displayText();
    if (text.size() >= 2 && text.front() == '\'' && text.back() == '\'' &&
        text.find('\'', 1) == text.size() - 1)
      text = text.substr(1, text.size() - 2);
    return pyText(text);
  }
  // Records may hold their parents' handles; a bound keeps a cycle from recursing for ever.
  if (depth > 16) return pyText(reg().text(v));
  py::dict d;
  Value self = v;
  for (const Rova::AttrEntry& a : type->attrs) {
    d[py::str(a.name)] = a.iterate ? collectionOf(self, a, depth) : plain(a.get(v), depth + 1);
  }
  return d;
}

py::object plain(const Value& v, int depth) {
  if (!isHandle(v)) return toPy(v);
  const bool null = v.holds<Mox::Ptr<Rova::BoxedValue>>() ? !v.get<Mox::Ptr<Rova::BoxedValue>>()
                                                          : !v.get<Mox::Ptr<Mox::Entity>>();
  if (null) return py::none();
  return dictOf(v, depth);
}

}  // namespace

py::dict toDict(const PyValue& self) {
  py::object d = dictOf(self.v, 0);
  if (!py::isinstance<py::dict>(d))
    throw py::type_error(self.v.kindName() + " is not of a registered type: it has no attributes");
  return d;
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

}  // namespace rovapy
