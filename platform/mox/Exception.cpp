#include "platform/mox/Exception.h"

#include "platform/mox/Trace.h"

namespace Mox {

namespace {
TraceHandle traceHandle("Mox");
}

void assertionFailed(const char* text, const char* function) {
  MOX_TRACE(traceHandle, 0, "assertion failed: ", text, " in ", function);
  throw InternalException(text, function);
}

}  // namespace Mox
