#pragma once
// Declare each attribute once. A class lists its attributes in one X-macro list; from that
// list come the members, their accessors (x(), xIs(), and the collection family), the
// attribute descriptors that the value text form and the registry walk by name, and, for
// value types, equality.
//
//   #define ROVA_COUNTER_ENTRY_ATTRS(F, C)
//     F(packets, Packets, std::uint64_t, Mox::AttrKind::value, {})
//     F(bytes, Bytes, std::uint64_t, Mox::AttrKind::value, {})
// (with a backslash ending each line of the list)
//   class CounterEntry {
//     MOX_VALUE_TYPE(CounterEntry, "Rova::CounterEntry", ROVA_COUNTER_ENTRY_ATTRS)
//   };
//
// F(name, Name, Type, kind, init) declares a scalar attribute; C(name, Name, CollectionType)
// declares a collection. A collection type with a comma in it needs an alias first.

#include <cstddef>
#include <functional>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "platform/mox/Collection.h"

namespace Mox {

enum class AttrKind {
  input,       // constructor input; the front end may write it
  required,    // constructor input that a construction by name must give
  value,       // a plain field of a value type; writable
  state,       // computed by the object; read-only to the front end
  collection,  // a collection attribute; written through its operation family
};

inline bool isWritable(AttrKind k) {
  return k == AttrKind::input || k == AttrKind::required || k == AttrKind::value;
}

inline bool isInput(AttrKind k) {
  return k == AttrKind::input || k == AttrKind::required;
}

template <class C, class M>
struct AttrDesc {
  using Class = C;
  using Type = M;
  const char* name;
  M C::*member;
  AttrKind kind;

  const M& get(const C& obj) const { return obj.*member; }
  M& ref(C& obj) const { return obj.*member; }
};

struct AttrListStart {};

template <class... Ds>
constexpr std::tuple<Ds...> makeAttrList(AttrListStart, Ds... ds) {
  return std::tuple<Ds...>(ds...);
}

// Calls f(descriptor) for every attribute of C, in declaration order.
template <class C, class F>
constexpr void forEachAttr(F&& f) {
  std::apply([&](const auto&... d) { (f(d), ...); }, C::moxAttributes());
}

// Calls f(descriptor) for the attribute named `name`; returns false when C has none.
template <class C, class F>
bool visitAttr(std::string_view name, F&& f) {
  bool found = false;
  forEachAttr<C>([&](const auto& d) {
    if (!found && name == d.name) {
      found = true;
      f(d);
    }
  });
  return found;
}

template <class C>
constexpr std::size_t attrCount() {
  return std::tuple_size_v<decltype(C::moxAttributes())>;
}

template <class T>
concept HasAttributes = requires {
  T::moxAttributes();
};

// Lexicographic order over the attributes in declaration order: for value types that serve as
// keys of ordered collections.
template <class C>
bool attrLess(const C& a, const C& b) {
  int result = 0;
  forEachAttr<C>([&](const auto& d) {
    if (result != 0) return;
    if (d.get(a) < d.get(b)) {
      result = -1;
    } else if (d.get(b) < d.get(a)) {
      result = 1;
    }
  });
  return result < 0;
}

// A hash over every attribute: for value types that serve as keys of hash maps.
template <class C>
std::size_t attrHash(const C& v) {
  std::size_t h = 0x84222325;
  forEachAttr<C>([&](const auto& d) {
    using M = typename std::decay_t<decltype(d)>::Type;
    h = (h ^ std::hash<M>()(d.get(v))) * 0x100000001b3ull;
  });
  return h;
}

}  // namespace Mox

// ---- expansion helpers (one per role of the list) ----

#define MOX_MEMBER_F_(name, Name, Type, kind, init) Type name##_ init;
#define MOX_MEMBER_C_(name, Name, Type) Type name##_;

