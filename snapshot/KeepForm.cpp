// Writing a state back in the form of the document it was loaded from. The writer's own text
// says every key in one order; a document written by hand (or by another tool) says what it
// wants in the order it likes, and a state kept in version control should change only where
// the state did.
//
// Three texts take part: the original document (O), the writer's text of the state that
// document loads as (B, "before") and the writer's text of the state now (N). B and N come
// from the same writer, so a part of the state that did not change has the same text in both,
// and then the part of O it came from is copied as it is, blanks and all. Where B and N differ,
// the walk goes down into O: an object keeps its members' order and the members no change
// touched; a list of entities (routes, FECs, static routes, interfaces, ...) pairs its elements
// with the state's records by their keys, drops the removed ones and adds the new ones after
// its last element; anything else that changed is written from N, in the document's layout.
//
// The result is checked: it must load as the state it was written from. Whatever goes wrong
// (a document this walk does not follow, a check that fails) gives the writer's own text.

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/plexa/IntfId.h"
#include "platform/plexa/Prefix.h"
#include "platform/rendr/JsonText.h"
#include "snapshot/Snapshot.h"

namespace Snapshot {

namespace {

// The walk cannot follow the document: the writer's own text is used instead.
struct CannotKeepForm {};

struct Span {
  std::size_t begin = 0;
  std::size_t end = 0;
};

// One member of an object: where its key starts (the opening quote), where its value starts
// and ends, and the key as it reads (escapes undone).
struct Member {
  std::size_t keyBegin = 0;
  Span value;
  std::string key;
};

bool isBlank(char c) {
  return c == ' ' || c == '\n' || c == '\r' || c == '\t';
}

void appendUtf8(std::string& out, std::uint32_t cp) {
  if (cp < 0x80) {
    out += char(cp);
  } else if (cp < 0x800) {
    out += char(0xc0 | (cp >> 6));
    out += char(0x80 | (cp & 0x3f));
  } else if (cp < 0x10000) {
    out += char(0xe0 | (cp >> 12));
    out += char(0x80 | ((cp >> 6) & 0x3f));
    out += char(0x80 | (cp & 0x3f));
  } else {
    out += char(0xf0 | (cp >> 18));
    out += char(0x80 | ((cp >> 12) & 0x3f));
    out += char(0x80 | ((cp >> 6) & 0x3f));
    out += char(0x80 | (cp & 0x3f));
  }
}

// A JSON text, read where the walk needs it. Every text given here has loaded (O) or was
// written by the writer (B, N), so it is well formed; a surprise still ends the walk, never
// reads past the text.
class Text {
 public:
  explicit Text(std::string_view t) : t_(t) {}

  std::string_view of(Span s) const { return t_.substr(s.begin, s.end - s.begin); }
  char at(std::size_t i) const {
    if (i >= t_.size()) throw CannotKeepForm{};
    return t_[i];
  }
  std::size_t size() const { return t_.size(); }
  std::size_t skipBlanks(std::size_t i) const {
    while (i < t_.size() && isBlank(t_[i]))
      ++i;
    return i;
  }

  // The value starting at `i` (no blanks before it).
  Span value(std::size_t i) const {
    const char c = at(i);
    if (c == '"') return {i, stringEnd(i)};
    if (c == '{' || c == '[') {
      std::size_t depth = 0;
      for (std::size_t j = i; j < t_.size(); ++j) {
        const char d = t_[j];
        if (d == '"') {
          j = stringEnd(j) - 1;
        } else if (d == '{' || d == '[') {
          ++depth;
        } else if (d == '}' || d == ']') {
          if (--depth == 0) return {i, j + 1};
        }
      }
      throw CannotKeepForm{};
    }
    std::size_t j = i;
    while (j < t_.size() && !isBlank(t_[j]) && t_[j] != ',' && t_[j] != '}' && t_[j] != ']')
      ++j;
    if (j == i) throw CannotKeepForm{};
    return {i, j};
  }

