#include "lib/common/RouteAttrs.h"

#include <cstdio>
#include <cstring>

#include "lib/common/RouteTypes.h"
#include "platform/mox/Exception.h"

namespace rendr {

namespace {
// The library's attributes know only the two formats; anything else stops the command.
void requireFormat(unsigned format) {
  if (format != kFormatText && format != kFormatJson) MOX_ASSERT(0);
}
}  // namespace

void HardwareProgrammedAttrInfo::setValue(bool programmed) {
  requireFormat(format());
  storeBool(programmed, programmed ? " " : "*");
}

void KernelProgrammedAttrInfo::setValue(bool programmed) {
  requireFormat(format());
  storeBool(programmed, programmed ? " " : "%");
}

void RouteTypeAttrInfo::setValue(Routing::Fib::RouteType t) {
  requireFormat(format());
  const auto& s = Rova::routeTypeStringsLookup(t);
  storeStatic(s.word, s.code);
}

void RouteTypeAttrInfo::setValue(Routing6::Fib::RouteType t) {
  requireFormat(format());
  const auto& s = Rova::routeTypeStringsLookup(t);
  storeStatic(s.word, s.code);
}

void HostRouteTypeAttrInfo::set(char code, const char* word) {
  requireFormat(format());
  if (format() == kFormatJson) {
    storeStatic(word, word);
    return;
  }
  char* buf = textBuffer(100);
  const int n = std::snprintf(buf, 101, "%c  ", code);
  storeBuffer(static_cast<std::size_t>(n));
}

void HostRouteTypeAttrInfo::setValue(Routing::Fib::RouteType t) {
  set(Rova::hcode(t), Rova::hcodeWord(t));
}

void HostRouteTypeAttrInfo::setValue(Routing6::Fib::RouteType t) {
  set(Rova::hcode(t), Rova::hcodeWord(t));
}

void RibRouteTypeAttrInfo::setValue(Routing::RouteType t) {
  requireFormat(format());
  storeStatic(Rova::ribRouteType(t), Rova::ribRouteTypeCode(t));
}

}  // namespace rendr
