// Elements that match one character of a set.
#pragma once

#include <cstdint>

#include <regex/Element.h>

namespace Vorn::Regex {

namespace Internals {

// One character in an element's direction: tests it and moves over it. test(position) sees only
// positions inside the text.
template <class Test>
inline int MatchCharacter(CContext* context, int rightToLeft, Test test)
{
    const int at = context->currentPos;
    if (rightToLeft == 0) {
        if (at >= context->textLength || !test(at))
            return 0;
        context->currentPos = at + 1;
    } else {
        if (at <= 0 || !test(at - 1))
            return 0;
        context->currentPos = at - 1;
    }
    return 1;
}

// As many characters in a row, up to most; returns how many. test(character).
template <class Test>
inline int MatchCharacters(CContext* context, int rightToLeft, int most, Test test)
{
    const int at = context->currentPos;
    const int room = rightToLeft == 0 ? context->textLength - at : at;
    const int limit = most < room ? most : room;
    const char* const from = context->text + at;
    const char* to = from;
    if (rightToLeft == 0) {
        for (const char* const end = from + limit; to < end && test(*to);)
            ++to;
    } else {
        for (const char* const end = from - limit; to > end && test(to[-1]);)
            --to;
    }
    const auto moved = static_cast<int>(to - from);
    context->currentPos = at + moved;
    return rightToLeft == 0 ? moved : -moved;
}

// Undoes such matches.
inline void LeaveCharacters(CContext* context, int rightToLeft, int count)
{
    context->currentPos += rightToLeft == 0 ? -count : count;
}

} // namespace Internals

// A bracket class, and the stock classes such as ".", "\d" and "\w". Ranges compare as signed
// characters and hold no byte from 128 on, "[\x80-\xff]" matches nothing; that is meant. Single
// characters compare as bytes.
template <class Char>
class VORN_REGEX_EXPORT CRangeElxT final : public ElxInterface
{
public:
    CRangeElxT(int rightToLeft, int positive) : m_RightToLeft(rightToLeft), m_Positive(positive) {}

    void AddRange(Char low, Char high) { m_Ranges.Push(low, high); }
    void AddCharacter(Char character) { m_Characters.Push(character); }
    // The element stays its owner's; it reads in the same direction.
    void AddElement(ElxInterface* element) { m_Elements.Push(element); }

    // Whether a range or a single character holds it.
    bool IsListed(Char character) const;
    // Once nothing is added any more: finds out what can be known before matching. An element that
    // is never sealed matches the same, only slower.
    void Seal();

    int Match(CContext* context) const override
    {
        if (m_Look == AsWritten)
            return Internals::MatchCharacter(context, m_RightToLeft, [this, context](int at) {
                return Looks(context, context->text[at]);
            });
        return Internals::MatchCharacter(
            context, m_RightToLeft, [this, context](int at) { return InSet(context->text[at]); });
    }

    int MatchNext(CContext* context) const override
    {
        Back(context, 1);
        return 0;
    }

    // Whether it matches at a position. What the context holds stays as it is.
    bool Begins(CContext* context, int at) const
    {
        if (m_RightToLeft == 0 ? at >= context->textLength : at <= 0)
            return false;
        const Char character = context->text[m_RightToLeft == 0 ? at : at - 1];
        if (m_Look != AsWritten)
            return InSet(character);
        context->currentPos = at;
        return Looks(context, character);
    }

    // Matches as often in a row as it can, up to most times; returns how often.
    int MatchRun(CContext* context, int most) const
    {
        if (m_Look == ForTheOne)
            return RunToTheOne(context, most);
        if (m_Look == InTheSet)
            return Internals::MatchCharacters(context, m_RightToLeft, most,
                                              [this](Char character) { return InSet(character); });
        int taken = 0;
        while (taken < most && CRangeElxT::Match(context) != 0)
            ++taken;
        return taken;
    }

