#include "lib/nexthop_group/NexthopGroupHelper.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lib/nexthop_group/NexthopGroupSummaryHelper.h"
#include "platform/mox/ActivityLock.h"
#include "platform/mox/Exception.h"
#include "platform/mox/Trace.h"
#include "platform/rendr/Printer.h"
#include "platform/state/NexthopGroupSize.h"

namespace Rova {

namespace {

Mox::TraceHandle& groupTrace() {
  static Mox::TraceHandle h("CliSupport");
  return h;
}

// A listing of many groups gives the activity lock up this often.
constexpr std::uint32_t kYieldEvery = 2000;

using ConfigEntry = Routing::NexthopGroup::NexthopGroupConfigEntry;

// One entry as the listing shows it. The rows of one group are built before it prints, so
// that its columns can be as wide as its widest value and no wider.
struct EntryRow {
  std::uint16_t index = 0;
  // Written in place rather than built as a string: a large device lists a million entries.
  std::uint8_t destinationLength = 0;
  char destinationText[Plexa::IpGenAddr::kMaxTextLen];
  std::string_view destination() const { return {destinationText, destinationLength}; }
  std::string labels;
  std::optional<CounterEntry> counters;
};

std::size_t digits(std::uint64_t n) {
  std::size_t d = 1;
  while (n >= 10) {
    n /= 10;
    ++d;
  }
  return d;
}

// The column widths of one group's entry table, and the text templates made from them.
struct Columns {
  int destination = 11;  // "Destination"
  int labels = 6;        // "Labels"
  int packets = 7;       // "Packets"
  int bytes = 5;         // "Bytes"
  char header[160];
  char rule[512];
  char indexAndDestination[48];
  char labelsCell[32];
  char countCells[48];
  char noCountCells[48];

  Columns(const std::vector<EntryRow>& rows, bool counters) {
    for (const EntryRow& r : rows) {
      destination = std::max(destination, int(r.destinationLength));
      labels = std::max(labels, int(r.labels.size()));
      if (r.counters) {
        packets = std::max(packets, int(digits(r.counters->packets())));
        bytes = std::max(bytes, int(digits(r.counters->bytes())));
      }
    }
    // Labels end the line when there are no counters: no padding after them then.
    const int labelsWidth = counters ? labels : 0;
    std::snprintf(indexAndDestination, sizeof indexAndDestination, "  %%5u  %%-%ds  ", destination);
    // The last cell of a row ends its line: one printer call fewer per entry.
    std::snprintf(labelsCell, sizeof labelsCell, counters ? "%%-%ds" : "%%-%ds\n", labelsWidth);
    std::snprintf(countCells, sizeof countCells, "  %%%dllu  %%%dllu\n", packets, bytes);
    std::snprintf(noCountCells, sizeof noCountCells, "  %%%ds  %%%ds\n", packets, bytes);
    const std::string dashes(std::size_t(std::max({destination, labels, packets, bytes})), '-');
    if (counters) {
      std::snprintf(header, sizeof header, "  %5s  %-*s  %-*s  %*s  %*s\n", "Entry", destination,
                    "Destination", labels, "Labels", packets, "Packets", bytes, "Bytes");
      std::snprintf(rule, sizeof rule, "  -----  %.*s  %.*s  %.*s  %.*s\n", destination,
                    dashes.c_str(), labels, dashes.c_str(), packets, dashes.c_str(), bytes,
                    dashes.c_str());
    } else {
      std::snprintf(header, sizeof header, "  %5s  %-*s  %s\n", "Entry", destination, "Destination",
                    "Labels");
      std::snprintf(rule, sizeof rule, "  -----  %.*s  %.*s\n", destination, dashes.c_str(), labels,
                    dashes.c_str());
    }
  }
};

// The printer attributes of the listing, made once and refilled for every group and entry.
struct ListingAttrs {
  explicit ListingAttrs(unsigned f)
      : name("name", f),
        id("nexthopGroupId", f),
        type("type", f),
        size("size", f),
        ttl("ttl", f),
        source("source", f),
        programmed("programmed", f),
        index("entryIndex", f),
        destination("destination", f),
        labels("mplsLabels", f),
        counted("counterAllocated", f),
        packets("packets", f),
        bytes("bytes", f) {}
  rendr::StringAttrInfo name;
  rendr::Uint64AttrInfo id;
  rendr::StringAttrInfo type;
  rendr::UintAttrInfo size;
  rendr::UintAttrInfo ttl;
  rendr::StringAttrInfo source;
  rendr::BoolAttrInfo programmed;
  rendr::UintAttrInfo index;
  rendr::StringAttrInfo destination;
  rendr::StringAttrInfo labels;
  rendr::BoolAttrInfo counted;
  rendr::Uint64AttrInfo packets;
  rendr::Uint64AttrInfo bytes;
};

class GroupPrinter {
 public:
  GroupPrinter(NexthopGroupHelper& helper, rendr::Printer& p)
      : h_(helper),
        p_(p),
        a_(p.format()),
        limit_(helper.routingHwStatus() ? helper.routingHwStatus()->nexthopGroupMaxSize() : 0),
        counters_(helper.counterHelper() && helper.counterHelper()->counterEnabled()) {}

