// vornex error: what a code means.
#include <iostream>

#include <vorn/ModuleInfo.h>
#include <vornex/Numbers.h>

#include "Program.h"
#include "Text.h"

namespace Tool {

namespace {

struct COptions
{
    std::string m_Code;
    bool m_Json = false;
};

int Error(const COptions& options)
{
    unsigned int code = 0;
    try {
        code = VornEx::atoui32(options.m_Code.c_str(), 0);
    } catch (unsigned int) {
        throw CUsageError("not an error code: " + options.m_Code);
    }
    const auto message = Vorn::Misc::ErrorMessage(code);
    if (options.m_Json)
        Print(Json{{"code", code}, {"message", message.m_Text}});
    else
        std::cout << message.m_Text << '\n';
    return Done;
}

} // namespace

void AddError(CProgram& program)
{
    const auto command = program.Add("error", "The message of an error code", Error);
    command.m_App->add_option("CODE", command.m_Options->m_Code, "The code, such as 0x20050002")
        ->required();
    AddJson(command.m_App, command.m_Options->m_Json);
}

} // namespace Tool
