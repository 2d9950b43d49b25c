#pragma once
// Value: what the front end hands the registry and gets back. It holds a framework or platform
// value, a registered value type (boxed), or an entity handle (a library object or a state
// record). Conversions to a C++ type check the kind and name the expected type when they fail.
//
//   Rova::Value n(42u);                                  // an integer
//   Rova::Value s("red");                                // a Mox::String8
//   Rova::Value p(Plexa::Prefix::fromString("10.0.0.0/8"));
//   n.text();  s.text();  p.text();                      // "42", "'red'", "'10.0.0.0/8'"
//   p.holds<Plexa::Prefix>();                            // true
//   p.kindName();                                        // "Plexa::Prefix", for messages
//   Rova::Value none;  none.isNone();                    // true: an unset pointer or record
//
// Registered value types (Rova::CounterEntry, ...) travel boxed and keep value semantics:
// writing an attribute of one copy leaves the others alone.

#include <cstdint>
#include <string>
#include <type_traits>
#include <variant>

#include "platform/brine/FecId.h"
#include "platform/mox/Exception.h"
#include "platform/mox/Ptr.h"
#include "platform/mox/String8.h"
#include "platform/mox/TextForm.h"
#include "platform/plexa/EthAddr.h"
#include "platform/plexa/IntfId.h"
#include "platform/plexa/IpAddr.h"
#include "platform/plexa/Mpls.h"
#include "platform/plexa/Prefix.h"
#include "platform/plexa/RouteDistinguisher.h"
#include "platform/plexa/Vni.h"
#include "platform/plexa/VrfName.h"

namespace Rova {

// ---- type names ----

template <class T>
struct TypeName;  // ::value is the registered or platform name of T

#define ROVA_TYPE_NAME(Type, Name)             \
  template <>                                  \
  struct TypeName<Type> {                      \
    static constexpr const char* value = Name; \
  };
ROVA_TYPE_NAME(bool, "bool")
ROVA_TYPE_NAME(std::uint8_t, "U8")
ROVA_TYPE_NAME(std::uint16_t, "U16")
ROVA_TYPE_NAME(std::uint32_t, "U32")
ROVA_TYPE_NAME(std::uint64_t, "U64")
ROVA_TYPE_NAME(std::int8_t, "S8")
ROVA_TYPE_NAME(std::int16_t, "S16")
ROVA_TYPE_NAME(std::int32_t, "S32")
ROVA_TYPE_NAME(std::int64_t, "S64")
ROVA_TYPE_NAME(double, "double")
ROVA_TYPE_NAME(Mox::String8, "Mox::String8")
ROVA_TYPE_NAME(Plexa::IpAddr, "Plexa::IpAddr")
ROVA_TYPE_NAME(Plexa::Ip6Addr, "Plexa::Ip6Addr")
ROVA_TYPE_NAME(Plexa::IpGenAddr, "Plexa::IpGenAddr")
ROVA_TYPE_NAME(Plexa::Prefix, "Plexa::Prefix")
ROVA_TYPE_NAME(Plexa::Ip6Prefix, "Plexa::Ip6Prefix")
ROVA_TYPE_NAME(Plexa::IpGenPrefix, "Plexa::IpGenPrefix")
ROVA_TYPE_NAME(Plexa::IpAddrWithMask, "Plexa::IpAddrWithMask")
ROVA_TYPE_NAME(Plexa::Ip6AddrWithMask, "Plexa::Ip6AddrWithMask")
ROVA_TYPE_NAME(Plexa::IntfId, "Plexa::IntfId")
ROVA_TYPE_NAME(Plexa::MplsLabel, "Plexa::MplsLabel")
ROVA_TYPE_NAME(Plexa::MplsLabelOperation, "Plexa::MplsLabelOperation")
ROVA_TYPE_NAME(Plexa::EthAddr, "Plexa::EthAddr")
ROVA_TYPE_NAME(Plexa::RouteDistinguisher, "Plexa::RouteDistinguisher")
ROVA_TYPE_NAME(L3::VrfName, "L3::VrfName")
ROVA_TYPE_NAME(Vxlan::VniOrNone, "Vxlan::VniOrNone")
ROVA_TYPE_NAME(Brine::Fib::FecId, "Brine::Fib::FecId")
#undef ROVA_TYPE_NAME

template <class T>
requires requires {
  T::kTypeName;
}
struct TypeName<T> {
  static constexpr const char* value = T::kTypeName;
};
// Enumerations have no members to carry a name; theirs comes from moxEnumTypeName(E), found by
// argument-dependent lookup next to moxEnumName.
template <class E>
requires std::is_enum_v<E> && requires {
  moxEnumTypeName(E{});
}
struct TypeName<E> {
  static constexpr const char* value = moxEnumTypeName(E{});
};
template <class T>
struct TypeName<Mox::Ptr<T>> {
  static constexpr const char* value = TypeName<std::remove_const_t<T>>::value;
};

template <class T>
const char* typeNameOf() {
  if constexpr (Mox::Collection<T>) {
    return "collection";
  } else if constexpr (requires { TypeName<T>::value; }) {
    return TypeName<T>::value;
  } else {
    return "unregistered";
  }
}

// ---- boxed registered values ----

class BoxedValue : public Mox::Entity {
 public:
  virtual const char* valueTypeName() const = 0;
  virtual void* object() = 0;
  virtual const void* object() const = 0;
  virtual Mox::Ptr<BoxedValue> clone() const = 0;
  virtual std::string text() const = 0;
  virtual bool equals(const BoxedValue& other) const = 0;
  const char* typeName() const override { return valueTypeName(); }
};

namespace detail {
// The text of a boxed value: its own writeText, found in its own namespace or in Mox's.
using Mox::writeText;
template <class T>
concept Writable = requires(std::string& s, const T& v) {
  writeText(s, v);
};
template <class T>
std::string boxedText(const T& v) {
  if constexpr (Writable<T>) {
    std::string out;
    writeText(out, v);
    return out;
  } else {
    return std::string("<") + typeNameOf<T>() + ">";
  }
}
}  // namespace detail

template <class T>
class Boxed final : public BoxedValue {
 public:
  explicit Boxed(T v) : value(std::move(v)) {}
  const char* valueTypeName() const override { return typeNameOf<T>(); }
  void* object() override { return &value; }
  const void* object() const override { return &value; }
  Mox::Ptr<BoxedValue> clone() const override { return Mox::makePtr<Boxed<T>>(value); }
  std::string text() const override {
    if constexpr (requires(std::string & s) { Mox::writeText(s, value); }) {
      return Mox::textOf(value);
    } else {
      return std::string("<") + typeNameOf<T>() + ">";
    }
  }
  bool equals(const BoxedValue& other) const override {
    auto* o = dynamic_cast<const Boxed<T>*>(&other);
    if constexpr (std::equality_comparable<T>) {
      return o && o->value == value;
    } else {
      return o == this;
    }
  }
  T value;
};

// ---- Value ----

class Value {
 public:
  using Variant =
      std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, Mox::String8,
                   Plexa::IpAddr, Plexa::Ip6Addr, Plexa::IpGenAddr, Plexa::Prefix, Plexa::Ip6Prefix,
                   Plexa::IpGenPrefix, Plexa::IpAddrWithMask, Plexa::Ip6AddrWithMask, Plexa::IntfId,
                   Plexa::MplsLabel, Plexa::MplsLabelOperation, Plexa::EthAddr,
                   Plexa::RouteDistinguisher, L3::VrfName, Vxlan::VniOrNone, Brine::Fib::FecId,
                   Mox::Ptr<BoxedValue>, Mox::Ptr<Mox::Entity>>;

