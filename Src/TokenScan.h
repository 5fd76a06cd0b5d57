// The splitting rule of the tokenizer, on text that somebody else keeps.
#pragma once

#include <cstdint>

namespace VornEx::Internals {

// Finds the next token at or behind `position`: true with `begin` where it starts and `position` on
// the delimiter, or the end, where it stops. One delimiter at most is stepped over.
// isDelimiter(character) is asked once for each character from `position` to where the scan stops,
// so that it may take notes of the token.
template <class IsDelimiter>
inline bool NextToken(const char* text, std::uint32_t length, std::uint32_t& position,
                      std::uint32_t& begin, IsDelimiter isDelimiter)
{
    std::uint32_t at = position;
    if (at >= length)
        return false;
    begin = at;
    if (isDelimiter(text[at++])) {
        begin = at;
        if (at == length) {
            position = at;
            return false;
        }
    }
    while (at < length && !isDelimiter(text[at]))
        ++at;
    position = at;
    return true;
}

} // namespace VornEx::Internals
