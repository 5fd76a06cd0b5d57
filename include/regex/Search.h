// The search for a match. Included where CRegexpT is instantiated, not by its users.
#pragma once

#include <regex/Regexp.h>

namespace Vorn::Regex {

template <class Char>
CRegexpT<Char>::CRegexpT(const Char* pattern, int flags)
{
    this->Build(pattern, pattern != nullptr ? Measured(std::strlen(pattern)) : 0, flags);
}

template <class Char>
CRegexpT<Char>::CRegexpT(std::string_view pattern, int flags)
{
    this->Build(pattern.data(), Measured(pattern.size()), flags);
}

template <class Char>
MatchResultT<0> CRegexpT<Char>::Match(const Char* text, int length) const
{
    if (Top() == nullptr)
        return {};
    CContext context(text, text != nullptr ? length : 0);
    if ((Flags() & RightToLeft) != 0)
        context.currentPos = context.beginPos = context.textLength;
    return Match(&context);
}

template <class Char>
CTextMatch CRegexpT<Char>::Match(const Char* text) const
{
    return Match(text != nullptr ? std::string_view(text) : std::string_view());
}

template <class Char>
CTextMatch CRegexpT<Char>::Match(std::string_view text) const
{
    return {Match(text.data(), Measured(text.size())), text};
}

template <class Char>
MatchResultT<0> CRegexpT<Char>::Match(CContext* context) const
{
    if (Top() == nullptr || !Search(context))
        return {};
    auto& record = context->captureStack;
    const int end = context->currentPos;
    record[CaptureEnd] = end;
    if (record[CaptureBegin] == end)
        context->currentPos += (Flags() & RightToLeft) != 0 ? -1 : 1;
    context->lastBeginPos = context->beginPos;
    context->beginPos = context->currentPos;
    return MatchResultT<0>(context, MaxGroup());
}

template <class Char>
bool CRegexpT<Char>::Search(CContext* context) const
{
    const int length = context->textLength;
    if (length < 0 || length == INT_MAX || context->currentPos < 0 || context->currentPos > length)
        return false;
    context->stack.Restore(0);
    context->captureStack.Restore(0);
    context->captureStack.Push(0, context->currentPos, -1, -1);
    context->captureIndex.Restore(0);
    context->captureIndex.Prepare(MaxGroup() + 1, -1);
    context->captureIndex[0] = 0;
    return SearchFrom(context);
}

// Tries each start position, from currentPos on, until one matches. An attempt that fails leaves
// the context as it was; captureIndex is refilled only where the pattern can leave something in it.
template <class Char>
bool CRegexpT<Char>::SearchFrom(CContext* context) const
{
    const ElxInterface* const top = Top();
    const bool isBackward = (Flags() & RightToLeft) != 0;
    const int step = isBackward ? -1 : 1;
    const int stop = isBackward ? -1 : context->textLength + 1;
    for (;;) {
        if (top->Match(context) != 0)
            return true;
        context->currentPos += step;
        if (context->currentPos == stop)
            return false;
        context->captureStack[CaptureBegin] = context->currentPos;
        if (this->LeavesStaleCaptures()) {
            auto& index = context->captureIndex;
            index.Restore(0);
            index.Prepare(MaxGroup() + 1, -1);
            index[0] = 0;
        }
    }
}

} // namespace Vorn::Regex
