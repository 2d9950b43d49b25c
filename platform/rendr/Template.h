#pragma once
// The printf-style templates of text output, interpreted here rather than by vsnprintf: the
// listing formats a few short conversions per row, a million rows at a time, and vsnprintf's
// setup per call costs more than the formatting itself.
//
// Handled: %s %d %i %u %x %X %c %f and %%, the flags '-', '0', '+' and ' ', a width or
// precision given as digits or '*', and the length modifiers hh h l ll z j t (l also for %f).
// Output is byte for byte what glibc's printf writes for the same template and arguments.

#include <cstdarg>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/rendr/AttrInfo.h"
#include "platform/rendr/OutputBuffer.h"

namespace rendr {

class Template;

namespace detail {
void formatAttributes(OutputBuffer& out, const Template& t, const AttrInfo* const* attrs, int n);
}  // namespace detail

// An attribute template read once and written many times: a row's template, whose text does
// not change from one row to the next, is split into its runs of text and its conversions when
// it is built, and printing it does not look for a '%' again. It prints exactly what the same
// text given to addAttributes prints.
class Template {
 public:
  explicit Template(std::string_view text);

  // Whether it prints nothing (the text ends at a NUL, as a C string would).
  bool empty() const { return source_.empty(); }

 private:
  friend void detail::formatAttributes(detail::OutputBuffer&, const Template&,
                                       const AttrInfo* const*, int);

  // A run of text, then at most one conversion: a bare "%s"/"%d"/"%u" (nothing to parse), or
  // any other, parsed from the source when it prints.
  enum class Conversion : std::uint8_t { none, bare, parsed };
  struct Piece {
    std::uint32_t textAt = 0;
    std::uint32_t textLen = 0;
    std::uint32_t conversionAt = 0;  // in source_, after the '%'
    Conversion conversion = Conversion::none;
    char bare = 0;
  };

  std::string source_;
  std::string text_;  // the runs of text, "%%" already made '%'
  std::vector<Piece> pieces_;
};

}  // namespace rendr

namespace rendr::detail {

// Whether the interpreter handles every conversion of fmt on its own.
bool templateSupported(const char* fmt);

// Writes fmt over printf arguments. A template with a conversion the interpreter does not
// handle is given whole to vsnprintf; that is decided before an argument is read.
void formatArgs(OutputBuffer& out, const char* fmt, va_list ap);

// Writes fmt over attributes, each conversion taking the next attribute (a '*' width or
// precision takes one too). "%s" prints an attribute's text, or a number's decimal form; a
// numeric conversion prints its number, and is an assertion on a string attribute; an
// attribute that is not set prints as empty text, padded to the width. Conversions that the
// interpreter does not handle (%e, %g, %o, '#', ...) are passed one by one to snprintf.
// More conversions than attributes is an assertion; unused attributes are not printed.
void formatAttributes(OutputBuffer& out, const char* fmt, const AttrInfo* const* attrs, int n);

}  // namespace rendr::detail