    // Undoes some matches in a row.
    void Back(CContext* context, int times) const
    {
        Internals::LeaveCharacters(context, m_RightToLeft, times);
    }

    CBufferT<Char> m_Ranges;            // pairs of low and high, inclusive, in the pattern's order
    CBufferT<Char> m_Characters;        // single characters
    CBufferT<ElxInterface*> m_Elements; // classes in the class
    int m_RightToLeft;
    int m_Positive; // 1: matches members, 0: matches all others

private:
    // How a character is looked up: in the lists; in the set; in the set, where a run ends at the
    // one character that is not matched.
    enum Look
    {
        AsWritten,
        InTheSet,
        ForTheOne
    };

    static int Signed(Char character) { return static_cast<signed char>(character); }

    void AddToSet(int byte) { m_Set[byte / 32] |= std::uint32_t{1} << (byte % 32); }

    bool InSet(Char character) const
    {
        const unsigned int byte = static_cast<unsigned char>(character);
        return (m_Set[byte / 32] & (std::uint32_t{1} << (byte % 32))) != 0;
    }

    bool Looks(CContext* context, Char character) const;
    int RunToTheOne(CContext* context, int most) const;

    Look m_Look = AsWritten;
    std::uint32_t m_Set[8] = {}; // by byte: whether it is matched
};

template <class Char>
bool CRangeElxT<Char>::IsListed(Char character) const
{
    if (Signed(character) >= 0)
        for (int i = 0; i + 1 < m_Ranges.GetSize(); i += 2)
            if (Signed(m_Ranges[i]) <= Signed(character) &&
                Signed(character) <= Signed(m_Ranges[i + 1]))
                return true;
    for (int i = 0; i < m_Characters.GetSize(); ++i)
        if (m_Characters[i] == character)
            return true;
    return false;
}

template <class Char>
void CRangeElxT<Char>::Seal()
{
    // A class in the class can be added to the set unless what it holds is the locale's to say.
    std::uint32_t members[8] = {};
    for (int i = 0; i < m_Elements.GetSize(); ++i) {
        const auto* const inner = dynamic_cast<const CRangeElxT*>(m_Elements[i]);
        if (inner == nullptr || inner->m_Look == AsWritten)
            return;
        for (int word = 0; word < 8; ++word)
            members[word] |= inner->m_Set[word];
    }
    std::memcpy(m_Set, members, sizeof m_Set);
    for (int i = 0; i + 1 < m_Ranges.GetSize(); i += 2)
        for (int c = m_Ranges[i] < 0 ? 0 : m_Ranges[i]; c <= Signed(m_Ranges[i + 1]); ++c)
            AddToSet(c);
    for (int i = 0; i < m_Characters.GetSize(); ++i)
        AddToSet(static_cast<unsigned char>(m_Characters[i]));
    if (m_Positive == 0)
        for (auto& word : m_Set)
            word = ~word;
    const bool allButOne = m_Positive == 0 && m_Ranges.GetSize() == 0 &&
                           m_Elements.GetSize() == 0 && m_Characters.GetSize() == 1;
    m_Look = allButOne ? ForTheOne : InTheSet;
}

template <class Char>
bool CRangeElxT<Char>::Looks(CContext* context, Char character) const
{
    if (IsListed(character))
        return m_Positive != 0;
    const int at = context->currentPos;
    for (int i = 0; i < m_Elements.GetSize(); ++i)
        if (m_Elements[i]->Match(context) != 0) {
            context->currentPos = at;
            return m_Positive != 0;
        }
    return m_Positive == 0;
}

template <class Char>
int CRangeElxT<Char>::RunToTheOne(CContext* context, int most) const
{
    const int at = context->currentPos;
    const int room = m_RightToLeft == 0 ? context->textLength - at : at;
    const int limit = most < room ? most : room;
    if (limit <= 0)
        return 0;
    const Char* const from = context->text + (m_RightToLeft == 0 ? at : at - limit);
    const auto length = static_cast<std::size_t>(limit);
    int taken = limit;
    if (m_RightToLeft == 0) {
        if (const void* one = std::memchr(from, m_Characters[0], length))
            taken = static_cast<int>(static_cast<const Char*>(one) - from);
    } else {
        if (const void* one = memrchr(from, m_Characters[0], length))
            taken = static_cast<int>(from + limit - static_cast<const Char*>(one)) - 1;
    }
    Back(context, -taken);
    return taken;
}

// A POSIX class, "[:alpha:]" or "[:^alpha:]". Which characters belong to it, the C library's
// current locale says at the time of the match.
template <class Char>
class VORN_REGEX_EXPORT CPosixElxT final : public ElxInterface
{
public:
    // The text as it stands behind "[", such as ":alpha:" or ":^digit:". A name that is not known
    // gives an element that never matches.
    CPosixElxT(const Char* text, int length, int rightToLeft)
        : m_Function(nullptr), m_RightToLeft(rightToLeft), m_Positive(1)
    {
        m_Function = Find(text, length, m_Positive);
    }

