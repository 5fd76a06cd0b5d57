// The search for a match. Included where CRegexpT is instantiated, not by its users.
#pragma once

#include <regex/FirstElement.h>
#include <regex/Regexp.h>

namespace Vorn::Regex {

template <class Char>
CRegexpT<Char>::CRegexpT(const Char* pattern, int flags)
{
    this->Build(pattern, pattern != nullptr ? Measured(std::strlen(pattern)) : 0, flags);
    FindFirst();
}

template <class Char>
CRegexpT<Char>::CRegexpT(std::string_view pattern, int flags)
{
    // A view without characters is the empty pattern, wherever it points.
    this->Build(pattern.empty() ? "" : pattern.data(), Measured(pattern.size()), flags);
    FindFirst();
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
    return SearchForFirst(context);
}

template <class Char>
void CRegexpT<Char>::FindFirst()
{
    if (Top() == nullptr)
        return;
    // An attempt begins with captureIndex as it should be.
    const ElxInterface* const first = Internals::FirstOf<Char>(Top(), true);
    m_FirstBoundary = ExactlyAs<CBoundaryElxT<Char>>(first);
    m_FirstString = ExactlyAs<CStringElxT<Char>>(first);
    m_FirstRange = ExactlyAs<CRangeElxT<Char>>(first);
}

// The search with the first element of an attempt called as what it is, not through its virtual
// function: the tree is entered where that element matches.
template <class Char>
bool CRegexpT<Char>::SearchForFirst(CContext* context) const
{
    const int stop = (Flags() & RightToLeft) != 0 ? -1 : context->textLength + 1;
    if (m_FirstBoundary != nullptr) {
        if (m_FirstBoundary->m_Kind == TextBegin && m_FirstBoundary->m_Positive != 0)
            return SearchWhere(context, stop, [](int at) { return at == 0; });
        return SearchWhere(context, stop, [this, context](int at) {
            return m_FirstBoundary->Begins(context, at);
        });
    }
    if (m_FirstString != nullptr && m_FirstString->m_IgnoreCase == 0 &&
        m_FirstString->m_RightToLeft == 0) {
        const auto& text = m_FirstString->m_Text;
        const Char first = text[0];
        const Char* const subject = context->text;
        const int last = context->textLength - text.GetSize();
        if (context->currentPos > last) {
            context->currentPos = context->textLength + 1;
            return false;
        }
        return SearchWhere(context, last + 1, [this, context, first, subject](int at) {
            return subject[at] == first && m_FirstString->Begins(context, at);
        });
    }
    if (m_FirstString != nullptr)
        return SearchWhere(context, stop,
                           [this, context](int at) { return m_FirstString->Begins(context, at); });
    if (m_FirstRange != nullptr)
        return SearchWhere(context, stop,
                           [this, context](int at) { return m_FirstRange->Begins(context, at); });
    return SearchWhere(context, stop, [](int /*at*/) { return true; });
}

// Tries each start position, from currentPos to before end, until one matches. An attempt that
// fails leaves the context as it was; captureIndex is refilled only where the pattern can leave
// something in it.
template <class Char>
template <class Test>
bool CRegexpT<Char>::SearchWhere(CContext* context, int end, Test test) const
{
    const ElxInterface* const top = Top();
    const int step = (Flags() & RightToLeft) != 0 ? -1 : 1;
    bool isReady = false;
    for (int at = context->currentPos; at != end; at += step) {
        if (!test(at))
            continue;
        context->currentPos = at;
        if (!isReady) {
            MakeReady(context);
            isReady = !this->LeavesStaleCaptures();
        }
        context->captureStack[CaptureBegin] = at;
        if (top->Match(context) != 0)
            return true;
    }
    context->currentPos = step < 0 ? -1 : context->textLength + 1;
    return false;
}

// Empties the stacks but for the record of group 0.
template <class Char>
void CRegexpT<Char>::MakeReady(CContext* context) const
{
    // What most matches need, at once.
    constexpr int UsualStack = 48;
    context->stack.Reserve(UsualStack);
    context->stack.Restore(0);
    context->captureStack.Reserve((MaxGroup() + 1) * CaptureSize);
    context->captureStack.Restore(0);
    context->captureStack.Push(0, context->currentPos, -1, -1);
    context->captureIndex.Restore(0);
    context->captureIndex.Prepare(MaxGroup() + 1, -1);
    context->captureIndex[0] = 0;
}

} // namespace Vorn::Regex