#define MOX_OPS_F_(name, Name, Type, kind, init) \
  const Type& name() const {                     \
    return name##_;                              \
  }                                              \
  void name##Is(const Type& v) {                 \
    name##_ = v;                                 \
  }

#define MOX_OPS_C_(name, Name, Type)                                                      \
  using Name##Collection = Type;                                                          \
  const Type& name() const {                                                              \
    return name##_;                                                                       \
  }                                                                                       \
  Type& name##Mutable() {                                                                 \
    return name##_;                                                                       \
  }                                                                                       \
  /* The operation family is made of templates (over the collection type, which no */     \
  /* caller gives) so that a file compiles only the operations it calls: the state */     \
  /* headers declare dozens of collections, and a file uses a few of their operations. */ \
  /* Taking an operation's address names it with <>: &Class::newX<>. */                   \
  template <class Coll = Type>                                                            \
  typename Coll::Value name(const typename Coll::Key& k) const {                          \
    return name##_.get(k);                                                                \
  }                                                                                       \
  template <class Coll = Type>                                                            \
  bool new##Name(const typename Coll::Key& k, const typename Coll::Value& v) {            \
    return name##_.newEntry(k, v);                                                        \
  }                                                                                       \
  template <class Coll = Type>                                                            \
  void name##Is(const typename Coll::Key& k, const typename Coll::Value& v) {             \
    name##_.set(k, v);                                                                    \
  }                                                                                       \
  template <class Coll = Type>                                                            \
  void name##Is(const typename Coll::Key& k, typename Coll::Value&& v) {                  \
    name##_.set(k, std::move(v));                                                         \
  }                                                                                       \
  template <class Coll = Type>                                                            \
  bool name##Del(const typename Coll::Key& k) {                                           \
    return name##_.del(k);                                                                \
  }                                                                                       \
  template <class Coll = Type>                                                            \
  void name##Del(typename Coll::Iterator& it) {                                           \
    it.deleteCurrent();                                                                   \
  }                                                                                       \
  template <class Coll = Type>                                                            \
  void name##DelAll() {                                                                   \
    name##_.delAll();                                                                     \
  }                                                                                       \
  /* Maps of counts only: other collections have no inc. Adds n; an absent key starts */  \
  /* from zero. */                                                                        \
  template <class Coll = Type>                                                            \
  void name##Inc(const typename Coll::Key& k, typename Coll::Value n) {                   \
    static_cast<Coll&>(name##_).inc(k, n);                                                \
  }                                                                                       \
  template <class Coll = Type>                                                            \
  std::size_t name##s() const {                                                           \
    return name##_.size();                                                                \
  }                                                                                       \
  template <class Coll = Type>                                                            \
  typename Coll::Iterator name##Iterator() {                                              \
    return name##_.iterator();                                                            \
  }                                                                                       \
  template <class Coll = Type>                                                            \
  void name##NotifyIs(::Mox::ChangeHook<typename Coll::Key> h) {                          \
    name##_.notifyIs(std::move(h));                                                       \
  }

#define MOX_DESC_F_(name, Name, Type, kind, init) \
  , ::Mox::AttrDesc<MoxSelf, Type> {              \
#name, &MoxSelf::name##_, kind                \
  }
#define MOX_DESC_C_(name, Name, Type)                     \
  , ::Mox::AttrDesc<MoxSelf, Type> {                      \
#name, &MoxSelf::name##_, ::Mox::AttrKind::collection \
  }

// The body shared by values and entities: members (private), accessors and descriptors.
#define MOX_ATTRIBUTES(Class, LIST)                                                     \
 private:                                                                               \
  using MoxSelf = Class;                                                                \
  LIST(MOX_MEMBER_F_, MOX_MEMBER_C_)                                                    \
                                                                                        \
 public:                                                                                \
  LIST(MOX_OPS_F_, MOX_OPS_C_)                                                          \
  /* A template too: its descriptors are made only where attributes are walked. */      \
  template <class Self = MoxSelf>                                                       \
  static constexpr auto moxAttributes() {                                               \
    return ::Mox::makeAttrList(::Mox::AttrListStart {} LIST(MOX_DESC_F_, MOX_DESC_C_)); \
  }

