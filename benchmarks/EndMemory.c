// EndMemory COMMAND...: runs a command, then prints what /proc/PID/smaps_rollup says of its memory at its end, when it
// still has it (ptrace(2), PTRACE_EVENT_EXIT). For scripts/footprint, on the emulated board.
#include <stdio.h>
#include <string.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char** argv) {
    const pid_t child = argc > 1 ? fork() : -1;
    if (child == 0) {
        ptrace(PTRACE_TRACEME, 0, NULL, NULL);
        execv(argv[1], argv + 1);
        _exit(127);
    }
    if (child < 0 || waitpid(child, NULL, 0) != child || // stopped at the exec
        ptrace(PTRACE_SETOPTIONS, child, NULL, (void*)PTRACE_O_TRACEEXIT) != 0 ||
        ptrace(PTRACE_CONT, child, NULL, NULL) != 0 || waitpid(child, NULL, 0) != child) { // stopped at its end
        return 1;
    }
    char text[64];
    snprintf(text, sizeof text, "/proc/%ld/smaps_rollup", (long)child);
    FILE* const memory = fopen(text, "r");
    char line[256];
    while (memory != NULL && fgets(line, sizeof line, memory) != NULL) {
        if (strncmp(line, "Rss:", 4) == 0 || strncmp(line, "Anonymous:", 10) == 0) {
            fputs(line, stdout);
        }
    }
    return 0;
}
