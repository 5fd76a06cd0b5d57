// The rules of strict number conversion, computed in more bits than the result has.
#pragma once

#include <cctype>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

namespace Fuzz {

enum class EOutcome
{
    Number,
    OutOfRange,
    NotANumber
};

template <class Result>
struct CPlainNumber
{
    EOutcome m_Outcome;
    Result m_Value; // also what a declined raise leaves
};

inline int DigitValue(char character)
{
    static constexpr char Digits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    const int lower = std::tolower(static_cast<unsigned char>(character));
    const char* const found = lower != 0 ? std::strchr(Digits, lower) : nullptr;
    return found != nullptr ? static_cast<int>(found - Digits) : 99;
}

template <class Result>
CPlainNumber<Result> PlainNumber(const char* text, int base)
{
    using Limits = std::numeric_limits<Result>;
#ifdef __SIZEOF_INT128__
    __extension__ using Wide = __int128;
#else
    using Wide = std::int64_t; // for results of 32 bits
#endif

    if (base != 0 && (base < 2 || base > 36))
        return {EOutcome::NotANumber, 0};
    while (std::isspace(static_cast<unsigned char>(*text)) != 0)
        ++text;
    const bool negative = *text == '-';
    if (*text == '-' || *text == '+')
        ++text;
    const bool hexPrefix =
        text[0] == '0' && (text[1] == 'x' || text[1] == 'X') && DigitValue(text[2]) < 16;
    if (base == 0)
        base = hexPrefix ? 16 : *text == '0' ? 8 : 10;
    if (base == 16 && hexPrefix)
        text += 2;

    if (DigitValue(*text) >= base)
        return {EOutcome::NotANumber, 0};
    const Wide enough = Wide{1} << (8 * sizeof(Result) + 6);
    Wide value = 0;
    for (; DigitValue(*text) < base; ++text)
        if (value < enough)
            value = value * base + DigitValue(*text);

    if (std::is_signed_v<Result> && negative)
        value = -value;
    if (value > Limits::max())
        return {EOutcome::OutOfRange, Limits::max()};
    if (value < Limits::min())
        return {EOutcome::OutOfRange, Limits::min()};
    if (!std::is_signed_v<Result> && negative)
        value = -value; // negated in the type
    return {*text == '\0' ? EOutcome::Number : EOutcome::NotANumber, static_cast<Result>(value)};
}

} // namespace Fuzz
