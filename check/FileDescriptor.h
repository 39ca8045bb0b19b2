#pragma once

#include <unistd.h>

#include <utility>

/// One open file descriptor, and the duty to close it. -1 stands for none. Moved, not copied.
class FileDescriptor {
public:
    explicit FileDescriptor(int opened = -1) noexcept : number(opened) {}

    ~FileDescriptor() {
        if (number >= 0) {
            // A moved object holds -1; cppcheck does not follow that.
            // cppcheck-suppress doubleFree
            static_cast<void>(close(number)); // nothing was written: there is nothing to lose
        }
    }

    FileDescriptor(FileDescriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}

    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(number, other.number);
        return *this;
    }

    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int get() const noexcept { return number; }

    /// Hands the duty to close over to the caller.
    int release() noexcept { return std::exchange(number, -1); }

private:
    int number;
};
