// Capture groups: their two ends, references to what they captured, and calls of them.
#pragma once

#include <regex/Element.h>

namespace Vorn::Regex {

// One end of a capture group. It keeps the records on the context's captureStack.
template <class Char>
class VORN_REGEX_EXPORT CBracketElxT final : public ElxInterface
{
public:
    CBracketElxT(int number, int closing) : m_Number(number), m_Closing(closing) {}

    int Match(CContext* context) const override
    {
        return m_Closing == 0 ? Open(context, context->currentPos) : Close(context);
    }

    int MatchNext(CContext* context) const override
    {
        const int record = Record(context);
        if (record < 0)
            return 0;
        int& end = context->captureStack[record + CaptureEnd];
        int& order = context->captureStack[record + CaptureOrder];
        if (m_Closing != 0) {
            if (end == -1) {
                --order;
            } else {
                end = -1;
                order = 0;
            }
        } else if (order < 0) {
            ++order;
        } else {
            Remove(context, record);
        }
        return 0;
    }

    // Of the closing end, after its success or that of Enclose: whether it closed the group, and
    // did not only come back from a call of it; and closing it again, where the context stands now.
    bool CanMove(const CContext* context) const
    {
        const int record = Record(context);
        return record >= 0 && context->captureStack[record + CaptureEnd] != -1;
    }
    void Move(CContext* context) const { CloseRecord(context, Record(context)); }

    int m_Number;  // -1 until it is known
    int m_Closing; // 0: the opening end, 1: the closing end
    CBufferT<Char> m_Name;

    // Of the opening end, where CanMove holds: undoes both ends.
    void Remove(CContext* context) const { Remove(context, Record(context)); }

    // Of the opening end: Match at a position, as it is, or at once with the closing end's Match
    // where the context stands now; and what Match and MatchNext leave behind.
    int Open(CContext* context, int at) const;
    int Enclose(CContext* context, int at) const;
    void Pass(CContext* context) const
    {
        if (m_Number < 0 || m_Number >= context->captureIndex.GetSize())
            return;
        const int newest = context->FindCapture(m_Number);
        if (!IsOpen(context, newest))
            context->captureIndex[m_Number] = newest;
    }

private:
    int Record(const CContext* context) const
    {
        return m_Number < 0 || m_Number >= context->captureIndex.GetSize()
                   ? -1
                   : context->FindCapture(m_Number);
    }

    int Newest(CContext* context) const
    {
        if (m_Number >= context->captureIndex.GetSize())
            context->captureIndex.Prepare(m_Number + 1, -1);
        return context->FindCapture(m_Number);
    }

    // Then a call has come back into the group while it is open.
    static bool IsOpen(const CContext* context, int newest)
    {
        return newest >= 0 && context->captureStack[newest + CaptureEnd] == -1;
    }

    // newest: the record before, kept for the way back, so that no walk finds it again.
    void AddRecord(CContext* context, int newest, int begin, int end, int order) const
    {
        context->stack.Push(newest);
        context->captureIndex[m_Number] = context->captureStack.GetSize();
        context->captureStack.Push(m_Number, begin, end, order);
    }

    void Remove(CContext* context, int record) const
    {
        context->captureStack.Restore(record);
        context->captureIndex[m_Number] = context->stack.Pop();
    }

    int Close(CContext* context) const
    {
        const int record = Record(context);
        if (record < 0)
            return 1;
        int& order = context->captureStack[record + CaptureOrder];
        if (order < 0) {
            ++order;
            return 1;
        }
        CloseRecord(context, record);
        return 1;
    }

    static void CloseRecord(CContext* context, int record)
    {
        context->captureStack[record + CaptureEnd] = context->currentPos;
        context->captureStack[record + CaptureOrder] = context->closeCounter;
        CountClosing(context);
    }

