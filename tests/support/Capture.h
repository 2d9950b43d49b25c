#pragma once
// What code under test writes or says: an in-memory file to hand out as a file descriptor and
// read back, standard error caught while a block runs, and the message of what a block throws.

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <string>

namespace rovatest {

// An anonymous in-memory file.
class MemoryFile {
 public:
  explicit MemoryFile(const char* name = "rova-test") : fd_(memfd_create(name, MFD_CLOEXEC)) {
    if (fd_ < 0) std::abort();
  }
  ~MemoryFile() { close(fd_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  int fd() const { return fd_; }
  // Everything written so far.
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
  // Everything written so far, and the file emptied for the next writer.
  std::string take() {
    std::string s = contents();
    if (ftruncate(fd_, 0) != 0) std::abort();
    lseek(fd_, 0, SEEK_SET);
    return s;
  }

 private:
  int fd_;
};

// What `body` writes to fd 2.
template <class F>
std::string captureStderr(F body) {
  MemoryFile capture("rova-test-stderr");
  int saved = dup(STDERR_FILENO);
  dup2(capture.fd(), STDERR_FILENO);
  body();
  dup2(saved, STDERR_FILENO);
  close(saved);
  return capture.contents();
}

// What `body` writes to the file descriptor it is given.
template <class F>
std::string writtenBy(F body) {
  MemoryFile file;
  body(file.fd());
  return file.contents();
}

// The message of the exception `body` throws; "no error" when it throws none.
template <class F>
std::string errorOf(F body) {
  try {
    body();
  } catch (const std::exception& e) {
    return e.what();
  }
  return "no error";
}

}  // namespace rovatest
