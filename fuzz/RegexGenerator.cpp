#include "RegexGenerator.h"

#include <algorithm>

namespace Fuzz {

namespace {

constexpr int MostItems = 14;

CPattern Plain(const std::string& text, int minimumWidth)
{
    return {text, text, text, minimumWidth, false};
}

CPattern& operator+=(CPattern& left, const CPattern& right)
{
    left.m_Own += right.m_Own;
    left.m_Slow += right.m_Slow;
    left.m_Peer += right.m_Peer;
    left.m_MinimumWidth += right.m_MinimumWidth;
    return left;
}

CPattern Around(const std::string& open, const CPattern& inner, const std::string& close)
{
    return {open + inner.m_Own + close, open + inner.m_Slow + close, open + inner.m_Peer + close,
            inner.m_MinimumWidth, false};
}

// Raises a counter while something is being made.
struct CInside
{
    explicit CInside(int& counter) : m_Counter(counter) { ++m_Counter; }
    ~CInside() { --m_Counter; }
    int& m_Counter;
};

} // namespace

std::vector<std::pair<int, int>> CGenerator::SharedGroups() const
{
    std::vector<std::pair<int, int>> groups;
    int named = 0;
    for (const auto& group : m_Groups)
        groups.emplace_back(group.m_Name.empty() ? group.m_Own : m_Unnamed + ++named, group.m_Peer);
    return groups;
}

CPattern CGenerator::Alternatives(int depth)
{
    CPattern whole = Sequence(depth);
    while (Chance(4) && m_Items < MostItems) {
        const int width = whole.m_MinimumWidth;
        whole += Plain("|", 0);
        const CPattern next = Sequence(depth);
        whole += next;
        whole.m_MinimumWidth = std::min(width, next.m_MinimumWidth);
    }
    return whole;
}

CPattern CGenerator::Sequence(int depth)
{
    CPattern whole;
    for (unsigned int count = Below(4); count > 0 && m_Items < MostItems; --count) {
        whole += Item(depth);
        if ((m_Flags & Extended) != 0 && Chance(4))
            whole += Plain(Below(2) == 0 ? " \n\t" : " #a(b*\n", 0);
        if (Chance(16))
            whole += Plain("(?#a(b*)", 0);
    }
    return whole;
}

CPattern CGenerator::Item(int depth)
{
    ++m_Items;
    if (!Chance(2))
        return Atom(depth);

    static constexpr const char* Variable[] = {"*", "+", "?", "{1,}", "{0,2}", "{2,3}", "{1,1}"};
    static constexpr const char* Exact[] = {"{2}", "{1}", "{0}", "{3}"};
    const bool exact = Chance(4);
    const std::string quantifier = exact ? Exact[Below(4)] : Variable[Below(7)];
    static constexpr const char* Manners[] = {"", "", "?", "+"};
    std::string manner = Manners[Below(4)];
    const bool isExact = exact || quantifier == "{1,1}";
    if (isExact && manner == "+" && !m_Wild)
        manner.clear();

    CPattern atom;
    {
        const CInside repeated(m_Repetitions);
        atom = Atom(depth);
    }
    if (atom.m_Assertion || (atom.m_MinimumWidth == 0 && !exact && !m_Wild))
        return atom;
    const bool canBeNone =
        quantifier[0] == '*' || quantifier[0] == '?' || quantifier.find("{0") == 0;
    const std::string tail = quantifier + manner;
    CPattern item = {atom.m_Own + tail, "(?:" + atom.m_Slow + "|(?!))" + tail, atom.m_Peer + tail,
                     canBeNone ? 0 : atom.m_MinimumWidth, false};
    return item;
}

CPattern CGenerator::Atom(int depth)
{
    if (depth > 0)
        switch (Below(16)) {
        case 0:
        case 1:
            return Capture(depth - 1);
        case 2:
            return Around("(?:", Alternatives(depth - 1), ")");
        case 3:
            return Assertion(depth - 1);
        case 4: {
            const CInside shielded(m_Shields);
            return Around("(?>", Alternatives(depth - 1), ")");
        }
        case 5:
            return Condition(depth - 1);
        case 6:
            return InlineFlags();
        case 7:
            return m_Wild ? Call() : Backreference();
        default:
            break;
        }
    switch (Below(8)) {
    case 0:
        return Boundary();
    case 1:
        return Backreference();
    case 2:
    case 3:
        return Class();
    default:
        return Character();
    }
}

CPattern CGenerator::Character()
{
    static constexpr const char* Characters[] = {
        "a",   "b",   "a",   "b",     "A",       "B",    "1",      "_",
        "\\ ", "\\n", "\\.", "\\x61", "\\x{42}", "\xe9", "(?:ab)", "(?:\\Qa.\\E)",
    };
    const unsigned int which = Below(16);
    return Plain(Characters[which], which < 14 ? 1 : 2);
}

CPattern CGenerator::Class()
{
    static constexpr const char* Stock[] = {".", "\\d", "\\D", "\\w", "\\W", "\\s", "\\S"};
    if (const unsigned int which = Below(14); which < 7)
        return Plain(Stock[which], 1);
    static constexpr const char* Items[] = {
        "a",         "b",          "A",          "a-b",       "A-Z",        "0-9",
        "Z-b",       "\\d",        "\\W",        "\\s",       "_",          " ",
        "\\n",       "\\.",        "[:alpha:]",  "[:digit:]", "[:^digit:]", "[:space:]",
        "[:punct:]", "[:alnum:]",  "[:xdigit:]", "[:print:]", "\\x41",      "[:blank:]",
        "[:upper:]", "[:^lower:]",
    };
    std::string text = Below(3) == 0 ? "[^" : "[";
    for (unsigned int count = 1 + Below(3); count > 0; --count)
        text += Items[Below(m_IgnoresCase && !m_Wild ? 24 : 26)];
    return Plain(text + "]", 1);
}

CPattern CGenerator::Boundary()
{
    static constexpr const char* Boundaries[] = {"^",   "$",   "\\A", "\\Z",
                                                 "\\z", "\\b", "\\B", "\\G"};
    const bool knowsG = m_Wild || (m_Flags & Global);
    CPattern boundary = Plain(Boundaries[Below(knowsG ? 8 : 7)], 0);
    boundary.m_Assertion = !m_Wild;
    return boundary;
}

CPattern CGenerator::Capture(int depth)
{
    const std::size_t index = m_Groups.size();
    CGroup group = {"", 0, static_cast<int>(index) + 1, false, m_Repetitions > 0, m_Shields > 0};
    std::string open = "(";
    if (Chance(4)) {
        // Names are equal at times when that is allowed.
        group.m_Name = "n" + std::to_string(m_Wild ? Below(2) : index);
        static constexpr const char* Openings[] = {"(?<", "(?'", "(?P<"};
        const unsigned int opening = Below(3);
        open = Openings[opening] + group.m_Name + (opening == 1 ? "'" : ">");
    } else {
        group.m_Own = ++m_Unnamed;
    }
    m_Groups.push_back(group);
    const CPattern inner = Alternatives(depth);
    m_Groups[index].m_Closed = true;
    return Around(open, inner, ")");
}

CPattern CGenerator::FixedWidth()
{
    CPattern whole;
    for (unsigned int branches = 1 + Below(2); branches > 0; --branches) {
        for (unsigned int count = 1 + Below(2); count > 0; --count) {
            const CPattern one = Below(2) == 0 ? Class() : Character();
            whole += Below(3) == 0 ? Around("(?:", one, ")") : one;
        }
        if (branches > 1)
            whole += Plain("|", 0);
    }
    return whole;
}

CPattern CGenerator::Assertion(int depth)
{
    static constexpr const char* Openings[] = {"(?=", "(?!", "(?<=", "(?<!"};
    const unsigned int which = Below(4);
    const CInside shielded(m_Shields);
    const CPattern inner = which >= 2 && !m_Wild ? FixedWidth() : Alternatives(depth);
    CPattern assertion = Around(Openings[which], inner, ")");
    assertion.m_MinimumWidth = 0;
    assertion.m_Assertion = !m_Wild;
    return assertion;
}

const CGenerator::CGroup* CGenerator::PickGroup(bool forCondition)
{
    if (m_Groups.empty())
        return nullptr;
    const CGroup& group = m_Groups[Below(static_cast<unsigned int>(m_Groups.size()))];
    const bool meansTheSame =
        group.m_Closed && !group.m_Repeated && !(forCondition && group.m_Shielded);
    return m_Wild || meansTheSame ? &group : nullptr;
}

CPattern CGenerator::Backreference()
{
    const CGroup* const group = PickGroup(false);
    if (group == nullptr)
        return Character();
    if (!group->m_Name.empty())
        return Plain(Below(2) == 0 ? "\\k<" + group->m_Name + ">" : "\\k'" + group->m_Name + "'",
                     0);
    // In a group of its own, because a digit may follow.
    const std::string own = "(?:\\" + std::to_string(group->m_Own) + ")";
    return {own, own, "(?:\\" + std::to_string(group->m_Peer) + ")", 0, false};
}

CPattern CGenerator::Condition(int depth)
{
    const CGroup* const group = PickGroup(true);
    if (group == nullptr)
        return Character();
    const std::string name = group->m_Name;
    CPattern open = {"(?(" + (name.empty() ? std::to_string(group->m_Own) : name) + ")", "", "", 0,
                     false};
    open.m_Slow = open.m_Own;
    open.m_Peer = "(?(" + (name.empty() ? std::to_string(group->m_Peer) : name) + ")";

    const bool kept = m_KeepsFlags;
    m_KeepsFlags = true;
    const CInside shielded(m_Shields);
    const CPattern yes = Sequence(depth);
    const CPattern no = Sequence(depth);
    m_KeepsFlags = kept;

    CPattern whole = open;
    whole += yes;
    whole += Plain("|", 0);
    whole += no;
    whole += Plain(")", 0);
    whole.m_MinimumWidth = std::min(yes.m_MinimumWidth, no.m_MinimumWidth);
    return whole;
}

CPattern CGenerator::InlineFlags()
{
    static constexpr const char* Letters[] = {"i", "m", "s", "-i", "-m", "-s", "im-s", "s-i"};
    const std::string letters = Letters[Below(8)];
    if (letters.find('i') != std::string::npos)
        m_IgnoresCase = true;
    if (Below(2) == 0 && !m_KeepsFlags) {
        CPattern change = Plain("(?" + letters + ")", 0);
        change.m_Assertion = true;
        return change;
    }
    return Around("(?" + letters + ":", Character(), ")");
}

CPattern CGenerator::Call()
{
    // One is enough: several make patterns that take for ever.
    if (m_Calls++ > 0)
        return Character();
    static constexpr const char* Calls[] = {"(?R)", "(?1)", "(?2)", "(?R<n0>)", "(?R'n1')", "(?9)"};
    return Plain(Calls[Below(6)], 0);
}

} // namespace Fuzz
