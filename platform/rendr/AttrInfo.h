#pragma once
// Output attributes: one named value that the printer writes as text (through a printf-style
// template) or as a JSON member (under the attribute's name).
//
// An attribute is built once per listing and set once per printed row, so setting a value
// must not allocate: numbers and booleans are stored as they are, and text is copied into a
// buffer inside the attribute (only text longer than that buffer goes to the heap).
//
// Every attribute holds three things the printer reads:
//   - its JSON kind and raw value (a number, a boolean or a string);
//   - an optional text view, what a "%s" conversion prints in text output. Numbers leave it
//     empty and the printer writes their decimal form; booleans point it at "True"/"False";
//   - its set flag: an attribute that was never set (or was cleared) writes JSON null and
//     prints nothing (only the padding of its conversion) in text.
// A subclass that shows one thing in text and another in JSON (a mark in text and a boolean
// in JSON, a code in text and a word in JSON) sets both through the protected helpers.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace Mox {
class String8;
}

namespace rendr {

// The printer's output formats. Any other number is a programming error.
inline constexpr unsigned kFormatText = 1;
inline constexpr unsigned kFormatJson = 2;

enum class JsonKind : std::uint8_t { int32, uint32, uint64, double_, boolean, string };

class AttrInfo {
 public:
  // `format` is the printer's format; it is checked when a value is set, so that a bad format
  // stops the command at the first row rather than producing half a listing.
  AttrInfo(const char* name, unsigned format);
  virtual ~AttrInfo() = default;
  // The text view may point into the attribute itself; a copy would point into the original.
  AttrInfo(const AttrInfo&) = delete;
  AttrInfo& operator=(const AttrInfo&) = delete;

  const std::string& name() const { return name_; }
  // True when the name can be written as a JSON key without escaping (almost always).
  bool namePlain() const { return namePlain_; }
  unsigned format() const { return format_; }
  bool isSet() const { return set_; }
  void clear() { set_ = false; }
  JsonKind kind() const { return kind_; }

  // What the printer's variadic calls take: addAttributes("%s", 1, attr.getArg()).
  const AttrInfo* getArg() const { return this; }

  std::int32_t int32Value() const { return value_.i32; }
  std::uint32_t uint32Value() const { return value_.u32; }
  std::uint64_t uint64Value() const { return value_.u64; }
  double doubleValue() const { return value_.d; }
  bool boolValue() const { return value_.b; }
  // The JSON string of a string attribute.
  std::string_view stringValue() const { return {str_, strLen_}; }
  // What "%s" prints; has no data for numbers, which the printer formats itself.
  bool hasText() const { return text_ != nullptr; }
  std::string_view text() const { return {text_, textLen_}; }

 protected:
  // Raises Mox::InternalException unless format() is text or JSON.
  void requireKnownFormat() const;

  void storeInt32(std::int32_t v);
  void storeUint32(std::uint32_t v);
  void storeUint64(std::uint64_t v);
  void storeDouble(double v);
  // `text` must stay valid until the next value is set: a literal, or the attribute's own
  // buffer.
  void storeBool(bool v, std::string_view text);
  void storeString(std::string_view json, std::string_view text);

 private:
  union Value {
    std::int32_t i32;
    std::uint32_t u32;
    std::uint64_t u64;
    double d;
    bool b;
  };

  std::string name_;
  const char* str_ = nullptr;
  const char* text_ = nullptr;
  std::uint32_t strLen_ = 0;
  std::uint32_t textLen_ = 0;
  Value value_{};
  unsigned format_;
  JsonKind kind_ = JsonKind::int32;
  bool set_ = false;
  bool namePlain_ = true;
};

// The base of attributes whose value fits 32 bits (and of strings, which pass a pointer).
class Attr32Info : public AttrInfo {
 public:
  using AttrInfo::AttrInfo;
};

// The base of attributes with a 64-bit value.
class Attr64Info : public AttrInfo {
 public:
  using AttrInfo::AttrInfo;
};

// Text "True" or "False"; JSON true or false.
class BoolAttrInfo : public Attr32Info {
 public:
  BoolAttrInfo(const char* name, unsigned format);
  void setValue(bool v);
};

class IntAttrInfo : public Attr32Info {
 public:
  IntAttrInfo(const char* name, unsigned format);
  void setValue(std::int32_t v);
};

class UintAttrInfo : public Attr32Info {
 public:
  UintAttrInfo(const char* name, unsigned format);
  void setValue(std::uint32_t v);
};

class Uint64AttrInfo : public Attr64Info {
 public:
  Uint64AttrInfo(const char* name, unsigned format);
  void setValue(std::uint64_t v);
};

// A float argument is widened to double. NaN and infinities are written as JSON null.
class DoubleAttrInfo : public Attr64Info {
 public:
  DoubleAttrInfo(const char* name, unsigned format);
  void setValue(double v);
};

// Text, the same in both formats unless a subclass says otherwise.
class StringAttrInfo : public Attr32Info {
 public:
  // Prefixes, addresses, interface and VRF names all fit; longer text goes to the heap.
  static constexpr std::size_t kInlineCapacity = 128;

  StringAttrInfo(const char* name, unsigned format);

  void setValue(const char* s);  // a null pointer is the empty string
  void setValue(const char* s, std::size_t len);
  void setValue(std::string_view s) { setValue(s.data(), s.size()); }
  void setValue(const std::string& s) { setValue(s.data(), s.size()); }
  void setValue(const Mox::String8& s);

 protected:
  // A writable buffer of at least `len` + 1 bytes, for a subclass that formats its text in
  // place. Frees the heap copy of the previous value, if any.
  char* textBuffer(std::size_t len);
  // Sets JSON and text to the same `len` bytes written into textBuffer().
  void storeBuffer(std::size_t len);
  // Sets the value from text that lives elsewhere (a table of words and codes): no copy.
  // Frees the heap copy of the previous value, if any.
  void storeStatic(std::string_view json, std::string_view text);

 private:
  void releaseHeap();

  std::unique_ptr<char[]> heap_;
  char inline_[kInlineCapacity];
};

}  // namespace rendr
