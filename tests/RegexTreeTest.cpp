// The regular-expression engine from inside: what patterns are compiled to, the storage, hostile
// patterns, and the end of memory. What patterns match is in RegexTest.cpp.
#include <regex/regex.h>

#include "FailingMemory.h"
#include "RegexRows.h"
#include "SmallStack.h"

namespace {

using namespace Vorn::Regex;
using Regexp = CRegexpT<char>;

template <class List>
std::vector<int> Numbers(const List& list)
{
    return {list.begin(), list.end()};
}

TEST(RegexTree, Elements)
{
    EachRow("regex-trees", "trees", [](const CDataRow& row) {
        std::string tree = Explain(Regexp(row[0], Flags(row[1])));
        std::replace(tree.begin(), tree.end(), '\n', '|');
        EXPECT_EQ(tree, row[2] + "|");
    });
    EXPECT_EQ(Explain(Regexp(static_cast<const char*>(nullptr))), "");

    // Classes of one kind are one element.
    const Regexp regexp("\\d.\\d");
    const auto& items = dynamic_cast<const CListElxT<0>&>(*regexp.Top()).m_Items;
    ASSERT_EQ(items.GetSize(), 3);
    EXPECT_EQ(items[0], items[2]);
    EXPECT_NE(items[0], items[1]);
}

TEST(RegexTree, CompiledAnew)
{
    CBuilderT<char> builder;
    builder.Build("(a)(?<n>b)", 10, NoFlags);
    EXPECT_EQ(builder.MaxGroup(), 2);
    builder.Build("(c)x", 3, IgnoreCase);
    EXPECT_EQ(builder.MaxGroup(), 1);
    EXPECT_EQ(builder.Flags(), IgnoreCase);
    builder.Build(nullptr, 3, NoFlags);
    EXPECT_EQ(builder.Top(), nullptr);
    int used = 9;
    EXPECT_EQ(CBuilderT<char>::Hex2Int("1fG", 8, used), 0x1f);
    EXPECT_EQ(used, 2);
    EXPECT_EQ(CBuilderT<char>::Hex2Int("g", 8, used), 0);
    EXPECT_EQ(used, 0);
}

TEST(RegexTree, BoundariesThatNoPatternMakes)
{
    CContext context(" ab ", 4);
    const auto where = [&context](int kind, int positive) {
        std::string places;
        for (context.currentPos = 0; context.currentPos <= 4; ++context.currentPos)
            if (CBoundaryElxT<char>(kind, positive).Match(&context) != 0)
                places += std::to_string(context.currentPos);
        return places;
    };
    EXPECT_EQ(where(WordBegin, 1), "1");
    EXPECT_EQ(where(WordEnd, 1), "3");
    EXPECT_EQ(where(WordEnd, 0), "0124");
    EXPECT_EQ(where(8, 1), "");
    EXPECT_EQ(where(-1, 0), "01234");
}

TEST(RegexBuffers, Growth)
{
    CBufferT<int> pushed;
    for (int i = 0; i < 9; ++i) {
        pushed.Push(i);
        EXPECT_EQ(pushed.GetCapacity(), i < 8 ? 8 : 16);
    }
    for (int i = 8; i >= 0; --i)
        EXPECT_EQ(pushed.Pop(), i);
    EXPECT_EQ(pushed.Pop(), 0);
    EXPECT_EQ(pushed.GetSize(), 0);
    EXPECT_EQ(pushed.GetCapacity(), 16);

    const int rows[][3] = {{0, 8, 8},   {0, 9, 16},  {0, 17, 24}, {0, 20, 24}, {0, 21, 32},
                           {8, 16, 16}, {8, 17, 24}, {8, 9, 16},  {24, 33, 64}};
    for (const auto& row : rows) {
        CBufferT<int> buffer;
        buffer.Restore(row[0]);
        buffer.Restore(row[1]);
        EXPECT_EQ(buffer.GetCapacity(), row[2]) << row[0] << " to " << row[1];
        EXPECT_EQ(buffer.GetSize(), row[1]);
        buffer.Restore(0);
        EXPECT_EQ(buffer.GetCapacity(), row[2]);
    }
    CBufferT<int> prepared;
    prepared.Push(5);
    prepared.Prepare(3, -1);
    EXPECT_EQ(Numbers(prepared), (std::vector<int>{5, -1, -1}));
    EXPECT_EQ(*CBufferT<char>().GetBuffer(), '\0');
}

TEST(RegexBuffers, Sorted)
{
    using Sorted = CSortedBufferT<int>;
    const auto add = [](Sorted buffer, const std::vector<int>& values) {
        for (const int value : values)
            buffer.Add(value);
        return testing::PrintToString(Numbers(buffer));
    };
    EXPECT_EQ(add(Sorted(), {5, 1, 3, 9, 3, -2}), "{ -2, 1, 3, 3, 5, 9 }");
    EXPECT_EQ(add(Sorted(Sorted::compareReverseT), {5, 1, 3, 9, 3}), "{ 9, 5, 3, 3, 1 }");
    EXPECT_EQ(add(Sorted(Sorted::compareT, 1), {5, 1, 3}), "{ 5, 1, 3 }");
    // An equal element goes before the one that the search meets.
    const auto tens = [](const void* left, const void* right) {
        return *static_cast<const int*>(left) / 10 - *static_cast<const int*>(right) / 10;
    };
    EXPECT_EQ(add(Sorted(tens), {12, 11, 13}), "{ 11, 13, 12 }");

    EXPECT_EQ(CBufferRefT<char>("ABC", 3).nCompareNoCase("abd"), 'C' - 'd');
    EXPECT_EQ(CBufferRefT<char>("aBc", 3).nCompareNoCase("AbCx"), 0);
    EXPECT_EQ(CBufferRefT<char>("abc", 0).nCompareNoCase("x"), 0);
    EXPECT_EQ(CBufferRefT<char>("\xe9", 1).nCompareNoCase("a"), -23 - 'a');
}

TEST(RegexBuffers, ResultFromRecords)
{
    CContext context("abcdef", 6);
    context.captureStack.Push(0, 5, 2, 0); // matched backwards
    context.captureStack.Push(2, 3, 4, 0);
    context.captureIndex.Push(0, -1, 40); // the last one is stale
    EXPECT_EQ(Numbers(MatchResultT<0>(&context, 2)), (std::vector<int>{1, 2, 2, 5, -1, -1, 3, 4}));
    EXPECT_EQ(MatchResultT<0>(nullptr, 2).GetSize(), 0);

    const CContextShot shot(&context);
    context.stack.Push(1);
    context.captureStack.Push(1, 1, 1, 1);
    context.currentPos = 3;
    shot.Restore(&context);
    EXPECT_EQ(context.stack.GetSize(), 0);
    EXPECT_EQ(context.captureStack.GetSize(), 8);
    EXPECT_EQ(context.currentPos, 0);
}

TEST(RegexHostile, RepeatedOpenings)
{
    // With a sanitizer the frames are larger.
    const std::size_t stack = (&__interceptor_realloc != nullptr ? 8192 : 512) * 1024;
    EachRow("regex-trees", "hostile", [stack](const CDataRow& row) {
        for (const auto& piece : row.From(0)) {
            std::string pattern;
            while (pattern.size() < 30'000)
                pattern += piece;
            EXPECT_TRUE(RunOnStack(stack, [&pattern] {
                const Regexp regexp(pattern, NoFlags);
                Explain(regexp);
                regexp.Match("ab", 2);
            })) << piece;
        }
    });
}

TEST(RegexHostile, NestingEndsAt250)
{
    const Regexp groups((std::string(300, '(') + std::string(300, ')')).c_str());
    EXPECT_EQ(groups.MaxGroup(), 250);
    EXPECT_EQ(groups.Match(std::string(60, '(')).GroupEnd(250), 50);
    // Of a condition that is a name both pairs count.
    std::string conditions;
    for (int level = 0; level < 200; ++level)
        conditions += "(?(";
    const std::string tree = Explain(Regexp(conditions.c_str()));
    int found = 0;
    for (std::size_t at = 0; (at = tree.find("condition", at)) != std::string::npos; ++at)
        ++found;
    EXPECT_EQ(found, 125);
}

TEST(RegexHostile, UnfinishedAtEveryCharacter)
{
    // Each beginning of it, in a block of its size: a sanitizer sees what is read behind the end.
    const std::string whole = "a{2,3}(?<n>[^[:alpha:]a-z\\]\\d])\\k<n>(?(n)\\x{41}|\\u0041)(?R'n')"
                              "(?(?<=x)y)\\Qq\\E(?P<p>.)(?i-s:\\1)(?#c)(?'o'\\g1)\\";
    for (const int flags : {0, 63})
        for (std::size_t size = 0; size <= whole.size(); ++size) {
            const std::vector<char> beginning(whole.data(), whole.data() + size);
            const Regexp regexp(std::string_view(beginning.data(), size), flags);
            EXPECT_NE(regexp.Top(), nullptr);
            EXPECT_NE(Explain(regexp), "");
        }
}

// The numbers of a buffer that could not grow are still there. Whole matches without memory are
// tried in MemoryFailureTest.cpp.
TEST(RegexMemory, EndsInBadAlloc)
{
    CBufferT<int> buffer;
    for (int i = 0; i < 8; ++i)
        buffer.Push(i);
    g_NewFails = [] { return true; };
    EXPECT_THROW(buffer.Push(8), std::bad_alloc);
    EXPECT_THROW(buffer.Restore(9), std::bad_alloc);
    g_NewFails = nullptr;
    EXPECT_EQ(buffer.GetSize(), 8);
    EXPECT_EQ(buffer.Pop(), 7);
}

} // namespace
