// Memory that ends: operator new and realloc, which the regex engine's arrays grow with, fail where
// g_NewFails says so. Include in one source of each program.
#pragma once

#include <dlfcn.h>

#include "Allocations.h"

// Where a sanitizer has a function of its own, that one has to be asked.
extern "C" void* __interceptor_realloc(void* memory, std::size_t size) __attribute__((weak));
// NOLINTNEXTLINE(misc-definitions-in-headers)
extern "C" void* realloc(void* memory, std::size_t size) noexcept
{
    using Function = void*(void*, std::size_t);
    static auto* const next = &__interceptor_realloc != nullptr
                                  ? &__interceptor_realloc
                                  : reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "realloc"));
    return g_NewFails != nullptr && g_NewFails() ? nullptr : next(memory, size);
}
