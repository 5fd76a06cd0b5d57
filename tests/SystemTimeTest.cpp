// Dates, time values and weekday rules in several zones.
#include <cerrno>
#include <ctime>
#include <map>

#include <dlfcn.h>
#include <sys/sysinfo.h>
#include <sys/time.h>

#include <vorn/Threading.h>
#include <vornex/SystemTime.h>

#include "DataTable.h"
#include "Raised.h"

using VornEx::CSystemDate_Lx;
using VornEx::CSystemTime_Lx;

namespace {

bool g_ClockFails = false;
bool g_SystemInfoFails = false;
int g_FailingConversions = 0;

} // namespace

extern "C" int gettimeofday(timeval* time, void* /*zone*/) noexcept
{
    if (g_ClockFails) {
        errno = EFAULT;
        return -1;
    }
    *time = {1700000000, 987654};
    return 0;
}
extern "C" int sysinfo(struct sysinfo* info) noexcept
{
    info->uptime = 3000000; // beyond 2^31 in milliseconds
    return g_SystemInfoFails ? -1 : 0;
}
extern "C" std::time_t mktime(std::tm* calendar) noexcept
{
    if (g_FailingConversions > 0) {
        --g_FailingConversions;
        return -1;
    }
    using Function = std::time_t(std::tm*);
    static auto* const next = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "mktime"));
    return next(calendar);
}

