// vornex time, and the time section of the report.
#include <cstdio>
#include <ctime>

#include <vornex/Numbers.h>
#include <vornex/SystemTime.h>

#include "Program.h"
#include "Section.h"

namespace Tool {

namespace {

using VornEx::CSystemDate_Lx;
using VornEx::CSystemTime_Lx;

struct COptions
{
    bool m_Json = false;
    std::vector<std::string> m_Rule;
};

std::string DateText(const CSystemDate_Lx& date)
{
    char text[64];
    std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u", date.m_Year, date.m_Month,
                  date.m_Day, date.m_Hour, date.m_Minute, date.m_Second);
    return text;
}

// Name and offset of the zone that holds at a time value, such as "CET +0100".
std::string Zone(unsigned long long milliseconds)
{
    const auto seconds = static_cast<std::time_t>(milliseconds / 1000);
    std::tm local{};
    char text[64] = "";
    if (localtime_r(&seconds, &local) != nullptr)
        std::strftime(text, sizeof text, "%Z %z", &local);
    return text;
}

std::string LocalText(unsigned long long milliseconds)
{
    CSystemDate_Lx date{};
    CSystemTime_Lx::GetDate(milliseconds, date);
    return DateText(date) + " " + Zone(milliseconds);
}

std::uint32_t RuleNumber(const std::string& text, const char* what, std::uint32_t least,
                         std::uint32_t most)
{
    std::uint32_t value = 0;
    try {
        value = VornEx::atoui32(text.c_str(), 10);
    } catch (unsigned int) {
        value = most + 1;
    }
    if (value < least || value > most)
        throw CUsageError(std::string("--rule: ") + what + " must be " + std::to_string(least) +
                          " to " + std::to_string(most) + ", not " + text);
    return value;
}

// MONTH WEEK WEEKDAY YEAR [HH:MM]
CSystemDate_Lx ReadRule(const std::vector<std::string>& words)
{
    CSystemDate_Lx rule{};
    rule.m_Month = RuleNumber(words[0], "the month", 1, 12);
    rule.m_Week = RuleNumber(words[1], "the week", 1, 5);
    rule.m_DayOfWeek = RuleNumber(words[2], "the weekday", 0, 6);
    rule.m_Year = RuleNumber(words[3], "the year", 1970, 9999);
    rule.m_DaylightSaving = static_cast<std::uint32_t>(-1);
    if (words.size() > 4) {
        const std::string& clock = words[4];
        const std::size_t colon = clock.find(':');
        if (colon == std::string::npos)
            throw CUsageError("--rule: the time must be HH:MM, not " + clock);
        rule.m_Hour = RuleNumber(clock.substr(0, colon), "the hour", 0, 23);
        rule.m_Minute = RuleNumber(clock.substr(colon + 1), "the minute", 0, 59);
    }
    return rule;
}

int Time(const COptions& options)
{
    if (options.m_Rule.empty())
        return PrintSection(TimeSection(), options.m_Json);

    const CSystemDate_Lx rule = ReadRule(options.m_Rule);
    CSystemDate_Lx date{};
    CSystemTime_Lx::GetDateByWeek(rule, date);
    unsigned long long milliseconds = 0;
    CSystemTime_Lx::GetTime(date, milliseconds);
    // Where time_t has 32 bits, the years after 2038 do not come out.
    if (date.m_Year != rule.m_Year || date.m_Month != rule.m_Month)
        throw std::runtime_error("this machine cannot convert dates of " +
                                 std::to_string(rule.m_Year));
    CSection section;
    section.m_Text = {"", {{"Date", DateText(date) + " " + Zone(milliseconds)}}, {}};
    section.m_Json = {
        {"date", DateText(date)}, {"zone", Zone(milliseconds)}, {"milliseconds", milliseconds}};
    return PrintSection(section, options.m_Json);
}

} // namespace

CSection TimeSection()
{
    const unsigned long long now = CSystemTime_Lx::Now();
    const unsigned long long upTime = CSystemTime_Lx::UpTime();
    CSection section;
    section.m_Text = {
        "Time",
        {{"Now", LocalText(now)}, {"Up", Duration(upTime)}, {"Since", LocalText(now - upTime)}},
        {}};
    CSystemDate_Lx date{};
    CSystemTime_Lx::GetDate(now, date);
    CSystemDate_Lx since{};
    CSystemTime_Lx::GetDate(now - upTime, since);
    section.m_Json = {{"now", DateText(date)},
                      {"zone", Zone(now)},
                      {"milliseconds", now},
                      {"uptime_milliseconds", upTime},
                      {"since", DateText(since)}};
    return section;
}

void AddTime(CProgram& program)
{
    const auto command =
        program.Add("time", "The local time, the uptime, or the date of a weekday rule", Time);
    command.m_App
        ->add_option("--rule", command.m_Options->m_Rule,
                     "MONTH WEEK WEEKDAY YEAR [HH:MM]: the WEEK-th (5: the last) WEEKDAY (0: "
                     "Sunday) of the month, as in 3 5 0 2024 02:00")
        ->expected(4, 5);
    AddJson(command.m_App, command.m_Options->m_Json);
}

} // namespace Tool
