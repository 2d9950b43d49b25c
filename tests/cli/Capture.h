#pragma once
// Runs a piece of code with a Context whose out and err are pipes, and hands back both texts.

#include <unistd.h>

#include <string>
#include <utility>

#include "cli/Command.h"

namespace clitest {

struct Captured {
  int status = -1;
  std::string out;
  std::string err;
};

inline std::string drain(int fd) {
  std::string text;
  char buffer[4096];
  ssize_t n;
  while ((n = ::read(fd, buffer, sizeof buffer)) > 0)
    text.append(buffer, static_cast<size_t>(n));
  ::close(fd);
  return text;
}

// `body` gets the context and returns a status; its output must fit a pipe's buffer.
template <class Body>
Captured capture(Body&& body) {
  int out[2], err[2];
  if (::pipe(out) != 0 || ::pipe(err) != 0) return {};
  Captured c;
  c.status = std::forward<Body>(body)(cli::Context{out[1], err[1]});
  ::close(out[1]);
  ::close(err[1]);
  c.out = drain(out[0]);
  c.err = drain(err[0]);
  return c;
}

}  // namespace clitest
