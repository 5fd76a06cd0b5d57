// Shows what a benchmark allocates as "allocs" per iteration. Include in one source of each.
#pragma once

#include <benchmark/benchmark.h>

#include "../tests/Allocations.h"

// Runs body once an iteration.
template <class Body>
void Measure(benchmark::State& state, Body body)
{
    const std::size_t before = g_NewCalls;
    for (auto _ : state)
        body();
    state.counters["allocs"] = benchmark::Counter(static_cast<double>(g_NewCalls - before),
                                                  benchmark::Counter::kAvgIterations);
}
