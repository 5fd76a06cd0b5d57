// Look-around, atomic groups and conditions.
#pragma once

#include <regex/Element.h>

namespace Vorn::Regex {

// "(?>...)": once matched, the element is not retried.
template <int x>
class VORN_REGEX_EXPORT CIndependentElxT final : public ElxInterface
{
public:
    // The element stays its owner's.
    explicit CIndependentElxT(ElxInterface* element) : m_Element(element) {}

    int Match(CContext* context) const override
    {
        const int mark = Internals::PushMark(context);
        return Internals::CutToMark(context, mark, m_Element->Match(context) != 0);
    }

    int MatchNext(CContext* context) const override { return Internals::UndoToMark(context); }

    ElxInterface* m_Element;
};

// "(?=...)", "(?!...)", "(?<=...)", "(?<!...)": whether the element matches here. Consumes nothing;
// what a positive assertion captured stays.
template <int x>
class VORN_REGEX_EXPORT CAssertElxT final : public ElxInterface
{
public:
    // The element stays its owner's; it looks ahead or behind by the direction it was built for.
    CAssertElxT(ElxInterface* element, int positive) : m_Element(element), m_Positive(positive) {}

    int Match(CContext* context) const override
    {
        const int mark = Internals::PushMark(context);
        return Decide(context, mark, m_Element->Match(context) != 0);
    }

    int MatchNext(CContext* context) const override
    {
        context->captureStack.Restore(context->stack.Pop());
        return 0;
    }

    ElxInterface* m_Element;
    int m_Positive;

private:
    // Goes back to where it began; of the mark the size of captureStack stays, when it holds.
    VORN_REGEX_APART int Decide(CContext* context, int mark, bool matched) const
    {
        context->stack.Restore(mark);
        context->currentPos = context->stack.Pop();
        if (matched == (m_Positive != 0))
            return 1;
        context->captureStack.Restore(context->stack.Pop());
        return 0;
    }
};

// "(?(condition)yes|no)": one branch or the other, by whether a group has been entered or an
// assertion holds.
template <class Char>
class VORN_REGEX_EXPORT CConditionElxT final : public ElxInterface
{
public:
    explicit CConditionElxT(int number) : m_Number(number) {}

    int Match(CContext* context) const override
    {
        const int captures = context->captureStack.GetSize();
        const int yes = Decide(context) ? 1 : 0;
        const ElxInterface* const branch = yes != 0 ? m_Yes : m_No;
        if (branch != nullptr && branch->Match(context) == 0) {
            context->captureStack.Restore(captures);
            return 0;
        }
        context->stack.Push(captures, yes);
        return 1;
    }

    int MatchNext(CContext* context) const override
    {
        const int yes = context->stack.Pop();
        const int captures = context->stack.Pop();
        const ElxInterface* const branch = yes != 0 ? m_Yes : m_No;
        if (branch != nullptr && branch->MatchNext(context) != 0) {
            context->stack.Push(captures, yes);
            return 1;
        }
        context->captureStack.Restore(captures);
        return 0;
    }

    // The elements stay their owner's.
    int m_Number;                        // the group that is asked for; -1: the assertion is
    CBufferT<Char> m_Name;               // of that group, where the pattern says a name
    ElxInterface* m_Condition = nullptr; // null: holds
    ElxInterface* m_Yes = nullptr;       // null, as m_No: matches the empty string
    ElxInterface* m_No = nullptr;

private:
    VORN_REGEX_APART bool Decide(CContext* context) const
    {
        if (m_Number >= 0)
            return m_Number < context->captureIndex.GetSize() &&
                   context->captureIndex[m_Number] != -1;
        if (m_Condition == nullptr)
            return true;
        const int mark = Internals::PushMark(context);
        const bool holds = m_Condition->Match(context) != 0;
        context->stack.Restore(mark);
        context->currentPos = context->stack.Pop();
        context->stack.Pop();
        return holds;
    }
};

extern template class CIndependentElxT<0>;
extern template class CAssertElxT<0>;
extern template class CConditionElxT<char>;
extern template class CBufferRefT<CConditionElxT<char>*>;
extern template class CBufferT<CConditionElxT<char>*>;

} // namespace Vorn::Regex
