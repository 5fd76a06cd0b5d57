#include <vornex/SystemTime.h>

#include <ctime>
#include <tuple>

#include <sys/sysinfo.h>
#include <sys/time.h>

#include <vornex/Module.h>

#include "../CallFrame.h"

namespace VornEx {

namespace {

constexpr const char* Source = "Src/Linux/SystemTimeLinux.cpp";
constexpr unsigned int TimeFailedLine = 25;

Vorn::Exceptions::SOURCE_INFO g_NowSource = {{0}, Source, 28};

constexpr std::uint32_t TmYearBase = 1900;
constexpr std::time_t SecondsPerDay = 86400;
constexpr unsigned int LastWeek = 4; // in a rule, a week above it is the last

unsigned long long Milliseconds(std::time_t seconds)
{
    return static_cast<unsigned long long>(static_cast<long long>(seconds) * 1000);
}

// localtime_r alone need not notice that TZ has changed.
bool LocalTime(std::time_t seconds, std::tm& local)
{
    tzset();
    return localtime_r(&seconds, &local) != nullptr;
}

// The year of a calendar record. Unsigned throughout, so that an absurd year wraps and fails in
// mktime instead of overflowing here.
int TmYear(std::uint32_t year)
{
    return static_cast<int>(year - TmYearBase);
}

auto Moment(const CSystemDate_Lx& date)
{
    return std::tie(date.m_Year, date.m_Month, date.m_Day, date.m_Hour, date.m_Minute,
                    date.m_Second);
}

bool IsShortMonth(std::uint32_t month)
{
    return month == 2 || month == 4 || month == 6 || month == 9 || month == 11;
}

// Everything of the output that both conversions take from a calendar record.
void TakeDate(const std::tm& local, CSystemDate_Lx& date)
{
    date.m_Year = static_cast<std::uint32_t>(local.tm_year) + TmYearBase;
    date.m_Month = static_cast<std::uint32_t>(local.tm_mon + 1);
    date.m_Hour = static_cast<std::uint32_t>(local.tm_hour);
    date.m_Minute = static_cast<std::uint32_t>(local.tm_min);
    date.m_Second = static_cast<std::uint32_t>(local.tm_sec);
    date.m_DaylightSaving = static_cast<std::uint32_t>(local.tm_isdst);
}

} // namespace

bool CSystemDate_Lx::operator==(const CSystemDate_Lx& other) const
{
    return Moment(*this) == Moment(other);
}

bool CSystemDate_Lx::operator<(const CSystemDate_Lx& other) const
{
    return Moment(*this) < Moment(other);
}

void CSystemTime_Lx::GetTime(const CSystemDate_Lx& date, unsigned long long& milliseconds)
{
    std::tm calendar{};
    // The zero-based month of the following month is the month itself.
    const bool rolls = date.m_Day > 31 || (date.m_Day == 31 && IsShortMonth(date.m_Month)) ||
                       (date.m_Day == 30 && date.m_Month == 2);
    calendar.tm_mday = rolls ? 1 : static_cast<int>(date.m_Day);
    calendar.tm_mon = static_cast<int>(rolls ? date.m_Month : date.m_Month - 1);
    calendar.tm_year = TmYear(date.m_Year);
    calendar.tm_hour = static_cast<int>(date.m_Hour);
    calendar.tm_min = static_cast<int>(date.m_Minute);
    calendar.tm_sec = static_cast<int>(date.m_Second);
    calendar.tm_wday = -1;
    calendar.tm_isdst = -1;

    std::tm attempt = calendar;
    std::time_t seconds = std::mktime(&attempt);
    if (seconds == -1) {
        if (date.m_Month != 2 || date.m_Day != 29)
            return;
        calendar.tm_mday = 1;
        calendar.tm_mon = 2;
        seconds = std::mktime(&calendar);
    }
    milliseconds = Milliseconds(seconds);
}

void CSystemTime_Lx::GetDate(unsigned long long milliseconds, CSystemDate_Lx& date)
{
    std::tm local{};
    if (!LocalTime(static_cast<std::time_t>(milliseconds / 1000), local))
        return;
    TakeDate(local, date);
    date.m_Day = static_cast<std::uint32_t>(local.tm_mday);
    date.m_DayOfWeek = static_cast<std::uint32_t>(local.tm_wday);
}

void CSystemTime_Lx::GetDateByWeek(const CSystemDate_Lx& rule, CSystemDate_Lx& date)
{
    const bool last = rule.m_Week > LastWeek;

    // The last one is found from the month's last day, the day before the next month's first.
    std::tm calendar{};
    calendar.tm_mday = 1;
    calendar.tm_mon = static_cast<int>(rule.m_Month - 1);
    calendar.tm_year = TmYear(rule.m_Year);
    if (last) {
        calendar.tm_mon = static_cast<int>(rule.m_Month);
        if (calendar.tm_mon > 11) {
            calendar.tm_mon = 0;
            calendar.tm_year = TmYear(rule.m_Year + 1);
        }
    }
    calendar.tm_hour = static_cast<int>(rule.m_Hour);
    calendar.tm_min = static_cast<int>(rule.m_Minute);
    calendar.tm_sec = static_cast<int>(rule.m_Second);
    calendar.tm_isdst = static_cast<int>(rule.m_DaylightSaving);
    calendar.tm_wday = -1;

    std::time_t seconds = std::mktime(&calendar);
    if (seconds != -1 && last)
        seconds -= SecondsPerDay;
    std::tm local{};
    if (!LocalTime(seconds, local))
        return;

    // The rule may be the output record itself.
    const std::uint32_t weekday = rule.m_DayOfWeek;
    const std::uint32_t week = rule.m_Week;
    TakeDate(local, date);
    date.m_DayOfWeek = weekday;
    date.m_Week = week;

    const auto found = static_cast<std::uint32_t>(local.tm_wday);
    auto distance = static_cast<std::int32_t>(last ? found - weekday : weekday - found);
    if (distance < 0)
        distance += 7;
    const auto days = static_cast<std::uint32_t>(distance);
    date.m_Day =
        last ? static_cast<std::uint32_t>(local.tm_mday) - days : 1 + days + 7 * (week - 1);
}

unsigned long long CSystemTime_Lx::UpTime()
{
    struct sysinfo info
    {};
    if (sysinfo(&info) != 0)
        return 0;
    return static_cast<unsigned long long>(static_cast<long long>(info.uptime) * 1000);
}

unsigned long long CSystemTime_Lx::Now()
{
    unsigned long long now = 0;
    Internals::WithContext(g_NowSource, "CSystemTime::Now ()", [&](Internals::CCallFrame& frame) {
        timeval time{};
        if (gettimeofday(&time, nullptr) < 0)
            frame.Raise(TimeFailedLine, TimeCallFailed);
        now = Milliseconds(time.tv_sec) + static_cast<unsigned long long>(time.tv_usec / 1000);
    });
    return now;
}

} // namespace VornEx
