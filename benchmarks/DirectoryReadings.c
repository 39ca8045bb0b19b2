// The limit of a run that only looks: DirectoryReadings FILE DIRECTORY COUNT reads the file whole, then the directory
// COUNT times, once for each entry of the file, through the kernel's own calls. Nothing is looked at.

#define _GNU_SOURCE
#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

static int ReadFile(const char* path) {
    const int file = open(path, O_RDONLY);
    struct stat status;
    if (file < 0 || fstat(file, &status) != 0) {
        return 0;
    }
    char* text = malloc((size_t)status.st_size);
    const ssize_t count = text == NULL ? -1 : read(file, text, (size_t)status.st_size);
    free(text);
    return close(file) == 0 && count == status.st_size;
}

static int ReadDirectory(const char* path) {
    static char entries[32768]; // what the C library's readdir asks for, too
    const int directory = open(path, O_RDONLY | O_DIRECTORY);
    if (directory < 0) {
        return 0;
    }
    ssize_t count = 0;
    do {
        count = getdents64(directory, entries, sizeof(entries));
    } while (count > 0);
    return close(directory) == 0 && count == 0;
}

int main(int argc, char** argv) {
    if (argc != 4 || !ReadFile(argv[1])) {
        return 1;
    }
    for (int left = atoi(argv[3]); left > 0; --left) {
        if (!ReadDirectory(argv[2])) {
            return 1;
        }
    }
    return 0;
}
