// Repetitions: exact, greedy, reluctant and possessive.
//
// A repetition of an element that consumes a fixed width and pushes nothing (a character, a class,
// literal text) runs as a loop over the text and remembers a number only; it gives back one step at
// a time by moving the position. All others walk their iterations in a loop too, never deeper on
// the native stack, and keep what they need to come back on the context's stack.
#pragma once

#include <regex/ClassElements.h>
#include <regex/StringElement.h>

namespace Vorn::Regex {

// "{n}": exactly that often.
template <int x>
class VORN_REGEX_EXPORT CRepeatElxT : public ElxInterface
{
public:
    // The element stays its owner's.
    CRepeatElxT(ElxInterface* element, int fixed) : m_Element(element), m_Fixed(fixed)
    {
        if (ExactlyAs<CRangeElxT<char>>(element) != nullptr)
            m_Unit = Range;
        else if (const auto* const text = ExactlyAs<CStringElxT<char>>(element))
            m_Unit = text->m_Text.GetSize() > 0 ? String : General;
        else if (ExactlyAs<CPosixElxT<char>>(element) != nullptr)
            m_Unit = Posix;
    }

    int Match(CContext* context) const override
    {
        return m_Unit == General ? MatchFixed(context) : RunFixed(context);
    }

    int MatchNext(CContext* context) const override
    {
        if (m_Unit == General)
            return MatchNextFixed(context);
        Back(context, m_Fixed);
        return 0;
    }

    // Whether iterations can leave more behind than a position.
    bool IsGeneral() const { return m_Unit == General; }

    ElxInterface* m_Element;
    int m_Fixed; // iterations that must be there

protected:
    // What is repeated, as far as it can be run without its virtual functions.
    enum Unit
    {
        General,
        Range,
        String,
        Posix
    };

    // The units: as many in a row as there are, up to most.
    int Run(CContext* context, int most) const
    {
        switch (m_Unit) {
        case Range:
            return static_cast<const CRangeElxT<char>*>(m_Element)->MatchRun(context, most);
        case String:
            return static_cast<const CStringElxT<char>*>(m_Element)->MatchRun(context, most);
        case Posix:
            return static_cast<const CPosixElxT<char>*>(m_Element)->MatchRun(context, most);
        default:
            return 0;
        }
    }

    void Back(CContext* context, int times) const
    {
        switch (m_Unit) {
        case Range:
            return static_cast<const CRangeElxT<char>*>(m_Element)->Back(context, times);
        case String:
            return static_cast<const CStringElxT<char>*>(m_Element)->Back(context, times);
        case Posix:
            return static_cast<const CPosixElxT<char>*>(m_Element)->Back(context, times);
        default:
            return;
        }
    }

    int RunFixed(CContext* context) const
    {
        const int taken = Run(context, m_Fixed);
        if (taken == m_Fixed)
            return 1;
        Back(context, taken);
        return 0;
    }

    // The general case: each iteration leaves its own state on the stack, the newest on top.
    int MatchFixed(CContext* context) const { return GoFixed(context, 0); }

    int MatchNextFixed(CContext* context) const
    {
        const int taken = ReturnFixed(context, m_Fixed);
        return taken == 0 ? 0 : GoFixed(context, taken);
    }

    Unit m_Unit = General;

private:
    int GoFixed(CContext* context, int taken) const
    {
        for (; taken < m_Fixed; ++taken)
            if (m_Element->Match(context) == 0) {
                taken = ReturnFixed(context, taken);
                if (taken == 0)
                    return 0;
                --taken;
            }
        return 1;
    }

    // Retries iterations, the newest first; how many there are once one succeeds, 0 if none does.
    int ReturnFixed(CContext* context, int taken) const
    {
        for (; taken > 0; --taken)
            if (m_Element->MatchNext(context) != 0)
                return taken;
        return 0;
    }
};

// "*", "+", "?", "{n,m}": as often as possible first. Each place where the repetition can end is
// offered once: of several ways to the same end the first one found gives the captures.
template <int x>
class VORN_REGEX_EXPORT CGreedyElxT : public CRepeatElxT<x>
{
    using Base = CRepeatElxT<x>;

public:
    // fixed: iterations that must be there; variable: how many more there may be.
    CGreedyElxT(ElxInterface* element, int fixed, int variable)
        : Base(element, fixed), m_Variable(variable)
    {}

