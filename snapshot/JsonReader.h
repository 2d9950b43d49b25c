#pragma once
// Strict reading of a JSON document with simdjson's on-demand parser. The reader keeps the
// path of the value being read ("$.vrfs.red.ipv4.fecs[3]") as a stack of steps that costs
// nothing to push and pop; the text is only made when something is refused. Every refusal
// goes through fail(), which raises LoadError with that path.
//
// On-demand values are read once, front to back: a caller visits each field or element
// through fields(), entries() or elements() and must consume or skip it before the next.

#include <simdjson.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/mox/Exception.h"
#include "snapshot/Snapshot.h"

namespace Snapshot {

namespace od = simdjson::ondemand;

class JsonPath {
 public:
  void push(std::string_view key) { steps_.push_back({key, 0, false}); }
  void push(std::size_t index) { steps_.push_back({{}, index, true}); }
  void pop() { steps_.pop_back(); }
  // How many steps the path has; truncate() goes back to such a depth, for a refusal that
  // names an earlier element than the one being read.
  std::size_t depth() const { return steps_.size(); }
  void truncate(std::size_t depth) { steps_.resize(depth); }
  // "$", then ".key" for plain keys, ["odd key"] for others and [i] for indexes.
  std::string text() const;

 private:
  struct Step {
    std::string_view key;
    std::size_t index;
    bool isIndex;
  };
  std::vector<Step> steps_;
};

// The keys an object may have, in one list; a field's position in it is its number, and a
// mask of such numbers says which keys an object had or must have.
template <std::size_t N>
using Keys = std::array<std::string_view, N>;

constexpr std::uint64_t bit(unsigned i) {
  return std::uint64_t(1) << i;
}

class JsonReader {
 public:
  JsonPath& path() { return path_; }
  // Called every few thousand elements of an array with where the reading stands: the text
  // before it is not read again (only an array's count looks ahead, then reads it from its
  // start).
  void readPastIs(std::function<void(const char*)> f) { readPast_ = std::move(f); }

  [[noreturn]] void fail(std::string reason) const;
  // A simdjson error: the document is not well-formed JSON at this point.
  void check(simdjson::error_code e) const {
    if (e != simdjson::SUCCESS) [[unlikely]]
      failJson(e);
  }
  [[noreturn]] void failJson(simdjson::error_code e) const;

  // ---- typed reads of one value; a value of another JSON type is refused ----
  od::object object(od::value& v);
  od::array array(od::value& v);
  // A string without control characters.
  std::string_view string(od::value& v);
  bool boolean(od::value& v);
  // A whole number from 0 to `max`.
  std::uint64_t number(od::value& v, std::uint64_t max);
  bool isNull(od::value& v);
  bool isString(od::value& v);
  // The number of elements, counted ahead so that tables can be sized once.
  std::size_t count(od::array& a);

  // Visits every field of `obj`. Each key must be one of `keys` and may appear once;
  // f(keyNumber, value) runs with the key on the path. Keys whose bits are in `required` must
  // be present. Returns the mask of the keys seen.
  template <std::size_t N, class F>
  std::uint64_t fields(od::object obj, const Keys<N>& keys, std::uint64_t required, F&& f);

  // Visits every field of an object whose keys are data (VRF names, input names):
  // f(key, value). A key that appears twice is refused.
  template <class F>
  void entries(od::object obj, F&& f);

  // Visits every element of `arr`: f(index, value) with the index on the path.
  template <class F>
  void elements(od::array arr, F&& f);

  // Runs f; a platform range error it raises is refused here, its text kept as it is.
  template <class F>
  decltype(auto) guarded(F&& f) {
    try {
      return f();
    } catch (const Mox::RangeException& e) {
      fail(e.what());
    }
  }

 private:
  void refuseControls(std::string_view s) const;
  [[noreturn]] void failKey(od::field& field, const char* what, const std::string_view* keys,
                            std::size_t n);
  [[noreturn]] void failMissing(const std::string_view* keys, std::size_t n, std::uint64_t missing);

  JsonPath path_;
  std::function<void(const char*)> readPast_;
};

// ---- templates ----

template <std::size_t N, class F>
std::uint64_t JsonReader::fields(od::object obj, const Keys<N>& keys, std::uint64_t required,
                                 F&& f) {
  static_assert(N <= 64);
  std::uint64_t seen = 0;
  for (auto r : obj) {
    od::field field;
    check(std::move(r).get(field));
    const od::raw_json_string key = field.key();
    unsigned i = 0;
    while (i < N && !(key == keys[i]))
      ++i;
    if (i == N) failKey(field, "unknown key", keys.data(), N);
    if (seen & bit(i)) failKey(field, "duplicate key", nullptr, 0);
    seen |= bit(i);
    path_.push(keys[i]);
    f(i, field.value());
    path_.pop();
  }
  if (const std::uint64_t missing = required & ~seen) failMissing(keys.data(), N, missing);
  return seen;
}

template <class F>
void JsonReader::entries(od::object obj, F&& f) {
  std::vector<std::string> seen;
  for (auto r : obj) {
    od::field field;
    check(std::move(r).get(field));
    std::string_view key;
    check(field.unescaped_key().get(key));
    path_.push(key);
    refuseControls(key);
    for (const auto& s : seen) {
      if (s == key) fail("duplicate key " + Mox::shownWord(key, '"'));
    }
    seen.emplace_back(key);
    f(key, field.value());
    path_.pop();
  }
}

template <class F>
void JsonReader::elements(od::array arr, F&& f) {
  std::size_t i = 0;
  for (auto r : arr) {
    od::value v;
    check(std::move(r).get(v));
    path_.push(i);
    f(i, v);
    path_.pop();
    ++i;
    if ((i & 8191) == 0 && readPast_) [[unlikely]] {
      const char* at = nullptr;
      if (v.current_location().get(at) == simdjson::SUCCESS) readPast_(at);
    }
  }
}

}  // namespace Snapshot
