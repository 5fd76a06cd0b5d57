// vornex report: everything about this machine.
#include <iostream>
#include <sstream>

#include <vornex/Module.h>
#include <vornex/Utilities.h>

#include "Program.h"
#include "Section.h"

namespace Tool {

namespace {

// Name of the section in JSON, and what makes it. The order is that of the report.
struct CRow
{
    const char* m_Name;
    CSection (*m_Make)();
};

constexpr CRow Sections[] = {
    {"host", HostSection},       {"os", OsSection},       {"processor", ProcessorSection},
    {"time", TimeSection},       {"disks", DisksSection}, {"pci", PciSection},
    {"library", LibrarySection},
};

struct COptions
{
    bool m_Json = false;
};

int Report(const COptions& options)
{
    Json json;
    int status = Done;
    bool first = true;
    for (const auto& row : Sections) {
        const CSection section = row.m_Make();
        if (options.m_Json) {
            json[row.m_Name] = section.m_Json;
        } else {
            if (!first)
                std::cout << '\n';
            first = false;
            Print(section.m_Text);
        }
        for (const auto& problem : section.m_Problems) {
            Complain(problem);
            status = Failed;
        }
    }
    if (options.m_Json)
        Print(json);
    return status;
}

} // namespace

CSection HostSection()
{
    CSection section;
    Vorn::Strings::TString<64> name;
    if (!VornEx::hostname(name))
        section.m_Problems.emplace_back("the host name cannot be read");
    section.m_Text = {"Host", {{"Name", name.m_Text}}, {}};
    section.m_Json = {{"name", name.m_Text}};
    return section;
}

CSection LibrarySection()
{
    const char* const version = VornEx::VORN_MODULE_INFO_VornEx.m_Version;
    CSection section;
    section.m_Text = {"Library", {{"Version", version}}, {}};
    section.m_Json = {{"version", version}};
    return section;
}

int PrintSection(const CSection& section, bool json)
{
    if (json)
        Print(section.m_Json);
    else
        Print(section.m_Text);
    for (const auto& problem : section.m_Problems)
        Complain(problem);
    return section.m_Problems.empty() ? Done : Failed;
}

void AddReport(CProgram& program)
{
    const auto command = program.Add("report", "Report what machine this is", Report);
    AddJson(command.m_App, command.m_Options->m_Json);
}

} // namespace Tool
