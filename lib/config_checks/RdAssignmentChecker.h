#pragma once
// May this route distinguisher be given to this VRF? Several agents publish the RDs they hold,
// one Ip::RouteDistinguisherInput each, in one directory; an RD another VRF already uses is
// refused. The check runs on construction (also from text); the front end then reads
// `acceptable` and `errorMessage`.

#include <string_view>

#include "platform/mox/Attribute.h"
#include "platform/mox/Dir.h"
#include "platform/mox/Ptr.h"
#include "platform/mox/String8.h"
#include "platform/plexa/RouteDistinguisher.h"

namespace Rova {

#define ROVA_RD_ASSIGNMENT_CHECKER_ATTRS(F, C)                                                   \
  F(routeDistinguisherInputDir, RouteDistinguisherInputDir, Mox::Ptr<Mox::Dir const>,            \
    Mox::AttrKind::input, {})                                                                    \
  F(vrfName, VrfName, Mox::String8, Mox::AttrKind::input, {})                                    \
  F(routeDistinguisher, RouteDistinguisher, Plexa::RouteDistinguisher, Mox::AttrKind::input, {}) \
  F(acceptable, Acceptable, bool, Mox::AttrKind::state, {false})                                 \
  F(errorMessage, ErrorMessage, Mox::String8, Mox::AttrKind::state, {})

class RdAssignmentChecker : public Mox::Entity {
  MOX_ENTITY_TYPE(RdAssignmentChecker, "Rova::RdAssignmentChecker",
                  ROVA_RD_ASSIGNMENT_CHECKER_ATTRS)

 public:
  RdAssignmentChecker(Mox::Ptr<Mox::Dir const> routeDistinguisherInputDir, Mox::String8 vrfName,
                      Plexa::RouteDistinguisher routeDistinguisher);
  // Parses the value text form, then checks again: whatever result the text carried is
  // replaced by a fresh one. Bad text raises Mox::RangeException.
  explicit RdAssignmentChecker(std::string_view text);

  // Checks the RD against every input of the directory. A null directory counts as empty.
  // Every entry must be an Ip::RouteDistinguisherInput; anything else is a broken invariant of
  // the directory and raises Mox::InternalException.
  void handleInitialized();
};

}  // namespace Rova
