// The order of versions: by table, and beside a plain implementation on generated texts.
#include <cstring>
#include <random>

#include <vorn/Threading.h>
#include <vornex/Numbers.h>
#include <vornex/StringTokenizer.h>
#include <vornex/VersionCheck.h>

#include "Allocations.h"
#include "DataTable.h"

namespace {

TEST(VersionCompare, Table)
{
    EachRow("versions", "order", [](const CDataRow& row) {
        const auto count = row.Number<unsigned int>(2);
        EXPECT_EQ(VornEx::VersionCompare(row[0], row[1], count), row.Number(3));
        EXPECT_EQ(VornEx::VersionCompare(row[1], row[0], count), -row.Number(3));
    });
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
    const auto pieces = Words("versions", "pieces");
    const auto make = [&random, &pieces] {
        std::string text;
        for (auto left = random() % 8; left > 0; --left)
            text += pieces[random() % pieces.size()];
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
    const std::size_t before = g_NewCalls;
    EXPECT_EQ(
        VornEx::VersionCompare("2022.11.30.1201.14.0021.3.14159", "2022.11.30.1201.14.21.3.9", 0),
        1);
    EXPECT_EQ(VornEx::VersionCompare("6.1.0-31-amd64-unsigned", "6.1.0-32-amd64-unsigned", 0), -1);
    EXPECT_EQ(g_NewCalls, before);
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