  void print(const Mox::String8& name, const ConfigEntry& group) {
    const std::uint64_t id = h_.nexthopGroupId(name);
    buildRows(id, group);
    if (!first_) p_.addFrills("\n");
    first_ = false;
    a_.name.setValue(name);
    p_.startDictEntry(a_.name);
    p_.addAttributes("Nexthop group %s\n", 1, a_.name.getArg());
    a_.id.setValue(id);
    a_.type.setValue(Routing::NexthopGroup::moxEnumName(group.type()));
    a_.size.setValue(Routing::NexthopGroup::getNhgSize(group, limit_));
    a_.ttl.setValue(group.ttl());
    a_.source.setValue(group.source() ? group.source().stringValue() : std::string());
    const bool inHardware = h_.programmed(name);
    a_.programmed.setValue(inHardware);
    p_.addAttributes("  Id %llu, ", 1, a_.id.getArg());
    p_.addFrills("type %s, ", nhgTypeText(group.type()));
    p_.addAttributesJson(1, a_.type.getArg());
    p_.addAttributes("size %u, TTL %u, ", 2, a_.size.getArg(), a_.ttl.getArg());
    p_.addFrills("source %s\n", group.source() ? group.source().stringValue().c_str() : "none");
    p_.addAttributesJson(2, a_.source.getArg(), a_.programmed.getArg());
    p_.addFrills("  Programmed in hardware of VRF %s: %s\n", h_.vrfName().stringValue().c_str(),
                 inHardware ? "yes" : "no");
    printEntries();
    p_.endDictEntry();
    p_.itemDone();
  }

 private:
  void buildRows(std::uint64_t id, const ConfigEntry& group) {
    // Every vector keeps its capacity: one group's rows at a time, reused.
    rows_.clear();
    indexes_.clear();
    for (const auto& [index, entry] : group.entry()) {
      EntryRow& r = rows_.emplace_back();
      r.index = index;
      r.destinationLength =
          std::uint8_t(entry.destination().write(r.destinationText) - r.destinationText);
      // A pop has no labels but is an operation all the same: it shows as "pop", not as none.
      r.labels = entry.mplsLabels().action() == Plexa::MplsLabelOperation::Action::none
                     ? std::string()
                     : entry.mplsLabels().stringValue();
      indexes_.push_back(index);
    }
    if (!counters_) return;
    // The whole group's counters in one call, so that their lookups overlap.
    counts_.resize(rows_.size());
    h_.counterHelper()->entryCounters(id, indexes_, counts_);
    for (std::size_t i = 0; i < rows_.size(); ++i)
      rows_[i].counters = counts_[i];
  }

  void printEntries() {
    const Columns cols(rows_, counters_);
    p_.startList("entries");
    if (rows_.empty()) {
      p_.addFrills("  No entries\n");
    } else {
      p_.addFrills("%s%s", cols.header, cols.rule);
    }
    for (const EntryRow& r : rows_) {
      p_.startListEntry();
      a_.index.setValue(r.index);
      a_.destination.setValue(r.destination());
      a_.labels.setValue(r.labels);
      p_.addAttributes(cols.indexAndDestination, 2, a_.index.getArg(), a_.destination.getArg());
      p_.addFrills(cols.labelsCell, r.labels.empty() ? "-" : r.labels.c_str());
      p_.addAttributesJson(1, a_.labels.getArg());
      if (counters_) {
        a_.counted.setValue(bool(r.counters));
        p_.addAttributesJson(1, a_.counted.getArg());
        if (r.counters) {
          a_.packets.setValue(r.counters->packets());
          a_.bytes.setValue(r.counters->bytes());
          p_.addAttributes(cols.countCells, 2, a_.packets.getArg(), a_.bytes.getArg());
        } else {
          p_.addFrills(cols.noCountCells, "-", "-");
        }
      }
      p_.endListEntry();
    }
    p_.endList();
  }

