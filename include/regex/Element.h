// The interface of everything that a pattern is compiled to.
#pragma once

#include <typeinfo>

#include <regex/Context.h>
#include <regex/Flags.h>

namespace Vorn::Regex {

// An element of the compiled tree. Elements are owned by their builder, never change while they
// match, and keep whatever one attempt needs in the context: an element may be entered many times
// in one match, and by several threads, each with its own context.
//
// Callers retry what succeeded in the reverse order of the successes, and nothing but the element
// itself takes off the context's stack what it pushed there.
class VORN_REGEX_EXPORT ElxInterface
{
public:
    ElxInterface() = default;
    ElxInterface(const ElxInterface&) = delete;
    ElxInterface& operator=(const ElxInterface&) = delete;

    // Matches at currentPos. Success: nonzero, currentPos moved past what was matched, and on the
    // stack what is needed to undo or retry. Failure: 0 and the context as it was.
    virtual int Match(CContext* context) const = 0;
    // After a success whose pushes are on top of the stack again: the next other way to match,
    // nonzero; or 0 with all that the success did undone.
    virtual int MatchNext(CContext* context) const = 0;
    virtual ~ElxInterface() = default;
};

namespace Internals {

// A mark on the stack, with what it takes to come back: the size of captureStack and the position.
// For the elements that keep nothing of what lies above.
VORN_REGEX_APART inline int PushMark(CContext* context)
{
    context->stack.Push(context->captureStack.GetSize(), context->currentPos);
    return context->stack.GetSize();
}

// Takes away what lies above the mark, and on failure the mark; returns whether it matched.
VORN_REGEX_APART inline int CutToMark(CContext* context, int mark, bool matched)
{
    context->stack.Restore(matched ? mark : mark - 2);
    return matched ? 1 : 0;
}

// Undoes a success; the mark is on top.
inline int UndoToMark(CContext* context)
{
    context->currentPos = context->stack.Pop();
    context->captureStack.Restore(context->stack.Pop());
    return 0;
}

} // namespace Internals

// The element as one of exactly that class; null when it is of another. Classes are told apart by
// the address of their type information, which the engine's own elements share: an element that a
// host has made from its own copy of a class is not recognised, and matches the same, only slower.
template <class Element>
const Element* ExactlyAs(const ElxInterface* element)
{
    return &typeid(*element) == &typeid(Element) ? static_cast<const Element*>(element) : nullptr;
}

// Matches the empty string.
template <int x>
class VORN_REGEX_EXPORT CEmptyElxT final : public ElxInterface
{
public:
    int Match(CContext* /*context*/) const override { return 1; }
    int MatchNext(CContext* /*context*/) const override { return 0; }
};

extern template class CBufferRefT<ElxInterface*>;
extern template class CBufferT<ElxInterface*>;
extern template class CEmptyElxT<0>;

} // namespace Vorn::Regex
