#pragma once
// Route printing: the IPv4 and IPv6 route listings and their host form, in text and JSON,
// rendered from the listing model (RouteListing.h). One printer per listing; every line is a
// printer call.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lib/common/RouteAttrs.h"
#include "lib/route_listing/RouteSorter.h"
#include "platform/rendr/Printer.h"

namespace Rova {

// The via blocks a listing has printed, by FEC: every route through one FEC prints the same
// vias, lined up under its first line, so a block is printed once and replayed. A block is kept
// without the blanks its lines hang by (the printer takes them out and puts the route's back),
// so one block serves every indent, and a few thousand FECs' blocks stay in the cache. The
// printer keeps the blocks' bytes (a JSON replay then goes out without a copy); the cache finds
// them. The lookup is per route, so it is kept to one cache line where it can be: open
// addressing over the FEC with the block's place in the slot.
// Where one FEC's block is kept. The listing keeps it beside the FEC's other facts, which a
// route reads anyway, so that the route finds its block without a lookup of its own.
struct ViaBlockRef {
  std::uint32_t at = 0;  // the printer's kept run
  std::uint32_t size = 0;
  rendr::Printer::RecordedShape shape;
  bool known = false;  // the block is in the cache
};

class ViaBlockCache {
 public:
  struct Block {
    rendr::Printer::KeptRun run;
    rendr::Printer::RecordedShape shape;
  };
  Block block(const ViaBlockRef& ref) const {
    return Block{rendr::Printer::KeptRun{ref.at, ref.size}, ref.shape};
  }
  std::optional<Block> find(const CachedFec* fec) const {
    if (slots_.empty()) return {};
    for (std::size_t i = slotOf(fec);; i = (i + 1) & (slots_.size() - 1)) {
      const Slot& slot = slots_[i];
      if (!slot.fec) return {};
      if (slot.fec == fec) return Block{rendr::Printer::KeptRun{slot.at, slot.size}, slot.shape};
    }
  }
  // Notes the FEC's block, which the printer keeps as `run`.
  ViaBlockRef add(const CachedFec* fec, rendr::Printer::KeptRun run,
                  rendr::Printer::RecordedShape shape);

 private:
  struct Slot {
    const CachedFec* fec = nullptr;
    std::uint32_t at = 0;
    std::uint32_t size = 0;
    rendr::Printer::RecordedShape shape;
  };
  std::size_t slotOf(const CachedFec* fec) const {
    const auto k = (reinterpret_cast<std::uintptr_t>(fec) >> 4) * 0x9e3779b97f4a7c15ull;
    return static_cast<std::size_t>((k ^ (k >> 29)) & (slots_.size() - 1));
  }
  void insert(const Slot& slot);

  std::vector<Slot> slots_;
  std::size_t used_ = 0;
};

// The attributes of one listing, built once and set per route, and the blocks it has printed.
struct RouteAttrs {
  explicit RouteAttrs(unsigned format);

  ViaBlockCache viaBlocks;

  rendr::StringAttrInfo prefix;
  rendr::HardwareProgrammedAttrInfo hardwareProgrammed;
  rendr::KernelProgrammedAttrInfo kernelProgrammed;
  rendr::RouteTypeAttrInfo routeType;
  rendr::BoolAttrInfo directlyConnected;
  rendr::StringAttrInfo routeAction;
  rendr::IntAttrInfo preference;
  rendr::UintAttrInfo metric;
  rendr::StringAttrInfo nexthopAddr;
  rendr::StringAttrInfo interface;
  rendr::StringAttrInfo interfaceDescription;
  rendr::UintAttrInfo mplsLabel;
  rendr::StringAttrInfo labelStack;
  rendr::StringAttrInfo vtepAddr;
  rendr::UintAttrInfo vni;
  rendr::StringAttrInfo routerMac;
  rendr::StringAttrInfo viaWeight;
  rendr::StringAttrInfo viaType;
  rendr::StringAttrInfo tunnelEndPoint;
  rendr::StringAttrInfo tunnelType;
  rendr::StringAttrInfo tunnelAddressFamily;
  rendr::UintAttrInfo tunnelIndex;
  rendr::StringAttrInfo groupName;
  rendr::Uint64AttrInfo groupId;
  rendr::StringAttrInfo endpoint;
  rendr::UintAttrInfo color;

  // What every route's JSON object starts with, written with its key in one printer call:
  // the flags and the type, and for a route through vias what it is and does (not directly
  // connected, forwarded) and its preference and metric.
  rendr::Printer::EntryMembers head;
  rendr::Printer::EntryMembers viaHead;
};

// What one route line shows besides its FEC's vias.
struct RouteLine {
  std::string_view prefix;  // as text, in storage of the caller's
  bool hardwareProgrammed = true;
  bool kernelProgrammed = true;
  int preference = 0;
  std::uint32_t metric = 0;
  bool drop = false;
  std::int32_t entries = 0;             // the FEC's entries (vias and tunnel vias)
  bool connected = false;               // a connected route on its interface
  const char* connectedIntf = nullptr;  // ... and that interface
  const char* groupName = nullptr;      // a nexthop-group route: the group
  std::uint64_t groupId = 0;
  const SrTePolicy::PolicyKey* policy = nullptr;  // an SR-TE route: the policy
  ViaBlockRef* viaBlock = nullptr;  // where the FEC's via block is, kept by the listing
};

// Adds a via's MPLS label, or its whole label stack: " label 16 3000" in text; "mplsLabel"
// (one label) or "labelStack" (the stack as text, top label first) in JSON.
void maybeAddLabelStackToOutput(rendr::Printer& p, RouteAttrs& attrs, Plexa::MplsLabel label,
                                const Plexa::MplsLabelOperation& labelOperation);

// The entry layout, shared by both families: printFormatRoute4 lays out IPv4 vias and
// printFormatRoute6 IPv6 ones (an IPv4 route may have IPv6 next hops).
template <class RouteType>
void printFormatRoute4(RouteType type, const RouteLine& line, const CachedFec& fec,
                       rendr::Printer& p, RouteAttrs& attrs);
template <class RouteType>
void printFormatRoute6(RouteType type, const RouteLine& line, const CachedFec& fec,
                       rendr::Printer& p, RouteAttrs& attrs);

// Whether `prefix` is a subnet, or the address, of interface `intfName` in the sorter's VRF.
template <class Sorter>
bool isDirectlyConnected(const Sorter& s, const typename Sorter::Family::Prefix& prefix,
                         const Mox::String8& intfName);

template <class Sorter>
void formatOutput(Sorter& s, std::uint32_t fd, std::uint32_t format, rendr::Printer& p);
void formatHostRouteOutput(RouteSorter& s, std::uint32_t fd, std::uint32_t format,
                           rendr::Printer& p);
void formatHostRouteOutput(Route6Sorter& s, std::uint32_t fd, std::uint32_t format,
                           rendr::Printer& p);

}  // namespace Rova
