// The route listings of both families, by the route sorters.

#include "cli/CommandActions.h"

#include <chrono>
#include <string>
#include <vector>

#include "cli/DeviceState.h"
#include "cli/StateInputs.h"
#include "lib/registry/TypeRegistry.h"
#include "platform/plexa/VrfName.h"

namespace cli {

namespace {

using Rova::Value;

// The protocol words of the route listings and the route codes they select.
struct Protocol {
  const char* word;
  const char* code;
  const char* help;
};
const Protocol kProtocols[] = {
    {"connected", "C", "Connected routes"}, {"static", "S", "Static routes"},
    {"kernel", "K", "Kernel routes"},       {"ospf", "O", "OSPF routes"},
    {"ospfv3", "O3", "OSPFv3 routes"},      {"bgp", "B", "BGP routes"},
    {"isis", "I", "IS-IS routes"},          {"rip", "R", "RIP routes"},
    {"aggregate", "A", "Aggregate routes"}, {"vcs", "V", "VXLAN Control Service routes"},
    {"dhcp", "DH", "DHCP client routes"},   {"martian", "M", "Martian routes"},
};

std::string protocolCode(const std::string& word) {
  for (const auto& p : kProtocols) {
    if (word == p.word) return p.code;
  }
  return "";
}

double clockSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

std::vector<Choice> protocolChoices() {
  std::vector<Choice> choices;
  for (const auto& p : kProtocols)
    choices.push_back({p.word, p.help});
  return choices;
}

int showRoute(const Match& m, const Context& c, Output& out, bool v6) {
  const double start = m.flag("quantify") ? clockSeconds() : 0.0;
  const std::string vrf = vrfOf(m);
  if (int s = checkVrf(vrf, c); s >= 0) return s;

  // An address alone is its host prefix, and the listing says so with the address alone.
  const char* addrKey = v6 ? "X:X::X" : "A.B.C.D";
  const char* prefixKey = v6 ? "X:X::X/LEN" : "A.B.C.D/LEN";
  std::string prefix;
  bool originalMask = false;
  if (m.has(prefixKey)) {
    prefix = m.value(prefixKey);
    originalMask = true;
  } else if (m.has(addrKey)) {
    prefix = m.value(addrKey) + (v6 ? "/128" : "/32");
  }
  Value intfStatus;
  if (v6 && m.has("INTF")) {
    if (int s = checkIntf(m.value("INTF"), c); s >= 0) return s;
    intfStatus = state().intfStatus(m.value("INTF"));
  }

  const char* type = v6 ? "Rova::Route6Sorter" : "Rova::RouteSorter";
  std::vector<Rova::NamedValue> args = stateInputs(state(), registry().type(type), vrf);
  args.push_back({"prefix", Value(prefix.c_str())});
  if (m.has("INTF")) {
    args.push_back({"intfStatus", intfStatus});
    args.push_back({"intf", Value(true)});
  }
  const std::string protocol = protocolCode(m.has("PROTOCOL") ? m.value("PROTOCOL") : "");
  args.push_back({"protocol", Value(protocol.c_str())});
  args.push_back({"detail", Value(m.flag("detail"))});
  args.push_back({"longerPrefixes", Value(m.flag("longer-prefixes"))});
  args.push_back({"vrfName", Value(vrf.c_str())});
  args.push_back({"host", Value(m.flag("host"))});
  args.push_back({"fd", Value(c.out)});
  args.push_back({"quantify", Value(start)});
  args.push_back({"originalMask", Value(originalMask)});

  Value sorter = registry().constructNamed(type, args);
  const Value printArgs[] = {Value(out.fd()), Value(out.format())};
  return out.library([&] { registry().call(sorter, "printRoutes", printArgs); });
}

}  // namespace cli