  Value() = default;
  // Out of line: copying or destroying the variant visits its two dozen alternatives, code
  // that would otherwise be written out wherever a Value is copied or goes out of scope.
  Value(const Value& other);
  Value(Value&& other) noexcept;
  Value& operator=(const Value& other);
  Value& operator=(Value&& other) noexcept;
  ~Value();
  template <class T>
  requires std::is_constructible_v<Variant, T> &&
      (!std::is_integral_v<std::decay_t<T>> || std::is_same_v<std::decay_t<T>, bool>)Value(T v)
      : v_(std::move(v)) {}                      // NOLINT: implicit, like the variant it wraps
  Value(const char* s) : v_(Mox::String8(s)) {}  // NOLINT
  template <class T>
  requires std::is_integral_v<T> &&(!std::is_same_v<T, bool>)Value(T v) {  // NOLINT
    if constexpr (std::is_signed_v<T>) {
      v_ = static_cast<std::int64_t>(v);
    } else {
      v_ = static_cast<std::uint64_t>(v);
    }
  }

  const Variant& variant() const { return v_; }
  Variant& variant() { return v_; }
  bool isNone() const { return std::holds_alternative<std::monostate>(v_); }
  template <class T>
  bool holds() const {
    return std::holds_alternative<T>(v_);
  }
  template <class T>
  const T& get() const {
    return std::get<T>(v_);
  }

  // What the value is, for messages: "bool", "integer", "Plexa::Prefix", "Rova::CounterEntry".
  std::string kindName() const;
  // The value text form ("True", "12", "'10.0.0.0/8'", "Value('Rova::...', ** {...})").
  std::string text() const;
  // The value for a person: strings and addresses without quotes.
  std::string displayText() const;

  friend bool operator==(const Value& a, const Value& b);

