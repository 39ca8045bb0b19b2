// What whole processes take, one against the other:
//
//   PairedRuns BLOCKS RUNS COMMAND [ARGUMENT...] -- COMMAND [ARGUMENT...] [-- ...]
//
// In each block each command runs RUNS times, by turns, A B A B; which comes first is drawn by lot for each block. One
// line is printed for each block and command: their numbers, and the median of the command's runs in nanoseconds, from
// before vfork(2) until the process was waited for. vfork, because what fork(2) takes depends on the size of this
// program.
// The commands read and write /dev/null. All stay on one processor, so that none of them pays for moving.
//
// Exit status: 0 when every run ended with status 0, 1 when one did not, 2 for wrong arguments.

#define _GNU_SOURCE
#include <fcntl.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

enum { MostCommands = 8, MostRuns = 1000 };

static long long Now(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

static long long Run(char** command) {
    const long long start = Now();
    const pid_t child = vfork();
    if (child == 0) {
        execvp(command[0], command);
        _exit(127);
    }
    int status = -1;
    if (child < 0 || waitpid(child, &status, 0) != child || status != 0) {
        dprintf(STDERR_FILENO, "PairedRuns: %s: wait status %d\n", command[0], status);
        exit(1);
    }
    return Now() - start;
}

static int Compare(const void* left, const void* right) {
    const long long a = *(const long long*)left;
    const long long b = *(const long long*)right;
    return (a > b) - (a < b);
}

// Splits the arguments at each "--". Returns how many commands there are.
static int Split(char** arguments, char*** commands) {
    int count = 0;
    commands[count++] = arguments;
    for (char** argument = arguments; *argument != NULL; ++argument) {
        if (strcmp(*argument, "--") == 0 && count < MostCommands) {
            *argument = NULL;
            commands[count++] = argument + 1;
        }
    }
    return count;
}

// Stays where it runs now. Not being allowed to is no failure: the runs are only less alike.
static void StayOnOneProcessor(void) {
    const int processor = sched_getcpu();
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(processor < 0 ? 0 : (size_t)processor, &set);
    (void)sched_setaffinity(0, sizeof(set), &set);
}

int main(int argc, char** argv) {
    const int blocks = argc > 3 ? atoi(argv[1]) : 0;
    const int runs = argc > 3 ? atoi(argv[2]) : 0;
    if (blocks < 1 || runs < 1 || runs > MostRuns) {
        fputs("Usage: PairedRuns BLOCKS RUNS COMMAND [ARGUMENT...] -- COMMAND [ARGUMENT...] [-- ...]\n", stderr);
        return 2;
    }
    char** commands[MostCommands];
    const int count = Split(argv + 3, commands);
    StayOnOneProcessor();
    // The results go where standard output went; what the commands write does not.
    FILE* results = fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3), "w");
    const int nothing = open("/dev/null", O_RDWR);
    if (results == NULL || nothing < 0) {
        return 1;
    }
    dup2(nothing, STDIN_FILENO);
    dup2(nothing, STDOUT_FILENO);
    close(nothing);
    srandom((unsigned)Now());

    static long long times[MostCommands][MostRuns];
    for (int i = 0; i < count; ++i) { // the first run of each reads its files from the disk
        (void)Run(commands[i]);
    }
    for (int block = 0; block < blocks; ++block) {
        const int first = (int)(random() % count);
        for (int run = 0; run < runs; ++run) {
            for (int i = 0; i < count; ++i) {
                const int turn = (first + i) % count;
                times[turn][run] = Run(commands[turn]);
            }
        }
        for (int i = 0; i < count; ++i) {
            qsort(times[i], (size_t)runs, sizeof(times[i][0]), Compare);
            fprintf(results, "%d %d %lld\n", block, i, times[i][runs / 2]);
        }
    }
    return fclose(results) == 0 ? 0 : 1;
}
