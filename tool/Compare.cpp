// vornex compare: the order of two versions.
#include <iostream>

#include <vornex/VersionCheck.h>

#include "Program.h"
#include "Text.h"

namespace Tool {

namespace {

// What a script learns with --quiet; 0 is equal.
constexpr int Less = 10;
constexpr int Greater = 11;

struct COptions
{
    std::string m_A;
    std::string m_B;
    unsigned int m_Count = 0;
    bool m_Quiet = false;
    bool m_Json = false;
};

int Compare(const COptions& options)
{
    const int order = VornEx::VersionCompare(options.m_A, options.m_B, options.m_Count);
    if (options.m_Quiet)
        return order < 0 ? Less : order > 0 ? Greater : int{Done};
    const char* const sign = order < 0 ? "<" : order > 0 ? ">" : "=";
    if (options.m_Json)
        Print(Json{{"a", options.m_A},
                   {"b", options.m_B},
                   {"components", options.m_Count},
                   {"order", sign}});
    else
        std::cout << sign << '\n';
    return Done;
}

} // namespace

void AddCompare(CProgram& program)
{
    const auto command = program.Add("compare", "Order of two versions: prints <, = or >", Compare);
    COptions& options = *command.m_Options;
    command.m_App->add_option("A", options.m_A, "A version, such as 2.6.18-92")->required();
    command.m_App->add_option("B", options.m_B, "Another")->required();
    command.m_App->add_option("-n,--components", options.m_Count,
                              "How many leading components count (default 0, all)");
    CLI::Option* const quiet = command.m_App->add_flag(
        "--quiet", options.m_Quiet,
        "Print nothing; exit status 0 for equal, 10 when A comes before B, 11 when behind");
    command.m_App->add_flag("--json", options.m_Json, "Print one JSON object instead of text")
        ->excludes(quiet);
}

} // namespace Tool
