// Replaces operator new for the program, in all forms: counts, and lets requests fail where asked.
// Include in one source of each program.
#pragma once

#include <cstdlib>
#include <new>

inline std::size_t g_NewCalls = 0; // requests so far
inline long g_LiveBlocks = 0;      // what was had and not given back
// Where one is set: whether the next request fails.
inline bool (*g_NewFails)() = nullptr;

// GCC takes the replaced pair for a mismatch where it inlines one half only.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
// NOLINTBEGIN(misc-definitions-in-headers): one source a program includes this
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept
{
    ++g_NewCalls;
    const bool fails = g_NewFails != nullptr && g_NewFails();
    void* const memory = fails ? nullptr : std::malloc(size != 0 ? size : 1);
    g_LiveBlocks += memory != nullptr ? 1 : 0;
    return memory;
}
void* operator new(std::size_t size)
{
    void* const memory = operator new(size, std::nothrow);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}
void* operator new[](std::size_t size)
{
    return operator new(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept
{
    return operator new(size, tag);
}
void operator delete(void* memory) noexcept
{
    g_LiveBlocks -= memory != nullptr ? 1 : 0;
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    operator delete(memory);
}
void operator delete[](void* memory) noexcept
{
    operator delete(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept
{
    operator delete(memory);
}
// NOLINTEND(misc-definitions-in-headers)