    int Match(CContext* context) const override
    {
        if (m_Unit == Base::General)
            return this->MatchFixed(context) == 0 ? 0 : MatchVart(context);
        const int spare = TakeRun(context);
        if (spare < 0)
            return 0;
        context->stack.Push(spare);
        return 1;
    }

    int MatchNext(CContext* context) const override
    {
        if (m_Unit == Base::General) {
            if (MatchNextVart(context) != 0)
                return 1;
            return this->MatchNextFixed(context) == 0 ? 0 : MatchVart(context);
        }
        if (StepBack(context))
            return 1;
        context->stack.Pop();
        this->Back(context, m_Fixed);
        return 0;
    }

    // Of a repetition that runs: takes all iterations there are; how many can be given back, which
    // is what belongs on the stack, or -1, with nothing taken.
    int TakeRun(CContext* context) const
    {
        const int taken = this->Run(context, m_Fixed + m_Variable);
        if (taken >= m_Fixed)
            return taken - m_Fixed;
        this->Back(context, taken);
        return -1;
    }

    // Of a repetition that runs: gives back one iteration. False, and nothing is changed, when the
    // variable part has none left.
    bool StepBack(CContext* context) const
    {
        int& spare = context->stack.Top();
        if (spare == 0)
            return false;
        --spare;
        this->Back(context, 1);
        return true;
    }

    // The variable part of the general case. Always succeeds.
    int MatchVart(CContext* context) const
    {
        const int frame = context->stack.GetSize();
        context->stack.Push(context->currentPos, context->captureStack.GetSize(), 0, 0, 0, 0, 0);
        TakeMore(context, frame);
        context->stack.Push(context->stack.GetSize() - frame);
        return 1;
    }

    int MatchNextVart(CContext* context) const;

    using Base::m_Element;
    using Base::m_Fixed;
    int m_Variable;

private:
    using Base::m_Unit;

    // The variable part's frame on the stack: these, then the set of the ends that were offered,
    // then the iterations, behind each its start, then the distance of all this, by which the frame
    // is found again. Nothing in it depends on where on the stack it lies: it moves when the set of
    // a frame below grows.
    enum Frame
    {
        Start = 0,         // where the first iteration began
        Captures,          // size of captureStack there
        Count,             // iterations taken
        Words,             // size of the set
        IterationStart,    // of the iteration that is under way: its start,
        IterationStack,    // the stack's size there, from the frame on,
        IterationCaptures, // and captureStack's
        FrameSize
    };

    static constexpr int WordBits = 32;

    // Takes iterations until the element fails, or would match the empty string for ever.
    void TakeMore(CContext* context, int frame) const
    {
        auto& stack = context->stack;
        while (stack[frame + Count] < m_Variable) {
            stack[frame + IterationStart] = context->currentPos;
            stack[frame + IterationStack] = stack.GetSize() - frame;
            stack[frame + IterationCaptures] = context->captureStack.GetSize();
            if (m_Element->Match(context) == 0)
                return;
            if (context->currentPos == stack[frame + IterationStart]) {
                if (m_Element->MatchNext(context) == 0)
                    return;
                if (context->currentPos == stack[frame + IterationStart]) {
                    context->captureStack.Restore(stack[frame + IterationCaptures]);
                    stack.Restore(frame + stack[frame + IterationStack]);
                    return;
                }
            }
            stack.Push(stack[frame + IterationStart]);
            ++stack[frame + Count];
        }
    }

    // The set has a bit for each position, by its distance from the start.
    static int Distance(const CContext* context, int frame)
    {
        const int start = context->stack[frame + Start];
        return context->currentPos < start ? start - context->currentPos
                                           : context->currentPos - start;
    }

    static bool IsOffered(const CContext* context, int frame)
    {
        const int distance = Distance(context, frame);
        const int word = distance / WordBits;
        return word < context->stack[frame + Words] &&
               ((static_cast<unsigned int>(context->stack[frame + FrameSize + word]) >>
                 (distance % WordBits)) &
                1U) != 0;
    }

