#include "LateLibrary.h"

#include <dlfcn.h>

#include "Tracing.h"

namespace VornEx::Internals {

namespace {

void TraceFailure(unsigned int line)
{
    const char* const reason = dlerror();
    TraceDetail("Src/LateLibrary.cpp", line, "CLateSymbols () -> %s",
                reason != nullptr ? reason : "no reason given");
}

} // namespace

CLateSymbols::CLateSymbols(const char* library)
    : m_Library(library != nullptr ? dlopen(library, RTLD_NOW | RTLD_LOCAL) : nullptr)
{
    if (library != nullptr && m_Library == nullptr)
        TraceFailure(__LINE__);
}

void* CLateSymbols::Find(const char* name) const
{
    void* found = dlsym(RTLD_DEFAULT, name);
    if (found == nullptr)
        found = dlsym(m_Library, name);
    if (found == nullptr)
        TraceFailure(__LINE__);
    return found;
}

} // namespace VornEx::Internals
