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
        return m_Unit == General ? MatchGeneral(context) : RunFixed(context);
    }

    int MatchNext(CContext* context) const override
    {
        if (m_Unit == General)
            return MatchNextGeneral(context);
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

    VORN_REGEX_APART int RunFixed(CContext* context) const
    {
        const int taken = Run(context, m_Fixed);
        if (taken == m_Fixed)
            return 1;
        Back(context, taken);
        return 0;
    }

    // The general case: each iteration leaves its own state on the stack, the newest on top.
    VORN_REGEX_MERGED int MatchFixed(CContext* context) const { return GoFixed(context, 0); }

    VORN_REGEX_MERGED int MatchNextFixed(CContext* context) const
    {
        const int taken = ReturnFixed(context, m_Fixed);
        return taken == 0 ? 0 : GoFixed(context, taken);
    }

    Unit m_Unit = General;

private:
    VORN_REGEX_APART int MatchGeneral(CContext* context) const { return MatchFixed(context); }
    VORN_REGEX_APART int MatchNextGeneral(CContext* context) const
    {
        return MatchNextFixed(context);
    }

    VORN_REGEX_MERGED int GoFixed(CContext* context, int taken) const
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
    VORN_REGEX_MERGED int ReturnFixed(CContext* context, int taken) const
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
        return m_Unit == Base::General ? MatchGeneral(context) : MatchRun(context);
    }

    int MatchNext(CContext* context) const override
    {
        return m_Unit == Base::General ? MatchNextGeneral(context) : MatchNextRun(context);
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

    // The same again and again, until a test of the position holds. False, with all of the variable
    // part given back, when it holds nowhere.
    template <class Test>
    bool StepBackWhere(CContext* context, Test test) const
    {
        int& spare = context->stack.Top();
        const int from = context->currentPos;
        this->Back(context, 1);
        const int step = context->currentPos - from;
        context->currentPos = from;
        while (spare > 0) {
            --spare;
            context->currentPos += step;
            if (test(context->currentPos))
                return true;
        }
        return false;
    }

    // The variable part of the general case. Always succeeds.
    VORN_REGEX_APART int MatchVart(CContext* context) const { return TakeVart(context); }

    // Said by the builder, of an open-ended repetition in a pattern without back-references,
    // conditions and calls: what an iteration can match depends on where it begins and on nothing
    // else, and it ends there or further on. From Match to its last MatchNext the repetition then
    // offers each end once, and an extension stops at a place that was offered before. Results and
    // captures stay what they are without it:
    //
    // - A place is offered once the element fails there or would match the empty string for ever,
    //   or once all iterations that begin there have been tried with all that follows them. That
    //   depends on the place alone: all ends that can be reached from it have been offered.
    // - The exception is the way back to where the variable part began, which ends it without
    //   offering that place. Only its first iteration can go that way, by being empty. No extension
    //   stops instead of that: from a place that was offered the variable part has nothing new to
    //   reach, from any other its first iteration is tried as ever; and a place that is left in
    //   this manner is not marked.
    // - An end that is retried has failed, whatever was captured on the way. What stands around the
    //   repetition has only learned of more ends that fail, so that the same end behind another
    //   fixed part would fail again. But a repetition around this one counts the empty iterations
    //   that it sees. Where nothing at all was matched, the end is offered each time therefore.
    //
    // So nested repetitions such as "(a*)*b" and "(x+x+)+y" cost polynomial time: an iteration is
    // begun once for each place, in each iteration of what stands around.
    void ExploreOnce() { m_ExploresOnce = true; }

    // Another way for it to match; 0 and undone when there is none.
    int MatchNextVart(CContext* context) const { return ReturnVart(context); }

    using Base::m_Element;
    using Base::m_Fixed;
    int m_Variable;

protected:
    using Base::m_Unit;

    VORN_REGEX_MERGED int TakeVart(CContext* context) const
    {
        const int frame = PushFrame(context);
        TakeMore<false>(context, frame);
        return CloseFrame(context, frame);
    }

private:
    // The frame on the stack: these, then the set of the ends that were offered, then the fixed
    // part if it shares the frame, then the iterations, behind each its start, then the distance of
    // all this, by which the frame is found again. Nothing in it depends on where on the stack it
    // lies: it moves when the set of a frame below grows.
    enum Frame
    {
        Origin = 0,        // where the frame was made; what the set's distances are from
        Start,             // where the first iteration began
        Captures,          // size of captureStack there
        Fixed,             // stack elements of the fixed part in the frame
        Count,             // iterations taken
        Words,             // size of the set
        IterationStart,    // of the iteration that is under way: its start,
        IterationStack,    // the stack's size there, from the frame on,
        IterationCaptures, // and captureStack's
        FrameSize
    };

    static constexpr unsigned int WordBits = 32;

    VORN_REGEX_APART int MatchRun(CContext* context) const
    {
        const int spare = TakeRun(context);
        if (spare < 0)
            return 0;
        context->stack.Push(spare);
        return 1;
    }

    VORN_REGEX_APART int MatchNextRun(CContext* context) const
    {
        if (StepBack(context))
            return 1;
        context->stack.Pop();
        this->Back(context, m_Fixed);
        return 0;
    }

    VORN_REGEX_APART int MatchGeneral(CContext* context) const
    {
        if (SharesFrame())
            return MatchShared(context);
        return this->MatchFixed(context) == 0 ? 0 : MatchVart(context);
    }

    VORN_REGEX_APART int MatchNextGeneral(CContext* context) const
    {
        if (SharesFrame())
            return ReturnShared(context);
        return ReturnVart(context) != 0 ? 1 : RetryFixed(context);
    }

    VORN_REGEX_APART int RetryFixed(CContext* context) const
    {
        return this->MatchNextFixed(context) == 0 ? 0 : MatchVart(context);
    }

    // Whether the set outlives the variable part: then the frame is made before the fixed one.
    bool SharesFrame() const { return m_ExploresOnce && m_Fixed > 0; }

    VORN_REGEX_APART int MatchShared(CContext* context) const
    {
        const int frame = PushFrame(context);
        if (this->MatchFixed(context) == 0)
            return DropFrame(context, frame);
        BeginVart(context, frame);
        TakeMore<false>(context, frame);
        return CloseFrame(context, frame);
    }

    VORN_REGEX_APART int ReturnShared(CContext* context) const;

    // The fixed part is on top: the iterations begin.
    VORN_REGEX_APART static void BeginVart(CContext* context, int frame)
    {
        int* const at = &context->stack[frame];
        at[Start] = context->currentPos;
        at[Captures] = context->captureStack.GetSize();
        at[Fixed] = context->stack.GetSize() - frame - FrameSize - at[Words];
        at[Count] = 0;
    }

    VORN_REGEX_APART static int PushFrame(CContext* context)
    {
        const int frame = context->stack.GetSize();
        const int at = context->currentPos;
        context->stack.Push(at, at, context->captureStack.GetSize(), 0, 0, 0, 0, 0, 0);
        return frame;
    }

    // Takes iterations until the element fails, or would match the empty string for ever. isAgain:
    // after a retry, when ends have been offered already.
    template <bool isAgain>
    VORN_REGEX_MERGED void TakeMore(CContext* context, int frame) const
    {
        while (!(isAgain && m_ExploresOnce && IsOffered(context, frame)) &&
               BeginIteration(context, frame)) {
            if (m_Element->Match(context) == 0)
                return;
            if (HasNotMoved(context, frame)) {
                if (m_Element->MatchNext(context) == 0)
                    return;
                if (HasNotMoved(context, frame))
                    return UndoIteration(context, frame);
            }
            EndIteration(context, frame);
        }
    }

    // False: there may be no further one.
    VORN_REGEX_APART bool BeginIteration(CContext* context, int frame) const
    {
        int* const at = &context->stack[frame];
        if (at[Count] >= m_Variable)
            return false;
        at[IterationStart] = context->currentPos;
        at[IterationStack] = context->stack.GetSize() - frame;
        at[IterationCaptures] = context->captureStack.GetSize();
        return true;
    }

    static bool HasNotMoved(const CContext* context, int frame)
    {
        return context->currentPos == context->stack[frame + IterationStart];
    }

    VORN_REGEX_APART static void EndIteration(CContext* context, int frame)
    {
        KeepIteration(context, frame);
        ++context->stack[frame + Count];
    }

    VORN_REGEX_APART static void UndoIteration(CContext* context, int frame)
    {
        context->captureStack.Restore(context->stack[frame + IterationCaptures]);
        context->stack.Restore(frame + context->stack[frame + IterationStack]);
    }

    VORN_REGEX_MERGED int ReturnVart(CContext* context) const;
    VORN_REGEX_MERGED bool OfferNext(CContext* context, int frame) const;
    VORN_REGEX_MERGED bool ReturnIteration(CContext* context, int frame) const;

    // Finds the frame again. What is retried was offered where it ended, which is where the context
    // stands; without an iteration only a shared frame has use for that.
    VORN_REGEX_APART static int PopFrame(CContext* context, bool isShared)
    {
        const int distance = context->stack.Pop();
        const int frame = context->stack.GetSize() - distance;
        if (isShared || context->stack[frame + Count] > 0)
            SetOffered(context, frame);
        return frame;
    }

    // The newest iteration's start is its own again.
    VORN_REGEX_APART static void ResumeIteration(CContext* context, int frame)
    {
        context->stack[frame + IterationStart] = context->stack.Pop();
    }

    VORN_REGEX_APART static void KeepIteration(CContext* context, int frame)
    {
        context->stack.Push(context->stack[frame + IterationStart]);
    }

    static bool IsBackAtStart(const CContext* context, int frame)
    {
        return context->currentPos == context->stack[frame + Start];
    }

    VORN_REGEX_APART static bool UndoVart(CContext* context, int frame)
    {
        const int* const at = &context->stack[frame];
        context->captureStack.Restore(at[Captures]);
        context->stack.Restore(frame + FrameSize + at[Words] + at[Fixed]);
        return false;
    }

    static int DropFrame(CContext* context, int frame)
    {
        context->stack.Restore(frame);
        return 0;
    }

    VORN_REGEX_APART static int CloseFrame(CContext* context, int frame)
    {
        context->stack.Push(context->stack.GetSize() - frame);
        return 1;
    }

    bool m_ExploresOnce = false;

    // The set has a bit for each position, by its distance from the origin: even ones for those
    // behind it, odd ones for those before. There can be both, where a group that was compiled for
    // the other direction is called.
    static unsigned int Bit(const CContext* context, int frame)
    {
        const int origin = context->stack[frame + Origin];
        const int at = context->currentPos;
        return at < origin ? 2 * static_cast<unsigned int>(origin - at) - 1
                           : 2 * static_cast<unsigned int>(at - origin);
    }

    VORN_REGEX_APART static bool IsOffered(const CContext* context, int frame)
    {
        const unsigned int bit = Bit(context, frame);
        const int word = static_cast<int>(bit / WordBits);
        return word < context->stack[frame + Words] &&
               ((static_cast<unsigned int>(context->stack[frame + FrameSize + word]) >>
                 (bit % WordBits)) &
                1U) != 0;
    }

    VORN_REGEX_APART static void SetOffered(CContext* context, int frame)
    {
        auto& stack = context->stack;
        const unsigned int bit = Bit(context, frame);
        const int word = static_cast<int>(bit / WordBits);
        const int words = stack[frame + Words];
        if (word >= words) {
            // At least twice as many: what lies above is moved seldom.
            const int more = word >= 2 * words ? word + 1 - words : words;
            stack.Insert(frame + FrameSize + words, more);
            stack[frame + Words] = words + more;
        }
        int& bits = stack[frame + FrameSize + word];
        bits = static_cast<int>(static_cast<unsigned int>(bits) | (1U << (bit % WordBits)));
    }
};

