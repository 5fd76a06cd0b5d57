// Base64 text (RFC 4648, section 4): the standard alphabet, padding, no line breaks.
//
//     std::string text = VornEx::base64_encode(key, 16);
//     std::string bytes = VornEx::base64_decode(text);
//
// What it does not do: no line breaks are written or skipped, there is no URL-safe alphabet, and
// decoding tells no error. Whoever has to know whether a text was whole encodes the result again
// and compares.
//
// Any thread. Both throw std::bad_alloc or std::length_error where memory or a string's largest
// size does not do, and raise nothing.
#pragma once

#include <string>

#include <vorn/Export.h>

namespace VornEx {

// `length` bytes of data as text, "" for none; the length of the text is a multiple of four. data
// may be null when length is 0.
VORN_EXPORT std::string base64_encode(const unsigned char* data, unsigned int length);

// The bytes of a text, NUL bytes among them. Reads up to the first "=" or the first character that
// is neither a letter or digit, as isalnum(3) judges it, nor "+" nor "/"; what follows is ignored.
// Padding may be missing: two characters left over give one byte, three give two, one gives none.
// A letter of an 8-bit locale that is not in the alphabet counts as six set bits.
VORN_EXPORT std::string base64_decode(const std::string& text);

} // namespace VornEx
