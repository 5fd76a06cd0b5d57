// One after the other, and one or the other.
#pragma once

#include <regex/GroupElements.h>
#include <regex/RepeatElements.h>

namespace Vorn::Regex {

// Elements one after the other.
template <int x>
class VORN_REGEX_EXPORT CListElxT final : public ElxInterface
{
public:
    // rightToLeft: the items are walked from the last to the first.
    explicit CListElxT(int rightToLeft) : m_RightToLeft(rightToLeft) {}

    // Once all items are there: finds out whether this is a capture group around a repetition that
    // runs, such as "(\\d+)", whose steps back then need not be taken item by item. A list that is
    // never sealed matches the same, only slower.
    void Seal()
    {
        if (m_Items.GetSize() != 3)
            return;
        m_Opening = ExactlyAs<CBracketElxT<char>>(m_Items[m_RightToLeft == 0 ? 0 : 2]);
        m_Closing = ExactlyAs<CBracketElxT<char>>(m_Items[m_RightToLeft == 0 ? 2 : 0]);
        m_Run = m_Opening == nullptr || m_Closing == nullptr
                    ? nullptr
                    : ExactlyAs<CGreedyElxT<x>>(m_Items[1]);
        if (m_Run != nullptr && m_Run->IsGeneral())
            m_Run = nullptr;
    }

    int Match(CContext* context) const override
    {
        if (m_Run != nullptr)
            return MatchRun(context);
        return m_RightToLeft == 0 ? Go<1>(context, First<1>()) : Go<-1>(context, First<-1>());
    }

    int MatchNext(CContext* context) const override
    {
        if (m_Run != nullptr && m_Closing->CanMove(context) && m_Run->StepBack(context)) {
            m_Closing->Move(context);
            return 1;
        }
        return m_RightToLeft == 0 ? Return<1>(context, Last<1>()) : Return<-1>(context, Last<-1>());
    }

    CBufferT<ElxInterface*> m_Items;
    int m_RightToLeft;

private:
    // The group around the repetition, which cannot see the group: it is opened once that is known
    // to match.
    int MatchRun(CContext* context) const
    {
        const int at = context->currentPos;
        const int spare = m_Run->TakeRun(context);
        if (spare < 0) {
            m_Opening->Pass(context);
            return 0;
        }
        if (m_Opening->Open(context, at) == 0) {
            context->currentPos = at;
            return 0;
        }
        context->stack.Push(spare);
        return m_Closing->Match(context);
    }

    const CBracketElxT<char>* m_Opening = nullptr;
    const CBracketElxT<char>* m_Closing = nullptr;
    const CGreedyElxT<x>* m_Run = nullptr; // null: not such a group

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
    // The branch stays its owner's. first: the character, as a byte, without which it cannot match
    // at the current position, forwards; -1: it can with others, or that is not known.
    void AddBranch(ElxInterface* branch, int first)
    {
        m_Branches.Push(branch);
        m_Firsts.Push(first);
    }

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
        const int at = context->currentPos;
        const int here = at >= 0 && at < context->textLength
                             ? static_cast<unsigned char>(context->text[at])
                             : -1;
        for (; branch < m_Branches.GetSize(); ++branch) {
            const int first = m_Firsts[branch];
            if (first >= 0 && first != here)
                continue;
            if (m_Branches[branch]->Match(context) != 0) {
                context->stack.Push(branch);
                return 1;
            }
        }
        return 0;
    }

    CBufferT<int> m_Firsts; // by branch
};

extern template class CListElxT<0>;
extern template class CAlternativeElxT<0>;

} // namespace Vorn::Regex
