#include "snapshot/JsonReader.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <new>

namespace Snapshot {

namespace {

bool isPlainKey(std::string_view key) {
  if (key.empty() || (key[0] >= '0' && key[0] <= '9')) return false;
  for (char c : key) {
    const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    c == '_' || c == '-';
    if (!ok) return false;
  }
  return true;
}

// A key or string value shown in a message: quoted, escaped, cut when long (a message names
// the thing, it does not need all of it).
std::string quoted(std::string_view s) {
  return Mox::shownWord(s, '"');
}

// Whether the n bytes at p are plain text: no backslash and no byte that may start a control
// character (below 0x20, 0x7f, 0xc2), eight bytes at a time. Nearly every string of a state is.
// It reads whole words, up to seven bytes past the end: a string lies inside the document,
// which is followed by the parser's padding.
bool plainText(const char* p, std::size_t n) {
  static_assert(std::endian::native == std::endian::little);
  constexpr std::uint64_t kOnes = 0x0101010101010101ull, kHighs = 0x8080808080808080ull;
  const auto hasZeroByte = [](std::uint64_t x) { return ((x - kOnes) & ~x & kHighs) != 0; };
  for (std::size_t i = 0; i < n; i += 8) {
    std::uint64_t w;
    std::memcpy(&w, p + i, 8);
    if (n - i < 8) {  // the bytes past the end become 'A's
      const std::uint64_t keep = ~std::uint64_t(0) >> (8 * (8 - (n - i)));
      w = (w & keep) | (~keep & kOnes * 'A');
    }
    if (((w - kOnes * 0x20) & ~w & kHighs) != 0 || hasZeroByte(w ^ (kOnes * '\\')) ||
        hasZeroByte(w ^ (kOnes * 0x7f)) || hasZeroByte(w ^ (kOnes * 0xc2)))
      return false;
  }
  return true;
}

const char* typeName(od::json_type t) {
  switch (t) {
    case od::json_type::array:
      return "an array";
    case od::json_type::object:
      return "an object";
    case od::json_type::number:
      return "a number";
    case od::json_type::string:
      return "a string";
    case od::json_type::boolean:
      return "a boolean";
    case od::json_type::null:
      return "null";
  }
  return "an unknown value";
}

// The text of a raw key as it stands in the document, up to its closing quote.
std::string_view rawKeyText(const od::raw_json_string& key) {
  const char* p = key.raw();
  std::size_t n = 0;
  // The key ends at the first quote not escaped by a backslash, itself not escaped.
  while (p[n] != '"') {
    n += p[n] == '\\' ? 2 : 1;
  }
  return std::string_view(p, n);
}

}  // namespace

std::size_t controlCharacter(std::string_view s) {
  for (std::size_t i = 0; i < s.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(s[i]);
    if (c < 0x20 || c == 0x7f) return i;
    if (c == 0xc2 && i + 1 < s.size() && static_cast<unsigned char>(s[i + 1]) < 0xa0) return i;
  }
  return std::string_view::npos;
}

LoadError::LoadError(std::string jsonPath, std::string reason, std::string file)
    : Mox::Exception(!jsonPath.empty() ? jsonPath + ": " + reason
                     : !file.empty()   ? Mox::shownWord(file, '\0') + ": " + reason
                                       : reason),
      jsonPath_(std::move(jsonPath)),
      reason_(std::move(reason)),
      file_(std::move(file)) {}

std::string JsonPath::text() const {
  std::string s = "$";
  for (const Step& step : steps_) {
    if (step.isIndex) {
      s += '[';
      s += std::to_string(step.index);
      s += ']';
    } else if (isPlainKey(step.key)) {
      s += '.';
      s += Mox::shownWord(step.key, '\0');
    } else {
      s += '[';
      s += quoted(step.key);
      s += ']';
    }
  }
  return s;
}

void JsonReader::fail(std::string reason) const {
  throw LoadError(path_.text(), std::move(reason));
}

void JsonReader::failJson(simdjson::error_code e) const {
  // The document may be fine; the machine is out of memory, and says so as everywhere else.
  if (e == simdjson::MEMALLOC) throw std::bad_alloc();
  fail(std::string("malformed JSON: ") + jsonErrorMessage(e));
}

void JsonReader::failKey(od::field& field, const char* what, const std::string_view* keys,
                         std::size_t n) {
  // Shown unescaped, as every other key and string in a message is.
  // (A key with a broken escape is shown as written.) The raw text is taken first: unescaping
  // consumes the key.
  const std::string_view raw = rawKeyText(field.key());
  std::string_view key;
  if (field.unescaped_key().get(key) != simdjson::SUCCESS) key = raw;
  failKeyText(key, what, keys, n);
}

void JsonReader::failKeyText(std::string_view key, const char* what, const std::string_view* keys,
                             std::size_t n) {
  path_.push(key);
  std::string reason = std::string(what) + " " + quoted(key);
  if (n > 0) {
    reason += " (expected one of:";
    for (std::size_t i = 0; i < n; ++i) {
      reason += ' ';
      reason += keys[i];
    }
    reason += ')';
  }
  fail(reason);
}

bool JsonReader::nextField(ObjectWalk& w, const std::string_view* keys, std::size_t n,
                           std::uint64_t& seen, unsigned& i) {
  if (w.started) ++w.it;
  w.started = true;
  if (!(w.it != w.end)) return false;
  check((*w.it).get(w.field));
  const od::raw_json_string key = w.field.key();
  i = 0;
  while (i < n && !(key == keys[i]))
    ++i;
  if (i == n) {
    // A key written with escapes ("pref\u0069x") is the same key as its plain spelling. Known
    // keys are compared as written first: only a key that matched none is unescaped.
    if (rawKeyText(key).find('\\') == std::string_view::npos)
      failKey(w.field, "unknown key", keys, n);
    std::string_view text;
    if (w.field.unescaped_key().get(text) != simdjson::SUCCESS)
      failKeyText(rawKeyText(key), "unknown key", keys, n);
    i = 0;
    while (i < n && text != keys[i])
      ++i;
    if (i == n) failKeyText(text, "unknown key", keys, n);
  }
  if (seen & bit(i)) failKeyText(keys[i], "duplicate key", nullptr, 0);
  seen |= bit(i);
  path_.push(keys[i]);
  return true;
}

bool JsonReader::nextEntry(ObjectWalk& w, std::vector<std::string>& seen, std::string_view& key) {
  if (w.started) ++w.it;
  w.started = true;
  if (!(w.it != w.end)) return false;
  check((*w.it).get(w.field));
  check(w.field.unescaped_key().get(key));
  path_.push(key);
  refuseControls(key);
  for (const auto& s : seen) {
    if (s == key) fail("duplicate key " + Mox::shownWord(key, '"'));
  }
  seen.emplace_back(key);
  return true;
}

bool JsonReader::nextElement(ArrayWalk& w) {
  if (w.started) {
    ++w.it;
    if ((w.index & 8191) == 0 && readPast_) [[unlikely]] {
      const char* at = nullptr;
      if (w.value.current_location().get(at) == simdjson::SUCCESS) readPast_(at);
    }
  }
  w.started = true;
  if (!(w.it != w.end)) return false;
  check((*w.it).get(w.value));
  path_.push(w.index);
  return true;
}

void JsonReader::failMissing(const std::string_view* keys, std::size_t n, std::uint64_t missing) {
  for (std::size_t i = 0; i < n; ++i) {
    if (missing & bit(unsigned(i))) fail("missing required key \"" + std::string(keys[i]) + "\"");
  }
  fail("missing required key");
}

namespace {
od::json_type typeOf(JsonReader& r, od::value& v) {
  od::json_type t;
  r.check(v.type().get(t));
  return t;
}
}  // namespace

od::object JsonReader::object(od::value& v) {
  const od::json_type t = typeOf(*this, v);
  if (t != od::json_type::object) fail(std::string("expected an object, found ") + typeName(t));
  od::object o;
  check(v.get_object().get(o));
  return o;
}

od::array JsonReader::array(od::value& v) {
  const od::json_type t = typeOf(*this, v);
  if (t != od::json_type::array) fail(std::string("expected an array, found ") + typeName(t));
  od::array a;
  check(v.get_array().get(a));
  return a;
}

std::string_view JsonReader::string(od::value& v) {
  const od::json_type t = typeOf(*this, v);
  if (t != od::json_type::string) fail(std::string("expected a string, found ") + typeName(t));
  // Most strings have no escape: their text is the document's own bytes, taken where they
  // stand instead of copied out by the parser. (The token runs from the opening quote to the
  // next structural character: the closing quote, then perhaps blanks.)
  const std::string_view token = v.raw_json_token();
  std::size_t end = token.size();
  while (end > 1 && token[end - 1] != '"')
    --end;
  std::string_view s;
  if (end >= 2) s = token.substr(1, end - 2);
  const bool plain = end >= 2 && plainText(s.data(), s.size());
  if (end < 2 || (!plain && s.find('\\') != std::string_view::npos)) {
    check(v.get_string().get(s));  // escapes: the parser's copy, unescaped
  } else {
    od::raw_json_string consumed;
    check(v.get_raw_json_string().get(consumed));
  }
  if (!plain) refuseControls(s);
  return s;
}

void JsonReader::refuseControls(std::string_view s) const {
  const std::size_t at = controlCharacter(s);
  if (at == std::string_view::npos) [[likely]]
    return;
  fail("control character " + Mox::shownWord(s.substr(at, s[at] == '\xc2' ? 2 : 1), '\0') +
       " at byte " + std::to_string(at) + " of " + quoted(s) + "; strings hold printable text");
}

bool JsonReader::boolean(od::value& v) {
  const od::json_type t = typeOf(*this, v);
  if (t != od::json_type::boolean)
    fail(std::string("expected true or false, found ") + typeName(t));
  bool b;
  check(v.get_bool().get(b));
  return b;
}

std::uint64_t JsonReader::number(od::value& v, std::uint64_t max, std::uint64_t min) {
  const od::json_type t = typeOf(*this, v);
  if (t != od::json_type::number) fail(std::string("expected a number, found ") + typeName(t));
  std::uint64_t n;
  if (v.get_uint64().get(n) != simdjson::SUCCESS || n > max || n < min) {
    std::string_view token = v.raw_json_token();
    while (!token.empty() && (token.back() == ' ' || token.back() == '\n' || token.back() == '\r' ||
                              token.back() == '\t'))
      token.remove_suffix(1);
    fail("expected a whole number from " + std::to_string(min) + " to " + std::to_string(max) +
         ", found " + std::string(token));
  }
  return n;
}

bool JsonReader::isNull(od::value& v) {
  return typeOf(*this, v) == od::json_type::null;
}

bool JsonReader::isString(od::value& v) {
  return typeOf(*this, v) == od::json_type::string;
}

std::size_t JsonReader::count(od::array& a) {
  std::size_t n;
  check(a.count_elements().get(n));
  return n;
}

}  // namespace Snapshot
