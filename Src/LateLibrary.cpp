#include "LateLibrary.h"

#include <dlfcn.h>

#include "Tracing.h"

namespace VornEx::Internals {

namespace {

constexpr const char* Source = "Src/LateLibrary.cpp";

} // namespace

CLateSymbols::CLateSymbols(const char* library)
    : m_Library(library != nullptr ? dlopen(library, RTLD_NOW | RTLD_LOCAL) : nullptr)
{
    if (library != nullptr && m_Library == nullptr)
        TraceDetail(Source, __LINE__, "CLateSymbols () -> %s", dlerror());
}

void* CLateSymbols::Find(const char* name) const
{
    void* found = dlsym(RTLD_DEFAULT, name);
    if (found == nullptr)
        found = dlsym(m_Library, name);
    if (found == nullptr)
        TraceDetail(Source, __LINE__, "CLateSymbols () -> %s", dlerror());
    return found;
}

} // namespace VornEx::Internals
