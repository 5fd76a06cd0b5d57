// The order of versions: by table, and beside a plain implementation on generated texts.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <random>
#include <string>
#include <vector>

#include <vorn/Exceptions.h>
#include <vorn/Threading.h>
#include <vornex/Numbers.h>
#include <vornex/StringTokenizer.h>
#include <vornex/VersionCheck.h>

namespace {

std::size_t g_Allocations = 0;

} // namespace

// Counted: ordinary versions must not allocate.
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

TEST(VersionCompare, Table)
{
    const struct
    {
        std::string m_A;
        std::string m_B;
        unsigned int m_Count;
        int m_Order;
    } rows[] = {
        {"1.2.10", "1.2.9", 0, 1},
        {"1.2.10", "1.2.9", 2, 0},
        {"1.2", "1.2.0", 0, -1}, // counts differ: texts
        {"1.10", "1.9.1", 0, -1},
        {"1.10", "1.9.1", 2, 1},
        {"1.10", "1.9.1", 3, -1}, // more than either has: texts
        {"2.6.18-92", "2.6.18-8", 3, 0},
        {"2.6.18-92", "2.6.18-8", 0, 1},
        {"1.x", "1.2", 0, 1},   // no number: texts
        {"1.x", "1.2", 1, 0},   // ... unless it lies behind the count
        {"10.x", "9.x", 1, 1},  // numbers before the failure
        {"10.x", "9.x", 2, -1}, // the failure within the count
        {"", "", 0, 0},
        {"", "1", 0, -1},
        {"", ".", 0, 0}, // no components on either side
        {"1..2", "1.2", 0, -1},
        {"1..2", "1..1", 0, 0}, // an empty component ends both: equal counts, 1 and 1
        {"1.", "1", 0, 0},
        {".1", "1", 0, 0},
        {"-1", "1", 0, 0}, // a hyphen splits, and is no sign
        {"+2", "1", 0, 1},
        {"1.0a", "1.10", 0, -1}, // radix 16 for both: 10 and 16
        {"1.F", "1.0x10", 0, -1},
        {"0x10", "9", 0, -1}, // no letter from A to F: x is no digit
        {"7.3.21-k8", "7.3.21-k7", 0, 1},
        {"7.3.21-k8", "7.3.21-k7", 3, 0},
        {"00000000000012", "12", 0, 0}, // long, yet a number
        {"2147483648", "1", 0, 1},      // out of range: texts
        {"2147483648", "3", 0, -1},
        {"2147483647", "3", 0, 1},
        {"ffffffff", "1", 0, 1},
        {"1.1", "1.1", 5, 0},
        {"07.719.03.00-rc1", "07.719.03.00", 4, 0},
        {"1.2 ", "1.2", 0, 1}, // white space behind a number is none
        {"1. 2", "1.2", 0, 0}, // ... before it does not matter
        {"6.1.0-9-amd64", "6.1.0-10-amd64", 0, 1},
        {"6.1.0-9-amd64", "6.1.0-10-amd64", 4, -1},
    };
    for (const auto& row : rows) {
        const std::string name =
            "'" + row.m_A + "' and '" + row.m_B + "', " + std::to_string(row.m_Count);
        EXPECT_EQ(VornEx::VersionCompare(row.m_A, row.m_B, row.m_Count), row.m_Order) << name;
        EXPECT_EQ(VornEx::VersionCompare(row.m_B, row.m_A, row.m_Count), -row.m_Order) << name;
    }
}

// Component lists as the rule has them, built with the public tokenizer and conversion.
std::vector<int> Components(const std::string& text, int radix, bool& failed)
{
    std::vector<int> components;
    VornEx::CStringTokenizer tokenizer(text, ".-");
    Vorn::Strings::TString<16> token;
    while (tokenizer.Next(token) && token.m_Length != 0) {
        try {
            components.push_back(VornEx::atoi32(token.m_Text, radix));
        } catch (unsigned int) {
            failed = true;
            break;
        }
    }
    return components;
}

int Plain(const std::string& a, const std::string& b, unsigned int n)
{
    const bool hex = (a + b).find_first_of("ABCDEFabcdef") != std::string::npos;
    bool failed = false;
    const auto left = Components(a, hex ? 16 : 10, failed);
    const auto right = Components(b, hex ? 16 : 10, failed);
    std::size_t count = n;
    const bool numbers =
        n != 0 ? left.size() >= n && right.size() >= n : !failed && left.size() == right.size();
    if (n == 0)
        count = left.size();
    if (!numbers)
        return a == b ? 0 : std::strcmp(a.c_str(), b.c_str()) < 0 ? -1 : 1;
    for (std::size_t index = 0; index < count; ++index)
        if (left[index] != right[index])
            return left[index] < right[index] ? -1 : 1;
    return 0;
}

TEST(VersionCompare, GeneratedTexts)
{
    std::mt19937 random(20);
    const auto make = [&random] {
        static const std::string Pieces[] = {"0", "1",  "2", "9",  "10", "2147483647", "99999999",
                                             "a", "F",  "k", "0x", " ",  "+",          ".",
                                             ".", "..", "-", ".",  "-",  "7fffffff",   "1"};
        std::string text;
        for (auto left = random() % 8; left > 0; --left)
            text += Pieces[random() % std::size(Pieces)];
        return text;
    };
    int notEqual = 0;
    for (int round = 0; round < 20000; ++round) {
        const std::string a = make();
        const std::string b = make();
        for (unsigned int n = 0; n < 4; ++n) {
            const int order = VornEx::VersionCompare(a, b, n);
            ASSERT_EQ(order, Plain(a, b, n)) << "'" << a << "' and '" << b << "', " << n;
            ASSERT_EQ(VornEx::VersionCompare(b, a, n), -order) << "'" << a << "' and '" << b << "'";
            notEqual += order != 0 ? 1 : 0;
        }
        ASSERT_EQ(VornEx::VersionCompare(a, a, 0), 0) << a;
    }
    EXPECT_GT(notEqual, 20000);
}

TEST(VersionCompare, OrdinaryVersionsDoNotAllocate)
{
    VornEx::VersionCompare("1.x", "1.y", 0); // the thread's error record comes into being
    const std::size_t before = g_Allocations;
    EXPECT_EQ(
        VornEx::VersionCompare("2022.11.30.1201.14.0021.3.14159", "2022.11.30.1201.14.21.3.9", 0),
        1);
    EXPECT_EQ(VornEx::VersionCompare("6.1.0-31-amd64-unsigned", "6.1.0-32-amd64-unsigned", 0), -1);
    EXPECT_EQ(g_Allocations, before);
}

// A component that is no number raises nothing, whatever the throw state, and leaves that state.
TEST(VersionCompare, ConversionErrorsAreAbsorbed)
{
    EXPECT_EQ(VornEx::VersionCompare("1.x", "1.y", 0), -1);
    EXPECT_EQ(Vorn::Exceptions::LastError().Code(), 0x2005000AU);
    EXPECT_THROW(VornEx::atoi32("x", 10), unsigned int);
    const Vorn::Threading::CThrowDisable guard;
    EXPECT_EQ(VornEx::VersionCompare("1.99999999999", "1.99999999998", 0), 1);
    EXPECT_EQ(VornEx::atoi32("x", 10), 0);
}

} // namespace
