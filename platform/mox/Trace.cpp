#include "platform/mox/Trace.h"

#include <cstdio>
#include <string>

namespace Mox {

std::atomic<int> TraceHandle::level_{-1};

void TraceHandle::write(const char* function, std::string_view text) const {
  std::string line;
  line.reserve(text.size() + 64);
  line.append(source_).append(" ").append(function).append(": ").append(text).append("\n");
  std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace Mox
