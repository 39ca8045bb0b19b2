#pragma once

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <string>

/// What the kernel makes of a path inside a directory that it takes for the root (openat2(2), RESOLVE_IN_ROOT; Linux 5.6).
struct OpenedInRoot {
    int error = 0; ///< of openat2; 0: there is something
    struct stat status = {};

    OpenedInRoot(const std::string& root, const std::string& path) {
        const int directory = open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        open_how how = {};
        how.flags = O_PATH | O_CLOEXEC;
        how.resolve = RESOLVE_IN_ROOT;
        // EAGAIN: something was renamed or mounted meanwhile, anywhere, and there is a ".." on the way.
        int opened = -1;
        do {
            opened = static_cast<int>(syscall(SYS_openat2, directory, path.c_str(), &how, sizeof how));
            error = opened < 0 ? errno : 0;
        } while (error == EAGAIN);
        if (opened >= 0) {
            error = fstat(opened, &status) == 0 ? 0 : errno;
            static_cast<void>(close(opened));
        }
        static_cast<void>(close(directory));
    }
};
