#pragma once
// The type registry: one entry per library type, in registration order, each built from the
// class's own attribute list and the constructors and operations named in the CliSupport files
// the first time something asks for that type (a command that constructs one sorter builds the
// sorter's entry alone). Through it the front end looks a type up by name, constructs it
// from an ordered list of Values, reads and writes attributes, iterates collections, calls
// operations by name, and converts values to and from their text form; it never needs a class
// header of the library.
//
// clang-format off
//   const auto& reg = Rova::TypeRegistry::instance();
//   Rova::Value e = reg.construct("Rova::CounterEntry", {{"packets", Value(1u)},
//                                                        {"bytes", Value(64u)}});
//   reg.attribute(e, "bytes");                  // Value(64u)
//   reg.attributeIs(e, "bytes", Value(128u));
//   e.text();     // "Value('Rova::CounterEntry', ** {'packets': 1, 'bytes': 128})"
//   reg.parse(e.text()) == e;                   // true: the text form reads back
//
//   // A library object built from state entities, then an operation called by name:
//   Rova::Value sorter = reg.construct("Rova::RouteSorter", {{"vrfName", Value("red")},
//                                                            {"routingStatus", routes},
//                                                            {"forwardingStatus", fecs}});
//   const Rova::Value args[] = {Value(1u), Value(rendr::kFormatText)};  // fd 1, text
//   reg.call(sorter, "printRoutes", args);
//   for (auto c = reg.iterate(sorter, "sortedRoute"); c->valid(); c->next()) c->key();
// clang-format on
//
// A name the type does not have, a missing constructor input or a value of the wrong kind
// raises Mox::RangeException naming it ("Rova::CounterEntry needs the constructor input
// 'bytes'").

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "lib/registry/Value.h"
#include "platform/mox/Attribute.h"
#include "platform/mox/TextForm.h"

namespace Rova {

// A position in a collection attribute: step, read the key and value, delete the current entry.
// Deleting through the cursor is the one change it survives. Once the collection changed
// otherwise (an entry added or removed by an operation, by another cursor, the collection
// cleared), every call raises Mox::CollectionChangedException: the entry it stood on may be
// freed. Reading the key or value where there is no entry raises Mox::RangeException.
class CollectionCursor {
 public:
  virtual ~CollectionCursor() = default;
  virtual bool valid() const = 0;
  virtual void next() = 0;
  virtual Value key() const = 0;
  virtual Value value() const = 0;
  virtual void deleteCurrent() = 0;

  // The collection's name in errors ("Rova::CachedFec::via").
  void nameIs(std::string name) { name_ = std::move(name); }

 protected:
  [[noreturn]] void changed() const;
  [[noreturn]] void noEntry() const;

 private:
  std::string name_;
};

enum class TypeKind { value, entity, enumeration };

// The words `show types`, `show type` and the Python module use for kinds: "value",
// "entity", "enumeration"; "input", "required", "value", "state", "collection".
const char* kindName(TypeKind k);
const char* kindName(Mox::AttrKind k);

struct Param {
  std::string name;
  std::string typeName;
};

// A callable kept as a plain function and the few bytes it was made with (a member pointer, an
// attribute's descriptor), which must be trivially copyable. It stands where std::function
// would: that one compiles a manager for each callable it holds, and registering the library's
// types makes some five hundred callables, which were then most of the registry's build time.
template <class Sig>
class Thunk;

template <class R, class... A>
class Thunk<R(A...)> {
 public:
  Thunk() = default;
  template <class F>
  requires(!std::is_same_v<F, Thunk>) Thunk(F f)  // NOLINT: implicit, like std::function
      : call_(&invoke<F>) {
    static_assert(std::is_trivially_copyable_v<F> && sizeof(F) <= sizeof(data_) &&
                      alignof(F) <= alignof(void*),
                  "a thunk holds a small trivially copyable callable");
    ::new (static_cast<void*>(data_)) F(f);
  }

  explicit operator bool() const { return call_ != nullptr; }
  R operator()(A... a) const { return call_(data_, std::forward<A>(a)...); }