  std::vector<Member> members(Span obj) const {
    std::vector<Member> out;
    std::size_t i = skipBlanks(obj.begin + 1);
    if (at(i) == '}') return out;
    for (;;) {
      Member m;
      m.keyBegin = i;
      const Span key = value(i);
      if (at(i) != '"') throw CannotKeepForm{};
      m.key = unquoted(key);
      i = skipBlanks(key.end);
      if (at(i) != ':') throw CannotKeepForm{};
      m.value = value(skipBlanks(i + 1));
      out.push_back(std::move(m));
      i = skipBlanks(out.back().value.end);
      if (at(i) == '}') return out;
      if (at(i) != ',') throw CannotKeepForm{};
      i = skipBlanks(i + 1);
    }
  }

  std::vector<Span> elements(Span arr) const {
    std::vector<Span> out;
    std::size_t i = skipBlanks(arr.begin + 1);
    if (at(i) == ']') return out;
    for (;;) {
      out.push_back(value(i));
      i = skipBlanks(out.back().end);
      if (at(i) == ']') return out;
      if (at(i) != ',') throw CannotKeepForm{};
      i = skipBlanks(i + 1);
    }
  }

  // A string value as it reads: the quotes gone and the escapes undone.
  std::string unquoted(Span s) const {
    std::string out;
    for (std::size_t i = s.begin + 1; i + 1 < s.end; ++i) {
      if (t_[i] != '\\') {
        out += t_[i];
        continue;
      }
      const char e = at(++i);
      switch (e) {
        case 'b':
          out += '\b';
          break;
        case 'f':
          out += '\f';
          break;
        case 'n':
          out += '\n';
          break;
        case 'r':
          out += '\r';
          break;
        case 't':
          out += '\t';
          break;
        case 'u': {
          std::uint32_t cp = hex4(i + 1);
          i += 4;
          if (cp >= 0xd800 && cp < 0xdc00 && i + 6 < s.end && t_[i + 1] == '\\' &&
              t_[i + 2] == 'u') {
            const std::uint32_t low = hex4(i + 3);
            if (low >= 0xdc00 && low < 0xe000) {
              cp = 0x10000 + ((cp - 0xd800) << 10) + (low - 0xdc00);
              i += 6;
            }
          }
          appendUtf8(out, cp);
          break;
        }
        default:
          out += e;
          break;
      }
    }
    return out;
  }

  bool singleLine(Span s) const { return of(s).find('\n') == std::string_view::npos; }
  // The blanks that start the line `i` is on.
  std::size_t indentOfLine(std::size_t i) const {
    const std::size_t start = t_.rfind('\n', i == 0 ? 0 : i - 1);
    std::size_t j = start == std::string_view::npos ? 0 : start + 1;
    const std::size_t from = j;
    while (j < t_.size() && t_[j] == ' ')
      ++j;
    return j - from;
  }

 private:
  std::size_t stringEnd(std::size_t i) const {
    for (std::size_t j = i + 1; j < t_.size(); ++j) {
      if (t_[j] == '\\') {
        ++j;
      } else if (t_[j] == '"') {
        return j + 1;
      }
    }
    throw CannotKeepForm{};
  }
  std::uint32_t hex4(std::size_t i) const {
    std::uint32_t v = 0;
    for (std::size_t k = 0; k < 4; ++k) {
      const char c = at(i + k);
      v <<= 4;
      if (c >= '0' && c <= '9') {
        v |= std::uint32_t(c - '0');
      } else if (c >= 'a' && c <= 'f') {
        v |= std::uint32_t(c - 'a' + 10);
      } else if (c >= 'A' && c <= 'F') {
        v |= std::uint32_t(c - 'A' + 10);
      } else {
        throw CannotKeepForm{};
      }
    }
    return v;
  }

