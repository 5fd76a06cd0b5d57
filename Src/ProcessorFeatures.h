// Which instructions the processor has and the kernel keeps registers for.
//
// The C library's loader knows, and is asked: the compiler's __builtin_cpu_supports brings an
// initialiser into the library that asks the processor anew at every load, which takes a virtual
// machine's trap for each question, tens of microseconds in all.
#pragma once

#if __has_include(<sys/platform/x86.h>)
#ifdef __clang__
#define _Bool bool // the C word that the header uses, which clang does not know in C++
#endif
#include <sys/platform/x86.h>
#undef _Bool
#endif

namespace VornEx::Internals {

#ifdef CPU_FEATURE_ACTIVE
inline bool HasAvx2()
{
    return CPU_FEATURE_ACTIVE(AVX2);
}
inline bool HasSsse3()
{
    return CPU_FEATURE_ACTIVE(SSSE3);
}
inline bool HasSse2()
{
    return CPU_FEATURE_ACTIVE(SSE2);
}
#else // glibc before 2.34
inline bool HasAvx2()
{
    return __builtin_cpu_supports("avx2") != 0;
}
inline bool HasSsse3()
{
    return __builtin_cpu_supports("ssse3") != 0;
}
inline bool HasSse2()
{
    return __builtin_cpu_supports("sse2") != 0;
}
#endif

} // namespace VornEx::Internals
