#pragma once

#include "fuzz/Check.h"

#include <string>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

/// A file without a disk, with a path that any open takes.
class MemoryFile {
public:
    MemoryFile() : descriptor(memfd_create("wyvern-fuzz", MFD_CLOEXEC)) { Check(descriptor >= 0, "memfd_create"); }
    ~MemoryFile() { static_cast<void>(close(descriptor)); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor); }

    void write(std::string_view content) const {
        Check(ftruncate(descriptor, 0) == 0, "ftruncate of a memory file");
        Check(pwrite(descriptor, content.data(), content.size(), 0) == static_cast<ssize_t>(content.size()),
              "write to a memory file");
    }

    std::string read() const {
        struct stat status {};

        Check(fstat(descriptor, &status) == 0, "fstat of a memory file");
        std::string content(static_cast<size_t>(status.st_size), '\0');
        Check(pread(descriptor, content.data(), content.size(), 0) == status.st_size, "read of a memory file");
        return content;
    }

private:
    int descriptor;
};