namespace {

constexpr const char* Berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* NewYork = "EST5EDT,M3.2.0,M11.1.0";

CSystemDate_Lx Date(std::uint32_t year, std::uint32_t month, std::uint32_t day,
                    std::uint32_t hour = 0, std::uint32_t minute = 0, std::uint32_t second = 0)
{
    return {year, month, day, 0, 0, hour, minute, second, 0};
}

unsigned long long Time(const CSystemDate_Lx& date)
{
    unsigned long long milliseconds = 4711;
    CSystemTime_Lx::GetTime(date, milliseconds);
    return milliseconds;
}

std::string Text(const CSystemDate_Lx& date)
{
    char text[64];
    std::snprintf(text, sizeof text, "%u-%02u-%02u %02u:%02u:%02u w%u dst%d", date.m_Year,
                  date.m_Month, date.m_Day, date.m_Hour, date.m_Minute, date.m_Second,
                  date.m_DayOfWeek, static_cast<int>(date.m_DaylightSaving));
    return text;
}

class SystemTime : public testing::Test
{
protected:
    void SetUp() override { setenv("TZ", "UTC", 1); }
};

TEST_F(SystemTime, DatesCompareByTheirMoment)
{
    // Which of these hold.
    const auto order = [](const CSystemDate_Lx& a, const CSystemDate_Lx& b) {
        return std::string((a < b) ? "< " : "") + ((a <= b) ? "<= " : "") + ((a > b) ? "> " : "") +
               ((a >= b) ? ">= " : "") + ((a == b) ? "==" : "") + ((a != b) ? "!=" : "");
    };
    const CSystemDate_Lx base = Date(2024, 6, 15, 12, 30, 45);
    CSystemDate_Lx same = base;
    same.m_DayOfWeek = 3;
    same.m_Week = 2;
    same.m_DaylightSaving = 1;
    EXPECT_EQ(order(base, same), "<= >= ==");

    // Each field decides over all that follow it.
    std::uint32_t CSystemDate_Lx::*const fields[] = {
        &CSystemDate_Lx::m_Year, &CSystemDate_Lx::m_Month,  &CSystemDate_Lx::m_Day,
        &CSystemDate_Lx::m_Hour, &CSystemDate_Lx::m_Minute, &CSystemDate_Lx::m_Second};
    for (std::size_t at = 0; at < std::size(fields); ++at) {
        CSystemDate_Lx later = base;
        later.*fields[at] += 1;
        for (std::size_t behind = at + 1; behind < std::size(fields); ++behind)
            later.*fields[behind] = 0;
        EXPECT_EQ(order(base, later), "< <= !=") << at;
        EXPECT_EQ(order(later, base), "> >= !=") << at;
    }
    EXPECT_TRUE(Date(2024, 1, 1) < Date(0xFFFFFFFF, 1, 1)) << "unsigned";
}

TEST_F(SystemTime, DateToTime)
{
    EachRow("times", "dates", [](const CDataRow& row) {
        const auto number = [&row](std::size_t column) {
            return row.Number<std::uint32_t>(column);
        };
        EXPECT_EQ(Time(Date(number(0), number(1), number(2), number(3))),
                  row.Number<unsigned long long>(4));
    });
    g_FailingConversions = 1;
    EXPECT_EQ(Time(Date(2024, 5, 1)), 4711U) << "a failed conversion changes nothing";
    g_FailingConversions = 1;
    EXPECT_EQ(Time(Date(2024, 2, 29)), 1709251200000U) << "29 February tries 1 March";
    g_FailingConversions = 2;
    EXPECT_EQ(Time(Date(2024, 2, 29)), static_cast<unsigned long long>(-1000)) << "whatever it is";
    EXPECT_EQ(Time(Date(0xFFFFFFFF, 0xFFFFFFFF, 1)), Time(Date(0xFFFFFFFF, 0xFFFFFFFF, 1)));
}

TEST_F(SystemTime, TimeToDateFollowsTheZoneOfTheMoment)
{
    const std::map<std::string, const char*> zones = {
        {"UTC", "UTC"}, {"Berlin", Berlin}, {"NewYork", NewYork}};
    EachRow("times", "zones", [&zones](const CDataRow& row) {
        setenv("TZ", zones.at(row[0]), 1);
        const auto time = row.Number<unsigned long long>(1);
        CSystemDate_Lx date{};
        CSystemTime_Lx::GetDate(time + 999, date);
        EXPECT_EQ(Text(date), row[2]);
        EXPECT_EQ(Time(date), time);
    });

    CSystemDate_Lx untouched = Date(1, 2, 3);
    CSystemTime_Lx::GetDate(~0ULL, untouched);
    CSystemTime_Lx::GetDate(0, untouched);
    EXPECT_EQ(untouched.m_Week, 0U) << "never written";
}

TEST_F(SystemTime, WeekdayRules)
{
    for (const char* const zone : {"UTC", Berlin, NewYork}) {
        setenv("TZ", zone, 1);
        EachRow("times", "rules", [](const CDataRow& row) {
            CSystemDate_Lx rule =
                Date(row.Number<std::uint32_t>(3), row.Number<std::uint32_t>(0), 0, 12, 5, 9);
            rule.m_Week = row.Number<std::uint32_t>(1);
            rule.m_DayOfWeek = row.Number<std::uint32_t>(2);
            rule.m_DaylightSaving = static_cast<std::uint32_t>(-1);
            CSystemDate_Lx date{};
            CSystemTime_Lx::GetDateByWeek(rule, date);
            const std::string text = Text(date);
            EXPECT_EQ(text.substr(0, text.rfind(" dst")), row[4] + " 12:05:09 w" + row[2]);
            EXPECT_EQ(date.m_Week, rule.m_Week);
            CSystemTime_Lx::GetDateByWeek(rule, rule); // the record itself as output
            EXPECT_EQ(Text(rule), text);
        });
    }
    setenv("TZ", "UTC", 1);
    CSystemDate_Lx date{};
    CSystemDate_Lx week0 = Date(2024, 9, 0);
    CSystemTime_Lx::GetDateByWeek(week0, date);
    EXPECT_EQ(static_cast<int>(date.m_Day), -6) << "seven below the first Sunday";
    g_FailingConversions = 1; // then the moment -1, a Wednesday, is what is looked at
    CSystemTime_Lx::GetDateByWeek(week0, date);
    EXPECT_EQ(date.m_Year, 1969U);
    CSystemTime_Lx::GetDateByWeek(Date(0xFFFFFFFF, 12, 1), date); // absurd, and no fault
}

TEST_F(SystemTime, NowAndUpTime)
{
    EXPECT_EQ(CSystemTime_Lx::Now(), 1700000000987ULL);
    EXPECT_EQ(CSystemTime_Lx::UpTime(), 3000000000ULL);
    g_SystemInfoFails = true;
    EXPECT_EQ(CSystemTime_Lx::UpTime(), 0U);

    g_ClockFails = true;
    EXPECT_EQ(RaisedRecord([] { CSystemTime_Lx::Now(); }),
              "20050008:25; CSystemTime::Now () Src/Linux/SystemTimeLinux.cpp:28");
    const Vorn::Threading::CThrowDisable guard;
    EXPECT_EQ(CSystemTime_Lx::Now(), 0U);
    g_ClockFails = g_SystemInfoFails = false;
}

// localtime's buffer belongs to the host.
TEST_F(SystemTime, TheHostsBufferStays)
{
    const std::time_t moment = 86400;
    const std::tm* const shared = std::localtime(&moment);
    CSystemDate_Lx date{};
    CSystemTime_Lx::GetDate(1720000000000, date);
    CSystemTime_Lx::GetDateByWeek(Date(2024, 9, 0), date);
    EXPECT_EQ(shared->tm_mday, 2);
    EXPECT_EQ(shared->tm_year, 70);
}

} // namespace
