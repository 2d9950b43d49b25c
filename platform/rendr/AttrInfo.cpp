#include "platform/rendr/AttrInfo.h"

#include <cstring>
#include <limits>

#include "platform/mox/Exception.h"
#include "platform/mox/String8.h"
#include "platform/rendr/Copy.h"

namespace rendr {

namespace {

// A key needs escaping when it holds a quote, a backslash, a control character or a byte
// that is not ASCII (which must be checked as UTF-8).
bool plainJsonText(std::string_view s) {
  for (unsigned char c : s) {
    if (c < 0x20 || c == '"' || c == '\\' || c >= 0x80) return false;
  }
  return true;
}

std::uint32_t checkedLength(std::size_t len) {
  MOX_ASSERT(len <= std::numeric_limits<std::uint32_t>::max());
  return static_cast<std::uint32_t>(len);
}

}  // namespace

AttrInfo::AttrInfo(const char* name, unsigned format)
    : name_(name ? name : ""), format_(format), namePlain_(plainJsonText(name_)) {}

void AttrInfo::requireKnownFormat() const {
  MOX_ASSERT(format_ == kFormatText || format_ == kFormatJson);
}

void AttrInfo::storeInt32(std::int32_t v) {
  kind_ = JsonKind::int32;
  value_.i32 = v;
  text_ = nullptr;
  set_ = true;
}

void AttrInfo::storeUint32(std::uint32_t v) {
  kind_ = JsonKind::uint32;
  value_.u32 = v;
  text_ = nullptr;
  set_ = true;
}

void AttrInfo::storeUint64(std::uint64_t v) {
  kind_ = JsonKind::uint64;
  value_.u64 = v;
  text_ = nullptr;
  set_ = true;
}

void AttrInfo::storeDouble(double v) {
  kind_ = JsonKind::double_;
  value_.d = v;
  text_ = nullptr;
  set_ = true;
}

void AttrInfo::storeBool(bool v, std::string_view text) {
  kind_ = JsonKind::boolean;
  value_.b = v;
  text_ = text.data();
  textLen_ = checkedLength(text.size());
  set_ = true;
}

void AttrInfo::storeString(std::string_view json, std::string_view text) {
  kind_ = JsonKind::string;
  str_ = json.data();
  strLen_ = checkedLength(json.size());
  text_ = text.data();
  textLen_ = checkedLength(text.size());
  set_ = true;
}

BoolAttrInfo::BoolAttrInfo(const char* name, unsigned format) : Attr32Info(name, format) {}

void BoolAttrInfo::setValue(bool v) {
  requireKnownFormat();
  storeBool(v, v ? std::string_view("True") : std::string_view("False"));
}

IntAttrInfo::IntAttrInfo(const char* name, unsigned format) : Attr32Info(name, format) {}

void IntAttrInfo::setValue(std::int32_t v) {
  requireKnownFormat();
  storeInt32(v);
}

UintAttrInfo::UintAttrInfo(const char* name, unsigned format) : Attr32Info(name, format) {}

void UintAttrInfo::setValue(std::uint32_t v) {
  requireKnownFormat();
  storeUint32(v);
}

Uint64AttrInfo::Uint64AttrInfo(const char* name, unsigned format) : Attr64Info(name, format) {}

void Uint64AttrInfo::setValue(std::uint64_t v) {
  requireKnownFormat();
  storeUint64(v);
}

DoubleAttrInfo::DoubleAttrInfo(const char* name, unsigned format) : Attr64Info(name, format) {}

void DoubleAttrInfo::setValue(double v) {
  requireKnownFormat();
  storeDouble(v);
}

StringAttrInfo::StringAttrInfo(const char* name, unsigned format) : Attr32Info(name, format) {
  inline_[0] = '\0';
}

void StringAttrInfo::setValue(const char* s) {
  if (!s) s = "";
  setValue(s, std::strlen(s));
}

void StringAttrInfo::setValue(const char* s, std::size_t len) {
  requireKnownFormat();
  // The text may be this attribute's own (attr.setValue(attr.text())): copy before freeing.
  if (len < kInlineCapacity) {
    detail::moveBytes(inline_, s, len);
    if (heap_) releaseHeap();
  } else {
    auto copy = std::make_unique_for_overwrite<char[]>(len + 1);
    std::memcpy(copy.get(), s, len);
    heap_ = std::move(copy);
  }
  storeBuffer(len);
}

void StringAttrInfo::setValue(const Mox::String8& s) {
  setValue(s.view());
}

char* StringAttrInfo::textBuffer(std::size_t len) {
  releaseHeap();
  if (len < kInlineCapacity) return inline_;
  heap_ = std::make_unique_for_overwrite<char[]>(len + 1);
  return heap_.get();
}

void StringAttrInfo::storeBuffer(std::size_t len) {
  char* buf = heap_ ? heap_.get() : inline_;
  buf[len] = '\0';
  storeString({buf, len}, {buf, len});
}

void StringAttrInfo::storeStatic(std::string_view json, std::string_view text) {
  releaseHeap();
  storeString(json, text);
}

void StringAttrInfo::releaseHeap() {
  heap_.reset();
}

}  // namespace rendr
