// Programs run as a benchmark's iterations: the wall time from starting one to its end, and its
// peak memory. What they print goes nowhere.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Bench {

using Command = std::vector<std::string>;

// Whether the command could be started and ended well. `peak` grows to its peak memory in KiB,
// which the system never gives below that of the process that starts it.
inline bool Run(const Command& command, long& peak)
{
    std::vector<char*> words;
    for (const auto& word : command)
        words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    int status = -1;
    rusage usage{};
    const bool started =
        posix_spawnp(&child, words[0], &actions, nullptr, words.data(), environ) == 0 &&
        wait4(child, &status, 0, &usage) == child;
    posix_spawn_file_actions_destroy(&actions);
    peak = std::max(peak, usage.ru_maxrss);
    return started && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// A row "workload/contender" whose iterations run the commands one after the other, with the peak
// memory of the largest where that is asked for.
inline void AddCommands(const std::string& row, const std::vector<Command>& commands,
                        bool showsPeak)
{
    benchmark::RegisterBenchmark(row.c_str(), [=](benchmark::State& state) {
        long peak = 0;
        for (auto _ : state)
            for (const auto& command : commands)
                if (!Run(command, peak)) {
                    state.SkipWithError((command.front() + " failed").c_str());
                    return;
                }
        if (showsPeak)
            state.counters["KiB"] = static_cast<double>(peak);
    })->UseRealTime();
}

} // namespace Bench
