#include "lib/registry/Value.h"

namespace Rova {

namespace {

template <class... Fs>
struct Overload : Fs... {
  using Fs::operator()...;
};
// clang 14 does not deduce an aggregate's template arguments by itself.
template <class... Fs>
Overload(Fs...) -> Overload<Fs...>;

}  // namespace

Value::Value(const Value& other) = default;
Value::Value(Value&& other) noexcept = default;
Value& Value::operator=(const Value& other) = default;
Value& Value::operator=(Value&& other) noexcept = default;
Value::~Value() = default;

std::string Value::kindName() const {
  return std::visit(
      Overload{
          [](std::monostate) -> std::string { return "None"; },
          [](bool) -> std::string { return "bool"; },
          [](std::int64_t) -> std::string { return "integer"; },
          [](std::uint64_t) -> std::string { return "integer"; },
          [](const Mox::Ptr<BoxedValue>& b) -> std::string { return b->valueTypeName(); },
          [](const Mox::Ptr<Mox::Entity>& e) -> std::string { return e ? e->typeName() : "None"; },
          [](const auto& x) -> std::string { return typeNameOf<std::decay_t<decltype(x)>>(); },
      },
      v_);
}

std::string Value::text() const {
  return std::visit(Overload{
                        [](std::monostate) -> std::string { return "None"; },
                        [](const Mox::Ptr<BoxedValue>& b) { return b->text(); },
                        [](const Mox::Ptr<Mox::Entity>& e) {
                          std::string out;
                          Mox::writePtrText(out, e.get(), "");
                          return out;
                        },
                        [](const auto& x) { return Mox::textOf(x); },
                    },
                    v_);
}

std::string Value::displayText() const {
  return std::visit(Overload{
                        [](std::monostate) -> std::string { return ""; },
                        [](bool b) -> std::string { return b ? "True" : "False"; },
                        [](std::int64_t i) { return std::to_string(i); },
                        [](std::uint64_t u) { return std::to_string(u); },
                        [](double d) { return Mox::textOf(d); },
                        [](const Mox::String8& s) { return s.stringValue(); },
                        [](const Mox::Ptr<BoxedValue>& b) { return b->text(); },
                        [this](const Mox::Ptr<Mox::Entity>&) { return text(); },
                        [](const auto& x) -> std::string { return x.stringValue(); },
                    },
                    v_);
}

bool operator==(const Value& a, const Value& b) {
  if (a.v_.index() != b.v_.index()) return false;
  return std::visit(
      [&](const auto& x) -> bool {
        using T = std::decay_t<decltype(x)>;
        const T& y = std::get<T>(b.v_);
        if constexpr (std::is_same_v<T, Mox::Ptr<BoxedValue>>) {
          return x == y || (x && y && x->equals(*y));
        } else {
          return x == y;
        }
      },
      a.v_);
}

void conversionError(const Value& v, const char* expected) {
  std::string got = v.kindName();
  if (!v.isNone()) got += " " + v.text();
  throw Mox::RangeException(std::string("expected ") + expected + ", got " + got);
}

}  // namespace Rova