// A value type: copied and compared attribute by attribute. (A type local to one file may use
// neither its name nor its equality: clang would warn about them.)
#define MOX_VALUE_TYPE(Class, QualifiedName, LIST)                         \
  MOX_ATTRIBUTES(Class, LIST)                                              \
  [[maybe_unused]] static constexpr const char* kTypeName = QualifiedName; \
  [[maybe_unused]] friend bool operator==(const Class&, const Class&) = default;

// A value type that also orders and hashes by its attributes (a collection key).
#define MOX_KEY_TYPE(Class, QualifiedName, LIST)          \
  MOX_VALUE_TYPE(Class, QualifiedName, LIST)              \
  friend bool operator<(const Class& a, const Class& b) { \
    return ::Mox::attrLess(a, b);                         \
  }                                                       \
  std::size_t moxHash() const {                           \
    return ::Mox::attrHash(*this);                        \
  }

// Lets std::hash find a key type's moxHash (use at namespace scope, outside any namespace).
#define MOX_STD_HASH(QualifiedClass)                                                       \
  template <>                                                                              \
  struct std::hash<QualifiedClass> {                                                       \
    std::size_t operator()(const QualifiedClass& v) const noexcept { return v.moxHash(); } \
  };

// The constructor inputs of a class as one aggregate, `Inputs`, generated from the part of its
// attribute list that holds them (INPUT_LIST(F), the inputs in constructor order), so that a
// constructor takes what its declarations say and a C++ caller names what it passes:
//
//   #define SWITCH_INPUTS(F) F(name, Name, Mox::String8, Mox::AttrKind::required, {}) ...
//       ... F(ports, Ports, std::uint32_t, Mox::AttrKind::input, {48})  (one macro line)
//   #define SWITCH_ATTRS(F, C) SWITCH_INPUTS(F) F(up, Up, bool, Mox::AttrKind::state, {})
//   class Switch : public Mox::Entity {
//     MOX_ENTITY_TYPE(Switch, "Test::Switch", SWITCH_ATTRS)
//     MOX_INPUTS(SWITCH_INPUTS)
//    public:
//     explicit Switch(Inputs in) { takeInputs(std::move(in)); }
//   };
//   auto s = Mox::makePtr<Switch>(Switch::Inputs{.name = "sw1"});  // ports at 48
//
// `Inputs::forEach(f)` calls f(name, member pointer, required) for each input in order: the
// registry builds positional and named construction from it.
#define MOX_INPUT_FIELD_(name, Name, Type, kind, init) Type name init;
#define MOX_INPUT_VISIT_(name, Name, Type, kind, init) \
  f(#name, &Inputs::name, kind == ::Mox::AttrKind::required);
#define MOX_INPUT_TAKE_(name, Name, Type, kind, init) name##_ = std::move(in.name);
#define MOX_INPUTS(INPUT_LIST)     \
 public:                           \
  struct Inputs {                  \
    INPUT_LIST(MOX_INPUT_FIELD_)   \
    template <class Fn>            \
    static void forEach(Fn&& f) {  \
      INPUT_LIST(MOX_INPUT_VISIT_) \
    }                              \
  };                               \
                                   \
 private:                          \
  void takeInputs(Inputs&& in) {   \
    INPUT_LIST(MOX_INPUT_TAKE_)    \
  }                                \
                                   \
 public:

// An entity (held by Mox::Ptr) with an attribute list.
#define MOX_ENTITY_TYPE(Class, QualifiedName, LIST)       \
  MOX_ATTRIBUTES(Class, LIST)                             \
  static constexpr const char* kTypeName = QualifiedName; \
  const char* typeName() const override {                 \
    return kTypeName;                                     \
  }
