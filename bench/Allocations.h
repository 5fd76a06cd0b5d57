// Counts what a benchmark allocates, and shows it as "allocs" per iteration.
//
// Replaces operator new for the program: include in one source of each.
#pragma once

#include <cstdlib>
#include <new>

#include <benchmark/benchmark.h>

inline std::size_t g_Allocations = 0;

// GCC takes the replaced pair for a mismatch where it inlines one half only.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
// NOLINTBEGIN(misc-definitions-in-headers): one source a program includes this
void* operator new(std::size_t size)
{
    ++g_Allocations;
    void* const memory = std::malloc(size != 0 ? size : 1);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}
void operator delete(void* memory) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}
// NOLINTEND(misc-definitions-in-headers)

// Runs body once an iteration.
template <class Body>
void Measure(benchmark::State& state, Body body)
{
    const std::size_t before = g_Allocations;
    for (auto _ : state)
        body();
    state.counters["allocs"] = benchmark::Counter(static_cast<double>(g_Allocations - before),
                                                  benchmark::Counter::kAvgIterations);
}
