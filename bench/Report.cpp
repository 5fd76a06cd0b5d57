// The whole of `vornex report` beside what a person would otherwise type to learn the same: lsblk,
// lspci -k, and hostnamectl, or uname and the release file where no systemd runs.
#include <cstdio>

#include "Spawn.h"

int main(int count, char** words)
{
    std::vector<Bench::Command> commands = {{"lsblk"}, {"lspci", "-k"}};
    if (access("/run/systemd/system", F_OK) == 0)
        commands.push_back({"hostnamectl"});
    else
        commands.insert(commands.end(), {{"uname", "-a"}, {"cat", "/etc/os-release"}});
    Bench::AddCommands("report/vornex", {{VORNEX_PROGRAM, "report"}});
    Bench::AddCommands("report/commands", commands);
    Bench::CRatioReporter reporter;
    const std::vector<std::string> engines = {"vornex", "commands"};
    if (Bench::RunCommands(count, words, reporter, "report", engines) != EXIT_SUCCESS)
        return EXIT_FAILURE;
    std::printf("\npeak memory of the largest process\n");
    for (const auto& engine : engines)
        std::printf("%-12s %8.0f KiB\n", engine.c_str(), reporter.Counter("report", engine, "KiB"));
    return EXIT_SUCCESS;
}
