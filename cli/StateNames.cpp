// The device's own names for the placeholders of the command table, for TAB and '?': its VRFs,
// interfaces, nexthop groups and route prefixes.

#include <algorithm>
#include <cctype>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "cli/CommandActions.h"
#include "cli/DeviceState.h"

namespace cli {

namespace {

namespace layout = Snapshot::layout;

// Where a table holds many names (the routes), a listing of the first ones is enough: the
// user types more to narrow it.
constexpr std::size_t kMostNames = 64;

bool beginsWith(std::string_view name, std::string_view partial) {
  if (partial.size() > name.size()) return false;
  for (std::size_t i = 0; i < partial.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(name[i])) !=
        std::tolower(static_cast<unsigned char>(partial[i])))
      return false;
  }
  return true;
}

// The VRF the words before name ("... vrf red ..."), or the default VRF.
std::string vrfIn(std::span<const std::string> words) {
  for (std::size_t i = 0; i + 1 < words.size(); ++i) {
    if (words[i] == "vrf" && state().hasVrf(words[i + 1])) return words[i + 1];
  }
  return "default";
}

std::vector<std::string> vrfNames(std::span<const std::string>, std::string_view partial) {
  std::vector<std::string> names;
  for (std::string& vrf : state().vrfNames()) {
    if (beginsWith(vrf, partial)) names.push_back(std::move(vrf));
  }
  return names;
}

std::vector<std::string> intfNames(std::span<const std::string>, std::string_view partial) {
  std::set<std::string> names;
  if (auto status = layout::find(state().entities(), layout::intfStatus)) {
    for (const auto& [id, intf] : status->intfStatus()) {
      std::string name = id.stringValue();
      if (beginsWith(name, partial)) names.insert(std::move(name));
    }
  }
  if (auto config = layout::find(state().entities(), layout::intfConfig)) {
    for (const auto& [id, intf] : config->intfConfig()) {
      std::string name = id.stringValue();
      if (beginsWith(name, partial)) names.insert(std::move(name));
    }
  }
  std::vector<std::string> sorted(names.begin(), names.end());
  std::sort(sorted.begin(), sorted.end(), naturalLess);
  return sorted;
}

std::vector<std::string> groupNames(std::span<const std::string>, std::string_view partial) {
  std::vector<std::string> names;
  if (auto config = layout::find(state().entities(), layout::nhgConfig)) {
    for (const auto& [name, group] : config->nexthopGroup()) {
      std::string text = name.stringValue();
      if (beginsWith(text, partial) && isNexthopGroupName(text)) names.push_back(std::move(text));
    }
  }
  return names;
}

template <class Entity>
std::vector<std::string> prefixes(const Entity& entity, std::span<const std::string> words,
                                  std::string_view partial) {
  std::vector<std::string> names;
  // A table of routes is too long to list before the user has typed the start of one.
  if (partial.empty()) return names;
  auto routes = layout::find(state().entities(), entity, vrfIn(words));
  if (!routes) return names;
  using Prefix = std::decay_t<decltype((*routes->begin()).key())>;
  std::vector<Prefix> found;
  for (const auto& route : *routes) {
    if (beginsWith(route.key().stringValue(), partial)) found.push_back(route.key());
  }
  // In address order, as the listings are; the first ones when there are many.
  const std::size_t kept = std::min(found.size(), kMostNames);
  std::partial_sort(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(kept), found.end());
  for (std::size_t i = 0; i < kept; ++i)
    names.push_back(found[i].stringValue());
  return names;
}

}  // namespace

bool naturalLess(const std::string& a, const std::string& b) {
  std::size_t i = 0;
  std::size_t j = 0;
  while (i < a.size() && j < b.size()) {
    if (std::isdigit(static_cast<unsigned char>(a[i])) &&
        std::isdigit(static_cast<unsigned char>(b[j]))) {
      std::size_t ei = i;
      std::size_t ej = j;
      while (ei < a.size() && std::isdigit(static_cast<unsigned char>(a[ei])))
        ++ei;
      while (ej < b.size() && std::isdigit(static_cast<unsigned char>(b[ej])))
        ++ej;
      std::string_view na = std::string_view(a).substr(i, ei - i);
      std::string_view nb = std::string_view(b).substr(j, ej - j);
      while (na.size() > 1 && na[0] == '0')
        na.remove_prefix(1);
      while (nb.size() > 1 && nb[0] == '0')
        nb.remove_prefix(1);
      if (na.size() != nb.size()) return na.size() < nb.size();
      if (na != nb) return na < nb;
      i = ei;
      j = ej;
      continue;
    }
    if (a[i] != b[j]) return a[i] < b[j];
    ++i;
    ++j;
  }
  return a.size() - i < b.size() - j;
}

void addStateNames(Grammar& grammar) {
  // Without a state (the manual page and the completion script are made from the table
  // alone) there are no names to offer.
  auto ifLoaded = [](auto names) {
    return [names](std::span<const std::string> words, std::string_view partial) {
      return state().entityManager() ? names(words, partial) : std::vector<std::string>{};
    };
  };
  grammar.namesIs("NAME", ifLoaded(vrfNames));
  grammar.namesIs("INTF", ifLoaded(intfNames));
  grammar.namesIs("GROUP", ifLoaded(groupNames));
  grammar.namesIs("A.B.C.D/LEN",
                  ifLoaded([](std::span<const std::string> words, std::string_view p) {
                    return prefixes(layout::fibRoute, words, p);
                  }));
  grammar.namesIs("X:X::X/LEN",
                  ifLoaded([](std::span<const std::string> words, std::string_view p) {
                    return prefixes(layout::fib6Route, words, p);
                  }));
}

}  // namespace cli
