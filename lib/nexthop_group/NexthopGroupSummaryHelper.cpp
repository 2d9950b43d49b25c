#include "lib/nexthop_group/NexthopGroupSummaryHelper.h"

#include "platform/mox/Exception.h"
#include "platform/mox/Trace.h"
#include "platform/rendr/Printer.h"
#include "platform/state/NexthopGroupSize.h"

namespace Rova {

using Routing::NexthopGroup::getNhgSize;
using Routing::NexthopGroup::NexthopGroupType;

namespace {

Mox::TraceHandle& summaryTrace() {
  static Mox::TraceHandle h("CliSupport");
  return h;
}

}  // namespace

const char* nhgTypeText(NexthopGroupType type) {
  switch (type) {
    case NexthopGroupType::ipInIp:
      return "IP in IP";
    case NexthopGroupType::gre:
      return "GRE";
    case NexthopGroupType::mpls:
      return "MPLS";
    case NexthopGroupType::ip:
      return "IP";
    case NexthopGroupType::mplsOverGre:
      return "MPLS over GRE";
    default:
      return "Invalid";
  }
}

void NexthopGroupSummaryHelper::processNexthopGroups() {
  MOX_TRACE(summaryTrace(), 8, "Counting nexthop groups of VRF ", vrfName().stringValue());
  if (!nhgConfig()) return;
  const auto& groups = nhgConfig()->nexthopGroup();
  nhgCountIs(static_cast<std::uint32_t>(groups.size()));

  Mox::Ptr<Routing::Hardware::VrfNexthopGroupStatus> programmed;
  if (nhgHwStatus()) programmed = nhgHwStatus()->vrf(vrfName());
  const std::uint32_t limit = routingHwStatus() ? routingHwStatus()->nexthopGroupMaxSize() : 0;

  for (const auto& [name, group] : groups) {
    if (!group) continue;
    nhgPerTypeInc(group->type(), 1);
    nhgPerSizeInc(getNhgSize(*group, limit), 1);
    if (!nhgProgrammed(nhgEntryStatus().get(), programmed.get(), name))
      nhgUnprogrammedCountIs(nhgUnprogrammedCount() + 1);
  }
}

bool nhgProgrammed(const NexthopGroup::EntryStatus* ids,
                   const Routing::Hardware::VrfNexthopGroupStatus* vrf, const Mox::String8& name) {
  if (!ids || !vrf) return false;
  const NexthopGroup::NexthopGroupEntryKey key(name.view());
  return ids->contains(key) && vrf->nexthopGroup().contains(ids->lookup(key).nhgId);
}

namespace {

void printSummary(const NexthopGroupSummaryHelper& s, rendr::Printer& p) {
  const unsigned f = p.format();
  rendr::IntAttrInfo total("numNexthopGroups", f);
  rendr::IntAttrInfo unprogrammed("numUnprogrammedNexthopGroups", f);
  rendr::StringAttrInfo typeKey("type", f);
  rendr::IntAttrInfo sizeKey("size", f);
  rendr::IntAttrInfo count("count", f);

  total.setValue(static_cast<std::int32_t>(s.nhgCount()));
  p.addAttributes("Number of Nexthop Groups configured: %d\n", 1, total.getArg());
  unprogrammed.setValue(static_cast<std::int32_t>(s.nhgUnprogrammedCount()));
  p.addAttributes("Number of unprogrammed Nexthop Groups: %d\n", 1, unprogrammed.getArg());

  p.startDict("numNexthopGroupsPerType");
  p.addFrills("\n%20s %12s\n-------------------- ------------\n", "Nexthop Group Type",
              "Configured");
  for (const auto& [type, n] : s.nhgPerType()) {
    typeKey.setValue(Routing::NexthopGroup::moxEnumName(type));
    count.setValue(static_cast<std::int32_t>(n));
    p.startSimpleDictEntry(typeKey);
    p.addFrills("%20s ", nhgTypeText(type));
    p.addAttributes("%12d\n", 1, count.getArg());
    p.endSimpleDictEntry();
  }
  p.addFrills("\n");
  p.endDict();

  p.startDict("numNexthopGroupsPerSize");
  p.addFrills("%20s %12s\n-------------------- ------------\n", "Nexthop Group Size", "Configured");
  for (const auto& [size, n] : s.nhgPerSize()) {
    sizeKey.setValue(static_cast<std::int32_t>(size));
    count.setValue(static_cast<std::int32_t>(n));
    p.startSimpleDictEntry(sizeKey);
    p.addFrills("%20d ", static_cast<int>(size));
    p.addAttributes("%12d\n", 1, count.getArg());
    p.endSimpleDictEntry();
  }
  p.endDict();
  p.end();
}

}  // namespace

void NexthopGroupSummaryHelper::render(std::uint32_t fd, std::uint32_t fmt) {
  rendr::Printer p(static_cast<int>(fd), fmt, true, false, true, 0);
  try {
    processNexthopGroups();
    printSummary(*this, p);
  } catch (const std::exception& e) {
    // Whatever stopped the summary is said where the user sees it, then passed on.
    p.reportFailure(e);
    throw;
  }
}

}  // namespace Rova