 private:
  template <class F>
  static R invoke(const unsigned char* data, A... a) {
    return (*std::launder(reinterpret_cast<const F*>(data)))(std::forward<A>(a)...);
  }

  alignas(void*) unsigned char data_[32] = {};
  R (*call_)(const unsigned char*, A...) = nullptr;
};

struct AttrEntry {
  std::string name;
  std::string typeName;
  Mox::AttrKind kind;
  bool writable;
  // A collection's key and value types ("bool" for a set); empty for other attributes.
  std::string keyType;
  std::string valueType;
  Thunk<Value(const Value& obj)> get;
  Thunk<void(Value& obj, const Value& v)> set;
  Thunk<std::unique_ptr<CollectionCursor>(Value& obj)> iterate;  // collections only
};

struct TypeEntry;

struct OpEntry {
  std::string name;
  std::vector<Param> params;
  std::string resultType;
  // Given the entries, which name the operation and its parameters in errors.
  Thunk<Value(const TypeEntry& type, const OpEntry& op, Value& obj, std::span<const Value> args)>
      call;
};

// A constructor input given by name.
struct NamedValue {
  std::string name;
  Value value;
};

struct TypeEntry {
  std::string name;
  TypeKind kind = TypeKind::value;
  std::string factory;  // the factory construction goes through, when there is one
  std::vector<Param> constructorInputs;
  std::vector<AttrEntry> attrs;
  std::vector<OpEntry> ops;
  std::vector<std::string> enumNames;
  // Construction from inputs in order, given this entry (which names the inputs in errors).
  Thunk<Value(const TypeEntry& self, std::span<const Value>)> construct;
  // Construction from inputs given by name; an unknown name, one given twice or a required one
  // left out is refused with the name.
  Thunk<Value(const TypeEntry& self, std::span<const NamedValue>)> constructNamed;
  Thunk<Value(std::string_view)> parse;
  // The value text form, Value('Ns::Type', ** {...}), for a type with an attribute list.
  Thunk<std::string(const Value&)> write;

  const AttrEntry* attr(std::string_view n) const;
  const OpEntry* op(std::string_view n) const;
};

// A type known by name whose entry is built when it is first asked for. `make` is given the
// name, which the entry it returns must carry.
struct TypeMaker {
  const char* name;
  TypeEntry (*make)(const char* name);
};

// A maker over a builder that names its type itself.
template <TypeEntry (*Builder)()>
TypeEntry madeBy(const char*) {
  return Builder();
}

class TypeRegistry {
 public:
  TypeRegistry();
  ~TypeRegistry();
  TypeRegistry(const TypeRegistry&) = delete;
  TypeRegistry& operator=(const TypeRegistry&) = delete;

  // The registry with every library type registered.
  static const TypeRegistry& instance();

  const TypeEntry* find(std::string_view name) const;
  // Like find, but an unknown name is an error.
  const TypeEntry& type(std::string_view name) const;
  // Every library type, in registration order (each entry built, if it was not yet).
  std::vector<const TypeEntry*> types() const;
  // The state record types, in registration order.
  std::vector<const TypeEntry*> records() const;
  // The registered type of a value (boxed, entity or state record); an error for a plain value
  // and for a record whose type is not registered, so a read never falls back silently.
  const TypeEntry& typeOf(const Value& v) const;

  Value construct(std::string_view type, std::span<const Value> args) const;
  // By name: construct("Rova::RouteSorter", {{"routingStatus", routes}, {"vrfName", vrf}, ...}).
  Value construct(std::string_view type, std::initializer_list<NamedValue> args) const;
  Value constructNamed(std::string_view type, std::span<const NamedValue> args) const;
  Value attribute(const Value& obj, std::string_view name) const;
  void attributeIs(Value& obj, std::string_view name, const Value& v) const;
  std::unique_ptr<CollectionCursor> iterate(Value& obj, std::string_view name) const;
  Value call(Value& obj, std::string_view op, std::span<const Value> args) const;
  // The text form of a value: a registered type's Value(...) form, an entity included; the
  // value's own form otherwise.
  std::string text(const Value& v) const;
  // Builds a value from its text form, "Value('Ns::Type', ** {...})".
  Value parse(std::string_view text) const;

