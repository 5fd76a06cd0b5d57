// vornex module: versions of kernel modules.
#include <vornex/VersionCheck.h>

#include "Program.h"
#include "Section.h"

namespace Tool {

namespace {

struct COptions
{
    std::vector<std::string> m_Modules;
    bool m_Json = false;
};

int Module(const COptions& options)
{
    CSection section;
    Json versions = Json::array();
    for (const auto& module : options.m_Modules) {
        Vorn::Strings::TString<64> version;
        VornEx::GetModuleVersion(module, version);
        if (version.m_Length == 0)
            section.m_Problems.push_back(module + ": no version found");
        else
            section.m_Text.m_Rows.emplace_back(module, version.m_Text);
        versions.push_back({{"module", module}, {"version", version.m_Text}});
    }
    section.m_Json = {{"modules", versions}};
    return PrintSection(section, options.m_Json);
}

} // namespace

void AddModule(CProgram& program)
{
    const auto command = program.Add("module", "Versions of kernel modules", Module);
    command.m_App
        ->add_option("NAME|PATH", command.m_Options->m_Modules,
                     "Names of modules of the running kernel, or module files")
        ->required();
    AddJson(command.m_App, command.m_Options->m_Json);
}

} // namespace Tool
