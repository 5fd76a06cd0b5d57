#include <regex/ElementMemory.h>

#include <algorithm>
#include <new>

namespace Vorn::Regex {

void CElementMemory::AddBlock(std::size_t bytes)
{
    // The first holds a usual pattern and is of a size that allocators keep at hand.
    constexpr std::size_t First = 1000;
    constexpr std::size_t Most = 64'000;
    constexpr std::size_t Head = (sizeof(CBlock) + Alignment - 1) / Alignment * Alignment;
    const std::size_t size =
        std::max(Head + bytes, m_Blocks == nullptr ? First : std::min(2 * m_BlockSize, Most));
    char* const storage = static_cast<char*>(::operator new(size));
    m_Blocks = new (storage) CBlock{m_Blocks};
    m_Next = storage + Head;
    m_Left = size - Head;
    m_BlockSize = size;
}

void CElementMemory::Release()
{
    while (m_Blocks != nullptr) {
        CBlock* const block = m_Blocks;
        m_Blocks = block->m_Before;
        ::operator delete(block);
    }
    m_Next = nullptr;
    m_Left = 0;
}

} // namespace Vorn::Regex
