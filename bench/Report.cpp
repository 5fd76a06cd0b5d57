// The whole of `vornex report` beside what a person would otherwise type to learn the same: lsblk,
// lspci -k, and hostnamectl, or uname and the release file where no systemd runs.
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
    return Bench::RunCommands(count, words, "report", {"vornex", "commands"});
}