    static void CountClosing(CContext* context)
    {
        if (context->closeCounter < INT_MAX)
            ++context->closeCounter;
    }
};

template <class Char>
int CBracketElxT<Char>::Open(CContext* context, int at) const
{
    if (m_Number < 0)
        return 0;
    const int newest = Newest(context);
    if (IsOpen(context, newest))
        --context->captureStack[newest + CaptureOrder];
    else
        AddRecord(context, newest, at, -1, 0);
    return 1;
}

template <class Char>
int CBracketElxT<Char>::Enclose(CContext* context, int at) const
{
    if (m_Number < 0)
        return 0;
    const int newest = Newest(context);
    if (!IsOpen(context, newest)) {
        AddRecord(context, newest, at, context->currentPos, context->closeCounter);
        CountClosing(context);
    }
    return 1;
}

// Matches what a group captured; of a group that is still open, what it has matched so far.
template <class Char>
class VORN_REGEX_EXPORT CBackrefElxT final : public ElxInterface
{
public:
    CBackrefElxT(int number, int rightToLeft, int ignoreCase)
        : m_Number(number), m_RightToLeft(rightToLeft), m_IgnoreCase(ignoreCase)
    {}

    int Match(CContext* context) const override;

    int MatchNext(CContext* context) const override
    {
        context->currentPos = context->stack.Pop();
        return 0;
    }

    int m_Number; // -1 until it is known, -3 for a name that no group has
    int m_RightToLeft;
    int m_IgnoreCase;
    CBufferT<Char> m_Name;
};

template <class Char>
int CBackrefElxT<Char>::Match(CContext* context) const
{
    if (m_Number < 0 || m_Number >= context->captureIndex.GetSize() ||
        context->captureIndex[m_Number] == -1)
        return 0;
    const int record = context->FindCapture(m_Number);
    if (record < 0)
        return 0;
    const int at = context->currentPos;
    int begin = context->captureStack[record + CaptureBegin];
    int end = context->captureStack[record + CaptureEnd];
    if (end == -1)
        end = at;
    if (begin > end)
        std::swap(begin, end);
    const int length = end - begin;
    if (length > (m_RightToLeft == 0 ? context->textLength - at : at))
        return 0;
    const CBufferRefT<Char> captured(context->text + begin, length);
    const Char* const subject = context->text + (m_RightToLeft == 0 ? at : at - length);
    if (m_IgnoreCase != 0 ? captured.nCompareNoCase(subject) != 0
                          : length > 0 && std::memcmp(captured.GetBuffer(), subject,
                                                      static_cast<std::size_t>(length)) != 0)
        return 0;
    context->stack.Push(at);
    context->currentPos = m_RightToLeft == 0 ? at + length : at - length;
    return 1;
}

// A call of a group, or of the whole pattern. Calls nest at most as deep as the context's
// recursionBudget allows; beyond that they fail. A call that is retried counts like the call
// itself: it may go on into further calls.
template <class Char>
class VORN_REGEX_EXPORT CDelegateElxT final : public ElxInterface
{
public:
    explicit CDelegateElxT(int number) : m_Number(number) {}

    int Match(CContext* context) const override
    {
        if (m_Target == nullptr)
            return 1;
        if (context->recursionBudget < 1)
            return 0;
        --context->recursionBudget;
        const int matched = m_Target->Match(context);
        ++context->recursionBudget;
        return matched;
    }

    int MatchNext(CContext* context) const override
    {
        if (m_Target == nullptr)
            return 0;
        --context->recursionBudget;
        const int matched = m_Target->MatchNext(context);
        ++context->recursionBudget;
        return matched;
    }

    ElxInterface* m_Target = nullptr; // null until bound: then the call matches the empty string
    int m_Number;                     // -3 for a name that no group has
    CBufferT<Char> m_Name;
};

extern template class CBracketElxT<char>;
extern template class CBackrefElxT<char>;
extern template class CDelegateElxT<char>;

} // namespace Vorn::Regex
