#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <system_error>

/// Puts the same few pages behind a large range again and again, so that gigabytes of address space cost a few
/// megabytes of memory. What is written at one place shows up at many others.
///
/// @param start memory that nobody has written to and that the caller releases as before: pages of an own mmap(2), or
///              a block so large that the allocator maps it alone. A part of a page at either end stays as it is.
/// Throws std::system_error.
inline void RepeatPages(void* start, size_t size) {
    constexpr size_t PieceSize = size_t{16} << 20U;
    const auto pageSize = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t before = (pageSize - reinterpret_cast<uintptr_t>(start) % pageSize) % pageSize;
    const size_t whole = size < before ? 0 : (size - before) / pageSize * pageSize;

    const int pages = memfd_create("wyvern-test", MFD_CLOEXEC);
    bool done = pages >= 0 && ftruncate(pages, PieceSize) == 0;
    for (size_t at = 0; done && at < whole; at += PieceSize) {
        done = mmap(static_cast<char*>(start) + before + at, std::min(PieceSize, whole - at), PROT_READ | PROT_WRITE,
                    MAP_SHARED | MAP_FIXED, pages, 0) != MAP_FAILED;
    }
    const int error = errno;
    if (pages >= 0) {
        static_cast<void>(close(pages)); // the mappings keep what it names
    }
    if (!done) {
        throw std::system_error(error, std::generic_category(), "cannot repeat pages");
    }
}

/// @return a text of `length` times the same letter, of a gigabyte or more, that takes up little memory.
inline std::string HugeText(size_t length, char letter) {
    std::string text;
    text.reserve(length);
    RepeatPages(text.data(), length);
    text.resize(length, letter);
    return text;
}