  // Registration: an entry built now, or a type whose entry is built on first use. A name is
  // registered once.
  void add(TypeEntry e);
  void add(TypeMaker m);
  // A state record type the front end reads attribute by attribute. Records are not library
  // types: `types()` and `find` do not list them.
  void addRecord(TypeEntry e);
  void addRecord(TypeMaker m);
  // A configuration editor: a library type every writer of configuration (the shell, the
  // Python module, a state agent) constructs and calls by name like any other, so that they
  // all apply the same rules. `types()` and `find` list the command objects only, as
  // `show types` publishes them; an editor is found by `type`, `construct` and `call`.
  void addEditor(TypeEntry e);
  void addEditor(TypeMaker m);

 private:
  // One registered name and its entry once built. Building happens under the registry's lock,
  // so that threads asking for one type at once (the Python module's) build it once.
  struct Slot {
    std::string name;
    TypeEntry (*make)(const char*) = nullptr;
    std::unique_ptr<TypeEntry> entry;
  };
  using Slots = std::vector<std::unique_ptr<Slot>>;

  static void addTo(Slots& slots, TypeEntry e);
  static void addTo(Slots& slots, TypeMaker m);
  const TypeEntry* findIn(const Slots& slots, std::string_view name) const;
  std::vector<const TypeEntry*> all(const Slots& slots) const;
  const TypeEntry* findRecord(std::string_view name) const;
  const TypeEntry* findEditor(std::string_view name) const;

  Slots types_;
  Slots records_;
  Slots editors_;
  mutable std::mutex building_;
};

// Registers every type; defined in CliSupport.cpp.
void registerTypes(TypeRegistry& r);

// ---- building entries from a class's declarations ----
//
// Everything that does not depend on the class (error texts, named construction over a
// positional constructor, filling an attribute's entry) is written once, in TypeRegistry.cpp:
// what a TypeBuilder compiles for each class is only the conversions its members need.

namespace detail {

// The object a Value holds, as a T. Writing through `mutableObject` gives a boxed value its own
// copy first, so values keep value semantics.
template <class T>
const T& constObject(const Value& v) {
  if constexpr (std::is_base_of_v<Mox::Entity, T>) {
    if (v.holds<Mox::Ptr<Mox::Entity>>()) {
      if (auto* t = dynamic_cast<const T*>(v.get<Mox::Ptr<Mox::Entity>>().get())) return *t;
    }
  } else {
    if (v.holds<Mox::Ptr<BoxedValue>>()) {
      if (auto* b = dynamic_cast<const Boxed<T>*>(v.get<Mox::Ptr<BoxedValue>>().get()))
        return b->value;
    }
  }
  conversionError(v, typeNameOf<T>());
}

template <class T>
T& mutableObject(Value& v) {
  if constexpr (!std::is_base_of_v<Mox::Entity, T>) {
    if (v.holds<Mox::Ptr<BoxedValue>>()) {
      auto& box = std::get<Mox::Ptr<BoxedValue>>(v.variant());
      if (box && box->use_count() > 1) box = box->clone();
    }
  }
  return const_cast<T&>(constObject<T>(v));
}

template <class Coll>
class MoxCursor final : public CollectionCursor {
 public:
  MoxCursor(Value owner, Coll& c)
      : owner_(std::move(owner)), coll_(&c), it_(c.iterator()), seen_(c.changes()) {}
  bool valid() const override {
    check();
    return bool(it_);
  }
  void next() override {
    if (valid()) ++it_;
  }
  Value key() const override {
    current();
    return toValue(it_.key());
  }
  Value value() const override {
    current();
    return toValue(it_.value());
  }
  void deleteCurrent() override {
    current();
    it_.deleteCurrent();
    // Its own deletion, and nothing else: a change hook that changed the collection again
    // leaves the count further on, and the next call stops.
    ++seen_;
  }

