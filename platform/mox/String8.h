#pragma once
// The framework's text type: an 8-bit string with a Python-style text form ('abc').

#include <compare>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>

namespace Mox {

class String8 {
 public:
  String8() = default;
  String8(const char* s) : s_(s ? s : "") {}    // NOLINT: implicit like a literal
  String8(std::string s) : s_(std::move(s)) {}  // NOLINT
  String8(std::string_view s) : s_(s) {}        // NOLINT
  String8(const char* s, std::size_t n) : s_(s, n) {}

  const std::string& stringValue() const { return s_; }
  std::string& str() { return s_; }
  const char* charPtr() const { return s_.c_str(); }
  std::string_view view() const { return s_; }
  std::size_t size() const { return s_.size(); }
  bool empty() const { return s_.empty(); }
  bool startsWith(std::string_view prefix) const {
    return view().substr(0, prefix.size()) == prefix;
  }

  // The Python-style text form: 'abc', with quotes and control characters escaped.
  std::string textForm() const;
  // Parses a quoted text form at the start of `in`; advances `in` past it. Throws
  // Mox::RangeException when the text is not a quoted string.
  static String8 parseTextForm(std::string_view& in);

  String8& operator+=(std::string_view s) {
    s_.append(s);
    return *this;
  }
  friend String8 operator+(String8 a, std::string_view b) { return a += b; }
  friend bool operator==(const String8&, const String8&) = default;
  friend std::strong_ordering operator<=>(const String8& a, const String8& b) {
    return a.s_.compare(b.s_) <=> 0;
  }
  friend bool operator==(const String8& a, const char* b) { return a.s_ == b; }
  friend std::ostream& operator<<(std::ostream& os, const String8& s) { return os << s.s_; }

 private:
  std::string s_;
};

}  // namespace Mox

template <>
struct std::hash<Mox::String8> {
  std::size_t operator()(const Mox::String8& s) const noexcept {
    return std::hash<std::string>()(s.stringValue());
  }
};
