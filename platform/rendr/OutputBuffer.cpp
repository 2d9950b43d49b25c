#include "platform/rendr/OutputBuffer.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/uio.h>
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

void OutputBuffer::appendStable(const char* p, std::size_t n) {
  // Below this a copy costs less than a piece of its own.
  constexpr std::size_t kShortest = 128;
  if (n < kShortest) {
    append(p, n);
    return;
  }
  if (!pieces_) pieces_ = std::make_unique_for_overwrite<iovec[]>(kMaxPieces);
  // Room for this run, the buffer's before it, and the buffer's after it that flush() adds.
  if (pieceCount_ + 3 > kMaxPieces) flush();
  if (used_ > segment_) pieces_[pieceCount_++] = {buf_.get() + segment_, used_ - segment_};
  pieces_[pieceCount_++] = {const_cast<char*>(p), n};
  segment_ = used_;
  ++breaks_;
}

bool OutputBuffer::atLineStart() const {
  if (used_ > segment_) return buf_[used_ - 1] == '\n';
  if (pieceCount_) {
    const iovec& last = pieces_[pieceCount_ - 1];
    return static_cast<const char*>(last.iov_base)[last.iov_len - 1] == '\n';
  }
  return lastWritten_ == '\n';
}

void OutputBuffer::flush() {
  ++breaks_;
  if (pieceCount_) {
    if (used_ > segment_) pieces_[pieceCount_++] = {buf_.get() + segment_, used_ - segment_};
    if (state_ == State::open) writePieces();
    pieceCount_ = 0;
    segment_ = 0;
    used_ = 0;
    return;
  }
  std::size_t n = used_;
  used_ = 0;
  if (state_ == State::open && n) writeAll(buf_.get(), n);
}

bool OutputBuffer::retryAfter(ssize_t w) {
  int err = w < 0 ? errno : EIO;
  if (err == EINTR) return true;
  if (err == EAGAIN || err == EWOULDBLOCK) {
    // A non-blocking descriptor: wait until it takes more.
    pollfd pfd{fd_, POLLOUT, 0};
    if (::poll(&pfd, 1, -1) >= 0 || errno == EINTR) return true;
    err = errno;
  }
  if (err == EPIPE) {
    state_ = State::closed;
  } else {
    state_ = State::failed;
    anyWriteFailed.store(true, std::memory_order_relaxed);
    reportWriteError(err);
  }
  return false;
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
    if (!retryAfter(w)) return;
  }
}

// The pieces in order, as many as one write takes; a write that takes part of a piece goes
// on from there.
void OutputBuffer::writePieces() {
  iovec* v = pieces_.get();
  std::size_t count = pieceCount_;
  const iovec& last = v[count - 1];
  lastWritten_ = static_cast<const char*>(last.iov_base)[last.iov_len - 1];
  while (count) {
    ssize_t w = ::writev(fd_, v, static_cast<int>(count));
    if (w <= 0) {
      if (!retryAfter(w)) return;
      continue;
    }
    auto done = static_cast<std::size_t>(w);
    while (count && done >= v->iov_len) {
      done -= v->iov_len;
      ++v;
      --count;
    }
    if (count) {
      v->iov_base = static_cast<char*>(v->iov_base) + done;
      v->iov_len -= done;
    }
  }
}

bool OutputBuffer::anyFailed() {
  return anyWriteFailed.load(std::memory_order_relaxed);
}

void OutputBuffer::clearAnyFailed() {
  anyWriteFailed.store(false, std::memory_order_relaxed);
}

}  // namespace rendr::detail
