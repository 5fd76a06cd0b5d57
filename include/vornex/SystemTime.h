// Calendar dates in local time, time values in milliseconds since 1970-01-01 00:00:00 UTC, and the
// weekday rules by which clocks are changed.
//
// Local time is that of the process's TZ (tzset(3)); a change of TZ is honoured at the next call.
// Conversions go through the platform's time_t: where it has 32 bits they end in January 2038.
//
// What it does not do: no time zones other than the process's, no leap seconds, no check of ranges
// beyond what is said below.
#pragma once

#include <cstdint>

#include <vorn/Export.h>

namespace VornEx {

// A broken-down date. Plain data; comparisons look at year, month, day, hour, minute and second
// only.
struct VORN_EXPORT CSystemDate_Lx
{
    std::uint32_t m_Year;           // in full, such as 2024
    std::uint32_t m_Month;          // 1 to 12
    std::uint32_t m_Day;            // 1 to 31
    std::uint32_t m_DayOfWeek;      // 0 = Sunday to 6 = Saturday
    std::uint32_t m_Week;           // in a rule: 1 to 4 the first to fourth, 5 and more the last
    std::uint32_t m_Hour;           // 0 to 23
    std::uint32_t m_Minute;         // 0 to 59
    std::uint32_t m_Second;         // 0 to 60
    std::uint32_t m_DaylightSaving; // as in tm_isdst, a negative value in two's complement

    bool operator==(const CSystemDate_Lx& other) const;
    bool operator!=(const CSystemDate_Lx& other) const { return !(*this == other); }
    bool operator<(const CSystemDate_Lx& other) const;
    bool operator>(const CSystemDate_Lx& other) const { return *this != other && !(*this < other); }
    bool operator<=(const CSystemDate_Lx& other) const { return *this < other || *this == other; }
    bool operator>=(const CSystemDate_Lx& other) const { return *this > other || *this == other; }
};

// All operations may run in several threads at once, as long as nobody changes the environment
// meanwhile.
class VORN_EXPORT CSystemTime_Lx
{
public:
    // The time value of a local date; whether daylight saving holds is for the system to decide.
    // A day that its month does not have (29 February of a common year, 30 and 31 of the short
    // ones, all above 31) is the first of the next month, whatever the excess. A date that
    // mktime(3) cannot convert leaves `milliseconds` as it was; only a 29 February that it cannot
    // convert is tried once more as 1 March, and what comes of that is taken, -1000 for a failure.
    static void GetTime(const CSystemDate_Lx& date, unsigned long long& milliseconds);

    // The local date of a time value; m_Week is not written. A value beyond what the system can
    // convert leaves the date as it was.
    static void GetDate(unsigned long long milliseconds, CSystemDate_Lx& date);

    // The date in rule.m_Year and m_Month that is the m_Week-th weekday m_DayOfWeek (5 and more:
    // the last), at the rule's time of day. So month 3, week 5, weekday 0, 02:00 is the last Sunday
    // of March at two o'clock. Nothing is checked: week 0 gives a day seven below the first.
    static void GetDateByWeek(const CSystemDate_Lx& rule, CSystemDate_Lx& date);

    // Milliseconds since the system started, in whole seconds; 0 when sysinfo(2) fails.
    static unsigned long long UpTime();

    // The present time value. Raises TimeCallFailed, with the context "CSystemTime::Now ()", when
    // gettimeofday(2) fails; where throwing is disabled the value is then 0.
    static unsigned long long Now();
};

} // namespace VornEx
