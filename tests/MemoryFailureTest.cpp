// Memory that ends: every allocation of every service fails, alone and with all behind it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <thread>

#include <dlfcn.h>

#include <vorn/Trace.h>
#include <vornex/Module.h>
#include <vornex/Numbers.h>

#include "Services.h"

namespace {

bool g_Counting = false;
long g_Allocations = 0;
long g_FirstFailing = 0; // 0: none
long g_LastFailing = 0;
long g_Live = 0; // blocks of operator new

// Whether the next allocation is one of those that fail.
bool Ends()
{
    if (!g_Counting)
        return false;
    ++g_Allocations;
    return g_Allocations >= g_FirstFailing && g_Allocations <= g_LastFailing;
}

} // namespace

// GCC takes the replaced pair for a mismatch where it inlines one half only.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

// All forms, because a sanitizer's own would not come by here.
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept
{
    void* const memory = Ends() ? nullptr : std::malloc(size != 0 ? size : 1);
    g_Live += memory != nullptr ? 1 : 0;
    return memory;
}
void* operator new(std::size_t size)
{
    void* const memory = operator new(size, std::nothrow);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}
void* operator new[](std::size_t size)
{
    return operator new(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept
{
    return operator new(size, tag);
}
void operator delete(void* memory) noexcept
{
    g_Live -= memory != nullptr ? 1 : 0;
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    operator delete(memory);
}
void operator delete[](void* memory) noexcept
{
    operator delete(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept
{
    operator delete(memory);
}

// The regex engine's arrays. Where a sanitizer has a function of its own, that one has to be asked.
extern "C" void* __interceptor_realloc(void* memory, std::size_t size) __attribute__((weak));
extern "C" void* realloc(void* memory, std::size_t size) noexcept
{
    using Function = void*(void*, std::size_t);
    static auto* const next = &__interceptor_realloc != nullptr
                                  ? &__interceptor_realloc
                                  : reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "realloc"));
    return Ends() ? nullptr : next(memory, size);
}

namespace {

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
    std::string result;
    g_Counting = true;
    try {
        result = service.m_Call();
        g_Counting = false;
    } catch (const std::bad_alloc&) {
        g_Counting = false;
        result = "no memory";
    } catch (unsigned int code) {
        g_Counting = false;
        result = "raised " + std::to_string(code);
    }
    return {result, g_Allocations};
}

class MemoryFailure : public testing::TestWithParam<unsigned int>
{
protected:
    void SetUp() override
    {
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
        const long liveBefore = g_Live;
        const COutcome whole = RunWith(service, 0, 0);
        const std::string name = service.m_Name;
        for (const bool alone : {true, false}) {
            for (long nth = 1; nth <= whole.m_Allocations; ++nth) {
                SCOPED_TRACE(std::to_string(nth) + (alone ? " alone" : " and all behind"));
                const int descriptors = OpenDescriptors();
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
        EXPECT_EQ(g_Live, liveBefore + (whole.m_Result.capacity() > 15 ? 1 : 0)) << "blocks kept";
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
            EXPECT_EQ(RunWith(raise, nth, 100).m_Result, "raised 537198602");
        EXPECT_GT(RunWith(raise, 1, 100).m_Allocations, 0);
    })
        .join();
}

INSTANTIATE_TEST_SUITE_P(TraceMasks, MemoryFailure, testing::Values(0U, ~0U));

} // namespace
