// Which instructions of x86 the processor has and the system lets programs use. Any thread, at any
// time; a look into memory.
//
// The C library has found out at its own start, and is asked where it tells (glibc 2.33). The
// compiler's runtime would ask the processor anew in a constructor before main, at microseconds a
// question where a hypervisor answers.
#pragma once

#if __has_include(<sys/platform/x86.h>)
#ifdef __clang__
#define _Bool bool // the C word that the header uses, which clang does not know in C++
#endif
#include <sys/platform/x86.h>
#undef _Bool
#define VORNEX_PROCESSOR_HAS(theirs, compilers) CPU_FEATURE_ACTIVE(theirs)
#else
#define VORNEX_PROCESSOR_HAS(theirs, compilers) (__builtin_cpu_supports(compilers) != 0)
#endif

namespace VornEx::Internals {

inline bool HasSse2()
{
    return VORNEX_PROCESSOR_HAS(SSE2, "sse2");
}

inline bool HasSsse3()
{
    return VORNEX_PROCESSOR_HAS(SSSE3, "ssse3");
}

inline bool HasAvx2()
{
    return VORNEX_PROCESSOR_HAS(AVX2, "avx2");
}

} // namespace VornEx::Internals

#undef VORNEX_PROCESSOR_HAS
