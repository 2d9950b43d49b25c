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
#include <utility>
#include <vector>

#include "platform/mox/Exception.h"
#include "snapshot/JsonLibrary.h"
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
// The first control character of `s` (C0, DEL, or a C1 control in UTF-8), or npos. Strings of
// a state end up on the user's terminal, where such a character could act: a state holds none.
std::size_t controlCharacter(std::string_view s);

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
  // A whole number from min to max; the refusal says the range.
  std::uint64_t number(od::value& v, std::uint64_t max, std::uint64_t min = 0);
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

  // Where a walk over an object or an array stands.
  struct ObjectWalk {
    explicit ObjectWalk(od::object o) : object(o), it(object.begin()), end(object.end()) {}
    od::object object;
    decltype(std::declval<od::object&>().begin()) it;
    decltype(std::declval<od::object&>().end()) end;
    od::field field;
    bool started = false;
  };
  struct ArrayWalk {
    explicit ArrayWalk(od::array a) : array(a), it(array.begin()), end(array.end()) {}
    od::array array;
    decltype(std::declval<od::array&>().begin()) it;
    decltype(std::declval<od::array&>().end()) end;
    od::value value;
    std::size_t index = 0;
    bool started = false;
  };
  // Each moves to the next field or element and puts it on the path; false at the end.
  // nextField also checks that the key is one of `keys` and not seen before, and gives its
  // number; nextEntry checks that the key is printable and new.
  bool nextField(ObjectWalk& w, const std::string_view* keys, std::size_t n, std::uint64_t& seen,
                 unsigned& i);
  bool nextEntry(ObjectWalk& w, std::vector<std::string>& seen, std::string_view& key);
  bool nextElement(ArrayWalk& w);

  [[noreturn]] void failKeyText(std::string_view key, const char* what,
                                const std::string_view* keys, std::size_t n);
  [[noreturn]] void failKey(od::field& field, const char* what, const std::string_view* keys,
                            std::size_t n);
  [[noreturn]] void failMissing(const std::string_view* keys, std::size_t n, std::uint64_t missing);

  JsonPath path_;
  std::function<void(const char*)> readPast_;
};

// ---- templates ----
//
// Each walk is a small loop around an out-of-line step (JsonReader.cpp): the parser's
// iteration, the key checks and the path are compiled once there, not at every place that
// reads an object or an array, which kept the loader slow to build.

template <std::size_t N, class F>
std::uint64_t JsonReader::fields(od::object obj, const Keys<N>& keys, std::uint64_t required,
                                 F&& f) {
  static_assert(N <= 64);
  ObjectWalk w(obj);
  std::uint64_t seen = 0;
  unsigned i = 0;
  while (nextField(w, keys.data(), N, seen, i)) {
    f(i, w.field.value());
    path_.pop();
  }
  if (const std::uint64_t missing = required & ~seen) failMissing(keys.data(), N, missing);
  return seen;
}

template <class F>
void JsonReader::entries(od::object obj, F&& f) {
  ObjectWalk w(obj);
  std::vector<std::string> seen;
  std::string_view key;
  while (nextEntry(w, seen, key)) {
    f(key, w.field.value());
    path_.pop();
  }
}

template <class F>
void JsonReader::elements(od::array arr, F&& f) {
  ArrayWalk w(arr);
  while (nextElement(w)) {
    f(w.index, w.value);
    path_.pop();
    ++w.index;
  }
}

}  // namespace Snapshot