    static void SetOffered(CContext* context, int frame)
    {
        auto& stack = context->stack;
        const int distance = Distance(context, frame);
        const int word = distance / WordBits;
        const int words = stack[frame + Words];
        if (word >= words) {
            // At least twice as many: what lies above is moved seldom.
            const int more = word >= 2 * words ? word + 1 - words : words;
            stack.Insert(frame + FrameSize + words, more);
            stack[frame + Words] = words + more;
        }
        int& bits = stack[frame + FrameSize + word];
        bits = static_cast<int>(static_cast<unsigned int>(bits) | (1U << (distance % WordBits)));
    }
};

template <int x>
int CGreedyElxT<x>::MatchNextVart(CContext* context) const
{
    auto& stack = context->stack;
    const int distance = stack.Pop();
    const int frame = stack.GetSize() - distance;
    // What is retried was offered where it ended, which is where the context stands.
    if (stack[frame + Count] > 0)
        SetOffered(context, frame);
    while (stack[frame + Count] > 0) {
        stack[frame + IterationStart] = stack.Pop();
        for (;;) {
            if (m_Element->MatchNext(context) == 0) {
                --stack[frame + Count];
                break;
            }
            if (context->currentPos == stack[frame + Start]) {
                context->captureStack.Restore(stack[frame + Captures]);
                stack.Restore(frame);
                return 0;
            }
            if (context->currentPos != stack[frame + IterationStart]) {
                stack.Push(stack[frame + IterationStart]);
                TakeMore(context, frame);
                break;
            }
        }
        if (!IsOffered(context, frame)) {
            stack.Push(stack.GetSize() - frame);
            return 1;
        }
    }
    stack.Restore(frame);
    return 0;
}

// "*?", "+?", "??", "{n,m}?": as seldom as possible first.
template <int x>
class VORN_REGEX_EXPORT CReluctantElxT final : public CRepeatElxT<x>
{
    using Base = CRepeatElxT<x>;

public:
    // fixed: iterations that must be there; variable: how many more there may be.
    CReluctantElxT(ElxInterface* element, int fixed, int variable)
        : Base(element, fixed), m_Variable(variable)
    {}

    int Match(CContext* context) const override
    {
        if (Base::Match(context) == 0)
            return 0;
        context->stack.Push(0);
        return 1;
    }

    int MatchNext(CContext* context) const override
    {
        if (m_Unit == Base::General) {
            if (MatchNextVart(context) != 0)
                return 1;
            if (this->MatchNextFixed(context) == 0)
                return 0;
            context->stack.Push(0);
            return 1;
        }
        int& taken = context->stack.Top();
        if (taken < m_Variable && this->Run(context, 1) == 1) {
            ++taken;
            return 1;
        }
        this->Back(context, taken);
        this->Back(context, m_Fixed);
        context->stack.Pop();
        return 0;
    }

    // The variable part of the general case: one more iteration, or another way to match the
    // newest. On the stack: the iterations, behind each its start, and their number.
    int MatchNextVart(CContext* context) const;

    using Base::m_Element;
    using Base::m_Fixed;
    int m_Variable;

private:
    using Base::m_Unit;

    // Goes on retrying the element until it has moved; 0 when it has no other way.
    int MoveOn(CContext* context, int start) const
    {
        while (context->currentPos == start)
            if (m_Element->MatchNext(context) == 0)
                return 0;
        return 1;
    }
};

template <int x>
int CReluctantElxT<x>::MatchNextVart(CContext* context) const
{
    auto& stack = context->stack;
    int count = stack.Pop();
    int start = context->currentPos;
    if (count < m_Variable && m_Element->Match(context) != 0 && MoveOn(context, start) != 0) {
        stack.Push(start, count + 1);
        return 1;
    }
    for (; count > 0; --count) {
        start = stack.Pop();
        if (m_Element->MatchNext(context) != 0 && MoveOn(context, start) != 0) {
            stack.Push(start, count);
            return 1;
        }
    }
    return 0;
}

// "*+", "++", "?+", "{n,m}+": as often as possible, and gives nothing back.
template <int x>
class VORN_REGEX_EXPORT CPossessiveElxT final : public CGreedyElxT<x>
{
public:
    using CGreedyElxT<x>::CGreedyElxT;

    int Match(CContext* context) const override
    {
        auto& stack = context->stack;
        const int size = stack.GetSize();
        stack.Push(context->captureStack.GetSize(), context->currentPos);
        if (CGreedyElxT<x>::Match(context) == 0) {
            stack.Restore(size);
            return 0;
        }
        stack.Restore(size + 2);
        return 1;
    }

    int MatchNext(CContext* context) const override
    {
        context->currentPos = context->stack.Pop();
        context->captureStack.Restore(context->stack.Pop());
        return 0;
    }
};

extern template class CRepeatElxT<0>;
extern template class CGreedyElxT<0>;
extern template class CReluctantElxT<0>;
extern template class CPossessiveElxT<0>;

} // namespace Vorn::Regex
