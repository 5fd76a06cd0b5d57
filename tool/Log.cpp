// vornex log: a line in the system log.
#include <syslog.h>

#include <vornex/SystemLog.h>

#include "Program.h"

namespace Tool {

namespace {

struct COptions
{
    int m_Priority = LOG_INFO;
    int m_Number = 0;
    std::string m_Text;
};

// The service hands its line to the system as a format: doubled, a percent sign is itself.
std::string WithPercentsDoubled(const std::string& text)
{
    std::string doubled;
    for (const char character : text)
        doubled.append(character == '%' ? 2 : 1, character);
    return doubled;
}

int Log(const COptions& options)
{
    VornEx::CSystemLog_Lx log;
    log.Report(options.m_Number, options.m_Priority, WithPercentsDoubled(options.m_Text));
    return Done;
}

} // namespace

void AddLog(CProgram& program)
{
    const auto command = program.Add("log", "Write a numbered message to the system log", Log);
    COptions& options = *command.m_Options;
    command.m_App
        ->add_option("-p,--priority", options.m_Priority, "warning, debug, error or info (default)")
        ->transform(CLI::CheckedTransformer(std::map<std::string, int>{{"warning", LOG_WARNING},
                                                                       {"debug", LOG_DEBUG},
                                                                       {"error", LOG_ERR},
                                                                       {"info", LOG_INFO}}));
    command.m_App->add_option("-n,--number", options.m_Number, "The message's number (default 0)");
    command.m_App->add_option("TEXT", options.m_Text, "The message, logged as typed")->required();
}

} // namespace Tool