 private:
  void check() const {
    if (coll_->changes() != seen_) changed();
  }
  void current() const {
    if (!valid()) noEntry();
  }

  Value owner_;  // keeps the object, and so the collection, alive while the cursor walks it
  Coll* coll_;
  typename Coll::Iterator it_;
  std::uint32_t seen_;
};

// "argument 'name': <what the conversion said>".
[[noreturn]] void argumentError(const std::string& name, const Mox::RangeException& e);
// "<what> takes n arguments, got m".
[[noreturn]] void arityError(const std::string& what, std::size_t given, std::size_t n);

// An argument converted to the parameter's type. An entity parameter (an operation taking
// `const Rova::AddressQueryParams&`) is the object the handle holds, passed by reference.
template <class T>
decltype(auto) argument(std::span<const Value> args, std::size_t i,
                        const std::vector<Param>& params) {
  try {
    if constexpr (std::is_base_of_v<Mox::Entity, T>) {
      return constObject<T>(args[i]);
    } else {
      return fromValue<T>(args[i]);
    }
  } catch (const Mox::RangeException& e) {
    argumentError(params[i].name, e);
  }
}

inline void checkArity(const std::string& what, std::span<const Value> args, std::size_t n) {
  if (args.size() != n) arityError(what, args.size(), n);
}

inline void checkOpArity(const TypeEntry& type, const OpEntry& op, std::span<const Value> args,
                         std::size_t n) {
  if (args.size() != n) arityError(type.name + "::" + op.name, args.size(), n);
}

// The argument given by `name`, or null.
const NamedValue* findNamed(std::span<const NamedValue> args, std::string_view name);

// Every given name must be an input of the type, and given once.
void checkNames(const std::string& type, const std::vector<Param>& params,
                std::span<const NamedValue> args);

// "<type> needs the constructor input '<input>'".
[[noreturn]] void missingInputError(const std::string& type, const char* input);

// Named construction over a positional constructor: the names put in order, none left out.
Value constructInOrder(const TypeEntry& self, std::span<const NamedValue> args);

template <class T>
T namedArgument(const NamedValue& a) {
  try {
    return fromValue<T>(a.value);
  } catch (const Mox::RangeException& e) {
    argumentError(a.name, e);
  }
}

// The parameters named `names`, typed from Args in order.
std::vector<Param> namedParams(std::initializer_list<const char*> names,
                               std::initializer_list<const char*> types);

template <class... Args>
std::vector<Param> params(std::initializer_list<const char*> names) {
  return namedParams(names, {typeNameOf<std::decay_t<Args>>()...});
}

void addAttr(std::vector<AttrEntry>& attrs, const char* name, const char* typeName,
             Mox::AttrKind kind, const char* keyType, const char* valueType,
             Thunk<Value(const Value&)> get, Thunk<void(Value&, const Value&)> set,
             Thunk<std::unique_ptr<CollectionCursor>(Value&)> iterate);

template <class T>
Value wrap(T&& v) {
  return toValue(std::forward<T>(v));
}

}  // namespace detail

template <class T>
class TypeBuilder {
 public:
  explicit TypeBuilder(const char* name) {
    e_.name = name;
    if constexpr (std::is_enum_v<T>) {
      e_.kind = TypeKind::enumeration;
    } else if constexpr (std::is_base_of_v<Mox::Entity, T>) {
      e_.kind = TypeKind::entity;
    }
    if constexpr (Mox::HasAttributes<T>) {
      addAttributes();
      e_.write = [](const Value& v) { return Mox::textOf(detail::constObject<T>(v)); };
    }
    if constexpr (Mox::HasAttributes<T> && !std::is_base_of_v<Mox::Entity, T>) {
      e_.parse = [](std::string_view text) { return toValue(Mox::valueFromText<T>(text)); };
    }
  }

