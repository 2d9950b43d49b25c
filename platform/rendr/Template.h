#pragma once
// The printf-style templates of text output, interpreted here rather than by vsnprintf: the
// listing formats a few short conversions per row, a million rows at a time, and vsnprintf's
// setup per call costs more than the formatting itself.
//
// Handled: %s %d %i %u %x %X %c %f and %%, the flags '-', '0', '+' and ' ', a width or
// precision given as digits or '*', and the length modifiers hh h l ll z j t (l also for %f).
// Output is byte for byte what glibc's printf writes for the same template and arguments.

#include <cstdarg>

#include "platform/rendr/AttrInfo.h"
#include "platform/rendr/OutputBuffer.h"

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
