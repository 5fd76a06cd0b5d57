// The regular-expression engine: what patterns match. What they are compiled to is in
// RegexTreeTest.cpp.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <thread>
#include <vector>

#include <regex/regex.h>

#include "SmallStack.h"

namespace {

using namespace std::string_literals;
using namespace Vorn::Regex;
using Regexp = CRegexpT<char>;

// "begin-end" of group 0 and of each further group, "-" for one that took no part.
std::string Shown(const MatchResultT<0>& result)
{
    if (!result.Matched())
        return "none";
    std::string shown;
    for (int n = 0; n <= result.MaxGroup(); ++n) {
        shown += n > 0 ? " " : "";
        shown += result.GroupBegin(n) < 0 ? "-"
                                          : std::to_string(result.GroupBegin(n)) + "-" +
                                                std::to_string(result.GroupEnd(n));
    }
    return shown;
}

struct CRow
{
    std::string m_Pattern;
    int m_Flags;
    std::string m_Text;
    std::string m_Groups;
};

// Pattern and text stand in blocks of exactly their size: a sanitizer sees what is read outside.
void Check(const std::vector<CRow>& rows)
{
    for (const auto& row : rows) {
        SCOPED_TRACE("\"" + row.m_Pattern + "\" flags " + std::to_string(row.m_Flags) + " on \"" +
                     row.m_Text.substr(0, 80) + "\"");
        const std::vector<char> pattern(row.m_Pattern.begin(), row.m_Pattern.end());
        const std::vector<char> text(row.m_Text.begin(), row.m_Text.end());
        const Regexp regexp(std::string_view(pattern.data(), pattern.size()), row.m_Flags);
        EXPECT_EQ(Shown(regexp.Match(text.data(), static_cast<int>(text.size()))), row.m_Groups);
    }
}

TEST(Regex, LiteralsAndEscapes)
{
    Check({
        {"abc", 0, "xabc", "1-4"},
        {"", 0, "abc", "0-0"},
        {"", 0, "", "0-0"},
        {"a", 0, "", "none"},
        {"\\x41\\x{42}\\u0043\\u{44}", 0, "ABCD", "0-4"},
        {"\\xZ\\uZ", 0, "xZuZ", "0-4"},
        {"\\x414\\x7", 0, "A4\a", "0-3"},
        {"\\x{1234567841}", 0, "x", "0-1"}, // eight digits, of them the last eight bits
        {"\\x{41", 0, "A", "0-1"},
        {"\\x", 0, "x", "0-1"},
        {"\\a\\e\\f\\n\\r\\t\\v", 0, "\a\033\f\n\r\t\v", "0-7"},
        {"\\.\\c\\y\\-\\#", 0, ".cy-#", "0-5"},
        {"a\\", 0, "a\\", "0-2"},
        {"a\0b\\\0"s, 0, "a\0b\0"s, "0-4"},
        {"\xe9\xff~", 0, "\xe9\xff~", "0-3"},
        {"\\Qa.b\\E", 0, "axb a.b", "4-7"},
        {"\\Ua.b\\E", 0, "AxB A.B", "4-7"},
        {"\\LA.B\\EC", 0, "a.bC", "0-4"},
        {"\\Qab\\E*", 0, "abbb", "0-4"},
        {"\\Q\\d+", 0, "\\d+", "0-3"},
        {"\\Ea\\E", 0, "a", "0-1"},
        {"a(?#b)c", 0, "ac", "0-2"},
        {"a(?#b", 0, "a", "0-1"},
        {"[a(?#x)b]+", 0, "xab", "1-3"},
        {"a]b}", 0, "a]b}", "0-4"},
        {"*a", 0, "*a", "0-2"},
        {"x|?b", 0, "?b", "0-2"},
        {"(+a)", 0, "+a", "0-2 0-2"},
        {"a**", 0, "aa*", "0-3"},
        {"a)b", 0, "ab", "0-1"}, // a stray ")" ends the pattern
        {")b", 0, "b", "0-0"},
        {"(a", 0, "a", "0-1 0-1"},
        {"(?:a", 0, "a", "0-1"},
        {"ABC", IgnoreCase, "xabC", "1-4"},
    });
}

TEST(Regex, Quantifiers)
{
    const std::string hundred(100, 'a');
    Check({
        {"a*", 0, "aaa", "0-3"},
        {"a*?", 0, "aaa", "0-0"},
        {"a+?", 0, "aaa", "0-1"},
        {"a??b", 0, "ab", "0-2"},
        {"a*+a", 0, "aaa", "none"},
        {"a?+a", 0, "aa", "0-2"},
        {"a{2}", 0, "aaa", "0-2"},
        {"a{2,}", 0, "aaaa", "0-4"},
        {"a{1,2}", 0, "aaa", "0-2"},
        {"a{2,3}?", 0, "aaaa", "0-2"},
        {"a{2,3}+a", 0, "aaa", "none"},
        {"a{2}?b", 0, "aaab", "1-4"}, // "?" and "+" behind an exact count mean nothing
        {"a{2}+a", 0, "aaa", "0-3"},
        {"a{,3}", 0, "aaa", "0-0"},
        {"a{}b", 0, "ab", "1-2"},
        {"a{x}b", 0, "ab", "1-2"},
        {"a{3,2}", 0, "aaaa", "0-3"},
        {"a{ 2 , 3 }", 0, "aaaa", "0-3"},
        {"a{2x}", 0, "aaa", "0-2"},
        {"a{2 3}", 0, "aaa", "0-2"},
        {"a{2", 0, "aaa", "0-2"},
        {"a{1000}", 0, hundred, "0-100"}, // three digits are read
        {"a{1000}", 0, hundred.substr(1), "none"},
        {"a{100,1000}", 0, hundred + "a", "0-100"},
        {"(a){0}b", 0, "ab", "1-2 -"},
        {"a*??", 0, "a?", "0-2"},
        {"<.+?>", 0, "<a><b>", "0-3"},
        {"(a+?)(a*)", 0, "aaa", "0-3 0-1 1-3"},
        {"(ab){2,3}", 0, "ababab", "0-6 4-6"},
        {"(?:ab)?+ab", 0, "ab", "none"},
        {"(a|ab)++c", 0, "abc", "none"},
        {"(a|ab)+c", 0, "aabc", "0-4 1-3"},
        {"(a|ab){2}c", 0, "abac", "0-4 2-3"},
        {"(a|ab){2}?c", 0, "aabc", "0-4 1-3"},
        // Once more comes before another way for an earlier iteration.
        {"(?:(a)|(ab)|(b))*?$", 0, "ab", "0-2 0-1 - 1-2"},
    });
}

TEST(Regex, IterationsThatDoNotMove)
{
    Check({
        {"(a?)*", 0, "b", "0-0 -"},
        {"(a?)*", 0, "a", "0-1 0-1"},
        {"(|a)*", 0, "a", "0-1 0-1"},
        {"(|a)*?b", 0, "ab", "0-2 0-1"},
        {"(a*)+", 0, "b", "0-0 0-0"},
        {"(a)*a", 0, "a", "0-1 -"},
        {"(?:a?)*b", 0, "aac", "none"},
        {"(?:a?)*?b", 0, "aac", "none"},
        {"(a?)*a", 0, "a", "none"}, // back at the start of the repetition is no other way
        {"(?:)*a", 0, "a", "0-1"},
        {"(?:\\b)+a", 0, "a", "0-1"},
        {"()*+\\1", 0, "", "none"},
    });
}

TEST(Regex, EachEndIsOfferedOnce)
{
    Check({
        // The first way to an end gives the captures; that group 2 can end there too is not tried.
        {"(?:(a)|(a))*\\2b", 0, "aab", "none"},
        {"(?:(a)|(a))*?\\2b", 0, "aab", "0-3 - 0-1"},
        {"(?:(a)|(ab)|(b))*c", 0, "abc", "0-3 0-1 - 1-2"},
        {"(a|ab|b)*bc", 0, "abbc", "0-4 1-2"},
        // A group for the other direction, called: ends on both sides of the start.
        {"(?<=(a))(?:b|(?1))*ab$", 0, "ab", "1-2 0-1"},
    });
}

TEST(Regex, Classes)
{
    Check({
        {"[abc]+", 0, "xcab", "1-4"},
        {"[^abc]+", 0, "abxy", "2-4"},
        {"[a-c-]+", 0, "x-b", "1-3"},
        {"[-a]+", 0, "a-", "0-2"},
        {"[a-]+", 0, "a-", "0-2"},
        {"[a-\\d]+", 0, "ba-5", "1-4"},
        {"[c-a]", 0, "a-bc", "none"},
        {"[]a]", 0, "a]", "none"}, // "]" closes, even at once
        {"[^]", 0, "\n", "0-1"},
        {"[^^]", 0, "^a", "1-2"},
        {"[a^]+", 0, "^a", "0-2"},
        {"[a[b]+", 0, "x[ab", "1-4"},
        {"[(|)*+?.{}$]+", 0, "(|)*+?.{}$", "0-10"},
        {"[\\b]", 0, "a\b", "1-2"},
        {"[\\w-]+", 0, ".a-_", "1-4"},
        {"[^\\d\\s]+", 0, "1 ab", "2-4"},
        {"[\\A\\z]+", 0, "zA", "0-2"},
        {"[\\G]", 0, "G", "none"},
        {"[\\1]+", 0, "\\1", "0-2"},
        {"[\\x41-C]+", 0, "D@BAC", "2-5"},
        {"[\\Qa]\\E]+", 0, "]a", "0-2"},
        {"[a", 0, "a", "0-1"},
        {"[a-z]", IgnoreCase, "Q", "0-1"},
        {"[^a]", IgnoreCase, "Aab", "2-3"},
        {"[Z-a]+", IgnoreCase, "bzAZay", "1-5"},
        {"[k]", IgnoreCase, "K", "0-1"},
        {"a.c", 0, "a\nc", "none"},
        {"a.c", DotMatchesNewline, "a\nc", "0-3"},
        {"[\\x80-\\xff]", 0, "\xe9", "none"}, // ranges are of signed characters
        {"[\\xe9]", 0, "\xe9", "0-1"},
        {".[^a]", 0, "\xe9\xe9", "0-2"},
        {"\\w+", 0, "\xe9-_aZ9-", "2-6"},
        {"\\W\\D", 0, "a1\xe9.", "2-4"},
        {"\\s+", 0, "\f\v \t\r\n", "2-6"}, // backwards "\f" and "\v" are blanks too
        {"\\s+", RightToLeft, "\f\v \t\r\n", "0-6"},
        {"\\S", 0, "\v", "0-1"},
        {"\\S", RightToLeft, "\v", "none"},
        {"[\\s]+", RightToLeft, "\f\v ", "0-3"},
        {"[:alpha:]+", 0, "1ab", "1-3"},
        {"[:^digit:]", 0, "1a", "1-2"},
        {"[[:alpha:]_]+", 0, "1a_", "1-3"},
        {"[^[:digit:]a]", 0, "1ab", "2-3"},
        {"[[:^digit:]1]+", 0, "2a1", "1-3"},
        {"[:bogus:]+", 0, "xbus:", "1-5"}, // an unknown name is a class of its characters
        {"[[:bogus:]]", 0, "xyz", "none"},
        {"[[:digit:]-a]+", 0, "1-a", "0-3"},
    });
}

TEST(Regex, PosixClassesFollowTheLibrary)
{
    const struct
    {
        const char* m_Name;
        int (*m_Test)(int);
    } rows[] = {{"alnum", isalnum},
                {"alpha", isalpha},
                {"ascii", isascii},
                {"cntrl", iscntrl},
                {"digit", isdigit},
                {"graph", isgraph},
                {"lower", islower},
                {"print", isprint},
                {"punct", ispunct},
                {"space", isspace},
                {"upper", isupper},
                {"xdigit", isxdigit},
                {"blank", [](int c) { return c == 9 || c == 32 ? 1 : 0; }}};
    for (const auto& row : rows)
        for (const bool negated : {false, true}) {
            const std::string pattern = "["s + (negated ? ":^" : ":") + row.m_Name + ":]";
            const Regexp regexp(pattern.c_str());
            for (int byte = 0; byte <= UCHAR_MAX; ++byte) {
                const char text = static_cast<char>(byte);
                EXPECT_EQ(regexp.Match(&text, 1).Matched(), (row.m_Test(byte) != 0) != negated)
                    << pattern << " on byte " << byte;
            }
        }
}

TEST(Regex, Positions)
{
    Check({
        {"^b", 0, "a\nb", "none"},
        {"^b", MultiLine, "a\nb", "2-3"},
        {"a$", 0, "a\n", "none"},
        {"a$", MultiLine, "a\n", "0-1"},
        {"a\\Z", 0, "a\n", "0-1"},
        {"a\\Z", 0, "a\r\n", "0-1"},
        {"a\\r\\Z", 0, "a\r\n", "0-2"},
        {"a\\Z", 0, "a\nb", "none"},
        {"a\\Z", 0, "a\r", "none"},
        {"a\\z", 0, "a\n", "none"},
        {"\\Ab", MultiLine, "a\nb", "none"},
        {"\\bfoo\\b", 0, "foobar foo", "7-10"},
        {"\\B", 0, "ab", "1-1"},
        {"\\b", 0, "", "none"},
        {"\\B", 0, "", "0-0"},
        {"\\Ga", 0, "ba", "1-2"},
        {"\\Ga", Global, "ba", "none"},
        {"a\\G", Global | RightToLeft, "ba", "1-2"},
        {"a\\G", Global | RightToLeft, "ab", "none"},
    });
}

TEST(Regex, GroupsAndReferences)
{
    Check({
        {"^(\\d+)\\.(\\d+) (.*)", 0, "2.6 x", "0-5 0-1 2-3 4-5"},
        {"^Red Hat (.*) release (\\d+(\\.\\d+)*){1} (.*)", 0,
         "Red Hat Enterprise Linux Server release 5.11 (Tikanga)", "0-54 8-31 40-44 41-44 45-54"},
        {"(\\d+(\\.\\d+)*){1}", 0, "5.11", "0-4 0-4 1-4"},
        {"a(b)?c", 0, "ac", "0-2 -"},
        {"(a|ab)c", 0, "abc", "0-3 0-2"},
        {"^(.*)b(.*)c", 0, "abbcb", "0-4 0-2 3-3"},
        {"^(a*)ab\\1", 0, "aaaba", "none"},
        {"^(a*)ab\\1", 0, "aaabaa", "0-6 0-2"},
        {"(?<n>(?<n>a*)ab)", 0, "aaab", "0-4 0-4"},
        {"(a|ab)(c|bcd)(d*)", 0, "abcd", "0-4 0-1 1-4 4-4"},
        {"((a)|b)+", 0, "ab", "0-2 1-2 0-1"},
        {"(a)\\1", 0, "aa", "0-2 0-1"},
        {"(a)\\1", 0, "aA", "none"},
        {"(a)\\1", IgnoreCase, "aA", "0-2 0-1"},
        {"\\1(a)", 0, "aa", "none"},
        {"(ab\\1)", 0, "abab", "0-4 0-4"}, // the group so far
        {"a\\0", 0, "aa", "0-2"},
        {"(a*)\\1b", 0, "aab", "0-3 0-1"},
        {"()\\1", 0, "", "0-0 0-0"},
        {"(a)\\10", 0, "aa0", "none"},
        {"(a)\\0011", 0, "aa1", "0-3 0-1"},
        {"(a)\\k<1>\\k'1'\\g1", 0, "aaaa", "0-4 0-1"},
        {"(?<n>a)\\k<N>", 0, "aa", "0-2 0-1"},
        {"\\k<none>", 0, "", "none"},
        {"(?<n>a)(b)", 0, "ab", "0-2 1-2 0-1"}, // names are numbered last
        {"(?<n>a)|(?<N>b)", 0, "b", "0-1 0-1"},
        {"(?'q'a)(?P<p>b)", 0, "ab", "0-2 0-1 1-2"},
        {"(?<3>a)(b)", 0, "ab", "0-2 1-2 - 0-1"},
        {"(?< 2 >a)", 0, "a", "0-1 - 0-1"},
        {"(?<n>a)(?<5>b)(?<m>c)", 0, "abc", "0-3 0-1 - - - 1-2 2-3"},
        {"(?<1234>a)", 0, "a", "0-1 0-1"},
        {"(?<1>a)(b)", 0, "ab", "0-2 1-2"},
        {"(?<0>a)", 0, "ba", "1-2"},
        {"(?<n>a(?<n>b)c)", 0, "abc", "0-3 0-3"},
        {"(?P=x)a", 0, "", "0-0 0-0"}, // a name that runs to the end
        // The assertion has captured and taken it back.
        {"(?:(?!(a))x|\\1a)", 0, "aa", "none"},
        {"(?:(?!(a))x|(?(1)a|b))", 0, "a", "0-1 -"}, // but entered it was
    });
    const Regexp explicitNumber("(?<999>x)");
    const CTextMatch match = explicitNumber.Match("ax");
    EXPECT_EQ(match.MaxGroup(), 999);
    EXPECT_EQ(match.Group(999), "x");
    EXPECT_EQ(match.Group(998), "");
}

TEST(Regex, InlineFlags)
{
    Check({
        {"(?i)abc|ABD", 0, "abd", "0-3"},
        {"(?i:a)b", 0, "ABAb", "2-4"},
        {"a(?i)b", 0, "AbaB", "2-4"},
        {"((?i)a)b", 0, "ABAb", "2-4 2-3"},
        {"a|(?i)b|c", 0, "AC", "1-2"},
        {"(?i-i)a", 0, "Aa", "1-2"},
        {"(?-i)a", IgnoreCase, "Aa", "1-2"},
        {"(?yI)a", 0, "A", "0-1"},
        {"(?s).", 0, "\n", "0-1"},
        {"(?m)^b", 0, "a\nb", "2-3"},
        {"(?-m)^b", MultiLine, "a\nb", "none"},
        {"(?g)\\Ga", 0, "ba", "none"},
        {"(?-g:\\G)a", Global, "ba", "1-2"},
        {" a b # c\n d", Extended, "abd", "0-3"},
        {"a#x\rb", Extended, "ab", "0-2"},
        {"[ #]+", Extended, "a# ", "1-3"},
        {"a\\ b {2}", Extended, "a bb", "0-4"},
        {"(?x) a", 0, " a", "0-2"}, // there is no inline letter for it
    });
}

TEST(Regex, AssertionsAtomsAndConditions)
{
    Check({
        {"(?=(\\d+))\\w+", 0, "12ab", "0-4 0-2"},
        {"a(?!b)", 0, "abac", "2-3"},
        {"(?<=a)b", 0, "bab", "2-3"},
        {"(?<!a)b", 0, "abb", "2-3"},
        {"(?<=a+)b", 0, "aab", "2-3"},
        {"(?<=(a)(b*))c", 0, "abbc", "3-4 0-1 1-3"},
        {"(?!(a))b", 0, "b", "0-1 -"},
        {"a(?=b(?!c))", 0, "abcabd", "3-4"},
        {"(?>a|ab)c", 0, "abc", "none"},
        {"(?>(a+))b", 0, "aab", "0-3 0-2"},
        {"(?=(a+))a*b\\1", 0, "baaabac", "3-6 3-4"},
        {"(a)?(?(1)b|c)", 0, "ab", "0-2 0-1"},
        {"(a)?(?(1)b|c)", 0, "ac", "1-2 -"},
        {"(a)?(?(1)b|c|d)", 0, "d", "0-1 -"},
        {"(a)?(?(1)b)c", 0, "c", "0-1 -"},
        {"(?(9)x|y)", 0, "xy", "1-2"},
        {"(?<n>a)?(?(N)b|c)", 0, "ab", "0-2 0-1"},
        {"(?<n>a)?(?(n)b|c)", 0, "c", "0-1 -"},
        {"(?(?=a)ab|cd)", 0, "cd", "0-2"},
        {"(?(?=(a))ab|c)", 0, "ab", "0-2 0-1"},
        {"(?(?!a)c|ab)", 0, "ab", "0-2"},
        {"(?(?<=a)b|c)", 0, "ab", "1-2"},
        {"(?(ab)abc|x)", 0, "abc", "0-3"}, // no such name: looked ahead for
        {"(?(none)x|y)", 0, "nonexy", "5-6"},
        {"(?(1", 0, "", "0-0"},
    });
}

TEST(Regex, Calls)
{
    const auto parentheses = [](std::size_t depth) {
        return std::string(depth, '(') + std::string(depth, ')');
    };
    Check({
        {"(a(?1)?b)", 0, "aabb", "0-4 0-4"},
        {"\\((?:[^()]|(?R))*\\)", 0, "x(a(b)c)", "1-8"},
        {"a(?0)?b", 0, "aaabb", "1-5"},
        {"(?<n>a)(?R<N>)(?R'n')", 0, "aaa", "0-3 2-3"},
        {"(a)(?1)", 0, "aa", "0-2 1-2"},
        {"(?R<none>)(?9)a", 0, "a", "0-1"}, // an unknown group is the empty string
        {"(?R)", 0, "a", "none"},
        {"(?R)|a", 0, "a", "0-1"},
        {"\\((?R)?\\)", 0, parentheses(101), "0-202"}, // a hundred calls, and no further
        {"\\((?R)?\\)", 0, parentheses(102), "1-203"},
    });
}

TEST(Regex, RightToLeft)
{
    Check({
        {"a+", RightToLeft, "baab", "1-3"},
        {"(a)(b)", RightToLeft, "abab", "2-4 2-3 3-4"},
        {"(\\d+)(\\d+)", RightToLeft, "1234", "0-4 0-1 1-4"},
        {"^a", RightToLeft, "aba", "0-1"},
        {"(a)\\1", RightToLeft, "aa", "none"}, // what stands behind is matched first
        {"\\1(a)", RightToLeft, "aa", "0-2 1-2"},
        {"\\1(a)", RightToLeft | IgnoreCase, "Aa", "0-2 1-2"},
        {"a(?=b)", RightToLeft, "abb", "0-1"},
        {"(?<=a)b", RightToLeft, "abb", "1-2"},
        {".*?", RightToLeft, "aab", "3-3"},
        {"[a-c]{2}", RightToLeft, "abcd", "1-3"},
        {"abc", RightToLeft | IgnoreCase, "xABCx", "1-4"},
        {"a|ab", RightToLeft, "ab", "0-2"},
        {"(b|ab)+?c", RightToLeft, "ababc", "3-5 3-4"},
        {"^(b|ab)+c", RightToLeft, "ababc", "0-5 0-2"},
        {"^(?>a|ba)c", RightToLeft, "bac", "none"},
        {"^$", RightToLeft | MultiLine, "a\n\nb", "2-2"},
        {"(?:[ab]|c)*+", RightToLeft, "xabc", "1-4"},
        {"(?<n>a)(?(n)b|c)", RightToLeft, "ab c", "none"},
        {"(?(n)b|c)(?<n>a)", RightToLeft, "ba", "0-2 1-2"},
        {"(?R<n>)(?<n>a)", RightToLeft, "aa", "0-2 0-1"},
        {"", RightToLeft, "ab", "2-2"},
    });
}

TEST(Regex, RepeatedSearch)
{
    const struct
    {
        const char* m_Pattern;
        int m_Flags;
        const char* m_Text;
        const char* m_Matches; // of each group 0
    } rows[] = {
        {"\\d", 0, "1 2 3", "0-1 2-3 4-5 "},
        {"\\d", RightToLeft, "1 2 3", "4-5 2-3 0-1 "},
        {"x*", 0, "axb", "0-0 1-2 2-2 3-3 "},
        {"x*", RightToLeft, "ax", "1-2 1-1 0-0 "},
        {"", 0, "ab", "0-0 1-1 2-2 "},
        {"\\Ga", Global, "aaba", "0-1 1-2 "},
        {"a\\G", Global | RightToLeft, "abaa", "3-4 2-3 "},
        {"^", MultiLine, "a\r\nb\rc\nd", "0-0 3-3 5-5 7-7 "},
        {"$", MultiLine, "a\r\nb\rc\nd", "1-1 4-4 6-6 8-8 "},
        {"\\Z", 0, "a\r\n", "1-1 2-2 3-3 "},
        {"\\Z", 0, "\na\n", "2-2 3-3 "},
        {"\\b", 0, "ab c", "0-0 2-2 3-3 4-4 "},
        {"(?!(a))b|(?:(a)|c)", 0, "abca", "0-1 1-2 2-3 3-4 "},
        {"q", 0, "abc", ""},
    };
    for (const auto& row : rows) {
        const Regexp regexp(row.m_Pattern, row.m_Flags);
        std::string found;
        for (const auto& match : regexp.Matches(row.m_Text))
            found +=
                std::to_string(match.GroupBegin(0)) + "-" + std::to_string(match.GroupEnd(0)) + " ";
        EXPECT_EQ(found, row.m_Matches) << row.m_Pattern << " on " << row.m_Text;
    }
}

TEST(Regex, ContextBetweenSearches)
{
    const Regexp regexp("a|");
    CContext context("ab", 2);
    const int expected[][2] = {{0, 1}, {1, 2}, {2, 3}}; // lastBeginPos, beginPos
    for (const auto& positions : expected) {
        EXPECT_TRUE(regexp.Match(&context).Matched());
        EXPECT_EQ(context.lastBeginPos, positions[0]);
        EXPECT_EQ(context.beginPos, positions[1]);
        EXPECT_EQ(context.currentPos, positions[1]);
    }
    EXPECT_FALSE(regexp.Match(&context).Matched());
    EXPECT_FALSE(regexp.Match(&context).Matched());

    // A context may go on with another pattern, and its text may be searched again.
    context.currentPos = context.beginPos = 0;
    EXPECT_EQ(Shown(Regexp("(a)(b)").Match(&context)), "0-2 0-1 1-2");
    context.currentPos = 3;
    EXPECT_FALSE(regexp.Match(&context).Matched());
}

TEST(Regex, TextsAndViews)
{
    const char* const null = nullptr;
    EXPECT_EQ(Regexp(null).Match("a", 1).GetSize(), 0);
    EXPECT_FALSE(Regexp(null).Match("").Matched());
    EXPECT_EQ(Regexp("").Match(null, 5).GroupEnd(0), 0);
    EXPECT_TRUE(Regexp("^$").Match(null).Matched());
    EXPECT_TRUE(Regexp("^$").Match(std::string_view()).Matched());
    EXPECT_TRUE(Regexp(std::string_view(), NoFlags).Match("a").Matched());
    EXPECT_EQ(Shown(Regexp("\\z").Match("a\0b", 3)), "3-3");

    const std::string line = "port=8080;";
    const Regexp regexp("(\\w+)=(\\d+)(x)?");
    const CTextMatch match = regexp.Match(std::string_view(line).substr(0, 7));
    ASSERT_TRUE(match);
    EXPECT_EQ(match.Group(0), "port=80");
    EXPECT_EQ(match.Group(2), "80");
    EXPECT_EQ(match.Group(3), "");
    EXPECT_EQ(match.Group(4), "");
    EXPECT_EQ(match.GroupBegin(3), -1);
    EXPECT_EQ(match.GroupBegin(INT_MAX), -1);
    EXPECT_EQ(match.GroupEnd(-9), -1);
    MatchResultT<0> copy;
    copy = match;
    EXPECT_EQ(Shown(copy), Shown(match));
}

TEST(Regex, OnePatternManyThreads)
{
    const Regexp regexp("(?<n>[[:alpha:]]+)(?:(?=-)(-)|(?<!x)=)(?>\\d++|(?R))(?(n)(,|$))",
                        IgnoreCase);
    const std::string text = "key-12,";
    const std::string expected = "0-7 3-4 6-7 0-3";
    std::vector<std::thread> threads;
    std::vector<int> good(4);
    for (auto& count : good)
        threads.emplace_back([&regexp, &text, &expected, &count] {
            for (int i = 0; i < 500; ++i)
                count += Shown(regexp.Match(text)) == expected ? 1 : 0;
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(good, std::vector<int>(4, 500));
}

std::string MatchOnStack(const std::string& pattern, const std::string& text, std::size_t stack)
{
    const Regexp regexp(pattern, NoFlags);
    std::string shown = "no thread";
    RunOnStack(stack, [&] { shown = Shown(regexp.Match(text)); });
    return shown;
}

TEST(RegexStack, IterationsDoNotDeepenIt)
{
    constexpr std::size_t Stack = 256 * 1024;
    std::string text(1'000'000, 'a');
    for (std::size_t i = 1; i < text.size(); i += 2)
        text[i] = 'b';
    const struct
    {
        const char* m_Pattern;
        const char* m_Groups;
    } rows[] = {
        {"^(?:a|b)*$", "0-1000000"},
        {"^(?:a|b)*c", "none"},
        {"^(a|b)*?$", "0-1000000 999999-1000000"},
        {"^(?:ab|a)*+$", "0-1000000"},
        {"^(?:(?:a|b){999}){999}", "0-998001"},
        {"^(a|b)*c", "none"},
        {"^.*c", "none"},
        {"^.*?c", "none"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(MatchOnStack(row.m_Pattern, text, Stack), row.m_Groups) << row.m_Pattern;
}

TEST(RegexStack, DeepestCalls)
{
#ifndef SMALL_FRAMES
    GTEST_SKIP() << "the frames of this build are larger";
#endif
    constexpr std::size_t Stack = 4 * 1024 * 1024;
    const struct
    {
        const char* m_Open;
        const char* m_Close;
    } rows[] = {{"(", ")"},        {"(x|x?", ")*"},    {"(x|x?", ")+?"},  {"(x|x?", ")++"},
                {"(x|x?", "){1}"}, {"(?>x|x?", ")*+"}, {"(?=x|x?", ")+"}, {"(?(1)x|y|x?", ")*"}};
    for (const auto& row : rows) {
        // The call is the innermost of 250 levels; a hundred of them are one in the other.
        std::string pattern = "a(?R)";
        for (int level = 1; level < MostNesting; ++level)
            pattern = row.m_Open + pattern + row.m_Close;
        EXPECT_NE(MatchOnStack(pattern, std::string(101, 'a'), Stack), "no thread") << row.m_Open;
    }
}

} // namespace