 private:
  Variant v_;
};

// Raised when a Value is not of the kind a parameter expects.
[[noreturn]] void conversionError(const Value& v, const char* expected);

// ---- conversions ----

template <class T>
struct FromValue;

template <class T>
T fromValue(const Value& v) {
  return FromValue<T>::convert(v);
}

template <>
struct FromValue<bool> {
  static bool convert(const Value& v) {
    if (v.holds<bool>()) return v.get<bool>();
    conversionError(v, "bool");
  }
};

template <class T>
requires std::is_integral_v<T> &&(!std::is_same_v<T, bool>)struct FromValue<T> {
  static T convert(const Value& v) {
    if (v.holds<std::int64_t>()) return checked(v, v.get<std::int64_t>());
    if (v.holds<std::uint64_t>()) return checked(v, v.get<std::uint64_t>());
    conversionError(v, typeNameOf<T>());
  }
  template <class W>
  static T checked(const Value& v, W w) {
    if (!std::in_range<T>(w)) conversionError(v, typeNameOf<T>());
    return static_cast<T>(w);
  }
};

template <>
struct FromValue<double> {
  static double convert(const Value& v) {
    if (v.holds<double>()) return v.get<double>();
    if (v.holds<std::int64_t>()) return double(v.get<std::int64_t>());
    if (v.holds<std::uint64_t>()) return double(v.get<std::uint64_t>());
    conversionError(v, "double");
  }
};

template <>
struct FromValue<Mox::String8> {
  static Mox::String8 convert(const Value& v) {
    if (v.holds<Mox::String8>()) return v.get<Mox::String8>();
    if (v.holds<L3::VrfName>()) return v.get<L3::VrfName>().string8();
    conversionError(v, "Mox::String8");
  }
};

// Platform values convert from themselves, or from text in their usual form.
template <class T>
requires Mox::HasStringForm<T> &&(!Mox::HasAttributes<T>)struct FromValue<T> {
  static T convert(const Value& v) {
    if constexpr (std::is_constructible_v<Value::Variant, T>) {
      if (v.holds<T>()) return v.get<T>();
    }
    if (v.holds<Mox::String8>()) return T::fromString(v.get<Mox::String8>().view());
    conversionError(v, typeNameOf<T>());
  }
};

// Named enumerations convert from their name or their number.
template <Mox::NamedEnum E>
struct FromValue<E> {
  static E convert(const Value& v) {
    E e{};
    if (v.holds<Mox::String8>() && moxEnumFromName(v.get<Mox::String8>().view(), e)) return e;
    if (v.holds<Mox::Ptr<BoxedValue>>()) {
      if (auto* b = dynamic_cast<const Boxed<E>*>(v.get<Mox::Ptr<BoxedValue>>().get()))
        return b->value;
    }
    if (v.holds<std::uint64_t>() || v.holds<std::int64_t>()) {
      const auto n = FromValue<std::uint32_t>::convert(v);
      e = static_cast<E>(n);
      if (*moxEnumName(e) != '\0') return e;
    }
    conversionError(v, typeNameOf<E>());
  }
};

// Registered value types come boxed.
template <class T>
requires Mox::HasAttributes<T> &&(!std::is_base_of_v<Mox::Entity, T>)struct FromValue<T> {
  static T convert(const Value& v) {
    if (v.holds<Mox::Ptr<BoxedValue>>()) {
      if (auto* b = dynamic_cast<const Boxed<T>*>(v.get<Mox::Ptr<BoxedValue>>().get()))
        return b->value;
    }
    conversionError(v, typeNameOf<T>());
  }
};

// Entity handles; None converts to the empty handle.
template <class T>
struct FromValue<Mox::Ptr<T>> {
  static Mox::Ptr<T> convert(const Value& v) {
    if (v.isNone()) return nullptr;
    if (v.holds<Mox::Ptr<Mox::Entity>>()) {
      const auto& e = v.get<Mox::Ptr<Mox::Entity>>();
      if (!e) return nullptr;
      if (auto* t = dynamic_cast<T*>(e.get())) return Mox::Ptr<T>(t);
    }
    conversionError(v, typeNameOf<Mox::Ptr<T>>());
  }
};

template <class T>
Value toValue(const T& v) {
  if constexpr (std::is_same_v<T, Value>) {
    return v;
  } else if constexpr (Mox::Collection<T>) {
    return Value();
  } else if constexpr (std::is_integral_v<T> || std::is_constructible_v<Value::Variant, T>) {
    return Value(v);
  } else if constexpr (requires { typename T::element_type; }) {  // Mox::Ptr<T>
    using E = typename T::element_type;
    return Value(Mox::Ptr<Mox::Entity>(const_cast<std::remove_const_t<E>*>(v.get())));
  } else {
    return Value(Mox::Ptr<BoxedValue>(Mox::makePtr<Boxed<T>>(v)));
  }
}

}  // namespace Rova
