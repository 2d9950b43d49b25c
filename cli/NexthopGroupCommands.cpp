// The nexthop groups: the summary, the listing and its entry counters.

#include "cli/CommandActions.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "cli/DeviceState.h"
#include "cli/StateInputs.h"
#include "lib/registry/TypeRegistry.h"
#include "platform/plexa/VrfName.h"

namespace cli {

namespace {

using Rova::Value;

// The state inputs a nexthop-group object takes, by name, from the one table of them.
std::vector<Rova::NamedValue> nexthopGroupStateInputs(const char* type) {
  return stateInputs(state(), registry().type(type), L3::VrfName::kDefault);
}

// The entry counters, from the counter tables of the state; the device counts every entry
// that has a counter allocated.
Value nexthopGroupCounters() {
  Value counters = registry().construct("Rova::NexthopGroupCounterHelper", {});
  const Value mountArgs[] = {state().entityManagerValue()};
  registry().call(counters, "mountCounterBrines", mountArgs);
  registry().attributeIs(counters, "counterEnabled", Value(true));
  return counters;
}

Value nexthopGroupListing(const Match& m, const std::string& vrf) {
  std::vector<Rova::NamedValue> args = nexthopGroupStateInputs("Rova::NexthopGroupHelper");
  args.push_back({"counterHelper", nexthopGroupCounters()});
  args.push_back({"nhgName", Value(m.value("GROUP").c_str())});
  Value listing = registry().constructNamed("Rova::NexthopGroupHelper", args);
  registry().attributeIs(listing, "vrfName", Value(vrf.c_str()));
  // Selecting first: an unknown group is refused before any output.
  registry().call(listing, "processNexthopVias", {});
  return listing;
}

// A group object's render(fd, fmt), on the command's output.
int render(Output& out, Value& object) {
  const Value args[] = {Value(out.fd()), Value(out.format())};
  return out.library([&] { registry().call(object, "render", args); });
}

}  // namespace

bool isNexthopGroupName(std::string_view w) {
  // The words that may follow the group's place are keywords there, not group names.
  for (std::string_view keyword : {"summary", "vrf", "counters"}) {
    if (keyword.substr(0, w.size()) == w) return false;
  }
  return !w.empty() && w.size() <= 128;
}

int showNexthopGroupSummary(const Match& m, const Context& c, Output& out) {
  const std::string vrf = vrfOf(m);
  if (int s = checkVrf(vrf, c); s >= 0) return s;
  const std::vector<Rova::NamedValue> args =
      nexthopGroupStateInputs("Rova::NexthopGroupSummaryHelper");
  Value summary = registry().constructNamed("Rova::NexthopGroupSummaryHelper", args);
  registry().attributeIs(summary, "vrfName", Value(vrf.c_str()));
  return render(out, summary);
}

int showNexthopGroups(const Match& m, const Context& c, Output& out) {
  const std::string vrf = vrfOf(m);
  if (int s = checkVrf(vrf, c); s >= 0) return s;
  Value listing = nexthopGroupListing(m, vrf);
  return render(out, listing);
}

int clearNexthopGroupCounters(const Match& m, const Context&, Output& out) {
  Value listing = nexthopGroupListing(m, L3::VrfName::kDefault);
  const Value cleared = registry().call(listing, "clearCounters", {});
  state().changed();
  std::uint64_t entries = 0;
  if (const auto* u = std::get_if<std::uint64_t>(&cleared.variant())) entries = *u;
  if (const auto* i = std::get_if<std::int64_t>(&cleared.variant())) entries = std::uint64_t(*i);
  const std::string group = m.value("GROUP");
  // What was cleared, as `clear static-routes` says it: the entries whose counters start from
  // zero, of the group named or of every group.
  return out.print([&](rendr::Printer& p) {
    rendr::UintAttrInfo count("entriesCleared", p.format());
    count.setValue(entries);
    const char* noun = entries == 1 ? "entry" : "entries";
    if (group.empty()) {
      const std::string text =
          std::string("Cleared the counters of %u ") + noun + " of every nexthop group\n";
      p.addAttributes(text.c_str(), 1, count.getArg());
      return;
    }
    rendr::StringAttrInfo name("nexthopGroup", p.format());
    name.setValue(group);
    const std::string text = std::string("Cleared the counters of %u ") + noun + " of %s\n";
    p.addAttributes(text.c_str(), 2, count.getArg(), name.getArg());
  });
}

}  // namespace cli
