#pragma once
// The running configuration as a router prints it: the lines that, fed to `configure` on an
// empty state, build this state's configuration again. docs/cli.md lists what it holds.

#include <string>
#include <string_view>
#include <vector>

namespace cli {

// The whole running configuration of the state in use, "!" between its blocks and "end"
// last. `allStaticRouteFields` writes the static routes' default preference and tag too.
std::string runningConfigText(bool allStaticRouteFields = false);
// One interface's block ("interface Ethernet1", its lines, "!"); empty when the state has no
// such interface.
std::string interfaceConfigText(std::string_view intf);

// The configured static routes as `show static-routes` writes them, one section per VRF and
// family that has a static route configuration, in VRF order.
struct StaticRouteSection {
  std::string vrf;
  std::string text;
};
std::vector<StaticRouteSection> staticRouteSections(bool allFields);

class Output;
// Writes `text` line by line: as text, as it stands; in JSON, {"lines": [...]}.
int printLines(Output& out, const std::string& text);

// The nexthop group types as configuration lines name them ("ip-in-ip"); "" for the type
// not set yet.
std::string nexthopGroupTypeWord(int type);
// The type a word names; false when it names none.
bool nexthopGroupTypeOfWord(std::string_view word, int& type);

}  // namespace cli
