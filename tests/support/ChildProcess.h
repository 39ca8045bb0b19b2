#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

/// How a child process ended, and what of its standard output reached the pipe that it was given.
struct ChildResult {
    std::string output;
    int status = 0; ///< as waitpid gives it

    bool exitedWith(int code) const { return WIFEXITED(status) && WEXITSTATUS(status) == code; }

    bool killedBy(int signal) const { return WIFSIGNALED(status) && WTERMSIG(status) == signal; }
};

/// Runs `action` in a child process whose standard output is a pipe. The child exits with 0 after it, running its
/// exit-time functions; an exception that leaves `action` ends it through std::terminate.
///
/// Expectations inside `action` do not reach the test: let it print, or exit with another code, instead.
template <class Action>
ChildResult RunInChild(const Action& action) {
    int pipeEnds[2];
    static_cast<void>(std::fflush(nullptr)); // or the child would write the parent's pending output once more
    if (pipe(pipeEnds) != 0) {
        throw std::runtime_error("no pipe for a child process");
    }
    const pid_t child = fork();
    if (child < 0) {
        throw std::runtime_error("no child process");
    }
    if (child == 0) {
        [&]() noexcept {
            if (dup2(pipeEnds[1], STDOUT_FILENO) < 0) {
                _exit(126);
            }
            static_cast<void>(close(pipeEnds[0]));
            static_cast<void>(close(pipeEnds[1]));
            action();
        }();
        std::exit(EXIT_SUCCESS);
    }

    static_cast<void>(close(pipeEnds[1]));
    ChildResult result;
    char part[4096];
    ssize_t count = 0;
    while ((count = read(pipeEnds[0], part, sizeof part)) > 0 || (count < 0 && errno == EINTR)) {
        result.output.append(part, count > 0 ? static_cast<size_t>(count) : 0);
    }
    static_cast<void>(close(pipeEnds[0]));
    while (waitpid(child, &result.status, 0) < 0) {
        if (errno != EINTR) {
            throw std::runtime_error("the child process is lost");
        }
    }
    return result;
}
