#pragma once
// Commands run from scripts, through the same table as `rova COMMAND`: whole, into memory
// files, or line by line from a thread of their own.

#include <pybind11/pybind11.h>
#include <unistd.h>

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "cli/Grammar.h"
#include "cli/Runner.h"
#include "platform/mox/Exception.h"
#include "python/State.h"

namespace rovapy {

// A command's output: its text, or with `json` the parsed document. A failed command raises
// rova.CommandError (rova.InternalError for an internal error).
py::object runCommand(const PyState& s, const std::string& line, bool json);

// Configuration lines, after `opening` ("configure" or "configure session NAME"), one after
// another in configuration mode; configuration mode is left at the end. A refused line raises
// rova.CommandError with its message, naming the line ("line 2 'ip route ...': ...") when
// `nameLines`. Returns what the lines printed.
py::object configure(const PyState& s, const std::vector<std::string>& lines,
                     const std::string& opening, bool nameLines);

// The pieces LineStream runs a command with.
std::vector<std::string> commandWords(const std::string& line, bool& json);
int memoryFile(const char* name);
std::string readAll(int fd);
void startCommand();
void raiseInterrupt(int status);
[[noreturn]] void raiseCommandError(int status, std::string messages, py::object output,
                                    const std::string& text);
cli::Grammar& grammar();
bool isVerdict(const std::vector<std::string>& words, int status, const std::string& messages);

// A command's output line by line as it is written: the command runs on its own thread into
// a pipe, so no more than the pipe's buffer is held at once. Closing early (or dropping the
// iterator) closes the pipe; the command's printer then ends quietly.
class LineStream {
 public:
  LineStream(const PyState& s, const std::string& line, bool json) {
    std::vector<std::string> words = commandWords(line, json);
    lock_ = commandLock();
    s.adopt();
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
      throw Mox::RangeException(std::string("cannot make a pipe: ") + strerror(errno));
    read_ = fds[0];
    err_ = memoryFile("rova-messages");
    startCommand();
    words_ = words;
    worker_ = std::thread([this, words = std::move(words), write = fds[1]] {
      // runCommand reports every failure of the command itself; this is for the rest (no
      // memory), which must not end the interpreter from a thread of ours.
      try {
        status_ = cli::runCommand(grammar(), words, cli::Context{write, err_});
      } catch (const std::exception& e) {
        cli::Context{write, err_}.error(std::string("% Internal error: ") + e.what());
        status_ = cli::kStatusInternal;
      }
      ::close(write);
    });
  }
  ~LineStream() { close(); }
  LineStream(const LineStream&) = delete;
  LineStream& operator=(const LineStream&) = delete;

  py::str next() {
    for (;;) {
      const auto nl = buffer_.find('\n', scanned_);
      if (nl != std::string::npos) {
        // The line is read where it lies: the buffer is compacted only when more is read.
        py::str line = pyText(std::string_view(buffer_).substr(pos_, nl - pos_));
        pos_ = scanned_ = nl + 1;
        return line;
      }
      scanned_ = buffer_.size();
      if (read_ < 0 || !fill()) break;
    }
    if (pos_ < buffer_.size()) {
      py::str rest = pyText(std::string_view(buffer_).substr(pos_));
      pos_ = scanned_ = buffer_.size();
      return rest;
    }
    finish();
    throw py::stop_iteration();
  }

  void close() {
    if (read_ >= 0) {
      ::close(read_);
      read_ = -1;
    }
    if (worker_.joinable()) {
      py::gil_scoped_release release;
      worker_.join();
    }
    if (err_ >= 0) {
      ::close(err_);
      err_ = -1;
    }
    if (lock_) lock_.unlock();
  }

 private:
  // Reads more of the output; false at its end.
  bool fill() {
    char buf[65536];
    ssize_t n;
    {
      py::gil_scoped_release release;
      do {
        n = ::read(read_, buf, sizeof buf);
      } while (n < 0 && errno == EINTR);
    }
    if (n <= 0) return false;
    // What was read already goes first: the buffer holds no more than a line and a read.
    buffer_.erase(0, pos_);
    scanned_ -= pos_;
    pos_ = 0;
    buffer_.append(buf, static_cast<std::size_t>(n));
    return true;
  }

  // After the last line: a command that failed raises now, with its messages.
  void finish() {
    if (finished_) return;
    finished_ = true;
    const int errFd = err_;
    err_ = -1;
    std::string messages;
    if (worker_.joinable()) {
      py::gil_scoped_release release;
      worker_.join();
    }
    if (errFd >= 0) {
      messages = readAll(errFd);
      ::close(errFd);
    }
    close();
    raiseInterrupt(status_);
    if (status_ != cli::kStatusOk && !isVerdict(words_, status_, messages))
      raiseCommandError(status_, messages, py::none(), "");
  }

  std::unique_lock<std::mutex> lock_;
  std::vector<std::string> words_;
  std::thread worker_;
  int read_ = -1;
  int err_ = -1;
  int status_ = cli::kStatusOk;
  bool finished_ = false;
  std::string buffer_;
  std::size_t pos_ = 0;      // where the next line begins
  std::size_t scanned_ = 0;  // how far the buffer is known to hold no newline
};

}  // namespace rovapy
