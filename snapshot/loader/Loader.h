// The snapshot loader: one pass over the document with simdjson's on-demand parser, writing
// straight into the platform's tables. Everything is built into a fresh entity manager that
// is handed out only when the whole document has been read, so a refused document leaves
// nothing behind.
//
// The document's sections may come in any order, but some refer to VRFs by name (interfaces,
// neighbours, nexthop groups). Those references are noted as they are read and checked once
// the VRFs are known; neighbours, whose table key holds the VRF id, are kept aside until then.
//
// This header is the loader's own: the class whose sections are defined a file each
// (Document.cpp, Routes.cpp, StaticRoutes.cpp, ...), and what the sections share. Users load
// through snapshot/Snapshot.h.

#pragma once

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <unordered_map>

#include "platform/brine/Fib.h"
#include "platform/brine/FlexCounters.h"
#include "platform/brine/KernelRoutes.h"
#include "platform/brine/Neighbor.h"
#include "platform/brine/NexthopGroupTables.h"
#include "platform/brine/SrTePolicy.h"
#include "platform/brine/Tunnel.h"
#include "platform/mox/Dir.h"
#include "platform/plexa/EthAddr.h"
#include "platform/plexa/RouteDistinguisher.h"
#include "platform/state/Family.h"
#include "platform/state/Interface.h"
#include "platform/state/Ip.h"
#include "platform/state/NexthopGroupConfig.h"
#include "platform/state/RoutingConfig.h"
#include "platform/state/RoutingHardware.h"
#include "snapshot/DeviceInfo.h"
#include "snapshot/JsonReader.h"
#include "snapshot/Refs.h"
#include "snapshot/Snapshot.h"
#include "snapshot/StateLayout.h"

namespace Snapshot::detail {
// A regular file's status as the loader looks at it before and after reading the file, times
// in nanoseconds since the epoch.
struct ReadStamp {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t size = 0;
  std::int64_t modified = 0;
  std::int64_t changed = 0;  // the status change time, which no program can set
  friend bool operator==(const ReadStamp&, const ReadStamp&) = default;
};
// Whether the file's status proves that its text did not change while it was read: the same
// before and after, and its last change (`changed`, and `modified`) at least two seconds
// before `now`, the time of the first look. A file changed that recently may be written again
// within the tick of its clock (or of its file system's, two seconds on the coarsest) without
// any time moving; it is read again and compared instead.
bool unchangedWhileRead(const ReadStamp& before, const ReadStamp& after, std::int64_t now);
// Loads a regular file's text of `expected` bytes from `fd` through a window that checks the
// route arrays `sections` leaves out as they pass and keeps only the rest (Loader::
// stripRoutes). Null when the window did not prove those arrays or `unchanged()`, asked once
// the text is read, says the file may have moved: the caller then reads the file whole, which
// refuses what is wrong with the message the window could not give.
// Loads the whole document with every route read by the loader itself, without the scan
// that reads route arrays from the text first: the reading the scan is held to.
Mox::Ptr<Statum::EntityManager> loadRouteByRoute(std::string_view json);
// `splitAt`, when given, is where a second thread starts reading (0: none); by default
// splitPlace(expected, sections).
Mox::Ptr<Statum::EntityManager> loadStripped(int fd, std::size_t expected, Sections sections,
                                             const std::function<bool()>& unchanged,
                                             std::optional<std::size_t> splitAt = std::nullopt);
// Where a second thread starts reading a file of `size` bytes through the window, for a file
// large enough when the process may run on two processors or more; 0 for none. Half way when
// every route table is left out: the first thread's half and the second's, the IPv4 routes'
// end and the IPv6 routes, take about as long. Two fifths of the way when a family is built:
// the first thread goes on to build it only once the routes left out are read, so the
// IPv4 routes (the first four fifths of a full table's file) are shared out evenly.
std::size_t splitPlace(std::size_t size, Sections sections);
}  // namespace Snapshot::detail

