#include <vorn/Threading.h>

#include <exception>

namespace Vorn {

std::atomic<unsigned int> Internals::CThrowStateData::m_DisableCnt{0};

namespace Threading {

namespace {

thread_local unsigned int t_DisableDepth = 0;
// Exceptions that are unwinding the thread without a raise declining for them: those around the
// call that enabled raising.
thread_local int t_Tolerated = 0;

} // namespace

CThrowDisable::CThrowDisable()
{
    ++t_DisableDepth;
    Internals::CThrowStateData::m_DisableCnt.fetch_add(1, std::memory_order_relaxed);
}

CThrowDisable::~CThrowDisable()
{
    Internals::CThrowStateData::m_DisableCnt.fetch_sub(1, std::memory_order_relaxed);
    --t_DisableDepth;
}

void CThrowState::Init()
{
    m_Depth = t_DisableDepth;
    m_Tolerated = t_Tolerated;
    m_Known = true;
}

void CThrowState::Enable()
{
    Init();
    t_DisableDepth = 0;
    t_Tolerated = std::uncaught_exceptions();
}

void CThrowState::PutBack()
{
    t_DisableDepth = m_Depth;
    t_Tolerated = m_Tolerated;
    m_Known = false;
}

bool Declines()
{
    return t_DisableDepth != 0 || std::uncaught_exceptions() > t_Tolerated;
}

} // namespace Threading
} // namespace Vorn
