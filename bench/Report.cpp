// The whole of `vornex report` beside what a person would otherwise type to learn the same: lsblk,
// lspci -k, and hostnamectl, or uname and the release file where no systemd runs.
#include "Spawn.h"

namespace {

const bool g_Registered = [] {
    std::vector<Bench::Command> commands = {{"lsblk"}, {"lspci", "-k"}};
    if (access("/run/systemd/system", F_OK) == 0)
        commands.push_back({"hostnamectl"});
    else
        commands.insert(commands.end(), {{"uname", "-a"}, {"cat", "/etc/os-release"}});
    std::string names;
    for (const auto& command : commands)
        names += (names.empty() ? "" : " + ") + command.front();
    Bench::AddCommands("the whole report/vornex", {{VORNEX_PROGRAM, "report"}}, true);
    Bench::AddCommands("the whole report/" + names, commands, true);
    return true;
}();

} // namespace
