// Literal text.
#pragma once

#include <regex/Element.h>

namespace Vorn::Regex {

template <class Char>
class VORN_REGEX_EXPORT CStringElxT final : public ElxInterface
{
public:
    CStringElxT(const Char* text, int length, int rightToLeft, int ignoreCase)
        : m_Text(text, length), m_RightToLeft(rightToLeft), m_IgnoreCase(ignoreCase)
    {}

    int Match(CContext* context) const override
    {
        const int length = m_Text.GetSize();
        const int at = context->currentPos;
        if (m_RightToLeft == 0) {
            if (length > context->textLength - at || !Equals(context->text + at))
                return 0;
            context->currentPos = at + length;
        } else {
            if (length > at || !Equals(context->text + at - length))
                return 0;
            context->currentPos = at - length;
        }
        return 1;
    }

    int MatchNext(CContext* context) const override
    {
        Back(context, 1);
        return 0;
    }

    // Matches as often in a row as it can, up to most times; returns how often.
    int MatchRun(CContext* context, int most) const
    {
        int taken = 0;
        while (taken < most && CStringElxT::Match(context) != 0)
            ++taken;
        return taken;
    }

    // Undoes some matches in a row.
    void Back(CContext* context, int times) const
    {
        const int length = m_Text.GetSize() * times;
        context->currentPos += m_RightToLeft == 0 ? -length : length;
    }

    CBufferT<Char> m_Text; // with a NUL behind it that does not count
    int m_RightToLeft;
    int m_IgnoreCase;

private:
    bool Equals(const Char* subject) const
    {
        const Char* const text = m_Text.GetBuffer();
        const int length = m_Text.GetSize();
        if (m_IgnoreCase != 0)
            return m_Text.nCompareNoCase(subject) == 0;
        if (length > 0 && *text != *subject)
            return false;
        return std::memcmp(text, subject, static_cast<std::size_t>(length)) == 0;
    }
};

extern template class CStringElxT<char>;

} // namespace Vorn::Regex
