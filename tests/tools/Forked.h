#pragma once

#include <cstdio>
#include <exception>
#include <sys/wait.h>
#include <unistd.h>

/// Runs `action` in a forked child and answers its exit code, or 1000 + signal. The child leaves without running
/// anybody's clean-up; an exception is told on standard error and gives 99.
template <class Action> int ExitCodeOfForked(Action action)
{
    const pid_t child = ::fork();
    if (child == 0)
    {
        int code = 99;
        try
        {
            code = action();
        }
        catch (const std::exception& failure)
        {
            std::fprintf(stderr, "in the child: %s\n", failure.what());
        }
        ::_exit(code);
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}
