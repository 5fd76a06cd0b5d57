// vornex number: the strict conversions from a shell.
#include <iostream>

#include <vornex/Numbers.h>

#include "Program.h"
#include "Text.h"

namespace Tool {

namespace {

struct COptions
{
    std::string m_Type = "i64";
    int m_Base = 10;
    std::string m_Text;
    bool m_Json = false;
};

template <class Value>
int Show(Value (*convert)(const char*, int), const COptions& options)
{
    const Value value = convert(options.m_Text.c_str(), options.m_Base);
    if (options.m_Json)
        Print(Json{{"type", options.m_Type}, {"value", value}});
    else
        std::cout << value << '\n';
    return Done;
}

int Number(const COptions& options)
{
    if (options.m_Type == "i32")
        return Show(VornEx::atoi32, options);
    if (options.m_Type == "u32")
        return Show(VornEx::atoui32, options);
    if (options.m_Type == "u64")
        return Show(VornEx::atoui64, options);
    return Show(VornEx::atoi64, options);
}

} // namespace

void AddNumber(CProgram& program)
{
    const auto command =
        program.Add("number", "Convert a text that must be a whole number", Number);
    COptions& options = *command.m_Options;
    command.m_App->add_option("--type", options.m_Type, "i32, u32, i64 (default) or u64")
        ->check(CLI::IsMember({"i32", "u32", "i64", "u64"}));
    command.m_App->add_option("--base", options.m_Base,
                              "2 to 36, or 0 to go by the prefix (default 10)");
    command.m_App->add_option("TEXT", options.m_Text, "The number")->required();
    AddJson(command.m_App, options.m_Json);
}

} // namespace Tool
