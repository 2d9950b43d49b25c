#include "platform/rendr/Interrupt.h"

#include <signal.h>

#include <mutex>

namespace rendr {

namespace {

struct sigaction previousSigint;

void onSigint(int sig, siginfo_t* info, void* context) {
  detail::interruptFlag.store(true, std::memory_order_relaxed);
  if (previousSigint.sa_flags & SA_SIGINFO) {
    if (previousSigint.sa_sigaction) previousSigint.sa_sigaction(sig, info, context);
  } else if (previousSigint.sa_handler != SIG_DFL && previousSigint.sa_handler != SIG_IGN) {
    previousSigint.sa_handler(sig);
  }
}

void installOnce() {
  signal(SIGPIPE, SIG_IGN);

  struct sigaction current;
  if (sigaction(SIGINT, nullptr, &current) != 0) return;
  if (!(current.sa_flags & SA_SIGINFO) && current.sa_handler == SIG_IGN) return;
  previousSigint = current;
  struct sigaction sa {};
  sa.sa_sigaction = onSigint;
  sigemptyset(&sa.sa_mask);
  // Restart interrupted writes: the interrupt is reported at the next printer call, and the
  // bytes already handed to write() should still go out whole.
  sa.sa_flags = SA_SIGINFO | SA_RESTART;
  sigaction(SIGINT, &sa, nullptr);
}

}  // namespace

bool interruptPending() {
  return detail::interruptFlag.load(std::memory_order_relaxed);
}

void clearInterrupt() {
  detail::interruptFlag.store(false, std::memory_order_relaxed);
}

void installSignalHandlers() {
  static std::once_flag once;
  std::call_once(once, installOnce);
}

}  // namespace rendr
