// The four conversions beside the C functions they are made of and std::from_chars; a failure
// beside two bare throws and catches; a trace line that is switched off beside none.
#include "Allocations.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <string>

#include <vorn/Trace.h>
#include <vornex/vornex.h>

namespace {

// The least that a caller of the C function has to do to get a checked result.
template <auto Convert>
bool Bare(const char* text)
{
    errno = 0;
    char* end = nullptr;
    auto value = Convert(text, &end, 10);
    benchmark::DoNotOptimize(value);
    return errno != ERANGE && end != text && *end == '\0';
}

template <auto Convert>
void Ours(benchmark::State& state, const char* text)
{
    Measure(state, [text] {
        auto value = Convert(text, 10);
        benchmark::DoNotOptimize(value);
    });
}

template <auto Convert>
void BareC(benchmark::State& state, const char* text)
{
    Measure(state, [text] {
        bool good = Bare<Convert>(text);
        benchmark::DoNotOptimize(good);
    });
}

template <class Value>
void FromChars(benchmark::State& state, const char* text)
{
    Measure(state, [text] {
        Value value = 0;
        const auto result = std::from_chars(text, text + std::strlen(text), value);
        bool good = result.ec == std::errc() && *result.ptr == '\0';
        benchmark::DoNotOptimize(value);
        benchmark::DoNotOptimize(good);
    });
}

// The digits alone: nothing is checked, nothing can fail.
template <class Value>
[[gnu::noinline]] Value Accumulate(const char* text)
{
    Value value = 0;
    for (; *text != '\0'; ++text)
        value = value * 10 + static_cast<Value>(*text - '0');
    return value;
}

template <class Value>
void BareLoop(benchmark::State& state, const char* text)
{
    Measure(state, [text] { benchmark::DoNotOptimize(Accumulate<Value>(text)); });
}

using Run = void (*)(benchmark::State&, const char*);

struct CConversion
{
    const char* m_Name;
    Run m_Ours;
    const char* m_BareName;
    Run m_Bare;
    Run m_FromChars;
    Run m_Limit;
    const char* m_Longest;
};

constexpr const char* Long32 = "2147483647";
constexpr const char* Long64 = "9223372036854775807";

constexpr CConversion Conversions[] = {
    {"atoi32", Ours<VornEx::atoi32>, "strtol", BareC<std::strtol>, FromChars<std::int32_t>,
     BareLoop<std::uint32_t>, Long32},
    {"atoui32", Ours<VornEx::atoui32>, "strtoul", BareC<std::strtoul>, FromChars<std::uint32_t>,
     BareLoop<std::uint32_t>, Long32},
    {"atoi64", Ours<VornEx::atoi64>, "strtoll", BareC<std::strtoll>, FromChars<std::int64_t>,
     BareLoop<std::uint64_t>, Long64},
    {"atoui64", Ours<VornEx::atoui64>, "strtoull", BareC<std::strtoull>, FromChars<std::uint64_t>,
     BareLoop<std::uint64_t>, Long64},
};

const bool g_Registered = [] {
    for (const auto& conversion : Conversions)
        for (const char* const text : {"42", conversion.m_Longest}) {
            const auto add = [&](const std::string& contender, Run run) {
                const std::string workload = std::string(conversion.m_Name) + " of " + text;
                benchmark::RegisterBenchmark((workload + "/" + contender).c_str(), run, text);
            };
            add("vornex", conversion.m_Ours);
            add(conversion.m_BareName, conversion.m_Bare);
            add("std::from_chars", conversion.m_FromChars);
            add("limit: digits unchecked", conversion.m_Limit);
        }
    return true;
}();

// Raise, context, raise again, caught by the host.
void Failure(benchmark::State& state)
{
    Measure(state, [] {
        try {
            benchmark::DoNotOptimize(VornEx::atoi32("12a", 10));
        } catch (unsigned int code) {
            benchmark::DoNotOptimize(code);
        }
    });
}
BENCHMARK(Failure)->Name("a failure raised, caught, raised again/vornex");

[[gnu::noinline]] void ThrowBare(unsigned int code)
{
    throw code;
}

[[gnu::noinline]] void CatchAndThrowAgain(unsigned int code)
{
    try {
        ThrowBare(code);
    } catch (unsigned int) {
        throw;
    }
}

void TwoBareThrows(benchmark::State& state)
{
    Measure(state, [] {
        try {
            benchmark::DoNotOptimize(Bare<std::strtol>("12a"));
            CatchAndThrowAgain(VornEx::NotANumber);
        } catch (unsigned int code) {
            benchmark::DoNotOptimize(code);
        }
    });
}
BENCHMARK(TwoBareThrows)->Name("a failure raised, caught, raised again/limit: two bare throws");

[[gnu::noinline]] void Untraced(int value)
{
    benchmark::DoNotOptimize(value);
}

[[gnu::noinline]] void Traced(int value)
{
    Vorn::Internals::Trace(VornEx::VORN_MODULE_INFO_VornEx, Vorn::Internals::TraceEnterLeave,
                           "bench/Numbers.cpp", 1, "ENTER Traced (%d)", value);
    benchmark::DoNotOptimize(value);
}

void CallWithoutTrace(benchmark::State& state)
{
    Measure(state, [] { Untraced(7); });
}
BENCHMARK(CallWithoutTrace)->Name("a call with a trace line switched off/limit: without one");

void CallWithTraceOff(benchmark::State& state)
{
    Measure(state, [] { Traced(7); });
}
BENCHMARK(CallWithTraceOff)->Name("a call with a trace line switched off/vornex");

} // namespace
