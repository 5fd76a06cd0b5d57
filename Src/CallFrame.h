// The frame that every raising function of the library stands in, written once.
//
// A function's fixed line numbers - of its raises and of its context line - are part of the
// library's behaviour; each source names them at its top.
#pragma once

#include <utility>

#include <vorn/Exceptions.h>
#include <vorn/Threading.h>

namespace VornEx::Internals {

// What a raising function's body is called with.
class CCallFrame
{
public:
    CCallFrame()
    {
        if (Vorn::Internals::CThrowStateData::m_DisableCnt.load(std::memory_order_relaxed) != 0)
            m_State.Init();
    }
    CCallFrame(const CCallFrame&) = delete;
    CCallFrame& operator=(const CCallFrame&) = delete;

    // Throws, or comes back where throwing is disabled: what follows must be safe to run.
    void Raise(unsigned int line, unsigned int code) { m_State.StartException(line).Throw(code); }

    Vorn::Exceptions::CExceptionLog Continue(Vorn::Exceptions::SOURCE_INFO& source)
    {
        return m_State.ContinueException(source);
    }

    // On every way out. No destructor, which would be one more stop for every passing error.
    void Leave() { m_State.Restore(); }

private:
    Vorn::Threading::CThrowState m_State;
};

// Runs body(frame). An error that passes through gets one line of context, the format filled with
// at most one text, and is raised again.
template <class Body, class... Text>
inline void WithContext(Vorn::Exceptions::SOURCE_INFO& source, const char* format, Body&& body,
                        const Text&... text)
{
    CCallFrame frame;
    try {
        std::forward<Body>(body)(frame);
    } catch (unsigned int) {
        auto log = frame.Continue(source);
        (log.Format(format) << ... << text);
        frame.Leave();
        log.Throw();
        return;
    } catch (...) {
        frame.Leave();
        throw;
    }
    frame.Leave();
}

// Runs body() and absorbs an error that it raises, also where throwing is disabled. True when
// there was one.
template <class Body>
inline bool Absorbs(Vorn::Exceptions::SOURCE_INFO& source, Body&& body)
{
    Vorn::Threading::CThrowState state;
    state.Enable();
    try {
        std::forward<Body>(body)();
    } catch (unsigned int) {
        state.ContinueException(source);
        state.Restore();
        return true;
    } catch (...) {
        state.Restore();
        throw;
    }
    state.Restore();
    return false;
}

// The same for a body that is a single raising call, the result of which is used only when this
// gives false: throwing is disabled around it, so that nothing has to be unwound.
template <class Body>
inline bool AbsorbsCall(Vorn::Exceptions::SOURCE_INFO& source, Body&& body)
{
    const Vorn::Threading::CThrowDisable disabled;
    const Vorn::Exceptions::CErrorRecord& record = Vorn::Exceptions::LastError();
    const unsigned int before = record.Number();
    std::forward<Body>(body)();
    if (record.Number() == before)
        return false;
    Vorn::Threading::CThrowState().ContinueException(source);
    return true;
}

} // namespace VornEx::Internals
