#pragma once
// Errors of the framework. Range errors carry the fixed texts the value types define; an
// assertion raises InternalException so that the front end can stop the one command and go on.

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Mox {

class Exception : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A value out of its bounds, or text that does not parse into a value.
class RangeException : public Exception {
 public:
  using Exception::Exception;
};

// A collection changed under a walk that was not told: the entry the walk stood on may be
// gone, so it stops instead of reading what is no longer there.
class CollectionChangedException : public Exception {
 public:
  using Exception::Exception;
};

// The state's source went away (the agent that published it ended): what was read so far may
// already be out of date, and nothing more can be read.
class UnavailableException : public Exception {
 public:
  using Exception::Exception;
};

// A broken invariant. what() is the assertion text exactly as written in the code.
class InternalException : public Exception {
 public:
  InternalException(std::string assertion, std::string function)
      : Exception(assertion), assertion_(std::move(assertion)), function_(std::move(function)) {}
  const std::string& assertion() const { return assertion_; }
  const std::string& function() const { return function_; }

 private:
  std::string assertion_;
  std::string function_;
};

[[noreturn]] void assertionFailed(const char* text, const char* function);

// A word from outside (a typed argument, a string of a state file) as a message shows it:
// control characters (C0, DEL, C1), bytes that are not UTF-8, backslash and the quote are
// escaped (\n, \t, \r, \xHH, \\, \'), and anything past kShownBytes is cut and marked with
// "...". A message can then neither drive the user's terminal nor grow with its input.
// `quote` surrounds the word; '\0' for none.
inline constexpr std::size_t kShownBytes = 120;
std::string shownWord(std::string_view word, char quote = '\'');

}  // namespace Mox

namespace Velt {

class NoPermissionException : public Mox::Exception {
 public:
  using Mox::Exception::Exception;
};

class UnimplementedException : public Mox::Exception {
 public:
  using Mox::Exception::Exception;
};

class InvalidSizeException : public Mox::Exception {
 public:
  using Mox::Exception::Exception;
};

// A shared table found inconsistent while it was read.
class CorruptionDetectedException : public Mox::Exception {
 public:
  using Mox::Exception::Exception;
};

}  // namespace Velt

// The condition is expanded before it is turned into text (two levels of macro), so that the
// assertion text shows what the compiler saw: NULL reads as __null.
#define MOX_ASSERT(...) MOX_ASSERT_EXPANDED_(__VA_ARGS__)
#define MOX_ASSERT_EXPANDED_(...) \
  ((__VA_ARGS__) ? (void)0 : ::Mox::assertionFailed(#__VA_ARGS__, __PRETTY_FUNCTION__))