namespace Snapshot::loader {

using Mox::makePtr;
using Mox::Ptr;

constexpr std::uint64_t kU32Max = 0xffffffffu;

// A word of the document in a message: quoted, escaped and cut like every other one.
inline std::string quote(std::string_view s) {
  return Mox::shownWord(s, '"');
}

// ---- the two address families, so that routes and FECs are read by one template ----

template <class RouteType>
class RouteTypeWords {
 public:
  template <class NameOf>
  explicit RouteTypeWords(NameOf nameOf) {
    for (std::uint32_t v = 0; v < 64; ++v) {
      const std::string_view name = nameOf(static_cast<RouteType>(v));
      if (!name.empty()) byName_.emplace(name, static_cast<RouteType>(v));
    }
  }
  bool find(std::string_view word, RouteType& out) const {
    auto it = byName_.find(word);
    if (it == byName_.end()) return false;
    out = it->second;
    return true;
  }

 private:
  std::unordered_map<std::string_view, RouteType> byName_;
};

// The route type words of each family, looked up by name (the document never writes numbers).
template <class Fam>
const RouteTypeWords<typename Fam::RouteType>& routeTypeWords() {
  static const RouteTypeWords<typename Fam::RouteType> w(
      [](typename Fam::RouteType t) { return Fam::typeName(t); });
  return w;
}

using Routing::V4;
using Routing::V6;

// Everything one VRF owns: its tables, and what the document says of it.
struct VrfState : layout::VrfTables {
  std::string name;
  bool hasId = false;
  std::uint32_t id = 0;
  using Unprogrammed = Brine::KernelUnprogrammedRoute::UnprogrammedRoute;

  template <class Fam>
  auto& routes() {
    return *routeTable<Fam>();
  }
  // The family's route table as the VRF holds it, to be replaced.
  template <class Fam>
  auto& routeTable() {
    if constexpr (std::is_same_v<Fam, V4>) {
      return fibRoute;
    } else {
      return fib6Route;
    }
  }
  template <class Fam>
  auto& fecs() {
    if constexpr (std::is_same_v<Fam, V4>) {
      return *fibFec;
    } else {
      return *fib6Fec;
    }
  }
  template <class Fam>
  Unprogrammed& kernel() {
    return std::is_same_v<Fam, V4> ? *kernelUnprogrammed : *kernelUnprogrammed6;
  }
  template <class Fam>
  void countUnprogrammed(std::uint32_t n) {
    if constexpr (std::is_same_v<Fam, V4>) {
      hwVrfStatus->unprogrammedRouteCountIs(hwVrfStatus->unprogrammedRouteCount() + n);
    } else {
      hwVrfStatus->unprogrammedRoute6CountIs(hwVrfStatus->unprogrammedRoute6Count() + n);
    }
  }
};

// A neighbour waits for its VRF's id.
struct PendingNeighbor {
  Arp::Table::ArpEntry entry;
  std::size_t vrfRef;
  std::size_t index;
};

class Loader {
 public:
  // `text` and `size` are the document, for offsets in messages.
  Ptr<Statum::EntityManager> run(od::document& doc, const char* text, std::size_t size);
  // Told now and then how far into the document the reading has come.
  void readPastIs(std::function<void(const char*)> f) { r_.readPastIs(std::move(f)); }
  // The route tables to build; those left out are only checked (RouteCheck.cpp).
  void sectionsIs(Sections s) { sections_ = s; }
  // Reads the route arrays straight from the text, before the parser indexes it, and blanks
  // each one read (RouteCheck.cpp). `text` is the document, followed by the parser's padding.
  void scanRoutes(char* text, std::size_t size);
  // Reads a regular file's text into `doc` but for the route arrays of the families not
  // built, which are checked as they are read and left empty (RouteCheck.cpp). False when
  // something was not proven or not read: then the file is to be loaded the usual way, by a
  // fresh loader. `size` is the file's size when it was looked at (a guide to the room the
  // reading takes). With `splitAt`, a second thread reads the arrays left out from that offset
  // of the file on, and the first takes what it read when it gets there.
  bool stripRoutes(int fd, std::vector<char>& doc, std::size_t size, std::size_t splitAt = 0);
  // How many arrays stripRoutes() took the end of from the second thread.
  std::size_t takenAhead() const { return takenAhead_; }