  std::string_view t_;
};

// ---- the lists of entities, and how their elements are known ----

enum class ListKind {
  none,          // not a list of entities: written whole when it changed
  byOrder,       // a table kept in the document's order: the writer's text of the loaded state
                 // has the document's elements in the same places
  staticRoutes,  // lists the writer sorts: each element's key is read from its text
  interfaces,
  nexthopGroups,
};

struct ListInfo {
  ListKind kind = ListKind::none;
  // The members that make an element's key, as the writer writes them (byOrder lists).
  std::vector<const char*> keyFields;
};

ListInfo listAt(const std::vector<std::string>& path) {
  const auto is = [&](std::size_t i, std::string_view s) {
    return path.size() > i && path[i] == s;
  };
  if (path.size() == 4 && is(0, "vrfs") && (is(2, "ipv4") || is(2, "ipv6"))) {
    if (is(3, "routes")) return {ListKind::byOrder, {"prefix"}};
    if (is(3, "fecs")) return {ListKind::byOrder, {"id"}};
  }
  if (path.size() == 3 && is(0, "vrfs") && is(2, "staticRoutes"))
    return {ListKind::staticRoutes, {}};
  if (path.size() == 1) {
    if (is(0, "interfaces")) return {ListKind::interfaces, {}};
    if (is(0, "nexthopGroups")) return {ListKind::nexthopGroups, {}};
    if (is(0, "neighbors")) return {ListKind::byOrder, {"vrf", "address", "interface"}};
    if (is(0, "srTePolicies")) return {ListKind::byOrder, {"fec"}};
  }
  if (path.size() == 2 && is(0, "tunnels")) {
    if (is(1, "evpnVxlan")) return {ListKind::byOrder, {"interface"}};
    if (is(1, "fib") || is(1, "sr") || is(1, "static") || is(1, "ldp") || is(1, "bgpLu"))
      return {ListKind::byOrder, {"tunnel"}};
  }
  if (path.size() == 2 && is(0, "flexCounters")) {
    if (is(1, "counters") || is(1, "snapshot")) return {ListKind::byOrder, {"index", "chipMask"}};
    if (is(1, "entryKeys")) return {ListKind::byOrder, {"nexthopGroupId", "entry"}};
  }
  return {};
}

const Member* memberNamed(const std::vector<Member>& ms, std::string_view key) {
  for (const Member& m : ms) {
    if (m.key == key) return &m;
  }
  return nullptr;
}

// An element's key. byOrder lists: the writer's text of the key members (only B and N are
// asked). The sorted lists: read from any of the three texts, written as the state holds it.
std::string keyOf(const Text& t, Span element, const ListInfo& list) {
  if (t.at(element.begin) != '{') throw CannotKeepForm{};
  const std::vector<Member> ms = t.members(element);
  std::string key;
  const auto field = [&](const char* name) -> const Member* { return memberNamed(ms, name); };
  const auto str = [&](const char* name) -> std::string {
    const Member* m = field(name);
    if (!m || t.at(m->value.begin) != '"') throw CannotKeepForm{};
    return t.unquoted(m->value);
  };
  switch (list.kind) {
    case ListKind::byOrder:
      for (const char* name : list.keyFields) {
        if (const Member* m = field(name)) key += t.of(m->value);
        key += '\x1f';
      }
      return key;
    case ListKind::staticRoutes: {
      Plexa::IpGenPrefix p;
      if (!Plexa::IpGenPrefix::parse(str("prefix"), p)) throw CannotKeepForm{};
      key = p.stringValue();
      key += ' ';
      const Member* pref = field("preference");
      key += pref ? std::string(t.of(pref->value)) : std::string("1");
      return key;
    }
    case ListKind::interfaces:
      return Plexa::IntfId(str("name")).stringValue();
    case ListKind::nexthopGroups:
      return str("name");
    case ListKind::none:
      break;
  }
  throw CannotKeepForm{};
}

// How new text is laid out where it goes: on one line, with the document's separators, or
// over several lines, indented from where it starts.
struct Layout {
  bool oneLine = true;
  std::size_t indent = 0;
};

class KeepForm {
 public:
  // `leaveOutDefaults`: new entities leave out what the document's entities of their list
  // leave out.
  KeepForm(std::string_view original, std::string_view before, std::string_view now,
           bool leaveOutDefaults)
      : o_(original), b_(before), n_(now), leaveOutDefaults_(leaveOutDefaults) {
    learnSeparators();
  }

