#pragma once
// Trace messages for maintainers. Silent unless enabled (rova --trace, or traceEnabledIs);
// trace text goes to stderr and is never command output.

#include <atomic>
#include <sstream>
#include <string_view>

namespace Mox {

class TraceHandle {
 public:
  explicit TraceHandle(const char* source) : source_(source) {}
  const char* source() const { return source_; }
  // Level 0 is the most important; a message is written when its level is at most the
  // process's trace level.
  static bool enabled(int level) { return level <= level_.load(std::memory_order_relaxed); }
  static void levelIs(int level) { level_.store(level, std::memory_order_relaxed); }
  void write(const char* function, std::string_view text) const;

 private:
  const char* source_;
  static std::atomic<int> level_;
};

template <class... Args>
std::string traceText(const Args&... args) {
  std::ostringstream os;
  (os << ... << args);
  return os.str();
}

}  // namespace Mox

#define MOX_TRACE(handle, level, ...)                          \
  do {                                                         \
    if (::Mox::TraceHandle::enabled(level)) {                  \
      (handle).write(__func__, ::Mox::traceText(__VA_ARGS__)); \
    }                                                          \
  } while (0)
