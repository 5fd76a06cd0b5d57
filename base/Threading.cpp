#include <vorn/Threading.h>

#include <exception>

namespace Vorn {

std::atomic<unsigned int> Internals::CThrowStateData::m_DisableCnt{0};

namespace Threading {

namespace {

thread_local unsigned int t_DisableDepth = 0;
// Whether what is raised now is caught by the library itself.
thread_local bool t_Contained = false;

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
    m_Contained = t_Contained;
    m_Known = true;
}

void CThrowState::Enable()
{
    Init();
    t_DisableDepth = 0;
    t_Contained = true;
}

void CThrowState::PutBack()
{
    t_DisableDepth = m_Depth;
    t_Contained = m_Contained;
    m_Known = false;
}

bool Declines()
{
    if (t_Contained)
        return false;
    return t_DisableDepth != 0 || std::uncaught_exceptions() != 0;
}

} // namespace Threading
} // namespace Vorn
