#include "lib/registry/TypeRegistry.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/mox/Exception.h"

namespace Rova {

const char* kindName(TypeKind k) {
  switch (k) {
    case TypeKind::value:
      return "value";
    case TypeKind::entity:
      return "entity";
    case TypeKind::enumeration:
      return "enumeration";
  }
  return "";
}

const char* kindName(Mox::AttrKind k) {
  switch (k) {
    case Mox::AttrKind::input:
      return "input";
    case Mox::AttrKind::required:
      return "required";
    case Mox::AttrKind::value:
      return "value";
    case Mox::AttrKind::state:
      return "state";
    case Mox::AttrKind::collection:
      return "collection";
  }
  return "";
}

const AttrEntry* TypeEntry::attr(std::string_view n) const {
  for (const auto& a : attrs) {
    if (a.name == n) return &a;
  }
  return nullptr;
}

const OpEntry* TypeEntry::op(std::string_view n) const {
  for (const auto& o : ops) {
    if (o.name == n) return &o;
  }
  return nullptr;
}

TypeRegistry::TypeRegistry() = default;
TypeRegistry::~TypeRegistry() = default;

const TypeRegistry& TypeRegistry::instance() {
  static const TypeRegistry* r = [] {
    auto* reg = new TypeRegistry;
    registerTypes(*reg);
    return reg;
  }();
  return *r;
}

void TypeRegistry::addTo(Slots& slots, TypeEntry e) {
  auto slot = std::make_unique<Slot>();
  slot->name = e.name;
  slot->entry = std::make_unique<TypeEntry>(std::move(e));
  slots.push_back(std::move(slot));
}

void TypeRegistry::addTo(Slots& slots, TypeMaker m) {
  auto slot = std::make_unique<Slot>();
  slot->name = m.name;
  slot->make = m.make;
  slots.push_back(std::move(slot));
}

void TypeRegistry::add(TypeEntry e) {
  addTo(types_, std::move(e));
}
void TypeRegistry::add(TypeMaker m) {
  addTo(types_, m);
}
void TypeRegistry::addRecord(TypeEntry e) {
  addTo(records_, std::move(e));
}
void TypeRegistry::addRecord(TypeMaker m) {
  addTo(records_, m);
}
void TypeRegistry::addEditor(TypeEntry e) {
  addTo(editors_, std::move(e));
}
void TypeRegistry::addEditor(TypeMaker m) {
  addTo(editors_, m);
}

const TypeEntry* TypeRegistry::findIn(const Slots& slots, std::string_view name) const {
  for (const auto& slot : slots) {
    if (slot->name != name) continue;
    const std::lock_guard<std::mutex> lock(building_);
    if (!slot->entry) {
      TypeEntry e = slot->make(slot->name.c_str());
      // The name the type was registered under is the one it is found by.
      if (e.name != slot->name)
        throw std::logic_error("type " + Mox::shownWord(slot->name) + " was built as " +
                               Mox::shownWord(e.name));
      slot->entry = std::make_unique<TypeEntry>(std::move(e));
    }
    return slot->entry.get();
  }
  return nullptr;
}

std::vector<const TypeEntry*> TypeRegistry::all(const Slots& slots) const {
  std::vector<const TypeEntry*> out;
  out.reserve(slots.size());
  for (const auto& slot : slots)
    out.push_back(findIn(slots, slot->name));
  return out;
}

std::vector<const TypeEntry*> TypeRegistry::types() const {
  return all(types_);
}

std::vector<const TypeEntry*> TypeRegistry::records() const {
  return all(records_);
}

const TypeEntry* TypeRegistry::findRecord(std::string_view name) const {
  return findIn(records_, name);
}

const TypeEntry* TypeRegistry::findEditor(std::string_view name) const {
  return findIn(editors_, name);
}

const TypeEntry* TypeRegistry::find(std::string_view name) const {
  return findIn(types_, name);
}

const TypeEntry& TypeRegistry::type(std::string_view name) const {
  const TypeEntry* t = find(name);
  if (!t) t = findEditor(name);
  if (!t) throw Mox::RangeException("unknown type " + Mox::shownWord(name));
  return *t;
}

const TypeEntry& TypeRegistry::typeOf(const Value& v) const {
  if (v.holds<Mox::Ptr<BoxedValue>>() || v.holds<Mox::Ptr<Mox::Entity>>()) {
    const std::string kind = v.kindName();
    if (const TypeEntry* t = find(kind)) return *t;
    if (v.holds<Mox::Ptr<Mox::Entity>>()) {
      if (const TypeEntry* t = findEditor(kind)) return *t;
    }
    // Records are entities (a state table's configuration) or values (a route a listing
    // hands back, an entry of a record's collection).
    if (const TypeEntry* t = findRecord(kind)) return *t;
  }
  throw Mox::RangeException("a " + v.kindName() + " is not of a registered type");
}

Value TypeRegistry::construct(std::string_view name, std::span<const Value> args) const {
  const TypeEntry& t = type(name);
  if (!t.construct) throw Mox::RangeException(t.name + " cannot be constructed");
  return t.construct(t, args);
}

Value TypeRegistry::construct(std::string_view name, std::initializer_list<NamedValue> args) const {
  return constructNamed(name, std::span<const NamedValue>(args.begin(), args.size()));
}

Value TypeRegistry::constructNamed(std::string_view name, std::span<const NamedValue> args) const {
  const TypeEntry& t = type(name);
  // An input the constructor does not take (one the object is given after it is built, as the
  // VRF of a nexthop-group summary) may be named too: it is written once the object exists.
  std::vector<NamedValue> taken;
  std::vector<const NamedValue*> later;
  for (const NamedValue& a : args) {
    const bool constructorTakes =
        std::any_of(t.constructorInputs.begin(), t.constructorInputs.end(),
                    [&](const Param& p) { return p.name == a.name; });
    const AttrEntry* attr = constructorTakes ? nullptr : t.attr(a.name);
    if (attr && Mox::isInput(attr->kind) && attr->writable) {
      later.push_back(&a);
    } else {
      taken.push_back(a);
    }
  }
  const std::span<const NamedValue> inputs(taken);
  Value obj;
  if (t.constructNamed) {
    obj = t.constructNamed(t, inputs);
  } else {
    if (!t.construct) throw Mox::RangeException(t.name + " cannot be constructed");
    if (!inputs.empty())
      throw Mox::RangeException(t.name + " has no constructor input '" + inputs.front().name + "'");
    obj = t.construct(t, {});
  }
  for (const NamedValue* a : later)
    attributeIs(obj, a->name, a->value);
  return obj;
}

Value TypeRegistry::attribute(const Value& obj, std::string_view name) const {
  const TypeEntry& t = typeOf(obj);
  const AttrEntry* a = t.attr(name);
  if (!a) throw Mox::RangeException(t.name + " has no attribute " + Mox::shownWord(name));
  return a->get(obj);
}

void TypeRegistry::attributeIs(Value& obj, std::string_view name, const Value& v) const {
  const TypeEntry& t = typeOf(obj);
  const AttrEntry* a = t.attr(name);
  if (!a) throw Mox::RangeException(t.name + " has no attribute " + Mox::shownWord(name));
  if (!a->set) throw Mox::RangeException(t.name + "::" + a->name + " is not writable");
  try {
    a->set(obj, v);
  } catch (const Mox::RangeException& e) {
    throw Mox::RangeException("attribute '" + a->name + "': " + e.what());
  }
}

std::unique_ptr<CollectionCursor> TypeRegistry::iterate(Value& obj, std::string_view name) const {
  const TypeEntry& t = typeOf(obj);
  const AttrEntry* a = t.attr(name);
  if (!a) throw Mox::RangeException(t.name + " has no attribute " + Mox::shownWord(name));
  if (!a->iterate) throw Mox::RangeException(t.name + "::" + a->name + " is not a collection");
  auto cursor = a->iterate(obj);
  cursor->nameIs(t.name + "::" + a->name);
  return cursor;
}

void CollectionCursor::changed() const {
  throw Mox::CollectionChangedException(
      name_ + " changed while it was iterated, other than by the iterator itself");
}

void CollectionCursor::noEntry() const {
  throw Mox::RangeException(name_ + ": the iterator stands on no entry");
}

Value TypeRegistry::call(Value& obj, std::string_view name, std::span<const Value> args) const {
  const TypeEntry& t = typeOf(obj);
  const OpEntry* o = t.op(name);
  if (!o) throw Mox::RangeException(t.name + " has no operation " + Mox::shownWord(name));
  return o->call(t, *o, obj, args);
}

std::string TypeRegistry::text(const Value& v) const {
  if (v.holds<Mox::Ptr<BoxedValue>>() || v.holds<Mox::Ptr<Mox::Entity>>()) {
    const TypeEntry* t = find(v.kindName());
    if (t && t->write) return t->write(v);
  }
  return v.text();
}

Value TypeRegistry::parse(std::string_view text) const {
  std::string_view in = text;
  Mox::expectText(in, "Value('");
  const auto quote = in.find('\'');
  if (quote == std::string_view::npos) Mox::parseError(in, "a type name");
  const TypeEntry& t = type(in.substr(0, quote));
  if (!t.parse) throw Mox::RangeException(t.name + " has no text form to parse");
  return t.parse(text);
}

namespace detail {

void argumentError(const std::string& name, const Mox::RangeException& e) {
  throw Mox::RangeException("argument '" + name + "': " + e.what());
}

void arityError(const std::string& what, std::size_t given, std::size_t n) {
  throw Mox::RangeException(what + " takes " + std::to_string(n) + " argument" +
                            (n == 1 ? "" : "s") + ", got " + std::to_string(given));
}

const NamedValue* findNamed(std::span<const NamedValue> args, std::string_view name) {
  for (const NamedValue& a : args) {
    if (a.name == name) return &a;
  }
  return nullptr;
}

void checkNames(const std::string& type, const std::vector<Param>& params,
                std::span<const NamedValue> args) {
  for (std::size_t i = 0; i < args.size(); ++i) {
    bool known = false;
    for (const Param& p : params)
      known = known || p.name == args[i].name;
    if (!known)
      throw Mox::RangeException(type + " has no constructor input '" + args[i].name + "'");
    for (std::size_t j = 0; j < i; ++j) {
      if (args[j].name == args[i].name)
        throw Mox::RangeException(type + ": constructor input '" + args[i].name + "' given twice");
    }
  }
}

void missingInputError(const std::string& type, const char* input) {
  throw Mox::RangeException(type + " needs the constructor input '" + input + "'");
}

Value constructInOrder(const TypeEntry& self, std::span<const NamedValue> args) {
  checkNames(self.name, self.constructorInputs, args);
  std::vector<Value> ordered;
  for (const Param& p : self.constructorInputs) {
    const NamedValue* given = findNamed(args, p.name);
    if (!given) missingInputError(self.name, p.name.c_str());
    ordered.push_back(given->value);
  }
  return self.construct(self, ordered);
}

std::vector<Param> namedParams(std::initializer_list<const char*> names,
                               std::initializer_list<const char*> types) {
  std::vector<Param> p;
  std::size_t i = 0;
  for (const char* n : names) {
    p.push_back({n, i < types.size() ? types.begin()[i] : "?"});
    ++i;
  }
  return p;
}

void addAttr(std::vector<AttrEntry>& attrs, const char* name, const char* typeName,
             Mox::AttrKind kind, const char* keyType, const char* valueType,
             Thunk<Value(const Value&)> get, Thunk<void(Value&, const Value&)> set,
             Thunk<std::unique_ptr<CollectionCursor>(Value&)> iterate) {
  AttrEntry& a = attrs.emplace_back();
  a.name = name;
  a.typeName = typeName;
  a.kind = kind;
  a.writable = Mox::isWritable(kind);
  a.keyType = keyType;
  a.valueType = valueType;
  a.get = get;
  a.set = set;
  a.iterate = iterate;
}

}  // namespace detail

}  // namespace Rova
