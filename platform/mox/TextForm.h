#pragma once
// The value text form: Value('Ns::Type', ** {'a': ..., 'b': ...}), written and parsed from
// a class's attribute list. Each attribute value uses its own type's form:
//   bool            True / False
//   integers        decimal
//   double          Python's repr (1.0, 0.25, 1e+16)
//   Mox::String8    Python-style quoted string ('abc')
//   network values  their usual text, quoted ('10.1.0.0/16')
//   enumerations    their name, quoted ('allowExactMatch')
//   registered      nested Value(...)
//   collections     None (collections are never carried in the text form)
//   handles         None, or Ptr('Ip::Config', 'path') for an entity mounted at a path
// Parse failures raise Mox::RangeException; a failure inside one attribute's value is
// re-raised with the attribute's name.

#include <charconv>
#include <concepts>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/mox/Attribute.h"
#include "platform/mox/Exception.h"
#include "platform/mox/Ptr.h"
#include "platform/mox/String8.h"

namespace Mox {

// ---- cursor helpers ----

// Consumes `literal` at the start of `in` or throws naming what was expected and found.
void expectText(std::string_view& in, std::string_view literal);
bool consumeText(std::string_view& in, std::string_view literal);
[[noreturn]] void parseError(std::string_view in, std::string_view expected);

// ---- scalar forms ----

void writeText(std::string& out, bool v);
void parseText(std::string_view& in, bool& v);

void writeText(std::string& out, double v);
void parseText(std::string_view& in, double& v);

void writeText(std::string& out, const String8& v);
void parseText(std::string_view& in, String8& v);

template <class T>
requires std::integral<T> &&(!std::same_as<T, bool>)void writeText(std::string& out, T v) {
  char buf[24];
  auto r = std::to_chars(buf, buf + sizeof buf, v);
  out.append(buf, r.ptr);
}

template <class T>
requires std::integral<T> &&(!std::same_as<T, bool>)void parseText(std::string_view& in, T& v) {
  // Parse wide, then check the target's bounds, so that 256 into an 8-bit field is refused
  // instead of wrapping.
  using Wide = std::conditional_t<std::is_signed_v<T>, long long, unsigned long long>;
  Wide w{};
  auto r = std::from_chars(in.data(), in.data() + in.size(), w);
  if (r.ec == std::errc::result_out_of_range ||
      (r.ec == std::errc() && (w < static_cast<Wide>(std::numeric_limits<T>::min()) ||
                               w > static_cast<Wide>(std::numeric_limits<T>::max())))) {
    throw RangeException("integer " + std::string(in.substr(0, r.ptr - in.data())) +
                         " out of range");
  }
  if (r.ec != std::errc()) parseError(in, "an integer");
  v = static_cast<T>(w);
  in.remove_prefix(r.ptr - in.data());
}

// ---- network values and other types with a text form of their own ----
// A type opts in with stringValue() and a static fromString(std::string_view) that throws
// Mox::RangeException on bad text.

template <class T>
concept HasStringForm = requires(const T& t, std::string_view s) {
  {t.stringValue()};
  { T::fromString(s) } -> std::same_as<T>;
};

template <HasStringForm T>
requires(!HasAttributes<T>) void writeText(std::string& out, const T& v) {
  out += String8(std::string_view(v.stringValue())).textForm();
}

template <HasStringForm T>
requires(!HasAttributes<T>) void parseText(std::string_view& in, T& v) {
  String8 s = String8::parseTextForm(in);
  v = T::fromString(s.view());
}

// ---- enumerations with names ----
// An enumeration opts in with moxEnumName(E) and moxEnumFromName(std::string_view, E&) found
// by argument-dependent lookup.

template <class E>
concept NamedEnum = std::is_enum_v<E> && requires(E e, std::string_view s) {
  { moxEnumName(e) } -> std::convertible_to<std::string_view>;
  { moxEnumFromName(s, e) } -> std::same_as<bool>;
};

template <NamedEnum E>
void writeText(std::string& out, E v) {
  out += String8(std::string_view(moxEnumName(v))).textForm();
}

template <NamedEnum E>
void parseText(std::string_view& in, E& v) {
  String8 s = String8::parseTextForm(in);
  if (!moxEnumFromName(s.view(), v)) throw RangeException("unknown name " + s.textForm());
}

// ---- collections ----

template <Collection T>
void writeText(std::string& out, const T&) {
  out += "None";
}

template <Collection T>
void parseText(std::string_view& in, T& v) {
  expectText(in, "None");
  v.delAll();
}

// ---- handles ----
// The front end that owns the state sets a resolver, so that Ptr('Ip::Config', 'ip/config')
// parses back into the handle of that entity.

using PtrResolver = std::function<Ptr<Entity>(std::string_view type, std::string_view path)>;
void ptrResolverIs(PtrResolver r);
Ptr<Entity> resolvePtr(std::string_view type, std::string_view path);

void writePtrText(std::string& out, const Entity* e, const char* staticTypeName);
// Returns the entity or null ("None").
Ptr<Entity> parsePtrText(std::string_view& in);

template <class T>
void writeText(std::string& out, const Ptr<T>& p) {
  writePtrText(out, p.get(), std::remove_const_t<T>::kTypeName);
}

template <class T>
void parseText(std::string_view& in, Ptr<T>& p) {
  Ptr<Entity> e = parsePtrText(in);
  if (!e) {
    p.reset();
    return;
  }
  T* t = dynamic_cast<T*>(e.get());
  if (!t) {
    throw RangeException(std::string("entity is a ") + e->typeName() + ", not a " +
                         std::remove_const_t<T>::kTypeName);
  }
  p = Ptr<T>(t);
}

// ---- registered values: Value('Ns::Type', ** {...}) ----

template <HasAttributes T>
void writeText(std::string& out, const T& v) {
  out += "Value('";
  out += T::kTypeName;
  out += "', ** {";
  bool first = true;
  forEachAttr<T>([&](const auto& d) {
    if (!first) out += ", ";
    first = false;
    out += '\'';
    out += d.name;
    out += "': ";
    writeText(out, d.get(v));
  });
  out += "})";
}

std::string attrSeparator(bool first, const char* name);

template <HasAttributes T>
void parseText(std::string_view& in, T& v) {
  expectText(in, "Value('");
  expectText(in, T::kTypeName);
  expectText(in, "', ** {");
  bool first = true;
  forEachAttr<T>([&](const auto& d) {
    expectText(in, attrSeparator(first, d.name));
    first = false;
    try {
      parseText(in, d.ref(v));
    } catch (const RangeException& e) {
      throw RangeException(std::string("attribute '") + d.name + "': " + e.what());
    }
  });
  expectText(in, "})");
}

// ---- whole texts ----

template <class T>
std::string textOf(const T& v) {
  std::string out;
  writeText(out, v);
  return out;
}

// Parses a whole text into `v`; text left over after the value is an error.
template <class T>
void parseWhole(std::string_view text, T& v) {
  parseText(text, v);
  if (!text.empty()) parseError(text, "the end of the text");
}

template <class T>
T valueFromText(std::string_view text) {
  T v{};
  parseWhole(text, v);
  return v;
}

}  // namespace Mox
