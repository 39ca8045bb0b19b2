#include <fcntl.h>
#include <unistd.h>

#include <cstring>

// The /bin/sh of a device on which nothing may really run: it writes down the command line that it was given, ended by a
// zero byte, which no argument holds, and returns. One write each: commands stand in the order in which they came.
int main(int argc, char** argv) {
    constexpr int NotRecorded = 99;
    if (argc < 3 || std::strcmp(argv[1], "-c") != 0) {
        return NotRecorded;
    }
    const char* command = argv[argc - 1];
    const size_t length = std::strlen(command) + 1;
    const int record = open("/record/commands", O_WRONLY | O_APPEND | O_CLOEXEC);
    return write(record, command, length) == static_cast<ssize_t>(length) ? 0 : NotRecorded;
}
