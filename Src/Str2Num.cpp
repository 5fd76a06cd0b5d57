// Number conversion, and what the processor says of itself.
#include <vornex/Numbers.h>
#include <vornex/Utilities.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <type_traits>

#include <vornex/Module.h>

#include "CallFrame.h"
#include "Tracing.h"

namespace VornEx {

namespace {

constexpr const char* Source = "Src/Str2Num.cpp";
constexpr unsigned int ProcessorInfoTraceLine = 84;

// One of the four conversions: what it is made of and the lines that its errors name.
template <class ResultType, class WideType>
struct CConversion
{
    using Result = ResultType;
    WideType (*m_Convert)(const char*, char**, int);
    unsigned int m_RangeLine;
    unsigned int m_NoDigitsLine;
    unsigned int m_TrailingLine;
    const char* m_Context;
};

constexpr CConversion<std::int32_t, long> Int32 = {std::strtol, 123, 125, 127, "atoi32 (%s)"};
constexpr CConversion<std::uint32_t, unsigned long> UInt32 = {std::strtoul, 150, 152, 154,
                                                              "atoui32 (%s)"};
constexpr CConversion<std::int64_t, long long> Int64 = {std::strtoll, 181, 183, 185, "atoi64 (%s)"};
constexpr CConversion<std::uint64_t, unsigned long long> UInt64 = {std::strtoull, 212, 214, 216,
                                                                   "atoui64 (%s)"};

Vorn::Exceptions::SOURCE_INFO g_Int32Source = {{0}, Source, 130};
Vorn::Exceptions::SOURCE_INFO g_UInt32Source = {{0}, Source, 157};
Vorn::Exceptions::SOURCE_INFO g_Int64Source = {{0}, Source, 188};
Vorn::Exceptions::SOURCE_INFO g_UInt64Source = {{0}, Source, 219};

bool HasMinusSign(const char* text)
{
    // White space and signs lie below the digits; a locale's further ones are looked for.
    if (*text >= '0' && *text <= '9')
        return false;
    while (std::isspace(static_cast<unsigned char>(*text)) != 0)
        ++text;
    return *text == '-';
}

// What a machine whose C type has just the bits of Result would have converted: where the C type
// is wider, a value outside Result is a range error, and the limit that it passed is the value.
template <class Result, class Wide>
Result Fit(Wide value, [[maybe_unused]] const char* text)
{
    using Limits = std::numeric_limits<Result>;
    if constexpr (sizeof(Wide) > sizeof(Result) && std::is_signed_v<Result>) {
        if (value > Limits::max() || value < Limits::min()) {
            errno = ERANGE;
            return value < 0 ? Limits::min() : Limits::max();
        }
    } else if constexpr (sizeof(Wide) > sizeof(Result)) {
        // A minus sign negated in the wider type: the digits themselves must fit.
        const Wide digits = HasMinusSign(text) ? Wide{0} - value : value;
        if (digits > Limits::max()) {
            errno = ERANGE;
            return Limits::max();
        }
    }
    return static_cast<Result>(value);
}

// Raises what is wrong with a text: `behind` is where its number ended. Gives `result` back where
// throwing is disabled.
template <class Conversion>
[[gnu::noinline]] typename Conversion::Result
Refuse(const Conversion& conversion, Vorn::Exceptions::SOURCE_INFO& source, const char* text,
       const char* behind, bool outOfRange, typename Conversion::Result result)
{
    Internals::WithContext(
        source, conversion.m_Context,
        [&](Internals::CCallFrame& frame) {
            if (outOfRange)
                frame.Raise(conversion.m_RangeLine, NumberOutOfRange);
            else if (behind == text)
                frame.Raise(conversion.m_NoDigitsLine, NotANumber);
            else
                frame.Raise(conversion.m_TrailingLine, NotANumber);
        },
        text);
    return result;
}

// Decimal digits and nothing else, which most numbers are: what strtol would give, at a third of
// the price of its locale, signs and bases. False for all that is not so plain.
template <class Result>
bool IsPlainNumber(const char* text, Result& result)
{
    constexpr int SafeDigits = 19; // always fit 64 bits
    std::uint64_t value = 0;
    const char* at = text;
    for (; *at >= '0' && *at <= '9'; ++at) {
        const auto digit = static_cast<unsigned int>(*at - '0');
        if (at - text < SafeDigits)
            value = value * 10 + digit;
        else if (__builtin_mul_overflow(value, 10U, &value) ||
                 __builtin_add_overflow(value, digit, &value))
            return false;
    }
    if (at == text || *at != '\0' ||
        value > static_cast<std::uint64_t>(std::numeric_limits<Result>::max()))
        return false;
    result = static_cast<Result>(value);
    return true;
}

// The frame is entered only to fail: a conversion that succeeds costs no more than the C function.
template <class Conversion>
inline typename Conversion::Result Convert(const Conversion& conversion,
                                           Vorn::Exceptions::SOURCE_INFO& source, const char* text,
                                           int base)
{
    if (text == nullptr)
        text = "";
    errno = 0;
    typename Conversion::Result result = 0;
    if (base == 10 && IsPlainNumber(text, result))
        return result;
    const char* behind = text;
    {
        char* end = nullptr;
        const auto value = conversion.m_Convert(text, &end, base);
        // What the C library does with a base that does not exist is its own affair.
        const bool isBase = base == 0 || (base >= 2 && base <= 36);
        if (isBase && end != nullptr)
            behind = end;
        result = Fit<typename Conversion::Result>(value, text);
    }
    const bool outOfRange = errno == ERANGE;
    if (outOfRange || behind == text || *behind != '\0')
        return Refuse(conversion, source, text, behind, outOfRange, result);
    return result;
}

constexpr unsigned int HyperThreadingBit = 1U << 28U;

} // namespace

std::int32_t atoi32(const char* text, int base)
{
    return Convert(Int32, g_Int32Source, text, base);
}

std::uint32_t atoui32(const char* text, int base)
{
    return Convert(UInt32, g_UInt32Source, text, base);
}

std::int64_t atoi64(const char* text, int base)
{
    return Convert(Int64, g_Int64Source, text, base);
}

std::uint64_t atoui64(const char* text, int base)
{
    return Convert(UInt64, g_UInt64Source, text, base);
}

bool processorInfo(unsigned int& cores, unsigned int& logical, bool& hyperThreading)
{
    enum Register
    {
        EAX,
        EBX,
        ECX,
        EDX
    };
    unsigned int registers[4];

    cpuID(0, registers);
    const unsigned int vendorWords[3] = {registers[EBX], registers[EDX], registers[ECX]};
    char vendor[sizeof vendorWords + 1] = "";
    std::memcpy(vendor, vendorWords, sizeof vendorWords);

    cpuID(1, registers);
    const unsigned int features = registers[EDX];
    logical = cores = (registers[EBX] >> 16U) & 0xFFU;
    if (std::strcmp(vendor, "GenuineIntel") == 0) {
        cpuID(4, registers);
        cores = (registers[EAX] >> 26U) + 1;
    } else if (std::strcmp(vendor, "AuthenticAMD") == 0) {
        cpuID(0x80000008, registers);
        cores = (registers[ECX] & 0xFFU) + 1;
    }
    hyperThreading = (features & HyperThreadingBit) != 0 && cores < logical;

    Internals::TraceDetail(Source, ProcessorInfoTraceLine,
                           "processorInfo () %d Cores, %d logical CPU's, HyperThreading %s", cores,
                           logical, hyperThreading ? "true" : "false");
    return true;
}

} // namespace VornEx
