#pragma once

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quorval::testsignals {

// The number of a process that has ended (and been waited for): an owner that is gone.
inline pid_t endedProcess()
{
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(0);
    int status = 0;
    ::waitpid(child, &status, 0);
    return child;
}

} // namespace quorval::testsignals
