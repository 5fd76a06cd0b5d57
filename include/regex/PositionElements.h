// Elements that test where they stand and consume nothing.
#pragma once

#include <regex/Element.h>

namespace Vorn::Regex {

// "\G": where the search began, or where the last match ended.
template <int x>
class VORN_REGEX_EXPORT CGlobalElxT final : public ElxInterface
{
public:
    int Match(CContext* context) const override
    {
        return context->currentPos == context->beginPos ? 1 : 0;
    }
    int MatchNext(CContext* /*context*/) const override { return 0; }
};

enum BoundaryKind
{
    TextBegin = 0,         // "\A", and "^" without MultiLine
    TextEnd = 1,           // "\z", and "$" without MultiLine
    TextEndOrLastLine = 2, // "\Z": the text's end, or before the line break that ends it
    LineBegin = 3,         // "^"
    LineEnd = 4,           // "$"
    WordBegin = 5,
    WordEnd = 6,
    WordBoundary = 7 // "\b"
};

namespace Internals {

// By byte: whether it is a word character.
struct CWordCharacters
{
    constexpr CWordCharacters()
    {
        for (int c = '0'; c <= '9'; ++c)
            m_Is[c] = true;
        for (int c = 'A'; c <= 'Z'; ++c)
            m_Is[c] = m_Is[c - 'A' + 'a'] = true;
        m_Is[static_cast<int>('_')] = true;
    }
    bool m_Is[UCHAR_MAX + 1] = {};
};

inline constexpr CWordCharacters WordCharacters;

} // namespace Internals

// Line breaks are "\n", "\r" and "\r\n", the last one break; a word character is one of A-Z, a-z,
// 0-9 and "_", whatever the locale.
template <class Char>
class VORN_REGEX_EXPORT CBoundaryElxT final : public ElxInterface
{
public:
    // A kind outside BoundaryKind holds nowhere.
    CBoundaryElxT(int kind, int positive) : m_Kind(kind), m_Positive(positive) {}

    int Match(CContext* context) const override
    {
        return Begins(context, context->currentPos) ? 1 : 0;
    }
    int MatchNext(CContext* /*context*/) const override { return 0; }

    // Whether it matches at a position. The context is only read.
    bool Begins(const CContext* context, int at) const
    {
        const bool holds = m_Kind == WordBoundary
                               ? WordBefore(*context, at) != WordAfter(*context, at)
                               : Holds(*context, at);
        return holds == (m_Positive != 0);
    }

    int m_Kind;
    int m_Positive; // 0: holds where the boundary is not

private:
    static bool IsWord(Char character)
    {
        return Internals::WordCharacters.m_Is[static_cast<unsigned char>(character)];
    }
    static bool WordBefore(const CContext& context, int at)
    {
        return at > 0 && IsWord(context.text[at - 1]);
    }
    static bool WordAfter(const CContext& context, int at)
    {
        return at < context.textLength && IsWord(context.text[at]);
    }

    // Of all kinds but WordBoundary.
    bool Holds(const CContext& context, int at) const;
};

template <class Char>
bool CBoundaryElxT<Char>::Holds(const CContext& context, int at) const
{
    const int left = context.textLength - at;
    const Char* const here = context.text + at;
    switch (m_Kind) {
    case TextBegin:
        return at == 0;
    case TextEnd:
        return left <= 0;
    case TextEndOrLastLine:
        return left <= 0 || (left == 1 && here[0] == '\n') ||
               (left == 2 && here[0] == '\r' && here[1] == '\n');
    case LineBegin:
        return at == 0 || here[-1] == '\n' || (here[-1] == '\r' && (left <= 0 || here[0] != '\n'));
    case LineEnd:
        return left <= 0 || here[0] == '\r' || (here[0] == '\n' && (at == 0 || here[-1] != '\r'));
    case WordBegin:
        return !WordBefore(context, at) && WordAfter(context, at);
    case WordEnd:
        return WordBefore(context, at) && !WordAfter(context, at);
    default:
        return false;
    }
}

extern template class CGlobalElxT<0>;
extern template class CBoundaryElxT<char>;

} // namespace Vorn::Regex
