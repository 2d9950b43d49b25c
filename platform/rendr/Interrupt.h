#pragma once
// How a listing stops before its end: the user's interrupt key, a request to terminate
// (SIGTERM from a service manager, SIGHUP from a terminal that went away), the reader of the
// output going away (the pager was quit, `| head` had enough), or output that cannot be
// written (a full disk).
//
// The printer installs, once per process, handlers for SIGINT, SIGTERM and SIGHUP that only
// note the signal; the next printer call takes it and throws sigintException, so the command
// unwinds through its own code and destroys its printer normally, which closes a JSON
// document. SIGTERM and SIGHUP are noted only while something holds them (a StopSignalHold: a
// printer, or a front end running a command); otherwise they act as they always do and end
// the process. SIGPIPE is ignored: a closed pipe shows up as EPIPE from write(), and the
// printer turns that into outputClosedException.

#include <atomic>
#include <csignal>
#include <exception>

namespace rendr {

class sigintException : public std::exception {
 public:
  // `signal` is SIGINT, SIGTERM or SIGHUP; 0 when the output itself stopped the listing.
  explicit sigintException(int signal = SIGINT) : signal_(signal) {}
  // "on user interrupt", "on terminate request", "on hangup".
  const char* what() const noexcept override;
  int signal() const { return signal_; }

 private:
  int signal_;
};

// A listing that catches sigintException stops the same way when nobody reads the output.
class outputClosedException : public sigintException {
 public:
  outputClosedException() : sigintException(0) {}
  const char* what() const noexcept override { return "output closed"; }
};

// ... and when the output cannot be written; the error was reported once on stderr.
class outputFailedException : public outputClosedException {
 public:
  const char* what() const noexcept override { return "output failed"; }
};

// Whether a signal arrived that no printer call has reported yet.
bool interruptPending();
// Forgets a signal that arrived between commands, so that it does not stop the next one, and
// what stopped the last listing.
void clearInterrupt();
// The signal that stopped a listing, or that arrived without a printer call to report it,
// since the last call; 0 when none did. Clears both.
int takeStopSignal();

// Installs the signal handlers and ignores SIGPIPE; does the work once per process. Every
// printer calls it; the front end may call it earlier. A signal that was ignored before (a
// background job, nohup) stays ignored; a handler that was installed before is still called.
void installSignalHandlers();

// While one exists, SIGTERM and SIGHUP stop the listing at the next printer call instead of
// ending the process at once.
class StopSignalHold {
 public:
  StopSignalHold();
  ~StopSignalHold();
  StopSignalHold(const StopSignalHold&) = delete;
  StopSignalHold& operator=(const StopSignalHold&) = delete;
};

namespace detail {
// The signal the handler noted, 0 for none. Lock-free, so a store from the handler is safe.
inline std::atomic<int> pendingSignal{0};
static_assert(std::atomic<int>::is_always_lock_free);

// The signal a printer call took and threw for.
inline std::atomic<int> stopSignal{0};

// Returns and clears the pending signal (0 when none). Every printer call asks, so the common
// case is one relaxed load.
inline int takeInterrupt() {
  if (!pendingSignal.load(std::memory_order_relaxed)) [[likely]]
    return 0;
  const int sig = pendingSignal.exchange(0, std::memory_order_relaxed);
  if (sig) stopSignal.store(sig, std::memory_order_relaxed);
  return sig;
}
}  // namespace detail

}  // namespace rendr