  std::string run() {
    const std::size_t o = o_.skipBlanks(0);
    const std::size_t b = b_.skipBlanks(0);
    const std::size_t n = n_.skipBlanks(0);
    const Span os = o_.value(o);
    const Span bs = b_.value(b);
    out_.append(o_.of({0, os.begin}));
    value(os, &bs, n_.value(n));
    out_.append(o_.of({os.end, o_.size()}));
    return std::move(out_);
  }

 private:
  // The separators the document writes between members and after keys on one line (", " and
  // ": " unless it says otherwise): new text on one line uses them.
  void learnSeparators() {
    const std::string_view t = o_.of({0, o_.size()});
    const std::size_t colon = t.find("\":");
    if (colon != std::string_view::npos) {
      std::size_t j = colon + 2;
      while (j < t.size() && t[j] == ' ')
        ++j;
      colon_ = ":" + std::string(j - colon - 2, ' ');
    }
    const std::size_t comma = t.find(",");
    if (comma != std::string_view::npos && comma + 1 < t.size() && t[comma + 1] != ' ' &&
        t[comma + 1] != '\n')
      comma_ = ",";
  }

  void value(Span o, const Span* b, Span n) {
    if (b && b_.of(*b) == n_.of(n)) {
      out_.append(o_.of(o));
      return;
    }
    const char oc = o_.at(o.begin);
    const char nc = n_.at(n.begin);
    if (b && oc == '{' && nc == '{') return object(o, *b, n);
    if (b && oc == '[' && nc == '[') {
      const ListInfo list = listAt(path_);
      if (list.kind != ListKind::none) return entities(o, *b, n, list);
    }
    fresh(n, layoutOf(o));
  }

  Layout layoutOf(Span o) const { return {o_.singleLine(o), o_.indentOfLine(o.begin)}; }

  // N's text for a value that is new or changed, laid out as the document would.
  void fresh(Span n, Layout at) {
    const std::string_view t = n_.of(n);
    if (at.oneLine) {
      bool inString = false;
      for (std::size_t i = 0; i < t.size(); ++i) {
        const char c = t[i];
        if (inString) {
          out_ += c;
          if (c == '\\') {
            out_ += t[++i];
          } else if (c == '"') {
            inString = false;
          }
        } else if (c == '"') {
          inString = true;
          out_ += c;
        } else if (c == ',') {
          out_ += comma_;
        } else if (c == ':') {
          out_ += colon_;
        } else if (!isBlank(c)) {
          out_ += c;
        }
      }
      return;
    }
    // The writer's lines, moved from its indent to the document's.
    const std::size_t from = n_.indentOfLine(n.begin);
    std::size_t i = 0;
    for (;;) {
      const std::size_t nl = t.find('\n', i);
      out_.append(t.substr(i, nl == std::string_view::npos ? nl : nl + 1 - i));
      if (nl == std::string_view::npos) return;
      std::size_t spaces = 0;
      i = nl + 1;
      while (i < t.size() && t[i] == ' ') {
        ++i;
        ++spaces;
      }
      out_.append(spaces >= from ? spaces - from + at.indent : at.indent, ' ');
    }
  }

  // One item of an object or a list as it is written out: an original one (its index in O),
  // or a new one.
  struct Item {
    std::optional<std::size_t> original;
    std::function<void()> write;
  };

