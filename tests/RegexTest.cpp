// The regular-expression engine: what patterns match. What they are compiled to is in
// RegexTreeTest.cpp.
#include <climits>

#include <regex/regex.h>

#include "RegexRows.h"
#include "SmallStack.h"

namespace {

using namespace Vorn::Regex;
using Regexp = CRegexpT<char>;

// "begin-end" of group 0 and of each further group, "-" for one that took no part.
std::string Shown(const MatchResultT<0>& result)
{
    if (!result.Matched())
        return "none";
    std::string shown;
    for (int n = 0; n <= result.MaxGroup(); ++n)
        shown += (n > 0 ? " " : "") + (result.GroupBegin(n) < 0
                                           ? "-"
                                           : std::to_string(result.GroupBegin(n)) + "-" +
                                                 std::to_string(result.GroupEnd(n)));
    return shown;
}

// Pattern and text stand in blocks of exactly their size: a sanitizer sees what is read outside.
TEST(Regex, Matches)
{
    EachRow("regex", "matches", [](const CDataRow& row) {
        const std::vector<char> pattern(row[0].begin(), row[0].end());
        const std::vector<char> text(row[2].begin(), row[2].end());
        const Regexp regexp(std::string_view(pattern.data(), pattern.size()), Flags(row[1]));
        EXPECT_EQ(Shown(regexp.Match(text.data(), static_cast<int>(text.size()))), row.Rest(3));
    });
    const CTextMatch match = Regexp("(?<999>x)").Match("ax");
    EXPECT_EQ(match.MaxGroup(), 999);
    EXPECT_EQ(match.Group(999), "x");
    EXPECT_EQ(match.Group(998), "");
}

TEST(Regex, RepeatedSearch)
{
    EachRow("regex", "repeated", [](const CDataRow& row) {
        const Regexp regexp(row[0], Flags(row[1]));
        std::string found;
        for (const auto& match : regexp.Matches(row[2]))
            found += (found.empty() ? "" : " ") + std::to_string(match.GroupBegin(0)) + "-" +
                     std::to_string(match.GroupEnd(0));
        EXPECT_EQ(found.empty() ? "none" : found, row.Rest(3));
    });
}

TEST(Regex, PosixClassesFollowTheLibrary)
{
    const std::pair<const char*, int (*)(int)> rows[] = {
        {"alnum", isalnum},
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
    for (const auto& [name, test] : rows)
        for (const bool negated : {false, true}) {
            const std::string pattern = std::string(negated ? "[:^" : "[:") + name + ":]";
            const Regexp regexp(pattern.c_str());
            for (int byte = 0; byte <= UCHAR_MAX; ++byte) {
                const char text = static_cast<char>(byte);
                EXPECT_EQ(regexp.Match(&text, 1).Matched(), (test(byte) != 0) != negated)
                    << pattern << " on byte " << byte;
            }
        }
}

TEST(Regex, ContextBetweenSearches)
{
    const Regexp regexp("a|");
    CContext context("ab", 2);
    for (int begin = 1; begin <= 3; ++begin) {
        EXPECT_TRUE(regexp.Match(&context).Matched());
        EXPECT_EQ(context.lastBeginPos, begin - 1);
        EXPECT_EQ(context.beginPos, begin);
        EXPECT_EQ(context.currentPos, begin);
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

    const Regexp regexp("(\\w+)=(\\d+)(x)?");
    const CTextMatch match = regexp.Match(std::string_view("port=8080;").substr(0, 7));
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

std::string MatchOnStack(const std::string& pattern, const std::string& text, std::size_t stack)
{
    const Regexp regexp(pattern, NoFlags);
    std::string shown = "no thread";
    RunOnStack(stack, [&] { shown = Shown(regexp.Match(text)); });
    return shown;
}

TEST(RegexStack, IterationsDoNotDeepenIt)
{
    std::string text;
    while (text.size() < 1'000'000)
        text += "ab";
    EachRow("regex", "on a small stack", [&text](const CDataRow& row) {
        EXPECT_EQ(MatchOnStack(row[0], text, 256 * 1024), row.Rest(1));
    });
}

TEST(RegexStack, DeepestCalls)
{
#ifndef SMALL_FRAMES
    GTEST_SKIP() << "the frames of this build are larger";
#endif
    EachRow("regex", "nested", [](const CDataRow& row) {
        // The call is the innermost of 250 levels; a hundred of them are one in the other.
        std::string pattern = "a(?R)";
        for (int level = 1; level < MostNesting; ++level)
            pattern = row[0] + pattern + row[1];
        EXPECT_NE(MatchOnStack(pattern, std::string(101, 'a'), 4 << 20), "no thread");
    });
}

} // namespace
