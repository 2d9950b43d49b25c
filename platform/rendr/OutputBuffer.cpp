#include "platform/rendr/OutputBuffer.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string>

namespace rendr::detail {

namespace {

std::atomic<bool> anyWriteFailed{false};

void reportWriteError(int err) {
  std::string msg = "% Error writing output: ";
  msg += strerror(err);
  msg += '\n';
  // Straight to the descriptor: stdio's stderr may be buffered differently, and this must not
  // throw or allocate more than it has.
  ssize_t ignored = ::write(STDERR_FILENO, msg.data(), msg.size());
  (void)ignored;
}

}  // namespace

OutputBuffer::OutputBuffer(int fd)
    : buf_(std::make_unique_for_overwrite<char[]>(kCapacity)), fd_(fd) {}

void OutputBuffer::fill(char c, std::size_t n) {
  while (n) {
    if (room() == 0) flush();
    std::size_t k = std::min(n, room());
    std::memset(buf_.get() + used_, c, k);
    used_ += k;
    n -= k;
  }
}

void OutputBuffer::appendSlow(const char* p, std::size_t n) {
  // Top the buffer up first, so that output goes out in full-sized writes.
  std::size_t k = room();
  std::memcpy(buf_.get() + used_, p, k);
  used_ += k;
  p += k;
  n -= k;
  flush();
  if (n >= kCapacity) {
    if (state_ == State::open) writeAll(p, n);
    return;
  }
  std::memcpy(buf_.get(), p, n);
  used_ = n;
}

void OutputBuffer::flush() {
  ++flushes_;
  std::size_t n = used_;
  used_ = 0;
  if (state_ == State::open && n) writeAll(buf_.get(), n);
}

void OutputBuffer::writeAll(const char* p, std::size_t n) {
  if (n) lastWritten_ = p[n - 1];
  while (n) {
    ssize_t w = ::write(fd_, p, n);
    if (w > 0) {
      p += w;
      n -= static_cast<std::size_t>(w);
      continue;
    }
    int err = w < 0 ? errno : EIO;
    if (err == EINTR) continue;
    if (err == EAGAIN || err == EWOULDBLOCK) {
      // A non-blocking descriptor: wait until it takes more.
      pollfd pfd{fd_, POLLOUT, 0};
      if (::poll(&pfd, 1, -1) >= 0 || errno == EINTR) continue;
      err = errno;
    }
    if (err == EPIPE) {
      state_ = State::closed;
    } else {
      state_ = State::failed;
      anyWriteFailed.store(true, std::memory_order_relaxed);
      reportWriteError(err);
    }
    return;
  }
}

bool OutputBuffer::anyFailed() {
  return anyWriteFailed.load(std::memory_order_relaxed);
}

void OutputBuffer::clearAnyFailed() {
  anyWriteFailed.store(false, std::memory_order_relaxed);
}

}  // namespace rendr::detail
