// Trace lines: the gate and the sink. Both from several threads: ThreadsTest.cpp.
#include <gtest/gtest.h>

#include <cerrno>

#include <vornex/vornex.h>

#include "CapturedTrace.h"

namespace {

auto& Mask()
{
    return VornEx::VORN_MODULE_INFO_VornEx.m_TraceMask;
}

// A field whose conversion is counted.
struct CCounted
{
    operator Vorn::Strings::CSubStringRef() const // NOLINT(google-explicit-constructor)
    {
        ++s_Conversions;
        return "counted";
    }
    static inline int s_Conversions = 0;
};

void TraceOne(unsigned int level)
{
    Vorn::Internals::Trace(VornEx::VORN_MODULE_INFO_VornEx, level, "Src/Here.cpp", 11,
                           "text %s %d%%", CCounted{}, -3);
}

TEST(Trace, NothingIsBuiltWhileTheBitIsClear)
{
    const CCapturedTrace trace(0);
    for (const unsigned int mask : {0U, 0x2U, ~0x10U}) {
        Mask() = mask;
        TraceOne(0x10);
    }
    EXPECT_EQ(CCounted::s_Conversions, 0);
    EXPECT_TRUE(trace.m_Texts.empty());

    Mask() = 0x10;
    TraceOne(0x10);
    EXPECT_EQ(CCounted::s_Conversions, 1);
    EXPECT_EQ(trace.m_Texts, std::vector<std::string>{"text counted -3%"});
    EXPECT_EQ(trace.m_Places, std::vector<std::string>{"vornex 16 Src/Here.cpp:11"});
}

TEST(Trace, WatchingDoesNotChangeWhatIsWatched)
{
    const CCapturedTrace before(0x10); // puts the sink back
    std::string text;
    Vorn::Internals::SetTraceSink([&text](const Vorn::Internals::CTraceLine& line) {
        text = std::string_view(line.m_Text);
        errno = EBADF;
        throw 1; // swallowed
    });
    errno = ENOENT;
    // More than a string can hold: the line arrives without it.
    const Vorn::Strings::CSubStringRef huge("", 0xFFFFFFFFU);
    EXPECT_NO_THROW(Vorn::Internals::Trace(VornEx::VORN_MODULE_INFO_VornEx, 0x10, "Src/Here.cpp",
                                           13, "a %s b %s", huge, "c"));
    EXPECT_EQ(text, "a  b c");
    EXPECT_EQ(errno, ENOENT);
}

TEST(Trace, ServiceLineArrives)
{
    const CCapturedTrace trace(0x10);
    unsigned int cores = 0;
    unsigned int logical = 0;
    bool hyperThreading = false;
    VornEx::processorInfo(cores, logical, hyperThreading);
    ASSERT_EQ(trace.m_Places, std::vector<std::string>{"vornex 16 Src/Str2Num.cpp:84"});
    EXPECT_EQ(trace.m_Texts[0], "processorInfo () " + std::to_string(cores) + " Cores, " +
                                    std::to_string(logical) + " logical CPU's, HyperThreading " +
                                    (hyperThreading ? "true" : "false"));
}

TEST(Trace, DefaultSinkWritesOneLineToStandardError)
{
    const CCapturedTrace before(0x2);
    Vorn::Internals::SetTraceSink({});
    testing::internal::CaptureStderr();
    Vorn::Internals::Trace(VornEx::VORN_MODULE_INFO_VornEx, 0x2, "Src/Here.cpp", 12, "%s",
                           "odd %s text\n\x1B[2J\t\xC3\xA9");
    const std::string line = testing::internal::GetCapturedStderr();
    ASSERT_GT(line.size(), 20U);
    EXPECT_EQ(line.substr(19), " vornex 0x02 Src/Here.cpp:12 odd %s text??[2J\t\xC3\xA9\n");
}

} // namespace
