// Patterns made from fuzz bytes, each in three spellings that mean the same.
//
// A shared pattern keeps to what the engine and PCRE2 read alike, so that match and captures can
// be compared. Left out, because the engine differs there on purpose or says nothing:
//
//   - a variable repetition of something that can match the empty string (the engine never
//     returns to a greedy repetition's start that way);
//   - back-references to, and conditions on, groups inside a repetition (the engine offers each
//     end of a greedy repetition once, whatever was captured on the way), groups that are still
//     open, and conditions on groups inside assertions and atomic groups;
//   - "+" after an exact count (ignored by the engine, possessive elsewhere), group calls, equal
//     names, right-to-left matching, [:upper:] and [:lower:] without case;
//   - "\r", "\v" and "\f", in patterns and texts: line ends and "\s" differ;
//   - "\G" without the Global flag; ranges beyond ASCII; counts of more than one digit.
//
// Look-behinds have one width for each branch. Names are numbered last by the engine, so a group's
// number differs; SharedGroups() says which is which.
//
// A wild pattern has no such limits and is for the engine alone.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

namespace Fuzz {

// The same pattern for three readers.
struct CPattern
{
    std::string m_Own;  // the engine
    std::string m_Slow; // the engine, with each repeated item X written as (?:X|(?!)), which keeps
                        // the engine from its tight loops
    std::string m_Peer; // PCRE2: back-references carry its group numbers
    int m_MinimumWidth = 0;
    bool m_Assertion = false; // consumes nothing by its nature; takes no quantifier
};

class CGenerator
{
public:
    CGenerator(FuzzedDataProvider& data, int flags, bool wild)
        : m_Data(data), m_Flags(flags), m_Wild(wild), m_IgnoresCase(flags & IgnoreCase)
    {}

    CPattern Pattern() { return Alternatives(3); }

    // Group numbers {engine, PCRE2}, for each capture group of the pattern.
    std::vector<std::pair<int, int>> SharedGroups() const;

    // Compile flags, as the engine has them.
    enum : int
    {
        DotMatchesNewline = 1,
        MultiLine = 2,
        Global = 4,
        IgnoreCase = 8,
        RightToLeft = 16,
        Extended = 32,
    };

private:
    struct CGroup
    {
        std::string m_Name; // empty: numbered as it opens
        int m_Own;          // unnamed groups only
        int m_Peer;
        bool m_Closed;
        bool m_Repeated;
        bool m_Shielded; // inside an assertion, atomic group or condition
    };

    unsigned int Below(unsigned int limit)
    {
        return m_Data.ConsumeIntegralInRange<unsigned int>(0, limit - 1);
    }

    // Never when the fuzz bytes are used up, so that every pattern ends.
    bool Chance(unsigned int oneIn) { return Below(oneIn) == oneIn - 1; }

    CPattern Alternatives(int depth);
    CPattern Sequence(int depth);
    CPattern Item(int depth);
    CPattern Atom(int depth);
    CPattern Character();
    CPattern Class();
    CPattern Boundary();
    CPattern Capture(int depth);
    CPattern Assertion(int depth);
    CPattern Backreference();
    CPattern Condition(int depth);
    CPattern InlineFlags();
    CPattern Call();
    CPattern FixedWidth();
    const CGroup* PickGroup(bool forCondition);

    FuzzedDataProvider& m_Data;
    int m_Flags;
    bool m_Wild;
    bool m_IgnoresCase;
    int m_Items = 0;
    int m_Unnamed = 0;
    int m_Calls = 0;
    int m_Repetitions = 0; // around what is being made
    int m_Shields = 0;
    bool m_KeepsFlags = false;
    std::vector<CGroup> m_Groups;
};

} // namespace Fuzz