  // Construction from the listed inputs, in order; by name, every input is required.
  template <class... Args>
  TypeBuilder& constructor(std::initializer_list<const char*> names = {}) {
    e_.constructorInputs = detail::params<Args...>(names);
    e_.construct = [](const TypeEntry& self, std::span<const Value> args) {
      detail::checkArity(self.name, args, sizeof...(Args));
      return constructWith<Args...>(args, self.constructorInputs,
                                    std::index_sequence_for<Args...>{});
    };
    e_.constructNamed = &detail::constructInOrder;
    return *this;
  }

  // Construction from the class's Inputs aggregate (MOX_INPUTS): in order, or by name with the
  // inputs left out at their declared defaults. Either way the one constructor taking Inputs
  // does the work.
  TypeBuilder& inputs() {
    using Inputs = typename T::Inputs;
    Inputs::forEach([&](const char* name, auto member, bool) {
      using M = std::decay_t<decltype(std::declval<Inputs&>().*member)>;
      e_.constructorInputs.push_back({name, typeNameOf<M>()});
    });
    e_.construct = [](const TypeEntry& self, std::span<const Value> args) {
      detail::checkArity(self.name, args, self.constructorInputs.size());
      Inputs in;
      std::size_t i = 0;
      Inputs::forEach([&](const char*, auto member, bool) {
        using M = std::decay_t<decltype(in.*member)>;
        in.*member = detail::argument<M>(args, i++, self.constructorInputs);
      });
      return toValue(Mox::makePtr<T>(std::move(in)));
    };
    e_.constructNamed = [](const TypeEntry& self, std::span<const NamedValue> args) {
      detail::checkNames(self.name, self.constructorInputs, args);
      Inputs in;
      Inputs::forEach([&](const char* input, auto member, bool required) {
        using M = std::decay_t<decltype(in.*member)>;
        const NamedValue* given = detail::findNamed(args, input);
        if (given) {
          in.*member = detail::namedArgument<M>(*given);
        } else if (required) {
          detail::missingInputError(self.name, input);
        }
      });
      return toValue(Mox::makePtr<T>(std::move(in)));
    };
    return *this;
  }

  // Construction through a named factory.
  template <class R, class... Args>
  TypeBuilder& factory(const char* factoryName, R (*f)(Args...),
                       std::initializer_list<const char*> names) {
    e_.factory = factoryName;
    e_.constructorInputs = detail::params<Args...>(names);
    e_.construct = [f](const TypeEntry& self, std::span<const Value> args) {
      detail::checkArity(self.factory, args, sizeof...(Args));
      return callFactory<R, Args...>(f, args, self.constructorInputs,
                                     std::index_sequence_for<Args...>{});
    };
    e_.constructNamed = &detail::constructInOrder;
    return *this;
  }

  // An entity built from its text form (the parsing constructor).
  TypeBuilder& textConstructor() {
    e_.parse = [](std::string_view text) { return toValue(Mox::makePtr<T>(text)); };
    return *this;
  }

  template <class R, class... Args, class U = T>
  requires std::is_class_v<U> TypeBuilder& op(const char* name, R (U::*f)(Args...),
                                              std::initializer_list<const char*> names = {}) {
    return addOp<R, Args...>(name, names, [f](T& obj, auto&&... a) -> decltype(auto) {
      return (obj.*f)(std::forward<decltype(a)>(a)...);
    });
  }
  template <class R, class... Args, class U = T>
  requires std::is_class_v<U> TypeBuilder& op(const char* name, R (U::*f)(Args...) const,
                                              std::initializer_list<const char*> names = {}) {
    return addOp<R, Args...>(name, names, [f](T& obj, auto&&... a) -> decltype(auto) {
      return (obj.*f)(std::forward<decltype(a)>(a)...);
    });
  }
  // A class-level operation (a static member such as a legend).
  template <class R, class... Args>
  TypeBuilder& op(const char* name, R (*f)(Args...),
                  std::initializer_list<const char*> names = {}) {
    return addOp<R, Args...>(name, names, [f](T&, auto&&... a) -> decltype(auto) {
      return f(std::forward<decltype(a)>(a)...);
    });
  }

