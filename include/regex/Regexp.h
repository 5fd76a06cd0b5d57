// Regular expressions: compile a pattern, search texts, read groups.
//
//   const Vorn::Regex::CRegexpT<char> version("^(\\w+) release (\\d+(\\.\\d+)*)");
//   if (const auto match = version.Match(line); match.Matched())
//       use(match.Group(2));
//
// The engine backtracks: the first way that matches wins, branches in their order, repetitions as
// greedy as they are written. Elements and their quirks: docs/regex.md.
//
// What it does not do: it has no Unicode (a character is a byte), no search shortcuts (each start
// position is tried), and no limit of time: as with every engine of the kind there are patterns,
// such as "^(a*?)*?b", that take exponential time on some texts. Patterns and texts of any content
// are safe otherwise: nothing outside the text is read, and the native stack stays below 4 MiB on
// x86-64 whatever they say. Neither may be longer than 2147483646 characters: std::length_error.
//
// Where memory ends, std::bad_alloc is thrown; nothing else throws.
#pragma once

#include <iterator>
#include <stdexcept>
#include <string_view>

#include <regex/Builder.h>
#include <regex/MatchResult.h>

namespace Vorn::Regex {

// A result with the text that it is about. The text stays the caller's and must outlive what is
// read from here; the numbers do not need it.
class CTextMatch : public MatchResultT<0>
{
public:
    CTextMatch() = default;
    CTextMatch(MatchResultT<0>&& result, std::string_view text)
        : MatchResultT<0>(std::move(result)), m_Text(text)
    {}

    // What a group matched; empty for a group that took no part.
    std::string_view Group(int n) const
    {
        const int begin = GroupBegin(n);
        return begin < 0 ? std::string_view()
                         : m_Text.substr(static_cast<std::size_t>(begin),
                                         static_cast<std::size_t>(GroupEnd(n) - begin));
    }

    explicit operator bool() const { return Matched(); }

private:
    std::string_view m_Text;
};

template <class Char>
class CTextMatches;

// A compiled pattern. Does not change after construction: one object may be used by several threads
// at once. Not copied.
template <class Char>
class VORN_REGEX_EXPORT CRegexpT : private CBuilderT<Char>
{
public:
    // pattern: NUL-terminated, needed during the call only; a null one matches nothing. flags:
    // CompileFlags. Every pattern compiles to something.
    explicit CRegexpT(const Char* pattern, int flags = NoFlags);
    CRegexpT(std::string_view pattern, int flags);

    // The first match of a text, from its start or under RightToLeft from its end. A null text is
    // empty.
    MatchResultT<0> Match(const Char* text, int length) const;
    // The same for a NUL-terminated text and for a view, with the groups as text.
    CTextMatch Match(const Char* text) const;
    CTextMatch Match(std::string_view text) const;
    // The next match in a context's text, from its currentPos on. On success currentPos and
    // beginPos say where the one after it begins: at its end, or one character on when it was
    // empty. Once nothing is found, nothing is found again.
    MatchResultT<0> Match(CContext* context) const;

    // All matches, one after the other, for a range-based for:
    //   for (const auto& match : regexp.Matches(text)) ...
    // The pattern and the text must outlive the loop.
    CTextMatches<Char> Matches(std::string_view text) const;

    using CBuilderT<Char>::Flags;
    using CBuilderT<Char>::MaxGroup;
    using CBuilderT<Char>::Top;

private:
    void FindFirst();
    bool Search(CContext* context) const;
    bool SearchForFirst(CContext* context) const;
    template <class Test>
    bool SearchWhere(CContext* context, int end, Test test) const;
    void MakeReady(CContext* context) const;
    static int Measured(std::size_t length);

    // What every attempt begins with, where it is known: one of these, or none.
    const CBoundaryElxT<Char>* m_FirstBoundary = nullptr;
    const CStringElxT<Char>* m_FirstString = nullptr;
    const CRangeElxT<Char>* m_FirstRange = nullptr;
};

// The matches of a text; iterated once.
template <class Char>
class CTextMatches
{
public:
    CTextMatches(const CRegexpT<Char>& regexp, std::string_view text);

    class CIterator
    {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = CTextMatch;
        using difference_type = std::ptrdiff_t;
        using pointer = const CTextMatch*;
        using reference = const CTextMatch&;

        explicit CIterator(CTextMatches* matches) : m_Matches(matches) {}

        reference operator*() const { return m_Matches->m_Match; }
        pointer operator->() const { return &m_Matches->m_Match; }
        CIterator& operator++()
        {
            if (!m_Matches->Next())
                m_Matches = nullptr;
            return *this;
        }
        bool operator==(const CIterator& other) const { return m_Matches == other.m_Matches; }
        bool operator!=(const CIterator& other) const { return m_Matches != other.m_Matches; }

    private:
        CTextMatches* m_Matches;
    };

    CIterator begin() { return CIterator(m_Match.Matched() || Next() ? this : nullptr); }
    CIterator end() { return CIterator(nullptr); }

private:
    bool Next()
    {
        m_Match = CTextMatch(m_Regexp.Match(&m_Context), m_Text);
        return m_Match.Matched();
    }

    const CRegexpT<Char>& m_Regexp;
    std::string_view m_Text;
    CContext m_Context;
    CTextMatch m_Match;
};

template <class Char>
CTextMatches<Char>::CTextMatches(const CRegexpT<Char>& regexp, std::string_view text)
    : m_Regexp(regexp), m_Text(text), m_Context(text.data(), static_cast<int>(text.size()))
{
    if ((regexp.Flags() & RightToLeft) != 0)
        m_Context.currentPos = m_Context.beginPos = m_Context.textLength;
}

template <class Char>
CTextMatches<Char> CRegexpT<Char>::Matches(std::string_view text) const
{
    Measured(text.size());
    return CTextMatches<Char>(*this, text);
}

template <class Char>
int CRegexpT<Char>::Measured(std::size_t length)
{
    if (length >= INT_MAX)
        throw std::length_error("a pattern or text of 2 GiB or more");
    return static_cast<int>(length);
}

extern template class CRegexpT<char>;

} // namespace Vorn::Regex
