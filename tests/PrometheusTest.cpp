// The report as metrics: units, and texts that the format could not take as they are.
#include "../tool/Prometheus.h"
#include "DataTable.h"

namespace {

void ExpectLine(const std::string& product, const std::string& line)
{
    std::string text;
    for (const auto& part : Words("metrics", "report"))
        text += part;
    auto report = Tool::Json::parse(Replaced(text, "PRODUCT", "null"));
    report["os"]["product"] = product;
    const std::string metrics = "\n" + Tool::AsMetrics(report, 3);
    EXPECT_NE(metrics.find("\n" + line + "\n"), std::string::npos) << line << metrics;
}

TEST(Prometheus, UnitsAndLabels)
{
    for (const auto& line : Words("metrics", "lines"))
        ExpectLine("Debian", line);
    EachRow("metrics", "labels", [](const CDataRow& row) {
        ExpectLine(row[0], R"(vornex_os_info{vendor="",product=")" + row[1] +
                               R"(",version="12",service_pack="",architecture="x86-32",)"
                               R"(kernel="6.1"} 1)");
    });
}

} // namespace