    // As in the pattern, such as "alpha:".
    const char* Name() const;

    // Whether a class of that name exists; the text as for the constructor.
    static bool IsKnown(const Char* text, int length)
    {
        int positive = 1;
        return Find(text, length, positive) != nullptr;
    }

    int Match(CContext* context) const override
    {
        return Internals::MatchCharacter(
            context, m_RightToLeft, [this, context](int at) { return Holds(context->text[at]); });
    }

    int MatchNext(CContext* context) const override
    {
        Back(context, 1);
        return 0;
    }

    // Matches as often in a row as it can, up to most times; returns how often.
    int MatchRun(CContext* context, int most) const
    {
        return Internals::MatchCharacters(context, m_RightToLeft, most,
                                          [this](Char character) { return Holds(character); });
    }

    // Undoes some matches in a row.
    void Back(CContext* context, int times) const
    {
        Internals::LeaveCharacters(context, m_RightToLeft, times);
    }

    int (*m_Function)(int); // null: the name is not known
    int m_RightToLeft;
    int m_Positive;

private:
    struct CName
    {
        const char* m_Text;
        int (*m_Function)(int);
    };

    static const CName Names[13];
    static int IsBlank(int character) { return character == '\t' || character == ' ' ? 1 : 0; }
    static int (*Find(const Char* text, int length, int& positive))(int);

    bool Holds(Char character) const
    {
        return m_Function != nullptr &&
               (m_Function(static_cast<unsigned char>(character)) != 0) == (m_Positive != 0);
    }
};

template <class Char>
const typename CPosixElxT<Char>::CName CPosixElxT<Char>::Names[] = {
    {"alnum:", std::isalnum},        {"alpha:", std::isalpha}, {"ascii:", isascii},
    {"cntrl:", std::iscntrl},        {"digit:", std::isdigit}, {"graph:", std::isgraph},
    {"lower:", std::islower},        {"print:", std::isprint}, {"punct:", std::ispunct},
    {"space:", std::isspace},        {"upper:", std::isupper}, {"xdigit:", std::isxdigit},
    {"blank:", CPosixElxT::IsBlank},
};

template <class Char>
int (*CPosixElxT<Char>::Find(const Char* text, int length, int& positive))(int)
{
    int at = 1;
    if (length > at && text[at] == '^') {
        positive = 0;
        ++at;
    }
    const auto rest = static_cast<std::size_t>(length > at ? length - at : 0);
    for (const auto& name : Names)
        if (std::strlen(name.m_Text) == rest && std::memcmp(name.m_Text, text + at, rest) == 0)
            return name.m_Function;
    return nullptr;
}

template <class Char>
const char* CPosixElxT<Char>::Name() const
{
    for (const auto& name : Names)
        if (name.m_Function == m_Function)
            return name.m_Text;
    return "unknown";
}

extern template class CRangeElxT<char>;
extern template class CPosixElxT<char>;

} // namespace Vorn::Regex
