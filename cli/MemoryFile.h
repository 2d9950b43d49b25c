#pragma once
// A file in memory that a command writes its output or messages to, read back whole: how the
// agent runs a command on a client's behalf and hands back what it said.

#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "platform/mox/Exception.h"

namespace cli {

class MemoryFile {
 public:
  explicit MemoryFile(const char* name) : fd_(::memfd_create(name, MFD_CLOEXEC)) {
    if (fd_ < 0) throw Mox::RangeException("no memory file for the command's output");
  }
  ~MemoryFile() { ::close(fd_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  int fd() const { return fd_; }
  std::string text() const {
    std::string s;
    char buf[4096];
    ssize_t n;
    for (off_t at = 0; (n = ::pread(fd_, buf, sizeof buf, at)) > 0; at += n)
      s.append(buf, static_cast<std::size_t>(n));
    return s;
  }

 private:
  int fd_;
};

}  // namespace cli
