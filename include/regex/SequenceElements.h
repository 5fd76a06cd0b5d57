// One after the other, and one or the other.
#pragma once

#include <regex/Element.h>

namespace Vorn::Regex {

// Elements one after the other.
template <int x>
class VORN_REGEX_EXPORT CListElxT final : public ElxInterface
{
public:
    // rightToLeft: the items are walked from the last to the first.
    explicit CListElxT(int rightToLeft) : m_RightToLeft(rightToLeft) {}

    int Match(CContext* context) const override
    {
        return m_RightToLeft == 0 ? Go<1>(context, First<1>()) : Go<-1>(context, First<-1>());
    }

    int MatchNext(CContext* context) const override
    {
        return m_RightToLeft == 0 ? Return<1>(context, Last<1>()) : Return<-1>(context, Last<-1>());
    }

    CBufferT<ElxInterface*> m_Items;
    int m_RightToLeft;

private:
    // Places in the walk: of the first item, and one past the last.
    template <int Step>
    ElxInterface* const* First() const
    {
        return m_Items.GetBuffer() + (Step > 0 ? 0 : m_Items.GetSize() - 1);
    }
    template <int Step>
    ElxInterface* const* Last() const
    {
        return m_Items.GetBuffer() + (Step > 0 ? m_Items.GetSize() : -1);
    }

    // Matches from an item on to the last; where one fails, those before it are retried.
    template <int Step>
    int Go(CContext* context, ElxInterface* const* item) const
    {
        for (; item != Last<Step>(); item += Step)
            if ((*item)->Match(context) == 0)
                do {
                    if (item == First<Step>())
                        return 0;
                    item -= Step;
                } while ((*item)->MatchNext(context) == 0);
        return 1;
    }

    // Retries the items before a place, the nearest first, and goes on from the one that succeeds.
    template <int Step>
    int Return(CContext* context, ElxInterface* const* item) const
    {
        do {
            if (item == First<Step>())
                return 0;
            item -= Step;
        } while ((*item)->MatchNext(context) == 0);
        return Go<Step>(context, item + Step);
    }
};

// The first of several branches that matches. Later ones are tried when it is retried, earlier
// ones never again.
template <int x>
class VORN_REGEX_EXPORT CAlternativeElxT final : public ElxInterface
{
public:
    int Match(CContext* context) const override
    {
        return m_Branches.GetSize() == 0 ? 1 : TryFrom(context, 0);
    }

    int MatchNext(CContext* context) const override
    {
        if (m_Branches.GetSize() == 0)
            return 0;
        const int branch = context->stack.Pop();
        if (m_Branches[branch]->MatchNext(context) != 0) {
            context->stack.Push(branch);
            return 1;
        }
        return TryFrom(context, branch + 1);
    }

    CBufferT<ElxInterface*> m_Branches;

private:
    int TryFrom(CContext* context, int branch) const
    {
        for (; branch < m_Branches.GetSize(); ++branch)
            if (m_Branches[branch]->Match(context) != 0) {
                context->stack.Push(branch);
                return 1;
            }
        return 0;
    }
};

extern template class CListElxT<0>;
extern template class CAlternativeElxT<0>;

} // namespace Vorn::Regex
