// The engine with what it leaves out because only the place counts, beside the engine that leaves
// nothing out: random small patterns and texts, where all groups must be the same.
//
// VORNEX_CASES=N tries N patterns, from VORNEX_SEED on; three texts each.
#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include <regex/Regexp.h>

namespace {

using namespace Vorn::Regex;

class CPatterns
{
public:
    explicit CPatterns(unsigned int seed) : m_Random(seed) {}

    unsigned int Below(unsigned int limit) { return static_cast<unsigned int>(m_Random() % limit); }

    template <std::size_t N>
    const char* OneOf(const char* const (&choices)[N])
    {
        return choices[Below(N)];
    }

    std::string Pattern(int depth)
    {
        std::string pattern = Sequence(depth);
        while (Below(3) == 0)
            pattern += "|" + (Below(8) != 0 ? Sequence(depth) : "");
        return pattern;
    }

    std::string Text()
    {
        std::string text;
        for (unsigned int length = Below(7); length > 0; --length)
            text += "aabab\n"[Below(6)];
        return text;
    }

private:
    std::string Sequence(int depth)
    {
        std::string sequence;
        for (unsigned int items = 1 + Below(3); items > 0; --items) {
            sequence += Atom(depth);
            sequence += OneOf({"", "", "", "*", "+", "?", "*?", "+?", "{2,}", "{1,3}", "*+", "??"});
        }
        return sequence;
    }

    std::string Atom(int depth)
    {
        if (depth == 0 || Below(2) == 0)
            return OneOf({"a", "a", "b", ".", "[ab]", "\\b", "^"});
        return OneOf({"(", "(", "(?:", "(?=", "(?!", "(?>", "(?<=", "(?<!"}) + Pattern(depth - 1) +
               ")";
    }

    std::mt19937 m_Random;
};

unsigned int Setting(const char* name, unsigned int otherwise)
{
    const char* const value = std::getenv(name);
    return value != nullptr ? static_cast<unsigned int>(std::strtoul(value, nullptr, 10))
                            : otherwise;
}

TEST(RegexPlain, WhatIsLeftOutIsNeverMissed)
{
    constexpr std::size_t LongestPattern = 26; // nothing is slow on six characters then
    CPatterns patterns(Setting("VORNEX_SEED", 1));
    unsigned int matched = 0;
    for (unsigned int cases = Setting("VORNEX_CASES", 20'000); cases > 0;) {
        const std::string pattern = patterns.Pattern(2);
        if (pattern.size() > LongestPattern)
            continue;
        --cases;
        const int flags =
            (patterns.Below(4) == 0 ? RightToLeft : 0) | (patterns.Below(6) == 0 ? MultiLine : 0);
        // A call, which is never made: with it the engine has to expect that more than the place
        // counts. It stands where the search begins.
        const std::string call = "(?:(?!)(?R))?";
        const std::string group = "(?:" + pattern + ")";
        const CRegexpT<char> engine(pattern, flags);
        const CRegexpT<char> plain((flags & RightToLeft) != 0 ? group + call : call + group, flags);
        for (int i = 0; i < 3; ++i) {
            const std::string text = patterns.Text();
            const auto found = engine.Match(text);
            const auto expected = plain.Match(text);
            const bool same =
                std::equal(found.begin(), found.end(), expected.begin(), expected.end());
            ASSERT_TRUE(same) << pattern << " with flags " << flags << " on " << text;
            matched += found.Matched() ? 1 : 0;
        }
    }
    EXPECT_GT(matched, 0U);
}

} // namespace
