// Number conversion: the same texts, values and errors on both word sizes.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include <vorn/Threading.h>
#include <vornex/Module.h>
#include <vornex/Numbers.h>

namespace {

std::size_t g_Allocations = 0;

} // namespace

// Counted: success must not allocate.
void* operator new(std::size_t size)
{
    ++g_Allocations;
    void* const memory = std::malloc(size != 0 ? size : 1);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}
void operator delete(void* memory) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}

namespace {

constexpr unsigned int Range = VornEx::NumberOutOfRange;
constexpr unsigned int Nan = VornEx::NotANumber;

template <class Value>
struct CCase
{
    const char* m_Text;
    int m_Base;
    Value m_Value;       // also what comes back after a declined raise
    unsigned int m_Code; // 0: no error
    unsigned int m_Line = 0;
};

// Each case throwing, and again with throwing disabled.
template <class Value>
void Check(Value (*convert)(const char*, int), const char* name,
           const std::vector<CCase<Value>>& cases)
{
    for (const auto& row : cases) {
        SCOPED_TRACE(std::string(name) + " of '" + (row.m_Text != nullptr ? row.m_Text : "null") +
                     "' in base " + std::to_string(row.m_Base));
        unsigned int code = 0;
        const std::size_t before = g_Allocations;
        try {
            EXPECT_EQ(convert(row.m_Text, row.m_Base), row.m_Value);
            EXPECT_EQ(g_Allocations, before);
        } catch (unsigned int raised) {
            code = raised;
        }
        EXPECT_EQ(code, row.m_Code);
        if (row.m_Code == 0)
            continue;
        const auto& error = Vorn::Exceptions::LastError();
        EXPECT_EQ(error.Line(), row.m_Line);
        ASSERT_EQ(error.Context().size(), 1U);
        EXPECT_EQ(std::string(error.Context()[0].m_Text.m_Text),
                  std::string(name) + " (" + (row.m_Text != nullptr ? row.m_Text : "") + ")");

        const Vorn::Threading::CThrowDisable guard;
        EXPECT_EQ(convert(row.m_Text, row.m_Base), row.m_Value);
        EXPECT_EQ(error.Code(), row.m_Code);
    }
}

TEST(Numbers, Int32)
{
    Check<std::int32_t>(VornEx::atoi32, "atoi32",
                        {{"0", 10, 0, 0},
                         {" \t42", 10, 42, 0},
                         {"+7", 10, 7, 0},
                         {"0x1F", 16, 31, 0},
                         {"0x1F", 0, 31, 0},
                         {"017", 0, 15, 0},
                         {"zz", 36, 35 * 36 + 35, 0},
                         {"2147483647", 10, 2147483647, 0},
                         {"-2147483648", 10, -2147483647 - 1, 0},
                         {"2147483648", 10, 2147483647, Range, 123},
                         {"-2147483649", 10, -2147483647 - 1, Range, 123},
                         {"99999999999999999999999", 10, 2147483647, Range, 123},
                         {"-99999999999999999999999x", 10, -2147483647 - 1, Range, 123},
                         {"4294967296", 10, 2147483647, Range, 123}, // not cut to 0
                         {"", 10, 0, Nan, 125},
                         {"   ", 10, 0, Nan, 125},
                         {"-", 10, 0, Nan, 125},
                         {nullptr, 10, 0, Nan, 125},
                         {"1", 1, 0, Nan, 125}, // no such base
                         {"1", 37, 0, Nan, 125},
                         {"42 ", 10, 42, Nan, 127},
                         {"0x1F", 10, 0, Nan, 127},
                         {"12a", 10, 12, Nan, 127},
                         {"1%s%n", 10, 1, Nan, 127}});
}

TEST(Numbers, UInt32)
{
    Check<std::uint32_t>(VornEx::atoui32, "atoui32",
                         {{"2147483648", 10, 2147483648U, 0},
                          {"4294967295", 10, 4294967295U, 0},
                          {"-1", 10, 4294967295U, 0}, // negates, no error
                          {" \n-4294967295", 10, 1, 0},
                          {"-0", 10, 0, 0},
                          {"4294967296", 10, 4294967295U, Range, 150},
                          {"-4294967296", 10, 4294967295U, Range, 150},
                          {"18446744073709551615", 10, 4294967295U, Range, 150},
                          {"-18446744073709551615", 10, 4294967295U, Range, 150},
                          {"-18446744073709551616", 10, 4294967295U, Range, 150},
                          {"-", 10, 0, Nan, 152},
                          {"5-", 10, 5, Nan, 154}});
}

TEST(Numbers, Int64)
{
    Check<std::int64_t>(VornEx::atoi64, "atoi64",
                        {{"9223372036854775807", 10, INT64_MAX, 0},
                         {"-9223372036854775808", 10, INT64_MIN, 0},
                         {"9223372036854775808", 10, INT64_MAX, Range, 181},
                         {"-9223372036854775809", 10, INT64_MIN, Range, 181},
                         {"x", 10, 0, Nan, 183},
                         {"8 8", 10, 8, Nan, 185}});
}

TEST(Numbers, UInt64)
{
    Check<std::uint64_t>(VornEx::atoui64, "atoui64",
                         {{"18446744073709551615", 10, UINT64_MAX, 0},
                          {"-1", 10, UINT64_MAX, 0},
                          {"ffffffffffffffff", 16, UINT64_MAX, 0},
                          {"18446744073709551616", 10, UINT64_MAX, Range, 212},
                          {"-18446744073709551616", 10, UINT64_MAX, Range, 212},
                          {"g", 16, 0, Nan, 214},
                          {"09", 0, 0, Nan, 216}});
}

// An errno that the caller left behind is not taken for a range error.
TEST(Numbers, OldErrnoDoesNotMatter)
{
    errno = ERANGE;
    EXPECT_EQ(VornEx::atoi32("5", 10), 5);
    EXPECT_EQ(errno, 0);
}

} // namespace
