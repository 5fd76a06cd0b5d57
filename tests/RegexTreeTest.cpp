// The regular-expression engine from inside: what patterns are compiled to, the storage, hostile
// patterns, and the end of memory. What patterns match is in RegexTest.cpp.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include <regex/regex.h>

#include "SmallStack.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SANITIZED 1
#endif
#if __has_feature(thread_sanitizer)
#define HAS_ITS_OWN_NEW 1
#endif
#endif

// What the C library's realloc is called where a program defines one of its own.
#ifdef SANITIZED
#define REAL_REALLOC __interceptor_realloc
#else
#define REAL_REALLOC __libc_realloc
#endif
extern "C" void* REAL_REALLOC(void*, std::size_t);

namespace {

// How many more requests for memory this thread is granted; below 0: all.
thread_local int granted = -1;

bool IsGranted()
{
    if (granted == 0)
        return false;
    if (granted > 0)
        --granted;
    return true;
}

} // namespace

extern "C" void* realloc(void* block, std::size_t size) noexcept
{
    return IsGranted() ? REAL_REALLOC(block, size) : nullptr;
}

#ifndef HAS_ITS_OWN_NEW
// Out of line: inlined, they would look mismatched to the compiler.
__attribute__((noinline)) void* operator new(std::size_t size)
{
    void* const block = IsGranted() ? std::malloc(size) : nullptr;
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

__attribute__((noinline)) void operator delete(void* block) noexcept
{
    std::free(block);
}

__attribute__((noinline)) void operator delete(void* block, std::size_t /*size*/) noexcept
{
    std::free(block);
}
#endif

namespace {

using namespace std::string_literals;
using namespace Vorn::Regex;
using Regexp = CRegexpT<char>;

TEST(RegexTree, Elements)
{
    const struct
    {
        const char* m_Pattern;
        int m_Flags;
        const char* m_Tree;
    } rows[] = {
        {"", 0, "empty\n"},
        {"ab(?#x)c", 0, "string \"abc\"\n"},
        {"abc", IgnoreCase, "string \"abc\", without case\n"},
        {"ab*c", 0, "list\n  string \"a\"\n  greedy {0,}\n    string \"b\"\n  string \"c\"\n"},
        {"(\\d+(\\.\\d+)*){1}", 0,
         "repeat {1}\n  list\n    open 1\n    list\n      greedy {1,}\n        class [0-9]\n"
         "      greedy {0,}\n        list\n          open 2\n          list\n"
         "            string \".\"\n            greedy {1,}\n              class [0-9]\n"
         "          close 2\n    close 1\n"},
        {"a{0}", 0, "empty\n"},
        {"a{2,2}?", 0, "repeat {2}\n  string \"a\"\n"},
        {"a{2,5}?", 0, "reluctant {2,5}\n  string \"a\"\n"},
        {"a?+", 0, "possessive {0,1}\n  string \"a\"\n"},
        {"a|", 0, "alternatives\n  string \"a\"\n  empty\n"},
        {"(a)b", RightToLeft,
         "list, backwards\n  list, backwards\n    close 1\n    string \"a\", backwards\n"
         "    open 1\n  string \"b\", backwards\n"},
        {"(?=a)(?<!b)", 0,
         "list\n  assertion\n    string \"a\"\n  negative assertion\n    string \"b\", "
         "backwards\n"},
        {"(?>a)", 0, "atomic\n  string \"a\"\n"},
        {"^", 0, "start of text\n"},
        {"^", MultiLine, "start of line\n"},
        {"$", 0, "end of text\n"},
        {"$", MultiLine, "end of line\n"},
        {"\\Z", 0, "end of text or before its last line break\n"},
        {"\\B", 0, "not word boundary\n"},
        {"\\G", 0, "empty\n"},
        {"\\G", Global, "start of search\n"},
        {"[a-c]", IgnoreCase, "class [a-cA-C]\n"},
        {"[A-z]", IgnoreCase, "class [A-z]\n"},
        {"[aBb]", IgnoreCase, "class [aBbA]\n"},
        {"[^\\d:]", 0, "class [^:]\n  class [0-9]\n"},
        {"[:^alpha:]", 0, "class [:^alpha:]\n"},
        {"\\s", RightToLeft, "class [ \\x09\\x0D\\x0A\\x0C\\x0B], backwards\n"},
        {"(?<n>a)(b)", 0,
         "list\n  list\n    open 2 \"n\"\n    string \"a\"\n    close 2 \"n\"\n"
         "  list\n    open 1\n    string \"b\"\n    close 1\n"},
        {"(?R<q>)\\k<q>", 0,
         "list\n  call unknown \"q\", unbound\n  back-reference unknown \"q\"\n"},
        {"(?(q)x)", 0,
         "condition\n  if\n    assertion\n      string \"q\"\n  yes\n    string \"x\"\n"},
        {"(?(1)x|y|z)", 0,
         "condition group 1\n  yes\n    string \"x\"\n  no\n    alternatives\n"
         "      string \"y\"\n      string \"z\"\n"},
        {"(?i)a|b", 0,
         "alternatives\n  list\n    empty\n    string \"a\", without case\n"
         "  string \"b\", without case\n"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Explain(Regexp(row.m_Pattern, row.m_Flags)), row.m_Tree) << row.m_Pattern;
    EXPECT_EQ(Explain(Regexp(static_cast<const char*>(nullptr))), "");
}

TEST(RegexTree, ClassesOfOneKindAreOneElement)
{
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
    EXPECT_EQ(std::vector<int>(prepared.begin(), prepared.end()), (std::vector<int>{5, -1, -1}));
    EXPECT_EQ(*CBufferT<char>().GetBuffer(), '\0');
}

TEST(RegexBuffers, Sorted)
{
    using Sorted = CSortedBufferT<int>;
    const auto add = [](Sorted buffer, const std::vector<int>& values) {
        for (const int value : values)
            buffer.Add(value);
        return std::vector<int>(buffer.begin(), buffer.end());
    };
    EXPECT_EQ(add(Sorted(), {5, 1, 3, 9, 3, -2}), (std::vector<int>{-2, 1, 3, 3, 5, 9}));
    EXPECT_EQ(add(Sorted(Sorted::compareReverseT), {5, 1, 3, 9, 3}),
              (std::vector<int>{9, 5, 3, 3, 1}));
    EXPECT_EQ(add(Sorted(Sorted::compareT, 1), {5, 1, 3}), (std::vector<int>{5, 1, 3}));
    // An equal element goes before the one that the search meets.
    const auto tens = [](const void* left, const void* right) {
        return *static_cast<const int*>(left) / 10 - *static_cast<const int*>(right) / 10;
    };
    EXPECT_EQ(add(Sorted(tens), {12, 11, 13}), (std::vector<int>{11, 13, 12}));
}

TEST(RegexBuffers, CompareWithoutCase)
{
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
    const MatchResultT<0> result(&context, 2);
    EXPECT_EQ(std::vector<int>(result.begin(), result.end()),
              (std::vector<int>{1, 2, 2, 5, -1, -1, 3, 4}));
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
#ifdef SANITIZED
    constexpr std::size_t Stack = 8 * 1024 * 1024;
#else
    constexpr std::size_t Stack = 512 * 1024;
#endif
    // None of these is ever closed, and each has a loop, a search or a call in the builder.
    for (const char* piece :
         {"(",   "(?:",   "(?",     "(?(",     "(?(?", "(?(?=", "(?(a",  "(?(1)", "(?>",
          "(?=", "(?<!",  "(?<n>",  "(?<",     "(?'",  "(?P",   "(?R",   "(?1",   "(?i",
          "(?#", "[",     "[[:",    "[:",      "[^[:", "[a-",   "a{",    "a{1,",  "*",
          "a?",  "|",     "(|",     "\\k<",    "\\k'", "\\x{",  "\\u{f", "\\Q",   "\\",
          "\\1", "(?(a)", "(?<a>)", "(?R<a>)", "()",   "(a)|",  "(?(?:", "[[:a:]"}) {
        SCOPED_TRACE(piece);
        std::string pattern;
        while (pattern.size() < 30'000)
            pattern += piece;
        EXPECT_TRUE(RunOnStack(Stack, [&pattern] {
            const Regexp regexp(pattern, NoFlags);
            Explain(regexp);
            regexp.Match("ab", 2);
        }));
    }
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
    std::size_t found = 0;
    for (std::size_t at = tree.find("condition"); at != std::string::npos;
         at = tree.find("condition", at + 1))
        ++found;
    EXPECT_EQ(found, 125U);
}

TEST(RegexHostile, UnfinishedAtEveryCharacter)
{
    // Each beginning of it, in a block of its size: a sanitizer sees what is read behind the end.
    const std::string whole = "a{2,3}(?<n>[^[:alpha:]a-z\\]\\d])\\k<n>(?(n)\\x{41}|\\u0041)(?R'n')"
                              "(?(?<=x)y)\\Qq\\E(?P<p>.)(?i-s:\\1)(?#c)(?'o'\\g1)\\";
    for (const int flags : {0, 63})
        for (std::size_t size = 0; size <= whole.size(); ++size) {
            const std::vector<char> beginning(whole.begin(),
                                              whole.begin() + static_cast<std::ptrdiff_t>(size));
            const Regexp regexp(std::string_view(beginning.data(), size), flags);
            EXPECT_NE(regexp.Top(), nullptr);
            EXPECT_NE(Explain(regexp), "");
        }
}

TEST(RegexMemory, EndsInBadAlloc)
{
    const std::string text(3000, 'a');
    const auto work = [&text] {
        const Regexp regexp("(?<n>a|[[:digit:]b])*+(?(n)|x)(?:(a)|b)*(c{2}|\\k<n>)?$");
        const int length = static_cast<int>(text.size());
        return regexp.Match(text.data(), length).Matched();
    };
    ASSERT_TRUE(work());
    int failures = 0;
    for (bool isDone = false; !isDone; ++failures) {
        bool threw = false;
        bool matched = false;
        granted = failures;
        try {
            matched = work();
        } catch (const std::bad_alloc&) {
            threw = true;
        }
        isDone = granted != 0 || !threw;
        granted = -1;
        EXPECT_NE(threw, matched) << failures;
        ASSERT_LT(failures, 10'000);
    }
    EXPECT_GT(failures, 20);

    // The numbers of a buffer that could not grow are still there.
    CBufferT<int> buffer;
    for (int i = 0; i < 8; ++i)
        buffer.Push(i);
    granted = 0;
    EXPECT_THROW(buffer.Push(8), std::bad_alloc);
    granted = 0;
    EXPECT_THROW(buffer.Restore(9), std::bad_alloc);
    granted = -1;
    EXPECT_EQ(buffer.GetSize(), 8);
    EXPECT_EQ(buffer.Pop(), 7);
}

} // namespace
