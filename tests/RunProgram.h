// Runs the vornex program the way a shell does.
#pragma once

#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

// What a run left behind. The status is the exit status, or 128 + the signal that ended it.
struct CRun
{
    int m_Status = -1;
    std::string m_Out;
    std::string m_Err;
};

// Runs VORNEX_PROGRAM with these arguments; `input` is its standard input, `environment` holds
// NAME=VALUE additions.
inline CRun RunProgram(const std::vector<std::string>& arguments, const std::string& input = {},
                       const std::vector<std::string>& environment = {})
{
    // Files, not pipes: nothing can block.
    const auto scratch = [] {
        char name[] = "/tmp/vornex-test-XXXXXX";
        const int descriptor = mkstemp(name);
        unlink(name);
        return descriptor;
    };
    const auto content = [](int descriptor) {
        std::string text;
        lseek(descriptor, 0, SEEK_SET);
        char block[4096];
        for (ssize_t got; (got = read(descriptor, block, sizeof block)) > 0;)
            text.append(block, static_cast<std::size_t>(got));
        close(descriptor);
        return text;
    };
    const int in = scratch();
    const int out = scratch();
    const int err = scratch();
    if (write(in, input.data(), input.size()) != static_cast<ssize_t>(input.size()))
        return {};
    lseek(in, 0, SEEK_SET);

    const pid_t child = fork();
    if (child == 0) {
        dup2(in, STDIN_FILENO);
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        for (const auto& setting : environment)
            putenv(const_cast<char*>(
                setting.c_str())); // NOLINT(cppcoreguidelines-pro-type-const-cast)
        std::vector<char*> words = {const_cast<char*>(VORNEX_PROGRAM)};
        for (const auto& argument : arguments)
            words.push_back(const_cast<char*>(argument.c_str()));
        words.push_back(nullptr);
        execv(words[0], words.data());
        _exit(127);
    }
    CRun run;
    int status = 0;
    waitpid(child, &status, 0);
    run.m_Status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    run.m_Out = content(out);
    run.m_Err = content(err);
    close(in);
    return run;
}
