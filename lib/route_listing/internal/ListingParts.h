// What the route listing's files share: the banners, the indent run, the family helpers and
// the FEC columns. Not for users of the listing: they include RouteSorter.h.

#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

#include "lib/route_listing/RouteSorter.h"
#include "lib/route_listing/internal/RoutePrinter.h"
#include "platform/rendr/Printer.h"

namespace Rova::listing {

inline constexpr const char* kSeparator =
    "======================================================\n";
inline constexpr const char* kHardwareWarning =
    "WARNING: Some of the routes are not programmed in     \n"
    "hardware, and they are marked with '*'.               \n";
inline constexpr const char* kKernelWarning =
    "WARNING: Some of the routes are not programmed in     \n"
    "kernel, and they are marked with '%'.                 \n";

// Continuation lines line up under the first via; the indent is a suffix of this run of blanks.
inline constexpr std::size_t kMaxIndent = 255;
inline const char* blanks(std::size_t n) {
  static const std::string run(kMaxIndent, ' ');
  return run.c_str() + kMaxIndent - std::min(n, kMaxIndent);
}

inline std::size_t decimalDigits(std::uint64_t v) {
  std::size_t n = 1;
  while (v >= 10) {
    v /= 10;
    ++n;
  }
  return n;
}

inline double steadySeconds() {
  return sorterClockSeconds();
}

// The routes not programmed in hardware in this sorter's family.
inline std::uint32_t unprogrammedInHardware(const RouteSorter& s) {
  return s.routingHwStatus() ? s.routingHwStatus()->unprogrammedRouteCount() : 0;
}
inline std::uint32_t unprogrammedInHardware(const Route6Sorter& s) {
  return s.routingHwStatus() ? s.routingHwStatus()->unprogrammedRoute6Count() : 0;
}

// The "quantify" lines that close a listing.
template <class Sorter>
void addTimingLines(const Sorter& s, double start, rendr::Printer& p) {
  if (s.quantify() == 0) return;
  rendr::DoubleAttrInfo rsTime("rsTime", p.format());
  rendr::DoubleAttrInfo quantify("quantify", p.format());
  rsTime.setValue(steadySeconds() - start);
  quantify.setValue(s.stats().creationSeconds);
  p.addAttributes("Time taken for the routes to be printed: %f seconds.\n", 1, rsTime.getArg());
  p.addAttributes("Time taken to create the routeSorter: %f seconds.\n", 1, quantify.getArg());
}

// Fills the FEC's per-entry columns the first time a route that uses it is printed.
template <class Sorter>
void prepareFec(const Sorter& s, const Mox::Ptr<CachedFec>& fec);

}  // namespace Rova::listing
