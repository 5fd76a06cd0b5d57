// Strict conversion of text to integers.
//
// The whole text must be a number in range. What counts as a number is what the C library's
// strtol family takes (C11 7.22.1.4): leading white space of the locale is skipped, one sign is
// accepted, and the unsigned conversions accept a minus sign too, which negates in the unsigned
// type ("-1" gives the largest value; deliberate). Trailing characters, white space included, are
// an error. Results are the same on 32-bit and 64-bit machines.
//
// The base is 2 to 36, or 0 to take it from the text's prefix: 0x or 0X hexadecimal, a leading 0
// octal, otherwise decimal. Base 16 accepts an optional 0x. Any other base shows as "no digits".
//
// Errors, raised as `unsigned int` with one context line such as "atoi32 (12a)":
//     NumberOutOfRange (0x20050009)  the value does not fit the type
//     NotANumber       (0x2005000A)  no digits at all, or something behind the number
// Where throwing is disabled the conversions return: after NumberOutOfRange the limit of the type
// that was passed, without digits 0, with something behind the number its value.
//
// A null text counts as empty. Success allocates nothing. Any thread; errno is changed.
//
// What they do not do: no digit grouping, no fractions, no units, no locale's own digits.
#pragma once

#include <cstdint>

#include <vorn/Export.h>

namespace VornEx {

VORN_EXPORT std::int32_t atoi32(const char* text, int base);
VORN_EXPORT std::uint32_t atoui32(const char* text, int base);
VORN_EXPORT std::int64_t atoi64(const char* text, int base);
VORN_EXPORT std::uint64_t atoui64(const char* text, int base);

} // namespace VornEx