  // Writes a container's items between the document's own brackets and blanks: an item keeps
  // the separator it had, a new one takes the one before the last original item.
  void items(Span o, const std::vector<Span>& originals, const std::vector<Item>& list) {
    const std::string_view t = o_.of(o);
    const char closing = t.back();
    if (list.empty()) {
      out_ += t.front();
      out_ += closing;
      return;
    }
    std::string lead, trail, sepNew;
    std::vector<std::string> sepBefore(originals.size());
    const Layout at = layoutOf(o);
    if (originals.empty()) {
      lead = at.oneLine ? "" : "\n" + std::string(at.indent + 2, ' ');
      trail = at.oneLine ? "" : "\n" + std::string(at.indent, ' ');
      sepNew = at.oneLine ? comma_ : ",\n" + std::string(at.indent + 2, ' ');
    } else {
      lead = o_.of({o.begin + 1, originals.front().begin});
      trail = o_.of({originals.back().end, o.end - 1});
      for (std::size_t i = 1; i < originals.size(); ++i)
        sepBefore[i] = o_.of({originals[i - 1].end, originals[i].begin});
      if (originals.size() > 1) {
        sepNew = sepBefore.back();
      } else if (o_.singleLine(o)) {
        sepNew = comma_;
      } else {
        sepNew = ",\n" + std::string(o_.indentOfLine(originals.front().begin), ' ');
        // An item that starts on the bracket's line: the next one lines up under it.
        if (o_.of({o.begin, originals.front().begin}).find('\n') == std::string_view::npos)
          sepNew = ",\n" + std::string(originals.front().begin - lineStart(o.begin), ' ');
      }
      sepBefore[0] = sepNew;
    }
    out_ += t.front();
    out_ += lead;
    for (std::size_t k = 0; k < list.size(); ++k) {
      if (k > 0) out_ += list[k].original ? sepBefore[*list[k].original] : sepNew;
      list[k].write();
    }
    out_ += trail;
    out_ += closing;
  }

  std::size_t lineStart(std::size_t i) const {
    const std::string_view t = o_.of({0, i});
    const std::size_t nl = t.rfind('\n');
    return nl == std::string_view::npos ? 0 : nl + 1;
  }

  void object(Span o, Span b, Span n) {
    const std::vector<Member> om = o_.members(o);
    const std::vector<Member> bm = b_.members(b);
    const std::vector<Member> nm = n_.members(n);
    std::vector<Span> originals;
    std::vector<Item> list;
    // The member's text from its key to its value: the key as the document spells it.
    for (std::size_t i = 0; i < om.size(); ++i) {
      const Member& m = om[i];
      originals.push_back({m.keyBegin, m.value.end});
      const Member* before = memberNamed(bm, m.key);
      const Member* now = memberNamed(nm, m.key);
      if (!now) {
        // The writer leaves the member out now: the value is the default. Kept if it was
        // already (written out by hand), dropped if it was not.
        if (before) continue;
        list.push_back({i, [this, &m] { out_.append(o_.of({m.keyBegin, m.value.end})); }});
        continue;
      }
      list.push_back({i, [this, &m, before, now] {
                        out_.append(o_.of({m.keyBegin, m.value.begin}));
                        path_.push_back(m.key);
                        value(m.value, before ? &before->value : nullptr, now->value);
                        path_.pop_back();
                      }});
    }
    const Layout at = originals.empty() ? layoutOf(o) : layoutOf(originals.back());
    for (const Member& m : nm) {
      if (memberNamed(om, m.key)) continue;
      // Left out of the document and still what the document meant: stays left out.
      const Member* before = memberNamed(bm, m.key);
      if (before && b_.of(before->value) == n_.of(m.value)) continue;
      list.push_back({std::nullopt, [this, &m, at] {
                        std::string key;
                        rendr::detail::appendJsonString(key, m.key);
                        out_ += key;
                        out_ += colon_;
                        fresh(m.value, {at.oneLine || n_.singleLine(m.value), at.indent});
                      }});
    }
    items(o, originals, list);
  }

