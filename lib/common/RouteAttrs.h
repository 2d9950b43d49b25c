#pragma once
// The listing's own printer attributes: each shows a code or a mark in text and a word or a
// boolean in JSON, from one setValue.

#include "platform/brine/RouteType.h"
#include "platform/rendr/AttrInfo.h"

namespace rendr {

// Text: " " when the route is programmed in hardware, "*" when it is not. JSON: the boolean.
class HardwareProgrammedAttrInfo : public BoolAttrInfo {
 public:
  using BoolAttrInfo::BoolAttrInfo;
  void setValue(bool programmed);
};

// Text: " " when the route is programmed in the kernel, "%" when it is not. JSON: the boolean.
class KernelProgrammedAttrInfo : public BoolAttrInfo {
 public:
  using BoolAttrInfo::BoolAttrInfo;
  void setValue(bool programmed);
};

// A forwarding route type. Text: its code ("O IA"); JSON: its word ("ospfInterArea").
class RouteTypeAttrInfo : public StringAttrInfo {
 public:
  using StringAttrInfo::StringAttrInfo;
  void setValue(Routing::Fib::RouteType t);
  void setValue(Routing6::Fib::RouteType t);
};

// The host listing's route type. Text: the host code and two blanks ("F  "); JSON: the host
// word ("FIB").
class HostRouteTypeAttrInfo : public StringAttrInfo {
 public:
  using StringAttrInfo::StringAttrInfo;
  void setValue(Routing::Fib::RouteType t);
  void setValue(Routing6::Fib::RouteType t);

 private:
  void set(char code, const char* word);
};

// A RIB route type. Text: "F", "D" or "NG"; JSON: "forward", "drop" or "nexthopGroup".
class RibRouteTypeAttrInfo : public StringAttrInfo {
 public:
  using StringAttrInfo::StringAttrInfo;
  void setValue(Routing::RouteType t);
};

}  // namespace rendr
