// Commands of other tools, whose word the tests take.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

// Runs a shell command and gives the lines that it puts out; none when it fails.
inline std::vector<std::string> OutputOf(const std::string& command)
{
    std::vector<std::string> lines;
    FILE* const output = popen(command.c_str(), "r");
    char line[4096];
    while (output != nullptr && std::fgets(line, sizeof line, output) != nullptr)
        lines.emplace_back(line, std::string(line).find_last_not_of('\n') + 1);
    return output != nullptr && pclose(output) == 0 ? lines : std::vector<std::string>();
}