  void entities(Span o, Span b, Span n, const ListInfo& info) {
    const std::vector<Span> oe = o_.elements(o);
    const std::vector<Span> be = b_.elements(b);
    const std::vector<Span> ne = n_.elements(n);
    if (oe.size() != be.size()) throw CannotKeepForm{};
    std::vector<std::string> bKeys(be.size());
    for (std::size_t i = 0; i < be.size(); ++i)
      bKeys[i] = keyOf(b_, be[i], info);
    std::vector<std::string> nKeys(ne.size());
    for (std::size_t i = 0; i < ne.size(); ++i)
      nKeys[i] = keyOf(n_, ne[i], info);

    // Which of B's elements each of O's is: the same place in a table kept in the document's
    // order, the same key in a sorted one.
    std::vector<std::size_t> oToB(oe.size());
    if (info.kind == ListKind::byOrder) {
      for (std::size_t i = 0; i < oe.size(); ++i)
        oToB[i] = i;
    } else {
      std::unordered_map<std::string_view, std::size_t> bAt;
      for (std::size_t i = 0; i < be.size(); ++i)
        bAt.emplace(bKeys[i], i);
      for (std::size_t i = 0; i < oe.size(); ++i) {
        auto it = bAt.find(keyOf(o_, oe[i], info));
        if (it == bAt.end()) throw CannotKeepForm{};
        oToB[i] = it->second;
      }
    }
    // Where each of B's keys is in N: most often at the same place.
    std::vector<std::size_t> bToN(be.size(), SIZE_MAX);
    std::vector<bool> nUsed(ne.size());
    std::unordered_map<std::string_view, std::size_t> nAt;
    for (std::size_t i = 0; i < be.size(); ++i) {
      std::size_t j = SIZE_MAX;
      if (i < ne.size() && nKeys[i] == bKeys[i]) {
        j = i;
      } else {
        if (nAt.empty()) {
          for (std::size_t k = 0; k < ne.size(); ++k)
            nAt.emplace(nKeys[k], k);
        }
        if (auto it = nAt.find(bKeys[i]); it != nAt.end()) j = it->second;
      }
      if (j != SIZE_MAX) {
        bToN[i] = j;
        nUsed[j] = true;
      }
    }

    std::vector<Item> list;
    path_.push_back("[]");
    for (std::size_t i = 0; i < oe.size(); ++i) {
      const std::size_t bi = oToB[i];
      const std::size_t ni = bToN[bi];
      if (ni == SIZE_MAX) continue;  // gone from the state
      list.push_back({i, [this, &oe, &be, &ne, i, bi, ni] { value(oe[i], &be[bi], ne[ni]); }});
    }
    // New entities, after the last one, one a line where the document writes them so.
    Layout at = layoutOf(o);
    if (!oe.empty()) {
      at.indent = oe.back().begin - lineStart(oe.back().begin);
      at.oneLine = false;
      for (const Span& e : oe)
        at.oneLine = at.oneLine || o_.singleLine(e);
    }
    Omitted omitted;
    if (leaveOutDefaults_ && std::find(nUsed.begin(), nUsed.end(), false) != nUsed.end())
      omitted = omittedIn(oe, be, oToB);
    for (std::size_t j = 0; j < ne.size(); ++j) {
      if (!nUsed[j])
        list.push_back(
            {std::nullopt, [this, &ne, j, at, &omitted] { entity(ne[j], at, omitted); }});
    }
    items(o, oe, list);
    path_.pop_back();
  }

  // What the document leaves out of its entities of one list: the members the writer's text
  // of an element has and the document's does not, with the value they have there (the
  // default), per type of entity, since a route's default preference is its type's.
  using Omitted = std::map<std::pair<std::string, std::string>, std::string>;
  Omitted omittedIn(const std::vector<Span>& oe, const std::vector<Span>& be,
                    const std::vector<std::size_t>& oToB) const {
    Omitted omitted;
    // The entities nearest the end are enough to see the document's habit.
    constexpr std::size_t kSeen = 1000;
    for (std::size_t i = oe.size() > kSeen ? oe.size() - kSeen : 0; i < oe.size(); ++i) {
      if (o_.at(oe[i].begin) != '{') continue;
      const std::vector<Member> om = o_.members(oe[i]);
      const std::vector<Member> bm = b_.members(be[oToB[i]]);
      const Member* type = memberNamed(bm, "type");
      const std::string kind = type ? std::string(b_.of(type->value)) : std::string();
      for (const Member& m : bm) {
        if (!memberNamed(om, m.key)) omitted.emplace(std::pair(kind, m.key), b_.of(m.value));
      }
    }
    return omitted;
  }

