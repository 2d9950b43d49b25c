#pragma once
// Selection, filtering and FEC caching, written once for both sorters. A sorter's Family is the
// platform's family traits (Routing::V4 or V6); everything else reads the same for both.

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include "lib/common/Neighbors.h"
#include "lib/common/RouteTypes.h"
#include "lib/route_listing/RouteSorter.h"
#include "platform/brine/PagesAhead.h"
#include "platform/mox/ActivityLock.h"
#include "platform/mox/HugePages.h"
#include "platform/mox/RadixSort.h"
#include "platform/mox/Trace.h"

namespace Rova {

namespace sorter {

inline Mox::TraceHandle& trace() {
  static Mox::TraceHandle h("CliSupport");
  return h;
}

// A table read that finds the record corrupt reports it to the table and reads as empty.
template <class Table>
typename Table::Record readRecord(const Table& table, const typename Table::Key& key) {
  try {
    return table.lookup(key);
  } catch (const Velt::CorruptionDetectedException& e) {
    table.corruptionDetected(e.what());
    return {};
  }
}

template <class Table>
typename Table::Record readRecordAt(const Table& table, std::size_t i) {
  try {
    return table.at(i);
  } catch (const Velt::CorruptionDetectedException& e) {
    table.corruptionDetected(e.what());
    return {};
  }
}

template <class Table>
typename Table::Record readRecord(const Table& table, typename Table::const_iterator it) {
  try {
    return *it;
  } catch (const Velt::CorruptionDetectedException& e) {
    table.corruptionDetected(e.what());
    return {};
  }
}

// Gives the activity lock up every 10,000 routes of a full-table walk, so that the agents that
// write the tables are not held off by a long listing.
class YieldCounter {
 public:
  void step() {
    if (count_ > 9999) {
      Mox::ActivityLock::instance().yield();
      count_ = 0;
    } else {
      ++count_;
    }
  }

 private:
  std::uint16_t count_ = 0;
};

// ---- the FEC cache ----

template <class Sorter, class FecRecord>
void cachedFecIs(Sorter& s, Brine::Fib::FecId fecId, const FecRecord& record) {
  if constexpr (std::is_same_v<Sorter, RouteSorter>) {
    if (Brine::Fib::isV6FecId(fecId)) s.hasV6NexthopIs(true);
  }
  auto fec = cachedFecFactory(fecId);
  const auto backupIndex = record.backupViaIndex();
  fec->backupViaIndexIs(backupIndex);
  const std::size_t n = record.via.size();
  fec->hasBackupIs(backupIndex.value() != 0 && n > backupIndex.value());
  if (fec->hasBackup()) {
    // Backup FECs keep only where each via goes: labels, tunnels and weights are not copied.
    for (std::size_t i = 0; i < n; ++i) {
      const auto& v = record.via[i];
      fec->viaIs(CachedVia(Plexa::IpGenAddr(v.hop), v.intfId, i >= backupIndex.value()), true);
    }
  } else if (n > 0) {
    std::uint32_t weight = 0;
    for (std::size_t i = 0; i < n; ++i)
      weight += record.via[i].weight;
    fec->weightIs(weight);
    for (std::size_t i = 0; i < n; ++i) {
      const auto& v = record.via[i];
      CachedVia via(Plexa::IpGenAddr(v.hop), v.intfId, false);
      via.viaLabelIs(v.mplsLabel());
      via.tunnelIdIs(v.tunnelId());
      if (n < weight) {
        char text[16];
        std::snprintf(text, sizeof text, "%d", int(v.weight));
        via.viaWeightIs(text);
      }
      fec->viaIs(via, true);
    }
  }
  // Which entries go to the CPU is a property of the FEC, noted once for every listing of it.
  static const Plexa::IntfId cpu("Cpu");
  std::uint16_t entry = 0;
  for (const auto& via : fec->via()) {
    if (via.intfId() == cpu) fec->hostToCpuIs(entry, true);
    ++entry;
  }
  s.fecIs(fecId, fec);
}

// Caches the FEC unless it is cached already; returns its cache entry (null for FEC 0), so
// that the caller does not look it up a second time.
template <class Sorter>
const Mox::Ptr<CachedFec>* copyAdjacency(Sorter& s, Brine::Fib::FecId fecId) {
  if (fecId.value() == 0) return nullptr;
  if (const auto* cached = s.fec().find(fecId)) return cached;
  if constexpr (std::is_same_v<Sorter, RouteSorter>) {
    if (Brine::Fib::isV6FecId(fecId)) {
      // Read straight into place: a FEC record is kilobytes, and each copy of it on the stack
      // touches pages of its own.
      const auto record =
          s.forwarding6Status() ? readRecord(*s.forwarding6Status(), fecId) : Brine::Fib6::Fec{};
      cachedFecIs(s, fecId, record);
      return s.fec().find(fecId);
    }
  }
  using Record = typename std::remove_cvref_t<decltype(*s.forwardingStatus())>::Record;
  const auto record = s.forwardingStatus() ? readRecord(*s.forwardingStatus(), fecId) : Record{};
  cachedFecIs(s, fecId, record);
  return s.fec().find(fecId);
}

// ---- filters ----

// Whether a FEC lets the routes through it print: one of its vias leaves through an interface
// or a tunnel, or it has none (the route is forwarded some other way), or detail shows them all.
template <class Sorter>
bool viasPrintable(const Sorter& s, const CachedFec& fec) {
  for (const auto& via : fec.via()) {
    if (!via.intfId().isEmpty() || !via.tunnelId().isZero()) return true;
  }
  return fec.vias() == 0 || s.detail();
}

// Printability, given whether the route's FEC lets it print (true when the FEC is not cached).
template <class Route>
bool isPrintable(const Route& route, bool fecPrintable) {
  if (isNexthopGroup(route.routeType)) return true;
  if (route.fecId.value() == 0) return false;
  return fecPrintable;
}

// The same for a FEC looked up in the cache: one that is not there does not hold a route back.
template <class Sorter>
bool fecPrintable(const Sorter& s, const Mox::Ptr<CachedFec>* cached) {
  return !cached || viasPrintable(s, **cached);
}

template <class Sorter>
bool isPrintable(const Sorter& s, const typename Sorter::Family::Route& route) {
  return isPrintable(route, fecPrintable(s, s.fec().find(route.fecId)));
}

// Whether each FEC a walk over the whole table meets lets its routes print, kept by FEC id. A
// million routes share a few thousand FECs, whose objects lie all over the heap; reading the
// answer from one small table instead of the FEC saves a cache miss or two per route. Valid
// while the FEC cache only grows (one selection).
class PrintableFecs {
 public:
  // Caches the FEC (copyAdjacency) the first time it is asked about.
  template <class Sorter>
  bool printable(Sorter& s, Brine::Fib::FecId fecId);

