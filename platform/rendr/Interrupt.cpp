#include "platform/rendr/Interrupt.h"

#include <signal.h>

#include <mutex>

namespace rendr {

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

// The handlers that were in place before ours, by signal number.
struct sigaction previous[NSIG];

std::atomic<int> holds{0};

void callPrevious(int sig, siginfo_t* info, void* context) {
  const struct sigaction& p = previous[sig];
  if (p.sa_flags & SA_SIGINFO) {
    if (p.sa_sigaction) p.sa_sigaction(sig, info, context);
  } else if (p.sa_handler != SIG_DFL && p.sa_handler != SIG_IGN) {
    p.sa_handler(sig);
  }
}

void onSignal(int sig, siginfo_t* info, void* context) {
  const struct sigaction& p = previous[sig];
  const bool hadDefault = !(p.sa_flags & SA_SIGINFO) && p.sa_handler == SIG_DFL;
  if (sig != SIGINT && hadDefault && holds.load(std::memory_order_relaxed) == 0) {
    // Nothing is being written that a stop should close: end the process as the signal
    // always does, so that its parent sees how it ended.
    signal(sig, SIG_DFL);
    raise(sig);
    return;
  }
  detail::pendingSignal.store(sig, std::memory_order_relaxed);
  callPrevious(sig, info, context);
}

void installOnce() {
  signal(SIGPIPE, SIG_IGN);
  for (int sig : kSignals) {
    struct sigaction current;
    if (sigaction(sig, nullptr, &current) != 0) continue;
    if (!(current.sa_flags & SA_SIGINFO) && current.sa_handler == SIG_IGN) continue;
    previous[sig] = current;
    struct sigaction sa {};
    sa.sa_sigaction = onSignal;
    sigemptyset(&sa.sa_mask);
    // Restart interrupted writes: the signal is reported at the next printer call, and the
    // bytes already handed to write() should still go out whole.
    sa.sa_flags = SA_SIGINFO | SA_RESTART;
    sigaction(sig, &sa, nullptr);
  }
}

}  // namespace

const char* sigintException::what() const noexcept {
  switch (signal_) {
    case SIGTERM:
      return "on terminate request";
    case SIGHUP:
      return "on hangup";
    default:
      return "on user interrupt";
  }
}

bool interruptPending() {
  return detail::pendingSignal.load(std::memory_order_relaxed) != 0;
}

void clearInterrupt() {
  detail::pendingSignal.store(0, std::memory_order_relaxed);
  detail::stopSignal.store(0, std::memory_order_relaxed);
}

int takeStopSignal() {
  const int pending = detail::pendingSignal.exchange(0, std::memory_order_relaxed);
  const int stopped = detail::stopSignal.exchange(0, std::memory_order_relaxed);
  return stopped ? stopped : pending;
}

void installSignalHandlers() {
  static std::once_flag once;
  std::call_once(once, installOnce);
}

StopSignalHold::StopSignalHold() {
  holds.fetch_add(1, std::memory_order_relaxed);
}

StopSignalHold::~StopSignalHold() {
  holds.fetch_sub(1, std::memory_order_relaxed);
}

}  // namespace rendr
