// The configuration checks: may an address, a next hop, a route distinguisher be configured?
// Each prints the check's verdict and leaves with 0 (acceptable) or 1.

#include "cli/CommandActions.h"

#include <string>
#include <string_view>

#include "cli/DeviceState.h"
#include "lib/registry/TypeRegistry.h"
#include "snapshot/StateLayout.h"

namespace cli {

namespace {

namespace layout = Snapshot::layout;
using Rova::Value;

// Prints a check's answer: "acceptable", or the refusal; exit status 0 or 1.
int printVerdict(Output& out, bool acceptable, const std::string& msg, const char* msgKey = "msg") {
  const int printed = out.print([&](rendr::Printer& p) {
    rendr::BoolAttrInfo ok("acceptable", p.format());
    rendr::StringAttrInfo text(msgKey, p.format());
    ok.setValue(acceptable);
    text.setValue(msg);
    p.addAttributesJson(2, ok.getArg(), text.getArg());
    p.addFrills("%s\n", acceptable ? "acceptable" : msg.c_str());
  });
  if (printed != kStatusOk) return printed;
  return acceptable ? kStatusOk : kStatusFailed;
}

const char* matchType(std::string_view word, const char* fallback) {
  if (word == "none") return "allowNoMatch";
  if (word == "exact") return "allowExactMatch";
  if (word == "address") return "allowAddressMatch";
  return fallback;
}

int checkResult(Output& out, const Value& params, const char* checker) {
  Value check = registry().construct(checker, {});
  const Value args[] = {params};
  const Value result = registry().call(check, "check", args);
  return printVerdict(out, registry().attribute(result, "acceptable").get<bool>(),
                      registry().attribute(result, "msg").displayText());
}

}  // namespace

// An interface the state does not have is one about to be created, as `interface INTF` in
// configuration mode creates it: it is in the default VRF and is checked against its
// interfaces.
int checkIpAddress(const Match& m, const Context&, Output& out) {
  const Value args[] = {
      state().at(layout::ipConfig),
      Value(m.value("INTF").c_str()),
      Value(m.has("TEXT") ? m.value("TEXT").c_str() : "Management"),
      Value(matchType(m.after("primary-match"), "allowExactMatch")),
      Value(matchType(m.after("secondary-match"), "allowNoMatch")),
      Value(m.value("A.B.C.D/LEN").c_str()),
  };
  return checkResult(out, registry().construct("Rova::AddressQueryParams", args),
                     "Rova::AddressAssignmentChecker");
}

int checkIp6Address(const Match& m, const Context&, Output& out) {
  const Value args[] = {
      state().at(layout::ip6Config),
      Value(m.value("INTF").c_str()),
      Value(m.has("TEXT") ? m.value("TEXT").c_str() : "Management"),
      Value(m.value("X:X::X/LEN").c_str()),
  };
  return checkResult(out, registry().construct("Rova::Address6QueryParams", args),
                     "Rova::Address6AssignmentChecker");
}

int checkNexthop(const Match& m, const Context& c, Output& out, bool v6) {
  const std::string vrf = vrfOf(m);
  if (int s = checkVrf(vrf, c); s >= 0) return s;
  const std::string nexthop = m.value(v6 ? "X:X::X" : "A.B.C.D");
  Value checker =
      registry().construct(v6 ? "Rova::InvalidNextHop6Checker" : "Rova::InvalidNextHopChecker", {});
  const Value args[] = {v6 ? state().at(layout::ip6Config) : state().at(layout::ipConfig),
                        Value(nexthop.c_str()), Value(vrf.c_str())};
  const bool invalid = registry().call(checker, "check", args).get<bool>();
  return printVerdict(out, !invalid,
                      invalid
                          ? "Next hop " + nexthop + " is an address of this router in VRF " + vrf
                          : std::string());
}

int checkRd(const Match& m, const Context&, Output& out) {
  const Value args[] = {state().at(layout::rdInputDir), Value(m.value("NAME").c_str()),
                        Value(m.value("RD").c_str())};
  const Value checker = registry().construct("Rova::RdAssignmentChecker", args);
  return printVerdict(out, registry().attribute(checker, "acceptable").get<bool>(),
                      registry().attribute(checker, "errorMessage").displayText(), "errorMessage");
}

}  // namespace cli
