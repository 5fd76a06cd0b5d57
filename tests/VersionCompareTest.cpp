// The order of versions: by table, and beside a plain implementation on generated texts.
#include <random>

#include <vorn/Threading.h>
#include <vornex/Numbers.h>
#include <vornex/VersionCheck.h>

#include "../fuzz/PlainVersion.h"
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
    int different = 0;
    for (int round = 0; round < 20000; ++round) {
        const std::string a = make();
        const std::string b = make();
        for (unsigned int n = 0; n < 4; ++n) {
            const int order = VornEx::VersionCompare(a, b, n);
            ASSERT_EQ(order, Fuzz::PlainVersionOrder(a, b, n)) << a << " and " << b << ", " << n;
            ASSERT_EQ(VornEx::VersionCompare(b, a, n), -order) << a << " and " << b << ", " << n;
            ASSERT_EQ(VornEx::VersionCompare(a, a, n), 0) << a;
            different += order != 0 ? 1 : 0;
        }
    }
    EXPECT_GT(different, 20000);
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
