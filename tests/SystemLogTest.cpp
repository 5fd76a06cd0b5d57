// The system log: what reaches syslog(3), and the errors of misuse.
#include <vorn/Threading.h>
#include <vornex/SystemLog.h>

#include "DataTable.h"
#include "Raised.h"

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

TEST(SystemLog, LinesByPriority)
{
    VornEx::CSystemLog_Lx log; // never opened: a closed log writes just the same
    EachRow("log", "lines", [&log](const CDataRow& row) {
        g_Calls = 0;
        EXPECT_TRUE(log.Report(row.Number(0), row.Number(1), row[2]));
        EXPECT_EQ(g_Format, row[3]);
        EXPECT_EQ(g_Priority, row.Number(1));
        EXPECT_EQ(g_Calls, 1);
    });
}

TEST(SystemLog, OpenCloseAndMisuse)
{
    const std::string source = " Src/Linux/SystemLogLinux.cpp:";
    VornEx::CSystemLog_Lx log;
    EXPECT_TRUE(log.Close());
    EXPECT_EQ(RaisedRecord([&] { log.Open(""); }),
              "20050002:28; CSystemLog::Open ()" + source + "35");
    EXPECT_TRUE(log.Open("agent"));
    EXPECT_EQ(RaisedRecord([&] { log.Open("agent"); }),
              "20050001:25; CSystemLog::Open (agent)" + source + "35");
    EXPECT_TRUE(log.Close());
    EXPECT_TRUE(log.Open(std::string(200, 'i')));

    g_Calls = 0;
    EXPECT_EQ(RaisedRecord([&] { log.Report(1, 3, ""); }),
              "20050002:57; CSystemLog::Report ()" + source + "85");
    EXPECT_EQ(g_Calls, 0);
}

TEST(SystemLog, GoesOnWhereThrowingIsDisabled)
{
    const Vorn::Threading::CThrowDisable guard;
    VornEx::CSystemLog_Lx log;
    EXPECT_TRUE(log.Open("first"));
    EXPECT_TRUE(log.Open("")); // both tests fail; the second one is the newest error
    EXPECT_EQ(Record(), "20050002:28");
    EXPECT_TRUE(log.Open("again")) << "the empty identity was stored, so the log was closed";
    EXPECT_EQ(Record(), "20050002:28");
    g_Calls = 0;
    EXPECT_TRUE(log.Report(9, 3, ""));
    EXPECT_EQ(g_Calls, 1);
    EXPECT_EQ(g_Format, "[9][Error] ");
}

} // namespace
