#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// What a program or library of the device says of itself in its ELF headers (elf(5)).
struct ElfFile {
    enum class State : uint8_t {
        NotElf,
        Damaged, ///< begins as one, but its headers lead out of the file or contradict themselves
        Read,
    };

    State state = State::NotElf;
    uint8_t bits = 0; ///< 32 or 64
    bool isLittleEndian = true;
    uint16_t machine = 0;            ///< e_machine
    bool isProgramOrLibrary = false; ///< ET_EXEC or ET_DYN
    std::string interpreter;         ///< PT_INTERP; empty for a static program and most libraries
    std::vector<std::string> needed; ///< DT_NEEDED
    std::string runPath;             ///< DT_RUNPATH, else DT_RPATH; directories with colons between
};

/// Reads the headers out of the bytes of a whole file. Nothing in them is believed: every offset and count is checked
/// against the file, and no more is read than a linker would ever write.
/// Throws only std::bad_alloc. Threads may call it at once.
ElfFile ReadElfFile(const std::string& content);

/// @return a name for a machine's number, "ARM", "x86-64"; "machine 1234" for one without.
std::string ElfMachineName(uint16_t machine);
