// Memory for the elements of one pattern.
#pragma once

#include <cstddef>

#include <regex/Export.h>

namespace Vorn::Regex {

// Hands out pieces of a few blocks and takes them back all at once. Pieces are aligned for anything
// with pointers and integers; what lives in them is the caller's to destroy. Of one thread at a
// time. Where memory ends, std::bad_alloc is thrown and nothing has changed.
class VORN_REGEX_EXPORT CElementMemory
{
public:
    CElementMemory() = default;
    CElementMemory(const CElementMemory&) = delete;
    CElementMemory& operator=(const CElementMemory&) = delete;
    ~CElementMemory() { Release(); }

    void* Take(std::size_t bytes)
    {
        bytes = (bytes + Alignment - 1) / Alignment * Alignment;
        if (bytes > m_Left)
            AddBlock(bytes);
        void* const piece = m_Next;
        m_Next += bytes;
        m_Left -= bytes;
        return piece;
    }

    void Release();

private:
    static constexpr std::size_t Alignment = alignof(void*) > alignof(long long)
                                                 ? alignof(void*)
                                                 : alignof(long long);

    struct CBlock
    {
        CBlock* m_Before;
    };

    void AddBlock(std::size_t bytes);

    CBlock* m_Blocks = nullptr; // the newest
    char* m_Next = nullptr;
    std::size_t m_Left = 0;
    std::size_t m_BlockSize = 0; // of the newest
};

} // namespace Vorn::Regex
