// The program as its users meet it: output, standard error and exit status.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <sys/utsname.h>

#include "RunProgram.h"

namespace {

struct CUse
{
    std::vector<std::string> m_Arguments;
    int m_Status;
    std::string m_Out; // the whole output
    std::string m_Err; // a part of standard error; empty: nothing may be there
};

TEST(Tool, OutputAndStatus)
{
    const CUse uses[] = {
        {{"number", "42"}, 0, "42\n", ""},
        {{"number", "-5"}, 0, "-5\n", ""},
        {{"number", "--type", "u32", "--", "-1"}, 0, "4294967295\n", ""},
        {{"number", "--base", "0", "0x1F"}, 0, "31\n", ""},
        {{"number", "--type", "i32", "2147483648"}, 1, "", "in atoi32 (2147483648), Src/Str2Num"},
        {{"number", "12a"}, 1, "", "(0x2005000A)\n  in atoi64 (12a)"},
        {{"number", "--type", "i8", "1"}, 2, "", "--type"},
        {{"number"}, 2, "", "TEXT"},
        {{"error", "0x20050002"}, 0, "Invalid parameter\n", ""},
        {{"error", "0x20050009"}, 0, "No information available for this error\n", ""},
        {{"error", "zz"}, 2, "", "not an error code: zz"},
        {{"time", "--rule", "3", "5", "0", "2024", "02:00"},
         0,
         "  Date              2024-03-31 02:00:00 UTC +0000\n",
         ""},
        {{"time", "--rule", "13", "5", "0", "2024"}, 2, "", "the month must be 1 to 12, not 13"},
        {{"time", "--rule", "3", "5", "0", "2024", "0200"}, 2, "", "HH:MM"},
        {{"cpu", "--trace=zz"}, 2, "", "not a mask"},
        {{"bogus"}, 2, "", "no such command: bogus"},
        {{}, 2, "", "subcommand"},
    };
    for (const auto& use : uses) {
        std::string shown;
        for (const auto& argument : use.m_Arguments)
            shown += argument + " ";
        SCOPED_TRACE(shown);
        const CRun run = RunProgram(use.m_Arguments, "", {"TZ=UTC"});
        EXPECT_EQ(run.m_Status, use.m_Status);
        EXPECT_EQ(run.m_Out, use.m_Out);
        if (use.m_Err.empty())
            EXPECT_EQ(run.m_Err, "");
        else
            EXPECT_NE(run.m_Err.find(use.m_Err), std::string::npos) << run.m_Err;
    }
}

// What a shell user types is what is logged; without the doubling this would read the stack.
TEST(Tool, LogsTextAsTyped)
{
    const CRun run = RunProgram({"log", "-p", "error", "-n", "12", "100% of %s and %n"}, "",
                                {"LD_PRELOAD=" SYSLOG_PRELOAD});
    EXPECT_EQ(run.m_Status, 0);
    EXPECT_EQ(run.m_Err, "<3>[12][Error] 100% of %s and %n\n");

    const CRun empty = RunProgram({"log", ""}, "", {"LD_PRELOAD=" SYSLOG_PRELOAD});
    EXPECT_EQ(empty.m_Status, 1);
    EXPECT_NE(empty.m_Err.find("Invalid parameter (0x20050002)"), std::string::npos);
}

TEST(Tool, ReportAgreesWithTheSystem)
{
    const CRun run = RunProgram({"report", "--json"});
    const auto report = nlohmann::json::parse(run.m_Out, nullptr, false);
    ASSERT_TRUE(report.is_object()) << run.m_Out << run.m_Err;
    char name[256] = "";
    ASSERT_EQ(gethostname(name, sizeof name), 0);
    EXPECT_EQ(report["host"]["name"], name);
    utsname kernel;
    ASSERT_EQ(uname(&kernel), 0);
    EXPECT_EQ(report["os"]["kernel"]["release"], kernel.release);
    EXPECT_NE(report["os"]["architecture"].get<std::string>().find("x86-"), std::string::npos);
    EXPECT_EQ(report["processor"]["vendor"].get<std::string>().size(), 12U);
    const auto now = report["time"]["milliseconds"].get<long long>() / 1000;
    EXPECT_NEAR(static_cast<double>(now), static_cast<double>(time(nullptr)), 60);

    const CRun text = RunProgram({"report"});
    EXPECT_NE(text.m_Out.find(name), std::string::npos);
    EXPECT_EQ(text.m_Out.find('\033'), std::string::npos) << "colour without a terminal";
}

TEST(Tool, TraceGoesToStandardError)
{
    const CRun run = RunProgram({"cpu", "--trace"});
    EXPECT_NE(run.m_Err.find("vornex 0x10 Src/Str2Num.cpp:84 processorInfo ()"), std::string::npos);
    EXPECT_EQ(RunProgram({"cpu", "--trace=0x2"}).m_Err, "");
}

} // namespace
