#include "lib/config_checks/RdAssignmentChecker.h"

#include <cstddef>
#include <utility>

#include "platform/mox/Exception.h"
#include "platform/mox/TextForm.h"
#include "platform/mox/Trace.h"
#include "platform/state/Ip.h"

namespace Rova {

namespace {
Mox::TraceHandle rdTrace("CliSupport");
}

RdAssignmentChecker::RdAssignmentChecker(Mox::Ptr<Mox::Dir const> routeDistinguisherInputDir,
                                         Mox::String8 vrfName,
                                         Plexa::RouteDistinguisher routeDistinguisher)
    : routeDistinguisherInputDir_(std::move(routeDistinguisherInputDir)),
      vrfName_(std::move(vrfName)),
      routeDistinguisher_(routeDistinguisher),
      acceptable_(false),
      errorMessage_() {
  handleInitialized();
}

RdAssignmentChecker::RdAssignmentChecker(std::string_view text) {
  Mox::parseWhole(text, *this);
  handleInitialized();
}

void RdAssignmentChecker::handleInitialized() {
  // Start from no answer, so that running the check again (after parsing, or after an input was
  // rewritten) never leaves the message of an earlier refusal behind.
  acceptable_ = false;
  errorMessage_ = Mox::String8();
  MOX_TRACE(rdTrace, 8, "RD ", routeDistinguisher_.stringValue(), " for VRF ", vrfName_);

  if (routeDistinguisherInputDir_) {
    for (const auto& [name, entity] : routeDistinguisherInputDir_->entries()) {
      const Mox::Ptr<Ip::RouteDistinguisherInput const> routeDistinguisherInput =
          routeDistinguisherInputDir_->entity<Ip::RouteDistinguisherInput>(name);
      MOX_ASSERT(NULL != routeDistinguisherInput);
      for (const auto& [vrf, rd] : routeDistinguisherInput->routeDistinguisher()) {
        // The same RD for the same VRF is the configuration being applied again.
        if (rd == routeDistinguisher_ && vrf != vrfName_) {
          acceptable_ = false;
          errorMessage_ = "RD " + routeDistinguisher_.stringValue() + " already in use by VRF " +
                          vrf.stringValue();
          MOX_TRACE(rdTrace, 5, errorMessage_, " (input ", name, ")");
          return;
        }
      }
    }
  }
  acceptable_ = true;
}

}  // namespace Rova
