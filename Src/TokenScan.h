// The splitting rule of the tokenizer, on text that somebody else keeps.
#pragma once

#include <cstdint>

#include <vorn/StringRef.h>

namespace VornEx::Internals {

using DelimiterSet = std::uint32_t[8];

inline void AddDelimiter(DelimiterSet& set, char character)
{
    const auto byte = static_cast<unsigned char>(character);
    set[byte / 32U] |= std::uint32_t{1} << (byte % 32U);
}

inline bool IsDelimiter(const DelimiterSet& set, char character)
{
    const auto byte = static_cast<unsigned char>(character);
    return ((set[byte / 32U] >> (byte % 32U)) & 1U) != 0;
}

// Finds the next token at or behind `position`: true with `begin` where it starts and `position` on
// the delimiter, or the end, where it stops. One delimiter at most is stepped over.
inline bool NextToken(const char* text, std::uint32_t length, const DelimiterSet& delimiters,
                      std::uint32_t& position, std::uint32_t& begin)
{
    std::uint32_t at = position;
    if (at >= length)
        return false;
    if (IsDelimiter(delimiters, text[at]) && ++at == length) {
        position = at;
        return false;
    }
    begin = at;
    while (at < length && !IsDelimiter(delimiters, text[at]))
        ++at;
    position = at;
    return true;
}

} // namespace VornEx::Internals
