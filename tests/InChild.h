// Runs code in a child process.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

// What the body returns there, or 128 + the signal that ended it.
template <class Body>
int InChild(Body body)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(body());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