// Retries the newest iteration until it has moved, and extends from there; without another way it
// is dropped. False: it came back to where the first one began.
template <int x>
VORN_REGEX_MERGED bool CGreedyElxT<x>::ReturnIteration(CContext* context, int frame) const
{
    ResumeIteration(context, frame);
    do {
        if (m_Element->MatchNext(context) == 0) {
            --context->stack[frame + Count];
            return true;
        }
        if (IsBackAtStart(context, frame))
            return false;
    } while (HasNotMoved(context, frame));
    KeepIteration(context, frame);
    this->template TakeMore<true>(context, frame);
    return true;
}

// Goes back to an end that was not offered before. False: there is none, and the iterations are
// undone.
template <int x>
VORN_REGEX_MERGED bool CGreedyElxT<x>::OfferNext(CContext* context, int frame) const
{
    while (context->stack[frame + Count] > 0 && ReturnIteration(context, frame))
        if (!IsOffered(context, frame))
            return true;
    return UndoVart(context, frame);
}

template <int x>
VORN_REGEX_MERGED int CGreedyElxT<x>::ReturnVart(CContext* context) const
{
    const int frame = PopFrame(context, false);
    return OfferNext(context, frame) ? CloseFrame(context, frame) : DropFrame(context, frame);
}

template <int x>
int CGreedyElxT<x>::ReturnShared(CContext* context) const
{
    const int frame = PopFrame(context, true);
    while (!OfferNext(context, frame)) {
        if (this->MatchNextFixed(context) == 0)
            return DropFrame(context, frame);
        BeginVart(context, frame);
        this->template TakeMore<true>(context, frame);
        if (!IsOffered(context, frame) || context->currentPos == context->stack[frame + Origin])
            break;
    }
    return CloseFrame(context, frame);
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
        return m_Unit == Base::General ? MatchGeneral(context) : MatchRun(context);
    }

    int MatchNext(CContext* context) const override
    {
        return m_Unit == Base::General ? MatchNextGeneral(context) : MatchNextRun(context);
    }

    // The variable part of the general case: one more iteration, or another way to match the
    // newest. On the stack: the iterations, behind each its start, and their number.
    int MatchNextVart(CContext* context) const;

    using Base::m_Element;
    using Base::m_Fixed;
    int m_Variable;

