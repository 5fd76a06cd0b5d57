// Memory that ends: every allocation of every service fails, alone and with all behind it.
#include <gtest/gtest.h>

#include <thread>

#include <vorn/Trace.h>
#include <vornex/Module.h>
#include <vornex/Numbers.h>

#include "FailingMemory.h"
#include "ScratchFolder.h"
#include "Services.h"

namespace {

bool g_Counting = false;
long g_Allocations = 0;
long g_FirstFailing = 0; // 0: none
long g_LastFailing = 0;

// Whether the next allocation is one of those that fail.
bool Ends()
{
    if (!g_Counting)
        return false;
    ++g_Allocations;
    return g_Allocations >= g_FirstFailing && g_Allocations <= g_LastFailing;
}

struct COutcome
{
    std::string m_Result;
    long m_Allocations;
};

COutcome RunWith(const CService& service, long first, long last)
{
    g_Allocations = 0;
    g_FirstFailing = first;
    g_LastFailing = last;
    g_Counting = true;
    std::string result = Result(service);
    g_Counting = false;
    return {result, g_Allocations};
}

class MemoryFailure : public testing::TestWithParam<unsigned int>
{
protected:
    void SetUp() override
    {
        g_NewFails = Ends;
        Vorn::Internals::SetTraceSink([](const auto&) {});
        VornEx::VORN_MODULE_INFO_VornEx.m_TraceMask = GetParam();
    }
    void TearDown() override
    {
        VornEx::VORN_MODULE_INFO_VornEx.m_TraceMask = 0;
        Vorn::Internals::SetTraceSink({});
    }
};

TEST_P(MemoryFailure, EveryAllocationOfEveryService)
{
    constexpr long All = 1L << 30;
    int failures = 0;
    for (const CService& service : Services()) {
        SCOPED_TRACE(service.m_Name);
        Result(service); // what is made once is made
        const long liveBefore = g_LiveBlocks;
        const COutcome whole = RunWith(service, 0, 0);
        const std::string name = service.m_Name;
        for (const bool alone : {true, false}) {
            for (long nth = 1; nth <= whole.m_Allocations; ++nth) {
                SCOPED_TRACE(std::to_string(nth) + (alone ? " alone" : " and all behind"));
                const auto descriptors = OpenDescriptors();
                {
                    const COutcome outcome = RunWith(service, nth, alone ? nth : All);
                    failures += outcome.m_Result == "no memory" ? 1 : 0;
                    // A trace line or a line of context may go without its text. The list's buffer
                    // that cannot grow is its end, and a session without a stream has failed.
                    const bool bears =
                        outcome.m_Result == whole.m_Result ||
                        (name == "module name" && outcome.m_Result == " 0") ||
                        (name == "mail" && outcome.m_Result.rfind("not sent", 0) == 0);
                    EXPECT_TRUE(outcome.m_Result == "no memory" || bears) << outcome.m_Result;
                }
                EXPECT_EQ(OpenDescriptors(), descriptors);
                EXPECT_EQ(Result(service), whole.m_Result) << "afterwards";
            }
        }
        EXPECT_EQ(g_LiveBlocks, liveBefore + (whole.m_Result.capacity() > 15 ? 1 : 0))
            << "blocks kept";
    }
    EXPECT_GT(failures, 200) << "the failures do not arrive";
}

// A raised error arrives though nothing is left to describe it with.
TEST_P(MemoryFailure, RaisedErrorsArrive)
{
    static const std::string text(500, 'x');
    const CService raise = {"raise",
                            [] { return std::to_string(VornEx::atoi32(text.c_str(), 10)); }, true};
    std::thread([&raise] { // with a record of its own, where the first line of context allocates
        for (long nth = 1; nth <= 3; ++nth)
            EXPECT_EQ(RunWith(raise, nth, 100).m_Result, "raised 2005000a");
        EXPECT_GT(RunWith(raise, 1, 100).m_Allocations, 0);
    })
        .join();
}

INSTANTIATE_TEST_SUITE_P(TraceMasks, MemoryFailure, testing::Values(0U, ~0U));

} // namespace
