// The four conversions beside the C functions they are made of and std::from_chars; a failure
// beside two bare throws and catches; a trace line that is switched off beside none.
#include "Allocations.h"

#include <cerrno>
#include <charconv>
#include <cstring>

#include <vorn/Trace.h>
#include <vornex/vornex.h>

namespace {

constexpr const char* Short = "42";
constexpr const char* Long32 = "2147483647";
constexpr const char* Long64 = "9223372036854775807";

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

struct CRow
{
    const char* m_Name;
    void (*m_Run)(benchmark::State&, const char*);
    const char* m_Text;
};

const CRow Rows[] = {
    {"atoi32/short", Ours<VornEx::atoi32>, Short},
    {"strtol/short", BareC<std::strtol>, Short},
    {"from_chars_i32/short", FromChars<std::int32_t>, Short},
    {"atoi32/long", Ours<VornEx::atoi32>, Long32},
    {"strtol/long", BareC<std::strtol>, Long32},
    {"from_chars_i32/long", FromChars<std::int32_t>, Long32},
    {"atoui32/short", Ours<VornEx::atoui32>, Short},
    {"strtoul/short", BareC<std::strtoul>, Short},
    {"from_chars_u32/short", FromChars<std::uint32_t>, Short},
    {"atoui32/long", Ours<VornEx::atoui32>, Long32},
    {"strtoul/long", BareC<std::strtoul>, Long32},
    {"from_chars_u32/long", FromChars<std::uint32_t>, Long32},
    {"atoi64/short", Ours<VornEx::atoi64>, Short},
    {"strtoll/short", BareC<std::strtoll>, Short},
    {"from_chars_i64/short", FromChars<std::int64_t>, Short},
    {"atoi64/long", Ours<VornEx::atoi64>, Long64},
    {"strtoll/long", BareC<std::strtoll>, Long64},
    {"from_chars_i64/long", FromChars<std::int64_t>, Long64},
    {"atoui64/short", Ours<VornEx::atoui64>, Short},
    {"strtoull/short", BareC<std::strtoull>, Short},
    {"from_chars_u64/short", FromChars<std::uint64_t>, Short},
    {"atoui64/long", Ours<VornEx::atoui64>, Long64},
    {"strtoull/long", BareC<std::strtoull>, Long64},
    {"from_chars_u64/long", FromChars<std::uint64_t>, Long64},
};

const bool g_Registered = [] {
    for (const auto& row : Rows)
        benchmark::RegisterBenchmark(row.m_Name, row.m_Run, row.m_Text);
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
BENCHMARK(Failure);

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
BENCHMARK(TwoBareThrows);

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
BENCHMARK(CallWithoutTrace);

void CallWithTraceOff(benchmark::State& state)
{
    Measure(state, [] { Traced(7); });
}
BENCHMARK(CallWithTraceOff);

} // namespace
