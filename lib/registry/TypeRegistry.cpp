#include "lib/registry/TypeRegistry.h"

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

const TypeRegistry& TypeRegistry::instance() {
  static const TypeRegistry* r = [] {
    auto* reg = new TypeRegistry;
    registerTypes(*reg);
    return reg;
  }();
  return *r;
}

void TypeRegistry::add(TypeEntry e) {
  types_.push_back(std::make_unique<TypeEntry>(std::move(e)));
}

void TypeRegistry::addRecord(TypeEntry e) {
  records_.push_back(std::make_unique<TypeEntry>(std::move(e)));
}

const TypeEntry* TypeRegistry::findRecord(std::string_view name) const {
  for (const auto& t : records_) {
    if (t->name == name) return t.get();
  }
  return nullptr;
}

const TypeEntry* TypeRegistry::find(std::string_view name) const {
  for (const auto& t : types_) {
    if (t->name == name) return t.get();
  }
  return nullptr;
}

const TypeEntry& TypeRegistry::type(std::string_view name) const {
  const TypeEntry* t = find(name);
  if (!t) throw Mox::RangeException("unknown type " + Mox::shownWord(name));
  return *t;
}

const TypeEntry& TypeRegistry::typeOf(const Value& v) const {
  if (v.holds<Mox::Ptr<BoxedValue>>() || v.holds<Mox::Ptr<Mox::Entity>>()) {
    const std::string kind = v.kindName();
    if (const TypeEntry* t = find(kind)) return *t;
    if (v.holds<Mox::Ptr<Mox::Entity>>()) {
      if (const TypeEntry* t = findRecord(kind)) return *t;
    }
  }
  throw Mox::RangeException("a " + v.kindName() + " is not of a registered type");
}

Value TypeRegistry::construct(std::string_view name, std::span<const Value> args) const {
  const TypeEntry& t = type(name);
  if (!t.construct) throw Mox::RangeException(t.name + " cannot be constructed");
  return t.construct(args);
}

Value TypeRegistry::construct(std::string_view name, std::initializer_list<NamedValue> args) const {
  return constructNamed(name, std::span<const NamedValue>(args.begin(), args.size()));
}

Value TypeRegistry::constructNamed(std::string_view name, std::span<const NamedValue> args) const {
  const TypeEntry& t = type(name);
  if (t.constructNamed) return t.constructNamed(args);
  if (!t.construct) throw Mox::RangeException(t.name + " cannot be constructed");
  if (!args.empty())
    throw Mox::RangeException(t.name + " has no constructor input '" + args.front().name + "'");
  return t.construct({});
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
  return a->iterate(obj);
}

Value TypeRegistry::call(Value& obj, std::string_view name, std::span<const Value> args) const {
  const TypeEntry& t = typeOf(obj);
  const OpEntry* o = t.op(name);
  if (!o) throw Mox::RangeException(t.name + " has no operation " + Mox::shownWord(name));
  return o->call(obj, args);
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

}  // namespace Rova
