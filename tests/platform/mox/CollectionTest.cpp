#include "platform/mox/Collection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "platform/mox/Attribute.h"

namespace {

// A small entity-like class using the generated family, the way library classes do.
using LabelMap = Mox::OrderedMap<int, std::string>;
using ColourSet = Mox::OrderedSet<std::string>;
using CountMap = Mox::HashMap<std::string, unsigned>;

#define HOLDER_ATTRS(F, C)                             \
  F(name, Name, std::string, Mox::AttrKind::input, {}) \
  C(label, Label, LabelMap)                            \
  C(colour, Colour, ColourSet)                         \
  C(count, Count, CountMap)

class Holder {
  MOX_VALUE_TYPE(Holder, "Test::Holder", HOLDER_ATTRS)
};

TEST(Collection, GeneratedFamilyOnAnOrderedMap) {
  Holder h;
  EXPECT_TRUE(h.newLabel(2, "two"));
  EXPECT_FALSE(h.newLabel(2, "deux"));  // new does not replace
  EXPECT_EQ(h.label(2), "two");
  h.labelIs(2, "deux");  // Is replaces
  h.labelIs(1, "one");
  EXPECT_EQ(h.label(2), "deux");
  EXPECT_EQ(h.label(7), "");  // a missing key reads as the default value
  EXPECT_EQ(h.labels(), 2u);
  std::vector<int> keys;
  for (const auto& [k, v] : h.label())
    keys.push_back(k);
  EXPECT_EQ(keys, (std::vector<int>{1, 2}));
  EXPECT_TRUE(h.labelDel(1));
  EXPECT_FALSE(h.labelDel(1));
  h.labelDelAll();
  EXPECT_EQ(h.labels(), 0u);
}

TEST(Collection, DeleteWhileIteratingVisitsEveryEntryOnce) {
  Holder h;
  for (int i = 0; i < 10; ++i)
    h.labelIs(i, std::to_string(i));
  std::vector<int> seen;
  for (auto it = h.labelIterator(); it; ++it) {
    seen.push_back(it.key());
    if (it.key() % 2 == 0) h.labelDel(it);
  }
  EXPECT_EQ(seen, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
  std::vector<int> left;
  for (const auto& [k, v] : h.label())
    left.push_back(k);
  EXPECT_EQ(left, (std::vector<int>{1, 3, 5, 7, 9}));

  // Deleting every entry, including the last, ends the walk cleanly.
  for (auto it = h.labelIterator(); it; ++it)
    it.deleteCurrent();
  EXPECT_EQ(h.labels(), 0u);
}

TEST(Collection, ChangeHookSeesEveryChange) {
  Holder h;
  std::vector<int> changed;
  h.labelNotifyIs([&](const int& k) { changed.push_back(k); });
  h.newLabel(1, "a");
  h.newLabel(1, "b");  // not added: no change
  h.labelIs(1, "c");
  h.labelIs(3, "d");
  h.labelDel(1);
  h.labelDel(9);  // absent: no change
  h.labelDelAll();
  EXPECT_EQ(changed, (std::vector<int>{1, 1, 3, 1, 3}));
}

TEST(Collection, SetTakesAFlagAndHashMapCounts) {
  Holder h;
  h.newColour("red", true);
  h.colourIs("blue", true);
  h.colourIs("red", false);  // a false flag removes
  EXPECT_TRUE(h.colour("blue"));
  EXPECT_FALSE(h.colour("red"));
  EXPECT_EQ(h.colours(), 1u);

  h.countMutable().inc("x");
  h.countMutable().inc("x", 4);
  EXPECT_EQ(h.count("x"), 5u);
  EXPECT_EQ(h.count("y"), 0u);
}

}  // namespace

namespace {

// A key with an order key: its map sorts by radix. Keys spread over several bytes so that
// every pass of the sort has work to do.
struct RadixKey {
  std::uint64_t v = 0;
  friend auto operator<=>(const RadixKey&, const RadixKey&) = default;
  friend std::uint64_t orderKey(const RadixKey& k) { return k.v; }
};
static_assert(Mox::HasOrderKey<RadixKey> && !Mox::HasOrderKey<int>);
// The same with a key three words wide, as an IPv6 prefix's.
struct WideKey {
  Mox::WideOrderKey v{};
  friend auto operator<=>(const WideKey&, const WideKey&) = default;
  friend Mox::WideOrderKey orderKey(const WideKey& k) { return k.v; }
};
static_assert(Mox::HasWideOrderKey<WideKey> && !Mox::HasWideOrderKey<RadixKey>);

// The sorted-array map must behave exactly like the tree map under any mix of operations,
// sorted by comparison or by radix.
template <class Key>
void agreesWithTheTreeMap(Key (*keyOf)(int)) {
  Mox::VectorMap<Key, int> v;
  std::map<Key, int> m;
  std::vector<Key> changes;
  v.notifyIs([&](const Key& k) { changes.push_back(k); });
  std::uint32_t x = 12345;
  auto rnd = [&] { return x = x * 1103515245 + 12345, int(x >> 16) % 200; };
  const auto same = [](const auto& a, const auto& b) {
    return a.first == b.first && a.second == b.second;
  };
  for (int i = 0; i < 5000; ++i) {
    const Key k = keyOf(rnd());
    const int op = rnd() % 10;
    if (op < 6) {
      v.set(k, i);
      m[k] = i;
    } else if (op < 8) {
      EXPECT_EQ(v.newEntry(k, i), m.emplace(k, i).second);
    } else {
      EXPECT_EQ(v.del(k), m.erase(k) == 1);
    }
    if (i % 97 == 0) {
      ASSERT_EQ(v.size(), m.size());
      EXPECT_TRUE(std::equal(v.begin(), v.end(), m.begin(), m.end(), same));
      EXPECT_EQ(v.get(k), m.count(k) ? m[k] : 0);
    }
  }
  // Appended out of order in bulk, as a table walk appends: the last of equal keys wins.
  for (int i = 0; i < 3000; ++i) {
    const Key k = keyOf(rnd());
    v.set(k, -i);
    m[k] = -i;
  }
  EXPECT_TRUE(std::equal(v.begin(), v.end(), m.begin(), m.end(), same));
  EXPECT_FALSE(changes.empty());
}

TEST(VectorMap, AgreesWithTheTreeMap) {
  agreesWithTheTreeMap<int>([](int k) { return k; });
  agreesWithTheTreeMap<RadixKey>(
      [](int k) { return RadixKey{std::uint64_t(k % 7) << 32 | std::uint64_t(k) * 0x10101}; });
  // Keys that differ in the first and last words only, in bytes far apart: the passes over
  // the bytes every key shares are skipped.
  agreesWithTheTreeMap<WideKey>([](int k) {
    return WideKey{{std::uint64_t(k % 3) << 40, 0x20010db800000000ull, std::uint64_t(k) * 0x10001}};
  });
  // One of the first two words varies and the last is a byte, as in an IPv6 table (the same
  // address with several lengths): the sort carries that word alone.
  agreesWithTheTreeMap<WideKey>([](int k) {
    return WideKey{{0x20010db800000000ull | std::uint64_t(k % 50) << 56 | std::uint64_t(k / 7) << 8,
                    7, std::uint64_t(k % 7)}};
  });
  agreesWithTheTreeMap<WideKey>([](int k) {
    return WideKey{{1, std::uint64_t(k / 3) * 0x0101010101ull, std::uint64_t(129 - k % 3)}};
  });
}

TEST(VectorMap, LastOfEqualKeysWinsAndDeleteWhileIterating) {
  Mox::VectorMap<int, std::string> v;
  for (int k : {5, 1, 5, 3, 1, 9})
    v.set(k, "v" + std::to_string(k) + "-" + std::to_string(v.size()));
  v.set(1, "last");
  EXPECT_EQ(v.size(), 4u);
  EXPECT_EQ(v.get(1), "last");
  std::vector<int> seen;
  for (auto it = v.iterator(); it; ++it) {
    seen.push_back(it.key());
    if (it.key() != 9) it.deleteCurrent();
  }
  EXPECT_EQ(seen, (std::vector<int>{1, 3, 5, 9}));
  EXPECT_EQ(v.size(), 1u);
}

// Held by reference: the map reads its entries from a "table" it does not own, as a listing
// reads the routes where they are; a reference whose entry is gone is left out, whatever reads.
TEST(VectorMap, EntriesHeldByReferenceReadTheirSourceAndBecomeRealOnAnyOtherUse) {
  std::vector<std::pair<int, std::string>> table = {{30, "c"}, {10, "a"}, {20, "b"}, {40, "d"}};
  int reads = 0;
  const auto byReference = [&] {
    Mox::VectorMap<int, std::string> v;
    Mox::VectorMap<int, std::string>::References refs;
    refs.words = {1, 2, 0, 3};  // places in the table, in key order
    refs.read = [&](std::uint64_t place, std::pair<int, std::string>& out) {
      ++reads;
      if (table[place].second.empty()) return false;  // gone
      out = table[place];
      return true;
    };
    v.referencesIs(std::move(refs));
    return v;
  };
  const auto walk = [](const Mox::VectorMap<int, std::string>& v) {
    std::string s;
    v.forEach([&](const auto& e) { s += e.second; });
    return s;
  };

  auto v = byReference();
  EXPECT_TRUE(v.byReference());
  EXPECT_EQ(v.size(), 4u);
  // The walk reads the table as it is now.
  table[2].second = "B";
  EXPECT_EQ(walk(v), "aBcd");
  // find and del search the references without copying the entries.
  ASSERT_NE(v.find(30), nullptr);
  EXPECT_EQ(*v.find(30), "c");
  EXPECT_EQ(v.find(25), nullptr);
  EXPECT_TRUE(v.del(10));
  EXPECT_FALSE(v.del(10));
  EXPECT_EQ(v.find(10), nullptr);
  EXPECT_EQ(v.size(), 3u);
  EXPECT_TRUE(v.byReference());
  EXPECT_EQ(walk(v), "Bcd");
  // A copy shares the references until one of them changes, its first entry included.
  auto copy = v;
  EXPECT_TRUE(copy.del(40));
  EXPECT_EQ(walk(copy), "Bc");
  EXPECT_TRUE(copy.del(20));
  EXPECT_EQ(copy.find(20), nullptr);
  EXPECT_EQ(walk(copy), "c");
  EXPECT_EQ(copy.size(), 1u);
  EXPECT_EQ(walk(v), "Bcd");
  ASSERT_NE(v.find(20), nullptr);

  // An entry gone since: the walk leaves it out, and so does the map made real.
  table[0].second.clear();
  EXPECT_EQ(walk(v), "Bd");
  std::vector<int> keys;
  for (const auto& [k, value] : v)
    keys.push_back(k);
  EXPECT_FALSE(v.byReference());
  EXPECT_EQ(keys, (std::vector<int>{20, 40}));
  reads = 0;
  EXPECT_EQ(walk(v), "Bd");
  EXPECT_EQ(reads, 0);

  // A search that meets a gone entry makes the map real, and answers from it.
  auto w = byReference();
  EXPECT_EQ(w.find(30), nullptr);
  EXPECT_FALSE(w.byReference());
  ASSERT_NE(w.find(40), nullptr);
  // Any change makes it real first.
  auto x = byReference();
  x.set(5, "e");
  EXPECT_FALSE(x.byReference());
  EXPECT_EQ(walk(x), "eaBd");
}

// Words that say their key (an order key above a place) are searched without reading the
// entries they stand for: find() reads the one it lands on, and an entry that is gone or that
// the reader leaves out is not found, with the map still held by reference. (A listing whose
// reader filters as it prints must not copy a million routes to find the default one.)
TEST(VectorMap, ReferencesThatSayTheirKeyAreSearchedReadingOneEntry) {
  std::vector<std::pair<int, std::string>> table = {{30, "c"}, {10, "a"}, {20, ""}, {40, "d"}};
  int reads = 0;
  Mox::VectorMap<int, std::string> v;
  Mox::VectorMap<int, std::string>::References refs;
  for (std::uint64_t place : {1, 2, 0, 3})
    refs.words.push_back(std::uint64_t(table[place].first) << 8 | place);
  refs.read = [&](std::uint64_t word, std::pair<int, std::string>& out) {
    ++reads;
    out = table[word & 255];
    return !out.second.empty() && out.first == int(word >> 8);
  };
  refs.keyOf = [](std::uint64_t word) { return int(word >> 8); };
  v.referencesIs(std::move(refs));

  ASSERT_NE(v.find(30), nullptr);
  EXPECT_EQ(*v.find(30), "c");
  EXPECT_EQ(reads, 2);
  EXPECT_EQ(v.find(20), nullptr);  // left out by the reader
  EXPECT_EQ(v.find(25), nullptr);
  EXPECT_EQ(v.find(50), nullptr);
  EXPECT_EQ(reads, 3);
  EXPECT_TRUE(v.byReference());
  // An entry moved away since its word was made is not the entry the word says.
  table[3] = {45, "x"};
  EXPECT_EQ(v.find(40), nullptr);
  EXPECT_TRUE(v.del(10));
  EXPECT_TRUE(v.byReference());
  EXPECT_EQ(v.find(10), nullptr);
  EXPECT_FALSE(v.del(10));
  EXPECT_EQ(v.size(), 3u);
  std::string seen;
  v.forEach([&](const auto& e) { seen += e.second; });
  EXPECT_EQ(seen, "c");
}

// Words read a piece at a time where their writer keeps them (a table's order in a store): a
// walk reads them piece after piece, and a find and a delete of the first entry read only the
// first piece, so the map keeps reading its source, whose words may change meanwhile (the
// writer replaced its order); what needs every word (a find further on, a delete in the
// middle) reads them all into the map once, and from then on the source is not read again.
TEST(VectorMap, ReferencesReadInPiecesAreHeldOnlyWhenEveryWordIsNeeded) {
  const std::size_t savedPiece = Mox::referencePieceWords;
  Mox::referencePieceWords = 3;
  std::vector<std::string> table;  // a place per entry; the key is 10 times the place
  for (int i = 0; i < 10; ++i)
    table.push_back(std::string(1, char('a' + i)));
  std::vector<std::uint64_t> order;  // the source's words: key above place
  for (std::uint64_t i = 0; i < table.size(); ++i)
    order.push_back(i * 10 << 8 | i);
  std::size_t largestRead = 0;
  using Map = Mox::VectorMap<int, std::string>;
  Map v;
  Map::References refs;
  refs.readWords = [&](const std::uint64_t* after, std::span<std::uint64_t> out) {
    largestRead = std::max(largestRead, out.size());
    auto at = order.begin();
    if (after) {
      at = std::upper_bound(order.begin(), order.end(), *after >> 8,
                            [](std::uint64_t key, std::uint64_t w) { return key < w >> 8; });
    }
    const std::size_t n = std::min<std::size_t>(out.size(), order.end() - at);
    std::copy_n(at, n, out.begin());
    return n;
  };
  refs.count = order.size();
  refs.read = [&](std::uint64_t word, std::pair<int, std::string>& out) {
    out = {int(word >> 8), table[word & 255]};
    return !out.second.empty();
  };
  refs.keyOf = [](std::uint64_t word) { return int(word >> 8); };
  v.referencesIs(std::move(refs));
  const auto walk = [](const Map& m) {
    std::string s;
    m.forEach([&](const auto& e) { s += e.second; });
    return s;
  };

  EXPECT_EQ(v.size(), 10u);
  EXPECT_EQ(walk(v), "abcdefghij");
  EXPECT_EQ(largestRead, 3u);
  std::string pieces;
  v.forEachReferencePiece(
      [&](std::span<const std::uint64_t> words) { pieces += std::to_string(words.size()); });
  EXPECT_EQ(pieces, "3331");
  ASSERT_NE(v.find(0), nullptr);
  EXPECT_EQ(*v.find(0), "a");
  EXPECT_EQ(v.find(5), nullptr);
  EXPECT_TRUE(v.del(0));
  EXPECT_FALSE(v.del(0));
  EXPECT_TRUE(v.del(10));  // the first entry again
  EXPECT_EQ(v.size(), 8u);
  EXPECT_EQ(v.find(10), nullptr);
  auto copy = v;
  EXPECT_TRUE(copy.del(20));
  EXPECT_EQ(walk(copy), "defghij");
  // Still read from the source: its words replaced meanwhile, an entry gone and a new one
  // after those passed over.
  order.erase(order.begin() + 5);
  order.insert(order.begin() + 2, std::uint64_t(15) << 8 | 1);
  EXPECT_EQ(walk(v), "bcdeghij");
  EXPECT_EQ(walk(copy), "deghij");
  EXPECT_EQ(largestRead, 3u);

  // A find past the first piece holds every word; the source is read no more.
  ASSERT_NE(v.find(80), nullptr);
  EXPECT_EQ(*v.find(80), "i");
  order.clear();
  EXPECT_TRUE(v.byReference());
  EXPECT_EQ(walk(v), "bcdeghij");
  EXPECT_EQ(v.size(), 8u);
  EXPECT_TRUE(v.del(60));  // in the middle
  EXPECT_TRUE(v.del(15));  // the first
  EXPECT_EQ(walk(v), "cdehij");
  std::vector<int> keys;
  for (const auto& [k, value] : v)
    keys.push_back(k);
  EXPECT_EQ(keys, (std::vector<int>{20, 30, 40, 70, 80, 90}));
  EXPECT_FALSE(v.byReference());
  Mox::referencePieceWords = savedPiece;
}

}  // namespace

namespace {

// The array-backed maps must hold what the tree map holds under any mix of operations (the
// open-addressing one over a key range that makes it grow and reuse removed slots), and let an
// iteration delete as it goes. The flat hash map iterates in no key order, so contents are
// compared as ordered copies.
template <class Map>
void agreesWithTheTreeMapAndDeletesWhileIterating(unsigned keys) {
  Map d;
  std::map<std::uint16_t, std::string> m;
  const auto contents = [](const Map& map) {
    std::map<std::uint16_t, std::string> copy;
    for (const auto& [k, v] : map)
      EXPECT_TRUE(copy.emplace(k, v).second);
    return copy;
  };
  std::uint32_t x = 7;
  for (int i = 0; i < 3000; ++i) {
    x = x * 1103515245 + 12345;
    const auto k = static_cast<std::uint16_t>((x >> 16) % keys);
    const std::string v = std::to_string(i);
    switch ((x >> 8) % 3) {
      case 0:
        d.set(k, v);
        m[k] = v;
        break;
      case 1:
        EXPECT_EQ(d.newEntry(k, v), m.emplace(k, v).second);
        break;
      default:
        EXPECT_EQ(d.del(k), m.erase(k) == 1);
    }
    if (i % 101 == 0) {
      ASSERT_EQ(d.size(), m.size());
      EXPECT_EQ(contents(d), m);
    }
  }
  EXPECT_EQ(contents(d), m);
  std::size_t visited = 0;
  for (auto it = d.iterator(); it; ++it) {
    ++visited;
    if (it.key() % 2) it.deleteCurrent();
  }
  EXPECT_EQ(visited, m.size());
  std::erase_if(m, [](const auto& e) { return e.first % 2; });
  EXPECT_EQ(contents(d), m);
  EXPECT_EQ(d.get(62), m.count(62) ? m[62] : "");
  d.delAll();
  EXPECT_TRUE(d.empty());
  EXPECT_FALSE(d.contains(62));
}

TEST(DenseMap, AgreesWithTheTreeMapAndDeletesWhileIterating) {
  agreesWithTheTreeMapAndDeletesWhileIterating<Mox::DenseMap<std::uint16_t, std::string>>(64);
}

TEST(FlatHashMap, AgreesWithTheTreeMapAndDeletesWhileIterating) {
  using Map = Mox::FlatHashMap<std::uint16_t, std::string>;
  agreesWithTheTreeMapAndDeletesWhileIterating<Map>(64);
  agreesWithTheTreeMapAndDeletesWhileIterating<Map>(1000);
}

}  // namespace

namespace {

// Whatever may move or free an entry moves the change count, so a walker that noted it can
// tell that its position may be gone; replacing a value in place frees nothing and does not.
template <class Map>
void changesCountWhatMovesEntries() {
  Map m;
  auto moved = [&m, last = m.changes()](auto&& change) mutable {
    change();
    const bool did = m.changes() != last;
    last = m.changes();
    return did;
  };
  EXPECT_TRUE(moved([&] { m.newEntry(3, "three"); }));
  EXPECT_TRUE(moved([&] { m.set(1, "one"); }));
  EXPECT_FALSE(moved([&] { m.newEntry(3, "again"); }));
  (void)m.get(1);  // a read sorts what was appended out of order, once; not a change of its own
  EXPECT_FALSE(moved([&] { (void)m.get(3); }));
  EXPECT_FALSE(moved([&] { m.del(7); }));
  EXPECT_TRUE(moved([&] { m.del(3); }));
  EXPECT_TRUE(moved([&] {
    auto it = m.iterator();
    it.deleteCurrent();
  }));
  m.set(5, "five");
  EXPECT_TRUE(moved([&] { m.delAll(); }));
  // Assigning replaces every entry: the count moves on, whatever the other's count is.
  Map other;
  EXPECT_TRUE(moved([&] { m = other; }));
  EXPECT_TRUE(moved([&] { m = Map(); }));
}

TEST(Collection, ChangesCountWhatMovesEntriesInEveryKind) {
  changesCountWhatMovesEntries<Mox::OrderedMap<std::uint16_t, std::string>>();
  changesCountWhatMovesEntries<Mox::HashMap<std::uint16_t, std::string>>();
  changesCountWhatMovesEntries<Mox::VectorMap<std::uint16_t, std::string>>();
  changesCountWhatMovesEntries<Mox::DenseMap<std::uint16_t, std::string>>();
  changesCountWhatMovesEntries<Mox::FlatHashMap<std::uint16_t, std::string>>();
}

TEST(Collection, ChangesCountOnSets) {
  Mox::OrderedSet<int> s;
  const auto before = s.changes();
  s.newEntry(1);
  EXPECT_NE(s.changes(), before);
  const auto added = s.changes();
  s.newEntry(1);
  s.set(1, true);
  EXPECT_EQ(s.changes(), added);
  s.set(1, false);
  EXPECT_NE(s.changes(), added);
}

}  // namespace
