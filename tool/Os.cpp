// vornex os, and the operating system's section of the report.
#include <sys/utsname.h>

#include <vornex/OSInfo.h>

#include "Program.h"
#include "Section.h"

namespace Tool {

namespace {

using VornEx::COSInfo_Lx;

constexpr struct
{
    const char* m_Label;
    const char* m_Name; // in JSON
    bool (COSInfo_Lx::*m_Get)(Vorn::Strings::CStringVar&) const;
} Facts[] = {
    {"Vendor", "vendor", &COSInfo_Lx::GetOSVendor},
    {"Product", "product", &COSInfo_Lx::GetOSProduct},
    {"Version", "version", &COSInfo_Lx::GetOSVersion},
    {"Service pack", "service_pack", &COSInfo_Lx::GetOSServicePack},
    {"Build number", "build_number", &COSInfo_Lx::GetOSBuildNumber},
    {"Architecture", "architecture", &COSInfo_Lx::GetProcessorArchitecture},
};

struct COptions
{
    bool m_Json = false;
};

int Os(const COptions& options)
{
    return PrintSection(OsSection(), options.m_Json);
}

} // namespace

CSection OsSection()
{
    const COSInfo_Lx system;
    CSection section;
    section.m_Text.m_Title = "Operating system";
    auto& rows = section.m_Text.m_Rows;
    for (const auto& fact : Facts) {
        Vorn::Strings::TString<64> text;
        const bool known = (system.*fact.m_Get)(text);
        section.m_Json[fact.m_Name] = known ? Json(text.m_Text) : Json();
        if (known)
            rows.emplace_back(fact.m_Label, text.m_Text);
    }
    if (section.m_Json["vendor"].is_null() && section.m_Json["product"].is_null())
        rows.emplace(rows.begin(), "Product", "not recognised");

    // The kernel's own words stand beside the numbers, which are seldom known.
    utsname kernel{};
    if (uname(&kernel) != 0)
        section.m_Problems.emplace_back("the kernel cannot be asked");
    rows.emplace_back("Kernel", std::string(kernel.sysname) + " " + kernel.release);
    Json json = {{"name", kernel.sysname},
                 {"release", kernel.release},
                 {"major", nullptr},
                 {"minor", nullptr}};
    unsigned int majorNumber = 0;
    unsigned int minorNumber = 0;
    if (system.GetKernelVersion(majorNumber, minorNumber)) {
        rows.emplace_back("Kernel version",
                          std::to_string(majorNumber) + "." + std::to_string(minorNumber));
        json["major"] = majorNumber;
        json["minor"] = minorNumber;
    }
    section.m_Json["kernel"] = std::move(json);
    return section;
}

void AddOs(CProgram& program)
{
    const auto command = program.Add("os", "Operating system, kernel and architecture", Os);
    AddJson(command.m_App, command.m_Options->m_Json);
}

} // namespace Tool
