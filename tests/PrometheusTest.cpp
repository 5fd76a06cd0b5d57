// The report as metrics: units, and texts that the format could not take as they are.
#include <gtest/gtest.h>

#include "../tool/Prometheus.h"

namespace {

using Tool::Json;

Json Report(const std::string& product)
{
    return {
        {"host", {{"name", "h"}}},
        {"os",
         {{"vendor", nullptr},
          {"product", product},
          {"version", "12"},
          {"service_pack", nullptr},
          {"architecture", "x86-32"},
          {"kernel", {{"release", "6.1"}}}}},
        {"processor",
         {{"vendor", "v"}, {"model", ""}, {"cores", 2}, {"logical", 4}, {"hyper_threading", true}}},
        {"time", {{"milliseconds", 1711850400007}, {"uptime_milliseconds", 60000}}},
        {"disks",
         {{{"device", "/dev/sda"},
           {"bytes", 1099511627776},
           {"partitions",
            {{{"device", "/dev/sda1"}, {"sectors", 8589934592}, {"mount_point", "/"}}}}},
          {{"device", "/dev/sdb"}, {"bytes", 0}, {"partitions", Json::array()}, {"error", "no"}}}},
        {"pci", Json::array()},
        {"library", {{"version", "1"}}},
    };
}

bool HasLine(const std::string& metrics, const std::string& line)
{
    return ("\n" + metrics).find("\n" + line + "\n") != std::string::npos;
}

TEST(Prometheus, UnitsAndLabels)
{
    const std::string metrics = Tool::AsMetrics(Report("Debian"), 3);
    for (
        const char* const line : {
            "# TYPE vornex_uptime_seconds gauge",
            "vornex_uptime_seconds 60.000",
            "vornex_report_time_seconds 1711850400.007",
            "vornex_processor_hyper_threading 1",
            "vornex_processor_threads 4",
            R"(vornex_disk_size_bytes{disk="/dev/sda"} 1099511627776)",
            R"(vornex_disk_readable{disk="/dev/sda"} 1)",
            R"(vornex_disk_readable{disk="/dev/sdb"} 0)",
            R"(vornex_partition_size_bytes{disk="/dev/sda",partition="/dev/sda1",mount_point="/"} )"
            "4398046511104",
            "vornex_report_problems 3",
        })
        EXPECT_TRUE(HasLine(metrics, line)) << line << "\n" << metrics;
}

TEST(Prometheus, TextsAreEscaped)
{
    const struct
    {
        const char* m_Product;
        const char* m_Label;
    } rows[] = {
        {R"(a "b" c)", R"(a \"b\" c)"},  {R"(back\slash)", R"(back\\slash)"},
        {"two\nlines", R"(two\nlines)"}, {"\xFF", "\xEF\xBF\xBD"},
        {"\xC3\xA4\t/", "\xC3\xA4\t/"},  {"", ""},
    };
    for (const auto& row : rows)
        EXPECT_TRUE(HasLine(Tool::AsMetrics(Report(row.m_Product), 0),
                            std::string(R"(vornex_os_info{vendor="",product=")") + row.m_Label +
                                R"(",version="12",service_pack="",architecture="x86-32",)"
                                R"(kernel="6.1"} 1)"))
            << row.m_Product;
}

} // namespace
