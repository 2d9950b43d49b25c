#pragma once
// Order keys, and the radix sort that puts keys offering one in order without comparing them.

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "platform/mox/HugePages.h"
#include "platform/mox/Prefetch.h"

namespace Mox {

// A key type may offer an order key: `orderKey(k)`, found by argument-dependent lookup, an
// unsigned number below 2^40 that orders keys as operator< does and tells them apart. A
// VectorMap of such keys under std::less sorts by radix instead of by comparison: a million
// IPv4 prefixes appended in a hash table's order are put in order in a few sequential passes
// over 8-byte keys, and each entry is moved once.
template <class K>
concept HasOrderKey = requires(const K& k) {
  { orderKey(k) } -> std::same_as<std::uint64_t>;
};
// The same for keys wider than a word (an IPv6 prefix): three words, the most significant
// first.
using WideOrderKey = std::array<std::uint64_t, 3>;
template <class K>
concept HasWideOrderKey = requires(const K& k) {
  { orderKey(k) } -> std::same_as<WideOrderKey>;
};

namespace detail {

// Sorts `items` stably, least significant digit first: one pass for each entry of `passes`,
// which digitOf(item, pass) turns into the item's byte for that pass. The counts of every pass
// are taken in one read of the items before the first.
template <class Item, class DigitOf>
void radixPasses(std::vector<Item>& items, const std::vector<unsigned>& passes, DigitOf digitOf) {
  if (passes.empty()) return;
  std::vector<std::array<std::size_t, 256>> start(passes.size());
  for (const Item& item : items) {
    for (std::size_t p = 0; p < passes.size(); ++p)
      ++start[p][digitOf(item, passes[p])];
  }
  std::vector<Item> spare;
  reserveHugeExact(spare, items.size());
  spare.resize(items.size());
  for (std::size_t p = 0; p < passes.size(); ++p) {
    std::size_t at = 0;
    for (std::size_t& s : start[p]) {
      const std::size_t count = s;
      s = at;
      at += count;
    }
    for (const Item& item : items)
      spare[start[p][digitOf(item, passes[p])]++] = item;
    items.swap(spare);
  }
}

// Sorts packed words by their bits from `lowBit` up, stably: the bits below (an index) ride
// along and keep equal keys in index order. A byte that no word changes needs no pass.
inline void radixSortWords(std::vector<std::uint64_t>& words, unsigned lowBit) {
  if (words.empty()) return;
  const std::uint64_t first = words[0] >> lowBit;
  std::uint64_t varies = 0;
  for (const std::uint64_t w : words)
    varies |= (w >> lowBit) ^ first;
  std::vector<unsigned> passes;
  for (unsigned shift = 0; shift < 64 - lowBit; shift += 8) {
    if ((varies >> shift) & 255) passes.push_back(lowBit + shift);
  }
  radixPasses(words, passes, [](std::uint64_t w, unsigned shift) { return (w >> shift) & 255; });
}

// Moves the entries of `data` into the order `indexOf` gives for each of `order`.
template <class Entry, class Order, class IndexOf>
void gather(std::vector<Entry>& data, const std::vector<Order>& order, IndexOf indexOf) {
  const std::size_t n = order.size();
  std::vector<Entry> sorted;
  reserveHugeExact(sorted, n);
  for (std::size_t j = 0; j < n; ++j) {
    // The reads are scattered: ask for the ones a little ahead while this one is moved.
    if (j + 8 < n) Mox::prefetch(&data[indexOf(order[j + 8])]);
    sorted.push_back(std::move(data[indexOf(order[j])]));
  }
  data.swap(sorted);
}

// Sorts `data` by `keyOf`, stably, when every key is below 2^40 and there are fewer than 2^24
// entries; returns false (and leaves `data` alone) otherwise. Each key is packed with its
// entry's index, the packed words sorted a byte of key at a time (least significant first,
// which keeps equal keys in index order; a byte that no key changes needs no pass), and the
// entries gathered in that order.
template <class Entry, class KeyOf>
bool radixSort(std::vector<Entry>& data, KeyOf keyOf) {
  constexpr unsigned kIndexBits = 24;
  const std::size_t n = data.size();
  if (n == 0 || n >= (std::size_t(1) << kIndexBits)) return n == 0;
  std::vector<std::uint64_t> words;
  reserveHugeExact(words, n);
  words.resize(n);
  const std::uint64_t first = keyOf(data[0]);
  std::uint64_t varies = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const std::uint64_t key = keyOf(data[i]);
    if (key >> (64 - kIndexBits)) return false;
    words[i] = key << kIndexBits | i;
    varies |= key ^ first;
  }
  std::vector<unsigned> passes;
  for (unsigned shift = 0; shift < 64 - kIndexBits; shift += 8) {
    if ((varies >> shift) & 255) passes.push_back(kIndexBits + shift);
  }
  radixPasses(words, passes, [](std::uint64_t w, unsigned shift) { return (w >> shift) & 255; });
  constexpr std::uint64_t kIndexMask = (std::uint64_t(1) << kIndexBits) - 1;
  gather(data, words, [](std::uint64_t w) { return w & kIndexMask; });
  return true;
}

// Sorts `data` by `keyOf`'s wide keys, stably (fewer than 2^32 entries; returns false
// otherwise). The keys are copied beside their entries' indices and sorted a byte at a time,
// least significant first, skipping the bytes every key shares: a table's prefixes differ in a
// few of their sixteen address bytes, so a few passes do. Then the entries are gathered. When
// only one of the first two words varies and the last is a byte (an IPv6 table whose prefixes
// differ in their first half), an item is that word and the byte beside the index: half the
// bytes to move on every pass.
template <class Entry, class KeyOf>
bool radixSortWide(std::vector<Entry>& data, KeyOf keyOf) {
  const std::size_t n = data.size();
  if (n == 0 || n >= (std::size_t(1) << 32)) return n == 0;
  const WideOrderKey first = keyOf(data[0]);
  WideOrderKey varies{};
  std::uint64_t last = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const WideOrderKey key = keyOf(data[i]);
    for (std::size_t w = 0; w < varies.size(); ++w)
      varies[w] |= key[w] ^ first[w];
    last |= key[2];
  }
  if ((varies[0] == 0 || varies[1] == 0) && last < 256 && n < (std::size_t(1) << 24)) {
    struct Item {
      std::uint64_t word;
      std::uint32_t lastAndIndex;  // the last word above the index's 24 bits
    };
    const std::size_t w = varies[0] ? 0 : 1;
    std::vector<Item> items;
    reserveHugeExact(items, n);
    items.resize(n);
    for (std::size_t i = 0; i < n; ++i) {
      const WideOrderKey key = keyOf(data[i]);
      items[i] = {key[w], static_cast<std::uint32_t>(key[2] << 24 | i)};
    }
    constexpr unsigned kLast = 64;  // the pass over the last word
    std::vector<unsigned> passes;
    if (varies[2]) passes.push_back(kLast);
    for (unsigned shift = 0; shift < 64; shift += 8) {
      if ((varies[w] >> shift) & 255) passes.push_back(shift);
    }
    radixPasses(items, passes, [](const Item& item, unsigned pass) {
      return pass == kLast ? item.lastAndIndex >> 24 : (item.word >> pass) & 255;
    });
    gather(data, items, [](const Item& item) { return item.lastAndIndex & 0xffffff; });
    return true;
  }
  struct Item {
    WideOrderKey key;
    std::uint32_t index;
  };
  std::vector<Item> items;
  reserveHugeExact(items, n);
  items.resize(n);
  for (std::size_t i = 0; i < n; ++i)
    items[i] = {keyOf(data[i]), static_cast<std::uint32_t>(i)};
  std::vector<unsigned> passes;  // the word times 64 plus the shift
  for (std::size_t w = varies.size(); w-- > 0;) {
    for (unsigned shift = 0; shift < 64; shift += 8) {
      if ((varies[w] >> shift) & 255) passes.push_back(static_cast<unsigned>(w) * 64 + shift);
    }
  }
  radixPasses(items, passes, [](const Item& item, unsigned pass) {
    return (item.key[pass / 64] >> (pass % 64)) & 255;
  });
  gather(data, items, [](const Item& item) { return item.index; });
  return true;
}

}  // namespace detail

}  // namespace Mox
