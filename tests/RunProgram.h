// Runs the vornex program the way a shell does.
#pragma once

#include <sys/wait.h>

#include "DataTable.h"
#include "ScratchFolder.h"

// What a run left behind. The status is the exit status, or 128 + the signal that ended it.
struct CRun
{
    int m_Status = -1;
    std::string m_Out;
    std::string m_Err;
};

// Runs VORNEX_PROGRAM with these arguments; `input` is its standard input, `environment` holds
// NAME=VALUE additions. Files, not pipes: nothing can block.
inline CRun RunProgram(const std::vector<std::string>& arguments, const std::string& input = {},
                       const std::vector<std::string>& environment = {})
{
    const CScratchFolder folder;
    const auto quoted = [](const std::string& word) {
        return " '" + Replaced(word, "'", "'\\''") + "'";
    };
    std::string command;
    for (const auto& setting : environment)
        command += "export" + quoted(setting) + ";";
    command += quoted(VORNEX_PROGRAM);
    for (const auto& argument : arguments)
        command += quoted(argument);
    const std::string path = folder.m_Path + "/";
    WriteFile(path + "in", input);
    const int status =
        std::system((command + " <" + path + "in >" + path + "out 2>" + path + "err").c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
            FileContent(path + "out"), FileContent(path + "err")};
}

// The arguments with more of them behind.
inline std::vector<std::string> Joined(std::vector<std::string> arguments,
                                       const std::vector<std::string>& more)
{
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}
