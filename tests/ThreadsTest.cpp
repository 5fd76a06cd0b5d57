// What is stated safe for several threads, for a build with the thread sanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include <regex/Regexp.h>
#include <vorn/Threading.h>
#include <vornex/Numbers.h>

#include "CapturedTrace.h"
#include "Raised.h"
#include "Services.h"

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
// The services' close() is the tests' own (Services.cpp), so the sanitizer does not see that a
// descriptor was closed, and takes the next one of that number for the same.
extern "C" const char* __tsan_default_suppressions()
{
    return "race_top:^pipe\nrace_top:^eventfd\nrace_top:^socket\nrace_top:^open\n"
           "race_top:^dup\nrace_top:^accept\n";
}
#endif
#endif

namespace {

// Runs the body in several threads at once; it gets the thread's number.
template <class Body>
void InThreads(Body body)
{
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number)
        threads.emplace_back(body, number);
    for (auto& thread : threads)
        thread.join();
}

TEST(Threads, SeparateObjectsOfEveryService)
{
    // Without it the C library reads the zone again at each call, under a lock that no sanitizer
    // sees.
    setenv("TZ", "UTC0", 1);
    std::vector<std::string> wanted;
    for (const CService& service : Services())
        wanted.push_back(Result(service));
    std::atomic<int> wrong{0};
    InThreads([&](int number) {
        const std::size_t count = wanted.size();
        for (std::size_t round = 0; round < 40 * count; ++round) {
            const std::size_t index = (round + static_cast<std::size_t>(number) * 5) % count;
            const CService& service = Services()[index];
            if (service.m_AnyThread && Result(service) != wanted[index])
                ++wrong;
        }
    });
    EXPECT_EQ(wrong, 0);
}

TEST(Threads, OneRegularExpression)
{
    const Vorn::Regex::CRegexpT<char> shared(
        R"((\w+)(?=(?<at>@))|(?<!x)(?>\d+(\.\d+)*)+|(?1)x*?b|(?(at)[[:alpha:]]|(-|$)))");
    const std::string text = "release 7.2.1 of someone@somewhere xxxb";
    const auto ends = [&] {
        std::string all;
        for (const auto& match : shared.Matches(text))
            all += std::to_string(match.GroupBegin(0)) + "-" + std::to_string(match.GroupEnd(0));
        return all;
    };
    const std::string wanted = ends();
    EXPECT_FALSE(wanted.empty());
    std::atomic<int> wrong{0};
    InThreads([&](int) {
        for (int round = 0; round < 300; ++round)
            wrong += ends() != wanted ? 1 : 0;
    });
    EXPECT_EQ(wrong, 0);
}

// Sinks and masks change while others trace and raise.
TEST(Threads, TraceAndErrors)
{
    std::atomic<long> lines{0};
    std::atomic<int> wrong{0};
    const CCapturedTrace before(0); // puts sink and mask back
    InThreads([&](int number) {
        for (int round = 0; round < 300; ++round) {
            if (number == 0) {
                // Each sink owns what it counts into; the old one goes when its last line is done.
                Vorn::Internals::SetTraceSink(
                    [&lines, own = std::make_shared<std::atomic<int>>(0)](const auto&) {
                        ++*own;
                        ++lines;
                    });
                VornEx::VORN_MODULE_INFO_VornEx.m_TraceMask = 0x12;
            } else if (number == 1) {
                const Vorn::Threading::CThrowDisable disabled;
                wrong += VornEx::atoui32("99999999999", 10) != 0xFFFFFFFFU ? 1 : 0;
            } else {
                const std::string text = std::to_string(number) + "x" + std::to_string(round);
                wrong += RaisedRecord([&] { VornEx::atoi32(text.c_str(), 10); }) !=
                                 "2005000A:127; atoi32 (" + text + ") Src/Str2Num.cpp:130"
                             ? 1
                             : 0;
                Result(Services()[4]);
            }
        }
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(lines, 0);
}

} // namespace