  // A new entity: N's text without the members its kind's entities leave out in the document
  // when their value is the one left out.
  void entity(Span n, Layout at, const Omitted& omitted) {
    if (omitted.empty() || n_.at(n.begin) != '{') return fresh(n, at);
    const std::vector<Member> nm = n_.members(n);
    const Member* type = memberNamed(nm, "type");
    const std::string kind = type ? std::string(n_.of(type->value)) : std::string();
    std::vector<const Member*> kept;
    for (const Member& m : nm) {
      auto it = omitted.find(std::pair(kind, m.key));
      if (it == omitted.end() || it->second != n_.of(m.value)) kept.push_back(&m);
    }
    if (kept.size() == nm.size()) return fresh(n, at);
    const std::string inside = at.oneLine ? "" : "\n" + std::string(at.indent + 2, ' ');
    out_ += '{';
    for (std::size_t k = 0; k < kept.size(); ++k) {
      out_ += k == 0 ? inside : at.oneLine ? comma_ : "," + inside;
      out_.append(n_.of({kept[k]->keyBegin, kept[k]->value.begin}));
      fresh(kept[k]->value, {at.oneLine, at.indent + 2});
    }
    if (!at.oneLine) out_ += "\n" + std::string(at.indent, ' ');
    out_ += '}';
  }

  Text o_, b_, n_;
  std::string out_;
  std::vector<std::string> path_;
  bool leaveOutDefaults_;
  std::string colon_ = ": ";
  std::string comma_ = ", ";
};

// Whether two of the writer's texts hold the same state: the same text but for the order of
// the tables kept in the document's order, which a kept document may hold in another order
// than the state (a table fills a removed record's place with its last one).
class SameState {
 public:
  SameState(std::string_view x, std::string_view y) : x_(x), y_(y) {}
  bool run() { return same(x_.value(x_.skipBlanks(0)), y_.value(y_.skipBlanks(0))); }

 private:
  bool same(Span x, Span y) {
    if (x_.of(x) == y_.of(y)) return true;
    const char xc = x_.at(x.begin);
    if (xc != y_.at(y.begin)) return false;
    if (xc == '{') {
      const std::vector<Member> xm = x_.members(x);
      const std::vector<Member> ym = y_.members(y);
      if (xm.size() != ym.size()) return false;
      for (const Member& m : xm) {
        const Member* other = memberNamed(ym, m.key);
        if (!other) return false;
        path_.push_back(m.key);
        const bool s = same(m.value, other->value);
        path_.pop_back();
        if (!s) return false;
      }
      return true;
    }
    const ListInfo list = listAt(path_);
    if (xc != '[' || list.kind != ListKind::byOrder) return false;
    const std::vector<Span> xe = x_.elements(x);
    const std::vector<Span> ye = y_.elements(y);
    if (xe.size() != ye.size()) return false;
    std::unordered_map<std::string, std::string_view> yAt;
    for (const Span& e : ye)
      yAt.emplace(keyOf(y_, e, list), y_.of(e));
    for (const Span& e : xe) {
      auto it = yAt.find(keyOf(x_, e, list));
      if (it == yAt.end() || it->second != x_.of(e)) return false;
    }
    return true;
  }

  Text x_, y_;
  std::vector<std::string> path_;
};

bool sameState(std::string_view x, std::string_view y) {
  return SameState(x, y).run();
}

}  // namespace

std::string write(const Statum::EntityManager& em, std::string_view original) {
  std::string now = write(em);
  if (original.empty()) return now;
  // The writer's text of the state the original loads as; an original that does not load
  // has no form to keep.
  struct NoOriginal {};
  const auto before = [&] {
    try {
      return write(*load(original));
    } catch (const LoadError&) {
      throw NoOriginal{};
    }
  };
  // A value left out of a new entity means its default, which may hang on more than the
  // entity's type: should the state read back otherwise, the new entities say everything.
  for (const bool leaveOutDefaults : {true, false}) {
    try {
      std::string kept;
      {
        const std::string was = before();
        if (was == now) return std::string(original);
        kept = KeepForm(original, was, now, leaveOutDefaults).run();
      }
      // (The text of before is let go first: on a full table it is as large as the state.)
      if (sameState(write(*load(kept)), now)) return kept;
    } catch (const CannotKeepForm&) {
    } catch (const LoadError&) {
    } catch (const NoOriginal&) {
      return now;
    }
  }
  return now;
}

}  // namespace Snapshot
