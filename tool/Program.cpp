#include "Program.h"

#include <iostream>

#include <vorn/Trace.h>
#include <vornex/Module.h>
#include <vornex/Numbers.h>

#include "Text.h"

namespace Tool {

namespace {

constexpr void (*Subcommands[])(CProgram&) = {
    AddReport, AddOs,  AddCpu,  AddDisks,  AddPci,   AddModule, AddCompare,
    AddTime,   AddLog, AddMail, AddNumber, AddMatch, AddError,
};

constexpr unsigned int AllLevels = Vorn::Internals::TraceEnterLeave | Vorn::Internals::TraceDetail;

// Exit status of an action, whatever it throws.
int Guarded(const std::function<int()>& action)
{
    try {
        return action();
    } catch (unsigned int) {
        ComplainOfError();
    } catch (const CUsageError& error) {
        Complain(error.what());
        return WrongUsage;
    } catch (const std::exception& error) {
        Complain(error.what());
    }
    return Failed;
}

} // namespace

CLI::App* CProgram::AddSubcommand(const std::string& name, const std::string& what,
                                  std::function<int()> action)
{
    CLI::App* const app = m_App.add_subcommand(name, what);
    app->add_flag("--trace{all}", m_Trace,
                  "Write trace lines to standard error; --trace=MASK for chosen levels "
                  "(0x2 calls, 0x10 details)");
    app->callback([this, action = std::move(action)] { m_Action = action; });
    return app;
}

int CProgram::Run(int count, char** words)
{
    m_App.name("vornex");
    m_App.require_subcommand(1);
    m_App.set_version_flag("--version", VornEx::VORN_MODULE_INFO_VornEx.m_Version);
    for (const auto add : Subcommands)
        add(*this);

    try {
        m_App.parse(count, words);
    } catch (const CLI::Success& asked) {
        return m_App.exit(asked);
    } catch (const CLI::ParseError& error) {
        if (m_App.get_subcommands().empty() && count > 1 && *words[1] != '-')
            Complain(std::string("no such command: ") + words[1]);
        else
            m_App.exit(error, std::cerr, std::cerr);
        return WrongUsage;
    }

    if (!m_Trace.empty()) {
        unsigned int mask = AllLevels;
        if (m_Trace != "all") {
            try {
                mask = VornEx::atoui32(m_Trace.c_str(), 0);
            } catch (unsigned int) {
                Complain("--trace: not a mask: " + m_Trace);
                return WrongUsage;
            }
        }
        VornEx::VORN_MODULE_INFO_VornEx.m_TraceMask = mask;
    }

    const int status = Guarded(m_Action);
    if (!std::cout.flush()) {
        Complain("the output could not be written");
        return Failed;
    }
    return status;
}

} // namespace Tool
