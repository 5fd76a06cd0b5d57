// Runs code in a child process that has another root, for services that read fixed paths.
#pragma once

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>

#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

// What the body, called in a child whose root is the folder, returned; nothing when this user
// cannot change the root. A child that died gives "ended by signal N".
template <class Body>
std::optional<std::string> InRoot(const std::string& root, Body body)
{
    constexpr std::size_t Room = 1U << 20U;
    constexpr int NoRoot = 77;
    static char* const shared = static_cast<char*>(
        mmap(nullptr, Room, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const pid_t child = fork();
    if (child == 0) {
        if (chroot(root.c_str()) != 0 && (unshare(CLONE_NEWUSER) != 0 || chroot(root.c_str()) != 0))
            _exit(NoRoot);
        if (chdir("/") != 0)
            _exit(NoRoot);
        const std::string result = body();
        std::memcpy(shared, result.c_str(), std::min(result.size() + 1, Room - 1));
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status))
        return "ended by signal " + std::to_string(WTERMSIG(status));
    if (WEXITSTATUS(status) == NoRoot)
        return {};
    return std::string(shared);
}
