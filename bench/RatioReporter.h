// A console reporter that ends with what a benchmark is run for: the median of each row, and the
// ratios between engines.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace Bench {

class CRatioReporter : public benchmark::ConsoleReporter
{
public:
    CRatioReporter() : ConsoleReporter(OO_None) {}

    void ReportRuns(const std::vector<Run>& runs) override;

    // Median real time of a row named "workload/engine", in nanoseconds; 0 when it did not run.
    double Median(const std::string& workload, const std::string& engine) const;

    // The value of one of the row's counters; 0 when it has none.
    double Counter(const std::string& workload, const std::string& engine,
                   const std::string& counter) const;

    // A line a workload, a column an engine: the time of the first engine, and for each of the
    // others the first engine's time divided by it. Below 1: the first is faster.
    void PrintRatios(const std::vector<std::string>& workloads,
                     const std::vector<std::string>& engines) const;

private:
    struct CRow
    {
        std::vector<double> m_Times;
        double m_Median = 0;
        std::map<std::string, double> m_Counters;
    };

    const CRow* Find(const std::string& workload, const std::string& engine) const;

    std::map<std::string, CRow> m_Rows;
};

} // namespace Bench