 private:
  Mox::FlatHashMap<Brine::Fib::FecId, bool> printable_;
};

// `fecPrintable`: whether the route's FEC lets it print (see viasPrintable).
template <class Sorter>
bool filterRoute(Sorter& s, const typename Sorter::Family::Route& route, bool fecPrintable) {
  using Family = typename Sorter::Family;
  const auto type = route.routeType;
  if (isInvalid(type) || isAttached(type)) return false;
  const bool receive = isReceive(type);
  if (!receive && !isPrintable(route, fecPrintable)) return false;
  if (receive) {
    const typename Family::AddrWithMask self(route.prefix.address(), route.prefix.len());
    // The link-local receive route belongs to no one interface; detail shows it anyway.
    if (!s.addrToIntfId().contains(self) &&
        !(s.detail() && route.prefix.stringValue() == "fe80::/10")) {
      return false;
    }
  }
  if (isMartian(type) && !s.detail()) return false;
  s.printCountIs(s.printCount() + 1);
  return true;
}

template <class Sorter>
bool passesFilter(Sorter& s, const typename Sorter::Family::Route& route, bool fecPrintable) {
  if (!filterRoute(s, route, fecPrintable)) {
    ++s.stats().internalFiltered;
    return false;
  }
  return true;
}

template <class Sorter>
bool takeRoute(Sorter& s, const typename Sorter::Family::Route& route, bool fecPrintable) {
  if (!passesFilter(s, route, fecPrintable)) return false;
  s.sortedRouteIs(route.prefix, route);
  return true;
}

// Taking a route: cache its FEC, then insert it unless the filter rejects it.
template <class Sorter>
bool takeRoute(Sorter& s, const typename Sorter::Family::Route& route) {
  return takeRoute(s, route, fecPrintable(s, copyAdjacency(s, route.fecId)));
}

template <class Sorter>
bool takeRoute(Sorter& s, const typename Sorter::Family::Route& route, PrintableFecs& fecs) {
  return takeRoute(s, route, fecs.printable(s, route.fecId));
}

template <class Sorter>
bool PrintableFecs::printable(Sorter& s, Brine::Fib::FecId fecId) {
  if (const bool* known = printable_.find(fecId)) return *known;
  const bool answer = fecPrintable(s, copyAdjacency(s, fecId));
  printable_.set(fecId, answer);
  return answer;
}

// Whether a route through this cached FEC (null: not cached) goes through the interface the
// IPv6 listing was asked for. Without an interface filter, a route whose FEC has vias passes.
// A via on an EVPN VXLAN interface goes through no interface of this router.
inline bool passesInterfaceFilter(const Route6Sorter& s, const Mox::Ptr<CachedFec>* fec) {
  if (!fec) return false;
  if ((*fec)->vias() == 0) return !s.intfStatus();
  if (!s.intf()) return true;
  if (!s.intfStatus()) return false;
  for (const auto& via : (*fec)->via()) {
    Plexa::IntfId viaIntf = via.intfId();
    if (s.evpnVxlanTunnelTable() && s.evpnVxlanTunnelTable()->isValidEvpnIntf(viaIntf)) {
      viaIntf = Plexa::IntfId();
    }
    if (viaIntf == s.intfStatus()->intfId()) return true;
  }
  return false;
}

// ---- selection ----

// A walk of the whole table keeps, for each route it selects, one word: the prefix's order key
// above the route's place in the table. The words are sorted, and the listing reads each route
// where it is, in the shared tables as in the process's own; it copies no route and needs 8
// bytes per route (16 while sorting) where a copy of the routes took 40 (80 while sorting).
// A route that a delete moved since is found again by its prefix; one that is gone is left out.
inline constexpr unsigned kPlaceBits = Brine::kOrderPlaceBits;

// The prefix an order key stands for; a key of no prefix (a store that is not what it should
// be) stands for the null prefix, which no route read back has.
template <class Prefix>
Prefix prefixOfKey(std::uint64_t key) {
  const std::uint64_t len = key & 255;
  if (len == 0 || len > Prefix::kMaxLen + 1) return Prefix();
  return Prefix(
      std::remove_cvref_t<decltype(Prefix().address())>(static_cast<std::uint32_t>(key >> 8)),
      static_cast<int>(len) - 1);
}

// Reads the route a word refers to into `entry`: at the word's place, or, when a delete moved
// it since, by its prefix; false when it is gone.
template <class Table, class Entry>
bool readReferenced(const Table& table, std::uint64_t word, Entry& entry) {
  using Prefix = typename Entry::first_type;
  constexpr std::uint64_t kPlaceMask = (std::uint64_t(1) << kPlaceBits) - 1;
  const std::uint64_t key = word >> kPlaceBits;
  auto route = readRecordAt(table, word & kPlaceMask);
  if (orderKey(route.prefix) != key) {
    if ((key & 255) == 0 || (key & 255) > Prefix::kMaxLen + 1) return false;
    route = readRecord(table, prefixOfKey<Prefix>(key));
    if (orderKey(route.prefix) != key) return false;
  }
  entry.first = route.prefix;
  entry.second = route;
  return true;
}

template <class Sorter>
bool selectsByReference(const Sorter& s) {
  using Prefix = typename Sorter::Family::Prefix;
  if constexpr (Mox::HasOrderKey<Prefix>) {
    return s.routingStatus()->reach() < (std::size_t(1) << kPlaceBits);
  } else {
    return false;
  }
}

template <class Sorter>
void keepByReference(Sorter& s, std::vector<std::uint64_t> words) {
  using Family = typename Sorter::Family;
  using Prefix = typename Family::Prefix;
  using Entry = std::pair<Prefix, typename Family::Route>;
  constexpr std::uint64_t kPlaceMask = (std::uint64_t(1) << kPlaceBits) - 1;
  // A table written in prefix order (as a store holds it) is walked in order already.
  if (!std::is_sorted(words.begin(), words.end())) Mox::detail::radixSortWords(words, kPlaceBits);
  // A route a delete moved during the walk may have been met twice: the later one stays.
  std::size_t out = 0;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (i + 1 < words.size() && words[i] >> kPlaceBits == words[i + 1] >> kPlaceBits) continue;
    words[out++] = words[i];
  }
  words.resize(out);
  const auto* table = s.routingStatus().get();
  typename SortedRouteMapOf<Family>::References refs;
  refs.words = std::move(words);
  refs.read = [table](std::uint64_t word, Entry& entry) {
    return readReferenced(*table, word, entry);
  };
  refs.prefetch = [table](std::uint64_t word) { table->prefetchAt(word & kPlaceMask); };
  refs.keyOf = [](std::uint64_t word) { return prefixOfKey<Prefix>(word >> kPlaceBits); };
  s.sortedRouteMutable().referencesIs(std::move(refs));
  s.stats().filteredAsRead = false;  // these words passed the filter already
}

// The whole table in the order its writer keeps for readers (Table::OrderReader, opened):
// nothing is walked or sorted before the page starts, and the order is read a piece at a time
// where the writer keeps it. The selection is the order itself, and a route is taken or left
// as the page reads it, by the same filter a walk applies; so the sorter's counts (printCount,
// internalFiltered) and its FEC cache grow as the routes are read.
template <class Sorter, class Order>
void keepInOrder(Sorter& s, std::shared_ptr<Order> order) {
  using Family = typename Sorter::Family;
  using Prefix = typename Family::Prefix;
  using Entry = std::pair<Prefix, typename Family::Route>;
  constexpr std::uint64_t kPlaceMask = (std::uint64_t(1) << kPlaceBits) - 1;
  struct Reading {
    PrintableFecs fecs;
    YieldCounter yield;  // for the routes left out: the page yields for those it prints
  };
  auto reading = std::make_shared<Reading>();
  Sorter* sorter = &s;
  const auto* table = s.routingStatus().get();
  typename SortedRouteMapOf<Family>::References refs;
  refs.count = static_cast<std::size_t>(order->count());
  refs.readWords = [order](const std::uint64_t* after, std::span<std::uint64_t> out) {
    return order->read(after, out);
  };
  refs.read = [sorter, table, reading](std::uint64_t word, Entry& entry) {
    if (readReferenced(*table, word, entry) &&
        passesFilter(*sorter, entry.second, reading->fecs.printable(*sorter, entry.second.fecId)))
      return true;
    reading->yield.step();
    return false;
  };
  refs.prefetch = [table](std::uint64_t word) { table->prefetchAt(word & kPlaceMask); };
  refs.keyOf = [](std::uint64_t word) { return prefixOfKey<Prefix>(word >> kPlaceBits); };
  s.sortedRouteMutable().referencesIs(std::move(refs));
  s.stats().filteredAsRead = true;
}

// A table listed whole from this size on puts the listing's heap on huge pages, with this
// much room.
inline constexpr std::size_t kLargeTable = 50'000;
inline constexpr std::size_t kListingHeap = std::size_t(16) << 20;

template <class Sorter>
void filterPrefixes(Sorter& s) {
  using Family = typename Sorter::Family;
  if (!s.routingStatus()) return;
  const auto& table = *s.routingStatus();
  const auto& want = s.prefix();

  if ((want.isNullPrefix() || s.longerPrefixes()) && selectsByReference(s)) {
    const bool large = want.isNullPrefix() && table.size() >= kLargeTable;
    if (large) {
      // A listing of a large table caches a few thousand FECs, their via blocks and texts: a
      // few MB of small allocations, which on 4 KiB pages cost a fault each (HugePages.h).
      Mox::heapOnHugePages(kListingHeap);
      // Every record is read, and most FECs: a thread of its own maps and touches their pages
      // while this one reads the order and walks (PagesAhead.h).
      if (table.shared()) {
        std::vector<Brine::SharedRegion> regions;
        if (s.forwardingStatus()) regions.push_back(s.forwardingStatus()->sharedRecordsRegion());
        regions.push_back(table.sharedRecordsRegion());
        s.aheadIs(std::make_shared<Brine::PagesAhead>(std::move(regions)));
      }
    }
    if constexpr (Mox::HasOrderKey<typename Family::Prefix>) {
      if (want.isNullPrefix()) {
        using Order = typename std::remove_cvref_t<decltype(table)>::OrderReader;
        auto order = std::make_shared<Order>(table);
        if (order->open()) {
          if (!large) {
            // Mapped in one call each rather than a fault per 16 pages as the walk meets them.
            table.willReadAll();
            if (s.forwardingStatus()) s.forwardingStatus()->willReadAll();
          }
          keepInOrder(s, std::move(order));
          return;
        }
      }
      std::vector<std::uint64_t> words;
      if (want.isNullPrefix() && s.protocol().empty()) words.reserve(table.size());
      table.willReadAll();
      if (s.forwardingStatus()) s.forwardingStatus()->willReadAll();
      YieldCounter yield;
      PrintableFecs fecs;
      for (auto it = table.begin(); it != table.end(); ++it) {
        const auto route = readRecord(table, it);
        const std::uint64_t place = it.position();
        const bool wanted =
            want.isNullPrefix() || (route.prefix.len() >= want.len() &&
                                    route.prefix.address().masked(want.len()) == want.address());
        if (!wanted) {
          ++s.stats().internalFiltered;
        } else if (passesFilter(s, route, fecs.printable(s, route.fecId))) {
          words.push_back(orderKey(route.prefix) << kPlaceBits | place);
        }
        yield.step();
      }
      keepByReference(s, std::move(words));
    }
    return;
  }

  if (want.isNullPrefix() || s.longerPrefixes()) {
    if (want.isNullPrefix() && s.protocol().empty()) s.sortedRouteMutable().reserve(table.size());
    YieldCounter yield;
    PrintableFecs fecs;
    for (auto it = table.begin(); it != table.end(); ++it) {
      const auto route = readRecord(table, it);
      if (want.isNullPrefix()) {
        takeRoute(s, route, fecs);
      } else if (route.prefix.len() >= want.len() &&
                 route.prefix.address().masked(want.len()) == want.address()) {
        takeRoute(s, route, fecs);
      } else {
        ++s.stats().internalFiltered;
      }
      yield.step();
    }
    return;
  }

  // One prefix: the exact route, or else the longest match that passes the filters.
  const auto exact = readRecord(table, want);
  if (exact.fecId.value() != 0 && takeRoute(s, exact)) return;
  // Each probe of an attached table touches pages of its own: the exact prefix is not read a
  // second time (the walk meets it again all the same, for the filters' counts), and lengths
  // the table holds no key of are not probed.
  for (int len = want.len(); len >= 0; --len) {
    if (len < want.len() && !table.mayHoldKeyLength(len)) continue;
    const auto route =
        len == want.len() ? exact : readRecord(table, typename Family::Prefix(want.address(), len));
    if (route.fecId.value() == 0) continue;
    if (takeRoute(s, route)) return;
  }
}

template <class Sorter>
void filterHostPrefixes(Sorter& s) {
  using Family = typename Sorter::Family;
  if (s.routingStatus()) {
    const auto& table = *s.routingStatus();
    for (auto it = table.begin(); it != table.end(); ++it) {
      const auto route = readRecord(table, it);
      if (isInvalid(route.routeType) || route.prefix.len() != Family::kHostLen) continue;
      copyAdjacency(s, route.fecId);
      s.sortedRouteIs(route.prefix, route);
    }
  }
  if (!s.arpBrine()) return;
  forEachNeighborInVrf<Family>(*s.arpBrine(), s.vrfIdMap().get(), s.vrfName(),
                               [&](const Arp::Table::ArpKey& key) {
                                 const auto route = s.createAttachedRoute(key.addr, key.intfId);
                                 s.sortedRouteIs(route.prefix, route);
                               });
}

// Every sorter of the process draws attached-route FEC ids from one counter.
inline std::uint64_t nextAttachedFecIndex() {
  static std::atomic<std::uint64_t> counter{1};
  return counter.fetch_add(1) & Brine::Fib::adjIndexMask();
}

template <class Sorter>
typename Sorter::Family::Route createAttachedRoute(Sorter& s, const Plexa::IpGenAddr& address,
                                                   Plexa::IntfId intfId) {
  using Family = typename Sorter::Family;
  const typename Family::Prefix host(Family::addrOf(address), Family::kHostLen);
  if (const auto* existing = s.sortedRoute().find(host)) return *existing;
  typename Family::Route route;
  route.prefix = host;
  route.routeType = Family::RouteType::attached;
  route.fecId = Brine::Fib::FecId(Brine::Fib::AdjType::attachedAdj, nextAttachedFecIndex());
  auto fec = cachedFecFactory(route.fecId);
  fec->viaIs(CachedVia(address, intfId), true);  // no label: the default is "no label"
  s.fecIs(route.fecId, fec);
  return route;
}

// Whether an interface is in the listed VRF: its configuration's VRF, or the default VRF when
// it names none.
template <class Sorter>
bool inListedVrf(const Sorter& s, Plexa::IntfId intfId) {
  L3::VrfName vrf;
  if (s.allIntfConfig()) {
    if (auto config = s.allIntfConfig()->intfConfig(intfId)) vrf = config->vrf();
  }
  if (vrf.empty()) vrf = L3::VrfName::defaultVrf();
  return vrf == s.vrfName();
}

// The interface address records of the sorter's family, by interface.
inline const Ip::IpIntfStatusMap& intfAddrStatus(const Ip::Status& status) {
  return status.ipIntfStatus();
}
inline const Ip6::IntfStatusMap& intfAddrStatus(const Ip6::Status& status) {
  return status.intf();
}

// The addresses an interface holds, with their masks: IPv4 the active primary and secondaries,
// IPv6 every active address. An interface routed for IPv4 without a primary address holds
// 0.0.0.0/0 as its primary, the value its status keeps for none, and that counts like any
// other primary: the whole address space is its subnet.
template <class Fn>
void forEachOwnAddress(const Ip::IpIntfStatus& status, Fn&& fn) {
  fn(status.activeAddrWithMask());
  for (const auto& secondary : status.activeSecondaryWithMask())
    fn(secondary);
}
template <class Fn>
void forEachOwnAddress(const Ip6::IntfStatus& status, Fn&& fn) {
  for (const auto& addr : status.addr())
    fn(addr);
}

// Each address of the listed VRF's interfaces, mapped to its interface. An address held by two
// interfaces maps to the later one (interfaces in their order).
template <class Sorter>
void buildAddrToIntfId(Sorter& s) {
  if (!s.ipStatus()) return;
  for (const auto& entry : intfAddrStatus(*s.ipStatus())) {
    const Plexa::IntfId intfId = entry.first;
    const auto& status = entry.second;
    if (!status || !inListedVrf(s, intfId)) continue;
    forEachOwnAddress(*status, [&](const auto& addr) { s.addrToIntfIdIs(addr, intfId); });
  }
}

template <class Sorter>
void takeTunnelTables(Sorter& s) {
  if (!s.tunnelTableDir()) return;
  const auto& dir = *s.tunnelTableDir();
  s.srTunnelTableIs(dir.template entity<Tunnel::TunnelTable::SrTunnelTable>("sr"));
  s.staticTunnelTableIs(dir.template entity<Tunnel::TunnelTable::StaticTunnelTable>("static"));
  s.ldpTunnelTableIs(dir.template entity<Tunnel::TunnelTable::LdpTunnelTable>("ldp"));
  s.bgpLuTunnelTableIs(dir.template entity<Tunnel::TunnelTable::BgpLuTunnelTable>("bgpLu"));
}

template <class Sorter>
void handleInitialized(Sorter& s) {
  MOX_TRACE(trace(), 1, "selecting routes of VRF ", s.vrfName().stringValue());
  s.initializedIs(true);
  if (s.host()) {
    filterHostPrefixes(s);
  } else {
    buildAddrToIntfId(s);
    takeTunnelTables(s);
    filterPrefixes(s);
  }
  // Selection ends with the routes in order: sorting is part of it, not of printing.
  (void)s.sortedRoutes();
  if (s.routingStatus()) s.stats().routeTableGeneration = s.routingStatus()->generation();
  if (s.quantify() != 0) s.stats().creationSeconds = sorterClockSeconds() - s.quantify();
}

// The one selected prefix, or the null prefix when none was selected.
template <class Sorter>
auto firstPrefix(const Sorter& s) {
  using Prefix = typename Sorter::Family::Prefix;
  return s.sortedRoute().empty() ? Prefix() : s.sortedRoute().begin()->first;
}

template <class Sorter>
Mox::Ptr<CachedFec> viasForPrefix(const Sorter& s, const typename Sorter::Family::Prefix& p) {
  const auto* route = s.sortedRoute().find(p);
  if (!route || route->fecId.value() == 0) return nullptr;
  auto copy = cachedFecFactory(route->fecId);
  if (const auto* cached = s.fec().find(route->fecId)) {
    for (const auto& via : (*cached)->via())
      copy->viaIs(via, true);
  }
  return copy;
}

template <class Sorter>
void buildNexthopGroupIdToName(Sorter& s) {
  if (!s.nhEntryStatus()) return;
  const auto& table = *s.nhEntryStatus();
  for (auto it = table.begin(); it != table.end(); ++it) {
    const auto record = readRecord(table, it);
    s.cachedNexthopGroupIdToNameIs(record.nhgId, Mox::String8(record.entryKey.name.view()));
  }
}

}  // namespace sorter
}  // namespace Rova
