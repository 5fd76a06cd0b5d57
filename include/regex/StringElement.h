// Literal text.
#pragma once

#include <regex/Element.h>

namespace Vorn::Regex {

template <class Char>
class VORN_REGEX_EXPORT CStringElxT final : public ElxInterface
{
public:
    CStringElxT(const Char* text, int length, int rightToLeft, int ignoreCase)
        : m_Text(text, length), m_RightToLeft(rightToLeft), m_IgnoreCase(ignoreCase),
          m_IsPlain(rightToLeft == 0 && ignoreCase == 0 && length > 0)
    {}

    int Match(CContext* context) const override
    {
        if (!Begins(context, context->currentPos))
            return 0;
        Back(context, -1);
        return 1;
    }

    int MatchNext(CContext* context) const override
    {
        Back(context, 1);
        return 0;
    }

    // Whether it matches at a position. The context is only read.
    VORN_REGEX_MERGED bool Begins(const CContext* context, int at) const
    {
        const int length = m_Text.GetSize();
        if (m_IsPlain)
            return length <= context->textLength - at && IsAt(context->text + at);
        return BeginsOtherwise(context, at);
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
    // Inline wherever it is called: most texts end here, at the first character.
    VORN_REGEX_MERGED bool IsAt(const Char* subject) const
    {
        const Char* const text = m_Text.begin();
        const int length = m_Text.GetSize();
        return *text == *subject &&
               (length == 1 || std::memcmp(text, subject, static_cast<std::size_t>(length)) == 0);
    }

    // The empty text, and the two ways to compare that are seldom.
    VORN_REGEX_APART bool BeginsOtherwise(const CContext* context, int at) const
    {
        const int length = m_Text.GetSize();
        if (length > (m_RightToLeft == 0 ? context->textLength - at : at))
            return false;
        const Char* const subject = context->text + (m_RightToLeft == 0 ? at : at - length);
        return m_IgnoreCase != 0 ? m_Text.nCompareNoCase(subject) == 0
                                 : length == 0 || IsAt(subject);
    }

    bool m_IsPlain; // read forwards, with case, and not empty
};

extern template class CStringElxT<char>;

} // namespace Vorn::Regex
