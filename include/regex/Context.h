// What one match attempt remembers.
#pragma once

#include <regex/Buffer.h>

namespace Vorn::Regex {

// A capture on CContext::captureStack: this many ints, at these places.
enum CaptureRecord
{
    CaptureGroup = 0, // group number
    CaptureBegin = 1, // where it was opened
    CaptureEnd = 2,   // where it was closed; -1 while it is open
    CaptureOrder = 3, // closeCounter at the closing; below 0: calls that re-entered the open group
    CaptureSize = 4
};

// One match attempt, and between attempts the place where the next search begins. Positions are
// indexes of characters in the text. Of one thread at a time; the compiled pattern is not changed
// by matching and may be shared.
struct VORN_REGEX_EXPORT CContext
{
    CContext() = default;
    // Ready for a search from the text's start; for RightToLeft set currentPos and beginPos to
    // length. The text stays the caller's and must outlive the context's use.
    CContext(const char* subject, int length) : text(subject), textLength(length) {}

    // Where on captureStack the group's newest record is; -1: there is none. The index may be
    // stale, higher than the stack: whatever cut the stack left it so.
    int FindCapture(int group) const
    {
        int at = captureIndex[group];
        const int last = captureStack.GetSize() - CaptureSize;
        if (at > last)
            at = last;
        while (at >= 0 && captureStack[at + CaptureGroup] != group)
            at -= CaptureSize;
        return at < 0 ? -1 : at;
    }

    CBufferT<int> stack; // what elements need to undo and to retry; strictly last in first out
    CBufferT<int> captureStack; // records of CaptureSize ints
    CBufferT<int> captureIndex; // by group number: its newest record on captureStack, or -1
    int currentPos = 0;         // elements look at text[currentPos], backwards at the one before
    int beginPos = 0;           // where this search began; after a match, where the next begins
    int lastBeginPos = -1;      // the beginPos before
    int closeCounter = 0;       // counts group closings
    int recursionBudget = 100;  // group calls that may still be nested
    const char* text = nullptr; // need not be NUL-terminated
    int textLength = 0;         // below INT_MAX
};

// A state of a context to go back to. captureIndex and the counters are not part of it.
class VORN_REGEX_EXPORT CContextShot
{
public:
    explicit CContextShot(const CContext* context)
        : m_CurrentPos(context->currentPos), m_Stack(context->stack.GetSize()),
          m_CaptureStack(context->captureStack.GetSize())
    {}

    void Restore(CContext* context) const
    {
        context->stack.Restore(m_Stack);
        context->captureStack.Restore(m_CaptureStack);
        context->currentPos = m_CurrentPos;
    }

    int m_CurrentPos;
    int m_Stack;
    int m_CaptureStack;
};

} // namespace Vorn::Regex
