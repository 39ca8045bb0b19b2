// Runs a program and writes down how it ended, which a sandbox or a shell around it would blur: an exit status of 134
// and a death by SIGABRT look the same from there.
//
//     EndReporter <report> <program> [<name> [<argument>...]]
//
// <program> is looked up in PATH when it is no path. <name> and what follows is the program's argument vector, from its
// first place on; without a name it is empty.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc < 3) {
        return 2;
    }
    const pid_t child = fork();
    if (child < 0) {
        return 2;
    }
    if (child == 0) {
        const rlimit none{0, 0}; // a death by a signal is no accident here: no core files
        static_cast<void>(setrlimit(RLIMIT_CORE, &none));
        execvp(argv[2], argv + 3);
        std::perror(argv[2]);
        _exit(127);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child) {
        return 2;
    }
    std::FILE* report = std::fopen(argv[1], "w");
    if (report == nullptr) {
        return 2;
    }
    if (WIFSIGNALED(status)) {
        static_cast<void>(std::fprintf(report, "signal %d", WTERMSIG(status)));
    } else {
        static_cast<void>(std::fprintf(report, "exit %d", WEXITSTATUS(status)));
    }
    return std::fclose(report) == 0 ? 0 : 2;
}
