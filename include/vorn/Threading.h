// The state that decides whether a raise throws or comes back.
#pragma once

#include <atomic>

#include <vorn/Exceptions.h>
#include <vorn/Export.h>

namespace Vorn::Internals {

struct VORN_EXPORT CThrowStateData
{
    // Guards alive in the whole process. A function that can raise reads it on entry and looks at
    // its thread's own state only when it is not 0.
    static std::atomic<unsigned int> m_DisableCnt;
};

} // namespace Vorn::Internals

namespace Vorn::Threading {

// While one lives on a thread, raises on that thread record the error and come back. May be
// nested; must die on the thread that made it.
class VORN_EXPORT CThrowDisable
{
public:
    CThrowDisable();
    ~CThrowDisable();
    CThrowDisable(const CThrowDisable&) = delete;
    CThrowDisable& operator=(const CThrowDisable&) = delete;
};

// The throw state of one call. Nothing here touches the error record.
class VORN_EXPORT CThrowState
{
public:
    // Remembers the thread's throw state: how deeply throwing is disabled.
    void Init();
    // Makes raises on this thread throw until Restore, whatever guards live and whatever exception
    // is unwinding the thread by now: for a call that catches all that it provokes. Remembers the
    // state as Init does.
    void Enable();
    // Puts back what was remembered; nothing without it.
    void Restore()
    {
        if (m_Known)
            PutBack();
    }

    // An error raised at this source line.
    Exceptions::CException StartException(unsigned int line)
    {
        return Exceptions::CException(line);
    }
    // An error that was caught and is passing through.
    Exceptions::CExceptionLog ContinueException(Exceptions::SOURCE_INFO& source)
    {
        return Exceptions::CExceptionLog(source);
    }

private:
    void PutBack();

    unsigned int m_Depth = 0;
    int m_Tolerated = 0;
    bool m_Known = false;
};

// Whether a raise on this thread would come back just now.
VORN_EXPORT bool Declines();

} // namespace Vorn::Threading
