#include "RatioReporter.h"

#include <algorithm>
#include <cstdio>

namespace Bench {

namespace {

std::string TimeText(double nanoseconds)
{
    static constexpr const char* Units[] = {"ns", "us", "ms", "s"};
    std::size_t unit = 0;
    while (nanoseconds >= 1000 && unit + 1 < std::size(Units)) {
        nanoseconds /= 1000;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.3g %s", nanoseconds, Units[unit]);
    return text;
}

} // namespace

void CRatioReporter::ReportRuns(const std::vector<Run>& runs)
{
    for (const auto& run : runs) {
        if (run.error_occurred)
            continue;
        const std::string name = run.run_name.function_name;
        const double time =
            run.GetAdjustedRealTime() * 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit);
        CRow& row = m_Rows[name];
        if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median")
            row.m_Median = time;
        else if (run.run_type == Run::RT_Iteration)
            row.m_Times.push_back(time);
        else
            continue;
        for (const auto& counter : run.counters)
            row.m_Counters[counter.first] = counter.second.value;
    }
    ConsoleReporter::ReportRuns(runs);
}

const CRatioReporter::CRow* CRatioReporter::Find(const std::string& workload,
                                                 const std::string& engine) const
{
    const auto row = m_Rows.find(workload + "/" + engine);
    return row == m_Rows.end() ? nullptr : &row->second;
}

double CRatioReporter::Median(const std::string& workload, const std::string& engine) const
{
    const CRow* const row = Find(workload, engine);
    if (row == nullptr)
        return 0;
    if (row->m_Median != 0 || row->m_Times.empty())
        return row->m_Median;
    std::vector<double> times = row->m_Times;
    const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
    std::nth_element(times.begin(), middle, times.end());
    return *middle;
}

double CRatioReporter::Counter(const std::string& workload, const std::string& engine,
                               const std::string& counter) const
{
    const CRow* const row = Find(workload, engine);
    if (row == nullptr || row->m_Counters.count(counter) == 0)
        return 0;
    return row->m_Counters.at(counter);
}

void CRatioReporter::PrintRatios(const std::vector<std::string>& workloads,
                                 const std::vector<std::string>& engines) const
{
    std::printf("\n%-20s %12s", "median of a row", engines.front().c_str());
    for (std::size_t i = 1; i < engines.size(); ++i)
        std::printf(" %12s", ("/ " + engines[i]).c_str());
    std::printf("\n");
    for (const auto& workload : workloads) {
        const double own = Median(workload, engines.front());
        if (own == 0)
            continue;
        std::printf("%-20s %12s", workload.c_str(), TimeText(own).c_str());
        for (std::size_t i = 1; i < engines.size(); ++i) {
            const double other = Median(workload, engines[i]);
            if (other == 0)
                std::printf(" %12s", "-");
            else
                std::printf(" %12.2f", own / other);
        }
        std::printf("\n");
    }
}

} // namespace Bench
