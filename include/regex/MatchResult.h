// What a match found, as numbers.
#pragma once

#include <regex/Context.h>

namespace Vorn::Regex {

// The result of one match: nothing when the text did not match, otherwise
//
//   0          1
//   1          the pattern's highest group number
//   2+2n 3+2n  begin and end of group n, -1 and -1 when it took no part; group 0 is the whole match
//
// Begins and ends are indexes of characters, the end exclusive; a begin is never behind its end,
// right to left as well. Owns its numbers; copied and assigned freely, no text is needed any more.
template <int x>
class VORN_REGEX_EXPORT MatchResultT : public CBufferT<int>
{
public:
    MatchResultT() = default;
    // Unmatched for a null context, otherwise what stands on its capture stack.
    MatchResultT(CContext* context, int maxGroup);

    bool Matched() const { return Element(0) > 0; }
    int MaxGroup() const { return Element(1); }
    // -1 for a group that took no part, and for one that the pattern does not have.
    int GroupBegin(int n) const { return Element(2 + 2LL * n); }
    int GroupEnd(int n) const { return Element(3 + 2LL * n); }

private:
    int Element(long long index) const
    {
        return index >= 0 && index < m_Count ? m_Elements[index] : -1;
    }
};

template <int x>
MatchResultT<x>::MatchResultT(CContext* context, int maxGroup)
{
    if (context == nullptr)
        return;
    if (maxGroup > (INT_MAX - 4) / 2)
        throw std::bad_alloc();
    Prepare(2 * maxGroup + 4, -1);
    m_Elements[0] = 1;
    m_Elements[1] = maxGroup;
    for (int n = 0; n <= maxGroup; ++n) {
        const int record = context->FindCapture(n);
        if (record < 0)
            continue;
        const int begin = context->captureStack[record + CaptureBegin];
        const int end = context->captureStack[record + CaptureEnd];
        m_Elements[2 + 2 * n] = begin < end ? begin : end;
        m_Elements[3 + 2 * n] = begin < end ? end : begin;
    }
}

extern template class MatchResultT<0>;

} // namespace Vorn::Regex
