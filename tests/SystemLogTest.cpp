// The system log: what reaches syslog(3), and the errors of misuse.
#include <gtest/gtest.h>

#include <string>

#include <vorn/Threading.h>
#include <vornex/Module.h>
#include <vornex/SystemLog.h>

namespace {

int g_Calls = 0;
int g_Priority = 0;
std::string g_Format;

} // namespace

// The library resolves to these. Opening or closing the system's logger would be a fault.
extern "C" void syslog(int priority, const char* format, ...)
{
    ++g_Calls;
    g_Priority = priority;
    g_Format = format;
}
extern "C" void openlog(const char* /*identity*/, int /*option*/, int /*facility*/)
{
    ADD_FAILURE() << "openlog";
}
extern "C" void closelog()
{
    ADD_FAILURE() << "closelog";
}

namespace {

template <class Call>
unsigned int Raised(Call call)
{
    try {
        call();
    } catch (unsigned int code) {
        return code;
    }
    return 0;
}

std::string Context()
{
    const auto& context = Vorn::Exceptions::LastError().Context();
    return context.size() == 1
               ? std::string(context[0].m_Text.m_Text) + ":" + std::to_string(context[0].m_Line)
               : std::to_string(context.size()) + " lines";
}

TEST(SystemLog, LinesByPriority)
{
    struct
    {
        int m_Number;
        int m_Priority;
        std::string m_Text;
        std::string m_Line;
    } const rows[] = {
        {12, 3, "disk full", "[12][Error] disk full"},
        {-1, 4, "w", "[-1][Warning] w"},
        {0, 7, "d", "[0][Debug] d"},
        {1, 6, "i", "[1][Information] i"},
        {2147483647, 0, "i", "[2147483647][Information] i"},
        {1, 3 | (16 << 3), "a facility makes another value", // no bits are looked at or added
         "[1][Information] a facility makes another value"},
        {5, 3, "100% %s %n", "[5][Error] 100% %s %n"}, // interpreted by the logger, as is meant
        {6, 4, std::string(5000, 'x'), "[6][Warning] " + std::string(5000, 'x')},
    };
    VornEx::CSystemLog_Lx log; // never opened: a closed log writes just the same
    for (const auto& row : rows) {
        EXPECT_TRUE(log.Report(row.m_Number, row.m_Priority, row.m_Text));
        EXPECT_EQ(g_Format, row.m_Line);
        EXPECT_EQ(g_Priority, row.m_Priority);
    }
    EXPECT_EQ(g_Calls, static_cast<int>(std::size(rows)));
}

TEST(SystemLog, OpenCloseAndMisuse)
{
    VornEx::CSystemLog_Lx log;
    EXPECT_TRUE(log.Close());
    EXPECT_EQ(Raised([&] { log.Open(""); }), VornEx::InvalidParameter);
    EXPECT_EQ(Vorn::Exceptions::LastError().Line(), 28U);
    EXPECT_EQ(Context(), "CSystemLog::Open ():35");
    EXPECT_TRUE(log.Open("agent"));
    EXPECT_EQ(Raised([&] { log.Open("agent"); }), VornEx::LogAlreadyOpened);
    EXPECT_EQ(Vorn::Exceptions::LastError().Line(), 25U);
    EXPECT_EQ(Context(), "CSystemLog::Open (agent):35");
    EXPECT_TRUE(log.Close());
    EXPECT_TRUE(log.Open(std::string(200, 'i')));

    g_Calls = 0;
    EXPECT_EQ(Raised([&] { log.Report(1, 3, ""); }), VornEx::InvalidParameter);
    EXPECT_EQ(Vorn::Exceptions::LastError().Line(), 57U);
    EXPECT_EQ(Context(), "CSystemLog::Report ():85");
    EXPECT_EQ(g_Calls, 0);
}

TEST(SystemLog, GoesOnWhereThrowingIsDisabled)
{
    const Vorn::Threading::CThrowDisable guard;
    VornEx::CSystemLog_Lx log;
    EXPECT_TRUE(log.Open("first"));
    EXPECT_TRUE(log.Open("")); // both tests fail; the second one is the newest error
    EXPECT_EQ(Vorn::Exceptions::LastError().Code(), VornEx::InvalidParameter);
    EXPECT_TRUE(log.Open("again")) << "the empty identity was stored, so the log was closed";
    EXPECT_EQ(Vorn::Exceptions::LastError().Code(), VornEx::InvalidParameter);
    g_Calls = 0;
    EXPECT_TRUE(log.Report(9, 3, ""));
    EXPECT_EQ(g_Calls, 1);
    EXPECT_EQ(g_Format, "[9][Error] ");
}

} // namespace