 private:
  // ---- sections ----
  void top(od::object obj);
  void hardware(od::value& v);
  void staticRouteDefaults(od::value& v);
  void vrfs(od::value& v);
  void vrf(std::string_view name, od::value& v);
  template <class Fam>
  void family(od::value& v, VrfState& vrf);
  template <class Fam>
  void routes(od::value& v, VrfState& vrf);
  template <class Fam>
  void checkRoutes(od::value& v, VrfState& vrf);
  template <class Fam>
  bool takeScannedRoutes(od::value& v, VrfState& vrf);
  template <class Fam>
  void fecs(od::value& v, VrfState& vrf);
  template <class Fam>
  typename Fam::Via fecVia(od::value& v);
  template <class Fam>
  typename Fam::RouteType routeType(od::value& v);
  void staticRoutes(od::value& v, VrfState& vrf);
  Routing::Via staticVia(od::value& v, bool& trackBfd, std::string& name);
  void interfaces(od::value& v);
  void interface(od::value& v);
  void neighbors(od::value& v);
  void tunnels(od::value& v);
  void tunnelFib(od::value& v);
  void tunnelTable(
      od::value& v,
      Brine::Table<Tunnel::TunnelTable::TunnelId, Tunnel::TunnelTable::TunnelTableEntry>& table,
      Tunnel::TunnelTable::TunnelType type, const char* word);
  Tunnel::TunnelTable::TunnelViaArray tunnelVias(od::value& v);
  void evpnVxlan(od::value& v);
  void srTePolicies(od::value& v);
  void nexthopGroups(od::value& v);
  void nexthopGroup(od::value& v);
  void flexCounters(od::value& v);
  void counterRows(od::value& v, FlexCounters::CounterTable& table);
  void counterKeys(od::value& v);
  void routeDistinguishers(od::value& v);
  void finish();

  // ---- values ----
  template <class Fam>
  typename Fam::Prefix prefix(od::value& v);
  Plexa::IpGenPrefix genPrefix(od::value& v);
  template <class Addr>
  Addr address(od::value& v, const char* what);
  Plexa::IpGenAddr genAddress(od::value& v);
  template <class AddrWithMask>
  AddrWithMask addressWithMask(od::value& v, const char* what);
  Plexa::IntfId intf(od::value& v);
  Plexa::MplsLabel label(od::value& v);
  Plexa::MplsLabelOperation labelOp(od::value& v);
  Plexa::EthAddr mac(od::value& v);
  Vxlan::VniOrNone vni(od::value& v);
  Brine::Fib::FecId fecRef(od::value& v);
  // A FEC named in a table of family Fam: in the IPv6 tables a bare number is an ip6: FEC.
  template <class Fam>
  Brine::Fib::FecId familyFecRef(od::value& v);
  Tunnel::TunnelTable::TunnelId tunnelRef(od::value& v);
  L3::VrfName vrfName(std::string_view text);
  // Notes a reference to a VRF by name, checked by finish(); returns its slot.
  std::size_t vrfRef(const L3::VrfName& name);

