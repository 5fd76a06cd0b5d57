// What a piece of code takes at its peak: native stack and heap.
#pragma once

#include <cstddef>
#include <functional>

namespace Bench {

struct CMemoryUse
{
    std::size_t m_Stack = 0;       // bytes below the frame that called the work
    std::size_t m_Heap = 0;        // most bytes that were allocated and not freed at one time
    std::size_t m_Allocations = 0; // calls of malloc, calloc and realloc
};

// Runs the work once on a thread whose stack was painted, counting what it allocates; an exception
// of the work comes back to the caller. The program's malloc family is replaced for that, at the
// cost of one test of a thread-local flag a call.
CMemoryUse MeasureMemory(const std::function<void()>& work);

} // namespace Bench
