// The program's command line: one row in the table of Program.cpp and one source file a
// subcommand.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

namespace Tool {

enum ExitStatus : int
{
    Done = 0,
    Failed = 1,
    WrongUsage = 2,
};

// Wrong usage that only an action can see; printed with the subcommand's help hint, status 2.
class CUsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

class CProgram
{
public:
    // Options of one run of a subcommand live in a T that the action is called with.
    template <class Options>
    struct CCommand
    {
        CLI::App* m_App;
        std::shared_ptr<Options> m_Options;
    };

    // A subcommand. The action runs when the whole command line has been read, and gives the exit
    // status.
    template <class Options>
    CCommand<Options> Add(const std::string& name, const std::string& what,
                          int (*action)(const Options&))
    {
        auto options = std::make_shared<Options>();
        CLI::App* const app =
            AddSubcommand(name, what, [options, action] { return action(*options); });
        return {app, std::move(options)};
    }

    int Run(int count, char** words);

private:
    CLI::App* AddSubcommand(const std::string& name, const std::string& what,
                            std::function<int()> action);

    CLI::App m_App{"What machine is this, and tell somebody: platform services from a shell"};
    std::function<int()> m_Action;
    std::string m_Trace;
};

// The subcommands, one a source file.
void AddReport(CProgram& program);
void AddOs(CProgram& program);
void AddCpu(CProgram& program);
void AddDisks(CProgram& program);
void AddPci(CProgram& program);
void AddModule(CProgram& program);
void AddCompare(CProgram& program);
void AddTime(CProgram& program);
void AddLog(CProgram& program);
void AddMail(CProgram& program);
void AddNumber(CProgram& program);
void AddMatch(CProgram& program);
void AddError(CProgram& program);

// Adds --json.
inline void AddJson(CLI::App* app, bool& json)
{
    app->add_flag("--json", json, "Print one JSON object instead of text");
}

} // namespace Tool
