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
    // runs, such as "(\\d+)", whose steps back then need not be taken item by item, and where
    // literal text follows such a repetition or group, which then steps back to where the text is.
    // A list that is never sealed matches the same, only slower.
    void Seal()
    {
        FindSteps();
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
        if (m_Run != nullptr && m_Closing->CanMove(context))
            return ReturnInRun(context);
        return m_RightToLeft == 0 ? Return<1>(context) : Return<-1>(context);
    }

    CBufferT<ElxInterface*> m_Items;
    int m_RightToLeft;

private:
    // By the place of a literal text: the repetition that it follows, and the closing end of the
    // group around it, if there is one.
    struct CStep
    {
        const CStringElxT<char>* m_Text;
        const CGreedyElxT<x>* m_Run; // null: it follows something else
        const CBracketElxT<char>* m_Closing;
    };

    void FindSteps();

    // The text at a place has not matched: steps back to where it does. False: nowhere, and what
    // was to be given back is gone.
    VORN_REGEX_APART bool StepBackToText(CContext* context, ElxInterface* const* item) const
    {
        const CStep& step = m_Steps[static_cast<int>(item - m_Items.begin())];
        if (step.m_Run == nullptr ||
            (step.m_Closing != nullptr && !step.m_Closing->CanMove(context)))
            return false;
        const char first = step.m_Text->m_Text[0];
        const bool found = step.m_Run->StepBackWhere(context, [&](int at) {
            return at < context->textLength && context->text[at] == first &&
                   step.m_Text->Begins(context, at);
        });
        if (!found)
            return false;
        if (step.m_Closing != nullptr)
            step.m_Closing->Move(context);
        return step.m_Text->Match(context) != 0;
    }

    // The group around the repetition, which cannot see the group: it is opened once that is known
    // to match.
    VORN_REGEX_APART int MatchRun(CContext* context) const
    {
        const int at = context->currentPos;
        const int spare = m_Run->TakeRun(context);
        if (spare < 0) {
            m_Opening->Pass(context);
            return 0;
        }
        if (m_Opening->Enclose(context, at) == 0) {
            context->currentPos = at;
            return 0;
        }
        context->stack.Push(spare);
        return 1;
    }

    VORN_REGEX_APART int ReturnInRun(CContext* context) const
    {
        if (m_Run->StepBack(context)) {
            m_Closing->Move(context);
            return 1;
        }
        m_Run->MatchNext(context);
        m_Opening->Remove(context);
        return 0;
    }

    CBufferT<CStep> m_Steps; // by item; empty: no text follows a repetition
    const CBracketElxT<char>* m_Opening = nullptr;
    const CBracketElxT<char>* m_Closing = nullptr;
    const CGreedyElxT<x>* m_Run = nullptr; // null: not such a group

    // Places in the walk: of the first item, and one past the last.
    template <int Step>
    ElxInterface* const* First() const
    {
        return Step > 0 ? m_Items.begin() : m_Items.end() - 1;
    }
    template <int Step>
    ElxInterface* const* Last() const
    {
        return Step > 0 ? m_Items.end() : m_Items.begin() - 1;
    }

    // Matches from an item on to the last; where one fails, those before it are retried.
    template <int Step>
    VORN_REGEX_APART int Go(CContext* context, ElxInterface* const* item) const
    {
        for (; item != Last<Step>(); item += Step)
            if ((*item)->Match(context) == 0) {
                if (m_Steps.GetSize() > 0 && StepBackToText(context, item))
                    continue;
                item = Retry<Step>(context, item);
                if (item == nullptr)
                    return 0;
            }
        return 1;
    }

    template <int Step>
    VORN_REGEX_APART int Return(CContext* context) const
    {
        ElxInterface* const* const item = Retry<Step>(context, Last<Step>());
        return item == nullptr ? 0 : Go<Step>(context, item + Step);
    }

    // Retries the items before a place, the nearest first; the one that succeeds, or null.
    template <int Step>
    VORN_REGEX_MERGED ElxInterface* const* Retry(CContext* context, ElxInterface* const* item) const
    {
        do {
            if (item == First<Step>())
                return nullptr;
            item -= Step;
        } while ((*item)->MatchNext(context) == 0);
        return item;
    }
};

template <int x>
void CListElxT<x>::FindSteps()
{
    if (m_RightToLeft != 0)
        return;
    for (int i = 1; i < m_Items.GetSize(); ++i) {
        const auto* const text = ExactlyAs<CStringElxT<char>>(m_Items[i]);
        if (text == nullptr || text->m_IgnoreCase != 0 || text->m_Text.GetSize() == 0)
            continue;
        const auto* run = ExactlyAs<CGreedyElxT<x>>(m_Items[i - 1]);
        const CBracketElxT<char>* closing = nullptr;
        if (const auto* const group = ExactlyAs<CListElxT>(m_Items[i - 1])) {
            run = group->m_Run;
            closing = group->m_Closing;
        }
        if (run == nullptr || run->IsGeneral())
            continue;
        if (m_Steps.GetSize() == 0)
            m_Steps.Prepare(m_Items.GetSize(), CStep{nullptr, nullptr, nullptr});
        m_Steps[i] = {text, run, closing};
    }
}

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
    VORN_REGEX_APART int TryFrom(CContext* context, int branch) const
    {
        for (; branch < m_Branches.GetSize(); ++branch)
            if (CanBegin(context, m_Firsts[branch]) && m_Branches[branch]->Match(context) != 0) {
                context->stack.Push(branch);
                return 1;
            }
        return 0;
    }

    static bool CanBegin(const CContext* context, int first)
    {
        return first < 0 ||
               (context->currentPos < context->textLength &&
                static_cast<unsigned char>(context->text[context->currentPos]) == first);
    }

    CBufferT<int> m_Firsts; // by branch
};

extern template class CListElxT<0>;
extern template class CAlternativeElxT<0>;

} // namespace Vorn::Regex
