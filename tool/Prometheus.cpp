#include "Prometheus.h"

#include <cstdio>
#include <initializer_list>

namespace Tool {

namespace {

constexpr double SectorSize = 512;

// Text of a fact; empty for one that is not known. Always UTF-8, as the format wants it.
std::string TextOf(const Json& value)
{
    if (!value.is_string())
        return {};
    const auto printed = value.dump(-1, ' ', false, Json::error_handler_t::replace);
    return Json::parse(printed).get<std::string>();
}

std::string Escaped(const std::string& text)
{
    std::string escaped;
    for (const char character : text) {
        if (character == '\n')
            escaped += "\\n";
        else if (character == '\\' || character == '"')
            (escaped += '\\') += character;
        else
            escaped += character;
    }
    return escaped;
}

std::string Seconds(const Json& milliseconds)
{
    const auto value = milliseconds.get<unsigned long long>();
    char text[32];
    std::snprintf(text, sizeof text, "%llu.%03llu", value / 1000, value % 1000);
    return text;
}

std::string Bytes(const Json& sectors)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.0f", sectors.get<double>() * SectorSize);
    return text;
}

struct CLabel
{
    const char* m_Name;
    const Json& m_Value;
};

class CMetrics
{
public:
    // Begins a metric; its samples follow.
    void Metric(const char* name, const char* help)
    {
        m_Name = std::string("vornex_") + name;
        m_Text += "# HELP " + m_Name + " " + help + "\n# TYPE " + m_Name + " gauge\n";
    }
    void Sample(std::initializer_list<CLabel> labels, const std::string& value)
    {
        m_Text += m_Name;
        const char* before = "{";
        for (const auto& label : labels) {
            m_Text += before;
            m_Text += std::string(label.m_Name) + "=\"" + Escaped(TextOf(label.m_Value)) + '"';
            before = ",";
        }
        if (labels.size() != 0)
            m_Text += '}';
        m_Text += ' ' + value + '\n';
    }
    void Single(const char* name, const char* help, const std::string& value)
    {
        Metric(name, help);
        Sample({}, value);
    }
    void Facts(const char* name, const char* help, std::initializer_list<CLabel> labels)
    {
        Metric(name, help);
        Sample(labels, "1");
    }

    std::string m_Text;

private:
    std::string m_Name;
};

void AddDisks(CMetrics& metrics, const Json& disks)
{
    metrics.Metric("disk_size_bytes", "Size of a disk.");
    for (const auto& disk : disks)
        metrics.Sample({{"disk", disk["device"]}}, disk["bytes"].dump());
    metrics.Metric("disk_readable", "Whether the disk's partitions could be read.");
    for (const auto& disk : disks)
        metrics.Sample({{"disk", disk["device"]}}, disk.contains("error") ? "0" : "1");
    metrics.Metric("partition_size_bytes", "Size of a partition.");
    for (const auto& disk : disks)
        for (const auto& partition : disk["partitions"])
            metrics.Sample({{"disk", disk["device"]},
                            {"partition", partition["device"]},
                            {"mount_point", partition["mount_point"]}},
                           Bytes(partition["sectors"]));
}

void AddDevices(CMetrics& metrics, const Json& devices)
{
    metrics.Metric("pci_device_info", "A PCI device and its driver.");
    for (const auto& device : devices)
        metrics.Sample({{"address", device["address"]},
                        {"vendor", device["vendor"]},
                        {"device", device["device"]},
                        {"class", device["class"]},
                        {"driver", device["driver"]},
                        {"driver_version", device["version"]}},
                       "1");
}

} // namespace

std::string AsMetrics(const Json& report, std::size_t problems)
{
    CMetrics metrics;
    const auto& os = report["os"];
    const auto& processor = report["processor"];
    const auto& time = report["time"];
    metrics.Facts("host_info", "The host's name.", {{"name", report["host"]["name"]}});
    metrics.Facts("os_info", "The operating system; what is not known is empty.",
                  {{"vendor", os["vendor"]},
                   {"product", os["product"]},
                   {"version", os["version"]},
                   {"service_pack", os["service_pack"]},
                   {"architecture", os["architecture"]},
                   {"kernel", os["kernel"]["release"]}});
    metrics.Facts("processor_info", "The processor.",
                  {{"vendor", processor["vendor"]}, {"model", processor["model"]}});
    metrics.Single("processor_cores", "Cores of the processor.", processor["cores"].dump());
    metrics.Single("processor_threads", "Logical processors of the processor.",
                   processor["logical"].dump());
    metrics.Single("processor_hyper_threading", "Whether hyper-threading is on.",
                   processor["hyper_threading"].get<bool>() ? "1" : "0");
    metrics.Single("report_time_seconds", "When the report was made, in seconds since 1970.",
                   time.contains("milliseconds") ? Seconds(time["milliseconds"]) : "NaN");
    metrics.Single("uptime_seconds", "How long the system has been up.",
                   time.contains("uptime_milliseconds") ? Seconds(time["uptime_milliseconds"])
                                                        : "NaN");
    AddDisks(metrics, report["disks"]);
    AddDevices(metrics, report["pci"]);
    metrics.Facts("library_info", "The library's version.",
                  {{"version", report["library"]["version"]}});
    metrics.Single("report_problems", "What could not be found out.", std::to_string(problems));
    return metrics.m_Text;
}

} // namespace Tool