  JsonReader r_;
  Sections sections_;
  // What scanRoutes read of each route array it blanked, by where the array starts.
  struct ScannedRoutes {
    decltype(layout::VrfTables::fibRoute) v4;
    decltype(layout::VrfTables::fib6Route) v6;
    template <class Fam>
    auto& table() {
      if constexpr (std::is_same_v<Fam, V4>) {
        return v4;
      } else {
        return v6;
      }
    }
    std::uint32_t unprogrammed = 0;
    std::vector<Plexa::IpGenPrefix> kernel;
  };
  std::unordered_map<const char*, ScannedRoutes> scanned_;
  // What stripRoutes() read, by where each array is in the text it kept.
  std::vector<std::pair<std::size_t, ScannedRoutes>> stripped_;
  std::size_t takenAhead_ = 0;
  int version_ = 0;
  std::map<std::string, std::unique_ptr<VrfState>> vrfs_;
  std::map<std::uint32_t, std::string> vrfIds_;
  // VRF names referred to, each with the path of its first reference.
  std::vector<std::pair<L3::VrfName, std::string>> vrfRefs_;
  std::vector<PendingNeighbor> neighbors_;

  layout::DeviceTables tables_;
  std::map<std::uint64_t, std::string> nhgIds_;
  // The route type words last read, per family: a table's million routes repeat a handful of
  // words, and comparing with those is quicker than hashing each. The views point into the
  // document, which outlives the loader's work.
  struct TypeWord {
    std::string_view word;
    unsigned type = 0;
  };
  std::array<std::array<TypeWord, 4>, 2> recentTypes_{};
  std::array<unsigned, 2> nextRecentType_{};
};

// ---- values every section reads ----

template <class Fam>
typename Fam::Prefix Loader::prefix(od::value& v) {
  const std::string_view text = r_.string(v);
  typename Fam::AddrWithMask a;
  if (!Fam::AddrWithMask::parse(text, a))
    r_.fail("bad " + std::string(Fam::kName) + " prefix " + quote(text));
  const typename Fam::Prefix p = a.subnet();
  if (!(p.address() == a.address())) {
    r_.fail(quote(text) + " has host bits set; the prefix is " + p.stringValue());
  }
  return p;
}

template <class Addr>
Addr Loader::address(od::value& v, const char* what) {
  const std::string_view text = r_.string(v);
  Addr a;
  if (!Addr::parse(text, a)) r_.fail("bad " + std::string(what) + " address " + quote(text));
  return a;
}

template <class AddrWithMask>
AddrWithMask Loader::addressWithMask(od::value& v, const char* what) {
  const std::string_view text = r_.string(v);
  AddrWithMask a;
  if (!AddrWithMask::parse(text, a))
    r_.fail("bad " + std::string(what) + " address with mask " + quote(text) +
            " (expected address/length)");
  return a;
}

template <class Fam>
typename Fam::RouteType Loader::routeType(od::value& v) {
  const std::string_view word = r_.string(v);
  constexpr std::size_t f = std::is_same_v<Fam, V6> ? 1 : 0;
  for (const TypeWord& w : recentTypes_[f]) {
    if (w.word == word && !word.empty()) return static_cast<typename Fam::RouteType>(w.type);
  }
  typename Fam::RouteType type;
  if (!routeTypeWords<Fam>().find(word, type))
    r_.fail("unknown " + std::string(Fam::kName) + " route type " + quote(word));
  recentTypes_[f][nextRecentType_[f]++ % 4] = {word, static_cast<unsigned>(type)};
  return type;
}

// The IPv6 tables hold IPv6 FECs only, so "12" there can mean nothing but "ip6:12"; taking
// both spellings as one id keeps an IPv6 route and an IPv4 route over IPv6 next hops pointing
// at the same FEC whichever way the document writes it.
template <class Fam>
Brine::Fib::FecId Loader::familyFecRef(od::value& v) {
  const Brine::Fib::FecId id = fecRef(v);
  if (std::is_same_v<Fam, V6> && id.adjType() == Brine::Fib::AdjType::ipAdj)
    return Brine::Fib::FecId(Brine::Fib::AdjType::ip6Adj, id.index());
  return id;
}

}  // namespace Snapshot::loader
