#pragma once
// Runs a piece of code with a Context whose out and err are pipes, or a whole program with its
// standard streams on pipes, and hands back both texts and the status.

#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "cli/Runner.h"

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

// Runs `program` with `args`, feeding it `input` on standard input. Its standard error must
// fit a pipe's buffer (it is read after standard output). `inChild` runs in the child just
// before the program starts, to restrict what it may do.
inline Captured runProgram(const char* program, std::vector<std::string> args,
                           const std::string& input = "",
                           const std::function<void()>& inChild = {}) {
  int in[2], out[2], err[2];
  if (::pipe(in) != 0 || ::pipe(out) != 0 || ::pipe(err) != 0) return {};
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::dup2(in[0], 0);
    ::dup2(out[1], 1);
    ::dup2(err[1], 2);
    for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]})
      ::close(fd);
    std::vector<char*> argv = {const_cast<char*>(program)};
    for (std::string& a : args)
      argv.push_back(a.data());
    argv.push_back(nullptr);
    if (inChild) inChild();
    ::execv(program, argv.data());
    ::_exit(127);
  }
  ::close(in[0]);
  ::close(out[1]);
  ::close(err[1]);
  if (::write(in[1], input.data(), input.size()) != static_cast<ssize_t>(input.size())) return {};
  ::close(in[1]);
  Captured c;
  c.out = drain(out[0]);
  c.err = drain(err[0]);
  int status = 0;
  ::waitpid(pid, &status, 0);
  c.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return c;
}

}  // namespace clitest
