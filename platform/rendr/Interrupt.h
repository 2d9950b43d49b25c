#pragma once
// How a listing stops before its end: the user's interrupt key, or the reader of the output
// going away (the pager was quit, `| head` had enough).
//
// The printer installs, once per process, a SIGINT handler that only raises a flag; the next
// printer call clears the flag and throws sigintException, so the command unwinds through its
// own code and destroys its printer normally. SIGPIPE is ignored for the same reason: a closed
// pipe shows up as EPIPE from write(), and the printer turns that into outputClosedException.

#include <atomic>
#include <exception>

namespace rendr {

class sigintException : public std::exception {
 public:
  const char* what() const noexcept override { return "on user interrupt"; }
};

// A listing that catches sigintException stops the same way when nobody reads the output.
class outputClosedException : public sigintException {
 public:
  const char* what() const noexcept override { return "output closed"; }
};

// Whether an interrupt arrived that no printer call has reported yet.
bool interruptPending();
// Forgets an interrupt that arrived between commands, so that it does not stop the next one.
void clearInterrupt();

// Installs the SIGINT handler and ignores SIGPIPE; does the work once per process. Every
// printer calls it; the front end may call it earlier. When SIGINT was ignored before (a
// background job), it stays ignored; a handler that was installed before is still called.
void installSignalHandlers();

namespace detail {
// Set by the SIGINT handler. Lock-free, so a store from the handler is safe.
inline std::atomic<bool> interruptFlag{false};
static_assert(std::atomic<bool>::is_always_lock_free);

// Clears the flag and returns true when an interrupt is pending. Every printer call asks, so
// the common case is one relaxed load.
inline bool takeInterrupt() {
  if (!interruptFlag.load(std::memory_order_relaxed)) return false;
  return interruptFlag.exchange(false, std::memory_order_relaxed);
}
}  // namespace detail

}  // namespace rendr
