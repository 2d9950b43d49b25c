#include "platform/brine/Table.h"

#include "platform/mox/Trace.h"

namespace Brine {

namespace {
Mox::TraceHandle traceHandle("Brine");
std::function<void(const std::string&, const std::string&)>& globalHook() {
  static std::function<void(const std::string&, const std::string&)> h;
  return h;
}
}  // namespace

void CorruptionReporter::corruptionDetected(const std::string& message) const {
  ++reports_;
  last_ = message;
  MOX_TRACE(traceHandle, 0, tableName(), ": ", message);
  if (globalHook()) globalHook()(tableName(), message);
}

void CorruptionReporter::globalHookIs(
    std::function<void(const std::string& table, const std::string& msg)> h) {
  globalHook() = std::move(h);
}

}  // namespace Brine