private:
    using Base::m_Unit;

    VORN_REGEX_APART int MatchRun(CContext* context) const
    {
        if (this->RunFixed(context) == 0)
            return 0;
        context->stack.Push(0);
        return 1;
    }

    VORN_REGEX_APART int MatchNextRun(CContext* context) const
    {
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

    VORN_REGEX_APART int MatchGeneral(CContext* context) const
    {
        if (this->MatchFixed(context) == 0)
            return 0;
        context->stack.Push(0);
        return 1;
    }

    VORN_REGEX_APART int MatchNextGeneral(CContext* context) const
    {
        return ReturnVart(context) != 0 ? 1 : RetryFixed(context);
    }

    VORN_REGEX_APART int RetryFixed(CContext* context) const
    {
        if (this->MatchNextFixed(context) == 0)
            return 0;
        context->stack.Push(0);
        return 1;
    }

    VORN_REGEX_MERGED int ReturnVart(CContext* context) const;

    // Goes on retrying the element until it has moved; 0 when it has no other way.
    VORN_REGEX_MERGED int MoveOn(CContext* context, int start) const
    {
        while (context->currentPos == start)
            if (m_Element->MatchNext(context) == 0)
                return 0;
        return 1;
    }
};

template <int x>
VORN_REGEX_MERGED int CReluctantElxT<x>::ReturnVart(CContext* context) const
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
        return this->m_Unit == CGreedyElxT<x>::General ? MatchGeneral(context) : MatchRun(context);
    }

    int MatchNext(CContext* context) const override { return Internals::UndoToMark(context); }

private:
    VORN_REGEX_APART int MatchRun(CContext* context) const
    {
        const int mark = Internals::PushMark(context);
        return Internals::CutToMark(context, mark, this->TakeRun(context) >= 0);
    }

    VORN_REGEX_APART int MatchGeneral(CContext* context) const
    {
        const int mark = Internals::PushMark(context);
        const bool matched = this->MatchFixed(context) != 0;
        if (matched)
            this->TakeVart(context);
        return Internals::CutToMark(context, mark, matched);
    }
};

extern template class CRepeatElxT<0>;
extern template class CGreedyElxT<0>;
extern template class CReluctantElxT<0>;
extern template class CPossessiveElxT<0>;

} // namespace Vorn::Regex
