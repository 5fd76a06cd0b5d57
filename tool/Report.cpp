// vornex report: everything about this machine.
#include <algorithm>
#include <iostream>
#include <sstream>

#include <vornex/Module.h>
#include <vornex/Utilities.h>

#include "Mail.h"
#include "Program.h"
#include "Prometheus.h"
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

// Of docs/report.schema.json. A member that is added keeps the number, one that is renamed, removed
// or means something else raises it.
constexpr int SchemaVersion = 1;

struct COptions
{
    bool m_Json = false;
    bool m_Prometheus = false;
    CMailOptions m_Mail;
};

int PrintReport(const COptions& options)
{
    const bool asText = !options.m_Json && !options.m_Prometheus;
    Json json = {{"schema", SchemaVersion}};
    std::size_t problems = 0;
    bool first = true;
    for (const auto& row : Sections) {
        const CSection section = row.m_Make();
        if (asText) {
            if (!first)
                std::cout << '\n';
            first = false;
            Print(section.m_Text);
        } else {
            json[row.m_Name] = section.m_Json;
        }
        for (const auto& problem : section.m_Problems)
            Complain(problem);
        problems += section.m_Problems.size();
    }
    if (options.m_Json)
        Print(json);
    if (options.m_Prometheus)
        std::cout << AsMetrics(json, problems);
    return problems == 0 ? Done : Failed;
}

int MailReport(const COptions& options)
{
    if (options.m_Mail.m_Server.empty())
        throw CUsageError("--mail-to needs --server");
    std::string text;
    int status = Done;
    {
        const CCapture capture;
        status = PrintReport(options);
        text = capture.Text();
    }
    Vorn::Strings::TString<64> host;
    VornEx::hostname(host);
    CMailOptions mail = options.m_Mail;
    mail.m_Subject = std::string("Report of ") + host.m_Text;
    if (mail.m_From.empty())
        mail.m_From = std::string("vornex@") + host.m_Text;
    return std::max(status, Deliver(mail, text));
}

int Report(const COptions& options)
{
    return options.m_Mail.m_To.empty() ? PrintReport(options) : MailReport(options);
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
    CLI::Option* const json = command.m_App->add_flag("--json", command.m_Options->m_Json,
                                                      "Print one JSON object instead of text");
    command.m_App
        ->add_flag("--prometheus", command.m_Options->m_Prometheus,
                   "Print metrics for Prometheus instead of text")
        ->excludes(json);
    CMailOptions& mail = command.m_Options->m_Mail;
    auto* const to = command.m_App->add_option(
        "--mail-to", mail.m_To, "Mail the report to these addresses instead of printing it");
    AddServerOptions(command.m_App, mail);
    for (const char* const option :
         {"--server", "--user", "--password-file", "--from", "--from-name"})
        command.m_App->get_option(option)->needs(to);
}

} // namespace Tool
