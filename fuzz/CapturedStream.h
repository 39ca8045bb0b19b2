#pragma once

#include <cstdio>
#include <functional>
#include <string_view>
#include <sys/types.h>
#include <utility>

/// Takes the place of stdout or stderr for its lifetime and hands over what is written, each time it is flushed: no
/// descriptor, no system call. glibc lets both variables be assigned.
class CapturedStream {
public:
    using Receiver = std::function<void(std::string_view)>;

    CapturedStream(FILE*& capturedStream, Receiver receiveFlushed)
        : captured(capturedStream), original(capturedStream), receiver(std::move(receiveFlushed)) {
        cookie_io_functions_t functions{};
        functions.write = [](void* self, const char* text, size_t size) -> ssize_t {
            static_cast<CapturedStream*>(self)->receiver(std::string_view(text, size));
            return static_cast<ssize_t>(size);
        };
        captured = fopencookie(this, "w", functions);
    }

    ~CapturedStream() {
        static_cast<void>(std::fclose(captured));
        captured = original;
    }

    CapturedStream(const CapturedStream&) = delete;
    CapturedStream& operator=(const CapturedStream&) = delete;

private:
    FILE*& captured;
    FILE* original;
    Receiver receiver;
};
