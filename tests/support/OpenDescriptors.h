#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

/// @return how many descriptors this process has open, as the kernel counts them; the one that reads the list is among
///         them each time.
inline ptrdiff_t OpenDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}
