#pragma once

#include "check/ElfFile.h"

#include <string>

/// Reads the headers of a file that is held as a text.
inline ElfFile ReadElfText(const std::string& content) {
    return ReadElfFile(content.size(), [&content](uint64_t offset, size_t size) {
        return offset < content.size() ? content.substr(static_cast<size_t>(offset), size) : std::string();
    });
}