  TypeBuilder& enumNames(std::initializer_list<const char*> names) {
    for (const char* n : names)
      e_.enumNames.push_back(n);
    return *this;
  }

  TypeEntry build() { return std::move(e_); }

 private:
  template <class... Args, std::size_t... I>
  static Value constructWith(std::span<const Value> args, const std::vector<Param>& inputs,
                             std::index_sequence<I...>) {
    if constexpr (std::is_base_of_v<Mox::Entity, T>) {
      return toValue(Mox::makePtr<T>(detail::argument<std::decay_t<Args>>(args, I, inputs)...));
    } else {
      return toValue(T(detail::argument<std::decay_t<Args>>(args, I, inputs)...));
    }
  }

  template <class R, class... Args, std::size_t... I>
  static Value callFactory(R (*f)(Args...), [[maybe_unused]] std::span<const Value> args,
                           [[maybe_unused]] const std::vector<Param>& inputs,
                           std::index_sequence<I...>) {
    return detail::wrap(f(detail::argument<std::decay_t<Args>>(args, I, inputs)...));
  }

  template <class R, class... Args, class Invoke>
  TypeBuilder& addOp(const char* name, std::initializer_list<const char*> names, Invoke invoke) {
    OpEntry& op = e_.ops.emplace_back();
    op.name = name;
    op.params = detail::params<Args...>(names);
    if constexpr (std::is_void_v<R>) {
      op.resultType = "void";
    } else {
      op.resultType = typeNameOf<std::decay_t<R>>();
    }
    op.call = [invoke](const TypeEntry& type, const OpEntry& self, Value& obj,
                       std::span<const Value> args) -> Value {
      detail::checkOpArity(type, self, args, sizeof...(Args));
      return invokeWith<R, Args...>(invoke, detail::mutableObject<T>(obj), args, self.params,
                                    std::index_sequence_for<Args...>{});
    };
    return *this;
  }

  template <class R, class... Args, class Invoke, std::size_t... I>
  static Value invokeWith(const Invoke& invoke, T& obj, std::span<const Value> args,
                          const std::vector<Param>& params, std::index_sequence<I...>) {
    if constexpr (std::is_void_v<R>) {
      invoke(obj, detail::argument<std::decay_t<Args>>(args, I, params)...);
      return Value();
    } else {
      return detail::wrap(invoke(obj, detail::argument<std::decay_t<Args>>(args, I, params)...));
    }
  }

  void addAttributes() {
    // Every program builds the registry at start: a vector grown one entry at a time would
    // copy its entries and leave the old blocks behind in fresh heap pages.
    e_.attrs.reserve(Mox::attrCount<T>());
    Mox::forEachAttr<T>([&](const auto& d) {
      using M = typename std::decay_t<decltype(d)>::Type;
      Thunk<void(Value&, const Value&)> set;
      Thunk<std::unique_ptr<CollectionCursor>(Value&)> iterate;
      const char* keyType = "";
      const char* valueType = "";
      if constexpr (Mox::Collection<M>) {
        keyType = typeNameOf<std::decay_t<typename M::Key>>();
        valueType = typeNameOf<std::decay_t<typename M::Value>>();
        iterate = [d](Value& obj) -> std::unique_ptr<CollectionCursor> {
          return std::make_unique<detail::MoxCursor<M>>(obj, d.ref(detail::mutableObject<T>(obj)));
        };
      } else {
        if (Mox::isWritable(d.kind)) {
          set = [d](Value& obj, const Value& v) {
            d.ref(detail::mutableObject<T>(obj)) = fromValue<M>(v);
          };
        }
      }
      detail::addAttr(
          e_.attrs, d.name, typeNameOf<M>(), d.kind, keyType, valueType,
          [d](const Value& obj) { return toValue(d.get(detail::constObject<T>(obj))); }, set,
          iterate);
    });
  }

  TypeEntry e_;
};

}  // namespace Rova
