// Trace lines of this module.
#pragma once

#include <vorn/Trace.h>
#include <vornex/Module.h>

namespace VornEx::Internals {

// "ENTER ..." and "LEAVE ..." at function boundaries.
template <class... Fields>
inline void TraceCall(const char* source, unsigned int line, const char* format,
                      const Fields&... fields)
{
    Vorn::Internals::Trace(VORN_MODULE_INFO_VornEx, Vorn::Internals::TraceEnterLeave, source, line,
                           format, fields...);
}

// What happens inside a function.
template <class... Fields>
inline void TraceDetail(const char* source, unsigned int line, const char* format,
                        const Fields&... fields)
{
    Vorn::Internals::Trace(VORN_MODULE_INFO_VornEx, Vorn::Internals::TraceDetail, source, line,
                           format, fields...);
}

} // namespace VornEx::Internals
