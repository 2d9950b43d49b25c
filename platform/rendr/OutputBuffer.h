#pragma once
// The printer's fixed output buffer and its file descriptor. Bytes are gathered here and
// written when the buffer is full or when asked; nothing on the per-row path allocates.
//
// Write errors never throw from here: the buffer records them and the printer decides what to
// throw, when it is safe to (not in the middle of a va_list, never in a destructor).

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "platform/rendr/Copy.h"

namespace rendr::detail {

class OutputBuffer {
 public:
  static constexpr std::size_t kCapacity = 256 * 1024;

  explicit OutputBuffer(int fd);

  void append(const char* p, std::size_t n) {
    if (n <= room()) [[likely]] {
      moveBytes(buf_.get() + used_, p, n);
      used_ += n;
    } else {
      appendSlow(p, n);
    }
  }
  void put(char c) {
    if (used_ == kCapacity) [[unlikely]]
      flush();
    buf_[used_++] = c;
  }
  void fill(char c, std::size_t n);
  // Bytes that stay where they are, unchanged, until the buffer next goes out: they go out in
  // their place among the buffer's own, without a copy (one write takes both). Short ones are
  // copied.
  void appendStable(const char* p, std::size_t n);

  // At least n (at most kCapacity) writable bytes at the end of the buffer; commit() what was
  // written.
  char* reserve(std::size_t n) {
    if (n > room()) [[unlikely]]
      flush();
    return buf_.get() + used_;
  }
  void commit(std::size_t n) { used_ += n; }
  char* tail() { return buf_.get() + used_; }
  std::size_t room() const { return kCapacity - used_; }
  // What is buffered, and how many times the buffer was written out or took stable bytes:
  // bytes between two points are all here, one after another, when the count did not change.
  const char* data() const { return buf_.get(); }
  std::size_t used() const { return used_; }
  std::uint64_t breaks() const { return breaks_; }

  // Percent of the buffer in use, 0 to 100 (stable bytes take none of it).
  unsigned fullness() const { return static_cast<unsigned>(used_ * 100 / kCapacity); }

  // Writes what is buffered. After EPIPE (the reader went away) or another error, later
  // output is dropped.
  void flush();
  // The reader of the output went away.
  bool closed() const { return state_ == State::closed; }
  // A write failed for another reason; it was reported on stderr.
  bool failed() const { return state_ == State::failed; }
  bool stopped() const { return state_ != State::open; }
  // Whether the output so far ends a line (or is empty).
  bool atLineStart() const;

  // Whether any printer of this process failed to write (closed pipes excepted).
  static bool anyFailed();
  static void clearAnyFailed();

 private:
  enum class State : unsigned char { open, closed, failed };

  // The most pieces one write takes (the system's least IOV_MAX).
  static constexpr std::size_t kMaxPieces = 1024;

  void appendSlow(const char* p, std::size_t n);
  void writeAll(const char* p, std::size_t n);
  void writePieces();
  // After a write that took nothing (w <= 0): whether to try again; otherwise the output is
  // closed or failed.
  bool retryAfter(ssize_t w);

  std::unique_ptr<char[]> buf_;
  std::size_t used_ = 0;
  std::uint64_t breaks_ = 0;
  // With stable bytes pending: the output in order, the buffer's runs between them; the
  // buffer's bytes from segment_ on are not among the pieces yet.
  std::unique_ptr<iovec[]> pieces_;
  std::size_t pieceCount_ = 0;
  std::size_t segment_ = 0;
  int fd_;
  State state_ = State::open;
  char lastWritten_ = '\n';  // the last byte handed to write()
};

}  // namespace rendr::detail
