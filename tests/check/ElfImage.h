#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// A small ELF file with the headers that a dynamic linker reads, and no code.
struct ElfImage {
    bool is64 = true;
    bool isLittle = true;
    uint16_t machine = 62; // x86-64
    uint16_t type = 3;     // ET_DYN
    std::string interpreter;
    std::vector<std::string> needed;
    std::string soname;
    std::string runPath;
    bool hasOldRunPath = false; ///< DT_RPATH instead of DT_RUNPATH

    /// @return the bytes of the file.
    std::string bytes() const;
};
