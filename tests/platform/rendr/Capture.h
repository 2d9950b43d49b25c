#pragma once
// Test helpers: a file descriptor whose bytes can be read back, and stderr caught while a
// block runs.

#include <sys/mman.h>
#include <unistd.h>

#include <string>

namespace rendr::test {

// An anonymous in-memory file.
class Capture {
 public:
  Capture() : fd_(memfd_create("rendr-test", 0)) {}
  ~Capture() { close(fd_); }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  int fd() const { return fd_; }
  std::string contents() const {
    std::string s;
    char buf[65536];
    ssize_t n;
    off_t off = 0;
    while ((n = pread(fd_, buf, sizeof buf, off)) > 0) {
      s.append(buf, static_cast<std::size_t>(n));
      off += n;
    }
    return s;
  }

 private:
  int fd_;
};

// What `body` writes to fd 2.
template <class F>
std::string captureStderr(F body) {
  Capture capture;
  int saved = dup(STDERR_FILENO);
  dup2(capture.fd(), STDERR_FILENO);
  body();
  dup2(saved, STDERR_FILENO);
  close(saved);
  return capture.contents();
}

}  // namespace rendr::test