  NexthopGroupHelper& h_;
  rendr::Printer& p_;
  ListingAttrs a_;
  std::uint32_t limit_;
  bool counters_;
  bool first_ = true;
  std::vector<EntryRow> rows_;
  std::vector<std::uint16_t> indexes_;
  std::vector<std::optional<CounterEntry>> counts_;
};

// Calls f(name, group) for each selected group, in name order.
template <class F>
void forEachSelected(const NexthopGroupHelper& h, F&& f) {
  if (!h.nhgConfig()) return;
  const auto& groups = h.nhgConfig()->nexthopGroup();
  if (!h.nhgName().empty()) {
    const auto* group = groups.find(h.nhgName());
    if (group && *group) f(h.nhgName(), **group);
    return;
  }
  std::uint32_t walked = 0;
  for (const auto& [name, group] : groups) {
    if (++walked % kYieldEvery == 0) Mox::ActivityLock::instance().yield();
    if (group) f(name, *group);
  }
}

}  // namespace

std::uint64_t NexthopGroupHelper::nexthopGroupId(const Mox::String8& name) const {
  if (!nhgEntryStatus()) return 0;
  return nhgEntryStatus()->lookup(NexthopGroup::NexthopGroupEntryKey(name.view())).nhgId;
}

bool NexthopGroupHelper::programmed(const Mox::String8& name) const {
  if (!nhgHwStatus()) return false;
  const auto* vrf = nhgHwStatus()->vrf().find(vrfName());
  return vrf && nhgProgrammed(nhgEntryStatus().get(), vrf->get(), name);
}

void NexthopGroupHelper::processNexthopVias() {
  if (processed()) return;
  MOX_TRACE(groupTrace(), 8, "Selecting nexthop groups: ",
            nhgName().empty() ? "all" : std::string(nhgName().view()));
  std::uint32_t selected = 0;
  forEachSelected(*this, [&](const Mox::String8&, const ConfigEntry&) { ++selected; });
  if (!nhgName().empty() && selected == 0) {
    throw Mox::RangeException("Nexthop group " + Mox::shownWord(nhgName().view()) +
                              " does not exist");
  }
  nhgSelectedIs(selected);
  processedIs(true);
}

void NexthopGroupHelper::render(std::uint32_t fd, std::uint32_t fmt) {
  processNexthopVias();
  MOX_TRACE(groupTrace(), 8, "Printing all nexthop groups");
  rendr::Printer p(static_cast<int>(fd), fmt, true, false, true, 0);
  try {
    GroupPrinter groups(*this, p);
    p.startDict("nexthopGroups");
    forEachSelected(*this, [&](const Mox::String8& name, const ConfigEntry& group) {
      groups.print(name, group);
    });
    p.endDict();
    p.end();
  } catch (const rendr::sigintException& e) {
    p.reportStop(e);
    throw;
  }
}

std::uint32_t NexthopGroupHelper::clearCounters() {
  processNexthopVias();
  if (!counterHelper()) return 0;
  std::uint32_t cleared = 0;
  forEachSelected(*this, [&](const Mox::String8& name, const ConfigEntry& group) {
    const std::uint64_t id = nexthopGroupId(name);
    for (const auto& [index, entry] : group.entry()) {
      if (counterHelper()->clearCounters(id, index)) ++cleared;
    }
  });
  return cleared;
}

Mox::Ptr<NexthopGroupHelper> nexthopGroupHelperFactory(
    Mox::Ptr<Routing::NexthopGroup::Config const> nhgConfig,
    Mox::Ptr<NexthopGroup::EntryStatus const> nhgEntryStatus,
    Mox::Ptr<Routing::Hardware::NexthopGroupStatus const> nhgHwStatus,
    Mox::Ptr<Routing::Hardware::Status const> routingHwStatus,
    Mox::Ptr<NexthopGroupCounterHelper> counterHelper, Mox::String8 nhgName) {
  auto h = Mox::makePtr<NexthopGroupHelper>();
  h->nhgConfigIs(nhgConfig);
  h->nhgEntryStatusIs(nhgEntryStatus);
  h->nhgHwStatusIs(nhgHwStatus);
  h->routingHwStatusIs(routingHwStatus);
  h->counterHelperIs(counterHelper);
  h->nhgNameIs(nhgName);
  return h;
}

}  // namespace Rova
