// Number conversion: the same texts, values and errors on both word sizes.
#include <cerrno>

#include <vorn/Threading.h>
#include <vornex/Module.h>
#include <vornex/Numbers.h>

#include "Allocations.h"
#include "DataTable.h"
#include "Raised.h"

namespace {

// Each row throwing, and again with throwing disabled; success must not allocate.
template <class Value>
void Check(Value (*convert)(const char*, int), const std::string& name)
{
    EachRow("numbers", name, [&](const CDataRow& row) {
        const char* const text = row[0] != "NULL" ? row[0].c_str() : nullptr;
        const int base = row.Number(1);
        const auto wanted = row.Number<Value>(2);
        if (row.Size() == 3) {
            const std::size_t before = g_NewCalls;
            const Value value = convert(text, base);
            EXPECT_EQ(g_NewCalls, before);
            EXPECT_EQ(value, wanted);
            return;
        }
        const auto code = row[3] == "range" ? VornEx::NumberOutOfRange : VornEx::NotANumber;
        EXPECT_EQ(Raised([&] { convert(text, base); }), code);
        const auto& error = Vorn::Exceptions::LastError();
        EXPECT_EQ(error.Line(), row.Number<unsigned int>(4));
        ASSERT_EQ(error.Context().size(), 1U);
        EXPECT_EQ(std::string(error.Context()[0].m_Text),
                  name + " (" + (text != nullptr ? text : "") + ")");

        const Vorn::Threading::CThrowDisable guard;
        EXPECT_EQ(convert(text, base), wanted);
        EXPECT_EQ(error.Code(), code);
    });
}

TEST(Numbers, TextsAndErrors)
{
    Check<std::int32_t>(VornEx::atoi32, "atoi32");
    Check<std::uint32_t>(VornEx::atoui32, "atoui32");
    Check<std::int64_t>(VornEx::atoi64, "atoi64");
    Check<std::uint64_t>(VornEx::atoui64, "atoui64");
}

// An errno that the caller left behind is not taken for a range error.
TEST(Numbers, OldErrnoDoesNotMatter)
{
    errno = ERANGE;
    EXPECT_EQ(VornEx::atoi32("5", 10), 5);
    EXPECT_EQ(errno, 0);
}

} // namespace
